#include "verdicts_seams.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/norax.h"
#include "platform/normm.h"

#define SEAM __attribute__((visibility("default")))

namespace {

constexpr long kIdleNs = 1000000;
constexpr long kRunNs = 20000; // a day has 40000 ticks that start something

VerdictsSeams *g_seams = nullptr;
/** Work items of the analysis that are queued or run. */
std::atomic<int64_t> g_runs{0};

/** The timer of the ticks. Set by the start, before the thread that reads it. */
const NoraxTimer *g_tickTimer = nullptr;
NoraxTimerProc g_tick = nullptr;
void *g_tickContext = nullptr;

__attribute__((constructor)) void MapSeams()
{
    const char *path = std::getenv(kVerdictsSeamsVariable);
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    void *page = fd >= 0 ? mmap(nullptr, sizeof(VerdictsSeams), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    if (page == MAP_FAILED) {
        std::abort();
    }
    (void)close(fd);
    g_seams = static_cast<VerdictsSeams *>(page);
}

/** The function of the platform library that stands behind the one of this file. */
template <typename Function>
Function *Real(Function *, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

void Pause(long nanoseconds)
{
    const struct timespec pause = {0, nanoseconds};
    (void)nanosleep(&pause, nullptr);
}

/** A tick comes when the one before has had its effect, however long that takes: none is merged with another. */
void *GiveTicks(void *)
{
    for (;;) {
        while (g_seams->given == g_seams->wanted) {
            Pause(kIdleNs);
        }
        g_tick(g_tickContext);
        while (g_runs != 0) {
            Pause(kRunNs);
        }
        g_seams->given++;
    }
}

} // namespace

// These stand before those of the platform libraries, for the whole process.
extern "C" {

SEAM int norax_timer_set_raw(NoraxTimer *timer, uint32_t cycleMs, void *context, NoraxTimerProc procedure,
                             const char *name, const char *file, uint32_t line) noexcept
{
    if (g_tickTimer == nullptr && std::strcmp(name, "(DrmTimerProc)") == 0) {
        g_tickTimer = timer;
        g_tick = procedure;
        g_tickContext = context;
        g_seams->periodMs = cycleMs;
    }
    return Real(norax_timer_set_raw, "norax_timer_set_raw")(timer, cycleMs, context, procedure, name, file, line);
}

SEAM int norax_timer_add(NoraxTimer *timer) noexcept
{
    if (timer != g_tickTimer) {
        return Real(norax_timer_add, "norax_timer_add")(timer);
    }
    pthread_t thread = {};
    return pthread_create(&thread, nullptr, GiveTicks, nullptr);
}

SEAM int norax_timer_modify(NoraxTimer *timer, uint32_t cycleMs) noexcept
{
    if (timer != g_tickTimer) {
        return Real(norax_timer_modify, "norax_timer_modify")(timer, cycleMs);
    }
    g_seams->periodMs = cycleMs;
    return 0;
}

SEAM uint32_t allocStructure(uint32_t pid, uint32_t poolId, void **item, const char *function, uint32_t line) noexcept
{
    const uint32_t result = Real(allocStructure, "allocStructure")(pid, poolId, item, function, line);
    if (result == 0 && std::strcmp(function, "DrmTriggerSeperateSchedAnalysis") == 0) {
        g_runs++;
    }
    return result;
}

SEAM uint32_t freeStructure(void *item, uint32_t poolId, uint32_t pid, const char *function, uint32_t line) noexcept
{
    const uint32_t result = Real(freeStructure, "freeStructure")(item, poolId, pid, function, line);
    if (std::strcmp(function, "DrmSeperateSchedAnalysis") == 0) {
        g_runs--;
    }
    return result;
}

} // extern "C"
