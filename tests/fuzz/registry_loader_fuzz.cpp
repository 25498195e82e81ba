// Any bytes as the registry file: the start goes on, and what was loaded can be used, saved and freed.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

namespace {

void NoLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

std::string MakePath()
{
    (void)CorvaneInfraRegisterInfraAdapter();
    g_corvaneInfra.log = NoLog;
    g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **result) {
        entry->pw_uid = geteuid();
        *result = entry;
        return 0;
    };
    g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *, size_t, struct group **result) {
        entry->gr_gid = getegid();
        *result = entry;
        return 0;
    };
    return "/tmp/corvane-registry-fuzz." + std::to_string(getpid());
}

void Write(const std::string &path, const uint8_t *data, size_t size)
{
    std::FILE *file = std::fopen(path.c_str(), "w");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::abort();
    }
}

/** The loader let only states through that it would load again. */
void CheckTable()
{
    for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
        const DiskMgrObj *obj = g_diskMgrObj[id];
        if (obj != nullptr && (obj->diskId != id || obj->diskState == DISK_STATE_OFFLINE ||
                               std::strcmp(obj->deviceName, "unknown") != 0)) {
            std::abort();
        }
    }
}

void End(const std::string &path)
{
    (void)DiskMgrDestroy();
    for (DiskMgrObj *&obj : g_diskMgrObj) {
        g_corvaneInfra.memFree(obj);
        obj = nullptr;
    }
    (void)std::remove(path.c_str());
    (void)std::remove((path + ".wal").c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = MakePath();
    // The first byte chooses whether the bytes are the file, or the write-ahead copy beside an empty one.
    if (size > 0 && data[0] == 'w') {
        Write(path, reinterpret_cast<const uint8_t *>("[]"), 2);
        Write(path + ".wal", data + 1, size - 1);
    } else {
        Write(path, data, size);
    }
    if (DiskMgrInit(path.c_str()) != 0) {
        std::abort();
    }
    CheckTable();
    if (DiskInfoSavetoConfig() != 0) {
        std::abort();
    }
    End(path);
    return 0;
}
