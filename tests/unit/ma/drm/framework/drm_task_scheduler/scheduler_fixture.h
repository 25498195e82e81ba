/**
 * @file scheduler_fixture.h
 * @brief A started scheduler whose ticks, workers and analysers a test holds in its hand.
 */
#ifndef SCHEDULER_FIXTURE_H
#define SCHEDULER_FIXTURE_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <pthread.h>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"
#include "support/fake_host.h"

namespace scheduler_test {

constexpr std::chrono::seconds kBound{60};

/** One call of an analyser. */
struct AnalyserRun {
    uint32_t featureId;
    uint32_t kind;
    uint32_t codeHigh; /**< 0 for local runs */
    uint32_t code;
    bool operator==(const AnalyserRun &) const = default;
};

inline void PrintTo(const AnalyserRun &run, std::ostream *out)
{
    *out << "{feature " << run.featureId << ", kind " << run.kind << ", " << run.codeHigh << ", " << run.code << "}";
}

inline AnalyserRun LocalRun(uint32_t featureId, uint32_t code)
{
    return {featureId, DRM_ANALYSER_LOCAL, 0, code};
}

inline AnalyserRun MasterRun(uint32_t featureId, uint32_t code)
{
    return {featureId, DRM_ANALYSER_MASTER, code >> 16, code};
}

/** The runs so far, and the door that holds analysers of one feature and kind. */
class Journal {
public:
    void Reset()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        runs_.clear();
        held_ = false;
    }

    /** What an analyser does: note the run, then wait while the door is shut. */
    void Note(const AnalyserRun &run)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        runs_.push_back(run);
        changed_.notify_all();
        const bool passed = changed_.wait_for(
            guard, kBound, [&] { return !held_ || run.featureId != heldFeature_ || run.kind != heldKind_; });
        EXPECT_TRUE(passed) << "nobody opened the door";
    }

    void Hold(uint32_t featureId, uint32_t kind)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        held_ = true;
        heldFeature_ = featureId;
        heldKind_ = kind;
    }

    void Release()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        held_ = false;
        changed_.notify_all();
    }

    /** Waits until so many runs have begun. */
    bool WaitForRuns(size_t count)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, kBound, [&] { return runs_.size() >= count; });
    }

    std::vector<AnalyserRun> Runs()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return runs_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<AnalyserRun> runs_;
    bool held_ = false;
    uint32_t heldFeature_ = 0;
    uint32_t heldKind_ = 0;
};

/** Stands behind g_osCalls.threadCreate: real threads, counted, refused or held before their first step. */
class Workers {
public:
    void Reset()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        started_ = 0;
        refuse_ = false;
        hold_ = false;
    }

    int Create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg)
    {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (refuse_) {
                return EAGAIN;
            }
            started_++;
            active_++;
        }
        auto *start = new Start{this, entry, arg};
        const int result = pthread_create(thread, attributes, Main, start);
        if (result != 0) {
            delete start;
            Ended();
        }
        return result;
    }

    void Refuse(bool refuse)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        refuse_ = refuse;
    }

    void Hold(bool hold)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        hold_ = hold;
        changed_.notify_all();
    }

    uint32_t Started()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return started_;
    }

    /** Waits until every worker has ended. */
    bool WaitIdle()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, kBound, [&] { return active_ == 0; });
    }

private:
    struct Start {
        Workers *workers;
        void *(*entry)(void *);
        void *arg;
    };

    static void *Main(void *context)
    {
        auto *start = static_cast<Start *>(context);
        start->workers->WaitForGo();
        void *result = start->entry(start->arg);
        start->workers->Ended();
        delete start;
        return result;
    }

    void WaitForGo()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        EXPECT_TRUE(changed_.wait_for(guard, kBound, [&] { return !hold_; })) << "nobody let the worker go";
    }

    void Ended()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        active_--;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    uint32_t started_ = 0;
    uint32_t active_ = 0;
    bool refuse_ = false;
    bool hold_ = false;
};

/** Both outlive every worker. */
inline Journal &TheJournal()
{
    static auto *journal = new Journal;
    return *journal;
}

inline Workers &TheWorkers()
{
    static auto *workers = new Workers;
    return *workers;
}

template <uint32_t FeatureId>
uint32_t Local(uint32_t code)
{
    TheJournal().Note({FeatureId, DRM_ANALYSER_LOCAL, 0, code});
    return 1; // nobody looks at it
}

template <uint32_t FeatureId>
uint32_t Master(uint32_t codeHigh, uint32_t code)
{
    TheJournal().Note({FeatureId, DRM_ANALYSER_MASTER, codeHigh, code});
    return 1;
}

class SchedulerTest : public FakeHostTest {
protected:
    SchedulerTest()
    {
        TheJournal().Reset();
        TheWorkers().Reset();
        g_osCalls.threadCreate = [](pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                                    void *arg) { return TheWorkers().Create(thread, attributes, entry, arg); };
        EXPECT_EQ(DrmMemMgrInit(), DRM_OK);
        EXPECT_EQ(DrmTaskSchedulerInit(), DRM_OK);
        ClearHostLog();
    }

    ~SchedulerTest() override
    {
        TheJournal().Release();
        TheWorkers().Hold(false);
        EXPECT_TRUE(TheWorkers().WaitIdle());
        EXPECT_EQ(DrmTaskSchedulerFin(), DRM_OK);
        EXPECT_EQ(HeapBlocks(), 0);
        EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
    }

    static void Register(uint32_t featureId, DrmLocalAnalyserFunc local, uint32_t localCycle,
                         DrmMasterAnalyserFunc master, uint32_t masterCycle)
    {
        ASSERT_EQ(DrmRegisterAnalyser(featureId, local, localCycle, master, masterCycle, DRM_SCHEDULE_SEPERATE),
                  DRM_OK);
    }

    /** One tick and everything that it starts. @return the runs it led to. */
    static std::vector<AnalyserRun> Tick()
    {
        const size_t before = TheJournal().Runs().size();
        DrmTaskSchedulerTimerHandler(nullptr);
        EXPECT_TRUE(TheWorkers().WaitIdle());
        const std::vector<AnalyserRun> runs = TheJournal().Runs();
        return {runs.begin() + static_cast<std::ptrdiff_t>(before), runs.end()};
    }

    /** The ticks out of the first @p count that led to runs. */
    static std::vector<uint32_t> BusyTicks(uint32_t count)
    {
        std::vector<uint32_t> busy;
        for (uint32_t tick = 1; tick <= count; tick++) {
            if (!Tick().empty()) {
                busy.push_back(tick);
            }
        }
        return busy;
    }

    /** Waits for the workers. @return all runs. */
    static std::vector<AnalyserRun> AllRuns()
    {
        EXPECT_TRUE(TheWorkers().WaitIdle());
        return TheJournal().Runs();
    }
};

} // namespace scheduler_test

#endif
