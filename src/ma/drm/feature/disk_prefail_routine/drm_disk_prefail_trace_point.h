/**
 * @file drm_disk_prefail_trace_point.h
 * @brief Fault injection into the prefail routine, found by name; nothing registers it. Holds no state.
 */
#ifndef DRM_DISK_PREFAIL_TRACE_POINT_H
#define DRM_DISK_PREFAIL_TRACE_POINT_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @brief Nothing. */
CORVANE_API void DrmDprTracePointInit(void) CORVANE_NOEXCEPT;
/** @brief Nothing. */
CORVANE_API void DrmDprTracePointExit(void) CORVANE_NOEXCEPT;

/**
 * @name If @p list (disk identifiers between commas, 31 characters at most) is empty or holds the disk, set @p hit to 1
 *       and make the data read as those of a failing disk; otherwise leave both alone.
 */
/** @{ */
/** @param output  DiskSmartAttr entries; the first is written. */
CORVANE_API void DrmDprSetSataSmartEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId,
                                                 void *output) CORVANE_NOEXCEPT;
/** @param output  DrmSasSenseInfo */
CORVANE_API void DrmDprSetSasSsdEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId,
                                              void *output) CORVANE_NOEXCEPT;
/** @param output  DrmSasVssdLogInfo */
CORVANE_API void DrmDprSetSasVssdEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId,
                                               void *output) CORVANE_NOEXCEPT;
/** @param output  DrmNvmeCritWarning; the other bits stay. */
CORVANE_API void DrmDprSetNvmeEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId,
                                            void *output) CORVANE_NOEXCEPT;
/** @param output  DrmSasSenseInfo */
CORVANE_API void DrmDprSetNlSasHddEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId,
                                                void *output) CORVANE_NOEXCEPT;
/** @param output  Not used. */
CORVANE_API void DrmDprDiskFailTp(const char *list, uint32_t *hit, uint32_t diskId, void *output) CORVANE_NOEXCEPT;
/** @} */

CORVANE_END_DECLS

#endif
