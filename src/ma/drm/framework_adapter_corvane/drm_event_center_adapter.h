/**
 * @file drm_event_center_adapter.h
 * @brief Joins the framework to this deployment: the start and stop of its services, the way of a disk event from the
 *        live records to the features, and the node and disk facts that a cluster would have to ask for.
 *
 * Holds no state. The facts may be asked from any thread; DrmEventNotifyFuc() runs with g_dataMgrLock held.
 */
#ifndef DRM_EVENT_CENTER_ADAPTER_H
#define DRM_EVENT_CENTER_ADAPTER_H

#include <stdbool.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @brief Actions and class manager up. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmFrameworkAdapterInitPhase1(void) CORVANE_NOEXCEPT;
/** @brief Both down. @return always 0. */
CORVANE_API uint32_t DrmFrameworkAdapterExitPhase1(void) CORVANE_NOEXCEPT;
/** @brief Disk events reach the features from here on. @retval DRM_ERR_FAIL  The live records take no callback. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmFrameworkAdapterInitPhase2(void) CORVANE_NOEXCEPT;
/** @brief They do not any more. @return always 0. */
CORVANE_API uint32_t DrmFrameworkAdapterExitPhase2(void) CORVANE_NOEXCEPT;

/** @return 0, or the error of DataMgrSetDrmNotifyFunc(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmDiskEventAdapterInit(void) CORVANE_NOEXCEPT;
/** @return as DrmDiskEventAdapterInit(). */
CORVANE_API uint32_t DrmDiskEventAdapterFin(void) CORVANE_NOEXCEPT;
/** @brief What the live records call. @param event DISK_EVENT_E. @return always 0. */
CORVANE_API uint32_t DrmEventNotifyFuc(uint32_t diskId, DiskSnRef sn, uint32_t event) CORVANE_NOEXCEPT;
/** @brief Pass an event on to the features under the framework's own disk number. */
CORVANE_API void DrmDiskEventCenterAdapter(uint32_t diskId, DiskSnRef sn, uint32_t event) CORVANE_NOEXCEPT;
/** @return the framework's number of the disk: the same. */
CORVANE_NODISCARD CORVANE_API uint32_t TransDiskIdToLogicId(uint32_t diskId) CORVANE_NOEXCEPT;

/** @return true: every node is its own master. */
CORVANE_NODISCARD CORVANE_API bool DrmIsMasterNodeId(void) CORVANE_NOEXCEPT;
/** @return true. */
CORVANE_NODISCARD CORVANE_API bool DrmCheckLocalNodeNormal(void) CORVANE_NOEXCEPT;
/** @brief There is no map of nodes; @p map is not written. @return always 0. */
CORVANE_API uint32_t DrmGetOnlineNodeMap(void *map) CORVANE_NOEXCEPT;
/** @return true for any disk. */
CORVANE_NODISCARD CORVANE_API bool DrmIsDataDisk(uint32_t diskId) CORVANE_NOEXCEPT;
/** @return 0 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetMinDiskId(void) CORVANE_NOEXCEPT;
/** @return 128 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetMaxLogicDiskNum(void) CORVANE_NOEXCEPT;
/** @return false */
CORVANE_NODISCARD CORVANE_API bool bdmIsProcessRestart(void) CORVANE_NOEXCEPT;
/** @brief Nothing: there is no other node to tell. */
CORVANE_API void DrmClsCheck2SendMasterEvt(void) CORVANE_NOEXCEPT;
/** @return 0 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmClsMgrInit(void) CORVANE_NOEXCEPT;
/** @return 0 */
CORVANE_API uint32_t DrmClsMgrFin(void) CORVANE_NOEXCEPT;
/** @return 0 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTaskSchClsEvtInit(void) CORVANE_NOEXCEPT;
/** @return 0 */
CORVANE_API uint32_t DrmTaskSchClsEvtFin(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
