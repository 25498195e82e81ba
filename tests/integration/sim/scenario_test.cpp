// Mistakes in scenario files: each is found, placed and explained.
#include "sample_fleet.h"
#include "sim_process.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// A disk of which one member is replaced or added.
std::string Disk(const std::string &member)
{
    const std::string name = member.substr(0, member.find(':'));
    std::string disk = "{" + member;
    for (const char *given :
         {R"("device_name":"nvme0")", R"("serial_number":"N1")", R"("disk_type":"SSD_NVMe")", R"("vendor_id":"VELMAR")",
          R"("model_number":"M")", R"("disk_capacity":1)", R"("pci_address":"0000:81:00.0")"}) {
        if (std::string(given).rfind(name, 0) != 0) {
            disk += std::string(",") + given;
        }
    }
    return disk + "}";
}

std::string WithDisk(const std::string &member)
{
    return "{\"disks\":[" + Disk(member) + "]}";
}

std::string WithEvents(const std::string &events)
{
    return Sample(",\"events\":[" + events + "]");
}

struct Mistake {
    std::string scenario;
    std::string error;
};

class ScenarioMistakeTest : public SimTest, public testing::WithParamInterface<Mistake> {};

TEST_P(ScenarioMistakeTest, IsToldWithFileAndPlace)
{
    const std::string file = WriteFile("bad.json", GetParam().scenario);

    const Finished check = RunSim({"--check", "--scenario", file});

    EXPECT_EQ(check.exitCode, 3);
    EXPECT_EQ(check.out, "");
    EXPECT_THAT(check.err, StartsWith("corvane-sim: " + file + ": " + GetParam().error));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ScenarioMistakeTest,
    testing::Values(Mistake{"", "line 1, column 1: this is no valid JSON"},
                    Mistake{"{\n  \"disks\": [\n  ,]}", "line 3, column 3: this is no valid JSON"},
                    Mistake{"{\"disks\":[]} x", "line 1, column 14: this is no valid JSON"},
                    Mistake{"[]", "$: must be an object"}, Mistake{"{}", "$.disks: is missing"},
                    Mistake{R"({"disks":{}})", "$.disks: must be a list"},
                    Mistake{R"({"disks":[5]})", "$.disks[0]: must be an object"},
                    Mistake{R"({"disks":[],"disk":1})", "$.disk: is not known here; remove it or use one of agents, "
                                                        "comment, disks, events, name"},
                    Mistake{R"({"disks":[],"agents":{"moon":{}}})", "$.agents.moon: is not known here"},
                    Mistake{R"({"disks":[],"agents":{"spdk":{"tick_rate":-1}}})", "$.agents.spdk.tick_rate: is -1"}));

INSTANTIATE_TEST_SUITE_P(
    Disks, ScenarioMistakeTest,
    testing::Values(
        Mistake{R"({"disks":[{}]})", "$.disks[0].device_name: is missing; add it as a text of at most 19 characters"},
        Mistake{WithDisk(R"("device_name":5)"), "$.disks[0].device_name: must be a text"},
        Mistake{WithDisk(R"("device_name":"")"), "$.disks[0].device_name: must not be empty"},
        Mistake{WithDisk("\"device_name\":\"" + std::string(20, 'd') + "\""),
                "$.disks[0].device_name: has 20 characters and at most 19 fit"},
        Mistake{WithDisk("\"serial_number\":\"" + std::string(40, 's') + "\""),
                "$.disks[0].serial_number: has 40 characters and at most 39 fit"},
        Mistake{WithDisk("\"vendor_id\":\"" + std::string(10, 'v') + "\""),
                "$.disks[0].vendor_id: has 10 characters and at most 9 fit"},
        Mistake{WithDisk("\"model_number\":\"" + std::string(44, 'm') + "\""),
                "$.disks[0].model_number: has 44 characters and at most 43 fit"},
        Mistake{WithDisk("\"firmware_revision\":\"" + std::string(10, 'f') + "\""),
                "$.disks[0].firmware_revision: has 10 characters and at most 9 fit"},
        Mistake{WithDisk("\"pci_address\":\"" + std::string(256, 'p') + "\""),
                "$.disks[0].pci_address: has 256 characters and at most 255 fit"},
        Mistake{WithDisk(R"("disk_type":"FLOPPY")"), "$.disks[0].disk_type: \"FLOPPY\" is not known; choose one of "
                                                     "SSD_NVMe, SSD_SAS, SSD_SATA, HDD_SAS, HDD_SATA, HDD_NL_SAS"},
        Mistake{WithDisk(R"("disk_type":"SSD_SATA")"), "$.disks[0].pci_address: is not known here"},
        Mistake{WithDisk(R"("disk_media_type":"TAPE")"), "$.disks[0].disk_media_type: \"TAPE\" is not known"},
        Mistake{WithDisk(R"("disk_capacity":"1T")"), "$.disks[0].disk_capacity: must be a number of bytes"},
        Mistake{WithDisk(R"("disk_capacity":"")"), "$.disks[0].disk_capacity: must not be empty"},
        Mistake{WithDisk(R"("disk_capacity":"18446744073709551616")"), "$.disks[0].disk_capacity: must be a number of"},
        Mistake{WithDisk(R"("disk_capacity":1.5)"), "$.disks[0].disk_capacity: is 1.5; it must be a whole number"},
        Mistake{WithDisk(R"("sector_size":0)"), "$.disks[0].sector_size: is 0; it must lie between 1 and 4294967295"},
        Mistake{WithDisk(R"("agent":"other")"), "$.disks[0].agent: \"other\" is not known; choose one of kernel, spdk"},
        Mistake{WithDisk(R"("present":1)"), "$.disks[0].present: must be true or false"},
        Mistake{WithDisk(R"("awaits_rebind":true,"present":true)"), "$.disks[0].present: a disk that awaits"},
        Mistake{WithDisk(R"("health":{"wear":65536})"), "$.disks[0].health.wear: is 65536; it must lie between"},
        Mistake{WithDisk(R"("health":{"SMART_list":[]})"), "$.disks[0].health.SMART_list: is not known here; remove it "
                                                           "or use one of comment, critical_warning, power_on_hours"},
        Mistake{WithDisk(R"("health":{"critical_warning":"1"})"),
                "$.disks[0].health.critical_warning: must be a number"},
        Mistake{WithDisk(R"("health":{"wear_limit":10001})"), "$.disks[0].health.wear_limit: is 10001; it must lie"},
        Mistake{WithDisk(R"("expect":[])"), "$.disks[0].expect: must be an object"},
        Mistake{WithDisk(R"("expect":{"state":"ill"})"), "$.disks[0].expect.state: \"ill\" is not known; choose one of "
                                                         "normal, fault, offline, prefail, slow"},
        Mistake{WithDisk(R"("expect":{"score":101})"), "$.disks[0].expect.score: is 101; it must lie between"},
        Mistake{WithDisk(R"("expect":{"life":43801})"), "$.disks[0].expect.life: is 43801; it must lie between"},
        Mistake{WithDisk(R"("expect":{"life":"long"})"), "$.disks[0].expect.life: \"long\" is not known; choose one of "
                                                         "none"},
        Mistake{WithDisk(R"("expect":{"life":"none","score":100})"), "$.disks[0].expect.score: comes with a predicted"},
        Mistake{WithDisk(R"("expect":{"strategy":""})"), "$.disks[0].expect.strategy: must not be empty"},
        Mistake{WithDisk(R"("expect":{"state":"offline","strategy":"x"})"), "$.disks[0].expect.state: nothing more"},
        Mistake{WithDisk(R"("expect":{"within":1})"), "$.disks[0].expect.within: is not known here"},
        Mistake{WithDisk(R"("io":{"service_us":0})"), "$.disks[0].io.service_us: is 0"},
        Mistake{WithDisk(R"("io":{"queue_depth":0})"), "$.disks[0].io.queue_depth: is 0"},
        Mistake{WithDisk(R"("io":{"iops":5})"), "$.disks[0].io.iops: is not known here"},
        Mistake{"{\"disks\":[" + Disk(R"("device_name":"a")") + "," + Disk(R"("device_name":"b")") + "]}",
                "$.disks[1].serial_number: \"N1\" is that of $.disks[0] already"},
        Mistake{"{\"disks\":[" + Disk(R"("serial_number":"a")") + "," + Disk(R"("serial_number":"b")") + "]}",
                "$.disks[1].device_name: \"nvme0\" is that of $.disks[0] already"}));

INSTANTIATE_TEST_SUITE_P(
    Events, ScenarioMistakeTest,
    testing::Values(Mistake{WithEvents(R"({"do":"pull","disk":"sda"})"), "$.events[0].at: is missing"},
                    Mistake{WithEvents(R"({"at":-1,"do":"pull","disk":"sda"})"), "$.events[0].at: is -1"},
                    Mistake{WithEvents(R"({"at":1,"do":"pull","disk":"sdz"})"), "$.events[0].disk: \"sdz\" is neither"},
                    Mistake{WithEvents(R"({"at":9,"do":"pull","disk":"sda"},{"at":3,"do":"plug","disk":"sda"})"),
                            "$.events[1]: the disk is plugged at this time already"},
                    Mistake{WithEvents(R"({"at":3,"do":"pull","disk":"sda"},{"at":3,"do":"pull","disk":"sda"})"),
                            "$.events[1]: the disk is out at this time already"}));

TEST_F(SimTest, MoreThan64DisksAreRefusedAnd64Taken)
{
    const auto fleet = [](int count) {
        std::string disks;
        for (int i = 0; i < count; i++) {
            disks += (i == 0 ? "" : ",") + std::string(R"({"device_name":"d)") + std::to_string(i) +
                     R"(","serial_number":"s)" + std::to_string(i) +
                     R"(","disk_type":"HDD_SAS","vendor_id":"WD","model_number":"M","disk_capacity":1})";
        }
        return "{\"disks\":[" + disks + "]}";
    };

    const Finished good = RunSim({"--check", "-s", WriteFile("64.json", fleet(64))});
    const Finished bad = RunSim({"--check", "-s", WriteFile("65.json", fleet(65))});

    EXPECT_EQ(good.exitCode, 0) << good.err;
    EXPECT_THAT(good.out, HasSubstr(": good, 64 disks, 0 events\n"));
    EXPECT_EQ(bad.exitCode, 3);
    EXPECT_THAT(bad.err, HasSubstr("$.disks: has 65 entries and at most 64 are allowed"));
}

TEST_F(SimTest, ScenarioThatCannotBeReadIsTold)
{
    for (const std::string &file : {Folder() + "/nosuch.json", Folder()}) {
        const Finished run = RunSim({"--scenario", file});

        EXPECT_EQ(run.exitCode, 3);
        EXPECT_THAT(run.err, StartsWith("corvane-sim: " + file + ": cannot be read: "));
    }
}

class ShippedScenarioTest : public testing::TestWithParam<std::pair<const char *, const char *>> {};

TEST_P(ShippedScenarioTest, IsGood)
{
    const std::string file = std::string(CORVANE_SIM_SCENARIOS "/") + GetParam().first;

    const Finished check = RunSim({"--check", "--scenario", file});

    EXPECT_EQ(check.out, file + GetParam().second) << check.err;
    EXPECT_EQ(check.exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Files, ShippedScenarioTest,
                         testing::Values(std::pair{"demo.json", ": good, 12 disks, 2 events\n"},
                                         std::pair{"fleet64.json", ": good, 64 disks, 0 events\n"},
                                         std::pair{"verdicts.json", ": good, 36 disks, 30 events\n"},
                                         std::pair{"near-misses.json", ": good, 19 disks, 6 events\n"}));

class ScenarioAnswerSizeTest : public SimTest {};

TEST_F(ScenarioAnswerSizeTest, EveryAnswerAboutTheFullFleetFitsOneReceive)
{
    std::FILE *file = std::fopen(CORVANE_SIM_SCENARIOS "/fleet64.json", "re");
    ASSERT_NE(file, nullptr);
    std::string text(100000, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    (void)std::fclose(file);
    Start(text);
    // The number of devices that one request of each kind names.
    const std::vector<std::pair<const char *, int>> steps = {
        {"dca_get_disks_base_info", 13}, {"dca_get_disks_health_info", 4}, {"dca_get_disks_iostat", 20}};

    for (const std::string &socket : {Kernel(), Spdk()}) {
        EXPECT_LE(Ask(socket, RequestOf("dca_get_disks_brief_info")).size(), 8192U);
        const Json brief = ResultOf(socket, "dca_get_disks_brief_info");
        const cJSON *disks = cJSON_GetObjectItemCaseSensitive(brief.get(), "disks");
        for (const auto &[method, step] : steps) {
            for (int first = 0; first < cJSON_GetArraySize(disks); first += step) {
                std::string names;
                for (int i = first; i < std::min(first + step, cJSON_GetArraySize(disks)); i++) {
                    names += (i == first ? "\"" : ",\"") + At(cJSON_GetArrayItem(disks, i), "device_name") + "\"";
                }
                const std::string answer = Ask(socket, RequestOf(method, "{\"devices\":[" + names + "]}"));
                EXPECT_GT(answer.size(), 100U);
                EXPECT_LE(answer.size(), 8192U) << method << " " << names;
            }
        }
    }
}

TEST_F(SimTest, EventsHappenInOrderOfTimeAtTheGivenSpeed)
{
    // A thousand seconds of scenario pass in a second.
    Start(WithEvents(
              R"({"at":200,"do":"plug","disk":"nvme0","device_name":"nvme7"},{"at":100,"do":"pull","disk":"nvme0"},)"
              R"({"at":300,"do":"tick_rate","agent":"spdk","value":7})"),
          {"--speed", "1000"});

    while (At(Json(cJSON_Parse(Control(R"({"do":"status"})").c_str())).get(), "events_done") != "3") {
    }

    const Json brief = ResultOf(Spdk(), "dca_get_disks_brief_info");
    EXPECT_EQ(At(brief.get(), "disks.0.device_name"), "nvme7") << Err();
    EXPECT_EQ(At(ResultOf(Spdk(), "dca_get_disks_iostat", R"({"devices":[]})").get(), "tick_rate"), "7");
    const Json status(cJSON_Parse(Control(R"({"do":"status"})").c_str()));
    EXPECT_GE(std::stod(At(status.get(), "time")), 300.0);
}

TEST_F(SimTest, AnEventThatCannotBeDoneIsToldAndTheRestGoesOn)
{
    Start(WithEvents(R"({"at":0,"do":"start","agent":"spdk"},{"at":0,"do":"tick_rate","agent":"spdk","value":7})"));

    while (At(Json(cJSON_Parse(Control(R"({"do":"status"})").c_str())).get(), "events_done") != "2") {
    }

    EXPECT_EQ(Err(), "corvane-sim: $.events[0]: the agent is serving already; stop it first\n");
    EXPECT_EQ(At(ResultOf(Spdk(), "dca_get_disks_iostat", R"({"devices":[]})").get(), "tick_rate"), "7");
}

} // namespace
