/**
 * @file logfile_fixture.h
 * @brief A private /tmp and /var/log, and what the tests of both kinds ask of files.
 */
#ifndef LOGFILE_FIXTURE_H
#define LOGFILE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "support/child_process.h"
#include "support/mount_namespace.h"

class LogfileTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // The script is run from the source tree, which may lie below a folder that is covered.
        static const std::string problem = EnterPrivateMounts(SOURCE_DIR);
        problem_ = problem;
    }
    void SetUp() override
    {
        ASSERT_EQ(problem_, "");
        std::filesystem::remove_all(kBase);
        std::filesystem::create_directories(kFolder);
    }

    static void Write(const std::string &path, const std::string &text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string Read(const std::string &path)
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    static std::string Unpacked(const std::string &path)
    {
        ChildProcess gzip({"/bin/gzip", "-dc", path});
        EXPECT_EQ(gzip.WaitForExit(), 0) << gzip.Errors();
        return gzip.Output();
    }
    static struct stat StatusOf(const std::string &path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status;
    }
    /** The names in a folder, sorted. */
    static std::vector<std::string> NamesIn(const std::string &folder)
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static inline const std::string kBase = "/tmp/logfile";
    static inline const std::string kFolder = "/tmp/logfile/bak";

private:
    static inline std::string problem_;
};

#endif
