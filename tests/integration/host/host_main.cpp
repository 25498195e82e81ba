/**
 * @file host_main.cpp
 * @brief Runs each test in a process of its own, which has its own mounts: the library starts once per process, and
 *        its socket paths are fixed.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "mount_namespace.h"

extern "C" void __lsan_do_leak_check() __attribute__((weak));

namespace {

std::vector<std::string> SelectedTests()
{
    // gtest has no public view of the filter's outcome before a run: ask a listing of itself.
    std::vector<std::string> names;
    FILE *list = popen(("/proc/" + std::to_string(getpid()) + "/exe --gtest_list_tests --gtest_filter='" +
                        GTEST_FLAG_GET(filter) + "'")
                           .c_str(),
                       "r");
    if (list == nullptr) {
        return names;
    }
    char line[512];
    std::string suite;
    while (std::fgets(line, sizeof(line), list) != nullptr) {
        std::string text = line;
        text.erase(text.find_first_of("#\n"));
        text.erase(text.find_last_not_of(' ') + 1);
        if (text.rfind("  ", 0) == 0) {
            names.push_back(suite + text.substr(2));
        } else {
            suite = text;
        }
    }
    (void)pclose(list);
    return names;
}

int RunEachAlone(const std::vector<std::string> &names)
{
    std::vector<std::string> failed;
    for (const std::string &name : names) {
        const pid_t child = fork();
        if (child == 0) {
            const std::string filter = "--gtest_filter=" + name;
            (void)execl("/proc/self/exe", "integration_host", filter.c_str(), "--gtest_brief=1", nullptr);
            _exit(127);
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        if (status != 0) {
            failed.push_back(name);
            (void)std::printf("FAILED %s (status %d)\n", name.c_str(), status);
        }
    }
    (void)std::printf("%zu tests, %zu failed\n", names.size(), failed.size());
    for (const std::string &name : failed) {
        (void)std::printf("  %s\n", name.c_str());
    }
    return failed.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    const std::vector<std::string> names = SelectedTests();
    if (names.size() > 1) {
        return RunEachAlone(names);
    }
    const std::string problem = EnterPrivateMounts(CORVANE_BUILD_DIR);
    if (!problem.empty()) {
        (void)std::fprintf(stderr, "%s\n", problem.c_str());
        return 1;
    }
    const int result = RUN_ALL_TESTS();
    (void)std::fflush(stdout);
    (void)std::fflush(stderr);
    if (__lsan_do_leak_check != nullptr) {
        __lsan_do_leak_check();
    }
    _exit(result); // the library's threads are running
}
