/**
 * @file dcm_members.h
 * @brief Checks that keep what they found: the copies check an object and read it without a second lookup.
 *
 * A lookup walks the members of an object, and every disk is read every three seconds. Owns no data, takes no lock,
 * entered by the same threads as dcm_validate.h. C++ only; hidden in the library.
 */
#ifndef DCM_MEMBERS_H
#define DCM_MEMBERS_H

#include <array>
#include <cjson/cJSON.h>
#include <cstddef>
#include <cstdint>
#include <span>

#include "data_mgr/disk_types.h"

/** Index of a member of a brief object. */
enum DiskBriefMember : size_t { BRIEF_DEVICE_NAME, BRIEF_SERIAL_NUMBER, BRIEF_MEMBER_NUM };

/** Index of a listed member of a base object. */
enum DiskBaseMember : size_t {
    BASE_DEVICE_NAME,
    BASE_SERIAL_NUMBER,
    BASE_VENDOR_ID,
    BASE_DISK_TYPE,
    BASE_DISK_MEDIA_TYPE,
    BASE_MODEL_NUMBER,
    BASE_FIRMWARE_REVISION,
    BASE_DISK_CAPACITY,
    BASE_SECTOR_SIZE,
    BASE_MEMBER_NUM,
};

/** Index of a common member of a health object. */
enum DiskHealthMember : size_t {
    HEALTH_SERIAL_NUMBER,
    HEALTH_POWER_ON_HOURS,
    HEALTH_WEAR,
    HEALTH_DISK_TYPE,
    HEALTH_VENDOR_ID,
    HEALTH_MEMBER_NUM,
};

/** Index of a member of a frame object. */
enum DiskFrameMember : size_t {
    FRAME_SERIAL_NUMBER,
    FRAME_QUEUE_DEPTH,
    FRAME_IO_BUSY_NUM,
    FRAME_IO_TIME,
    FRAME_BYTES_READ,
    FRAME_BYTES_WRITTEN,
    FRAME_NUM_READ_OPS,
    FRAME_NUM_WRITE_OPS,
    FRAME_READ_LATENCY_TICKS,
    FRAME_WRITE_LATENCY_TICKS,
    FRAME_MEMBER_NUM,
};

using DiskBriefMembers = std::array<cJSON *, BRIEF_MEMBER_NUM>;
using DiskFrameMembers = std::array<cJSON *, FRAME_MEMBER_NUM>;

struct DiskBaseMembers {
    std::array<cJSON *, BASE_MEMBER_NUM> listed;
    cJSON *pciAddress; /**< a string for user-space NVMe; may be anything, also null, for the rest */
};

struct DiskHealthMembers {
    std::array<cJSON *, HEALTH_MEMBER_NUM> common;
    DiskHealthDetail detail; /**< already converted; what the form does not use is zero */
};

/** @brief Check one disk of a device list and keep its members. A failure is logged. */
[[nodiscard]] bool FindDiskBriefMembers(cJSON *item, DiskBriefMembers &found) noexcept;
/** @brief Check one disk of a base answer and keep its members. A failure is logged. */
[[nodiscard]] bool FindDiskBaseMembers(cJSON *item, DiskBaseMembers &found) noexcept;
/** @brief Check one disk of a health answer, keep its members and convert its detail. A failure is logged. */
[[nodiscard]] bool FindDiskHealthMembers(cJSON *item, DiskHealthMembers &found) noexcept;
/** @brief Check one disk of an I/O counter answer and keep its members. A failure is logged. */
[[nodiscard]] bool FindDiskFrameMembers(cJSON *item, DiskFrameMembers &found) noexcept;

/**
 * @brief Check a SMART list and convert it on the way.
 * @param[in]  list   Member of a health object; may be null.
 * @param[out] attrs  One entry for each of the list; undefined after a failure, which is logged.
 */
[[nodiscard]] bool ReadSmartAttrList(cJSON *list, std::span<DiskSmartAttr, DISK_SMART_ATTR_NUM> attrs) noexcept;

#endif
