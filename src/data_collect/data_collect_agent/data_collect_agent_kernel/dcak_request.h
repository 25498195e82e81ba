/**
 * @file dcak_request.h
 * @brief What the handlers share: the devices that a request names, and the list that answers it. C++ sources only.
 */
#ifndef DCAK_REQUEST_H
#define DCAK_REQUEST_H

#include <cjson/cJSON.h>

#include "infrastructure/common/corvane_raii.h"

/** @return The array `params.devices` of a request; null if there is none. Still owned by the request. */
inline cJSON *DcakRequestDevices(cJSON *request) noexcept
{
    cJSON *devices = cJSON_GetObjectItem(cJSON_GetObjectItem(request, "params"), "devices");
    return cJSON_IsArray(devices) ? devices : nullptr;
}

/**
 * @brief Put @p disks into a result.
 * @param[out] resultOut  Untouched on failure.
 * @return The number of disks; -1 without memory.
 */
inline int DcakMakeDisksResult(CJsonPtr disks, cJSON **resultOut) noexcept
{
    const int length = cJSON_GetArraySize(disks.get());
    CJsonPtr result(cJSON_CreateObject());
    if (!cJSON_AddItemToObject(result.get(), "disks", disks.get())) {
        return -1;
    }
    (void)disks.release();
    *resultOut = result.release();
    return length;
}

#endif
