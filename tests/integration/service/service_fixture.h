/**
 * @file service_fixture.h
 * @brief A node under faults: corvaned, simulated agents and what a test needs to see of files, log and messages.
 */
#ifndef SERVICE_FIXTURE_H
#define SERVICE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"
#include "service_seams.h"
#include "support/child_process.h"

inline const std::string kPrefix = "/tmp/prefix";
inline const std::string kConfigFolder = "/tmp/prefix/config";
inline const std::string kSettingsFile = "/tmp/prefix/config/corvane_config.json";
inline const std::string kUpgradeFile = "/tmp/prefix/config/corvane_config.json.rpmnew";
inline const std::string kRegistryFile = "/tmp/prefix/config/disk_mgr.config";
inline const std::string kHistoryFolder = "/tmp/prefix/userconfig_bak";
inline const std::string kCommandSocket = "/tmp/prefix/config/CLI_UDS.unix";
inline const std::string kLogFolder = "/var/log/corvane";
inline const std::string kRootLogFolder = "/var/log/corvane_super"; /**< of the agent, and of commands of root */

struct Finished {
    int exitCode = -1;
    std::string output;
    std::string errors;
};

/** A request that an agent has recorded. */
struct Recorded {
    std::string socket;
    std::string method;
    int id = 0;
    std::string params;
};

std::string ReadText(const std::string &path);
/** How often the file holds the text. */
size_t CountIn(const std::string &path, const std::string &text);
void WriteText(const std::string &path, const std::string &text);
std::string Unformatted(const cJSON *tree);
/** Looks again and again. @return whether it became true within @p seconds. */
bool Eventually(const std::function<bool()> &condition, int seconds = 60);
/** One disk of a scenario. @p more: further members, each with a comma in front. */
std::string DiskText(const std::string &device, const std::string &serial, const std::string &type,
                     const std::string &more = "");
/** A scenario of these disks. */
std::string ScenarioOf(const std::vector<std::string> &disks);
/** The settings as they are built in, with these members set, "section.key" or "key". */
std::string SettingsText(const std::map<std::string, int> &changes = {});

class ServiceTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    void StartSim(const std::string &scenario, const std::vector<std::string> &options = {});
    /**
     * corvaned with the seams of this test.
     * @param errors  A file for its standard error, where a test makes it write much there: it waits for the reader of
     *                a pipe, and this test is none while it waits for anything but its output.
     */
    void StartService(const std::string &errors = "");
    /** Ends it in the regular way. */
    void StopService();
    ServiceSeams &Seams() { return *seams_; }
    ChildProcess &Service() { return *service_; }

    /** Waits for a status that fits. @return false if the service ended or a minute passed. */
    bool WaitForStatus(const std::function<bool(const cJSON *status)> &fits);
    bool WaitForOnline(size_t count);
    /** The state of a disk in the last status. */
    std::string StateOf(const std::string &serial);
    /** Waits for one more status, which shows that the service still goes round. */
    bool GoesOn();

    static void Event(const std::string &event);
    static Finished Ctl(const std::string &words);
    static std::vector<Recorded> Record();
    static size_t RequestCount(const std::string &socket, const std::string &method);
    /** Waits until an agent has had @p more further requests of a method. */
    static bool WaitForRequests(const std::string &socket, const std::string &method, size_t more);
    /** Lines of the service's log that hold the text. */
    static size_t Logged(const std::string &text);
    static bool WaitForLog(const std::string &text, size_t times = 1);
    /** The copies in the history, newest first. */
    static std::vector<std::string> History();
    /** A small file system of its own at this folder, until the test ends. */
    void MountSmall(const std::string &folder, const char *size);
    /** Takes all room in the folder's file system. */
    static void Fill(const std::string &folder);
    static void MakeRoom(const std::string &folder);

    std::unique_ptr<ChildProcess> sim_;
    std::unique_ptr<ChildProcess> service_;

private:
    CJsonPtr LastStatus() const;

    ServiceSeams *seams_ = nullptr;
    std::vector<std::string> mounts_;
    static inline std::string problem_;
};

#endif
