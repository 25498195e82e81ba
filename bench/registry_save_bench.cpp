// What one change of the registry costs with all disks a node may have: the whole file is written each time, under
// the spinlock of the disk data.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

namespace {

void NoLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

void BM_DiskInfoSavetoConfig(benchmark::State &state)
{
    char folder[] = "/tmp/corvane-bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        state.SkipWithError("no temporary folder");
        return;
    }
    (void)CorvaneInfraRegisterInfraAdapter();
    g_corvaneInfra.log = NoLog;
    // The machine need not have the accounts; the file stays the caller's.
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
    const std::string path = std::string(folder) + "/disk_mgr.config";
    uint32_t failures = DiskMgrInit(path.c_str());
    for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
        DiskMgrObj obj{};
        obj.diskCapacity = 960197124096;
        obj.sectorSize = 512;
        obj.diskType = DISK_TYPE_SSD_SATA;
        (void)std::snprintf(obj.vendor, sizeof(obj.vendor), "ATA");
        (void)std::snprintf(obj.model, sizeof(obj.model), "SSD of 960 GB, model %u", id);
        (void)std::snprintf(obj.firmware, sizeof(obj.firmware), "FW01");
        (void)std::snprintf(obj.sn, sizeof(obj.sn), "SERIAL%014u", id);
        failures |= DiskInfoUpdate(id, &obj);
    }

    for (auto _ : state) {
        failures |= DiskInfoSavetoConfig();
    }

    if (failures != 0) {
        state.SkipWithError("a save failed");
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
    (void)DiskMgrDestroy();
    std::filesystem::remove_all(folder);
}

} // namespace

BENCHMARK(BM_DiskInfoSavetoConfig)->Unit(benchmark::kMicrosecond);
