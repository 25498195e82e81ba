#include "online_disks.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>

#include "data_mgr/data_mgr_master/data_mgr_master.h"

namespace {

constexpr std::array<const char *, DISK_STATE_BUTT> kStateNames{"normal", "fault", "offline", "prefail", "slow", "-"};
constexpr std::array<const char *, DISK_TYPE_BUTT> kTypeNames{"SSD_NVMe", "SSD_SAS",  "SSD_SATA",
                                                              "HDD_SAS",  "HDD_SATA", "HDD_NL_SAS"};

} // namespace

bool ListOnlineDisks(std::vector<DiskMgrObj> &disks)
{
    std::array<uint32_t, DISK_ONLINE_MAX> ids{};
    std::array<std::array<char, DISK_SN_SIZE + 1>, DISK_ONLINE_MAX> texts{};
    std::array<DiskSnRef, DISK_ONLINE_MAX> serials{};
    for (size_t i = 0; i < serials.size(); i++) {
        serials[i] = {static_cast<uint32_t>(texts[i].size()), texts[i].data()};
    }
    uint32_t count = 0;
    if (ListAllOnlineDisk(ids.data(), serials.data(), DISK_ONLINE_MAX, &count) != 0) {
        return false;
    }
    for (uint32_t i = 0; i < count && i < DISK_ONLINE_MAX; i++) {
        DiskMgrObj disk = {};
        if (DiskBaseInfoCliGet(ids[i], &disk, sizeof(disk)) == 0) { // else it left since the listing
            disks.push_back(disk);
        }
    }
    return true;
}

bool ReadHealth(uint32_t diskId, DiskHealthInfo &health)
{
    if (DiskSmartInfoCliGet(diskId, &health, sizeof(health)) != 0) {
        return false;
    }
    // The store holds a record of zeros until the agent has answered.
    return health.powerOnHours != 0 || health.wearInt != 0 || health.wearFrac != 0 ||
           std::any_of(std::begin(health.detail.raw), std::end(health.detail.raw),
                       [](uint8_t byte) { return byte != 0; });
}

const char *DiskStateName(uint32_t state)
{
    return state < kStateNames.size() ? kStateNames[state] : "?";
}

const char *DiskTypeName(uint32_t type)
{
    return type < kTypeNames.size() ? kTypeNames[type] : "?";
}

std::string LocalTimeText()
{
    std::array<char, 32> text{};
    const std::time_t instant = std::time(nullptr);
    struct tm local = {};
    (void)std::strftime(text.data(), text.size(), "%F %T", localtime_r(&instant, &local));
    return text.data();
}
