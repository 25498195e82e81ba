// A running corvane-sim in a folder of its own, and a client of its sockets.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

struct JsonDelete {
    void operator()(cJSON *node) const noexcept { cJSON_Delete(node); }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

// Far above what anything here takes; a test that gets here has failed.
constexpr int kBoundMs = 30000;

/** Run the program to its end; with an @p output its standard output goes there. */
struct Finished {
    int exitCode = -1; // 128 + signal if it was killed
    std::string out;
    std::string err;
};
Finished RunSim(const std::vector<std::string> &arguments, const std::string &output = "");

class SimTest : public testing::Test {
protected:
    SimTest();
    ~SimTest() override;

    /** Write the scenario, start the program and wait for its "ready". */
    void Start(const std::string &scenario, const std::vector<std::string> &more = {});
    /** Send SIGTERM and wait for the end; gives the exit code. */
    int Stop(int signal = 0);
    /** Wait for an end by itself. */
    int WaitForEnd();
    [[nodiscard]] pid_t Pid() const { return pid_; }
    [[nodiscard]] std::string Folder() const { return folder_; }
    [[nodiscard]] std::string Kernel() const { return folder_ + "/dcak.sock"; }
    [[nodiscard]] std::string Spdk() const { return folder_ + "/spdk.sock"; }
    [[nodiscard]] std::string Err() const;
    std::string WriteFile(const std::string &name, const std::string &text) const;

    /** Connect; -1 with errno set on failure. */
    static int Connect(const std::string &path);
    /** One request, everything that comes until the peer closes. */
    static std::string Ask(const std::string &path, const std::string &request);
    /** One request, one receive of at most 8192 bytes, as the master does it; -errno in @p result on failure. */
    static std::string AskOnce(const std::string &path, const std::string &request, ssize_t *result = nullptr);
    static std::string RequestOf(const std::string &method, const std::string &params = "", int id = 7);
    /** The result of a right answer, with envelope checked; null (and a failure) if there is none. */
    static Json ResultOf(const std::string &path, const std::string &method, const std::string &params = "");
    /** One line over the control socket, its answer. */
    std::string Control(const std::string &line);
    /** The lines of the record, waiting until there are at least @p count. */
    std::vector<Json> Record(size_t count) const;

private:
    std::string folder_;
    pid_t pid_ = -1;
    int stdout_ = -1;
    int control_ = -1;
};

/** Texts of a JSON tree by a short path such as "disks.0.wear"; "" if there is none. Numbers print as %.17g does. */
std::string At(const cJSON *tree, const std::string &path);
uint64_t NumberAt(const cJSON *tree, const std::string &path);
