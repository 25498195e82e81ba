#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>

#include "bounded/bounded.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"
#include "platform/norax.h"
#include "platform/norlog.h"
#include "platform/normm.h"

static_assert(NORAX_SPINLOCK_MAGIC == 0xdead4ead);
// Hosts and tools patch single slots by offset.
static_assert(sizeof(CorvaneInfra) == 288);
static_assert(offsetof(CorvaneInfra, memAlloc) == 0 && offsetof(CorvaneInfra, memFree) == 8);
static_assert(offsetof(CorvaneInfra, threadCreate) == 16 && offsetof(CorvaneInfra, threadYield) == 24 &&
              offsetof(CorvaneInfra, threadSleep) == 32);
static_assert(offsetof(CorvaneInfra, log) == 40);
static_assert(offsetof(CorvaneInfra, semCreate) == 48 && offsetof(CorvaneInfra, semDestroy) == 56 &&
              offsetof(CorvaneInfra, semDown) == 64 && offsetof(CorvaneInfra, semUp) == 72 &&
              offsetof(CorvaneInfra, semTryDown) == 80 && offsetof(CorvaneInfra, semTryDownWithinTimeout) == 88);
static_assert(offsetof(CorvaneInfra, sem2Down) == 96 && offsetof(CorvaneInfra, sem2Up) == 104 &&
              offsetof(CorvaneInfra, sem2TryDown) == 112 && offsetof(CorvaneInfra, sem2TryDownWithinTimeout) == 120);
static_assert(offsetof(CorvaneInfra, atomicCreate) == 128 && offsetof(CorvaneInfra, atomicDestroy) == 136 &&
              offsetof(CorvaneInfra, atomicGet) == 144 && offsetof(CorvaneInfra, atomicSet) == 152 &&
              offsetof(CorvaneInfra, atomicCompareAndSet) == 160 && offsetof(CorvaneInfra, atomicAddAndGet) == 168 &&
              offsetof(CorvaneInfra, atomicIncrementAndGet) == 176 &&
              offsetof(CorvaneInfra, atomicDecrementAndGet) == 184);
static_assert(offsetof(CorvaneInfra, spinlockCreate) == 192 && offsetof(CorvaneInfra, spinlockDestroy) == 200 &&
              offsetof(CorvaneInfra, spinlockLock) == 208 && offsetof(CorvaneInfra, spinlockUnlock) == 216 &&
              offsetof(CorvaneInfra, spinlockTryLock) == 224);
static_assert(offsetof(CorvaneInfra, rwlockCreate) == 232 && offsetof(CorvaneInfra, rwlockDestroy) == 240 &&
              offsetof(CorvaneInfra, rwlockWriteLock) == 248 && offsetof(CorvaneInfra, rwlockTryWriteLock) == 256 &&
              offsetof(CorvaneInfra, rwlockReadLock) == 264 && offsetof(CorvaneInfra, rwlockTryReadLock) == 272 &&
              offsetof(CorvaneInfra, rwlockUnlock) == 280);

namespace {

/** The library's number in the host's log and heap. */
constexpr uint32_t kHostModule = 999;
constexpr size_t kMessageSize = 511;
constexpr size_t kDebugMessageSize = 8192;
constexpr size_t kPieceLength = 300; // longer lines are cut by the host's debug viewer

/** Where a log statement stands; every line of it names this place. */
struct Place {
    const char *file;
    uint32_t line;
    const char *func;
};

void LogInPieces(uint32_t level, const char *module, const Place &place, const char *message) noexcept
{
    const size_t length = std::strlen(message);
    for (size_t offset = 0; offset < length; offset += kPieceLength) {
        std::array<char, kPieceLength + 1> piece{};
        const size_t count = std::min(kPieceLength, length - offset);
        if (strncpy_s(piece.data(), piece.size(), message + offset, count) != 0) {
            norlog(kHostModule, CORVANE_LOG_ERROR, place.file, place.line, place.func, 0, "strncpy_s fail!");
            return;
        }
        piece[count] = '\0';
        norlog(kHostModule, level, place.file, place.line, place.func, 0, "[%s]%s", module, piece.data());
    }
}

} // namespace

extern "C" {

CORVANE_API CorvaneInfra g_corvaneInfra = {};
CORVANE_API uint32_t g_infraLogLevel = CORVANE_LOG_DEBUG;
CORVANE_API bool g_debugLogSwitch = false;

CORVANE_API void CorvaneInfraLog(uint32_t level, const char *module, const char *file, uint32_t line, const char *func,
                                 const char *fmt, ...) noexcept
{
    if (level > g_infraLogLevel) {
        return;
    }
    const bool debug = std::atomic_ref<bool>(g_debugLogSwitch).load(std::memory_order_relaxed);
    const size_t size = debug ? kDebugMessageSize : kMessageSize;
    const MallocPtr<char> message(static_cast<char *>(g_osCalls.malloc(size)));
    if (message == nullptr) {
        norlog(kHostModule, CORVANE_LOG_ERROR, file, line, func, 0, "buf malloc fail!");
        return;
    }

    va_list args;
    va_start(args, fmt);
    const int result = vsnprintf_s(message.get(), size, size - 1, fmt, args);
    va_end(args);
    if (result < 0) {
        norlog(kHostModule, CORVANE_LOG_ERROR, file, line, func, 0, "vsnprintf_s fail. ret:%d", result);
        return;
    }

    if (debug) {
        LogInPieces(level, module, {file, line, func}, message.get());
    } else {
        norlog(kHostModule, level, file, line, func, 0, "[%s]%s", module, message.get());
    }
}

CORVANE_API uint32_t CorvaneInfraRegisterInfraAdapter(void) noexcept
{
    CorvaneOsFillTable(CorvaneInfraLog);
    const uint32_t level = norlog_loglevel_get(kHostModule);
    if (g_infraLogLevel != level) { // at a second start others are reading it
        g_infraLogLevel = level;
    }
    return 0;
}

CORVANE_API void *CorvaneInfraMalloc(uint64_t size) noexcept
{
    return normm_malloc(size, kHostModule, "CorvaneInfraMalloc");
}

CORVANE_API void CorvaneInfraFree(void *ptr) noexcept
{
    if (ptr != nullptr) {
        normm_free(ptr, kHostModule, "CorvaneInfraFree");
    }
}

CORVANE_API void *CorvaneInfraSpinlockCreate(void) noexcept
{
    InfraPtr<NoraxSpinlock> lock = InfraNew<NoraxSpinlock>();
    if (lock == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "adapter_infra", "failed to malloc spinlock");
        return nullptr;
    }
    lock->lock = 0;
    lock->magic = NORAX_SPINLOCK_MAGIC;
    lock->ownerThread = -1;
    lock->ownerLine = -1;
    return lock.release();
}

CORVANE_API void CorvaneInfraSpinlockDestroy(void *lock) noexcept
{
    if (lock != nullptr) {
        g_corvaneInfra.memFree(lock);
    }
}

CORVANE_API void CorvaneInfraSpinlockLock(void *lock) noexcept
{
    if (lock != nullptr) {
        do_norax_spinlock_lock(lock, __func__, __LINE__);
    }
}

CORVANE_API void CorvaneInfraSpinlockUnlock(void *lock) noexcept
{
    if (lock != nullptr) {
        do_norax_spinlock_unlock(lock, __func__, __LINE__);
    }
}

CORVANE_API bool CorvaneInfraSpinlockTryLock(void *lock) noexcept
{
    return lock != nullptr && do_norax_tspinlock_trylock(lock, __func__, __LINE__) != 0;
}

} // extern "C"
