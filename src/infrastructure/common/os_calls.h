/**
 * @file os_calls.h
 * @brief System calls that tests replace: the real ones by default. Read without a lock: set before threads start.
 */
#ifndef CORVANE_OS_CALLS_H
#define CORVANE_OS_CALLS_H

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

struct OsCalls {
    int (*ioctl)(int fd, unsigned long request, void *arg);
    int (*open)(const char *path, int flags);
    std::FILE *(*popen)(const char *command, const char *mode);
    int (*pclose)(std::FILE *stream);
    std::FILE *(*fopen)(const char *path, const char *mode);
    size_t (*fread)(void *data, size_t size, size_t count, std::FILE *file);
    size_t (*fwrite)(const void *data, size_t size, size_t count, std::FILE *file);
    int (*fflush)(std::FILE *file);
    int (*fclose)(std::FILE *file);
    int (*fseek)(std::FILE *file, long offset, int whence);
    int (*remove)(const char *path);
    int (*rename)(const char *from, const char *to);
    int (*unlink)(const char *path);
    int (*chmod)(const char *path, mode_t mode);
    int (*chown)(const char *path, uid_t owner, gid_t group);
    int (*getpwnam_r)(const char *name, struct passwd *entry, char *buffer, size_t size, struct passwd **result);
    int (*getgrnam_r)(const char *name, struct group *entry, char *buffer, size_t size, struct group **result);
    int (*socket)(int domain, int type, int protocol);
    int (*setsockopt)(int fd, int level, int name, const void *value, socklen_t length);
    ssize_t (*send)(int fd, const void *data, size_t size, int flags);
    ssize_t (*recv)(int fd, void *data, size_t size, int flags);
    int (*clockGettime)(clockid_t clock, struct timespec *out);
    std::time_t (*time)(std::time_t *out);
    void *(*malloc)(size_t size);
    ssize_t (*readlink)(const char *path, char *buffer, size_t size);
    int (*openMode)(const char *path, int flags, mode_t mode); /**< open with O_CREAT */
    int (*setLock)(int fd, struct flock *lock);                /**< fcntl F_SETLK: does not wait */
    int (*threadCreate)(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg);
    int (*sigaction)(int number, const struct sigaction *action, struct sigaction *former);
    int (*access)(const char *path, int mode);
    long (*ftell)(std::FILE *file);
    int (*getsockopt)(int fd, int level, int name, void *value, socklen_t *length);
    int (*bind)(int fd, const struct sockaddr *address, socklen_t length);
    ssize_t (*recvmsg)(int fd, struct msghdr *message, int flags);
    int (*close)(int fd);
    unsigned int (*sleep)(unsigned int seconds);
};

extern OsCalls g_osCalls;

/** Roots of the kernel's file systems; "" is the real one. Tests point them at a copied tree. */
struct OsPaths {
    const char *sys;  /**< put before "/sys/..." */
    const char *proc; /**< put before "/proc/..." */
    const char *dev;  /**< put before "/dev/..." when a device is opened */
};

extern OsPaths g_osPaths;

#endif
