#include "data_collect/data_collect_master/DCM_query/dcm_query.h"

#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "dcm_agent.h"

using namespace dcm_test;

namespace {

cJSON *NoRequest(const char *, DiskBriefInfo **, uint32_t, uint32_t)
{
    return nullptr;
}

/** Replaces one row of the request builders for a scope. */
class BrokenBuilder {
public:
    explicit BrokenBuilder(uint32_t type) : type_(type), saved_(g_constructRequestStrategyMap[type])
    {
        g_constructRequestStrategyMap[type] = NoRequest;
    }
    ~BrokenBuilder() { g_constructRequestStrategyMap[type_] = saved_; }
    BrokenBuilder(const BrokenBuilder &) = delete;
    BrokenBuilder &operator=(const BrokenBuilder &) = delete;

private:
    uint32_t type_;
    DcmConstructRequestFunc saved_;
};

std::vector<std::string> Briefs64(size_t count)
{
    std::vector<std::string> disks;
    for (size_t i = 0; i < count; i++) {
        disks.push_back(Brief("d" + std::to_string(i), "SN-" + std::to_string(i)));
    }
    return disks;
}

/** A wrong answer: what it is, and what is logged about it. */
struct Fault {
    const char *name;
    std::string answer;
    uint32_t code;         /**< of QueryMessage */
    std::string queryText; /**< of QueryMessage */
    std::string listText;  /**< of QueryDeviceList */
};
void PrintTo(const Fault &fault, std::ostream *out)
{
    *out << fault.name;
}

const std::string kPostText = "PostRequestWithJSON failed";
const std::string kListPostText = "PostRequestWithJSON failed, maybe Offline response parse";
const std::string kBadText = "Response(see in debug log) not IsValidJsonResponse.";

std::vector<Fault> Faults()
{
    const std::string good = Answer(Disks({Brief("d0", "SN-d0")}));
    return {
        {"NotJson", "hello", 5, kPostText, kListPostText},
        {"Empty", kClose, 5, kPostText, kListPostText},
        {"Cut", good.substr(0, good.size() - 3), 5, kPostText, kListPostText},
        {"TooLong", Answer("{\"pad\":\"" + std::string(8200, 'x') + "\",\"disks\":[]}"), 5, kPostText, kListPostText},
        {"Silent", kSilent, 5, kPostText, kListPostText},
        {"JsonText", "\"x\"", 74, kBadText, kBadText},
        {"JsonArray", "[]", 74, kBadText, kBadText},
        {"NoVersion", R"({"id":1,"result":{"disks":[]}})", 74, kBadText, kBadText},
        {"WrongVersion", R"({"jsonrpc":"1.0","id":1,"result":{"disks":[]}})", 74, kBadText, kBadText},
        {"TextId", R"({"jsonrpc":"2.0","id":"1","result":{"disks":[]}})", 74, kBadText, kBadText},
        {"NoResult", R"({"jsonrpc":"2.0","id":1})", 74, kBadText, kBadText},
        {"ResultIsText", Answer("\"disks\""), 74, kBadText, kBadText},
        {"NoDisks", Answer(R"({"result":"sokect ok"})"), 74, kBadText, kBadText},
        {"DisksIsObject", Answer(R"({"disks":{"a":1}})"), 74, kBadText, kBadText},
        {"TooManyDisks", Answer(Disks(Briefs64(65))), 74, kBadText, kBadText},
        {"DiskIsNumber", Answer(R"({"disks":[5]})"), 22,
         "Query Agent(agent) message(dca_get_disks_base_info) Batch Copy Failed(22).", "Batch Copy Failed(22)."},
        {"WrongTypes", Answer(R"({"disks":[{"device_name":1,"serial_number":[]}]})"), 22,
         "Query Agent(agent) message(dca_get_disks_base_info) Batch Copy Failed(22).", "Batch Copy Failed(22)."},
        {"TooLongText", Answer(Disks({Base("d0", std::string(40, 'S'))})), 34,
         "Query Agent(agent) message(dca_get_disks_base_info) Batch Copy Failed(34).", "Batch Copy Failed(34)."},
    };
}

class StrategyMapsTest : public DcmTest {};
class CastUint32ToUint16Test : public DcmTest {};
class IsValidDiskBriefInfoResultJsonWrapTest : public DcmTest {};
class QueryDeviceListTest : public DcmTest {};
class QueryDeviceListFaultTest : public DcmTest, public ::testing::WithParamInterface<Fault> {};
class QueryMessageTest : public DcmTest {};
class QueryMessageFaultTest : public DcmTest, public ::testing::WithParamInterface<Fault> {};
class QueryMessageAndSaveTest : public DcmTest {};
class FetchDiskBaseInfoFromAgentTest : public DcmTest {};

} // namespace

TEST_F(StrategyMapsTest, HoldTheRowsOfEachType)
{
    EXPECT_EQ(g_constructRequestStrategyMap[0], &ConstructNoParamRequest);
    EXPECT_EQ(g_constructRequestStrategyMap[1], &ConstructOnlyDeviceListParamRequest);
    EXPECT_EQ(g_constructRequestStrategyMap[2], &ConstructOnlyDeviceListParamRequest);
    EXPECT_EQ(g_constructRequestStrategyMap[3], &ConstructIoInfoFrameRequest);
    EXPECT_EQ(g_validateResultJsonStrategyMap[0], &IsValidDiskBriefInfoResultJsonWrap);
    EXPECT_EQ(g_validateResultJsonStrategyMap[1], &IsValidDiskBaseInfoResultJson);
    EXPECT_EQ(g_validateResultJsonStrategyMap[2], &IsValidDiskHealthInfoResultJson);
    EXPECT_EQ(g_validateResultJsonStrategyMap[3], &IsValidDiskIoInfoFrameResultJson);
    EXPECT_EQ(g_copyStructFromJsonStrategyMap[0], &CopyDiskBriefInfoFromJSON);
    EXPECT_EQ(g_copyStructFromJsonStrategyMap[1], &CopyDiskBaseInfoFromJSON);
    EXPECT_EQ(g_copyStructFromJsonStrategyMap[2], &CopyDiskHealthInfoSnWrapFromJSON);
    EXPECT_EQ(g_copyStructFromJsonStrategyMap[3], &CopyDiskIoInfoFrameSnWrapFromJSON);
    EXPECT_EQ(g_saveMessageStrategyMap[0], &SaveBriefInfoInterceptor);
    EXPECT_EQ(g_saveMessageStrategyMap[1], &SaveDiskBaseInfo);
    EXPECT_EQ(g_saveMessageStrategyMap[2], &SaveDiskHealthInfo);
    EXPECT_EQ(g_saveMessageStrategyMap[3], &SaveDiskIoInfoFrame);
    EXPECT_THAT(g_queryMessageStepMap, ::testing::ElementsAre(82u, 13u, 4u, 20u));
    EXPECT_THAT(g_copyStructMemorySizeMap, ::testing::ElementsAre(60u, 416u, 176u, 120u));
}

TEST_F(CastUint32ToUint16Test, SaturatesWithALogLine)
{
    EXPECT_EQ(CastUint32ToUint16(65535), 65535u);
    EXPECT_TRUE(Logs().empty());

    EXPECT_EQ(CastUint32ToUint16(65536), 65535u);
    EXPECT_TRUE(Logged(7, "DCM", "uint32(65536) cast to uint16 overflow"));
}

TEST_F(IsValidDiskBriefInfoResultJsonWrapTest, AdvisesAndChecks)
{
    const CJsonPtr good(cJSON_Parse(R"({"disks":[]})"));
    const CJsonPtr bad(cJSON_Parse(R"({"disks":1})"));

    EXPECT_TRUE(IsValidDiskBriefInfoResultJsonWrap(good.get(), 0));
    EXPECT_FALSE(IsValidDiskBriefInfoResultJsonWrap(bad.get(), 0));

    EXPECT_EQ(LogCount(7, "DCM",
                       "You are advised to use the dedicated function IsValidDiskBriefInfoResultJson to judge "
                       "Brief."),
              2u);
}

TEST_F(QueryDeviceListTest, GivesTheDisksInOrder)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 64));
    uint16_t count = 0;

    DiskBriefInfo **list = QueryDeviceList(&agent.Info(), &count);

    ASSERT_NE(list, nullptr);
    ASSERT_EQ(count, 64);
    EXPECT_STREQ(list[0]->deviceName, "d0");
    EXPECT_STREQ(list[63]->serialNumber, "SN-d63");
    EXPECT_EQ(agent.Requests()[0].params, "");
    FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
}

TEST_F(QueryDeviceListTest, AnEmptySerialTravelsOn)
{
    TestAgent agent("agent", Path("a"), [](const Request &) { return Answer(Disks({Brief("d0", "")})); });
    uint16_t count = 0;

    DiskBriefInfo **list = QueryDeviceList(&agent.Info(), &count);

    ASSERT_EQ(count, 1);
    EXPECT_STREQ(list[0]->serialNumber, "");
    FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
}

TEST_F(QueryDeviceListTest, AnAgentWithoutDisksCountsZero)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 0));
    uint16_t count = 7;

    EXPECT_EQ(QueryDeviceList(&agent.Info(), &count), nullptr);

    EXPECT_EQ(count, 0);
    EXPECT_TRUE(Logged(7, "DCM", "query answer: empty device list."));
}

TEST_F(QueryDeviceListTest, AMissingAgentCounts65535)
{
    uint16_t count = 0;

    EXPECT_EQ(QueryDeviceList(&Nobody(), &count), nullptr);

    EXPECT_EQ(count, 65535);
    EXPECT_TRUE(Logged(3, "DCM", kListPostText));
}

TEST_F(QueryDeviceListTest, NoRequestCounts65535)
{
    const BrokenBuilder broken(0);
    uint16_t count = 0;

    EXPECT_EQ(QueryDeviceList(&Nobody(), &count), nullptr);

    EXPECT_EQ(count, 65535);
    EXPECT_TRUE(Logged(3, "DCM", "Create Base Request failed. maybe malloc fail?"));
}

TEST_F(QueryDeviceListTest, NoMemoryForRecordsCounts65535)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 2));
    failSize_ = sizeof(DiskBriefInfo);
    uint16_t count = 0;

    EXPECT_EQ(QueryDeviceList(&agent.Info(), &count), nullptr);

    EXPECT_EQ(count, 65535);
    EXPECT_TRUE(Logged(3, "DCM", "ArrayListCreate Failed(12)."));
}

TEST_P(QueryDeviceListFaultTest, WrongAnswerCounts65535)
{
    timeOutMs_ = GetParam().answer == kSilent ? 20 : 20000;
    TestAgent agent("agent", Path("a"), [](const Request &) { return GetParam().answer; });
    uint16_t count = 0;

    EXPECT_EQ(QueryDeviceList(&agent.Info(), &count), nullptr);

    EXPECT_EQ(count, 65535);
    EXPECT_EQ(LogCount(3, "DCM", GetParam().listText), 1u);
}
INSTANTIATE_TEST_SUITE_P(Faults, QueryDeviceListFaultTest, ::testing::ValuesIn(Faults()),
                         [](const auto &fault) { return fault.param.name; });

TEST_F(QueryMessageTest, FillsRecordsAndKeepsTheAnswer)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 2));
    ArrayList devices = Devices(2);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 2, sizeof(DiskMgrObj)), 0u);
    cJSON *response = nullptr;

    ASSERT_EQ(QueryMessage(1, &agent.Info(), Briefs(devices), 2, &records, &response), 0u);

    EXPECT_STREQ(static_cast<DiskMgrObj *>(records.list[1])->sn, "SN-d1");
    EXPECT_NE(cJSON_GetObjectItem(response, "result"), nullptr);
    EXPECT_EQ(agent.Requests()[0].method, "dca_get_disks_base_info");
    EXPECT_EQ(agent.Requests()[0].params, R"({"devices":["d0","d1"]})");
    cJSON_Delete(response);
    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageTest, MoreDisksThanAskedForAreRefused)
{
    TestAgent agent("agent", Path("a"), [](const Request &) {
        return Answer(Disks({Base("d0", "SN-d0"), Base("d1", "SN-d1")}));
    });
    ArrayList devices = Devices(1);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 1, sizeof(DiskMgrObj)), 0u);
    cJSON *response = nullptr;

    EXPECT_EQ(QueryMessage(1, &agent.Info(), Briefs(devices), 1, &records, &response), 74u);

    EXPECT_EQ(response, nullptr);
    EXPECT_STREQ(static_cast<DiskMgrObj *>(records.list[0])->sn, "");
    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageTest, ADeviceListNeverOverrunsTheRecords)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 2));
    ArrayList devices = Devices(1);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 1, sizeof(DiskBriefInfo)), 0u);
    cJSON *response = nullptr;

    EXPECT_EQ(QueryMessage(0, &agent.Info(), Briefs(devices), 1, &records, &response), 74u);

    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageTest, NoRequestGives12)
{
    const BrokenBuilder broken(2);
    ArrayList devices = Devices(1);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 1, sizeof(DiskHealthInfoSnWrap)), 0u);
    cJSON *response = nullptr;

    EXPECT_EQ(QueryMessage(2, &Nobody(), Briefs(devices), 1, &records, &response), 12u);

    EXPECT_TRUE(Logged(3, "DCM", "Create Request failed, no memory."));
    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageTest, RefusesBadArguments)
{
    ArrayList devices = Devices(2);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 1, sizeof(DiskMgrObj)), 0u);
    cJSON *response = nullptr;

    EXPECT_EQ(QueryMessage(4, &Nobody(), Briefs(devices), 1, &records, &response), 22u);
    EXPECT_EQ(QueryMessage(1, nullptr, Briefs(devices), 1, &records, &response), 22u);
    EXPECT_EQ(QueryMessage(1, &Nobody(), Briefs(devices), 1, nullptr, &response), 22u);
    EXPECT_EQ(QueryMessage(1, &Nobody(), Briefs(devices), 1, &records, nullptr), 22u);
    EXPECT_EQ(QueryMessage(1, &Nobody(), Briefs(devices), 2, &records, &response), 22u);

    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}

TEST_P(QueryMessageFaultTest, WrongAnswerGivesItsCode)
{
    timeOutMs_ = GetParam().answer == kSilent ? 20 : 20000;
    TestAgent agent("agent", Path("a"), [](const Request &) { return GetParam().answer; });
    ArrayList devices = Devices(1);
    ArrayList records{};
    ASSERT_EQ(ArrayListCreate(&records, 1, sizeof(DiskMgrObj)), 0u);
    cJSON *response = nullptr;

    EXPECT_EQ(QueryMessage(1, &agent.Info(), Briefs(devices), 1, &records, &response), GetParam().code);

    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(LogCount(3, "DCM", GetParam().queryText), 1u);
    ArrayListDelete(&records);
    ArrayListDelete(&devices);
}
INSTANTIATE_TEST_SUITE_P(Faults, QueryMessageFaultTest, ::testing::ValuesIn(Faults()),
                         [](const auto &fault) { return fault.param.name; });

TEST_F(QueryMessageAndSaveTest, StoresHealth)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 2));
    ArrayList devices = Devices(2);

    EXPECT_EQ(QueryMessageAndSave(2, &agent.Info(), Briefs(devices), 2), 0u);

    const auto stored = StoredRecords();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[0].kind, "health");
    EXPECT_EQ(stored[0].sn, "SN-d0");
    EXPECT_EQ(stored[0].snLength, 40u);
    EXPECT_EQ(stored[0].wearInt, 123u);
    EXPECT_EQ(stored[1].sn, "SN-d1");
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, StampsTheClockIntoFrames)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 2));
    ArrayList devices = Devices(2);

    EXPECT_EQ(QueryMessageAndSave(3, &agent.Info(), Briefs(devices), 2), 0u);

    ASSERT_EQ(StoredRecords().size(), 2u);
    for (const Stored &stored : StoredRecords()) {
        EXPECT_EQ(stored.kind, "io");
        EXPECT_EQ(stored.ticks, 4242u);
        EXPECT_EQ(stored.tickRate, 100u);
    }
    EXPECT_EQ(agent.Requests()[0].params, R"({"devices":["d0","d1"],"period":"20"})");
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, FewerDisksThanAskedAreStoredAndTheRestIsRefused)
{
    TestAgent agent("agent", Path("a"), [](const Request &) { return Answer(Disks({Health("SN-d0")})); });
    ArrayList devices = Devices(3);
    storeResult_ = [](const std::string &, const std::string &sn) { return sn.empty() ? 8u : 0u; };

    EXPECT_EQ(QueryMessageAndSave(2, &agent.Info(), Briefs(devices), 3), 0u);

    const auto stored = StoredRecords();
    ASSERT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored[0].sn, "SN-d0");
    EXPECT_EQ(stored[1].sn, "");
    EXPECT_EQ(stored[2].sn, "");
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, AFailedQueryStoresNothing)
{
    ArrayList devices = Devices(1);

    EXPECT_EQ(QueryMessageAndSave(2, &Nobody(), Briefs(devices), 1), 5u);

    EXPECT_TRUE(StoredRecords().empty());
    EXPECT_TRUE(Logged(3, "DCM", "query agent(nobody) message(dca_get_disks_health_info) failed(ret:5)."));
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, AFailedSaveIsTheResult)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    ArrayList devices = Devices(1);
    storeResult_ = [](const std::string &, const std::string &) { return 4u; };

    EXPECT_EQ(QueryMessageAndSave(3, &agent.Info(), Briefs(devices), 1), 4u);

    EXPECT_TRUE(Logged(3, "DCM", "save agent(agent) message(dca_get_disks_iostat) failed(ret:4)."));
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, NoMemoryForRecordsGives12)
{
    ArrayList devices = Devices(1);
    failSize_ = sizeof(DiskHealthInfoSnWrap);

    EXPECT_EQ(QueryMessageAndSave(2, &Nobody(), Briefs(devices), 1), 12u);

    EXPECT_TRUE(Logged(3, "DCM", "ArrayListCreate Failed(12)."));
    failSize_ = 0;
    ArrayListDelete(&devices);
}

TEST_F(QueryMessageAndSaveTest, RefusesBadArguments)
{
    EXPECT_EQ(QueryMessageAndSave(4, &Nobody(), nullptr, 1), 22u);
    EXPECT_EQ(QueryMessageAndSave(1, nullptr, nullptr, 1), 22u);
    EXPECT_EQ(QueryMessageAndSave(1, &Nobody(), nullptr, 0), 22u);
}

TEST_F(FetchDiskBaseInfoFromAgentTest, GivesTheRecordWithItsSlot)
{
    TestAgent spdk("spdk", Path("s"), [](const Request &) { return Answer(Disks({NvmeBase("n0", "SN-n0")})); });
    TestAgent kernel("kernel", Path("k"),
                     [](const Request &) { return Answer(R"({"disks":[{"device_name":"n0","slot_id":9}]})"); });
    g_dcmSlotAgent = &kernel.Info();
    DiskBriefInfo brief = {"SN-n0", "n0"};
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&spdk.Info(), &brief, &record), 0u);

    EXPECT_STREQ(record.sn, "SN-n0");
    EXPECT_EQ(record.slotId, 9u);
    EXPECT_EQ(spdk.Requests()[0].params, R"({"devices":["n0"]})");
    EXPECT_EQ(kernel.Requests()[0].params, R"({"devices":[{"device_name":"n0","pci_address":"0000:01:00.0"}]})");
}

TEST_F(FetchDiskBaseInfoFromAgentTest, AFailedSlotQueryIsForgotten)
{
    TestAgent spdk("spdk", Path("s"), [](const Request &) { return Answer(Disks({NvmeBase("n0", "SN-n0")})); });
    DiskBriefInfo brief = {"SN-n0", "n0"};
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&spdk.Info(), &brief, &record), 0u);

    EXPECT_STREQ(record.sn, "SN-n0");
    EXPECT_EQ(record.slotId, 0xFFFFFFFFu);
    EXPECT_TRUE(Logged(3, "DCM", "Query disk slot info failed, ret<5>"));
}

TEST_F(FetchDiskBaseInfoFromAgentTest, AFailedQueryLeavesTheRecord)
{
    DiskBriefInfo brief = {"SN-n0", "n0"};
    DiskMgrObj record = {};
    record.diskId = 77;

    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&Nobody(), &brief, &record), 5u);

    EXPECT_EQ(record.diskId, 77u);
    EXPECT_TRUE(Logged(3, "DCM", "query agent(nobody) message(dca_get_disks_base_info) failed(ret:5)."));
}

TEST_F(FetchDiskBaseInfoFromAgentTest, NoMemoryGives12AndNullIsRefused)
{
    DiskBriefInfo brief = {"SN-n0", "n0"};
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfoFromAgent(nullptr, &brief, &record), 22u);
    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&Nobody(), nullptr, &record), 22u);
    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&Nobody(), &brief, nullptr), 22u);
    failSize_ = sizeof(DiskMgrObj);
    EXPECT_EQ(FetchDiskBaseInfoFromAgent(&Nobody(), &brief, &record), 12u);

    EXPECT_TRUE(Logged(3, "DCM", "ArrayListCreate Failed(12)."));
}
