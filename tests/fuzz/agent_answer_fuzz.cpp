// An agent's answer, from the text of the socket to the records: the road of QueryMessage without the socket.
//
// Input: the first byte selects the message type (byte modulo 4, so that '0' to '3' can be typed), the rest is the
// text that one receive brought.

#include <algorithm>
#include <cjson/cJSON.h>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/corvane_infra.h"

namespace {

void *Alloc(uint64_t size)
{
    return std::malloc(size);
}

void Free(void *ptr)
{
    std::free(ptr);
}

// Formats, so that what is logged is read: a text without its end shows up here.
void Log(uint32_t, const char *, const char *, uint32_t, const char *, const char *fmt, ...)
{
    char line[2 * DCM_RESPONSE_CAPACITY];
    va_list args;
    va_start(args, fmt);
    (void)std::vsnprintf(line, sizeof(line), fmt, args);
    va_end(args);
}

void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

template <size_t size>
void RequireTerminated(const char (&field)[size])
{
    Require(memchr(field, '\0', size) != nullptr);
}

void CheckRecord(uint32_t type, const void *record)
{
    switch (type) {
    case MESSAGE_DISK_BRIEF_INFO: {
        const auto *brief = static_cast<const DiskBriefInfo *>(record);
        RequireTerminated(brief->serialNumber);
        RequireTerminated(brief->deviceName);
        break;
    }
    case MESSAGE_DISK_BASE_INFO: {
        const auto *disk = static_cast<const DiskMgrObj *>(record);
        RequireTerminated(disk->sn);
        RequireTerminated(disk->vendor);
        RequireTerminated(disk->model);
        RequireTerminated(disk->firmware);
        RequireTerminated(disk->deviceName);
        RequireTerminated(disk->pciAddr);
        Require(disk->diskType < DISK_TYPE_BUTT && disk->mediaType < DISK_MEDIA_TYPE_BUTT);
        Require(disk->diskId == UINT32_MAX && disk->diskState == DISK_STATE_KEEP);
        break;
    }
    case MESSAGE_DISK_HEALTH_INFO: {
        const auto *health = static_cast<const DiskHealthInfoSnWrap *>(record);
        RequireTerminated(health->serialNumber);
        Require(health->info.wearInt <= 655 && health->info.wearFrac < 100 && health->info.powerOnHours <= UINT32_MAX);
        break;
    }
    default:
        RequireTerminated(static_cast<const DiskIoInfoFrameSnWrap *>(record)->serialNumber);
        break;
    }
}

void CopyAnswer(uint32_t type, cJSON *result, uint32_t requestedCount)
{
    ArrayList list = {};
    Require(ArrayListCreate(&list, requestedCount, g_copyStructMemorySizeMap[type]) == DCM_OK);
    cJSON *disks = cJSON_GetObjectItem(result, "disks");
    const auto answered = static_cast<uint32_t>(cJSON_GetArraySize(disks));
    Require(answered <= requestedCount);
    if (CopyBatchFromJSON(type, disks, list.list) == DCM_OK) {
        for (uint32_t i = 0; i < answered; i++) {
            CheckRecord(type, list.list[i]);
        }
        if (type == MESSAGE_DISK_IO_INFO_FRAME) {
            uint64_t tickRate = 0;
            uint64_t ticks = 0;
            Require(CopyClockTicksInstantFromJSON(result, &tickRate, &ticks) == DCM_OK);
        }
    }
    ArrayListDelete(&list);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_corvaneInfra.memAlloc = Alloc;
    g_corvaneInfra.memFree = Free;
    g_corvaneInfra.log = Log;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const uint32_t type = data[0] % MESSAGE_TYPE_BUTT;
    // The longest answer that reaches the parser, with the zero that the transport puts behind it.
    const std::string text(reinterpret_cast<const char *>(data + 1), std::min<size_t>(size - 1, DCM_RESPONSE_CAPACITY));
    const CJsonPtr response(cJSON_Parse(text.c_str()));
    cJSON *result = cJSON_GetObjectItem(response.get(), "result");
    const uint32_t requestedCount =
        type == MESSAGE_DISK_BRIEF_INFO ? static_cast<uint32_t>(DCM_DEVICE_LIST_MAX) : g_queryMessageStepMap[type];
    if (response != nullptr && IsValidJsonResponseHeader(response.get()) &&
        IsValidResultJson(type, result, requestedCount)) {
        CopyAnswer(type, result, requestedCount);
    }
    return 0;
}
