#include "config/corvane_prefix_path.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <sys/types.h>

#include "bounded/bounded.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr uint32_t kFailed = 1;
constexpr size_t kPathSize = 4096;

/** A host keeps this library of its own in the folder "lib" of the prefix. */
constexpr const char *kDiagnoseLibrary = "libnordiagnose.so";

char g_builtInPrefix[] = "/opt/corvane";

/** A prefix that was replaced. Readers may hold it for good, so it is kept, and kept reachable. */
struct FormerPrefix {
    FormerPrefix *next;
    char *path;
};
FormerPrefix *g_formerPrefixes = nullptr;

void Say(const char *message) noexcept
{
    (void)std::fputs(message, stdout);
    (void)std::fflush(stdout);
}

/** A file of the kernel's process folder, below the root that tests choose. */
bool ProcPath(std::array<char, kPathSize> &path, const char *name) noexcept
{
    return snprintf_s(path.data(), path.size(), path.size() - 1, "%s%s", g_osPaths.proc, name) >= 0;
}

uint32_t SetPrefixOfFile(char *path) noexcept
{
    CutLastPathComponent(path);
    CutLastPathComponent(path);
    if (SetPrefixPath(path) != 0) {
        Say("[DISK_CONFIG_PREFIX] ERROR : set prefix path failed.\n");
        return kFailed;
    }
    return 0;
}

} // namespace

extern "C" {

CORVANE_API char *g_prefixPath = g_builtInPrefix;

CORVANE_API char *GetPrefixPath(void) noexcept
{
    return g_prefixPath;
}

CORVANE_API void CutLastPathComponent(char *path) noexcept
{
    if (path == nullptr) {
        return;
    }
    char *slash = std::strrchr(path, '/');
    if (slash != nullptr) {
        *slash = '\0';
    }
}

CORVANE_API uint32_t SetPrefixPath(const char *path) noexcept
{
    if (path == nullptr) {
        return kFailed;
    }
    const size_t size = std::strlen(path) + 1;
    MallocPtr<char> copy(static_cast<char *>(g_osCalls.malloc(size)));
    if (copy == nullptr) {
        Say("[DISK_CONFIG_PREFIX] ERROR : malloc failed.\n");
        return kFailed;
    }
    if (strcpy_s(copy.get(), size, path) != 0) {
        (void)std::printf("[DISK_CONFIG_PREFIX] ERROR : concatenate prefix:%s with config failed.\n", path);
        (void)std::fflush(stdout);
        return kFailed;
    }
    if (g_prefixPath != nullptr && std::strcmp(g_prefixPath, path) == 0) {
        return 0; // at a second start others are reading it
    }
    if (g_prefixPath != g_builtInPrefix) {
        auto *former = static_cast<FormerPrefix *>(g_osCalls.malloc(sizeof(FormerPrefix)));
        if (former == nullptr) {
            Say("[DISK_CONFIG_PREFIX] ERROR : malloc failed.\n");
            return kFailed;
        }
        *former = {g_formerPrefixes, g_prefixPath};
        g_formerPrefixes = former;
    }
    g_prefixPath = copy.release();
    return 0;
}

CORVANE_API uint32_t InitCorvanePrefixPathComb(void) noexcept
{
    std::array<char, kPathSize> mapsPath{};
    FilePtr maps(ProcPath(mapsPath, "/proc/self/maps") ? g_osCalls.fopen(mapsPath.data(), "r") : nullptr);
    if (maps == nullptr) {
        Say("[DISK_CONFIG_PREFIX] ERROR : open process maps infomation failed.\n");
        return kFailed;
    }

    char *buffer = nullptr;
    size_t capacity = 0;
    bool found = false;
    while (!found && getline(&buffer, &capacity, maps.get()) > 0) {
        found = std::strstr(buffer, kDiagnoseLibrary) != nullptr;
    }
    const MallocPtr<char> line(buffer);
    if (!found) {
        Say("[DISK_CONFIG_PREFIX] ERROR : find libcorvane.so from /proc/self/maps failed.\n");
        return kFailed;
    }

    char *blank = std::strrchr(line.get(), ' ');
    if (blank == nullptr) {
        Say("[DISK_CONFIG_PREFIX] ERROR : resolve prefix from /proc/self/maps failed.\n");
        return kFailed;
    }
    char *path = blank + 1;
    const size_t pathLength = std::strlen(path);
    if (pathLength > 0) {
        path[pathLength - 1] = '\0'; // the newline
    }
    return SetPrefixOfFile(path);
}

CORVANE_API uint32_t InitCorvanePrefixPathInd(void) noexcept
{
    std::array<char, kPathSize> linkPath{};
    std::array<char, kPathSize> target{};
    const ssize_t length =
        ProcPath(linkPath, "/proc/self/exe") ? g_osCalls.readlink(linkPath.data(), target.data(), target.size()) : -1;
    if (length < 0) {
        (void)std::printf("[DISK_CONFIG_PREFIX] ERROR : readlink fail, ret(%ld)\n", static_cast<long>(length));
        (void)std::fflush(stdout);
        return kFailed;
    }
    if (static_cast<size_t>(length) >= target.size()) {
        (void)std::printf("[DISK_CONFIG_PREFIX] ERROR : truncation occurred, corvane exe file path is great than %d\n",
                          static_cast<int>(target.size()));
        (void)std::fflush(stdout);
        return kFailed;
    }
    target[static_cast<size_t>(length)] = '\0';

    const MallocPtr<char> real(realpath(target.data(), nullptr));
    if (real == nullptr) {
        Say("[DISK_CONFIG_PREFIX] ERROR : get real executable file path failed.\n");
        return kFailed;
    }
    return SetPrefixOfFile(real.get());
}

} // extern "C"
