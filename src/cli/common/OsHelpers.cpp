#include "cli/common/OsHelpers.h"

#include <cstdio>
#include <dirent.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr int kOk = 0;
constexpr int kFail = -1;

int Apply(int (*operation)(pthread_mutex_t *), pthread_mutex_t *mutex)
{
    return mutex != nullptr && operation(mutex) == 0 ? kOk : kFail;
}

/** Held over tzset() and localtime_r(): the C library's own lock over the zone is one that no checker sees. */
std::mutex g_zoneMutex;

} // namespace

int OS_MutexInit(pthread_mutex_t *mutex)
{
    return mutex != nullptr && pthread_mutex_init(mutex, nullptr) == 0 ? kOk : kFail;
}

int OS_MutexDestroy(pthread_mutex_t *mutex)
{
    return Apply(pthread_mutex_destroy, mutex);
}

int OS_TimeLock(pthread_mutex_t *mutex)
{
    return Apply(pthread_mutex_lock, mutex);
}

int OS_TimeUnlock(pthread_mutex_t *mutex)
{
    return Apply(pthread_mutex_unlock, mutex);
}

int OS_Lock(pthread_mutex_t *mutex)
{
    return OS_TimeLock(mutex);
}

int OS_Unlock(pthread_mutex_t *mutex)
{
    return OS_TimeUnlock(mutex);
}

bool OS_FileExists(const char *path)
{
    return path != nullptr && DirPtr(opendir(path)) != nullptr;
}

int OS_FileDelete(const char *path)
{
    return OS_FileExists(path) && g_osCalls.remove(path) == 0 ? kOk : kFail;
}

time_t OS_Now()
{
    {
        const std::lock_guard<std::mutex> guard(g_zoneMutex);
        tzset();
    }
    return g_osCalls.time(nullptr);
}

struct tm *OS_LocalTime(const time_t *time, struct tm *local)
{
    if (time == nullptr || local == nullptr) {
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(g_zoneMutex);
    tzset();
    return localtime_r(time, local);
}

void FindOrCreateLogDirectory(const char *path)
{
    if (path != nullptr && access(path, F_OK) != 0) {
        (void)mkdir(path, 0);
    }
}
