/**
 * @file nordiagnose_guard.h
 * @brief Holds a mutex for a scope. Unlike the standard's guard it cannot throw.
 */
#ifndef NORDIAGNOSE_GUARD_H
#define NORDIAGNOSE_GUARD_H

#include <pthread.h>

namespace nordiag {

class Guard {
public:
    explicit Guard(pthread_mutex_t &mutex) noexcept : mutex_(mutex) { (void)pthread_mutex_lock(&mutex_); }
    ~Guard() { (void)pthread_mutex_unlock(&mutex_); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

} // namespace nordiag

#endif
