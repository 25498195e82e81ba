/**
 * @file agentd_fixture.h
 * @brief A node with two disks that exist only as files: what lsblk, udevadm, sysfs and procfs say about them.
 *
 * The devices themselves do not exist, so no command reaches one and a health request ends without a result.
 */
#ifndef AGENTD_FIXTURE_H
#define AGENTD_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "infrastructure/common/corvane_raii.h"
#include "support/child_process.h"
#include "support/notify_socket.h"

inline const char *const kSocket = "/tmp/dcak.sock";
inline const char *const kNoDisks = R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})";

/** One connection to the agent. */
class Client {
public:
    Client();
    /** 0, or why the connection was refused. */
    int Error() const { return error_; }
    void Send(const std::string &request) const;
    /** Everything until the agent closes. */
    std::string Receive() const;

private:
    UniqueFd fd_;
    int error_ = 0;
};

class AgentdTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;

    /** "NAME=value" that puts the tools of the test first. */
    static std::string Path();
    /** Puts a shell script in the place of a tool. */
    static void AddTool(const std::string &name, const std::string &body);
    /** Replaces lsblk; it answers in the mode of this version. */
    static void InstallLsblk(const std::string &version);
    /** Replaces the counters of both disks, each number in a fixed width so that a reader sees old or new ones. */
    static void SetCounters(unsigned long sataReads, unsigned long sasWrites);
    static void WriteFile(const std::string &path, const std::string &text);
    static std::string ReadFile(const std::string &path);
    /** One request and its whole answer. */
    static std::string Ask(const std::string &request);
    static std::string AskFor(const std::string &method, const std::string &params = "{}");

private:
    static inline std::string problem_;
};

/** With an agent that serves. */
class ServingAgentdTest : public AgentdTest {
protected:
    void SetUp() override;
    /** Ends the agent, which must still be there and have had nothing to complain about. */
    void TearDown() override;
    ChildProcess &Agent() { return *agent_; }
    /** How many threads the agent has at this moment. */
    long Threads() const;
    /** Waits until the agent has at most this many threads; false if it died or a minute has passed. */
    bool WaitForThreads(long atMost);
    const NotifySocket &Manager() const { return *manager_; }

private:
    std::unique_ptr<NotifySocket> manager_;
    std::unique_ptr<ChildProcess> agent_;
};

#endif
