/**
 * @file drm_disk_event.h
 * @brief Tells every feature of disks that come and go.
 *
 * Owns g_drmLocalDiskUpdateHandle, which is written at start and stop only and has no lock. Handlers run on the thread
 * of the announcement, with g_dataMgrLock held: they queue the event and trigger an analysis, nothing more.
 */
#ifndef DRM_DISK_EVENT_H
#define DRM_DISK_EVENT_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/drm_base.h"

CORVANE_BEGIN_DECLS

/** What a feature queues. 8 bytes; on the host's heap. */
typedef struct DrmDiskEvent {
    uint32_t diskId;
    uint32_t event; /**< DISK_EVENT_E */
} DrmDiskEvent;

/** @param event DISK_EVENT_E. The result is not looked at. */
typedef uint32_t (*DrmDiskEventHandlerFunc)(uint32_t diskId, uint32_t event);

/** The handlers of one feature; either may be null. */
typedef struct DrmDiskUpdateHandle {
    DrmDiskEventHandlerFunc localHandler;
    DrmDiskEventHandlerFunc masterHandler; /**< called on the master node, which every node is */
} DrmDiskUpdateHandle;

extern CORVANE_API DrmDiskUpdateHandle g_drmLocalDiskUpdateHandle[DRM_FEATURE_NUM];

/** @brief Set a feature's handlers; ignored for identifiers of 32 and above. */
CORVANE_API void DrmRegisterDiskEventHandler(uint32_t featureId, DrmDiskEventHandlerFunc localHandler,
                                             DrmDiskEventHandlerFunc masterHandler) CORVANE_NOEXCEPT;
/** @brief Take them away. */
CORVANE_API void DrmUnRegisterDiskEventHandler(uint32_t featureId) CORVANE_NOEXCEPT;
/** @brief Call every feature's handlers in the order of the identifiers, the local one first. */
CORVANE_API void DrmNotifyDiskEvent(uint32_t logicId, uint32_t event) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
