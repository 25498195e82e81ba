#include <csignal>
#include <set>

#include "service_fixture.h"
#include "support/notify_socket.h"

namespace {

constexpr size_t kDisks = 8;

std::string Fleet(size_t count)
{
    std::vector<std::string> disks;
    for (size_t i = 0; i < count; i++) {
        disks.push_back(DiskText("8" + std::to_string(i), "DOG-" + std::to_string(i), "SSD_NVMe"));
    }
    return ScenarioOf(disks);
}

} // namespace

/** With a service that tells a service manager that it works. */
class WatchedServiceTest : public ServiceTest {
protected:
    void StartWatched(size_t disks)
    {
        StartSim(Fleet(disks));
        watched_ =
            std::make_unique<ChildProcess>(std::vector<std::string>{SERVICE_CORVANED_PATH, "--prefix", kPrefix},
                                           std::vector<std::string>{std::string(kSeamsVariable) + "=/tmp/seams",
                                                                    manager_.Environment(), "WATCHDOG_USEC=1000000"});
        ASSERT_THAT(manager_.Receive(), ::testing::StartsWith("READY=1"));
        for (int beat = 0; beat < 200 && Logged("online disk, sn = DOG-") < disks; beat++) {
            ASSERT_EQ(manager_.Receive(), "WATCHDOG=1");
        }
        ASSERT_EQ(Logged("online disk, sn = DOG-"), disks);
    }
    static size_t Leaving() { return Logged("Try offline disk (sn = DOG-"); }

    NotifySocket manager_;
    std::unique_ptr<ChildProcess> watched_;
};

/** A hang of the storage software holds the store back for minutes, and is none of the service. */
TEST_F(WatchedServiceTest, IsHeardWhileItWaitsForAHungPeer)
{
    Seams().receiveTimeoutMs = 500; // five of them for each message
    StartWatched(kDisks);

    // Silent agents have no disks: all leave in one refresh, which holds the store, and each leaving is told in vain.
    Event(R"({"do":"misbehave","agent":"spdk","mode":"hang"})");
    std::set<size_t> leavingAtBeats;
    for (size_t leaving = 0; leaving < kDisks - 2;) {
        ASSERT_EQ(manager_.Receive(), "WATCHDOG=1");
        leaving = Leaving();
        if (leaving > 0) {
            leavingAtBeats.insert(leaving);
        }
    }

    // The first may have been sent before the refresh, the last after it; in between the store was held.
    EXPECT_GE(leavingAtBeats.size(), 4U);
    watched_->Signal(SIGTERM);
    EXPECT_EQ(watched_->WaitForExit(), 0);
    EXPECT_EQ(watched_->Errors(), "");
}

TEST_F(WatchedServiceTest, EndsOnRequestWhileNothingMoves)
{
    StartWatched(1);
    Seams().receiveTimeoutMs = 3600000;
    Event(R"({"do":"misbehave","agent":"spdk","mode":"hang","method":"dma_poweroff_disk"})");
    Event(R"({"do":"pull","disk":"80"})");
    ASSERT_TRUE(Eventually([] { return Leaving() == 1; }));
    // It looks for a sign that does not come.
    const std::string call = "/proc/" + std::to_string(watched_->Pid()) + "/syscall";
    ASSERT_TRUE(Eventually([&call] { return ReadText(call) == "running\n"; }));

    watched_->Signal(SIGTERM);

    EXPECT_EQ(watched_->WaitForExit(), 0);
    EXPECT_EQ(Logged("offline disk (disk id"), 0U) << "the exchange went on until the end";
}
