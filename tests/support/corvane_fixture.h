/**
 * @file corvane_fixture.h
 * @brief What most tests stand on: a temporary prefix, a fresh adapter table, captured log lines, and globals that
 *        are restored afterwards.
 */
#ifndef CORVANE_FIXTURE_H
#define CORVANE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_infra.h"

/** One captured log line. */
struct LogLine {
    uint32_t level;
    std::string module;
    std::string text;
};

class CorvaneTest : public ::testing::Test {
protected:
    CorvaneTest();
    ~CorvaneTest() override;

    /** The temporary prefix folder, with an empty "config" below it; SetPrefixPath has been called with it. */
    const std::string &Prefix() const { return prefix_; }
    /** Every line logged so far, from any thread. */
    static std::vector<LogLine> Logs();
    static void ClearLogs();
    /** How many lines have this level, module and exact text. */
    static size_t LogCount(uint32_t level, const std::string &module, const std::string &text);
    static bool Logged(uint32_t level, const std::string &module, const std::string &text)
    {
        return LogCount(level, module, text) > 0;
    }
    static std::string ReadFile(const std::string &path);
    static void WriteFile(const std::string &path, const std::string &text);

private:
    std::string prefix_;
    char *savedPrefix_;
    CorvaneInfra savedInfra_;
    OsCalls savedOsCalls_;
    OsPaths savedOsPaths_;
};

#endif
