/**
 * @file corvane_bringup.h
 * @brief Brings the analysis up and down, and turns configured values into running tasks and feature settings, after
 *        the last start-up step and when an operator changes one.
 *
 * Owns g_drmSwitch. Runs on the thread that called InitCorvane() or on a command worker; takes no lock of its own.
 * Except for CorvaneInitDrm() everything reports in the log only.
 */
#ifndef CORVANE_BRINGUP_H
#define CORVANE_BRINGUP_H

#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** The analysis as a whole; nothing reads it. */
extern CORVANE_API uint32_t g_drmSwitch;

/** @brief Step "DRM": framework and features. @retval 0xFFFFFFFF  A stage failed; those before it are undone. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneInitDrm(void) CORVANE_NOEXCEPT;
/** @brief Undo it. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneExitDrm(void) CORVANE_NOEXCEPT;
/** @brief Life monitor, prefail routine, slow disk detection. @retval 0xFFFFFFFF  One failed; none runs. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneInitDrmFeatures(void) CORVANE_NOEXCEPT;
/** @brief Stop them, last first. */
CORVANE_API void CorvaneExitDrmFeatures(void) CORVANE_NOEXCEPT;

/**
 * @brief Start collecting from the SPDK agent and the kernel agent and scanning for disks, if "feature_switch" is 1.
 *
 * Reports in the log only. If one of the three cannot be started, none of them keeps running.
 */
CORVANE_API void StartQueryAgentScheduleTask(void) CORVANE_NOEXCEPT;
/** @brief Give the features their switches and settings. What follows a value that cannot be read stays as built in. */
CORVANE_API void StartFeature(void) CORVANE_NOEXCEPT;
/** @brief Give slow disk detection the thresholds of each disk type, in the low 8 bits of the configured values. */
CORVANE_API void SetSlowDiskDetectConfig(void) CORVANE_NOEXCEPT;
/** @brief Turn the prefail routine on or off. @retval 0xFFFFFFFF  No memory, or the feature refused. */
CORVANE_NODISCARD CORVANE_API uint32_t SetDprSmartSwitch(int32_t value) CORVANE_NOEXCEPT;
/** @brief Give the prefail routine the cycle of each disk type. */
CORVANE_API void SetDprSmartConfig(void) CORVANE_NOEXCEPT;
/** @brief The analysis as a whole: writes 0 to g_drmSwitch, whatever the argument. @return always 0. */
CORVANE_API uint32_t DrmSetSwitch(uint8_t on) CORVANE_NOEXCEPT;
/** @brief Listen for new NVMe disks, or not, as "takeover_disk_switch" says. */
CORVANE_API void StartTakeOverDiskSwitch(void) CORVANE_NOEXCEPT;
/** @brief Listen for new NVMe disks to be handed to the SPDK agent, or stop acting on them. */
CORVANE_API void TakeOverDiskSwitch(bool on) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
