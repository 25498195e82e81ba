#include "init/corvane_signal_stash.h"

#include <cerrno>
#include <csignal>
#include <map>

#include "support/corvane_fixture.h"

namespace {

void HandlerOfTheProcess(int) {}
void HandlerOfTheLibrary(int) {}

int g_mallocsLeft = 0;

void *MallocUntil(size_t size)
{
    return g_mallocsLeft-- > 0 ? std::malloc(size) : nullptr;
}

int g_refusedSignal = 0;
int g_refusal = 0;
std::map<int, int> g_set;

/** Refuses to set one signal and only counts the others. */
int CountingSigaction(int number, const struct sigaction *action, struct sigaction *former)
{
    if (action == nullptr) {
        return sigaction(number, nullptr, former);
    }
    g_set[number]++;
    if (number == g_refusedSignal) {
        errno = g_refusal;
        return -1;
    }
    return 0;
}

/** Signal numbers that the C library lets one ask about. */
std::vector<int> AskableSignals()
{
    std::vector<int> numbers;
    for (int number = 1; number <= SIGRTMAX; number++) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

std::vector<int> StashedSignals()
{
    std::vector<int> numbers;
    for (const SignalHandlerItem *item = g_signalHandlerStack; item != nullptr; item = item->next) {
        numbers.push_back(item->signal);
    }
    return numbers;
}

} // namespace

class SignalStashTest : public CorvaneTest {
protected:
    SignalStashTest() { (void)sigaction(SIGUSR1, nullptr, &former_); }
    ~SignalStashTest() override
    {
        (void)StashPopProcessSignalHandler();
        (void)sigaction(SIGUSR1, &former_, nullptr);
    }
    static struct sigaction Disposition(int number)
    {
        struct sigaction action = {};
        EXPECT_EQ(sigaction(number, nullptr, &action), 0);
        return action;
    }

private:
    struct sigaction former_ = {};
};

using StashProcessSignalHandlerTest = SignalStashTest;
using StashPopProcessSignalHandlerTest = SignalStashTest;

TEST_F(StashProcessSignalHandlerTest, KeepsEverySignalThatCanBeAskedAbout)
{
    std::vector<int> expected = AskableSignals();
    ASSERT_LT(expected.size(), static_cast<size_t>(SIGRTMAX)) << "the C library keeps some numbers to itself";
    std::reverse(expected.begin(), expected.end());

    EXPECT_EQ(StashProcessSignalHandler(), 0);

    EXPECT_EQ(StashedSignals(), expected);
    EXPECT_EQ(expected.front(), SIGRTMAX);
    EXPECT_TRUE(Logs().empty());
}

TEST_F(StashProcessSignalHandlerTest, ChangesNothing)
{
    ASSERT_NE(std::signal(SIGUSR1, HandlerOfTheProcess), SIG_ERR);

    EXPECT_EQ(StashProcessSignalHandler(), 0);

    EXPECT_EQ(Disposition(SIGUSR1).sa_handler, HandlerOfTheProcess);
}

TEST_F(StashProcessSignalHandlerTest, StopsWithoutMemoryAndKeepsWhatItHas)
{
    g_mallocsLeft = 3;
    g_osCalls.malloc = MallocUntil;

    EXPECT_EQ(StashProcessSignalHandler(), ENOMEM);

    EXPECT_THAT(StashedSignals(), ::testing::ElementsAre(3, 2, 1));
    EXPECT_EQ(LogCount(3, "INIT", "malloc SignalHandlerItem failed."), 1u);
}

TEST_F(StashProcessSignalHandlerTest, PrintsWithoutALog)
{
    g_mallocsLeft = 0;
    g_osCalls.malloc = MallocUntil;
    g_corvaneInfra.log = nullptr;

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(StashProcessSignalHandler(), ENOMEM);

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[INIT] ERROR : malloc SignalHandlerItem failed.\n");
}

TEST_F(StashPopProcessSignalHandlerTest, PutsBackWhatWasThere)
{
    struct sigaction wanted = {};
    wanted.sa_handler = HandlerOfTheProcess;
    wanted.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaddset(&wanted.sa_mask, SIGUSR2), 0);
    ASSERT_EQ(sigaction(SIGUSR1, &wanted, nullptr), 0);
    ASSERT_EQ(StashProcessSignalHandler(), 0);
    ASSERT_NE(std::signal(SIGUSR1, HandlerOfTheLibrary), SIG_ERR);

    EXPECT_EQ(StashPopProcessSignalHandler(), 0);

    const struct sigaction action = Disposition(SIGUSR1);
    EXPECT_EQ(action.sa_handler, HandlerOfTheProcess);
    EXPECT_TRUE((action.sa_flags & SA_RESTART) != 0);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR2), 1);
    EXPECT_EQ(g_signalHandlerStack, nullptr);
    EXPECT_TRUE(Logs().empty()) << "SIGKILL and SIGSTOP cannot be set, and that is no news";
}

TEST_F(StashPopProcessSignalHandlerTest, FirstStashIsSetLast)
{
    ASSERT_NE(std::signal(SIGUSR1, HandlerOfTheProcess), SIG_ERR);
    ASSERT_EQ(StashProcessSignalHandler(), 0);
    ASSERT_NE(std::signal(SIGUSR1, HandlerOfTheLibrary), SIG_ERR);
    ASSERT_EQ(StashProcessSignalHandler(), 0);

    EXPECT_EQ(StashPopProcessSignalHandler(), 0);

    EXPECT_EQ(Disposition(SIGUSR1).sa_handler, HandlerOfTheProcess);
}

TEST_F(StashPopProcessSignalHandlerTest, AnEmptyStackIsNothingToDo)
{
    g_set.clear();
    g_osCalls.sigaction = CountingSigaction;
    ASSERT_EQ(g_signalHandlerStack, nullptr);

    EXPECT_EQ(StashPopProcessSignalHandler(), 0);

    EXPECT_TRUE(g_set.empty());
    EXPECT_TRUE(Logs().empty());
}

TEST_F(StashPopProcessSignalHandlerTest, GoesOnAfterASignalThatCannotBeSet)
{
    g_set.clear();
    g_refusedSignal = SIGUSR1;
    g_refusal = EPERM;
    g_osCalls.sigaction = CountingSigaction;
    ASSERT_EQ(StashProcessSignalHandler(), 0);
    const size_t stashed = StashedSignals().size();

    EXPECT_EQ(StashPopProcessSignalHandler(), 0);

    EXPECT_EQ(g_set.size(), stashed);
    EXPECT_EQ(g_signalHandlerStack, nullptr);
    EXPECT_EQ(
        LogCount(3, "INIT",
                 "set signal(" + std::to_string(SIGUSR1) + ") sigaction failed(errno:" + std::to_string(EPERM) + ")."),
        1u);
    EXPECT_EQ(Logs().size(), 1u);
}

TEST_F(StashPopProcessSignalHandlerTest, IsSilentAboutSignalsThatNobodyMaySet)
{
    g_set.clear();
    g_refusedSignal = SIGUSR1;
    g_refusal = EINVAL;
    g_osCalls.sigaction = CountingSigaction;
    ASSERT_EQ(StashProcessSignalHandler(), 0);

    EXPECT_EQ(StashPopProcessSignalHandler(), 0);

    EXPECT_TRUE(Logs().empty());
}
