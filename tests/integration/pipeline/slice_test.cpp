#include "pipeline_fixture.h"

using namespace pipeline_test;

namespace {

/** Enough disks for two requests of every kind, so that one of them can fail alone. */
class SliceTest : public PipelineTest {
protected:
    SliceTest() : PipelineTest(22, 2) {}
};

class MalformedDiskTest : public SliceTest, public ::testing::WithParamInterface<uint32_t> {};

class SlotTest : public PipelineTest {};
class AnswerOfFewerDisksTest : public PipelineTest {};

} // namespace

TEST_P(MalformedDiskTest, FailsItsRequestOnly)
{
    BringUp();
    const uint32_t type = GetParam();
    const uint32_t step = g_queryMessageStepMap[type];
    const std::string method = kMethods[type];
    const time_t lastSuccess = contexts_[0].last[type];
    std::map<std::string, std::string> known;
    for (const SimDisk &disk : kernelDisks_) {
        known[disk.sn] = Bytes(type, disk.sn);
    }
    SetGeneration(3);
    now_ += type == MESSAGE_DISK_BASE_INFO ? 3600 : 3;
    // The second disk of the first request: the first is right, and is not stored either.
    kernel_->Spoil(method, [](const AgentRequest &request, std::string right) -> Reply {
        const size_t place = right.find("\"KSN-1\"");
        if (request.devices[0] == "sd0" && place != std::string::npos) {
            right.replace(place, 7, "null");
        }
        return {.manner = Manner::Answer, .text = right};
    });

    KernelCycle();
    UserCycle();

    for (size_t i = 0; i < kernelDisks_.size(); i++) {
        const std::string &sn = kernelDisks_[i].sn;
        if (i < step) {
            EXPECT_EQ(Bytes(type, sn), known[sn]) << sn;
        } else {
            EXPECT_TRUE(IsOf(type, sn, 3, 2)) << sn;
        }
    }
    for (const SimDisk &disk : userDisks_) {
        EXPECT_TRUE(IsOf(type, disk.sn, 3, 2)) << disk.sn;
    }
    EXPECT_EQ(LogCount(3, "DCM",
                       "Agent(sim_kernel) QueryMessageAndSave(message:" + method +
                           ") Failed(ret:22)(offset:0)(step:" + std::to_string(step) + ")."),
              1u);
    EXPECT_EQ(LogCount(3, "DCM", "QueryMessageAndSave(" + method + ") failed(22)."), 1u);
    EXPECT_EQ(contexts_[0].last[type], lastSuccess);
    EXPECT_EQ(contexts_[1].last[type], now_.load());
}
INSTANTIATE_TEST_SUITE_P(Kinds, MalformedDiskTest,
                         ::testing::Values(MESSAGE_DISK_BASE_INFO, MESSAGE_DISK_HEALTH_INFO,
                                           MESSAGE_DISK_IO_INFO_FRAME));

TEST_F(AnswerOfFewerDisksTest, StoresThemAndKeepsTheOthers)
{
    BringUp();
    const std::string known = Bytes(MESSAGE_DISK_HEALTH_INFO, "KSN-1");
    SetGeneration(3);
    now_ += 3;
    const SimDisk answered = kernelDisks_[0];
    kernel_->Spoil("dca_get_disks_health_info", [answered](const AgentRequest &request, const std::string &right) {
        return Reply{.manner = Manner::Answer,
                     .text = request.devices[0] == answered.device
                                 ? dcm_test::Answer(dcm_test::Disks({HealthOf(answered, 3)}))
                                 : right};
    });

    KernelCycle();

    EXPECT_TRUE(IsOf(MESSAGE_DISK_HEALTH_INFO, "KSN-0", 3, 2));
    EXPECT_EQ(Bytes(MESSAGE_DISK_HEALTH_INFO, "KSN-1"), known);
    EXPECT_TRUE(IsOf(MESSAGE_DISK_HEALTH_INFO, "KSN-4", 3, 2));
    EXPECT_EQ(contexts_[0].last[MESSAGE_DISK_HEALTH_INFO], now_.load());
    EXPECT_EQ(IdOf(""), kNoId);
}

TEST_F(SlotTest, ComesFromTheKernelAgent)
{
    BringUp();

    for (size_t i = 0; i < userDisks_.size(); i++) {
        EXPECT_EQ(Base(userDisks_[i].sn).slotId, 10 + i);
    }
    EXPECT_EQ(Base(kernelDisks_[0].sn).slotId, kNoId);
}

TEST_F(SlotTest, IsUnknownWhileTheKernelAgentIsDown)
{
    BringUp();
    kernel_.reset();
    user_->SetGeneration(3);
    now_ += 3600;

    UserCycle();

    for (const SimDisk &disk : userDisks_) {
        EXPECT_TRUE(IsOf(MESSAGE_DISK_BASE_INFO, disk.sn, 3, 2));
        EXPECT_EQ(Base(disk.sn).slotId, kNoId);
    }
    EXPECT_TRUE(Logged(3, "DCM", "Query disk slot info failed, ret<5>"));
    EXPECT_EQ(contexts_[1].last[MESSAGE_DISK_BASE_INFO], now_.load());
}
