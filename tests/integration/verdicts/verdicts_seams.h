/**
 * @file verdicts_seams.h
 * @brief The ticks of verdicts_corvaned, which a test gives, in a page that both share.
 */
#ifndef VERDICTS_SEAMS_H
#define VERDICTS_SEAMS_H

#include <atomic>
#include <cstdint>

inline constexpr const char *kVerdictsSeamsVariable = "VERDICTS_SEAMS"; /**< names the file of the page */

struct VerdictsSeams {
    std::atomic<uint64_t> wanted;   /**< ticks that the test wants, in all */
    std::atomic<uint64_t> given;    /**< ticks that have come and whose runs have ended */
    std::atomic<uint32_t> periodMs; /**< what the library asked of its timer between two ticks */
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");

#endif
