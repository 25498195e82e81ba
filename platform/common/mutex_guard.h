/**
 * @file mutex_guard.h
 * @brief Holds a mutex for a scope, for the host's libraries alone. Unlike the standard's guard it cannot throw.
 *         C++ sources only.
 */
#ifndef MUTEX_GUARD_H
#define MUTEX_GUARD_H

#include <pthread.h>

class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t &mutex) noexcept : mutex_(mutex) { (void)pthread_mutex_lock(&mutex_); }
    ~MutexGuard() { (void)pthread_mutex_unlock(&mutex_); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

#endif
