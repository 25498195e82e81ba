/**
 * @file dcak_identity.h
 * @brief What kind of disk a device is, who made it and which serial number it has, from sysfs, udev and the disk.
 *
 * Owns the table of type names. Every function may be called from any thread and takes no lock.
 */
#ifndef DCAK_IDENTITY_H
#define DCAK_IDENTITY_H

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/** Buffer for a serial number on its way to the wire. */
#define DCAK_SERIAL_SIZE 128u
/** Buffer for a device path in the handlers. */
#define DCAK_DEV_PATH_SIZE 128u

/** Name of each enum DcakDiskType on the wire. */
extern CORVANE_API const char *const g_DiskTypeStrMap[DCAK_DISK_TYPE_BUTT];

/** @return An enum DcakDiskType; DCAK_ERR_TYPE if sysfs does not tell. */
CORVANE_API uint32_t DcakGetDiskType(const char *deviceName, const char *devicePath) CORVANE_NOEXCEPT;

/**
 * @brief Read the vendor from sysfs or, if that fails, ask the disk itself.
 * @param size         Room at @p output; at most 512 are used.
 * @param[out] output  Untouched on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t DcakGetVendorId(const char *deviceName, const char *devicePath, uint32_t size,
                                     char *output) CORVANE_NOEXCEPT;

/**
 * @brief Scan one value from a file of sysfs.
 * @param pathFormat  Path below the root of sysfs with one "%s" for the device name.
 * @param scanFormat  One conversion.
 * @param size        Room at @p output for a text; 0 for a number.
 * @retval 0          Read. A file that holds something else leaves a number untouched.
 * @retval DCAK_FAIL  No such file, or an empty one.
 */
CORVANE_API uint32_t DcakGetSysInfo(const char *pathFormat, const char *deviceName, const char *scanFormat,
                                    uint32_t size, void *output) CORVANE_NOEXCEPT;

/** @brief Make "/dev/NAME". @retval 0 @retval DCAK_FAIL It does not fit @p size bytes. */
CORVANE_API uint32_t DevNameToPath(const char *deviceName, uint32_t size, char *output) CORVANE_NOEXCEPT;

/** @brief Read the model from sysfs, without what ends the line. @retval 0 @retval DCAK_FAIL @p output is untouched. */
CORVANE_API uint32_t DcakGetModelNum(const char *deviceName, uint32_t size, char *output) CORVANE_NOEXCEPT;

/** @brief Ask udev for the serial number. @retval 0 @retval DCAK_FAIL @p output is untouched. */
CORVANE_API uint32_t DcakGetSerialNumByUdev(const char *deviceName, uint32_t size, char *output) CORVANE_NOEXCEPT;

/** @brief Read a serial number from lsblk. Outside the data path. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetSerialNum(const char *deviceName, uint32_t size, char *output) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
