/**
 * @file drm_task_scheduler_main.h
 * @brief When the features run: the registrations, and the tick of 1000 ms that asks each whether it is due.
 *
 * Owns the table of registrations, under a lock of its own that is held neither while an analyser runs nor while a
 * worker is started. Registrations and triggers may come from any thread, also under g_dataMgrLock. The tick runs on
 * the host's timer thread.
 */
#ifndef DRM_TASK_SCHEDULER_MAIN_H
#define DRM_TASK_SCHEDULER_MAIN_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DRM_SCHEDULE_TICK_MS 1000u

enum DrmScheduleMode {
    DRM_SCHEDULE_SEPERATE = 0, /**< a worker for each feature and analyser kind */
    DRM_SCHEDULE_RESERVED = 1, /**< no functions: cannot be registered */
    DRM_SCHEDULE_NONE = 3,     /**< not registered */
};

/** @param code enum DrmAnalysisCode. The result is not looked at. */
typedef uint32_t (*DrmLocalAnalyserFunc)(uint32_t code);
/** @param codeHigh The upper 16 bits of the code. @param code The whole code. The result is not looked at. */
typedef uint32_t (*DrmMasterAnalyserFunc)(uint32_t codeHigh, uint32_t code);

/** What a feature registers. 32 bytes. */
typedef struct DrmBaseScheduleTaskItem {
    uint32_t featureId;    /**< the row's index once registered, DRM_INVALID before */
    uint32_t scheduleMode; /**< enum DrmScheduleMode */
    uint32_t localCycle;   /**< ticks between local runs; 0 and 1: none */
    uint32_t masterCycle;  /**< ticks between master runs; 0: none */
    DrmLocalAnalyserFunc localAnalyser;
    DrmMasterAnalyserFunc masterAnalyser;
} DrmBaseScheduleTaskItem;

/** @brief Start with no registrations and start the tick. @retval DRM_ERR_FAIL  No timer. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTaskSchedulerInit(void) CORVANE_NOEXCEPT;
/** @brief End the tick. Queued work and running workers are not waited for. @return always 0. */
CORVANE_API uint32_t DrmTaskSchedulerFin(void) CORVANE_NOEXCEPT;

/**
 * @brief Register a feature, or add the analyser that it did not have; what is registered stays.
 * @param featureId       0..31.
 * @param localAnalyser   May be null.
 * @param localCycle      Seconds between local runs, which fall on the tick after its multiples.
 * @param masterAnalyser  May be null.
 * @param masterCycle     Seconds between master runs, which fall on its multiples.
 * @param scheduleMode    enum DrmScheduleMode.
 * @retval DRM_ERR_FAIL  Bad identifier, another mode than before, or a mode that has no functions.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegisterAnalyser(uint32_t featureId, DrmLocalAnalyserFunc localAnalyser,
                                                           uint32_t localCycle, DrmMasterAnalyserFunc masterAnalyser,
                                                           uint32_t masterCycle,
                                                           uint32_t scheduleMode) CORVANE_NOEXCEPT;

/** @brief Queue a local run. @retval DRM_ERR_FAIL  Not registered, or no memory for the work item. */
CORVANE_API uint32_t DrmTriggerLocalAnalysis(uint32_t featureId, uint32_t code) CORVANE_NOEXCEPT;
/** @brief Queue a master run. @retval DRM_ERR_FAIL  Not registered, or no memory for the work item. */
CORVANE_API uint32_t DrmTriggerMasterAnalysis(uint32_t featureId, uint32_t code) CORVANE_NOEXCEPT;

/** @brief One tick: count it, and ask every registered feature. @param arg  Not used. */
CORVANE_API void DrmTaskSchedulerTimerHandler(void *arg) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmBaseScheduleTaskItem) == 32);
#endif

#endif
