/**
 * @file verdicts_fixture.h
 * @brief A node with a simulated fleet: corvaned and corvane-sim as processes, with folders and sockets of their own.
 *
 * The events of a scenario are told to the simulator when every disk is online and has its records, not by the
 * scenario's own clock: so a slow start of a loaded machine does not shorten the time in which a verdict is due.
 *
 * The cycles of the verdicts are counted in ticks of the analysis. So a run that is about cycles has verdicts_corvaned,
 * the program with ticks that come when the test says so: a day passes in seconds, and a slow machine changes nothing.
 */
#ifndef VERDICTS_FIXTURE_H
#define VERDICTS_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"
#include "support/child_process.h"
#include "verdicts_seams.h"

/** The settings that decide when a verdict comes. Arrays: SATA SSD, SAS SSD, NVMe, SAS HDD. */
struct VerdictSettings {
    std::array<uint32_t, 4> minSlowCycle; /**< marked samples of a slow disk */
    std::array<uint32_t, 4> prefailCycle; /**< ticks between two looks of the prefail routine */
    uint32_t lifeCycle;                   /**< ticks between two predictions */
};
inline constexpr VerdictSettings kDefaultSettings{
    .minSlowCycle = {50, 50, 50, 50}, .prefailCycle = {20, 20, 20, 20}, .lifeCycle = 86400};

/** Who gives the ticks of the analysis. */
enum class Clock {
    PROGRAM, /**< corvaned itself, one a second */
    TEST,    /**< the test, by Ticks() */
};

/** A disk of the scenario. */
struct ExpectedDisk {
    std::string serial;
    size_t type; /**< index into the arrays of the settings */
    std::string state;
    std::string strategy;
    std::optional<int> life; /**< hours */
    std::string worn;        /**< of a disk that wears: the wear at which it ends, as the status prints it */
    std::string device;
};

class VerdictsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    /**
     * Simulator and service, until all disks are online with all their records and a state of "normal".
     * @param settings  Null: there is no settings file.
     */
    void Start(const std::string &scenario, const VerdictSettings *settings, Clock clock);
    /** All events of the scenario, at once. */
    void BeginTrouble();
    /** Until what the events changed has reached the records: counters of two frames, and wear that has ended. */
    void WaitUntilCollected();
    /** Gives this many ticks of the analysis, and waits until everything that they started has ended. */
    void Ticks(uint64_t count);
    [[nodiscard]] uint64_t TicksGiven() const { return seams_->given; }
    [[nodiscard]] uint32_t TickPeriodMs() const { return seams_->periodMs; }
    /** The states as the registry holds them, by serial number. They are saved within the run that finds them. */
    static std::map<std::string, std::string> StoredStates();
    /** Waits for one more status of corvaned. @return it, or null (and a failure) if it ended or fell silent. */
    CJsonPtr NextStatus();
    /** Ends corvaned once its status shows what is expected; the simulator compares its last status with the scenario.
     */
    void ExpectVerdictsOfTheScenario();

    [[nodiscard]] const std::vector<ExpectedDisk> &Disks() const { return disks_; }
    /** The marked samples in a disk's window, as the debug shell shows them. */
    uint32_t MarkedSamples(const std::string &serial);
    /** The states and strategies that the data agent was told of a disk, in order. */
    static std::vector<std::string> ToldToTheDataAgent(const std::string &serial);

    /** @return null if the disk is not online. */
    static const cJSON *FindDisk(const cJSON *status, const std::string &serial);
    static std::string TextOf(const cJSON *object, const char *name);

private:
    void ReadScenario(const std::string &name);
    void StartService(Clock clock);
    /** Until what every disk's agent says from now on has reached the records. */
    void WaitForAnswers();
    /** Whether every disk is in the status and fits. */
    bool AllFit(const cJSON *status, const std::function<bool(const cJSON *disk, const ExpectedDisk &expected)> &fits);
    /** Requests of a method that the agents had for each device. */
    static std::map<std::string, uint32_t> RequestsOf(const std::string &method);

    static inline std::string problem_;
    static inline std::map<std::string, std::string> scenarios_;
    std::vector<ExpectedDisk> disks_;
    std::vector<std::string> events_;
    std::map<std::string, int> ids_;
    std::unique_ptr<ChildProcess> sim_;
    std::unique_ptr<ChildProcess> corvaned_;
    VerdictsSeams *seams_ = nullptr;
};

#endif
