/**
 * @file bounded.h
 * @brief Bounds-checked copies, formatting and scanning. Part of libcorvane.so and hidden there.
 *
 * A destination size and a count both bind. What does not fit is an error, never a truncation that passes
 * unnoticed. No function takes a lock; any thread.
 */
#ifndef CORVANE_BOUNDED_H
#define CORVANE_BOUNDED_H

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
#define CORVANE_BOUNDED_NOEXCEPT noexcept
extern "C" {
#else
#define CORVANE_BOUNDED_NOEXCEPT
#endif

/**
 * Status of the copying functions: 0, or one of these. After an error a text destination that exists holds the empty
 * string, a memory destination is zero-filled; a destination that is null, of size 0 or of an impossible size is left
 * alone. Sizes and counts above INT32_MAX are impossible: negative numbers that were converted.
 */
#define BOUNDED_EINVAL 22 /**< EINVAL: a null pointer */
#define BOUNDED_ERANGE 34 /**< ERANGE: destination of size 0, or too small for what was to be stored */

int memcpy_s(void *dest, size_t destSize, const void *src, size_t count) CORVANE_BOUNDED_NOEXCEPT;
int memset_s(void *dest, size_t destSize, int value, size_t count) CORVANE_BOUNDED_NOEXCEPT;
/** Copies the whole text with its terminator. */
int strcpy_s(char *dest, size_t destSize, const char *src) CORVANE_BOUNDED_NOEXCEPT;
/** Copies at most @p count characters of @p src and always terminates; they must fit with the terminator. */
int strncpy_s(char *dest, size_t destSize, const char *src, size_t count) CORVANE_BOUNDED_NOEXCEPT;
int strcat_s(char *dest, size_t destSize, const char *src) CORVANE_BOUNDED_NOEXCEPT;
/** Appends at most @p count characters of @p src. */
int strncat_s(char *dest, size_t destSize, const char *src, size_t count) CORVANE_BOUNDED_NOEXCEPT;

/** @return characters written without the terminator, or -1: bad argument, format failure, or the text did not fit. */
int sprintf_s(char *dest, size_t destSize, const char *format, ...) CORVANE_BOUNDED_NOEXCEPT
    __attribute__((format(printf, 3, 4)));
/**
 * Writes at most @p count characters and a terminator into @p destSize bytes.
 * @return characters written without the terminator, or -1. A text cut at @p count or at the destination's end gives
 *         -1 as well; what fitted stays in @p dest, terminated.
 */
int snprintf_s(char *dest, size_t destSize, size_t count, const char *format, ...) CORVANE_BOUNDED_NOEXCEPT
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char *dest, size_t destSize, size_t count, const char *format, va_list args) CORVANE_BOUNDED_NOEXCEPT
    __attribute__((format(printf, 4, 0)));

/**
 * Scanning. Each %s, %c and %[ target is followed by its size as a size_t argument. A text that does not fit its
 * target with the terminator ends the scan there: that target gets the empty string, and the result is the number of
 * fields stored before it. A %c needs no room for a terminator. At most 32 fields and 1023 characters of format; no
 * wide texts.
 * @return fields stored, or -1 (EOF) for a bad argument or when the input ends before the first field.
 */
int sscanf_s(const char *text, const char *format, ...) CORVANE_BOUNDED_NOEXCEPT;
int fscanf_s(FILE *stream, const char *format, ...) CORVANE_BOUNDED_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
