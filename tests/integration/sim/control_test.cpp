// Events on demand: what each changes, and how mistakes are told.
#include "sample_fleet.h"
#include "sim_process.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kOk = R"({"ok":true})";

class ControlTest : public SimTest {
protected:
    void SetUp() override { Start(Sample()); }

    std::string Serials(const std::string &path)
    {
        std::string all;
        const Json result = ResultOf(path, "dca_get_disks_brief_info");
        const cJSON *disk = nullptr;
        cJSON_ArrayForEach(disk, cJSON_GetObjectItemCaseSensitive(result.get(), "disks"))
        {
            all += At(disk, "device_name") + "=" + At(disk, "serial_number") + " ";
        }
        return all;
    }

    std::string Health(const std::string &device, const std::string &member)
    {
        const bool isNvme = device.rfind("nvme", 0) == 0;
        const Json result =
            ResultOf(isNvme ? Spdk() : Kernel(), "dca_get_disks_health_info", R"({"devices":[")" + device + "\"]}");
        return At(result.get(), "disks.0." + member);
    }
};

TEST_F(ControlTest, PulledDiskIsGoneUntilPlugged)
{
    EXPECT_EQ(Control(R"({"do":"pull","disk":"NVME1"})"), kOk);
    EXPECT_EQ(Serials(Spdk()), "nvme1=NVME2 ");
    EXPECT_EQ(At(ResultOf(Spdk(), "dca_get_disks_iostat", R"({"devices":["nvme0"]})").get(), "disks"), "[]");
    EXPECT_THAT(Control(R"({"do":"pull","disk":"NVME1"})"), HasSubstr("nvme0 is out already"));

    EXPECT_EQ(Control(R"({"do":"plug","disk":"nvme0"})"), kOk);
    EXPECT_EQ(Serials(Spdk()), "nvme0=NVME1 nvme1=NVME2 ");
    EXPECT_THAT(Control(R"({"do":"plug","disk":"nvme0"})"), HasSubstr("nvme0 is plugged already"));
}

TEST_F(ControlTest, PluggedDiskMayHaveAnotherName)
{
    EXPECT_EQ(Control(R"({"do":"pull","disk":"nvme1"})"), kOk);
    EXPECT_THAT(Control(R"({"do":"plug","disk":"nvme1","device_name":"nvme0"})"), HasSubstr("name of another disk"));
    EXPECT_EQ(Control(R"({"do":"plug","disk":"nvme1","device_name":"nvme9"})"), kOk);

    EXPECT_EQ(Serials(Spdk()), "nvme0=NVME1 nvme9=NVME2 ");
    EXPECT_EQ(Control(R"({"do":"pull","disk":"nvme9"})"), kOk) << "the new name is the one to address it by";
}

TEST_F(ControlTest, HealthChangesMemberByMember)
{
    EXPECT_EQ(Control(R"({"do":"health","disk":"nvme0","set":{"critical_warning":8,"power_on_hours":99}})"), kOk);
    EXPECT_EQ(Health("nvme0", "critical_warning"), "8");
    EXPECT_EQ(Health("nvme0", "power_on_hours"), "99");
    EXPECT_EQ(Health("nvme0", "wear"), "777") << "what is not named stays";

    EXPECT_EQ(Control(R"({"do":"health","disk":"sdd","set":{"ASC":93,"ASCQ":109,"is_support_ie_log":true}})"), kOk);
    EXPECT_EQ(Health("sdd", "ASC") + Health("sdd", "ASCQ") + Health("sdd", "is_support_ie_log"), "93109true");

    EXPECT_EQ(Control(R"({"do":"health","disk":"sdb","set":{"capacitance_status":0,"wear":9900}})"), kOk);
    EXPECT_EQ(Health("sdb", "capacitance_id") + Health("sdb", "capacitance_status") + Health("sdb", "wear"),
              "24209900");
}

TEST_F(ControlTest, WearRisesWithTheScenariosClockUpToAllLifeUsed)
{
    EXPECT_EQ(Control(R"({"do":"health","disk":"nvme0","set":{"wear":9000,"wear_rate":60000}})"), kOk);

    uint64_t last = 0;
    for (uint64_t wear = 0; wear < 10000; last = wear) {
        wear = std::stoull(Health("nvme0", "wear"));
        ASSERT_GE(wear, std::max<uint64_t>(last, 9000));
        ASSERT_LE(wear, 10000U);
    }
    EXPECT_EQ(Control(R"({"do":"health","disk":"nvme0","set":{"wear":12000}})"), kOk);
    EXPECT_EQ(Health("nvme0", "wear"), "12000") << "a wear that is set beyond stays";
}

TEST_F(ControlTest, WearGrowsUpToItsLimitAndNoFurther)
{
    EXPECT_EQ(Control(R"({"do":"health","disk":"nvme0","set":{"wear":9000,"wear_rate":60000,"wear_limit":9001}})"),
              kOk);

    while (Health("nvme0", "wear") == "9000") {
    }

    for (int i = 0; i < 20; i++) {
        ASSERT_EQ(Health("nvme0", "wear"), "9001");
    }
    EXPECT_EQ(Control(R"({"do":"health","disk":"nvme0","set":{"wear_limit":5000}})"), kOk);
    EXPECT_EQ(Health("nvme0", "wear"), "9001") << "what is used stays used";
}

TEST_F(ControlTest, SmartAttributeIsChangedOrAdded)
{
    EXPECT_EQ(Control(R"({"do":"smart","disk":"sda","id":5,"threshold":10,"current_value":9})"), kOk);
    EXPECT_EQ(Health("sda", "smart_list.0"), R"({"id":5,"threshold":10,"current_value":9,"worst":9})");

    EXPECT_EQ(Control(R"({"do":"smart","disk":"sda","id":187,"threshold":1,"current_value":2,"worst":3})"), kOk);
    EXPECT_EQ(Health("sda", "smart_list.2"), R"({"id":187,"threshold":1,"current_value":2,"worst":3})");

    for (int id = 200; id < 227; id++) {
        EXPECT_EQ(
            Control(R"({"do":"smart","disk":"sda","threshold":1,"current_value":2,"id":)" + std::to_string(id) + "}"),
            kOk);
    }
    EXPECT_THAT(Control(R"({"do":"smart","disk":"sda","id":250,"threshold":1,"current_value":2})"),
                HasSubstr("30 attributes already"));
}

TEST_F(ControlTest, BaseInfoChanges)
{
    EXPECT_EQ(
        Control(R"({"do":"base","disk":"sda","set":{"firmware_revision":"FW2","disk_capacity":5,"sector_size":4096,)"
                R"("model_number":"VSSD-2"}})"),
        kOk);
    EXPECT_EQ(Control(R"({"do":"base","disk":"nvme1","set":{"slot_id":21}})"), kOk);

    const Json base = ResultOf(Kernel(), "dca_get_disks_base_info", R"({"devices":["sda"]})");
    EXPECT_EQ(At(base.get(), "disks.0.firmware_revision"), "FW2");
    EXPECT_EQ(At(base.get(), "disks.0.disk_capacity"), "5");
    EXPECT_EQ(At(base.get(), "disks.0.sector_size"), "4096");
    EXPECT_EQ(At(base.get(), "disks.0.model_number"), "VSSD-2");
    const Json slot = ResultOf(Kernel(), "dca_get_disks_slotid",
                               R"({"devices":[{"device_name":"nvme1","pci_address":"0000:82:00.0"}]})");
    EXPECT_EQ(At(slot.get(), "disks.0.slot_id"), "21");
}

TEST_F(ControlTest, TickRateChanges)
{
    EXPECT_EQ(Control(R"({"do":"tick_rate","agent":"spdk","value":0})"), kOk);

    const Json frames = ResultOf(Spdk(), "dca_get_disks_iostat", R"({"devices":["nvme0"]})");
    EXPECT_EQ(At(frames.get(), "tick_rate") + " " + At(frames.get(), "ticks"), "0 0");
}

TEST_F(ControlTest, StatusTellsDisksAgentsAndExpectations)
{
    EXPECT_EQ(Stop(), 0);
    Start(R"({"disks":[{"device_name":"sda","serial_number":"S1","disk_type":"SSD_SATA","vendor_id":"ATA",)"
          R"("model_number":"VSSD-","disk_capacity":1,"expect":{"state":"slow", "life":"none"}}]})",
          {"--no-spdk"});
    (void)ResultOf(Kernel(), "dca_get_disks_brief_info");

    const Json status(cJSON_Parse(Control(R"({"do":"status"})").c_str()));

    EXPECT_EQ(At(status.get(), "ok"), "true");
    EXPECT_EQ(At(status.get(), "agents"), R"({"kernel":{"serving":true,"requests":1}})");
    EXPECT_EQ(At(status.get(), "disks"), R"([{"device_name":"sda","serial_number":"S1","present":true,)"
                                         R"("expect":{"state":"slow","life":"none"}}])");
    EXPECT_THAT(Control(R"({"do":"start","agent":"spdk"})"), HasSubstr("not served by this run"));
}

TEST_F(ControlTest, SeveralLinesAtOnceAreAnsweredInOrder)
{
    const int fd = Connect(Folder() + "/control.sock");
    // The last without a line feed, as a shell's printf leaves it.
    const std::string lines = "{\"do\":\"pull\",\"disk\":\"sda\"}\n\n  \nnonsense\n{\"do\":\"plug\",\"disk\":\"sda\"}";
    ASSERT_EQ(send(fd, lines.data(), lines.size(), 0), static_cast<ssize_t>(lines.size()));
    ASSERT_EQ(shutdown(fd, SHUT_WR), 0);

    std::string answer;
    char buffer[512];
    for (ssize_t got = 0; (got = recv(fd, buffer, sizeof(buffer), 0)) > 0;) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    close(fd);

    EXPECT_THAT(answer,
                testing::MatchesRegex("\\{\"ok\":true\\}\n\\{\"error\":\"line 1, column [0-9]+: this is no valid "
                                      "JSON[^\n]*\n\\{\"ok\":true\\}\n"));
}

TEST_F(ControlTest, AClientThatReadsLateIsAnsweredAndOneThatNeverReadsIsLeft)
{
    const std::string line = "{\"do\":\"status\"}\n";
    const int late = Connect(Folder() + "/control.sock");
    std::string lines;
    for (int i = 0; i < 100; i++) {
        lines += line;
    }
    ASSERT_EQ(send(late, lines.data(), lines.size(), 0), static_cast<ssize_t>(lines.size()));
    const int never = Connect(Folder() + "/control.sock");

    // Its answers fill the kernel's room and then that of the simulation, which ends the connection.
    ssize_t sent = 0;
    for (int i = 0; i < 200000 && sent >= 0; i++) {
        sent = send(never, line.data(), line.size(), MSG_NOSIGNAL);
    }

    EXPECT_EQ(sent, -1);
    EXPECT_THAT(errno, testing::AnyOf(EPIPE, ECONNRESET));
    close(never);
    ASSERT_EQ(shutdown(late, SHUT_WR), 0);
    std::string answers;
    char buffer[4096];
    for (ssize_t got = 0; (got = recv(late, buffer, sizeof(buffer), 0)) > 0;) {
        answers.append(buffer, static_cast<size_t>(got));
    }
    close(late);
    EXPECT_EQ(std::count(answers.begin(), answers.end(), '\n'), 100);
    EXPECT_EQ(Control(R"({"do":"pull","disk":"sda"})"), kOk);
}

struct Mistake {
    const char *line;
    const char *error;
};

class ControlMistakeTest : public SimTest, public testing::WithParamInterface<Mistake> {};

TEST_P(ControlMistakeTest, IsToldAndChangesNothing)
{
    Start(Sample());

    EXPECT_THAT(Control(GetParam().line), StartsWith(std::string(R"({"error":")") + GetParam().error));

    EXPECT_EQ(Control(R"({"do":"pull","disk":"sda"})"), kOk) << "the connection goes on";
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ControlMistakeTest,
    testing::Values(
        Mistake{"[]", "$: must be an object"}, Mistake{"{}", "$.do: is missing; add it as one of pull"},
        Mistake{R"({"do":"burn"})", "$.do: \\\"burn\\\" is not known; choose one of pull"},
        Mistake{R"({"do":"pull"})", "$.disk: is missing"},
        Mistake{R"({"do":"pull","disk":"sdz"})", "$.disk: \\\"sdz\\\" is neither"},
        Mistake{R"({"do":"pull","disk":"sda","at":3})", "$.at: an event of the control socket happens at once"},
        Mistake{R"({"do":"pull","disk":"sda","agent":"spdk"})", "$.agent: is not known here"},
        Mistake{R"({"do":"pull","disk":"sda","disk":"sdb"})", "$.disk: is given twice"},
        Mistake{R"({"do":"health","disk":"sda"})", "$.set: is missing"},
        Mistake{R"({"do":"health","disk":"nvme0","set":{"ASC":1}})", "$.set.ASC: is not known here"},
        Mistake{R"({"do":"health","disk":"sda","set":{"SMART_list":[{"id":256,"current_value":1}]}})",
                "$.set.SMART_list[0].id: is 256; it must lie between 0 and 255"},
        Mistake{R"({"do":"smart","disk":"sdd","id":5,"threshold":1,"current_value":1})", "$.disk: is no SSD_SATA"},
        Mistake{R"({"do":"io","disk":"sda","set":{"read_iops":-1}})", "$.set.read_iops: is -1"},
        Mistake{R"({"do":"misbehave","agent":"kernel"})", "$.mode: is missing"},
        Mistake{R"({"do":"misbehave","agent":"moon","mode":"hang"})", "$.agent: \\\"moon\\\" is not known"},
        Mistake{R"({"do":"misbehave","agent":"kernel","mode":"delay"})", "$.seconds: is missing"},
        Mistake{R"({"do":"misbehave","agent":"kernel","mode":"result"})", "$.result: is missing"},
        Mistake{R"({"do":"misbehave","agent":"kernel","mode":"close_unread","method":"x"})",
                "$.method: has no meaning here"},
        Mistake{R"({"do":"misbehave","agent":"kernel","mode":"hang","bytes":4})", "$.bytes: is not known here"}));

} // namespace
