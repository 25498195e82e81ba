/**
 * @file UnlimitedQueue.h
 * @brief A queue between threads without a limit.
 */
#ifndef CLI_UNLIMITED_QUEUE_H
#define CLI_UNLIMITED_QUEUE_H

#include <memory>
#include <mutex>
#include <queue>
#include <utility>

#include "cli/server/Semaphore.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

template <typename T>
class CORVANE_API UnlimitedQueue {
public:
    void Put(std::shared_ptr<T> item)
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_items.push(std::move(item));
        m_semaphore.Signal();
    }

    /** @brief Take the first item. @param timeoutMs 0 waits for ever. @return whether one came. */
    bool Get(std::shared_ptr<T> &item, unsigned long timeoutMs)
    {
        if (timeoutMs == 0) {
            m_semaphore.Wait();
        } else if (!m_semaphore.TimedWait(timeoutMs)) {
            return false;
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_items.empty()) {
            return false;
        }
        item = std::move(m_items.front());
        m_items.pop();
        return true;
    }

private:
    std::queue<std::shared_ptr<T>> m_items;
    std::mutex m_mutex;
    Semaphore m_semaphore{0};
};

} // namespace CORVANE_CLI

#endif
