#include "service_seams.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

extern "C" uint32_t g_masterToAgentSyncInterval;

#define SEAM __attribute__((visibility("default")))

namespace {

constexpr time_t kLongSleep = 100;
ServiceSeams *g_seams = nullptr;

__attribute__((constructor)) void MapSeams()
{
    const char *path = std::getenv(kSeamsVariable);
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    void *page = fd >= 0 ? mmap(nullptr, sizeof(ServiceSeams), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    if (page == MAP_FAILED) {
        std::abort();
    }
    (void)close(fd);
    g_seams = static_cast<ServiceSeams *>(page);
    g_masterToAgentSyncInterval = g_seams->syncInterval.load();
}

} // namespace

// These stand before those of the C library, for the whole process.
extern "C" {

SEAM int clock_gettime(clockid_t clock, struct timespec *out) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, out);
    if (result == 0 && g_seams != nullptr && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        out->tv_sec += g_seams->clockOffset.load();
    }
    return static_cast<int>(result);
}

SEAM time_t time(time_t *out) noexcept
{
    struct timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    if (out != nullptr) {
        *out = now.tv_sec;
    }
    return now.tv_sec;
}

SEAM int gettimeofday(struct timeval *now, void *) noexcept
{
    struct timespec instant = {};
    (void)clock_gettime(CLOCK_REALTIME, &instant);
    *now = {instant.tv_sec, instant.tv_nsec / 1000};
    return 0;
}

SEAM int nanosleep(const struct timespec *span, struct timespec *left)
{
    struct timespec asked = *span;
    const uint32_t longSleepMs = g_seams != nullptr ? g_seams->longSleepMs.load() : 0;
    if (asked.tv_sec >= kLongSleep && longSleepMs != 0) {
        asked = {longSleepMs / 1000, static_cast<long>(longSleepMs % 1000) * 1000000L};
    }
    return static_cast<int>(syscall(SYS_nanosleep, &asked, left));
}

SEAM int setsockopt(int fd, int level, int name, const void *value, socklen_t length) noexcept
{
    const uint32_t timeoutMs = g_seams != nullptr ? g_seams->receiveTimeoutMs.load() : 0;
    struct timeval shorter = {timeoutMs / 1000, static_cast<long>(timeoutMs % 1000) * 1000L};
    if (level == SOL_SOCKET && name == SO_RCVTIMEO && length == sizeof(shorter) && timeoutMs != 0) {
        value = &shorter;
    }
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, length));
}

} // extern "C"
