/**
 * @file combined_host.cpp
 * @brief A host process: brings a log of its own, keeps its diagnose library in a prefix, and loads libcorvane.so
 *        beside them.
 *
 * combined_host PREFIX LIBCORVANE tells on standard output what it sees, then waits until its standard input ends.
 */
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

#include "platform/norlog.h"

#define HOST_EXPORT __attribute__((visibility("default")))

extern "C" {

HOST_EXPORT int norlog_set_file_path_ext(const char *path, const char *backupPath)
{
    (void)std::printf("folder %s %s\n", path, backupPath);
    return 0;
}

HOST_EXPORT int norlog_init(void)
{
    (void)std::printf("log started\n");
    return 0;
}

HOST_EXPORT int norlog_set_backup_num(uint32_t count)
{
    (void)std::printf("log keeps %u\n", count);
    return 0;
}

HOST_EXPORT int norlog_destroy(void)
{
    return 0;
}

HOST_EXPORT uint32_t norlog_loglevel_get(uint32_t)
{
    return 7;
}

HOST_EXPORT void norlog(uint32_t module, uint32_t level, const char *, uint32_t, const char *, uint32_t,
                        const char *fmt, ...)
{
    char text[1024];
    va_list args;
    va_start(args, fmt);
    (void)std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    (void)std::printf("log %u %u %s\n", module, level, text);
    (void)std::fflush(stdout);
}
}

namespace {

template <typename Function>
Function *Find(void *library, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(library, name));
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        (void)std::fprintf(stderr, "usage: combined_host PREFIX LIBCORVANE\n");
        return 2;
    }
    const std::string diagnose = std::string(argv[1]) + "/lib/libnordiagnose.so";
    if (dlopen(diagnose.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        (void)std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    void *corvane = dlopen(argv[2], RTLD_NOW | RTLD_GLOBAL);
    if (corvane == nullptr) {
        (void)std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    auto *init = Find<uint32_t(uint32_t)>(corvane, "InitCorvane");
    auto *prefix = Find<char *(void)>(corvane, "GetPrefixPath");
    auto *mode = Find<uint32_t *(void)>(corvane, "GetCorvaneStartMode");
    if (init == nullptr || prefix == nullptr || mode == nullptr) {
        (void)std::fprintf(stderr, "a function of the library is missing\n");
        return 2;
    }
    const uint32_t result = init(0);
    (void)std::printf("mode %u\nprefix %s\nresult %u\n", *mode(), prefix(), result);
    (void)std::fflush(stdout);

    char end = 0;
    (void)!read(STDIN_FILENO, &end, 1);
    (void)std::fflush(stdout);
    _exit(result == 0 ? 0 : 1); // the library's threads are running
}
