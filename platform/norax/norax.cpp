#include "platform/norax.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <pthread.h>

#include "norax_timer_thread.h"

namespace {

pthread_mutex_t g_startLock = PTHREAD_MUTEX_INITIALIZER;
uint32_t g_starts = 0;

} // namespace

#define NORAX_API __attribute__((visibility("default")))

extern "C" {

NORAX_API int norax_Init(void) noexcept
{
    (void)pthread_mutex_lock(&g_startLock);
    const int status = g_starts == 0 ? TimerThreadStart() : 0;
    g_starts += status == 0 ? 1 : 0;
    (void)pthread_mutex_unlock(&g_startLock);
    return status;
}

NORAX_API void norax_destory(void) noexcept
{
    (void)pthread_mutex_lock(&g_startLock);
    if (g_starts != 0 && --g_starts == 0) {
        TimerThreadStop();
    }
    (void)pthread_mutex_unlock(&g_startLock);
}

NORAX_API uint64_t norax_get_jiffies(void) noexcept
{
    constexpr uint64_t kNanosecondsPerJiffy = 1000000000 / NORAX_HZ;
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * NORAX_HZ + static_cast<uint64_t>(now.tv_nsec) / kNanosecondsPerJiffy;
}

NORAX_API int norax_str_tou64(const char *text, uint64_t *value) noexcept
{
    if (text == nullptr || value == nullptr) {
        return EINVAL;
    }
    const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *digits = hex ? text + 2 : text;
    // strtoull would take blanks, a sign and a second "0x" as well.
    const auto first = static_cast<unsigned char>(*digits);
    if ((hex ? std::isxdigit(first) : std::isdigit(first)) == 0 || (hex && (digits[1] == 'x' || digits[1] == 'X'))) {
        return EINVAL;
    }
    char *end = nullptr;
    const int savedErrno = errno;
    errno = 0;
    const unsigned long long number = std::strtoull(digits, &end, hex ? 16 : 10);
    const int error = errno;
    errno = savedErrno;
    if (*end != '\0') {
        return EINVAL;
    }
    if (error != 0) {
        return ERANGE;
    }
    *value = number;
    return 0;
}

} // extern "C"
