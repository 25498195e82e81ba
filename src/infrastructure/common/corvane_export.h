/**
 * @file corvane_export.h
 * @brief Marks for exported symbols, for C and C++ readers of the public headers, and for clang's lock checker.
 */
#ifndef CORVANE_EXPORT_H
#define CORVANE_EXPORT_H

/** Visible by name in libcorvane.so. Everything else is hidden. */
#define CORVANE_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define CORVANE_BEGIN_DECLS extern "C" {
#define CORVANE_END_DECLS }
#define CORVANE_NOEXCEPT noexcept
#define CORVANE_NODISCARD [[nodiscard]]
#else
#define CORVANE_BEGIN_DECLS
#define CORVANE_END_DECLS
#define CORVANE_NOEXCEPT
#define CORVANE_NODISCARD __attribute__((warn_unused_result))
#endif

#define CORVANE_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))

#if defined(__clang__)
#define CORVANE_TSA(x) __attribute__((x))
#else
#define CORVANE_TSA(x)
#endif
#define CORVANE_CAPABILITY(name) CORVANE_TSA(capability(name))
#define CORVANE_SCOPED_CAPABILITY CORVANE_TSA(scoped_lockable)
#define CORVANE_GUARDED_BY(lock) CORVANE_TSA(guarded_by(lock))
#define CORVANE_REQUIRES(...) CORVANE_TSA(requires_capability(__VA_ARGS__))
#define CORVANE_ACQUIRE(...) CORVANE_TSA(acquire_capability(__VA_ARGS__))
#define CORVANE_ACQUIRE_SHARED(...) CORVANE_TSA(acquire_shared_capability(__VA_ARGS__))
#define CORVANE_RELEASE(...) CORVANE_TSA(release_capability(__VA_ARGS__))
#define CORVANE_RELEASE_GENERIC(...) CORVANE_TSA(release_generic_capability(__VA_ARGS__))
#define CORVANE_NO_TSA CORVANE_TSA(no_thread_safety_analysis)

#endif
