/**
 * @file corvane_raii.h
 * @brief Owners for what the library must give back: JSON trees, files, pipes, descriptors, table memory, locks.
 *
 * Each is for one thread at a time. Writers close by hand and test the result; a destructor cannot report a full disk.
 */
#ifndef CORVANE_RAII_H
#define CORVANE_RAII_H

#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <unistd.h>
#include <utility>

#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_infra.h"

struct CJsonDelete {
    void operator()(cJSON *node) const noexcept { cJSON_Delete(node); }
};
/** A JSON tree. */
using CJsonPtr = std::unique_ptr<cJSON, CJsonDelete>;

struct CJsonTextFree {
    void operator()(char *text) const noexcept { cJSON_free(text); }
};
/** Text that cJSON printed. */
using CJsonText = std::unique_ptr<char, CJsonTextFree>;

struct FileClose {
    void operator()(std::FILE *file) const noexcept { (void)std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

struct DirClose {
    void operator()(DIR *dir) const noexcept { (void)closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirClose>;

struct MallocFree {
    void operator()(void *ptr) const noexcept { std::free(ptr); }
};
/** Memory of malloc, strdup, realpath, getline. */
template <typename T>
using MallocPtr = std::unique_ptr<T, MallocFree>;

/** @brief Zeroed memory of malloc for one plain record, or null. */
template <typename T>
[[nodiscard]] MallocPtr<T> MallocNew() noexcept
{
    void *memory = g_osCalls.malloc(sizeof(T));
    if (memory != nullptr) {
        std::memset(memory, 0, sizeof(T));
    }
    return MallocPtr<T>(static_cast<T *>(memory));
}

struct InfraFree {
    void operator()(void *ptr) const noexcept { g_corvaneInfra.memFree(ptr); }
};
/** Memory of the adapter table: slot 1 frees what slot 0 gave. */
template <typename T>
using InfraPtr = std::unique_ptr<T, InfraFree>;

/** @brief Zeroed memory of the adapter table for one plain record, or null. */
template <typename T>
[[nodiscard]] InfraPtr<T> InfraNew() noexcept
{
    void *memory = g_corvaneInfra.memAlloc(sizeof(T));
    if (memory != nullptr) {
        std::memset(memory, 0, sizeof(T));
    }
    return InfraPtr<T>(static_cast<T *>(memory));
}

/** A file descriptor, closed once. */
class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        if (this != &other) {
            Reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { Reset(); }

    [[nodiscard]] int Get() const noexcept { return fd_; }
    [[nodiscard]] bool Valid() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int Release() noexcept { return std::exchange(fd_, -1); }
    void Reset(int fd = -1) noexcept
    {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

/**
 * Names a lock to clang's checker. The locks themselves are handles of the adapter table, created at run time, which
 * an attribute cannot name; each module declares one token beside each handle and passes both to the guard.
 */
class CORVANE_CAPABILITY("lock") LockToken {};

/** Holds a spinlock of the adapter table for a scope. */
class CORVANE_SCOPED_CAPABILITY SpinGuard {
public:
    SpinGuard(void *handle, LockToken &token) noexcept CORVANE_ACQUIRE(token) : handle_(handle)
    {
        (void)token;
        g_corvaneInfra.spinlockLock(handle_);
    }
    ~SpinGuard() CORVANE_RELEASE() { g_corvaneInfra.spinlockUnlock(handle_); }
    SpinGuard(const SpinGuard &) = delete;
    SpinGuard &operator=(const SpinGuard &) = delete;

private:
    void *handle_;
};

/** Holds a read/write lock of the adapter table for reading, for a scope. */
class CORVANE_SCOPED_CAPABILITY ReadGuard {
public:
    ReadGuard(void *handle, LockToken &token) noexcept CORVANE_ACQUIRE_SHARED(token) : handle_(handle)
    {
        (void)token;
        g_corvaneInfra.rwlockReadLock(handle_);
    }
    ~ReadGuard() CORVANE_RELEASE_GENERIC() { g_corvaneInfra.rwlockUnlock(handle_); }
    ReadGuard(const ReadGuard &) = delete;
    ReadGuard &operator=(const ReadGuard &) = delete;

private:
    void *handle_;
};

/** Holds a read/write lock of the adapter table for writing, for a scope. */
class CORVANE_SCOPED_CAPABILITY WriteGuard {
public:
    WriteGuard(void *handle, LockToken &token) noexcept CORVANE_ACQUIRE(token) : handle_(handle)
    {
        (void)token;
        g_corvaneInfra.rwlockWriteLock(handle_);
    }
    ~WriteGuard() CORVANE_RELEASE() { g_corvaneInfra.rwlockUnlock(handle_); }
    WriteGuard(const WriteGuard &) = delete;
    WriteGuard &operator=(const WriteGuard &) = delete;

private:
    void *handle_;
};

#endif
