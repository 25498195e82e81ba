#include "host_fixture.h"

#include <cstring>

namespace {

std::string Name(uint32_t number)
{
    return "SN-" + std::to_string(number);
}

class DiskRegistryTest : public HostTest {
protected:
    void SetUp() override { StartQuiet(); }

    /** As the refresh does: ask for an identifier, then register under it. */
    static uint32_t Add(const std::string &sn)
    {
        uint32_t id = kFail;
        EXPECT_EQ(lib::GetNewDiskId(Sn(sn.c_str()), &id), 0u);
        lib::DiskMgrObj record = Record(sn);
        EXPECT_EQ(lib::DiskInfoUpdate(id, &record), 0u);
        return id;
    }

    static uint32_t Remove(uint32_t id, const std::string &sn)
    {
        lib::DiskMgrObj record = Record(sn);
        record.diskState = 2;
        return lib::DiskInfoUpdate(id, &record);
    }

    static uint64_t Counter() { return lib::CorvaneOsAtomicGet(lib::Global<void *>("g_diskNumAtomic")); }
    static lib::DiskMgrObj *Slot(uint32_t id) { return lib::Global<lib::DiskMgrObj *[128]>("g_diskMgrObj")[id]; }
};

class GetNewDiskIdTest : public DiskRegistryTest {};

TEST_F(GetNewDiskIdTest, GivesTheSameIdentifierUntilItIsTaken)
{
    uint32_t first = kFail;
    uint32_t second = kFail;

    EXPECT_EQ(lib::GetNewDiskId(Sn("SN-A"), &first), 0u);
    EXPECT_EQ(lib::GetNewDiskId(Sn("SN-B"), &second), 0u);

    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 0u);
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]GetNewDiskId:pre set new diskid: sn = SN-A diskId = 0"), 1u);
}

TEST_F(GetNewDiskIdTest, ALeftIdentifierWaitsForTheCursorToWrap)
{
    EXPECT_EQ(Add("SN-0"), 0u);
    EXPECT_EQ(Add("SN-1"), 1u);
    EXPECT_EQ(Add("SN-2"), 2u);

    EXPECT_EQ(Remove(1, "SN-1"), 0u);

    EXPECT_EQ(Add("SN-3"), 3u);
    lib::Global<uint32_t>("g_nextUnusedDiskId") = 127;
    EXPECT_EQ(Add("SN-127"), 127u);
    EXPECT_EQ(Add("SN-W"), 1u);
}

TEST_F(GetNewDiskIdTest, AFreedIdentifierAtTheCursorComesBackAtOnce)
{
    EXPECT_EQ(Add("SN-0"), 0u);
    EXPECT_EQ(Add("SN-1"), 1u);

    EXPECT_EQ(Remove(1, "SN-1"), 0u);

    EXPECT_EQ(Add("SN-2"), 1u);
}

TEST_F(GetNewDiskIdTest, Gives2At64Disks)
{
    for (uint32_t i = 0; i < 64; i++) {
        ASSERT_EQ(Add(Name(i)), i);
    }

    uint32_t id = 500;
    EXPECT_EQ(lib::GetNewDiskId(Sn("SN-MORE"), &id), 2u);
    EXPECT_EQ(id, 500u);
}

TEST_F(GetNewDiskIdTest, RefusesALengthOf41AndNoText)
{
    uint32_t id = 0;

    EXPECT_EQ(lib::GetNewDiskId({41, "SN"}, &id), kFail);
    EXPECT_EQ(lib::GetNewDiskId({2, nullptr}, &id), kFail);

    EXPECT_EQ(HostLogged(3, "[DISK_MGR]DiskBaseInfoSet Param error, sn_len = 41"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]DiskBaseInfoSet Param error, sn_len = 2"), 1u);
}

class GetDiskIdBySnTest : public DiskRegistryTest {};

TEST_F(GetDiskIdBySnTest, FindsByTextWhateverTheLength)
{
    (void)Add("SN-0");
    (void)Add("SN-1");
    uint32_t id = kFail;

    EXPECT_EQ(lib::GetDiskIdBySn({1, "SN-1"}, &id), 0u);

    EXPECT_EQ(id, 1u);
    EXPECT_EQ(lib::IsSNExist(Sn("SN-1")), 0u);
    EXPECT_EQ(lib::IsSNExist(Sn("SN-X")), kFail);
}

TEST_F(GetDiskIdBySnTest, ListsTheDisksWhenItDoesNotKnowOne)
{
    (void)Add("SN-0");
    (void)Add("SN-1");
    uint32_t id = 77;

    EXPECT_EQ(lib::GetDiskIdBySn(Sn("SN-X"), &id), 4u);

    EXPECT_EQ(id, 77u);
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]GetDiskIdBySn can't find sn = SN-X"), 1u);
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]\tsn = SN-0, diskid= 0"), 1u);
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]\tsn = SN-1, diskid= 1"), 1u);
}

TEST_F(GetDiskIdBySnTest, RefusesALengthOf41)
{
    (void)Add("SN-0");
    uint32_t id = 0;

    EXPECT_EQ(lib::GetDiskIdBySn({41, "SN-0"}, &id), kFail);

    EXPECT_EQ(HostLogged(3, "[DISK_MGR]DiskBaseInfoSet Param error, sn len = 41"), 1u);
}

class DiskInfoUpdateTest : public DiskRegistryTest {};

TEST_F(DiskInfoUpdateTest, WritesTheFileToTheByte)
{
    lib::DiskMgrObj record = Record("SN-0");
    record.diskState = 5; // a new disk is normal, whatever the record says
    ASSERT_EQ(lib::DiskInfoUpdate(0, &record), 0u);
    lib::DiskMgrObj nvme = Record("SN \"3\"", 0);
    nvme.slotId = 12;
    nvme.frameId = 4;
    (void)std::snprintf(nvme.pciAddr, sizeof(nvme.pciAddr), "%s", "0000:81:00.0");
    ASSERT_EQ(lib::DiskInfoUpdate(3, &nvme), 0u);

    EXPECT_EQ(Registry(), "[{\n"
                          "\t\t\"diskId\":\t0,\n"
                          "\t\t\"diskState\":\t0,\n"
                          "\t\t\"frameId\":\t4294967295,\n"
                          "\t\t\"slotId\":\t4294967295,\n"
                          "\t\t\"sectorSize\":\t512,\n"
                          "\t\t\"diskType\":\t2,\n"
                          "\t\t\"mediaType\":\t2,\n"
                          "\t\t\"diskCapacity\":\t\"480103981056\",\n"
                          "\t\t\"vendor\":\t\"ATA\",\n"
                          "\t\t\"model\":\t\"VSSD-480\",\n"
                          "\t\t\"sn\":\t\"SN-0\",\n"
                          "\t\t\"pciAddr\":\t\"\",\n"
                          "\t\t\"firmware\":\t\"FW1\"\n"
                          "\t}, {\n"
                          "\t\t\"diskId\":\t3,\n"
                          "\t\t\"diskState\":\t0,\n"
                          "\t\t\"frameId\":\t4,\n"
                          "\t\t\"slotId\":\t12,\n"
                          "\t\t\"sectorSize\":\t512,\n"
                          "\t\t\"diskType\":\t0,\n"
                          "\t\t\"mediaType\":\t2,\n"
                          "\t\t\"diskCapacity\":\t\"480103981056\",\n"
                          "\t\t\"vendor\":\t\"ATA\",\n"
                          "\t\t\"model\":\t\"VSSD-480\",\n"
                          "\t\t\"sn\":\t\"SN \\\"3\\\"\",\n"
                          "\t\t\"pciAddr\":\t\"0000:81:00.0\",\n"
                          "\t\t\"firmware\":\t\"FW1\"\n"
                          "\t}]");
    EXPECT_EQ(Slot(0)->diskState, 0u);
    EXPECT_EQ(Slot(3)->diskId, 3u);
    EXPECT_EQ(Counter(), 2u);
}

TEST_F(DiskInfoUpdateTest, RemovingTheLastDiskLeavesAnEmptyArray)
{
    (void)Add("SN-0");

    EXPECT_EQ(Remove(0, "SN-0"), 0u);

    EXPECT_EQ(Registry(), "[]");
    EXPECT_EQ(Slot(0), nullptr);
    EXPECT_EQ(Counter(), 0u);
}

TEST_F(DiskInfoUpdateTest, RefusesBadArguments)
{
    lib::DiskMgrObj record = Record("SN-0");

    EXPECT_EQ(lib::DiskInfoUpdate(128, &record), 7u);
    EXPECT_EQ(lib::DiskInfoUpdate(0, nullptr), 7u);
}

TEST_F(DiskInfoUpdateTest, RefusesASerialThatIsRegisteredElsewhere)
{
    (void)Add("SN-0");
    const std::string before = Registry();
    lib::DiskMgrObj record = Record("SN-0");

    EXPECT_EQ(lib::DiskInfoUpdate(5, &record), kFail);

    EXPECT_EQ(Slot(5), nullptr);
    EXPECT_EQ(Counter(), 1u);
    EXPECT_EQ(Registry(), before);
}

TEST_F(DiskInfoUpdateTest, RefusesAnOfflineRecordOnAnEmptySlot)
{
    EXPECT_EQ(Remove(4, "SN-4"), kFail);

    EXPECT_EQ(Slot(4), nullptr);
}

TEST_F(DiskInfoUpdateTest, RefusesAnotherSerialOnATakenSlot)
{
    (void)Add("SN-0");
    lib::DiskMgrObj record = Record("SN-1");

    EXPECT_EQ(lib::DiskInfoUpdate(0, &record), kFail);

    EXPECT_STREQ(Slot(0)->sn, "SN-0");
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]disk info update failed, input SN (SN-1) does not match saved SN (SN-0) under "
                            "same disk id."),
              1u);
}

TEST_F(DiskInfoUpdateTest, FailedSaveOfANewDiskLeavesNothing)
{
    BlockSaves();
    lib::DiskMgrObj record = Record("SN-0");

    EXPECT_EQ(lib::DiskInfoUpdate(0, &record), kFail);

    EXPECT_EQ(Slot(0), nullptr);
    EXPECT_EQ(Counter(), 0u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Save Disk Info Json To File error"), 1u);
    EXPECT_EQ(
        HostLogged(3, "[DISK_MGR]DiskInfoUpdate DiskInfoSavetoConfig fail , config file path = " + RegistryPath()), 1u);
}

TEST_F(DiskInfoUpdateTest, FailedSaveKeepsTheDiskThatShouldGo)
{
    (void)Add("SN-0");
    const std::string before = Registry();
    BlockSaves();

    EXPECT_EQ(Remove(0, "SN-0"), kFail);

    ASSERT_NE(Slot(0), nullptr);
    EXPECT_STREQ(Slot(0)->sn, "SN-0");
    EXPECT_EQ(Counter(), 1u);
    EXPECT_EQ(Registry(), before);
    UnblockSaves();
    EXPECT_EQ(lib::DiskInfoSavetoConfig(), 0u);
    EXPECT_EQ(Registry(), before);
}

TEST_F(DiskInfoUpdateTest, FailedSaveOfAChangeKeepsTheChangeInMemory)
{
    (void)Add("SN-0");
    BlockSaves();
    lib::DiskMgrObj record = Record("SN-0");
    record.diskId = 0;
    record.slotId = 9;

    EXPECT_EQ(lib::DiskInfoUpdate(0, &record), kFail);

    EXPECT_EQ(Slot(0)->slotId, 9u);
}

class DiskInfoGetTest : public DiskRegistryTest {};

TEST_F(DiskInfoGetTest, HandsOutTheLiveObjectAndRefusesTheRest)
{
    (void)Add("SN-0");
    lib::DiskMgrObj *object = nullptr;

    EXPECT_EQ(lib::DiskInfoGet(0, &object), 0u);
    EXPECT_EQ(object, Slot(0));
    EXPECT_EQ(lib::DiskInfoGet(1, &object), 1u);
    EXPECT_EQ(lib::DiskInfoGet(128, &object), 1u);
}

class GetAllSnAndDiskIdTest : public DiskRegistryTest {
protected:
    struct List {
        char text[3][40];
        lib::DiskSnRef sns[3];
        uint32_t ids[3];
    };

    static List Empty() { return {}; }

    static void Point(List &list)
    {
        for (int i = 0; i < 3; i++) {
            list.sns[i] = {40, list.text[i]};
        }
    }
};

TEST_F(GetAllSnAndDiskIdTest, FitsExactlyAndOneLessIs6WithTheCount)
{
    for (const char *sn : {"SN-0", "SN-1", "SN-2"}) {
        (void)Add(sn);
    }
    (void)Remove(1, "SN-1");
    List list = Empty();
    Point(list);
    uint32_t count = 0;

    EXPECT_EQ(lib::GetAllSnAndDiskId(list.ids, list.sns, 2, &count), 0u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(list.ids[0], 0u);
    EXPECT_EQ(list.ids[1], 2u);
    EXPECT_STREQ(list.text[1], "SN-2");
    count = 0;
    EXPECT_EQ(lib::GetAllSnAndDiskId(list.ids, list.sns, 1, &count), 6u);
    EXPECT_EQ(count, 2u);
}

TEST_F(GetAllSnAndDiskIdTest, TooSmallATextIsAFailure)
{
    (void)Add("SN-0");
    List list = Empty();
    Point(list);
    list.sns[0].len = 4; // no room for the terminator
    uint32_t count = 0;

    EXPECT_EQ(lib::GetAllSnAndDiskId(list.ids, list.sns, 3, &count), kFail);
}

class DiskMgrInitTest : public DiskRegistryTest {};

TEST_F(DiskMgrInitTest, RefusesASecondStart)
{
    EXPECT_EQ(lib::DiskMgrInit("/tmp/other.config"), kFail);

    EXPECT_EQ(HostLogged(6, "[DISK_MGR]Disk Mgr Model Init start = /tmp/other.config"), 1u);
    EXPECT_EQ(HostLogged(4, "[DISK_MGR]Disk Mgr Model already init"), 1u);
    EXPECT_STREQ(lib::Global<char *>("g_configFilePath"), RegistryPath().c_str());
}

TEST_F(DiskMgrInitTest, TakesAnotherFileAfterTheEndOfTheFirst)
{
    EXPECT_EQ(lib::DiskMgrDestroy(), 0u);
    EXPECT_FALSE(lib::Global<bool>("g_diskMgrInited"));
    EXPECT_EQ(HostLogged(6, "[DISK_MGR]Disk Mgr Model start destory"), 1u);
    EXPECT_EQ(HostLogged(6, "[DISK_MGR]Disk Mgr Model destory success"), 1u);

    EXPECT_EQ(lib::DiskMgrInit("/tmp/other.config"), 0u);
    (void)Add("SN-0");
    EXPECT_THAT(ReadText("/tmp/other.config"), testing::HasSubstr("SN-0"));
}

class DiskMgrDestroyTest : public DiskRegistryTest {};

TEST_F(DiskMgrDestroyTest, KeepsTheObjectsFrom64)
{
    (void)Add("SN-0");
    lib::Global<uint32_t>("g_nextUnusedDiskId") = 64;
    EXPECT_EQ(Add("SN-64"), 64u);

    EXPECT_EQ(lib::DiskMgrDestroy(), 0u);

    EXPECT_EQ(Slot(0), nullptr);
    EXPECT_NE(Slot(64), nullptr);
    EXPECT_EQ(lib::DiskMgrDestroy(), 0u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Disk Mgr Model no init,can't destroy"), 1u);
}

} // namespace
