/**
 * @file ctl_fixture.h
 * @brief Runs of the client: against a scripted server in a folder of the test's own, or on a node with a fleet.
 */
#ifndef CTL_FIXTURE_H
#define CTL_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"
#include "scripted_server.h"
#include "support/child_process.h"

struct Finished {
    int exitCode = -1;
    std::string out;
    std::string err;
};

/** Runs a program to its end. */
Finished RunToEnd(const std::vector<std::string> &arguments);
std::string ReadAll(const std::string &path);
/** JSON text without its blanks, numbers as they stand. @return the text itself if it is no JSON. */
std::string Compact(const std::string &json);
/** How often a text holds another. */
size_t CountOf(const std::string &text, const std::string &part);
/** Without what a terminal adds at the end of a line. */
std::string OnScreen(std::string text);
/** Only what is shown, not how. */
std::string WithoutEscapes(const std::string &text);

class CtlTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] std::string Socket() const { return folder_ + "/config/CLI_UDS.unix"; }
    /** What stands in front of a command. */
    [[nodiscard]] std::vector<std::string> Client(const std::vector<std::string> &words) const;
    [[nodiscard]] Finished Ctl(const std::vector<std::string> &words) const { return RunToEnd(Client(words)); }
    void Serve(ScriptedServer::Script script)
    {
        server_ = std::make_unique<ScriptedServer>(Socket(), std::move(script));
    }
    void Serve(const Reply &reply)
    {
        Serve([reply](const std::string &) { return reply; });
    }
    /** Answers from a table; what is not in it does not exist. */
    void Serve(const std::map<std::string, std::string> &answers);

    std::string folder_; ///< the prefix
    std::unique_ptr<ScriptedServer> server_;
};

/** Texts of the server about five disks, one of each kind that tables treat differently. */
std::map<std::string, std::string> FiveDisks();

/** Short cycles, so that verdicts come soon. */
struct NodeSettings {
    uint32_t lifeCycle = 5;    ///< seconds
    uint32_t prefailCycle = 5; ///< seconds, of every type
    uint32_t thresholdMs = 1;  ///< of solid-state disks; 100 of hard disks
    uint32_t minSlowCycle = 10;
};

/**
 * A node of the test's own: an installation below /tmp/opt, the accounts, a member of corvane_group called "reader" and
 * a stranger called "nobody", and if asked for corvane-sim and corvaned.
 */
class NodeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    /** @param user Who runs agents and service: "root" or "corvane_user". */
    void StartFleet(const std::string &user = "root", const std::vector<std::string> &options = {});
    /** The service alone. */
    void StartService(const std::string &user = "root", const std::vector<std::string> &options = {});
    /** For the next start of the service. */
    static void WriteSettings(const NodeSettings &settings);
    /** Waits until the newest status that the service has printed fits. */
    void WaitForStatus(const ::testing::Matcher<std::string> &fits);
    /** Until so many disks have I/O statistics, and so many a predicted life. */
    void WaitForRecords(size_t disks, size_t lives);
    /** Something happens to a simulated disk. */
    static void Event(const std::string &event);
    static std::vector<std::string> As(const std::string &user, std::vector<std::string> arguments);
    static Finished Ctl(const std::vector<std::string> &words, const std::string &user = "root");
    /** Runs the client until its output fits. */
    static Finished CtlUntil(const std::vector<std::string> &words, const ::testing::Matcher<std::string> &fits);

    static inline const std::string kClient = "/tmp/opt/bin/corvanectl";
    static inline const std::string kSocket = "/tmp/opt/config/CLI_UDS.unix";

    std::unique_ptr<ChildProcess> sim_;
    std::unique_ptr<ChildProcess> corvaned_;

private:
    static inline std::string problem_;
    static inline std::string scenario_;
    static inline std::string catalogue_;
};

#endif
