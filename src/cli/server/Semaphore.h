/**
 * @file Semaphore.h
 * @brief A counting semaphore. Any thread.
 */
#ifndef CLI_SEMAPHORE_H
#define CLI_SEMAPHORE_H

#include <pthread.h>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API Semaphore {
public:
    explicit Semaphore(int initial);
    ~Semaphore();
    Semaphore(const Semaphore &) = delete;
    Semaphore &operator=(const Semaphore &) = delete;

    void Signal();
    void Wait();
    /** @return false after @p ms milliseconds, or when that instant cannot be told to the system. */
    bool TimedWait(unsigned long ms);

private:
    int m_count;
    pthread_cond_t m_condition;
    pthread_mutex_t m_mutex;
};

} // namespace CORVANE_CLI

#endif
