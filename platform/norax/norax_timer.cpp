// Timers live in records of this file; a caller's NoraxTimer only names one. So nothing of the caller's memory is read
// once a timer has been destroyed, even by its own procedure.

#include "mutex_guard.h"
#include "norax_timer_thread.h"
#include "platform/norax.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <new>
#include <pthread.h>

namespace {

struct Record {
    Record *next;
    uint64_t number; ///< never used twice, so that a name kept too long is noticed
    NoraxTimerProc procedure;
    void *context;
    uint32_t cycleMs;
    uint64_t dueMs; ///< on the monotonic clock; valid while armed
    bool armed;
    bool running;
    pthread_t runner; ///< valid while it runs
    bool destroyed;   ///< while it runs: to be freed by the timer thread
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_changed;  ///< wakes the timer thread: an earlier expiry, or the end
pthread_cond_t g_returned; ///< wakes those who wait for a procedure
bool g_conditionsReady = false;
Record *g_records = nullptr; ///< all timers; there are at most some dozens, and a walk is cheap
uint64_t g_lastNumber = 0;
pthread_t g_thread;
bool g_started = false;
uint64_t g_generation = 0; ///< of the thread; a thread that finds another number ends

uint64_t NowMs() noexcept
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void ArmLocked(Record &record, uint32_t cycleMs) noexcept
{
    record.cycleMs = cycleMs;
    // One more millisecond: the clock has been rounded down, and a timer must not fire early.
    record.dueMs = NowMs() + cycleMs + (cycleMs != 0 ? 1 : 0);
    record.armed = true;
    (void)pthread_cond_signal(&g_changed);
}

Record *FindLocked(const NoraxTimer *timer) noexcept
{
    if (timer == nullptr) {
        return nullptr;
    }
    for (Record *record = g_records; record != nullptr; record = record->next) {
        if (record == timer->record && record->number == timer->number) {
            return record->destroyed ? nullptr : record;
        }
    }
    return nullptr;
}

void UnlinkAndFreeLocked(Record *record) noexcept
{
    Record **link = &g_records;
    while (*link != record) {
        link = &(*link)->next;
    }
    *link = record->next;
    delete record;
}

Record *EarliestLocked() noexcept
{
    Record *earliest = nullptr;
    for (Record *record = g_records; record != nullptr; record = record->next) {
        // "<=": new records stand in front, so of two with one time the older is called first.
        if (record->armed && (earliest == nullptr || record->dueMs <= earliest->dueMs)) {
            earliest = record;
        }
    }
    return earliest;
}

void WaitLocked(const Record *earliest) noexcept
{
    if (earliest == nullptr) {
        (void)pthread_cond_wait(&g_changed, &g_lock);
        return;
    }
    timespec until{};
    until.tv_sec = static_cast<time_t>(earliest->dueMs / 1000);
    until.tv_nsec = static_cast<long>(earliest->dueMs % 1000) * 1000000;
    (void)pthread_cond_timedwait(&g_changed, &g_lock, &until);
}

void RunLocked(Record *record) noexcept
{
    record->armed = false;
    record->running = true;
    record->runner = pthread_self();
    const NoraxTimerProc procedure = record->procedure;
    void *context = record->context;
    (void)pthread_mutex_unlock(&g_lock);
    procedure(context);
    (void)pthread_mutex_lock(&g_lock);
    // The record itself is freed by nobody else while it runs.
    record->running = false;
    if (record->destroyed) {
        UnlinkAndFreeLocked(record);
    }
    (void)pthread_cond_broadcast(&g_returned);
}

void *TimerThread(void *argument)
{
    const auto generation = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(argument));
    const MutexGuard guard(g_lock);
    while (g_started && g_generation == generation) {
        Record *earliest = EarliestLocked();
        if (earliest != nullptr && earliest->dueMs <= NowMs()) {
            RunLocked(earliest);
        } else {
            WaitLocked(earliest);
        }
    }
    return nullptr;
}

/** Once per process. The clock of a condition variable can only be chosen when it is made. */
int MakeConditionsLocked() noexcept
{
    if (g_conditionsReady) {
        return 0;
    }
    pthread_condattr_t attributes;
    int status = pthread_condattr_init(&attributes);
    if (status != 0) {
        return status;
    }
    (void)pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    status = pthread_cond_init(&g_changed, &attributes);
    if (status == 0) {
        status = pthread_cond_init(&g_returned, &attributes);
    }
    (void)pthread_condattr_destroy(&attributes);
    g_conditionsReady = status == 0;
    return status;
}

} // namespace

int TimerThreadStart() noexcept
{
    const MutexGuard guard(g_lock);
    int status = MakeConditionsLocked();
    if (status != 0) {
        return status;
    }
    g_generation++;
    g_started = true;
    // The host's signals are not for this thread.
    sigset_t all;
    sigset_t former;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &former);
    status =
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a number for the thread, nothing is pointed to
        pthread_create(&g_thread, nullptr, TimerThread, reinterpret_cast<void *>(static_cast<uintptr_t>(g_generation)));
    (void)pthread_sigmask(SIG_SETMASK, &former, nullptr);
    if (status == 0) {
        (void)pthread_setname_np(g_thread, "norax-timer");
    }
    g_started = status == 0;
    return status;
}

void TimerThreadStop() noexcept
{
    pthread_t thread{};
    {
        const MutexGuard guard(g_lock);
        g_started = false;
        thread = g_thread;
        (void)pthread_cond_broadcast(&g_changed);
    }
    if (pthread_equal(thread, pthread_self()) != 0) {
        (void)pthread_detach(thread);
    } else {
        (void)pthread_join(thread, nullptr);
    }
    const MutexGuard guard(g_lock);
    Record *record = g_records;
    while (record != nullptr) {
        Record *next = record->next;
        // Running means that this is its procedure: the thread still has the record in hand and frees it.
        if (record->running) {
            record->destroyed = true;
            record->armed = false;
        } else {
            UnlinkAndFreeLocked(record);
        }
        record = next;
    }
}

#define NORAX_API __attribute__((visibility("default")))

extern "C" {

NORAX_API int norax_timer_set_raw(NoraxTimer *timer, uint32_t cycleMs, void *context, NoraxTimerProc procedure,
                                  const char *, const char *, uint32_t) noexcept
{
    if (timer == nullptr || procedure == nullptr) {
        return EINVAL;
    }
    auto *record = new (std::nothrow) Record{};
    if (record == nullptr) {
        return ENOMEM;
    }
    record->procedure = procedure;
    record->context = context;
    record->cycleMs = cycleMs;

    const MutexGuard guard(g_lock);
    if (!g_started) {
        delete record;
        return ESRCH;
    }
    record->number = ++g_lastNumber;
    record->next = g_records;
    g_records = record;
    timer->record = record;
    timer->number = record->number;
    return 0;
}

NORAX_API int norax_timer_add(NoraxTimer *timer) noexcept
{
    const MutexGuard guard(g_lock);
    Record *record = FindLocked(timer);
    if (record == nullptr) {
        return ENOENT;
    }
    if (record->armed) {
        return EBUSY;
    }
    ArmLocked(*record, record->cycleMs);
    return 0;
}

NORAX_API int norax_timer_modify(NoraxTimer *timer, uint32_t cycleMs) noexcept
{
    const MutexGuard guard(g_lock);
    Record *record = FindLocked(timer);
    if (record == nullptr) {
        return ENOENT;
    }
    ArmLocked(*record, cycleMs);
    return 0;
}

NORAX_API int norax_timer_destroy(NoraxTimer *timer) noexcept
{
    const MutexGuard guard(g_lock);
    Record *record = FindLocked(timer);
    if (record == nullptr) {
        return ENOENT;
    }
    if (!record->running) {
        UnlinkAndFreeLocked(record);
        return 0;
    }
    record->armed = false;
    record->destroyed = true;
    if (pthread_equal(record->runner, pthread_self()) != 0) {
        return 0;
    }
    // The record is freed by the timer thread; its number cannot come back, so the walk below is safe.
    const Record *awaited = record;
    const uint64_t number = record->number;
    for (;;) {
        bool alive = false;
        for (const Record *other = g_records; other != nullptr; other = other->next) {
            alive = alive || (other == awaited && other->number == number);
        }
        if (!alive) {
            return 0;
        }
        (void)pthread_cond_wait(&g_returned, &g_lock);
    }
}

} // extern "C"
