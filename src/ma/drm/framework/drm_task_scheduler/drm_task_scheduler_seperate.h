/**
 * @file drm_task_scheduler_seperate.h
 * @brief How the features run: a queue of work items for each feature and analyser kind, drained by a detached worker.
 *
 * So analyses of different features run in parallel, and those of one feature and kind one after the other. Each queue
 * has a lock of its own, held for list work and for the start of a thread; one more guards what the tasks hold beside
 * their queues. Analysers, preprocessors and checkers run without any lock.
 */
#ifndef DRM_TASK_SCHEDULER_SEPERATE_H
#define DRM_TASK_SCHEDULER_SEPERATE_H

#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "ma/drm/framework/utils/drm_lock.h"

CORVANE_BEGIN_DECLS

/** Which of a feature's two analysers. */
enum DrmAnalyserKind {
    DRM_ANALYSER_MASTER = 0,
    DRM_ANALYSER_LOCAL = 1,
    DRM_ANALYSER_KINDS,
};

typedef struct DrmSchedQueue {
    uint32_t running; /**< 1 from the start of a worker until it has seen the queue empty; guarded by lock */
    uint32_t gate;    /**< 1 free, 0 taken: lets one worker in; atomic */
    DrmSpinlock lock;
    DrmListHead pending; /**< DrmSchedWorkItem, oldest first; guarded by lock */
} DrmSchedQueue;

/** One run to be made. 24 bytes, from the memory pools. */
typedef struct DrmSchedWorkItem {
    DrmListHead links;
    uint32_t code; /**< enum DrmAnalysisCode */
} DrmSchedWorkItem;

typedef struct DrmSeperateSchedTask {
    DrmBaseScheduleTaskItem base; /**< a copy made at registration */
    DrmSchedQueue queues[DRM_ANALYSER_KINDS];
    void (*preprocessor)(uint32_t); /**< or null */
    bool (*demotingChecker)(void);  /**< or null */
} DrmSeperateSchedTask;

/** @brief Start with no tasks and empty queues. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTaskSeperateModeInit(void) CORVANE_NOEXCEPT;
/** @brief Nothing. @return always 0. */
CORVANE_API uint32_t DrmTaskSeperateModeFin(void) CORVANE_NOEXCEPT;
/** @brief Copy a registration; the queues stay. @retval DRM_ERR_FAIL  Null, or a bad identifier. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegisterSeperateSchedTask(DrmBaseScheduleTaskItem *task) CORVANE_NOEXCEPT;
/** @brief What a feature does when the node's role changes. @retval DRM_ERR_FAIL  Null, or not registered. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegisterPreprocessor(uint32_t featureId,
                                                               void (*preprocessor)(uint32_t)) CORVANE_NOEXCEPT;
/** @brief Who says whether the feature's part of a demotion is complete. @retval DRM_ERR_FAIL  As above. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegisterDemotingChecker(uint32_t featureId,
                                                                  bool (*checker)(void)) CORVANE_NOEXCEPT;
/** @brief The node becomes master: call every preprocessor with 0, in the order of the identifiers. */
CORVANE_API void DrmPromoteMasterPreProc(void) CORVANE_NOEXCEPT;
/** @brief The node stops being master: call every preprocessor with 1. */
CORVANE_API void DrmDemoteSlavePreProc(void) CORVANE_NOEXCEPT;
/** @return whether no checker says that its feature is not done. */
CORVANE_NODISCARD CORVANE_API bool DrmCheckDemotingComplete(void) CORVANE_NOEXCEPT;

/** @brief Trigger what is due at this tick: the master run on multiples of its cycle, the local run one after. */
CORVANE_API void DrmSeperateSchedTickHandler(uint32_t featureId, uint64_t tick) CORVANE_NOEXCEPT;
/**
 * @brief Queue a run, unless one with this code waits already, and see that a worker is there.
 * @param nodeType  enum DrmAnalyserKind.
 * @retval 0             Queued, or one was waiting. If the worker could not be started, the next trigger tries again.
 * @retval DRM_ERR_FAIL  Bad argument, or no memory for the work item.
 */
CORVANE_API uint32_t DrmTriggerSeperateSchedAnalysis(uint32_t featureId, uint32_t nodeType,
                                                     uint32_t code) CORVANE_NOEXCEPT;
/** @brief The worker. @param data  Feature identifier and analyser kind. @param dataLen  8. */
CORVANE_API void DrmSeperateSchedAnalysis(void *data, uint32_t dataLen) CORVANE_NOEXCEPT;
/** @brief Run one item; a feature without this analyser drops it. */
CORVANE_API void DrmExecSeperateSchedAnalysis(uint32_t featureId, uint32_t nodeType, uint32_t code) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmSchedWorkItem) == 24);
#endif

#endif
