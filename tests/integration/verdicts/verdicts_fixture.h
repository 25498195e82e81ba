/**
 * @file verdicts_fixture.h
 * @brief A node with a simulated fleet: corvaned and corvane-sim as processes, with folders and sockets of their own.
 *
 * The events of a scenario are told to the simulator when every disk is online and has its records, not by the
 * scenario's own clock: so a slow start of a loaded machine does not shorten the time in which a verdict is due.
 */
#ifndef VERDICTS_FIXTURE_H
#define VERDICTS_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_raii.h"
#include "support/child_process.h"

/** What a run changes of the default settings. */
struct VerdictSettings {
    uint32_t minSlowCycle = 50; /**< marked samples of a slow disk, of every type */
    uint32_t prefailCycle = 20; /**< seconds between two looks of the prefail routine, at every type */
    /**
     * A life predicted before the first health record is that of an unworn disk, and the next prediction comes a cycle
     * later. With the default, a day, a run would wait for it until tomorrow: here every run of the monitor predicts.
     */
    uint32_t lifeCycle = 5;
};

/** A disk of the scenario. */
struct ExpectedDisk {
    std::string serial;
    std::string type;
    std::string state;
    std::string strategy;
    bool hasLife = false;
};

class VerdictsTest : public ::testing::Test {
protected:
    using Seconds = std::chrono::duration<double>;

    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    /** Simulator and service, until all disks are online with all their records and a state of "normal". */
    void Start(const std::string &scenario, const VerdictSettings &settings);
    /** All events of the scenario, at once. */
    void BeginTrouble();
    [[nodiscard]] Seconds SinceTrouble() const { return std::chrono::steady_clock::now() - began_; }
    /** Waits for one more status of corvaned. @return it, or null (and a failure) if it ended or fell silent. */
    CJsonPtr NextStatus();
    /** Ends corvaned; the simulator compares its last status with the scenario. */
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

    static inline std::string problem_;
    static inline std::map<std::string, std::string> scenarios_;
    std::vector<ExpectedDisk> disks_;
    std::vector<std::string> events_;
    std::map<std::string, int> ids_;
    std::unique_ptr<ChildProcess> sim_;
    std::unique_ptr<ChildProcess> corvaned_;
    std::chrono::steady_clock::time_point began_;
};

#endif
