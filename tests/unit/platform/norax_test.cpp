#include "platform/norax.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include "unit/platform/platform_test_support.h"

namespace {

uint64_t MonotonicJiffies()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 250 + static_cast<uint64_t>(now.tv_nsec) / 4000000;
}

NoraxSpinlock NewLock()
{
    return {0, NORAX_SPINLOCK_MAGIC, -1, -1};
}

} // namespace

TEST(NoraxGetJiffiesTest, CountsTwoHundredFiftyPerSecondOfTheMonotonicClock)
{
    const uint64_t before = MonotonicJiffies();
    const uint64_t now = norax_get_jiffies();
    const uint64_t after = MonotonicJiffies();

    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

struct NumberCase {
    const char *text;
    int result;
    uint64_t value; ///< 7 where it stays
};

class NoraxStrTou64Test : public ::testing::TestWithParam<NumberCase> {};

TEST_P(NoraxStrTou64Test, ReadsWholeNumbersOnly)
{
    uint64_t value = 7;

    EXPECT_EQ(norax_str_tou64(GetParam().text, &value), GetParam().result);

    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NoraxStrTou64Test,
    ::testing::Values(NumberCase{"0", 0, 0}, NumberCase{"86400", 0, 86400}, NumberCase{"010", 0, 10},
                      NumberCase{"0x1F", 0, 31}, NumberCase{"0Xff", 0, 255},
                      NumberCase{"18446744073709551615", 0, UINT64_MAX},
                      NumberCase{"0xffffffffffffffff", 0, UINT64_MAX}, NumberCase{"18446744073709551616", ERANGE, 7},
                      NumberCase{"", EINVAL, 7}, NumberCase{"0x", EINVAL, 7}, NumberCase{"0x0x1", EINVAL, 7},
                      NumberCase{" 1", EINVAL, 7}, NumberCase{"1 ", EINVAL, 7}, NumberCase{"+1", EINVAL, 7},
                      NumberCase{"-1", EINVAL, 7}, NumberCase{"12x", EINVAL, 7}, NumberCase{"0xg", EINVAL, 7},
                      NumberCase{nullptr, EINVAL, 7}));

TEST(NoraxStrTou64Test, RefusesANullTargetAndKeepsErrno)
{
    uint64_t value = 0;
    errno = ENOTTY;

    EXPECT_EQ(norax_str_tou64("1", nullptr), EINVAL);
    EXPECT_EQ(norax_str_tou64("99999999999999999999", &value), ERANGE);

    EXPECT_EQ(errno, ENOTTY);
}

TEST(NoraxSpinlockTest, NotesItsOwner)
{
    NoraxSpinlock lock = NewLock();

    do_norax_spinlock_lock(&lock, "f", 12);

    EXPECT_EQ(lock.lock, 1U);
    EXPECT_EQ(lock.ownerThread, CurrentThreadNumber());
    EXPECT_EQ(lock.ownerLine, 12);
    EXPECT_EQ(do_norax_tspinlock_trylock(&lock, "f", 13), 0);

    do_norax_spinlock_unlock(&lock, "f", 14);

    EXPECT_EQ(lock.lock, 0U);
    EXPECT_EQ(lock.ownerThread, -1);
    EXPECT_EQ(lock.ownerLine, -1);
    EXPECT_EQ(do_norax_tspinlock_trylock(&lock, "f", 15), 1);
    do_norax_spinlock_unlock(&lock, "f", 16);
}

TEST(NoraxSpinlockTest, KeepsOthersOut)
{
    NoraxSpinlock lock = NewLock();
    uint64_t counter = 0;
    constexpr uint64_t kRounds = 5000;
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&lock, &counter, i] {
            for (uint64_t round = 0; round < kRounds; round++) {
                if (i % 2 == 0) {
                    do_norax_spinlock_lock(&lock, "f", 1);
                } else {
                    while (do_norax_tspinlock_trylock(&lock, "f", 2) == 0) {
                        std::this_thread::yield();
                    }
                }
                counter++;
                do_norax_spinlock_unlock(&lock, "f", 3);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(counter, 4 * kRounds);
}

TEST(NoraxSpinlockTest, LeavesALockThatWasNotSetUpAlone)
{
    NoraxSpinlock lock{};
    testing::internal::CaptureStderr();

    do_norax_spinlock_lock(&lock, "Taker", 21);
    do_norax_spinlock_unlock(&lock, "Giver", 22);
    const int tried = do_norax_tspinlock_trylock(&lock, "Trier", 23);
    do_norax_spinlock_lock(nullptr, "Nobody", 24);
    const std::string text = testing::internal::GetCapturedStderr();

    EXPECT_EQ(tried, 0);
    EXPECT_EQ(lock.lock, 0U);
    EXPECT_NE(text.find("is not set up, Taker:21"), std::string::npos) << text;
    EXPECT_NE(text.find("is not set up, Giver:22"), std::string::npos) << text;
    EXPECT_NE(text.find("is not set up, Trier:23"), std::string::npos) << text;
    EXPECT_NE(text.find("is not set up, Nobody:24"), std::string::npos) << text;
}

TEST(NoraxSpinlockTest, IsNotReleasedByAnotherThread)
{
    NoraxSpinlock lock = NewLock();
    do_norax_spinlock_lock(&lock, "f", 1);
    testing::internal::CaptureStderr();

    std::thread([&lock] { do_norax_spinlock_unlock(&lock, "Thief", 31); }).join();
    const std::string text = testing::internal::GetCapturedStderr();

    EXPECT_EQ(lock.lock, 1U);
    EXPECT_NE(text.find("released by a thread that does not hold it, Thief:31"), std::string::npos) << text;
    do_norax_spinlock_unlock(&lock, "f", 2);
}

TEST(NoraxSpinlockTest, TellsWhenAThreadLocksItselfOut)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        (void)dup2(ends[1], STDERR_FILENO);
        (void)close(ends[0]);
        (void)close(ends[1]);
        NoraxSpinlock lock = NewLock();
        do_norax_spinlock_lock(&lock, "Outer", 41);
        do_norax_spinlock_lock(&lock, "Inner", 42);
        _exit(1); // only if the second lock did not wait
    }
    (void)close(ends[1]);

    std::string text;
    char c = 0;
    while (text.find('\n') == std::string::npos && read(ends[0], &c, 1) == 1) {
        text += c;
    }
    (void)close(ends[0]);
    (void)kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);

    EXPECT_NE(text.find("taken twice by one thread, Inner:42"), std::string::npos) << text;
    EXPECT_TRUE(WIFSIGNALED(status)) << "the thread must wait";
}
