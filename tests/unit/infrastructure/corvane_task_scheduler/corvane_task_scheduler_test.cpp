#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <set>
#include <thread>

#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/** A thread that the frame wanted. */
struct WantedThread {
    CorvaneThreadFunc entry;
    CorvaneThreadFunc callback;
    CorvaneThreadParam param;
};

/** State of the doubles; one test runs at a time. */
struct Frame {
    std::vector<WantedThread> threads;
    bool noThread = false;
    bool lockedAtCreation = false;
    std::vector<std::thread> running; ///< of tests that want real ones
    std::vector<uint32_t> sleeps;     ///< milliseconds
    std::function<void(size_t)> onSleep;
    int allocations = 0;
    int failingAllocation = 0;
    std::multiset<void *> live;
    size_t freed = 0;
    void *(*realAlloc)(uint64_t) = nullptr;
    void (*realFree)(void *) = nullptr;
};
Frame *g_frame = nullptr;

bool LockIsHeld()
{
    if (!g_corvaneInfra.spinlockTryLock(g_scheduleTaskSpinLock)) {
        return true;
    }
    g_corvaneInfra.spinlockUnlock(g_scheduleTaskSpinLock);
    return false;
}

bool g_heldAtLog = false;

void LookAtLock(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...)
{
    g_heldAtLog = LockIsHeld();
}

uint64_t NoteThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    g_frame->lockedAtCreation = LockIsHeld();
    if (g_frame->noThread) {
        return 0;
    }
    g_frame->threads.push_back({entry, callback, param});
    return g_frame->threads.size();
}

uint64_t StartThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    g_frame->running.emplace_back([=] {
        (void)entry(param.entryArg);
        (void)callback(param.callbackArg);
    });
    return g_frame->running.size();
}

void NoteSleep(CorvaneTime time)
{
    EXPECT_EQ(time.timeUnit, static_cast<uint32_t>(CORVANE_TIME_MILLISECOND));
    g_frame->sleeps.push_back(time.value);
    if (g_frame->onSleep) {
        g_frame->onSleep(g_frame->sleeps.size());
    }
}

void *CountedAlloc(uint64_t size)
{
    if (++g_frame->allocations == g_frame->failingAllocation) {
        return nullptr;
    }
    void *memory = g_frame->realAlloc(size);
    g_frame->live.insert(memory);
    return memory;
}

void CountedFree(void *memory)
{
    g_frame->freed++;
    g_frame->live.erase(memory);
    g_frame->realFree(memory);
}

struct Counts {
    int runs = 0;
    int ends = 0;
    std::function<void()> onRun;
};

void *OneRun(void *arg)
{
    auto *counts = static_cast<Counts *>(arg);
    counts->runs++;
    if (counts->onRun) {
        counts->onRun();
    }
    return arg;
}

void End(void *arg)
{
    static_cast<Counts *>(arg)->ends++;
}

std::vector<std::string> Listed()
{
    std::vector<std::string> names;
    for (const ScheduleTaskNode *node = g_scheduleTaskList.next; node != nullptr; node = node->next) {
        names.emplace_back(node->task->name);
    }
    return names;
}

class BareScheduleTest : public CorvaneTest {
protected:
    BareScheduleTest()
    {
        g_frame = &frame_;
        g_scheduleTaskSpinLock = nullptr;
        g_scheduleTaskList.next = nullptr;
        g_corvaneInfra.threadCreate = NoteThread;
        g_corvaneInfra.threadSleep = NoteSleep;
    }
    ~BareScheduleTest() override
    {
        frame_.onSleep = nullptr;
        StopAllScheduleTask();
        while (!frame_.threads.empty()) {
            Finish();
        }
        EXPECT_THAT(Listed(), IsEmpty());
        if (g_scheduleTaskSpinLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_scheduleTaskSpinLock);
            g_scheduleTaskSpinLock = nullptr;
        }
        g_frame = nullptr;
    }
    /** Runs the oldest thread from its beginning to its end. */
    void Finish()
    {
        const WantedThread thread = frame_.threads.front();
        frame_.threads.erase(frame_.threads.begin());
        EXPECT_EQ(thread.entry(thread.param.entryArg), nullptr);
        EXPECT_EQ(thread.callback(thread.param.callbackArg), nullptr);
    }
    ScheduleTask Task(const char *name = "a task")
    {
        return {.name = name,
                .forever = 0,
                .repeatCount = 1,
                .firstDelayMs = 0,
                .periodMs = 70,
                .entry = OneRun,
                .entryArg = &counts_,
                .callback = End,
                .callbackArg = &counts_};
    }
    ScheduleTask Periodic(const char *name = "a task")
    {
        ScheduleTask task = Task(name);
        task.forever = 1;
        task.repeatCount = 0;
        return task;
    }

    Frame frame_;
    Counts counts_;
};

class ScheduleTest : public BareScheduleTest {
protected:
    ScheduleTest() { EXPECT_EQ(InitScheduleTask(), 0u); }
};

using InitScheduleTaskTest = BareScheduleTest;
using SubmitScheduleTaskTest = ScheduleTest;
using WarpedEntryFuncTest = ScheduleTest;
using CancelScheduleTaskTest = ScheduleTest;
using StopAllScheduleTaskTest = ScheduleTest;
using RemoveTaskNodeByNameTest = ScheduleTest;

} // namespace

TEST_F(InitScheduleTaskTest, MakesTheLockOnce)
{
    EXPECT_EQ(InitScheduleTask(), 0u);
    void *lock = g_scheduleTaskSpinLock;
    EXPECT_NE(lock, nullptr);
    EXPECT_TRUE(Logs().empty());

    EXPECT_EQ(InitScheduleTask(), 0u);

    EXPECT_EQ(g_scheduleTaskSpinLock, lock);
    EXPECT_EQ(LogCount(4, "UTIL", "Schedule Task Util Already Initiated."), 1u);
}

TEST_F(InitScheduleTaskTest, FailsWithoutALock)
{
    g_corvaneInfra.spinlockCreate = []() -> void * { return nullptr; };

    EXPECT_EQ(InitScheduleTask(), 12u);

    EXPECT_EQ(g_scheduleTaskSpinLock, nullptr);
    EXPECT_EQ(LogCount(3, "UTIL", "g_scheduleTaskSpinLock SpinLock Create Failed."), 1u);
}

TEST_F(InitScheduleTaskTest, NothingWorksBeforeIt)
{
    EXPECT_EQ(SubmitScheduleTask(Task()), 11u);
    EXPECT_EQ(SubmitScheduleTask(Task("")), 22u) << "the description is looked at first";
    EXPECT_EQ(CancelScheduleTask("a task"), 11u);
    EXPECT_EQ(CancelScheduleTask(nullptr), 11u);
    EXPECT_EQ(RemoveTaskNodeByName("a task"), 11u);
    StopAllScheduleTask();
    EXPECT_EQ(DestroyScheduleTask(), 0u);

    EXPECT_TRUE(frame_.threads.empty());
}

TEST_F(SubmitScheduleTaskTest, RefusesWhatCannotRun)
{
    ScheduleTask task = Task(nullptr);
    EXPECT_EQ(SubmitScheduleTask(task), 22u);
    task = Task("");
    EXPECT_EQ(SubmitScheduleTask(task), 22u);
    task = Task();
    task.entry = nullptr;
    EXPECT_EQ(SubmitScheduleTask(task), 22u);
    task = Task();
    task.repeatCount = 0;
    EXPECT_EQ(SubmitScheduleTask(task), 22u);
    task.forever = 2; // 1 alone is forever
    EXPECT_EQ(SubmitScheduleTask(task), 22u);

    EXPECT_TRUE(frame_.threads.empty());
    EXPECT_TRUE(Logs().empty()) << "the caller says so";
}

TEST_F(SubmitScheduleTaskTest, KeepsCopiesAndLinksAtTheTail)
{
    char name[] = "first";

    EXPECT_EQ(SubmitScheduleTask(Task(name)), 0u);
    std::strcpy(name, "other");
    EXPECT_EQ(SubmitScheduleTask(Task("second")), 0u);

    EXPECT_THAT(Listed(), ElementsAre("first", "second"));
    EXPECT_EQ(LogCount(7, "UTIL", "Task first submit success."), 1u);
    ASSERT_EQ(frame_.threads.size(), 2u);
    const WantedThread &thread = frame_.threads[0];
    EXPECT_EQ(thread.entry, WarpedEntryFunc);
    EXPECT_EQ(thread.callback, warpedCallBackFunc);
    EXPECT_EQ(thread.param.priority, 0u);
    EXPECT_EQ(thread.param.joinable, 0u);
    EXPECT_EQ(thread.param.entryArg, g_scheduleTaskList.next);
    EXPECT_EQ(thread.param.callbackArg, g_scheduleTaskList.next);
    EXPECT_EQ(g_scheduleTaskList.next->stop, 0u);
}

TEST_F(SubmitScheduleTaskTest, MakesTheThreadAndTellsOfItUnderTheLock)
{
    g_heldAtLog = false;
    g_corvaneInfra.log = LookAtLock;

    EXPECT_EQ(SubmitScheduleTask(Task()), 0u);

    EXPECT_TRUE(frame_.lockedAtCreation);
    EXPECT_TRUE(g_heldAtLog);
    EXPECT_FALSE(LockIsHeld());
}

TEST_F(SubmitScheduleTaskTest, RefusesANameTwiceAndLeavesTheFirstTask)
{
    ASSERT_EQ(SubmitScheduleTask(Task()), 0u);

    EXPECT_EQ(SubmitScheduleTask(Task()), 114u);

    EXPECT_EQ(frame_.threads.size(), 1u);
    EXPECT_THAT(Listed(), ElementsAre("a task"));
    EXPECT_FALSE(LockIsHeld());
    Finish();
    EXPECT_EQ(counts_.runs, 1);
    EXPECT_EQ(SubmitScheduleTask(Task()), 0u) << "a name is free when its task has ended";
}

TEST_F(SubmitScheduleTaskTest, GivesEverythingBackWhenMemoryIsShort)
{
    frame_.realAlloc = g_corvaneInfra.memAlloc;
    frame_.realFree = g_corvaneInfra.memFree;
    g_corvaneInfra.memAlloc = CountedAlloc;
    g_corvaneInfra.memFree = CountedFree;
    for (int failing = 1; failing <= 3; failing++) {
        frame_.allocations = 0;
        frame_.failingAllocation = failing;

        EXPECT_EQ(SubmitScheduleTask(Task()), 12u) << failing;

        EXPECT_TRUE(frame_.live.empty()) << failing;
        EXPECT_FALSE(LockIsHeld());
    }
    frame_.allocations = 0;
    frame_.failingAllocation = 4;

    EXPECT_EQ(SubmitScheduleTask(Task()), 0u);
    EXPECT_EQ(frame_.live.size(), 3u);

    Finish();
    EXPECT_TRUE(frame_.live.empty());
    EXPECT_TRUE(frame_.threads.empty());
}

TEST_F(SubmitScheduleTaskTest, KeepsTheCopiesWhenThereIsNoThread)
{
    frame_.realAlloc = g_corvaneInfra.memAlloc;
    frame_.realFree = g_corvaneInfra.memFree;
    g_corvaneInfra.memAlloc = CountedAlloc;
    g_corvaneInfra.memFree = CountedFree;
    frame_.noThread = true;

    EXPECT_EQ(SubmitScheduleTask(Task()), 12u);
    EXPECT_EQ(SubmitScheduleTask(Task()), 12u) << "the name is not taken";

    EXPECT_EQ(frame_.allocations, 6);
    EXPECT_EQ(frame_.freed, 0u) << "the node goes back without the table, the copies stay";
    EXPECT_THAT(Listed(), IsEmpty());
    EXPECT_FALSE(LockIsHeld());
    EXPECT_EQ(counts_.ends, 0);
    EXPECT_FALSE(Logged(7, "UTIL", "Task a task submit success."));
}

TEST_F(WarpedEntryFuncTest, RunsACountedTaskThatOftenWithPausesBetween)
{
    ScheduleTask task = Task();
    task.repeatCount = 3;
    ASSERT_EQ(SubmitScheduleTask(task), 0u);

    Finish();

    EXPECT_EQ(counts_.runs, 3);
    EXPECT_EQ(counts_.ends, 1);
    EXPECT_THAT(frame_.sleeps, ElementsAre(70u, 70u));
    EXPECT_THAT(Listed(), IsEmpty());
    EXPECT_EQ(LogCount(7, "UTIL", "Task a task Start."), 1u);
    EXPECT_EQ(LogCount(7, "UTIL", "Task a task end."), 1u);
}

TEST_F(WarpedEntryFuncTest, WaitsForTheFirstDelay)
{
    ScheduleTask task = Task();
    task.firstDelayMs = 100;
    frame_.onSleep = [&](size_t) {
        EXPECT_EQ(counts_.runs, 0);
        EXPECT_FALSE(Logged(7, "UTIL", "Task a task Start."));
    };
    ASSERT_EQ(SubmitScheduleTask(task), 0u);

    Finish();

    EXPECT_EQ(counts_.runs, 1);
    EXPECT_THAT(frame_.sleeps, ElementsAre(100u));
}

TEST_F(WarpedEntryFuncTest, NeedsNoCallback)
{
    ScheduleTask task = Task();
    task.callback = nullptr;
    ASSERT_EQ(SubmitScheduleTask(task), 0u);

    Finish();

    EXPECT_EQ(counts_.runs, 1);
    EXPECT_TRUE(Logged(7, "UTIL", "Task a task end."));
}

TEST_F(WarpedEntryFuncTest, RunsWithoutTheLock)
{
    counts_.onRun = [] { EXPECT_FALSE(LockIsHeld()); };
    ASSERT_EQ(SubmitScheduleTask(Task()), 0u);

    Finish();

    EXPECT_EQ(counts_.runs, 1);
}

TEST_F(WarpedEntryFuncTest, TellsThatItsNodeIsGone)
{
    ASSERT_EQ(SubmitScheduleTask(Task()), 0u);
    ASSERT_EQ(RemoveTaskNodeByName("a task"), 0u);

    Finish();

    EXPECT_EQ(LogCount(3, "UTIL", "Remove Task Node from list Failed, ret = (2)."), 1u);
    EXPECT_EQ(counts_.ends, 1) << "it ends all the same";
}

TEST_F(CancelScheduleTaskTest, LetsASleepingTaskRunOnceMore)
{
    frame_.onSleep = [](size_t sleep) {
        if (sleep == 2) {
            EXPECT_EQ(CancelScheduleTask("a task"), 0u);
            EXPECT_THAT(Listed(), ElementsAre("a task")) << "the name stays taken";
        }
    };
    ASSERT_EQ(SubmitScheduleTask(Periodic()), 0u);

    Finish();

    EXPECT_EQ(counts_.runs, 3);
    EXPECT_EQ(counts_.ends, 1);
    EXPECT_THAT(frame_.sleeps, ElementsAre(70u, 70u));
}

TEST_F(CancelScheduleTaskTest, LetsATaskInItsFirstDelayRunOnce)
{
    ScheduleTask task = Periodic();
    task.firstDelayMs = 9;
    ASSERT_EQ(SubmitScheduleTask(task), 0u);
    EXPECT_EQ(CancelScheduleTask("a task"), 0u);
    EXPECT_EQ(CancelScheduleTask("a task"), 0u);
    EXPECT_EQ(SubmitScheduleTask(task), 114u);

    Finish();

    EXPECT_EQ(counts_.runs, 1);
    EXPECT_THAT(frame_.sleeps, ElementsAre(9u));
}

TEST_F(CancelScheduleTaskTest, DoesNotKnowOtherNames)
{
    ASSERT_EQ(SubmitScheduleTask(Task()), 0u);

    EXPECT_EQ(CancelScheduleTask("a tas"), 2u);
    EXPECT_EQ(CancelScheduleTask(nullptr), 2u);

    EXPECT_EQ(g_scheduleTaskList.next->stop, 0u);
    EXPECT_FALSE(LockIsHeld());
}

TEST_F(StopAllScheduleTaskTest, StopsEveryTask)
{
    ASSERT_EQ(SubmitScheduleTask(Periodic("one")), 0u);
    ASSERT_EQ(SubmitScheduleTask(Periodic("two")), 0u);

    EXPECT_EQ(DestroyScheduleTask(), 0u);

    EXPECT_NE(g_scheduleTaskSpinLock, nullptr);
    EXPECT_THAT(Listed(), ElementsAre("one", "two"));
    Finish();
    Finish();
    EXPECT_EQ(counts_.runs, 2);
    EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(RemoveTaskNodeByNameTest, UnlinksOneOfMany)
{
    for (const char *name : {"one", "two", "three"}) {
        ASSERT_EQ(SubmitScheduleTask(Task(name)), 0u);
    }

    EXPECT_EQ(RemoveTaskNodeByName("two"), 0u);
    EXPECT_EQ(RemoveTaskNodeByName("two"), 2u);
    EXPECT_EQ(RemoveTaskNodeByName(nullptr), 2u);

    EXPECT_THAT(Listed(), ElementsAre("one", "three"));
}

TEST_F(SubmitScheduleTaskTest, ServesManyThreads)
{
    g_corvaneInfra.threadCreate = StartThread;
    static std::atomic<int> runs;
    runs = 0;
    ScheduleTask task = Task();
    task.callback = nullptr;
    task.repeatCount = 5;
    task.entry = [](void *) -> void * {
        runs++;
        return nullptr;
    };
    const auto submit = [&task](char letter) {
        for (char number = '0'; number <= '9'; number++) {
            const char name[] = {letter, number, '\0'};
            ScheduleTask mine = task;
            mine.name = name;
            EXPECT_EQ(SubmitScheduleTask(mine), 0u);
            (void)CancelScheduleTask("a0");
        }
    };
    // The threads' list is guarded by the frame's lock, which is held at their creation.
    g_corvaneInfra.threadSleep = [](CorvaneTime) { std::this_thread::yield(); };

    std::thread first(submit, 'a');
    std::thread second(submit, 'b');
    first.join();
    second.join();
    for (std::thread &thread : frame_.running) {
        thread.join();
    }

    EXPECT_THAT(Listed(), IsEmpty());
    EXPECT_GE(runs, 96);
    EXPECT_LE(runs, 100);
}
