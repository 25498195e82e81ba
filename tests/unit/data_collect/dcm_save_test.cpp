#include "data_collect/data_collect_master/DCM_query/dcm_save.h"

#include "dcm_agent.h"

using namespace dcm_test;

namespace {

class SaveMessageTest : public DcmTest {};
class SaveDiskBriefInfoTest : public DcmTest {};
class SaveDiskBaseInfoTest : public DcmTest {};
class SaveDiskHealthInfoTest : public DcmTest {};
class SaveDiskIoInfoFrameTest : public DcmTest {};
class MergeSlotIdTest : public DcmTest {};
class QueryDiskSlotInfoTest : public DcmTest {
protected:
    QueryDiskSlotInfoTest() : base_(cJSON_Parse(Disks({NvmeBase("n0", "SN-n0")}).c_str()))
    {
        EXPECT_EQ(ArrayListCreate(&records_, 1, sizeof(DiskMgrObj)), 0u);
    }
    ~QueryDiskSlotInfoTest() override { ArrayListDelete(&records_); }
    const DiskMgrObj &Record() const { return *static_cast<DiskMgrObj *>(records_.list[0]); }

    CJsonPtr base_;
    ArrayList records_{};
};

std::string Merged(const char *slots, const char *base)
{
    const CJsonPtr slotResult(cJSON_Parse(slots));
    const CJsonPtr baseResult(cJSON_Parse(base));
    EXPECT_EQ(MergeCJsonSlotIdIntoBaseInfo(slotResult.get(), baseResult.get()), 0u);
    const CJsonText text(cJSON_PrintUnformatted(baseResult.get()));
    return text.get();
}

} // namespace

TEST_F(SaveMessageTest, TheDeviceListIsIntercepted)
{
    EXPECT_EQ(SaveMessage(0, nullptr, nullptr, 0), 13u);

    EXPECT_TRUE(Logged(3, "DCM",
                       "Access g_copyStructFromJsonStrategyMap MESSAGE_DISK_BRIEF_INFO config item. "
                       "MESSAGE_DISK_BRIEF_INFO should not invoke in g_saveMessageStrategyMap. Check why invoked. In "
                       "normal cases, correct func SaveDiskBriefInfo should invoked independently."));
    EXPECT_EQ(SaveMessage(4, nullptr, nullptr, 0), 22u);
}

TEST_F(SaveDiskBriefInfoTest, HandsTheSerialNumbersToTheRefresh)
{
    ArrayList devices = Devices(2);

    EXPECT_EQ(SaveDiskBriefInfo(Briefs(devices), 2), 0u);

    EXPECT_EQ(Refreshes(), (std::vector<std::vector<std::string>>{{"SN-d0", "SN-d1"}}));
    ArrayListDelete(&devices);
}

TEST_F(SaveDiskBriefInfoTest, NoDisksReachTheRefreshAsWell)
{
    EXPECT_EQ(SaveDiskBriefInfo(nullptr, 0), 0u);

    EXPECT_EQ(Refreshes(), (std::vector<std::vector<std::string>>{{}}));
}

TEST_F(SaveDiskBriefInfoTest, GivesTheRefreshsResult)
{
    storeResult_ = [](const std::string &, const std::string &) { return 0xFFFFFFFFu; };

    EXPECT_EQ(SaveDiskBriefInfo(nullptr, 0), 0xFFFFFFFFu);
}

TEST_F(SaveDiskBriefInfoTest, NoMemoryGives12)
{
    ArrayList devices = Devices(2);
    failSize_ = 2 * sizeof(DiskSnRef);

    EXPECT_EQ(SaveDiskBriefInfo(Briefs(devices), 2), 12u);

    EXPECT_TRUE(Refreshes().empty());
    EXPECT_TRUE(Logged(3, "DCM", "malloc snStrArray failed."));
    ArrayListDelete(&devices);
}

TEST_F(SaveDiskBriefInfoTest, RefusesMissingRecords)
{
    EXPECT_EQ(SaveDiskBriefInfo(nullptr, 1), 22u);
}

TEST_F(SaveDiskHealthInfoTest, CarriesOnAfterAFailureAndGivesTheLastOne)
{
    std::vector<DiskHealthInfoSnWrap> disks(4);
    void *records[4];
    const char *names[] = {"A", "B", "C", "D"};
    for (size_t i = 0; i < 4; i++) {
        std::strcpy(disks[i].serialNumber, names[i]);
        records[i] = &disks[i];
    }
    storeResult_ = [](const std::string &, const std::string &sn) {
        return sn == "A" ? 1u : sn == "B" ? 4u : sn == "C" ? 8u : 0u;
    };

    EXPECT_EQ(SaveDiskHealthInfo(nullptr, records, 4), 4u);

    EXPECT_EQ(StoredRecords().size(), 4u);
    EXPECT_TRUE(Logged(3, "DCM", "DiskHealthInfo Set(sn:A) failed(ret:1)."));
    EXPECT_TRUE(Logged(3, "DCM", "DiskHealthInfo Set(sn:B) failed(ret:4)."));
    EXPECT_EQ(Logs().size(), 2u);
}

TEST_F(SaveDiskHealthInfoTest, ASerialWithoutTerminatorIsLoggedWithABound)
{
    DiskHealthInfoSnWrap disk = {};
    std::memset(disk.serialNumber, 'S', sizeof(disk.serialNumber));
    disk.info.powerOnHours = 0x4141414141414141;
    void *records[] = {&disk};
    g_dcmStore.healthInfoSet = [](DiskSnRef, void *) { return uint32_t{1}; };

    EXPECT_EQ(SaveDiskHealthInfo(nullptr, records, 1), 1u);

    EXPECT_TRUE(Logged(3, "DCM", "DiskHealthInfo Set(sn:" + std::string(40, 'S') + ") failed(ret:1)."));
}

TEST_F(SaveDiskIoInfoFrameTest, FailuresAreLoggedAndRemembered)
{
    DiskIoInfoFrameSnWrap disk = {};
    std::strcpy(disk.serialNumber, "A");
    void *records[] = {&disk};
    const CJsonPtr result(cJSON_Parse(R"({"tick_rate":"100","ticks":"5"})"));
    storeResult_ = [](const std::string &, const std::string &) { return 4u; };

    EXPECT_EQ(SaveDiskIoInfoFrame(result.get(), records, 1), 4u);

    EXPECT_TRUE(Logged(3, "DCM", "DiskIoStatInfo Set(sn:A) failed(ret:4)."));
}

TEST_F(SaveDiskIoInfoFrameTest, AMissingClockEndsTheSave)
{
    DiskIoInfoFrameSnWrap disk = {};
    void *records[] = {&disk};
    const CJsonPtr result(cJSON_Parse(R"({"tick_rate":"100"})"));

    EXPECT_EQ(SaveDiskIoInfoFrame(result.get(), records, 1), 12u);

    EXPECT_TRUE(StoredRecords().empty());
    EXPECT_TRUE(Logged(3, "DCM", "Copy clock ticks instant failed(12)"));
}

TEST_F(SaveDiskBaseInfoTest, TheKernelAgentDownLeavesSlotsUnknown)
{
    TestAgent spdk("spdk", Path("s"), [](const Request &) { return Answer(Disks({NvmeBase("n0", "SN-n0")})); });
    ArrayList devices = Devices(1, "n");

    EXPECT_EQ(QueryMessageAndSave(1, &spdk.Info(), Briefs(devices), 1), 0u);

    ASSERT_EQ(StoredRecords().size(), 1u);
    EXPECT_EQ(StoredRecords()[0].slotId, 0xFFFFFFFFu);
    EXPECT_TRUE(Logged(3, "DCM", "Query disk slot info failed, ret<5>"));
    ArrayListDelete(&devices);
}

TEST_F(SaveDiskBaseInfoTest, FailuresAreLoggedAndRemembered)
{
    TestAgent spdk("spdk", Path("s"), [](const Request &) { return Answer(Disks({NvmeBase("n0", "SN-n0")})); });
    ArrayList devices = Devices(1, "n");
    storeResult_ = [](const std::string &, const std::string &) { return 3u; };

    EXPECT_EQ(QueryMessageAndSave(1, &spdk.Info(), Briefs(devices), 1), 3u);

    EXPECT_TRUE(Logged(3, "DCM", "DiskBaseInfo Set(sn:SN-n0) failed(ret:3)."));
    ArrayListDelete(&devices);
}

TEST_F(SaveDiskBaseInfoTest, AnEmptySlotQueryIsPostedAllTheSame)
{
    TestAgent kernel("kernel", Path("k"), [](const Request &request) {
        return request.method == "dca_get_disks_slotid" ? Answer(R"({"disks":[]})")
                                                        : Answer(Disks({Base("sd0", "SN-sd0")}));
    });
    g_dcmSlotAgent = &kernel.Info();
    ArrayList devices = Devices(1, "sd");

    EXPECT_EQ(QueryMessageAndSave(1, &kernel.Info(), Briefs(devices), 1), 0u);

    EXPECT_EQ(kernel.Count("dca_get_disks_slotid"), 1u);
    EXPECT_EQ(kernel.Requests()[1].params, R"({"devices":[]})");
    ArrayListDelete(&devices);
}

TEST_F(MergeSlotIdTest, AddsTheFirstMatchingNumber)
{
    EXPECT_EQ(Merged(R"({"disks":[{"device_name":"b","slot_id":3},{"device_name":"a","slot_id":1},
                        {"device_name":"a","slot_id":2}]})",
                     R"({"disks":[{"device_name":"a"},{"device_name":"b"},{"device_name":"c"}]})"),
              R"({"disks":[{"device_name":"a","slot_id":1},{"device_name":"b","slot_id":3},{"device_name":"c"}]})");
}

TEST_F(MergeSlotIdTest, NamesAreComparedExactly)
{
    EXPECT_EQ(Merged(R"({"disks":[{"device_name":"A","slot_id":3}]})", R"({"disks":[{"device_name":"a"}]})"),
              R"({"disks":[{"device_name":"a"}]})");
}

TEST_F(MergeSlotIdTest, IgnoresWhatIsNoNumber)
{
    EXPECT_EQ(Merged(R"({"disks":[{"device_name":"a","slot_id":"3"},{"device_name":"b"},7,{"device_name":8}]})",
                     R"({"disks":[{"device_name":"a"},{"device_name":"b"},5]})"),
              R"({"disks":[{"device_name":"a"},{"device_name":"b"},5]})");
    EXPECT_EQ(Merged(R"({"disks":"no"})", R"({"disks":[{"device_name":"a"}]})"), R"({"disks":[{"device_name":"a"}]})");
    EXPECT_EQ(Merged(R"("text")", R"({"disks":[{"device_name":"a"}]})"), R"({"disks":[{"device_name":"a"}]})");
}

TEST_F(MergeSlotIdTest, NullGives1)
{
    const CJsonPtr some(cJSON_CreateObject());

    EXPECT_EQ(MergeCJsonSlotIdIntoBaseInfo(nullptr, some.get()), 1u);
    EXPECT_EQ(MergeCJsonSlotIdIntoBaseInfo(some.get(), nullptr), 1u);
}

TEST_F(QueryDiskSlotInfoTest, NoAnswerGives5)
{
    EXPECT_EQ(QueryDiskSlotInfo(base_.get(), records_.list), 5u);

    EXPECT_TRUE(Logged(3, "DCM", "PostRequestWithJSON failed"));
}

TEST_F(QueryDiskSlotInfoTest, ABadHeaderGives74)
{
    TestAgent kernel("kernel", Path("k"), [](const Request &) { return std::string(R"({"jsonrpc":"2.0","id":1})"); });
    g_dcmSlotAgent = &kernel.Info();

    EXPECT_EQ(QueryDiskSlotInfo(base_.get(), records_.list), 74u);

    EXPECT_TRUE(Logged(3, "DCM", "Response(see in debug log) not IsValidJsonResponse."));
}

TEST_F(QueryDiskSlotInfoTest, NothingToMergeIntoGives74)
{
    TestAgent kernel("kernel", Path("k"), [](const Request &) { return Answer("{}"); });
    g_dcmSlotAgent = &kernel.Info();

    EXPECT_EQ(QueryDiskSlotInfo(nullptr, records_.list), 74u);

    EXPECT_TRUE(Logged(3, "DCM", "Merge slot id json into disk base info json Failed(1)."));
}

TEST_F(QueryDiskSlotInfoTest, ASlotThatIsNoNumberIsIgnored)
{
    TestAgent kernel("kernel", Path("k"),
                     [](const Request &) { return Answer(R"({"disks":[{"device_name":"n0","slot_id":"9"}]})"); });
    g_dcmSlotAgent = &kernel.Info();

    EXPECT_EQ(QueryDiskSlotInfo(base_.get(), records_.list), 0u);

    EXPECT_EQ(Record().slotId, 0xFFFFFFFFu);
}

TEST_F(QueryDiskSlotInfoTest, AFailedCopyIsTheResult)
{
    TestAgent kernel("kernel", Path("k"), [](const Request &) { return Answer("{}"); });
    g_dcmSlotAgent = &kernel.Info();
    const CJsonPtr bad(cJSON_Parse(R"({"disks":[5]})"));

    EXPECT_EQ(QueryDiskSlotInfo(bad.get(), records_.list), 22u);

    EXPECT_TRUE(
        Logged(3, "DCM", "Query Agent(unique_DCAK_agent) message(dca_get_disks_slotid) Batch Copy Failed(22)."));
}

TEST_F(QueryDiskSlotInfoTest, NoRequestGives12)
{
    cJSON_Hooks hooks = {[](size_t) -> void * { return nullptr; }, std::free};
    cJSON_InitHooks(&hooks);

    const uint32_t ret = QueryDiskSlotInfo(base_.get(), records_.list);

    cJSON_InitHooks(nullptr);
    EXPECT_EQ(ret, 12u);
    EXPECT_TRUE(Logged(3, "DCM", "Create Request failed, no memory."));
}
