#include "init/corvane_signal_stash.h"

#include <cerrno>
#include <cstddef>

#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

static_assert(sizeof(SignalHandlerItem) == 168 && offsetof(SignalHandlerItem, signal) == 8 &&
              offsetof(SignalHandlerItem, saved) == 16);

extern "C" {

CORVANE_API SignalHandlerItem *g_signalHandlerStack = nullptr;

CORVANE_API int64_t StashProcessSignalHandler(void) noexcept
{
    for (int32_t number = 1; number <= __libc_current_sigrtmax(); number++) {
        MallocPtr<SignalHandlerItem> item = MallocNew<SignalHandlerItem>();
        if (item == nullptr) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "malloc SignalHandlerItem failed.");
            return ENOMEM;
        }
        item->signal = number;
        if (g_osCalls.sigaction(number, nullptr, &item->saved) != 0) {
            continue; // the C library keeps some numbers to itself
        }
        item->next = g_signalHandlerStack;
        g_signalHandlerStack = item.release();
    }
    return 0;
}

CORVANE_API int64_t StashPopProcessSignalHandler(void) noexcept
{
    while (g_signalHandlerStack != nullptr) {
        const MallocPtr<SignalHandlerItem> item(g_signalHandlerStack);
        g_signalHandlerStack = item->next;
        // SIGKILL and SIGSTOP can be asked about but not set: EINVAL.
        if (g_osCalls.sigaction(item->signal, &item->saved, nullptr) != 0 && errno != EINVAL) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "set signal(%d) sigaction failed(errno:%d).", item->signal,
                                errno);
        }
    }
    return 0;
}

} // extern "C"
