/**
 * @file verdicts_test.cpp
 * @brief Each verdict arrives at the disk that it is for, in the time that the cycles allow, and at no other disk.
 */
#include "verdicts_fixture.h"

#include <algorithm>
#include <cstdio>

using ::testing::ContainerEq;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

constexpr uint32_t kSampleTicks = 3; // of slow disk detection: on ticks 1, 4, 7 and so on
constexpr uint32_t kTickMs = 1000;

constexpr uint32_t kMostMarksOfOthers = 4;
constexpr uint32_t kMarksUntilSeen = 10; // a status a second, and the shell's answer, under load
constexpr int kPatience = 200;           // statuses, one a second; bounds a wait, decides nothing

using Arrivals = std::map<std::string, uint64_t>; ///< ticks, by serial number

const char *StateNumber(const std::string &state)
{
    return state == "fault" ? "state 1" : state == "prefail" ? "state 3" : "state 4";
}

/** The next tick after @p now on which a cycle has come round. */
uint64_t NextRound(uint64_t now, uint32_t cycle)
{
    return (now / cycle + 1) * cycle;
}

/** The tick of the sample that brings this many marks, if every sample after @p now brings one. */
uint64_t TickOfMark(uint64_t now, uint32_t marks)
{
    const uint64_t samplesSoFar = (now + kSampleTicks - 1) / kSampleTicks;
    return (samplesSoFar + marks - 1) * kSampleTicks + 1;
}

/** The tick on which the verdict is due if the trouble began after @p now. */
uint64_t DueTick(const ExpectedDisk &disk, const VerdictSettings &settings, uint64_t now)
{
    if (disk.state == "slow") {
        return TickOfMark(now, settings.minSlowCycle[disk.type]);
    }
    return NextRound(now, disk.worn.empty() ? settings.prefailCycle[disk.type] : settings.lifeCycle);
}

} // namespace

class VerdictRunTest : public VerdictsTest {
protected:
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
            EXPECT_THAT(told, Contains(StateNumber(disk.state))) << disk.serial;
            ASSERT_THAT(told, Not(IsEmpty())) << disk.serial;
            EXPECT_THAT(told.back(), HasSubstr('"' + disk.strategy + '"')) << disk.serial;
        }
    }
};

/** Ticks that the test gives: each verdict has its tick, whatever the machine. */
class VerdictTickTest : public VerdictRunTest {
protected:
    /** The fleet in trouble, all of it collected, and everything that is due still to come. */
    void StartInTrouble(const VerdictSettings *settings)
    {
        ASSERT_NO_FATAL_FAILURE(Start("verdicts", settings, Clock::TEST));
        ASSERT_EQ(TickPeriodMs(), kTickMs);
        ASSERT_NO_FATAL_FAILURE(Ticks(kTicksOfAHealthyFleet));
        ASSERT_THAT(StoredStates(), Each(::testing::Pair(::testing::_, "normal")));
        ASSERT_NO_FATAL_FAILURE(BeginTrouble());
        ASSERT_NO_FATAL_FAILURE(WaitUntilCollected());
        ASSERT_EQ(TickPeriodMs(), kTickMs);
    }

    [[nodiscard]] Arrivals DueTicks(const VerdictSettings &settings) const
    {
        Arrivals due;
        for (const ExpectedDisk &disk : Disks()) {
            if (disk.state != "normal") {
                due[disk.serial] = DueTick(disk, settings, TicksGiven());
            }
        }
        return due;
    }

    /** Looks which verdicts have come. A disk that turned slow has as many marks as its setting says. */
    void Look(const VerdictSettings &settings, Arrivals &arrivals)
    {
        const std::map<std::string, std::string> states = StoredStates();
        for (const ExpectedDisk &disk : Disks()) {
            const std::string state = states.count(disk.serial) != 0 ? states.at(disk.serial) : "gone";
            if (state == "normal" || arrivals.count(disk.serial) != 0) {
                continue;
            }
            ASSERT_EQ(state, disk.state) << disk.serial << ", tick " << TicksGiven();
            arrivals[disk.serial] = TicksGiven();
            if (state == "slow") {
                EXPECT_EQ(MarkedSamples(disk.serial), settings.minSlowCycle[disk.type]) << disk.serial;
            }
        }
    }

    /** Gives ticks one by one. */
    void WatchUntil(uint64_t tick, const VerdictSettings &settings, Arrivals &arrivals)
    {
        while (TicksGiven() < tick) {
            ASSERT_NO_FATAL_FAILURE(Ticks(1));
            ASSERT_NO_FATAL_FAILURE(Look(settings, arrivals));
        }
    }

    static constexpr uint64_t kTicksOfAHealthyFleet = 6; ///< members of their zones at 1, a first sample, a first life
};

/** No settings file, and a day of ticks, since a life is predicted when the disk comes and then a day later. */
TEST_F(VerdictTickTest, EveryVerdictComesWithTheDefaultSettings)
{
    ASSERT_NO_FATAL_FAILURE(StartInTrouble(nullptr));
    const Arrivals due = DueTicks(kDefaultSettings);
    Arrivals arrivals;

    ASSERT_NO_FATAL_FAILURE(WatchUntil(kSampleTicks * 60, kDefaultSettings, arrivals));
    ExpectNoMarksButOfSlowDisks(0);
    ASSERT_NO_FATAL_FAILURE(Ticks(kDefaultSettings.lifeCycle - 1 - TicksGiven()));
    ASSERT_NO_FATAL_FAILURE(Look(kDefaultSettings, arrivals));
    ASSERT_NO_FATAL_FAILURE(WatchUntil(kDefaultSettings.lifeCycle, kDefaultSettings, arrivals));

    ASSERT_THAT(arrivals, ContainerEq(due));
    ExpectNoMarksButOfSlowDisks(0);
    ExpectVerdictsOfTheScenario();
    ExpectTheDataAgentToKnow();
}

TEST_F(VerdictTickTest, EveryVerdictComesByTheCyclesOfItsType)
{
    const VerdictSettings settings{.minSlowCycle = {10, 11, 12, 13}, .prefailCycle = {10, 15, 25, 40}, .lifeCycle = 35};
    ASSERT_NO_FATAL_FAILURE(StartInTrouble(&settings));
    const Arrivals due = DueTicks(settings);
    Arrivals arrivals;

    ASSERT_NO_FATAL_FAILURE(WatchUntil(kSampleTicks * 20, settings, arrivals));

    ASSERT_THAT(arrivals, ContainerEq(due));
    ExpectNoMarksButOfSlowDisks(0);
    ExpectVerdictsOfTheScenario();
    ExpectTheDataAgentToKnow();
}

/** The program itself, with the seconds of its own timer: when a verdict comes depends on the machine. */
class VerdictProgramTest : public VerdictRunTest {
protected:
    static constexpr VerdictSettings kShortCycles{
        .minSlowCycle = {10, 10, 10, 10}, .prefailCycle = {5, 5, 5, 5}, .lifeCycle = 5};

    /** Watches until every verdict has come. Fails at one that is for a healthy disk, or that has too many marks. */
    void WatchVerdicts(const VerdictSettings &settings)
    {
        std::map<std::string, int> arrivals;
        const auto awaited = std::count_if(Disks().begin(), Disks().end(),
                                           [](const ExpectedDisk &disk) { return disk.state != "normal"; });
        ASSERT_GT(awaited, 0);
        for (int statuses = 1; arrivals.size() < static_cast<size_t>(awaited); statuses++) {
            ASSERT_LE(statuses, kPatience) << "only " << arrivals.size() << " of " << awaited << " verdicts came";
            const CJsonPtr status = NextStatus();
            ASSERT_NE(status, nullptr);
            for (const ExpectedDisk &disk : Disks()) {
                const std::string state = TextOf(FindDisk(status.get(), disk.serial), "state");
                if (disk.state == "normal") {
                    ASSERT_EQ(state, "normal") << disk.serial << " is healthy";
                } else if (state == disk.state && arrivals.emplace(disk.serial, statuses).second) {
                    ExpectMarks(disk, settings);
                } else if (arrivals.count(disk.serial) == 0) {
                    // On its way to its last day a disk is prefail for a while.
                    ASSERT_TRUE(state == "normal" || (disk.state == "fault" && state == "prefail"))
                        << disk.serial << state;
                }
            }
        }
    }

    /** Lets the run go on until the windows hold this many marks of each slow disk. */
    void WatchUntilMarked(uint32_t marks)
    {
        int statuses = 0;
        for (const ExpectedDisk &disk : Disks()) {
            while (disk.state == "slow" && MarkedSamples(disk.serial) < marks) {
                ASSERT_LE(++statuses, kPatience) << disk.serial;
                ASSERT_NE(NextStatus(), nullptr);
            }
        }
    }

private:
    void ExpectMarks(const ExpectedDisk &disk, const VerdictSettings &settings)
    {
        if (disk.state == "slow") {
            const uint32_t marks = MarkedSamples(disk.serial);
            EXPECT_GE(marks, settings.minSlowCycle[disk.type]) << disk.serial;
            EXPECT_LE(marks, settings.minSlowCycle[disk.type] + kMarksUntilSeen) << disk.serial;
        }
    }
};

TEST_F(VerdictProgramTest, EveryVerdictComes)
{
    ASSERT_NO_FATAL_FAILURE(Start("verdicts", &kShortCycles, Clock::PROGRAM));

    ASSERT_NO_FATAL_FAILURE(BeginTrouble());
    ASSERT_NO_FATAL_FAILURE(WatchVerdicts(kShortCycles));
    ASSERT_NO_FATAL_FAILURE(WatchUntilMarked(15));

    ExpectNoMarksButOfSlowDisks(kMostMarksOfOthers);
    ExpectVerdictsOfTheScenario();
    ExpectTheDataAgentToKnow();
}

/** Only the disk that is slow without doubt is marked; at most once another, from a sample between two events. */
TEST_F(VerdictProgramTest, DisksThatAreNearlySlowStayHealthy)
{
    ASSERT_NO_FATAL_FAILURE(Start("near-misses", &kShortCycles, Clock::PROGRAM));

    ASSERT_NO_FATAL_FAILURE(BeginTrouble());
    ASSERT_NO_FATAL_FAILURE(WatchVerdicts(kShortCycles));
    ASSERT_NO_FATAL_FAILURE(WatchUntilMarked(15));

    ExpectNoMarksButOfSlowDisks(1);
    ExpectVerdictsOfTheScenario();
}
