#include "bounded/bounded.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

// A size above this is a negative number or a stale length that was converted, never a real object. Nothing is known
// about such a destination, so it is left alone.
constexpr size_t kMaxSize = INT32_MAX;

namespace {

bool IsUsable(const void *dest, size_t destSize) noexcept
{
    return dest != nullptr && destSize != 0 && destSize <= kMaxSize;
}

/** What a bad destination means, or 0. */
int CheckDest(const void *dest, size_t destSize) noexcept
{
    if (dest == nullptr) {
        return BOUNDED_EINVAL;
    }
    return destSize == 0 || destSize > kMaxSize ? BOUNDED_ERANGE : 0;
}

int FailMemory(void *dest, size_t destSize, int error) noexcept
{
    std::memset(dest, 0, destSize);
    return error;
}

int FailText(char *dest, int error) noexcept
{
    dest[0] = '\0';
    return error;
}

/** Stores @p length characters of @p src and a terminator at @p offset; the whole destination is emptied on failure. */
int StoreText(char *dest, size_t destSize, size_t offset, const char *src, size_t length) noexcept
{
    if (length >= destSize - offset) {
        return FailText(dest, BOUNDED_ERANGE);
    }
    std::memmove(dest + offset, src, length);
    dest[offset + length] = '\0';
    return 0;
}

} // namespace

int memcpy_s(void *dest, size_t destSize, const void *src, size_t count) noexcept
{
    const int destError = CheckDest(dest, destSize);
    if (destError != 0) {
        return destError;
    }
    if (src == nullptr) {
        return FailMemory(dest, destSize, BOUNDED_EINVAL);
    }
    if (count > destSize) {
        return FailMemory(dest, destSize, BOUNDED_ERANGE);
    }
    // memmove: a record copied onto itself is legal here.
    std::memmove(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t destSize, int value, size_t count) noexcept
{
    const int destError = CheckDest(dest, destSize);
    if (destError != 0) {
        return destError;
    }
    if (count > destSize) {
        return FailMemory(dest, destSize, BOUNDED_ERANGE);
    }
    std::memset(dest, value, count);
    return 0;
}

int strcpy_s(char *dest, size_t destSize, const char *src) noexcept
{
    const int destError = CheckDest(dest, destSize);
    if (destError != 0) {
        return destError;
    }
    if (src == nullptr) {
        return FailText(dest, BOUNDED_EINVAL);
    }
    return StoreText(dest, destSize, 0, src, strnlen(src, destSize));
}

int strncpy_s(char *dest, size_t destSize, const char *src, size_t count) noexcept
{
    const int destError = CheckDest(dest, destSize);
    if (destError != 0) {
        return destError;
    }
    if (src == nullptr) {
        return FailText(dest, BOUNDED_EINVAL);
    }
    if (count > kMaxSize) {
        return FailText(dest, BOUNDED_ERANGE);
    }
    return StoreText(dest, destSize, 0, src, strnlen(src, std::min(count, destSize)));
}

int strcat_s(char *dest, size_t destSize, const char *src) noexcept
{
    return strncat_s(dest, destSize, src, kMaxSize);
}

int strncat_s(char *dest, size_t destSize, const char *src, size_t count) noexcept
{
    const int destError = CheckDest(dest, destSize);
    if (destError != 0) {
        return destError;
    }
    if (src == nullptr) {
        return FailText(dest, BOUNDED_EINVAL);
    }
    const size_t used = strnlen(dest, destSize);
    if (used == destSize || count > kMaxSize) {
        return FailText(dest, BOUNDED_ERANGE);
    }
    return StoreText(dest, destSize, used, src, strnlen(src, std::min(count, destSize - used)));
}

int vsnprintf_s(char *dest, size_t destSize, size_t count, const char *format, va_list args) noexcept
{
    if (!IsUsable(dest, destSize)) {
        return -1;
    }
    if (format == nullptr || count > kMaxSize) {
        return FailText(dest, -1);
    }
    const size_t limit = std::min(count, destSize - 1);
    const int length = std::vsnprintf(dest, limit + 1, format, args);
    if (length < 0) {
        return FailText(dest, -1);
    }
    return static_cast<size_t>(length) > limit ? -1 : length;
}

int snprintf_s(char *dest, size_t destSize, size_t count, const char *format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dest, destSize, count, format, args);
    va_end(args);
    return length;
}

int sprintf_s(char *dest, size_t destSize, const char *format, ...) noexcept
{
    if (!IsUsable(dest, destSize)) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dest, destSize, destSize - 1, format, args);
    va_end(args);
    // Unlike the counted form nothing partial stays behind: a caller of this one expects the whole text or none.
    return length < 0 ? FailText(dest, -1) : length;
}
