/**
 * @file service_seams.h
 * @brief What a test changes of the system as service_corvaned sees it, in a page that both share.
 */
#ifndef SERVICE_SEAMS_H
#define SERVICE_SEAMS_H

#include <atomic>
#include <cstdint>

inline constexpr const char *kSeamsVariable = "SERVICE_SEAMS"; /**< names the file of the page */

struct ServiceSeams {
    std::atomic<int64_t> clockOffset;       /**< seconds by which the wall clock is ahead */
    std::atomic<uint32_t> longSleepMs;      /**< length of sleeps of 100 seconds and more; 0: as asked */
    std::atomic<uint32_t> receiveTimeoutMs; /**< of sockets that have one; 0: as asked */
    std::atomic<uint32_t> syncInterval;     /**< seconds between two syncs to the data agent, from the start on */
};
static_assert(std::atomic<int64_t>::is_always_lock_free, "shared between processes");

#endif
