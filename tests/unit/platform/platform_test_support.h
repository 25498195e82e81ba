/**
 * @file platform_test_support.h
 * @brief Waiting for threads without sleeping blindly, and temporary folders.
 */
#ifndef PLATFORM_TEST_SUPPORT_H
#define PLATFORM_TEST_SUPPORT_H

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <semaphore.h>
#include <sstream>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

constexpr time_t kPatienceSeconds = 30;

/** Something another thread does, counted. */
class Event {
public:
    Event() { (void)sem_init(&semaphore_, 0, 0); }
    ~Event() { (void)sem_destroy(&semaphore_); }
    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;

    void Signal() { (void)sem_post(&semaphore_); }
    /** @return false if nothing came within a time that no healthy machine needs. */
    [[nodiscard]] bool Wait()
    {
        timespec until{};
        (void)clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += kPatienceSeconds;
        int status = 0;
        while ((status = sem_timedwait(&semaphore_, &until)) != 0 && errno == EINTR) {
        }
        return status == 0;
    }

private:
    sem_t semaphore_{};
};

/** Waits until @p condition holds. @return false if it did not for a long time. */
template <typename Condition>
[[nodiscard]] bool WaitFor(Condition condition)
{
    const time_t end = time(nullptr) + kPatienceSeconds;
    while (!condition()) {
        if (time(nullptr) > end) {
            return false;
        }
        (void)usleep(2000);
    }
    return true;
}

inline int CurrentThreadNumber()
{
    return static_cast<int>(syscall(SYS_gettid));
}

/** State letter of a thread of this process, or 'X' if it is gone. */
inline char ThreadState(int number)
{
    std::ifstream in("/proc/self/task/" + std::to_string(number) + "/stat");
    std::string text;
    std::getline(in, text);
    const size_t close = text.rfind(')');
    return close == std::string::npos ? 'X' : text[close + 2];
}

class TempFolder {
public:
    TempFolder()
    {
        char name[] = "/tmp/corvane-platform.XXXXXX";
        path_ = mkdtemp(name);
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    [[nodiscard]] const std::string &Path() const { return path_; }

private:
    std::string path_;
};

inline std::string ReadWhole(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

#endif
