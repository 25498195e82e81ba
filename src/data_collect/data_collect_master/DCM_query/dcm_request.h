/**
 * @file dcm_request.h
 * @brief Builds the JSON requests of the data collection master.
 *
 * Owns the process-wide request counter, which is made once at the first request. Any thread; takes no lock. Every
 * request belongs to the caller, who deletes it with cJSON_Delete.
 */
#ifndef DCM_REQUEST_H
#define DCM_REQUEST_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** A text with its length, in table memory. Empty: length 0 and a null buffer. */
typedef struct CorvaneStr {
    uint32_t length; /**< with the terminator */
    char *buf;
} CorvaneStr;

/** A row of the table of request builders. @p period is used by the I/O frame request only. */
typedef cJSON *(*DcmConstructRequestFunc)(const char *method, DiskBriefInfo **list, uint32_t count, uint32_t period);

/**
 * @brief The members that every request has: "jsonrpc", "method" and an "id" of 1..65535 that differs from request to
 *        request.
 * @return the request, or null when there is no memory or @p method is null.
 */
CORVANE_NODISCARD CORVANE_API cJSON *CreateBaseRequest(const char *method) CORVANE_NOEXCEPT;

/**
 * @brief {"devices":[name...]} from the device names of @p count records, in order.
 * @return the object, or null when there is no memory or a record is null.
 */
CORVANE_NODISCARD CORVANE_API cJSON *CreateDeviceListParam(DiskBriefInfo **list, uint32_t count) CORVANE_NOEXCEPT;

/** @brief A request without "params". @return the request or null. */
CORVANE_NODISCARD CORVANE_API cJSON *ConstructNoParamRequest(const char *method, DiskBriefInfo **list, uint32_t count,
                                                             uint32_t period) CORVANE_NOEXCEPT;
/** @brief A request with the device list as its "params". @return the request or null. */
CORVANE_NODISCARD CORVANE_API cJSON *ConstructOnlyDeviceListParamRequest(const char *method, DiskBriefInfo **list,
                                                                         uint32_t count,
                                                                         uint32_t period) CORVANE_NOEXCEPT;
/** @brief The device list and "period", a decimal string, as "params". @return the request or null. */
CORVANE_NODISCARD CORVANE_API cJSON *ConstructIoInfoFrameRequest(const char *method, DiskBriefInfo **list,
                                                                 uint32_t count, uint32_t period) CORVANE_NOEXCEPT;

/**
 * @brief The decimal text of a number.
 * @param[in,out] out  Must be empty on entry. Afterwards the caller frees out->buf with slot 1 of the adapter table.
 * @retval 0                  @p out holds the text.
 * @retval DCM_ERR_BAD_INPUT  @p out is null or not empty.
 * @retval DCM_ERR_NO_MEMORY  No memory; @p out is empty.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ConvertUint2DecimalString(uint32_t value, CorvaneStr *out) CORVANE_NOEXCEPT;

/**
 * @brief The request for the slots of the user-space NVMe disks of a base info result.
 * @param[in] baseResult  "result" of a base info answer; elements that lack a text for "disk_type", "device_name" or
 *                        "pci_address" are left out, as are disks of other types.
 * @return the request (its "devices" may be empty), or null when there is no memory.
 */
CORVANE_NODISCARD CORVANE_API cJSON *MakePciAddrCJson(cJSON *baseResult) CORVANE_NOEXCEPT;

/** @brief The request to take the NVMe disk at a PCI address over. @return the request, or null. */
CORVANE_NODISCARD CORVANE_API cJSON *MakeRebindPciAddrCJson(const char *pciAddress) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(CorvaneStr) == 16 && offsetof(CorvaneStr, buf) == 8);
#endif

#endif
