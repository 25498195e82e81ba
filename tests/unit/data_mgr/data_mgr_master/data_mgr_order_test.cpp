#include "data_mgr_fixture.h"

using namespace data_mgr_test;
using ::testing::ElementsAre;

namespace {

std::vector<std::string> g_journal;

/** What a listener would find: the store's object and the registry's record of the disk, at the time it is told. */
std::string Surroundings(uint32_t diskId)
{
    return std::string(g_diskDataMgr[diskId] != nullptr ? " object" : "") +
           (g_diskMgrObj[diskId] != nullptr ? " record" : "");
}

uint32_t JournalSend(uint32_t type, DiskSnRef sn, void *)
{
    g_journal.push_back("message " + std::to_string(type) + " " + TextOf(sn.buf) +
                        Surroundings(TextOf(sn.buf) == "SN-1" ? 0 : 1));
    return 0;
}

uint32_t JournalNotify(uint32_t diskId, DiskSnRef sn, uint32_t eventType)
{
    g_journal.push_back("event " + std::to_string(eventType) + " " + TextOf(sn.buf) + Surroundings(diskId));
    return 0;
}

void *NoLock()
{
    return nullptr;
}

/** SN-1 is online as disk 0; from then on every telling is written down. */
class TellingOrderTest : public DataMgrTest {
protected:
    TellingOrderTest()
    {
        g_journal.clear();
        g_dataMgrSendRpc = JournalSend;
        (void)DataMgrSetDrmNotifyFunc(JournalNotify);
    }
};

class DataMgrLockTest : public DataMgrBareTest {};

} // namespace

TEST_F(TellingOrderTest, ANewDiskIsAnnouncedAndThenSent)
{
    Offer(MakeRecord("SN-2"));

    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);

    EXPECT_THAT(g_journal, ElementsAre("event 0 SN-2 object record", "message 0 SN-2 object record"));
}

TEST_F(TellingOrderTest, AVanishedDiskLosesItsObjectLast)
{
    ASSERT_EQ(Refresh({}), 0u);

    EXPECT_THAT(g_journal, ElementsAre("message 3 SN-1 object", "event 1 SN-1 object"));
    EXPECT_EQ(g_diskDataMgr[0], nullptr);
}

TEST_F(TellingOrderTest, AnOfflineBaseRecordTakesTheObjectFirst)
{
    DiskMgrObj record = MakeRecord("SN-1");
    record.diskState = DISK_STATE_OFFLINE;

    ASSERT_EQ(DiskBaseInfoSet(sn_, &record), 0u);

    EXPECT_THAT(g_journal, ElementsAre("message 3 SN-1", "event 1 SN-1"));
}

TEST_F(TellingOrderTest, AnOfflineStateTakesTheObjectFirst)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_OFFLINE), 0u);

    EXPECT_THAT(g_journal, ElementsAre("message 3 SN-1", "event 1 SN-1"));
}

TEST_F(TellingOrderTest, AStateIsSentBeforeItsStrategy)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_FAULT), 0u);

    EXPECT_THAT(g_journal, ElementsAre("message 1 SN-1 object record", "message 2 SN-1 object record"));
}

TEST_F(TellingOrderTest, DisksLeaveBeforeOthersArrive)
{
    Offer(MakeRecord("SN-2"));

    ASSERT_EQ(Refresh({"SN-2"}), 0u);

    ASSERT_EQ(g_journal.size(), 4u);
    EXPECT_EQ(g_journal[1].substr(0, 12), "event 1 SN-1");
    EXPECT_EQ(g_journal[2].substr(0, 12), "event 0 SN-2");
}

TEST_F(DataMgrLockTest, MissingForTheStartMayBeRepeated)
{
    const auto create = g_corvaneInfra.spinlockCreate;
    g_corvaneInfra.spinlockCreate = NoLock;

    EXPECT_EQ(DataMgrInit(), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, kModule, "Data Mgr create lock fail"));
    EXPECT_FALSE(g_dataMgrInit);
    g_corvaneInfra.spinlockCreate = create;
    EXPECT_EQ(DataMgrInit(), 0u);
    EXPECT_NE(g_dataMgrLock, nullptr);
}

TEST_F(DataMgrLockTest, IsMadeByTheFirstCallbackAndKeptByTheStart)
{
    ASSERT_EQ(g_dataMgrLock, nullptr);

    EXPECT_EQ(DataMgrSetDrmNotifyFunc(FakeNotify), 0u);

    void *lock = g_dataMgrLock;
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(DataMgrInit(), 0u);
    EXPECT_EQ(g_dataMgrLock, lock);
}
