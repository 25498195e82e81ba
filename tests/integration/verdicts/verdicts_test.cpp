/**
 * @file verdicts_test.cpp
 * @brief Each verdict arrives at the disk that it is for, in the time that the cycles allow, and at no other disk.
 */
#include "verdicts_fixture.h"

#include <cstdio>

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

constexpr uint32_t kSampleSeconds = 3;  // of slow disk detection, and of the collection of records
constexpr uint32_t kMonitorSeconds = 5; // between two runs of the prefail routine and of the life monitor
constexpr uint32_t kWearSeconds = 15;   // the scenario's disks need that long to wear
constexpr uint32_t kMostMarksOfOthers = 4;
constexpr uint32_t kMarksUntilSeen = 10; // a status a second, and the shell's answer, under load
constexpr double kLoadedMachine = 40;    // seconds

const char *StateNumber(const std::string &state)
{
    return state == "fault" ? "state 1" : state == "prefail" ? "state 3" : "state 4";
}

/** Seconds after the trouble began in which the verdict is due. */
double BoundOf(const ExpectedDisk &disk, const VerdictSettings &settings)
{
    const bool wears = disk.serial.find("-LIFE-") != std::string::npos;
    const uint32_t cycles = disk.state == "slow" ? kSampleSeconds * (settings.minSlowCycle + 1)
                            : wears              ? kWearSeconds + settings.lifeCycle + kMonitorSeconds
                                                 : settings.prefailCycle + kMonitorSeconds;
    return kSampleSeconds + cycles + kLoadedMachine;
}

} // namespace

class VerdictRunTest : public VerdictsTest {
protected:
    /** Watches until every verdict has come. Fails at the first that is late, or that is for a healthy disk. */
    void WatchVerdicts(const VerdictSettings &settings)
    {
        std::map<std::string, double> arrivals;
        size_t awaited = 0;
        for (const ExpectedDisk &disk : Disks()) {
            awaited += disk.state != "normal" ? 1U : 0U;
        }
        ASSERT_GT(awaited, 0u);
        while (arrivals.size() < awaited) {
            const CJsonPtr status = NextStatus();
            ASSERT_NE(status, nullptr);
            for (const ExpectedDisk &disk : Disks()) {
                const std::string state = TextOf(FindDisk(status.get(), disk.serial), "state");
                if (disk.state == "normal") {
                    ASSERT_EQ(state, "normal") << disk.serial << " is healthy";
                } else if (arrivals.count(disk.serial) == 0) {
                    ASSERT_NO_FATAL_FAILURE(CheckAwaited(disk, state, settings, arrivals));
                }
            }
        }
    }

    /** Lets the run go on until the windows hold this many marks of each slow disk. */
    void WatchUntilMarked(uint32_t marks)
    {
        for (const ExpectedDisk &disk : Disks()) {
            while (disk.state == "slow" && MarkedSamples(disk.serial) < marks) {
                ASSERT_LT(SinceTrouble().count(), kSampleSeconds * marks + 3 * kLoadedMachine) << disk.serial;
                ASSERT_NE(NextStatus(), nullptr);
            }
        }
    }

    void ExpectNoMarksButOfSlowDisks(uint32_t most)
    {
        for (const ExpectedDisk &disk : Disks()) {
            if (disk.state != "slow") {
                EXPECT_LE(MarkedSamples(disk.serial), most) << disk.serial;
            }
        }
    }

    void ExpectTheDataAgentToKnow()
    {
        for (const ExpectedDisk &disk : Disks()) {
            const std::vector<std::string> told = ToldToTheDataAgent(disk.serial);
            if (disk.state == "normal") {
                EXPECT_THAT(told, Each(Not(HasSubstr("state ")))) << disk.serial;
                EXPECT_THAT(told, Each(Not(HasSubstr("eplace")))) << disk.serial;
                continue;
            }
            EXPECT_THAT(told, ::testing::Contains(StateNumber(disk.state))) << disk.serial;
            ASSERT_THAT(told, Not(IsEmpty())) << disk.serial;
            EXPECT_THAT(told.back(), HasSubstr('"' + disk.strategy + '"')) << disk.serial;
        }
    }

private:
    void CheckAwaited(const ExpectedDisk &disk, const std::string &state, const VerdictSettings &settings,
                      std::map<std::string, double> &arrivals)
    {
        const double seconds = SinceTrouble().count();
        if (state != disk.state) {
            ASSERT_LT(seconds, BoundOf(disk, settings)) << disk.serial << " is still " << state;
            ASSERT_TRUE(state == "normal" || (disk.state == "fault" && state == "prefail")) << disk.serial << state;
            return;
        }
        arrivals[disk.serial] = seconds;
        std::string marks;
        if (state == "slow") {
            const uint32_t count = MarkedSamples(disk.serial);
            EXPECT_GE(count, settings.minSlowCycle) << disk.serial;
            EXPECT_LE(count, settings.minSlowCycle + kMarksUntilSeen) << disk.serial;
            marks = ", marked samples: " + std::to_string(count);
        }
        std::printf("%-26s %-8s after %6.1f s%s\n", disk.serial.c_str(), state.c_str(), seconds, marks.c_str());
    }
};

TEST_F(VerdictRunTest, EveryVerdictComesWithTheDefaultSettings)
{
    const VerdictSettings settings;
    ASSERT_NO_FATAL_FAILURE(Start("verdicts", settings));

    ASSERT_NO_FATAL_FAILURE(BeginTrouble());
    ASSERT_NO_FATAL_FAILURE(WatchVerdicts(settings));

    ExpectNoMarksButOfSlowDisks(kMostMarksOfOthers);
    ExpectVerdictsOfTheScenario();
    ExpectTheDataAgentToKnow();
}

TEST_F(VerdictRunTest, EveryVerdictComesEarlierWithShorterCycles)
{
    const VerdictSettings settings{.minSlowCycle = 10, .prefailCycle = 5};
    ASSERT_NO_FATAL_FAILURE(Start("verdicts", settings));

    ASSERT_NO_FATAL_FAILURE(BeginTrouble());
    ASSERT_NO_FATAL_FAILURE(WatchVerdicts(settings));
    ASSERT_NO_FATAL_FAILURE(WatchUntilMarked(settings.minSlowCycle + 5));

    ExpectNoMarksButOfSlowDisks(kMostMarksOfOthers);
    ExpectVerdictsOfTheScenario();
    ExpectTheDataAgentToKnow();
}

/** Only the disk that is slow without doubt is marked; at most once another, from a sample between two events. */
TEST_F(VerdictRunTest, DisksThatAreNearlySlowStayHealthy)
{
    const VerdictSettings settings{.minSlowCycle = 10};
    ASSERT_NO_FATAL_FAILURE(Start("near-misses", settings));

    ASSERT_NO_FATAL_FAILURE(BeginTrouble());
    ASSERT_NO_FATAL_FAILURE(WatchVerdicts(settings));
    ASSERT_NO_FATAL_FAILURE(WatchUntilMarked(settings.minSlowCycle + 5));

    ExpectNoMarksButOfSlowDisks(1);
    ExpectVerdictsOfTheScenario();
}
