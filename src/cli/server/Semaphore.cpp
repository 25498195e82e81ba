#include "cli/server/Semaphore.h"

#include <cerrno>
#include <sys/time.h>

namespace CORVANE_CLI {

namespace {

constexpr unsigned long kMicrosecondsPerMillisecond = 1000;
constexpr unsigned long kNanosecondsPerMicrosecond = 1000;

/** Holds a pthread mutex for a scope. */
class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t &mutex) : m_mutex(mutex) { (void)pthread_mutex_lock(&m_mutex); }
    ~MutexGuard() { (void)pthread_mutex_unlock(&m_mutex); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    pthread_mutex_t &m_mutex;
};

} // namespace

Semaphore::Semaphore(int initial) : m_count(initial)
{
    (void)pthread_cond_init(&m_condition, nullptr);
    (void)pthread_mutex_init(&m_mutex, nullptr);
}

Semaphore::~Semaphore()
{
    (void)pthread_cond_destroy(&m_condition);
    (void)pthread_mutex_destroy(&m_mutex);
}

void Semaphore::Signal()
{
    const MutexGuard guard(m_mutex);
    m_count++;
    (void)pthread_cond_signal(&m_condition);
}

void Semaphore::Wait()
{
    const MutexGuard guard(m_mutex);
    while (m_count <= 0) {
        (void)pthread_cond_wait(&m_condition, &m_mutex);
    }
    m_count--;
}

bool Semaphore::TimedWait(unsigned long ms)
{
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr);
    // Not normalised: an instant in the next second is none for the system, and counts as passed. Unsigned, so that
    // any number of milliseconds can be multiplied.
    const unsigned long microseconds = static_cast<unsigned long>(now.tv_usec) + ms * kMicrosecondsPerMillisecond;
    const struct timespec deadline = {now.tv_sec, static_cast<long>(microseconds * kNanosecondsPerMicrosecond)};
    const MutexGuard guard(m_mutex);
    while (m_count <= 0) {
        const int result = pthread_cond_timedwait(&m_condition, &m_mutex, &deadline);
        if (result == ETIMEDOUT || result == EINVAL) {
            return false;
        }
    }
    m_count--;
    return true;
}

} // namespace CORVANE_CLI
