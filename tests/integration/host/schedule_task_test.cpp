#include "drm_abi.h"
#include "host_fixture.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::atomic<int> g_runs{0};
std::atomic<int> g_callbacks{0};
std::atomic<bool> g_hold{false};
std::atomic<pthread_t> g_entryThread;
std::atomic<pthread_t> g_callbackThread;
void *volatile g_entryArg = nullptr;
void *volatile g_callbackArg = nullptr;

void *Entry(void *arg)
{
    g_entryArg = arg;
    g_entryThread = pthread_self();
    g_runs++;
    while (g_hold) {
        std::this_thread::yield();
    }
    return reinterpret_cast<void *>(1); // not looked at
}

void *Callback(void *arg)
{
    g_callbackArg = arg;
    g_callbackThread = pthread_self();
    g_callbacks++;
    return nullptr;
}

class ScheduleTaskTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        ClearHostLines();
    }
    void TearDown() override { g_hold = false; }

    static lib::ScheduleTask Task(const char *name, uint8_t forever, uint32_t count, uint32_t periodMs = 1)
    {
        return {name, forever, count, 0, periodMs, Entry, &g_runs, Callback, &g_callbacks};
    }

    static std::vector<std::string> Names()
    {
        std::vector<std::string> names;
        for (const lib::ScheduleTaskNode *at = lib::Global<lib::ScheduleTaskNode>("g_scheduleTaskList").next;
             at != nullptr; at = at->next) {
            names.emplace_back(at->task->name);
        }
        return names;
    }
};

TEST_F(ScheduleTaskTest, ChecksTheDescriptionFirst)
{
    EXPECT_EQ(lib::SubmitScheduleTask(Task(nullptr, 1, 0)), 22u);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("", 1, 0)), 22u);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("t", 0, 0)), 22u);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("t", 2, 0)), 22u) << "only 1 is for ever";
    lib::ScheduleTask task = Task("t", 1, 0);
    task.entry = nullptr;
    EXPECT_EQ(lib::SubmitScheduleTask(task), 22u);
    EXPECT_THAT(HostLines(), IsEmpty());
    EXPECT_EQ(g_runs, 0);
}

TEST_F(ScheduleTaskTest, RunsItsNumberAndThenTheCallbackOnItsOwnThread)
{
    EXPECT_EQ(lib::SubmitScheduleTask(Task("three", 2, 3)), 0u);

    ASSERT_TRUE(WaitForHostLine("[UTIL]Task three end."));
    EXPECT_EQ(g_runs, 3);
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(g_entryArg, &g_runs);
    EXPECT_EQ(g_callbackArg, &g_callbacks);
    EXPECT_EQ(pthread_equal(g_entryThread, g_callbackThread), 1);
    EXPECT_EQ(pthread_equal(g_entryThread, pthread_self()), 0);
    EXPECT_EQ(HostLogged(7, "[UTIL]Task three submit success."), 1u);
    EXPECT_EQ(HostLogged(7, "[UTIL]Task three Start."), 1u);
    EXPECT_EQ(HostLogged(7, "[UTIL]Task three end."), 1u);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("three", 0, 1)), 0u) << "the name is free";
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task three end.", 2));
}

TEST_F(ScheduleTaskTest, NamesAreUniqueAndCopied)
{
    char name[] = "one";
    g_hold = true;
    ASSERT_EQ(lib::SubmitScheduleTask(Task(name, 0, 1)), 0u);
    name[0] = 'x';
    EXPECT_EQ(lib::SubmitScheduleTask(Task("one", 0, 1)), 114u);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("two", 0, 1)), 0u);

    const std::vector<std::string> names = Names();

    ASSERT_GE(names.size(), 2u);
    EXPECT_THAT(std::vector<std::string>(names.end() - 2, names.end()), ElementsAre("one", "two"));
    g_hold = false;
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task one end."));
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task two end."));
    EXPECT_EQ(g_runs, 2);
}

TEST_F(ScheduleTaskTest, CancelledInItsFirstDelayItStillRunsOnce)
{
    lib::ScheduleTask task = Task("late", 1, 0, 3600000);
    task.firstDelayMs = 300;
    ASSERT_EQ(lib::SubmitScheduleTask(task), 0u);

    EXPECT_EQ(lib::CancelScheduleTask("late"), 0u);
    EXPECT_EQ(lib::SubmitScheduleTask(task), 114u) << "the name is taken until the task has ended";

    EXPECT_TRUE(WaitForHostLine("[UTIL]Task late end."));
    EXPECT_EQ(g_runs, 1);
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(lib::CancelScheduleTask("late"), 2u);
}

TEST_F(ScheduleTaskTest, CancelledInItsPauseItRunsOnceMore)
{
    ASSERT_EQ(lib::SubmitScheduleTask(Task("again", 1, 0, 500)), 0u);
    ASSERT_TRUE(Eventually([] { return g_runs == 1; }));
    // The pause has begun or is about to; the flag is looked at behind the entry only.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));

    EXPECT_EQ(lib::CancelScheduleTask("again"), 0u);

    EXPECT_TRUE(WaitForHostLine("[UTIL]Task again end."));
    EXPECT_EQ(g_runs, 2);
}

TEST_F(ScheduleTaskTest, CancelAndRemovalOfUnknownNames)
{
    EXPECT_EQ(lib::CancelScheduleTask("none"), 2u);
    EXPECT_EQ(lib::RemoveTaskNodeByName("none"), 2u);
}

TEST_F(ScheduleTaskTest, ATaskThatIsNotInTheListEndsAllTheSame)
{
    g_hold = true;
    ASSERT_EQ(lib::SubmitScheduleTask(Task("lost", 0, 1)), 0u);
    ASSERT_EQ(lib::RemoveTaskNodeByName("lost"), 0u);
    g_hold = false;

    EXPECT_TRUE(WaitForHostLine("[UTIL]Task lost end."));
    EXPECT_EQ(HostLogged(3, "[UTIL]Remove Task Node from list Failed, ret = (2)."), 1u);
}

TEST_F(ScheduleTaskTest, StopAllEndsEveryTaskAfterItsRun)
{
    ASSERT_EQ(lib::SubmitScheduleTask(Task("a", 1, 0, 20)), 0u);
    ASSERT_EQ(lib::SubmitScheduleTask(Task("b", 1, 0, 20)), 0u);

    EXPECT_EQ(lib::DestroyScheduleTask(), 0u);

    EXPECT_TRUE(WaitForHostLine("[UTIL]Task a end."));
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task b end."));
    EXPECT_NE(lib::Global<void *>("g_scheduleTaskSpinLock"), nullptr);
}

uint32_t NoThread()
{
    return 0;
}

int g_freed = 0;

void CountFree(void *pointer)
{
    g_freed++;
    std::free(pointer);
}

TEST_F(ScheduleTaskTest, WithoutMemoryOrThreadNothingIsSubmitted)
{
    void **slots = lib::Global<void *[36]>("g_corvaneInfra");
    for (int i = 0; i < 36; i++) {
        if (slots[i] == lib::Address("CorvaneOsThreadCreate")) {
            slots[i] = reinterpret_cast<void *>(NoThread);
        }
    }
    void *const release = std::exchange(slots[1], reinterpret_cast<void *>(CountFree));
    const std::vector<std::string> before = Names();

    EXPECT_EQ(lib::SubmitScheduleTask(Task("none", 0, 1)), 12u);
    EXPECT_EQ(Names(), before);
    EXPECT_EQ(lib::SubmitScheduleTask(Task("none", 0, 1)), 12u) << "and the lock is free";
    EXPECT_EQ(g_freed, 0) << "the copies stay";
    slots[1] = release;
}

TEST_F(ScheduleTaskTest, InitMayBeCalledAgain)
{
    void *lock = lib::Global<void *>("g_scheduleTaskSpinLock");

    EXPECT_EQ(lib::InitScheduleTask(), 0u);

    EXPECT_EQ(HostLogged(4, "[UTIL]Schedule Task Util Already Initiated."), 1u);
    EXPECT_EQ(lib::Global<void *>("g_scheduleTaskSpinLock"), lock);
}

TEST_F(ScheduleTaskTest, TheBackupTaskIsOneOfThem)
{
    const lib::ScheduleTaskNode *at = lib::Global<lib::ScheduleTaskNode>("g_scheduleTaskList").next;
    while (at != nullptr && std::string(at->task->name) != "backup_user_config_task") {
        at = at->next;
    }

    ASSERT_NE(at, nullptr);
    EXPECT_EQ(at->stop, 0u);
    EXPECT_EQ(at->task->forever, 1u);
    EXPECT_EQ(at->task->repeatCount, 0u);
    EXPECT_EQ(at->task->firstDelayMs, 600000u);
    EXPECT_EQ(at->task->periodMs, 600000u);
}

class ScheduleTaskBeforeTheStartTest : public HostTest {};

TEST_F(ScheduleTaskBeforeTheStartTest, IsNotReady)
{
    Open();
    ASSERT_EQ(lib::Global<void *>("g_scheduleTaskSpinLock"), nullptr);
    lib::ScheduleTask task{"t", 1, 0, 0, 0, Entry, nullptr, nullptr, nullptr};

    EXPECT_EQ(lib::SubmitScheduleTask(task), 11u);
    EXPECT_EQ(lib::CancelScheduleTask("t"), 11u);
    EXPECT_EQ(lib::RemoveTaskNodeByName("t"), 11u);
    lib::StopAllScheduleTask();
    EXPECT_EQ(lib::DestroyScheduleTask(), 0u);
    task.entry = nullptr;
    EXPECT_EQ(lib::SubmitScheduleTask(task), 22u);
}

void *NoSpinlock()
{
    return nullptr;
}

TEST_F(ScheduleTaskTest, WithoutALockItIsNotReady)
{
    void **slots = lib::Global<void *[36]>("g_corvaneInfra");
    for (int i = 0; i < 36; i++) {
        if (slots[i] == lib::Address("CorvaneOsSpinlockCreate")) {
            slots[i] = reinterpret_cast<void *>(NoSpinlock);
        }
    }
    void *const locks[] = {lib::Global<void *>("g_scheduleTaskSpinLock"), lib::Global<void *>("g_HotPlugLock")};
    lib::Global<void *>("g_scheduleTaskSpinLock") = nullptr;
    lib::Global<void *>("g_HotPlugLock") = nullptr;

    EXPECT_EQ(lib::InitScheduleTask(), 12u);
    EXPECT_EQ(HostLogged(3, "[UTIL]g_scheduleTaskSpinLock SpinLock Create Failed."), 1u);
    EXPECT_EQ(lib::InitHotPlugLock(), 12u);
    lib::Global<void *>("g_scheduleTaskSpinLock") = locks[0];
    lib::Global<void *>("g_HotPlugLock") = locks[1];
}

} // namespace
