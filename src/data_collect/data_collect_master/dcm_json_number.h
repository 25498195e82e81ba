/**
 * @file dcm_json_number.h
 * @brief The one conversion of a JSON number to an unsigned integer of 8, 16 or 32 bits. C++ only; pure, any thread.
 */
#ifndef DCM_JSON_NUMBER_H
#define DCM_JSON_NUMBER_H

#include <cjson/cJSON.h>
#include <cstdint>
#include <type_traits>

/**
 * @brief Convert a JSON number: truncate to a 64-bit integer, keep the low bits.
 *
 * 4294967295 stays whole, -1 becomes all ones. NaN, the infinities and magnitudes of 2^63 and above give 0. The
 * integer member of cJSON is not used: it saturates at INT_MAX, which counters and hours may exceed.
 */
template <typename T>
[[nodiscard]] constexpr T JsonNumberToUint(double number) noexcept
{
    static_assert(std::is_unsigned_v<T> && sizeof(T) <= sizeof(uint32_t));
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    // Written so that NaN, which compares false with everything, is refused as well.
    if (!(number > -kLimit && number < kLimit)) {
        return 0;
    }
    return static_cast<T>(static_cast<uint64_t>(static_cast<int64_t>(number)));
}

/** @brief The same for a node that is known to be a number. */
template <typename T>
[[nodiscard]] inline T JsonNumberToUint(const cJSON *number) noexcept
{
    return JsonNumberToUint<T>(number->valuedouble);
}

#endif
