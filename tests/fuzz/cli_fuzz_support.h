/**
 * @file cli_fuzz_support.h
 * @brief What stands behind the management commands: a prefix, settings, a full store of disks, and doubles of what a
 *        changed setting puts to work. Included once by a target; the doubles need the linker's --wrap.
 */
#ifndef CLI_FUZZ_SUPPORT_H
#define CLI_FUZZ_SUPPORT_H

#include <cjson/cJSON.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "cli/common/CLogger.h"
#include "config/corvane_config.h"
#include "config/corvane_prefix_path.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

inline void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

inline void WriteFuzzFile(const std::string &path, const void *data, size_t size)
{
    std::FILE *file = std::fopen(path.c_str(), "w");
    Require(file != nullptr && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
}

/** The management log formats its lines and drops them. */
inline void DropCliLog()
{
    (void)g_objLogger.SetFilePath("/dev/");
    (void)g_objLogger.SetFileName("null");
}

inline void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

/** A prefix of this process, removed at its end. */
class FuzzPrefix {
public:
    FuzzPrefix()
    {
        char name[] = "/tmp/corvane-fuzz.XXXXXX";
        path_ = mkdtemp(name);
        std::filesystem::create_directory(path_ + "/config");
        std::filesystem::create_directory(path_ + "/userconfig_bak");
        (void)SetPrefixPath(path_.c_str());
        (void)CorvaneInfraRegisterInfraAdapter();
        g_corvaneInfra.log = DropLog;
        // The service's account need not exist where the fuzzer runs.
        g_osCalls.chown = [](const char *, uid_t, gid_t) { return 0; };
        g_osCalls.getpwnam_r = [](const char *, passwd *entry, char *, size_t, passwd **result) {
            *result = entry;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *, group *entry, char *, size_t, group **result) {
            *result = entry;
            return 0;
        };
        DropCliLog();
    }
    ~FuzzPrefix()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    FuzzPrefix(const FuzzPrefix &) = delete;
    FuzzPrefix &operator=(const FuzzPrefix &) = delete;

    [[nodiscard]] std::string File(const char *name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

#ifdef CLI_FUZZ_WITH_STORE

/** Settings and disks of every type and state, for the life of the process. */
class FuzzNode {
public:
    FuzzNode()
    {
        g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) { return 0u; };
        Require(DiskMgrInit(nullptr) == 0);
        for (uint32_t id = 0; id < DISK_ID_MAX; id += 2) { // half of the identifiers are no disk's
            DiskMgrObj record = {};
            record.diskType = id / 2 % (DISK_TYPE_BUTT + 1);
            (void)std::snprintf(record.sn, sizeof(record.sn), "SERIAL-%03u", id);
            (void)std::memset(record.vendor, 'v', sizeof(record.vendor)); // without its terminator
            Require(DiskInfoUpdate(id, &record) == 0);
        }
        g_drmDiskEventNotifyFunc = [](uint32_t, DiskSnRef, uint32_t) { return 0u; };
        Require(DataMgrInit() == 0);
        for (uint32_t id = 0; id < DISK_ID_MAX; id += 2) {
            g_diskDataMgr[id]->baseInfo->diskState = id % 7;
        }
        const std::string settings = Settings();
        WriteFuzzFile(prefix_.File("config/corvane_config.json"), settings.data(), settings.size());
        Require(InitConfig() == 0);
    }

    /** Settings as at the start. */
    static void ResetSettings()
    {
        cJSON_Delete(g_configRoot);
        g_configRoot = cJSON_Parse(Settings().c_str());
    }

private:
    static std::string Settings()
    {
        return R"({"feature_switch": 1, "takeover_disk_switch": 0, "disklife_prediction": {"task_cycle": 86400},
            "sata_ssd_disk": {"task_cycle": 20, "min_threshold_value": 1, "min_slow_cycle": 50},
            "sas_ssd_disk": {"task_cycle": 20, "min_threshold_value": 1, "min_slow_cycle": 50},
            "nvme_disk": {"task_cycle": 20, "min_threshold_value": 1, "min_slow_cycle": 50},
            "sas_hdd": {"task_cycle": 20, "min_threshold_value": 100, "min_slow_cycle": 50}})";
    }

    FuzzPrefix prefix_;
};

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void __wrap_DataMgrEnable() {}
void __wrap_DataMgrDisable() {}
void __wrap_StartQueryAgentScheduleTask() {}
uint32_t __wrap_CancelAllQueryAgentScheduleTask()
{
    return 0;
}
uint32_t __wrap_StartDmmSync2DmaScheduleTask()
{
    return 0;
}
uint32_t __wrap_CancelDmmSync2DmaScheduleTask()
{
    return 0;
}
uint32_t __wrap_StartConfigBackUpTask()
{
    return 0;
}
void __wrap_StopConfigBackUpTask() {}
void __wrap_TakeOverDiskSwitch(bool) {}
uint32_t __wrap_DrmDprSetSwitchConfig(void *)
{
    return 0;
}
uint32_t __wrap_DrmDprSetCycleConfig(void *)
{
    return 0;
}
void __wrap_SetDiskLifeMonitorSchedulerCycle(uint32_t) {}
}
// NOLINTEND(bugprone-reserved-identifier)

#endif

#endif
