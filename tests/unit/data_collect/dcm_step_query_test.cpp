#include "data_collect/data_collect_master/DCM_query/dcm_step_query.h"

#include <map>
#include <tuple>

#include "dcm_agent.h"

using namespace dcm_test;

namespace {

/** Disks, message type, threads that this makes. */
using Fan = std::tuple<size_t, uint32_t, size_t>;

class StepQueryMessageAndSaveTest : public DcmTest {};
class StepQueryFanTest : public DcmTest, public ::testing::WithParamInterface<Fan> {};

void *NoSem(uint32_t /*initial*/)
{
    return nullptr;
}

std::atomic<uint32_t> g_semStart;
void *(*g_realSemCreate)(uint32_t);

void *SpySemCreate(uint32_t initial)
{
    g_semStart = initial;
    return g_realSemCreate(initial);
}

} // namespace

TEST_P(StepQueryFanTest, AsksForAllSlicesAtOnce)
{
    const auto &[disks, type, threads] = GetParam();
    std::mutex mutex;
    std::condition_variable all;
    size_t inside = 0;
    const TestAgent::Handler good = GoodAgent("d", disks);
    // No request is answered before all are there: slices that waited for each other would never end.
    TestAgent agent("agent", Path("a"), [&, expected = threads](const Request &request) {
        std::unique_lock<std::mutex> lock(mutex);
        inside++;
        all.notify_all();
        EXPECT_TRUE(all.wait_for(lock, std::chrono::seconds(60), [&] { return inside >= expected; }));
        lock.unlock();
        return good(request);
    });
    ArrayList devices = Devices(disks);
    g_realSemCreate = g_corvaneInfra.semCreate;
    g_corvaneInfra.semCreate = SpySemCreate;

    EXPECT_EQ(StepQueryMessageAndSave(type, &agent.Info(), Briefs(devices), static_cast<uint32_t>(disks)), 0u);

    EXPECT_EQ(g_semStart, threads);
    EXPECT_EQ(spawned_, threads);
    EXPECT_EQ(agent.Requests().size(), threads);
    std::multiset<std::string> asked;
    for (const Request &request : agent.Requests()) {
        EXPECT_LE(request.devices.size(), g_queryMessageStepMap[type]);
        asked.insert(request.devices.begin(), request.devices.end());
    }
    EXPECT_EQ(asked.size(), disks);
    EXPECT_EQ(std::set<std::string>(asked.begin(), asked.end()).size(), disks);
    EXPECT_EQ(StoredRecords().size(), disks);
    ArrayListDelete(&devices);
}
INSTANTIATE_TEST_SUITE_P(Fans, StepQueryFanTest,
                         ::testing::Values(Fan{13, 1, 1}, Fan{14, 1, 2}, Fan{64, 1, 5}, Fan{64, 2, 16}, Fan{64, 3, 4},
                                           Fan{1, 2, 1}));

TEST_F(StepQueryMessageAndSaveTest, TheLastSliceHasTheRest)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 14));
    ArrayList devices = Devices(14);

    EXPECT_EQ(StepQueryMessageAndSave(1, &agent.Info(), Briefs(devices), 14), 0u);

    std::multiset<size_t> sizes;
    for (const Request &request : agent.Requests()) {
        sizes.insert(request.devices.size());
    }
    EXPECT_EQ(sizes, (std::multiset<size_t>{1, 13}));
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, AMalformedDiskFailsItsSliceOnly)
{
    const TestAgent::Handler good = GoodAgent("d", 12);
    TestAgent agent("agent", Path("a"), [&](const Request &request) {
        return request.devices[0] == "d4" ? Answer(Disks({Health("SN-d4"), R"({"serial_number":"SN-d5"})"}))
                                          : good(request);
    });
    ArrayList devices = Devices(12);

    EXPECT_EQ(StepQueryMessageAndSave(2, &agent.Info(), Briefs(devices), 12), 22u);

    std::set<std::string> stored;
    for (const Stored &record : StoredRecords()) {
        stored.insert(record.sn);
    }
    EXPECT_EQ(stored,
              (std::set<std::string>{"SN-d0", "SN-d1", "SN-d2", "SN-d3", "SN-d8", "SN-d9", "SN-d10", "SN-d11"}));
    EXPECT_TRUE(Logged(3, "DCM",
                       "Agent(agent) QueryMessageAndSave(message:dca_get_disks_health_info) "
                       "Failed(ret:22)(offset:4)(step:4)."));
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, MoreThan255ThreadsAreRefused)
{
    ArrayList devices = Devices(1021);

    EXPECT_EQ(StepQueryMessageAndSave(2, &Nobody(), Briefs(devices), 1021), 22u);

    EXPECT_EQ(spawned_, 0u);
    EXPECT_TRUE(Logged(3, "DCM", "Calculated number of StepQueryThread even more than UINT8_MAX(num:256.000000)."));
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, ExactlyTwoHundredFiftyFiveThreadsAreMade)
{
    ArrayList devices = Devices(1020);

    EXPECT_EQ(StepQueryMessageAndSave(2, &Nobody(), Briefs(devices), 1020), 5u);

    EXPECT_EQ(spawned_, 255u);
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, NoSemaphoreGives12)
{
    g_corvaneInfra.semCreate = NoSem;
    ArrayList devices = Devices(1);

    EXPECT_EQ(StepQueryMessageAndSave(2, &Nobody(), Briefs(devices), 1), 12u);

    EXPECT_EQ(spawned_, 0u);
    EXPECT_TRUE(Logged(3, "DCM", "Step query Agent(nobody) create Sem Fail."));
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, ASliceWithoutMemoryGives12)
{
    ArrayList devices = Devices(5);
    failSize_ = sizeof(StepQueryTaskContext);

    EXPECT_EQ(StepQueryMessageAndSave(2, &Nobody(), Briefs(devices), 5), 12u);

    EXPECT_EQ(spawned_, 0u);
    EXPECT_TRUE(Logged(3, "DCM",
                       "Agent(nobody) QueryMessageAndSave(message:dca_get_disks_health_info) malloc context "
                       "Failed(offset:0)(step:4)."));
    EXPECT_TRUE(Logged(3, "DCM",
                       "Agent(nobody) QueryMessageAndSave(message:dca_get_disks_health_info) malloc context "
                       "Failed(offset:4)(step:4)."));
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, ASliceWithoutThreadGives12)
{
    ArrayList devices = Devices(5);
    failSpawn_ = true;

    EXPECT_EQ(StepQueryMessageAndSave(2, &Nobody(), Briefs(devices), 5), 12u);

    EXPECT_EQ(LogCount(3, "DCM", "StepQueryMessageAndSave Create WorkerThread failed."), 2u);
    ArrayListDelete(&devices);
}

TEST_F(StepQueryMessageAndSaveTest, RefusesBadArguments)
{
    ArrayList devices = Devices(1);

    EXPECT_EQ(StepQueryMessageAndSave(4, &Nobody(), Briefs(devices), 1), 22u);
    EXPECT_EQ(StepQueryMessageAndSave(1, nullptr, Briefs(devices), 1), 22u);
    EXPECT_EQ(StepQueryMessageAndSave(1, &Nobody(), nullptr, 1), 22u);

    ArrayListDelete(&devices);
}
