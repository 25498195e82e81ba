/**
 * @file dcm_step_query.h
 * @brief The parallel fan-out: one short-lived thread for each slice of an agent's disks.
 *
 * An answer has to fit one receive, so a message about many disks is asked for in slices; all slices run at once. The
 * caller waits for all of them. Entered by the agents' workers, without a lock.
 */
#ifndef DCM_STEP_QUERY_H
#define DCM_STEP_QUERY_H

#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** What one slice's thread works on; made by the caller of the fan-out, freed at the thread's end. */
typedef struct StepQueryTaskContext {
    uint32_t *result; /**< in the caller's frame, shared by all slices; accessed as an atomic */
    uint32_t messageType;
    const AgentInfo *agent;
    DiskBriefInfo **devices; /**< first device of the slice */
    uint32_t count;          /**< devices of the slice */
    uint32_t offset;         /**< of the slice in the whole list */
    void *sem;               /**< one unit is given back at the end; nothing of the caller's is touched after that */
} StepQueryTaskContext;

/**
 * @brief QueryMessageAndSave() for all devices, in slices of g_queryMessageStepMap[type], all at once.
 * @retval 0                  All slices are stored.
 * @retval DCM_ERR_BAD_INPUT  A bad type or null argument, or more than 255 slices.
 * @retval DCM_ERR_NO_MEMORY  No semaphore, or a slice without memory or thread; the other slices have run.
 * @return Otherwise the failure of a slice; of several the last.
 */
CORVANE_NODISCARD CORVANE_API uint32_t StepQueryMessageAndSave(uint32_t type, const AgentInfo *agent,
                                                               DiskBriefInfo **deviceList,
                                                               uint32_t deviceCount) CORVANE_NOEXCEPT;

/** @brief Thread entry: one slice. @param[in] context  StepQueryTaskContext; not freed here. @return null */
CORVANE_API void *StepQueryMessageAndSaveTask(void *context) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(StepQueryTaskContext) == 48 && offsetof(StepQueryTaskContext, agent) == 16);
static_assert(offsetof(StepQueryTaskContext, devices) == 24 && offsetof(StepQueryTaskContext, count) == 32);
static_assert(offsetof(StepQueryTaskContext, offset) == 36 && offsetof(StepQueryTaskContext, sem) == 40);
#endif

#endif
