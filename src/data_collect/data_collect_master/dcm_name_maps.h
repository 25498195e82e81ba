/**
 * @file dcm_name_maps.h
 * @brief Names that cross the wire between the collection master and its agents: methods, disk types, media, vendors.
 *
 * Owns the name tables, which nobody writes after start-up. Entered by every thread that builds a request or reads an
 * answer. Takes no lock.
 */
#ifndef DCM_NAME_MAPS_H
#define DCM_NAME_MAPS_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** One method: message type first, then the name on the wire. */
typedef struct QueryMethodNameRow {
    uint32_t messageType; /**< enum DcmMessageType; row i describes type i */
    const char *name;
} QueryMethodNameRow;

/** One name of an enumeration. */
typedef struct DiskEnumNameRow {
    uint32_t value;
    const char *name; /**< compared without regard to case */
} DiskEnumNameRow;

/** One vendor with health variants of its own. */
typedef struct DiskVendorNameRow {
    const char *name; /**< compared without regard to case */
    uint32_t value;   /**< DISK_VENDOR_OWN */
} DiskVendorNameRow;

/** What ParseDiskVendor finds. */
enum DiskVendorClass {
    DISK_VENDOR_OWN = 0,        /**< a listed vendor */
    DISK_VENDOR_OTHER = 1,      /**< any other text */
    DISK_VENDOR_NOT_STRING = 2, /**< the member is no string */
};

extern CORVANE_API QueryMethodNameRow g_queryMethodNameMap[4];
/** The "period" of an I/O counter request, sent as a decimal string. */
extern CORVANE_API uint32_t g_ioTimePeriod;
extern CORVANE_API DiskEnumNameRow g_diskTypeNameMap[6];
extern CORVANE_API DiskEnumNameRow g_diskMediaTypeNameMap[6];
extern CORVANE_API DiskVendorNameRow DiskVendorNameMap[4];

/**
 * @brief Find a disk type by its name, without regard to case.
 * @param[in] name  Name on the wire; null matches nothing.
 * @return DISK_TYPE_E; DISK_TYPE_BUTT (6) with a log line when nothing matches, which a check beforehand rules out.
 * @note Any thread, no lock.
 */
CORVANE_API uint32_t ConvertDiskTypeStr2Enum(const char *name) CORVANE_NOEXCEPT;

/**
 * @brief Find a media type by its name, without regard to case.
 * @param[in] name  Name on the wire; null matches nothing.
 * @return DISK_MEDIA_TYPE_E; DISK_MEDIA_TYPE_BUTT (6) with a log line when nothing matches.
 * @note Any thread, no lock.
 */
CORVANE_API uint32_t ConvertDiskMediaTypeStr2Enum(const char *name) CORVANE_NOEXCEPT;

/**
 * @brief Class a vendor identifier: listed vendors report the health of SAS SSDs in a form of their own.
 * @param[in] vendorItem  JSON member with the vendor; may be null.
 * @return enum DiskVendorClass; DISK_VENDOR_NOT_STRING with a log line.
 * @note Any thread, no lock.
 */
CORVANE_API uint32_t ParseDiskVendor(cJSON *vendorItem) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(QueryMethodNameRow) == 16 && offsetof(QueryMethodNameRow, name) == 8);
static_assert(sizeof(DiskEnumNameRow) == 16 && offsetof(DiskEnumNameRow, name) == 8);
static_assert(sizeof(DiskVendorNameRow) == 16 && offsetof(DiskVendorNameRow, value) == 8);
#endif

#endif
