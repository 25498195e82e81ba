/**
 * @file nordiag_fixture.h
 * @brief A diagnosed host, and runs of the client against it, in a folder of the test's own.
 */
#ifndef NORDIAG_FIXTURE_H
#define NORDIAG_FIXTURE_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/child_process.h"

struct Finished {
    int exitCode = -1;
    std::string out;
    std::string err;
};

class NordiagTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/nordiag-test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
        (void)setenv("NORDIAG_DIR", Sockets().c_str(), 1);
        (void)setenv("XDG_STATE_HOME", State().c_str(), 1);
        (void)setenv("HOME", folder_.c_str(), 1); // no settings of the line editor but ours
    }
    void TearDown() override
    {
        host_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    [[nodiscard]] std::string Sockets() const { return folder_ + "/sockets"; }
    [[nodiscard]] std::string State() const { return folder_ + "/state"; }
    [[nodiscard]] std::string HistoryFile() const { return State() + "/nordiag/history"; }
    void StartHost(const std::vector<std::string> &names = {"storage"})
    {
        std::vector<std::string> arguments = {HOST_PATH};
        arguments.insert(arguments.end(), names.begin(), names.end());
        host_ = std::make_unique<ChildProcess>(arguments);
        ASSERT_TRUE(host_->WaitForOutput("serving\n")) << host_->Errors();
    }
    [[nodiscard]] std::string HostNumber() const { return std::to_string(host_->Pid()); }
    static Finished Nordiag(const std::vector<std::string> &words)
    {
        std::vector<std::string> arguments = {NORDIAG_PATH};
        arguments.insert(arguments.end(), words.begin(), words.end());
        ChildProcess client(arguments);
        client.CloseInput();
        Finished run;
        run.exitCode = client.WaitForExit();
        run.out = client.Output();
        run.err = client.Errors();
        return run;
    }
    /** Runs a line of sh(1). */
    static Finished Sh(const std::string &line)
    {
        ChildProcess shell({"/bin/sh", "-c", line});
        Finished run;
        run.exitCode = shell.WaitForExit();
        run.out = shell.Output();
        run.err = shell.Errors();
        return run;
    }
    /** @return what bash offers for the word @p at of the line, between blanks. */
    static std::string BashCompletion(const std::string &words, int at)
    {
        const std::string program = std::filesystem::path(NORDIAG_PATH).parent_path();
        return Sh("bash -c 'PATH=" + program + ":$PATH; source " NORDIAG_COMPLETION "; COMP_WORDS=(" + words +
                  "); COMP_CWORD=" + std::to_string(at) + "; _nordiag; echo ${COMPREPLY[*]}'")
            .out;
    }
    static std::string ReadAll(const std::string &path)
    {
        std::ifstream stream(path);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    std::string folder_;
    std::unique_ptr<ChildProcess> host_;
};

#endif
