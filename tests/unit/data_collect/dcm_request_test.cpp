#include "data_collect/data_collect_master/DCM_query/dcm_request.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

namespace {

int g_jsonAllocationsLeft;

void *LimitedJsonAlloc(size_t size)
{
    return g_jsonAllocationsLeft-- > 0 ? std::malloc(size) : nullptr;
}

void *NoAlloc(uint64_t /*size*/)
{
    return nullptr;
}

/** Lets cJSON allocate a number of times for a scope. */
class JsonAllocations {
public:
    explicit JsonAllocations(int count)
    {
        g_jsonAllocationsLeft = count;
        cJSON_Hooks hooks = {LimitedJsonAlloc, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~JsonAllocations() { cJSON_InitHooks(nullptr); }
    JsonAllocations(const JsonAllocations &) = delete;
    JsonAllocations &operator=(const JsonAllocations &) = delete;
};

int IdOf(const CJsonPtr &request)
{
    return cJSON_GetObjectItem(request.get(), "id")->valueint;
}

/** The printed request with its number replaced by 1. */
std::string PrintWithIdOne(cJSON *request)
{
    cJSON_SetNumberValue(cJSON_GetObjectItem(request, "id"), 1);
    const CJsonText text(cJSON_PrintUnformatted(request));
    return text.get();
}

class CreateBaseRequestTest : public CorvaneTest {};
class ConstructRequestTest : public CorvaneTest {
protected:
    ConstructRequestTest()
    {
        std::strcpy(briefs_[0].deviceName, "sda");
        std::strcpy(briefs_[1].deviceName, "sdb");
    }
    DiskBriefInfo briefs_[2] = {};
    DiskBriefInfo *list_[2] = {&briefs_[0], &briefs_[1]};
};
class ConvertUint2DecimalStringTest : public CorvaneTest {};
class MakePciAddrCJsonTest : public CorvaneTest {};
class MakeRebindPciAddrCJsonTest : public CorvaneTest {};

} // namespace

TEST_F(CreateBaseRequestTest, HasTheMembersInOrder)
{
    const CJsonPtr request(CreateBaseRequest("some_method"));

    ASSERT_NE(request, nullptr);
    EXPECT_EQ(PrintWithIdOne(request.get()), R"({"jsonrpc":"2.0","method":"some_method","id":1})");
}

TEST_F(CreateBaseRequestTest, NumbersRunFromOneTo65535AndBeginAgain)
{
    int last = IdOf(CJsonPtr(CreateBaseRequest("m")));

    for (int i = 0; i < 65536; i++) {
        const int id = IdOf(CJsonPtr(CreateBaseRequest("m")));
        ASSERT_EQ(id, last % 65535 + 1);
        last = id;
    }
}

TEST_F(CreateBaseRequestTest, ConcurrentRequestsHaveDifferentNumbers)
{
    std::mutex mutex;
    std::multiset<int> ids;
    std::vector<std::thread> threads;

    for (int i = 0; i < 8; i++) {
        threads.emplace_back([&] {
            for (int k = 0; k < 100; k++) {
                const int id = IdOf(CJsonPtr(CreateBaseRequest("m")));
                const std::lock_guard<std::mutex> guard(mutex);
                ids.insert(id);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(std::set<int>(ids.begin(), ids.end()).size(), 800u);
}

TEST_F(CreateBaseRequestTest, SaysWhichPartHadNoMemory)
{
    std::set<std::string> texts;

    int allowed = 0;
    for (;; allowed++) {
        ClearLogs();
        const JsonAllocations limit(allowed);
        const CJsonPtr request(CreateBaseRequest("m"));
        if (request != nullptr) {
            break;
        }
        ASSERT_EQ(Logs().size(), 1u);
        EXPECT_EQ(Logs()[0].level, 3u);
        texts.insert(Logs()[0].text);
        EXPECT_EQ(Logs()[0].text == "cJSON_CreateObject malloc failed.", allowed == 0);
    }

    EXPECT_GT(allowed, 3);
    EXPECT_THAT(texts,
                ::testing::ElementsAre("cJSON_AddNumberToObject malloc failed.",
                                       "cJSON_AddStringToObject malloc failed.", "cJSON_CreateObject malloc failed."));
}

TEST_F(CreateBaseRequestTest, RefusesNullMethod)
{
    EXPECT_EQ(CreateBaseRequest(nullptr), nullptr);
}

TEST_F(ConstructRequestTest, NoParamRequestHasNoParams)
{
    const CJsonPtr request(ConstructNoParamRequest("m", list_, 2, 20));

    EXPECT_EQ(PrintWithIdOne(request.get()), R"({"jsonrpc":"2.0","method":"m","id":1})");
}

TEST_F(ConstructRequestTest, DeviceListRequestNamesTheDevicesInOrder)
{
    const CJsonPtr request(ConstructOnlyDeviceListParamRequest("m", list_, 2, 20));

    EXPECT_EQ(PrintWithIdOne(request.get()),
              R"({"jsonrpc":"2.0","method":"m","id":1,"params":{"devices":["sda","sdb"]}})");
}

TEST_F(ConstructRequestTest, IoRequestHasThePeriodAsText)
{
    const CJsonPtr request(ConstructIoInfoFrameRequest("m", list_, 1, 20));

    EXPECT_EQ(PrintWithIdOne(request.get()),
              R"({"jsonrpc":"2.0","method":"m","id":1,"params":{"devices":["sda"],"period":"20"}})");
}

TEST_F(ConstructRequestTest, IoRequestFailsWhenThePeriodHasNoMemory)
{
    const CJsonPtr counterMade(CreateBaseRequest("m"));
    g_corvaneInfra.memAlloc = NoAlloc;

    EXPECT_EQ(ConstructIoInfoFrameRequest("m", list_, 1, 20), nullptr);

    EXPECT_TRUE(Logged(3, "DCM", "Convert uint to string failed(ret12)."));
}

TEST_F(ConstructRequestTest, LeavesNothingBehindWhicheverAllocationFails)
{
    int allowed = 0;
    for (;; allowed++) {
        const JsonAllocations limit(allowed);
        const CJsonPtr request(ConstructIoInfoFrameRequest("m", list_, 2, 20));
        if (request != nullptr) {
            break;
        }
    }

    EXPECT_GT(allowed, 10);
}

TEST_F(ConstructRequestTest, RefusesMissingRecords)
{
    DiskBriefInfo *holes[2] = {&briefs_[0], nullptr};

    EXPECT_EQ(CreateDeviceListParam(holes, 2), nullptr);
    EXPECT_EQ(CreateDeviceListParam(nullptr, 1), nullptr);
    EXPECT_EQ(ConstructOnlyDeviceListParamRequest("m", holes, 2, 20), nullptr);
}

TEST_F(ConvertUint2DecimalStringTest, GivesTextAndLengthWithTerminator)
{
    for (const auto &[value, text] :
         {std::pair<uint32_t, std::string>{0, "0"}, {20, "20"}, {4294967295u, "4294967295"}}) {
        CorvaneStr out = {};

        ASSERT_EQ(ConvertUint2DecimalString(value, &out), 0u);

        EXPECT_EQ(out.buf, text);
        EXPECT_EQ(out.length, text.size() + 1);
        g_corvaneInfra.memFree(out.buf);
    }
}

TEST_F(ConvertUint2DecimalStringTest, RefusesAFilledResult)
{
    char text[] = "x";
    CorvaneStr out = {.length = 2, .buf = text};

    EXPECT_EQ(ConvertUint2DecimalString(1, &out), 22u);
    EXPECT_EQ(ConvertUint2DecimalString(1, nullptr), 22u);

    EXPECT_EQ(
        LogCount(3, "DCM", "input out CorvaneStr buf must be NULL, memory will alloc by ConvertUint2DecimalString."),
        2u);
}

TEST_F(ConvertUint2DecimalStringTest, NoMemoryGives12)
{
    g_corvaneInfra.memAlloc = NoAlloc;
    CorvaneStr out = {};

    EXPECT_EQ(ConvertUint2DecimalString(1, &out), 12u);

    EXPECT_EQ(out.buf, nullptr);
}

TEST_F(MakePciAddrCJsonTest, AsksForNvmeDisksWithAllTexts)
{
    const CJsonPtr result(cJSON_Parse(R"({"disks":[
        {"device_name":"n0","disk_type":"SSD_NVMe","pci_address":"a"},
        {"device_name":"n1","disk_type":"ssd_nvme","pci_address":"b"},
        {"device_name":"s0","disk_type":"SSD_SATA","pci_address":"c"},
        {"device_name":"n2","disk_type":"SSD_NVMe"},
        {"device_name":3,"disk_type":"SSD_NVMe","pci_address":"d"},
        {"device_name":"n4","disk_type":7,"pci_address":"e"},
        5, null]})"));

    const CJsonPtr request(MakePciAddrCJson(result.get()));

    EXPECT_EQ(PrintWithIdOne(request.get()),
              R"({"jsonrpc":"2.0","method":"dca_get_disks_slotid","id":1,"params":{"devices":[)"
              R"({"device_name":"n0","pci_address":"a"},{"device_name":"n1","pci_address":"b"}]}})");
}

TEST_F(MakePciAddrCJsonTest, NoNvmeDisksGiveAnEmptyList)
{
    const CJsonPtr result(cJSON_Parse(R"({"disks":[]})"));

    const CJsonPtr request(MakePciAddrCJson(result.get()));

    EXPECT_EQ(PrintWithIdOne(request.get()),
              R"({"jsonrpc":"2.0","method":"dca_get_disks_slotid","id":1,"params":{"devices":[]}})");
}

TEST_F(MakePciAddrCJsonTest, LeavesNothingBehindWhicheverAllocationFails)
{
    const CJsonPtr result(cJSON_Parse(R"({"disks":[{"device_name":"n0","disk_type":"SSD_NVMe","pci_address":"a"}]})"));

    int allowed = 0;
    for (;; allowed++) {
        const JsonAllocations limit(allowed);
        const CJsonPtr request(MakePciAddrCJson(result.get()));
        if (request != nullptr) {
            break;
        }
    }

    EXPECT_GT(allowed, 10);
}

TEST_F(MakeRebindPciAddrCJsonTest, NamesTheAddress)
{
    const CJsonPtr request(MakeRebindPciAddrCJson("0000:3b:00.0"));

    EXPECT_EQ(PrintWithIdOne(request.get()),
              R"({"jsonrpc":"2.0","method":"dca_rebind_nvme2uio","id":1,"params":{"pci_address":"0000:3b:00.0"}})");
    EXPECT_EQ(MakeRebindPciAddrCJson(nullptr), nullptr);
}
