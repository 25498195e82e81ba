/**
 * @file slow_disk_detecter.h
 * @brief Finds the disk that is much slower than the other disks of its type.
 *
 * Owns the four zones, their settings, and the window of each disk (its private data of DRM_FEATURE_SLOW_DISK). Zones
 * and windows change on the feature's worker only; the zone lock and, after it, the feature's data lock keep the
 * diagnostic commands out meanwhile. Settings and switch may be written by any thread.
 */
#ifndef SLOW_DISK_DETECTER_H
#define SLOW_DISK_DETECTER_H

#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "ma/drm/framework/utils/drm_lock.h"

CORVANE_BEGIN_DECLS

#define SLOW_DISK_ZONE_NUM 4u        /**< enum DrmDiskType is the index */
#define SLOW_DISK_WINDOW_SIZE 100u   /**< samples, one in 3 seconds */
#define SLOW_DISK_BITMAP_SIZE 16u    /**< bytes: 128 bits, of which one per sample is used */
#define SLOW_DISK_MIN_CYCLE_MIN 10u  /**< least minSlowCycle */
#define SLOW_DISK_MIN_CYCLE_MAX 100u /**< greatest minSlowCycle */

/** Settings of one zone. 8 bytes. The last two are read and written as atomics. */
typedef struct ClassicalSlowDiskDetectV2Config {
    uint32_t diskType;         /**< enum DrmDiskType */
    uint8_t minThresholdValue; /**< milliseconds of service time from which a disk is suspected, 1..255 */
    uint8_t minSlowCycle;      /**< slow samples in the window that make a slow disk, 10..100 */
} ClassicalSlowDiskDetectV2Config;

/** One sample. 24 bytes. */
typedef struct DrmDiskIostatSample {
    uint64_t iops;      /**< operations per second */
    uint64_t bandwidth; /**< KiB per second */
    uint32_t svctm;     /**< microseconds per operation */
    uint16_t util;      /**< whole percent */
    uint16_t busyNum;   /**< requests in flight */
} DrmDiskIostatSample;

/** The samples of a disk; bit i of an array is bit i % 8 of byte i / 8. 2432 bytes. */
typedef struct DrmDiskIostatWindow {
    uint8_t validBits[SLOW_DISK_BITMAP_SIZE]; /**< the slot holds a good sample */
    uint8_t slowBits[SLOW_DISK_BITMAP_SIZE];  /**< the slot was marked slow */
    DrmDiskIostatSample samples[SLOW_DISK_WINDOW_SIZE];
} DrmDiskIostatWindow;

/** A member of a zone. 24 bytes. */
typedef struct DrmSlowDiskObj {
    DrmListHead links;
    uint32_t diskId;
    uint32_t reserved; /**< 0 */
} DrmSlowDiskObj;

/** Disks that are compared with each other. */
typedef struct DrmSlowDiskZone {
    DrmSpinlock lock;
    DrmListHead disks;   /**< DrmSlowDiskObj in the order of arrival */
    uint32_t cycleIndex; /**< slot of the present sample; advanced before use */
} DrmSlowDiskZone;

extern CORVANE_API DrmSlowDiskZone g_drm_slow_disk_detecter_zones[SLOW_DISK_ZONE_NUM];

/** @brief Start the feature. @retval DRM_ERR_FAIL  The analyser could not be registered. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmClassicalSlowDiskDetectV2Init(void) CORVANE_NOEXCEPT;
/** @brief Stop it. Disks and windows stay. */
CORVANE_API void DrmClassicalSlowDiskDetectV2Exit(void) CORVANE_NOEXCEPT;
/** @brief Store the settings of one zone. @retval DRM_ERR_FAIL  Null, or a value out of its range. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmConfigClassicalSlowDiskDetectV2(ClassicalSlowDiskDetectV2Config *config)
    CORVANE_NOEXCEPT;
/** @brief Turn the detection on or off; disks come and go in either case. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSetClassicalSlowDiskDetectV2Switch(uint8_t on) CORVANE_NOEXCEPT;
/** @return the zone's settings, or null from 4 on. */
CORVANE_NODISCARD CORVANE_API ClassicalSlowDiskDetectV2Config *
DrmGetSlowDiskDetectV2Config(uint32_t diskType) CORVANE_NOEXCEPT;
/** @return the zone, or null from 4 on. */
CORVANE_NODISCARD CORVANE_API DrmSlowDiskZone *DrmGetSlowDiskDetectZone(uint32_t diskType) CORVANE_NOEXCEPT;
/** @return how many of the 100 samples are marked slow. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSlowDiskGetSlowCycleCnt(DrmDiskIostatWindow *window) CORVANE_NOEXCEPT;

/** @brief Empty zones. */
CORVANE_API void DrmInitSlowDiskDetecterZones(void) CORVANE_NOEXCEPT;
/** @brief The local analyser. @param code  enum DrmAnalysisCode. @return always 0. */
CORVANE_API uint32_t DrmSlowDiskDetectorLocalSchedule(uint32_t code) CORVANE_NOEXCEPT;
/** @brief Queue a disk event; it is handled on the next run. @retval DRM_ERR_FAIL  No memory. */
CORVANE_API uint32_t DrmSlowDiskDetectorDiskEventHandle(uint32_t diskId, uint32_t event) CORVANE_NOEXCEPT;
/** @brief Handle what is queued. */
CORVANE_API void DrmSlowDiskDetectorHandleDiskEvent(void) CORVANE_NOEXCEPT;
/** @brief A disk has come. @retval DRM_ERR_FAIL  Unknown disk or type, or no memory. @note Takes the zone's lock. */
CORVANE_API uint32_t DrmSlowDiskDetectorHandleDiskInEvent(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief A disk has gone. @return always 0. @note Takes each zone's lock. */
CORVANE_API uint32_t DrmSlowDiskDetectorHandleDiskOutEvent(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief Make it a member, with an empty window; a member stays as it is. @note The caller holds the zone's lock. */
CORVANE_API uint32_t DrmSlowDiskDetectorAddDiskToZone(DrmSlowDiskZone *zone, uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief Take it out and free its window; nothing for others. @note The caller holds the zone's lock. */
CORVANE_API void DrmSlowDiskDetectorRemoveDiskFromZone(DrmSlowDiskZone *zone, uint32_t diskId) CORVANE_NOEXCEPT;

/** @brief One sample of every zone, if the switch is on. */
CORVANE_API void DrmSlowDiskDetect(void) CORVANE_NOEXCEPT;
/** @brief One sample of a zone: collect, mark, and report a disk that has enough marks. */
CORVANE_API void DrmSlowDiskDetectInZone(DrmSlowDiskZone *zone, uint32_t diskType) CORVANE_NOEXCEPT;
/** @brief Write the present slot of every member. @note The caller holds the feature's data lock. */
CORVANE_API void DrmSlowDiskDetectCollectDiskPerformace(DrmSlowDiskZone *zone) CORVANE_NOEXCEPT;
/**
 * @brief Mark at most one disk in the present slot.
 * @param bandwidthCeiling  MiB per second that a suspected disk moves at most.
 * @return the marked disk, or DRM_INVALID.
 * @note The caller holds the feature's data lock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSlowDiskDetectFindSuspectedSlowDisk(
    DrmSlowDiskZone *zone, ClassicalSlowDiskDetectV2Config *config, uint32_t bandwidthCeiling) CORVANE_NOEXCEPT;
/**
 * @brief Whether the candidate has enough marks, and every other member few.
 * @note The caller holds the feature's data lock.
 */
CORVANE_NODISCARD CORVANE_API bool DrmSlowDiskDetectCheckIsSlowDisk(DrmSlowDiskZone *zone,
                                                                    ClassicalSlowDiskDetectV2Config *config,
                                                                    uint32_t candidate) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(ClassicalSlowDiskDetectV2Config) == 8 && sizeof(DrmDiskIostatSample) == 24);
static_assert(sizeof(DrmDiskIostatWindow) == 2432 && sizeof(DrmSlowDiskObj) == 24 && sizeof(DrmSlowDiskZone) == 40);

/** @brief A bit of a window's array. */
inline bool DrmSlowDiskBitAt(const uint8_t *bits, uint32_t index) noexcept
{
    return ((bits[index / 8] >> (index % 8)) & 1) != 0;
}
#endif

#endif
