#include "service_fixture.h"

#include <algorithm>
#include <array>

namespace {

struct Disk {
    std::string serial;
    std::string device;
    std::string type;
    std::string vendor;
    int number; ///< of the type, on the wire to the data agent
};
const std::array<Disk, 4> kDisks{{
    {"SYNC-SATA", "sda", "SSD_SATA", "ATA", 2},
    {"SYNC-HDD", "sdb", "HDD_SAS", "SEAGATE", 3},
    {"SYNC-NVME-A", "81", "SSD_NVMe", "VELMAR", 0},
    {"SYNC-NVME-B", "82", "SSD_NVMe", "VELMAR", 0},
}};

constexpr int kNormal = 0;
constexpr int kNew = 5;
const std::string kInfo = "dma_set_disk_info_inner";
const std::string kStrategy = "dma_set_disk_handle_strategy";
const std::string kPowerOff = "dma_poweroff_disk";

std::string InfoParams(const Disk &disk, int state)
{
    return R"({"sn":")" + disk.serial + R"(","disk_state":)" + std::to_string(state) +
           R"(,"disk_capacity":960197124096,"vendor":")" + disk.vendor + R"(","model":"VSSD-960G","device_name":")" +
           disk.device + R"(","disk_type":)" + std::to_string(disk.number) + "}";
}

std::string StrategyParams(const Disk &disk)
{
    return R"({"sn":")" + disk.serial + R"(","disk_handle_strategy":"No action required"})";
}

std::string Line(const std::string &method, const std::string &params)
{
    return method + " " + params;
}

/** What a whole sync of these disks is, in order. */
std::vector<std::string> Pass(const std::vector<Disk> &disks)
{
    std::vector<std::string> lines;
    for (const Disk &disk : disks) {
        lines.push_back(Line(kInfo, InfoParams(disk, kNormal)));
        lines.push_back(Line(kStrategy, StrategyParams(disk)));
    }
    return lines;
}

/** The disks of the registry file by rising identifier. */
std::vector<Disk> Registered()
{
    std::vector<Disk> disks;
    const CJsonPtr registry(cJSON_Parse(ReadText(kRegistryFile).c_str()));
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, registry.get())
    {
        const std::string serial = cJSON_GetStringValue(cJSON_GetObjectItem(entry, "sn"));
        disks.push_back(
            *std::find_if(kDisks.begin(), kDisks.end(), [&serial](const Disk &disk) { return disk.serial == serial; }));
    }
    return disks;
}

} // namespace

class SyncTest : public ServiceTest {
protected:
    void StartAll()
    {
        std::vector<std::string> texts;
        for (const Disk &disk : kDisks) {
            texts.push_back(DiskText(disk.device, disk.serial, disk.type));
        }
        StartSim(ScenarioOf(texts));
        Seams().syncInterval = 1;
        Seams().receiveTimeoutMs = 400;
        StartService();
        ASSERT_TRUE(WaitForOnline(kDisks.size()));
        disks_ = Registered();
        ASSERT_EQ(disks_.size(), kDisks.size());
    }
    /** All that the data agent has received, with a text for each message; a try that repeats one counts once. */
    static std::vector<Recorded> Received()
    {
        std::vector<Recorded> received;
        for (const Recorded &request : Record()) {
            const bool isRepeated = !received.empty() && received.back().id == request.id;
            if (request.method.rfind("dma_", 0) == 0 && !isRepeated) {
                received.push_back(request);
            }
        }
        return received;
    }
    /** The messages from the given one on. Identifiers must run on from 2 without a gap. */
    static std::vector<std::string> Lines(size_t from)
    {
        std::vector<std::string> lines;
        int id = 2;
        for (const Recorded &message : Received()) {
            EXPECT_EQ(message.socket, "spdk");
            EXPECT_EQ(message.id, id++) << message.method << message.params;
            lines.push_back(Line(message.method, message.params));
        }
        lines.erase(lines.begin(), lines.begin() + static_cast<long>(std::min(from, lines.size())));
        return lines;
    }
    static bool WaitForMessages(size_t count)
    {
        return Eventually([count] { return Received().size() >= count; });
    }
    /** These lines are passes of the disks, one after the other; the last may have just begun. */
    static void ExpectPasses(const std::vector<std::string> &lines, const std::vector<Disk> &disks)
    {
        const std::vector<std::string> pass = Pass(disks);
        for (size_t i = 0; i < lines.size(); i++) {
            ASSERT_EQ(lines[i], pass[i % pass.size()]) << "message " << i;
        }
    }

    std::vector<Disk> disks_; ///< by rising identifier
};

TEST_F(SyncTest, TellsOfNewDisksOnceAndOfAllDisksInEachInterval)
{
    StartAll();
    const size_t passes = 3;
    ASSERT_TRUE(WaitForMessages(disks_.size() + passes * 2 * disks_.size()));

    const std::vector<std::string> lines = Lines(0);

    for (size_t i = 0; i < disks_.size(); i++) {
        EXPECT_EQ(lines[i], Line(kInfo, InfoParams(disks_[i], kNew))) << "arrival " << i;
    }
    ExpectPasses(Lines(disks_.size()), disks_);
    EXPECT_EQ(Logged("send Rpc to agent failed!"), 0u);
}

TEST_F(SyncTest, GoesOnWhileOneMethodHangsAndIsWholeAfterIt)
{
    StartAll();
    ASSERT_TRUE(WaitForMessages(disks_.size() + 2 * disks_.size()));

    Event(R"({"do":"misbehave","agent":"spdk","mode":"hang","method":"dma_set_disk_info_inner"})");
    ASSERT_TRUE(WaitForLog("send Rpc to agent failed! ret:[32]", disks_.size()));
    ASSERT_TRUE(WaitForRequests("spdk", kStrategy, 1)) << "the second message of a disk was kept back";
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 2)) << "collection stands still";
    EXPECT_TRUE(GoesOn());
    EXPECT_GE(Logged("RPC request post failed. ret = 32"), disks_.size());
    Event(R"({"do":"behave","agent":"spdk"})");
    ASSERT_TRUE(WaitForMessages(Received().size() + 4 * disks_.size()));

    ExpectPasses(Lines(disks_.size()), disks_);
    const size_t failures = Logged("send Rpc to agent failed!");
    ASSERT_TRUE(WaitForMessages(Received().size() + 2 * disks_.size()));
    EXPECT_LE(Logged("send Rpc to agent failed!"), failures + 1) << "it still fails";
}

TEST_F(SyncTest, FollowsTheDisksOfAnAgentThatHangsAndReturns)
{
    StartAll();
    ASSERT_TRUE(WaitForMessages(disks_.size() + 2 * disks_.size()));
    const size_t before = Received().size();

    // The same process serves NVMe disks and data agent: both are silent.
    Event(R"({"do":"misbehave","agent":"spdk","mode":"hang"})");
    ASSERT_TRUE(WaitForOnline(2));
    Event(R"({"do":"behave","agent":"spdk"})");
    ASSERT_TRUE(WaitForOnline(4));
    const std::vector<Disk> after = Registered();
    const size_t returned = Received().size();
    ASSERT_TRUE(WaitForMessages(returned + 6 * disks_.size()));

    // In between: the old disks' end and the return of each as a new one, among syncs of those that were left.
    const std::vector<std::string> lines = Lines(before);
    std::vector<std::string> ends;
    std::vector<std::string> arrivals;
    for (const std::string &line : lines) {
        if (line.rfind(kPowerOff, 0) == 0) {
            ends.push_back(line);
        } else if (line.find(R"("disk_state":5)") != std::string::npos) {
            arrivals.push_back(line);
        }
    }
    EXPECT_THAT(ends, ::testing::UnorderedElementsAre(Line(kPowerOff, R"({"sn":"SYNC-NVME-A"})"),
                                                      Line(kPowerOff, R"({"sn":"SYNC-NVME-B"})")));
    EXPECT_THAT(arrivals, ::testing::UnorderedElementsAre(Line(kInfo, InfoParams(kDisks[2], kNew)),
                                                          Line(kInfo, InfoParams(kDisks[3], kNew))));
    // From then on: whole syncs of all four, in the order of the identifiers that they have now.
    const std::vector<std::string> pass = Pass(after);
    const std::vector<std::string> end = Lines(returned);
    const auto first = std::find(end.begin(), end.end(), pass.front());
    ASSERT_GE(std::distance(first, end.end()), static_cast<long>(2 * pass.size()));
    ExpectPasses({first, end.end()}, after);
}
