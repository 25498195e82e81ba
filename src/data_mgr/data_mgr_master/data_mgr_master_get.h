/**
 * @file data_mgr_master_get.h
 * @brief The rows of g_diskInfoGetFunc: how each kind of record leaves the store.
 *
 * Owns the strategies' texts. Every function is called by DataMgrDiskInfoGet(), with g_dataMgrLock held and for a disk
 * that exists; none takes a lock. Each gives 0, DATA_MGR_ERR_NO_OBJECT without the disk, or DATA_MGR_ERR_FAIL where
 * there is no buffer or the record does not fit it.
 */
#ifndef DATA_MGR_MASTER_GET_H
#define DATA_MGR_MASTER_GET_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @param[out] buf DiskMgrObj */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrBaseInfoGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                               uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskIoStatInfo, the newest. DATA_MGR_ERR_FAIL also when there is none yet. */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrIoInfoGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                             uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskHealthInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrSmartInfoGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                                uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskDrmInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDrmInfoGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                              uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskNodeInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrNodeInfoGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                               uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf uint32_t, whatever @p bufLen says */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrStrategyGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                               uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf uint32_t, whatever @p bufLen says */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDiskStateGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                                uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf const char *, whatever @p bufLen says; null for a strategy without a text */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrStrategyStrGetInner(uint32_t diskId, DiskSnRef sn, void *buf,
                                                                  uint32_t bufLen) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
