#include "drm_fixture.h"

#include <cstring>

void DrmTest::SetUp()
{
    StartQuiet();
    spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
    // Their workers would run beside the test's own thread, on lists that have no lock.
    lib::DrmUnRegisterDiskEventHandler(15);
    lib::DrmUnRegisterDiskEventHandler(16);
    ClearHostLines();
}

uint32_t DrmTest::AddDisk(const std::string &sn, uint32_t type, const std::string &vendor)
{
    lib::DiskMgrObj record = Record(sn, type);
    record.diskState = 0;
    std::memset(record.vendor, 0, sizeof(record.vendor));
    (void)vendor.copy(record.vendor, sizeof(record.vendor) - 1);
    EXPECT_EQ(lib::DiskBaseInfoSet(Sn(sn.c_str()), &record), 0u) << sn;
    uint32_t id = kFail;
    EXPECT_EQ(lib::GetDiskIdBySn(Sn(sn.c_str()), &id), 0u) << sn;
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskInEvent(id), 0u);
    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskInEvent(id), 0u);
    return id;
}

void DrmTest::SetDetail(uint32_t id, const std::vector<uint8_t> &detail)
{
    lib::DiskHealthInfo health{};
    std::memcpy(health.detail, detail.data(), detail.size());
    SetHealth(id, health);
}

void DrmTest::SetWear(uint32_t id, uint64_t hours, uint32_t wear)
{
    lib::DiskHealthInfo health{};
    health.powerOnHours = hours;
    health.wearInt = wear / 100;
    health.wearFrac = wear % 100;
    SetHealth(id, health);
}

lib::DiskDrmInfo DrmTest::Drm(uint32_t id)
{
    lib::DiskDrmInfo info{};
    EXPECT_EQ(lib::DiskDrmInfoCliGet(id, &info, sizeof(info)), 0u);
    return info;
}

std::vector<uint32_t> DrmTest::IdsOf(const lib::ListHead &head)
{
    std::vector<uint32_t> ids;
    for (const lib::ListHead *at = head.next; at != &head; at = at->next) {
        ids.push_back(reinterpret_cast<const lib::DrmDiskNode *>(at)->diskId);
    }
    return ids;
}

size_t DrmTest::Logged(uint32_t level, const std::string &text)
{
    size_t count = 0;
    for (const HostLine &line : HostLines()) {
        count += line.module == kDrmModule && line.level == level && line.text == text ? 1 : 0;
    }
    return count;
}

std::string DrmTest::Shell(const std::vector<std::string> &words, int *result)
{
    std::vector<std::string> copy = words;
    std::vector<char *> argv;
    for (std::string &word : copy) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    (void)TakeHostPrint();
    const int got = HostCommandOf(words[0]).exec(static_cast<int>(words.size()), argv.data());
    if (result != nullptr) {
        *result = got;
    }
    return TakeHostPrint();
}
