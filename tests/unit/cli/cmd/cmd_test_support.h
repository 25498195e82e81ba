/**
 * @file cmd_test_support.h
 * @brief Disks and settings for the commands, and doubles of what a changed setting puts to work.
 */
#ifndef CMD_TEST_SUPPORT_H
#define CMD_TEST_SUPPORT_H

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "cli/common/CliResultCode.h"
#include "cli/server/BaseCommand.h"
#include "config/corvane_config.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "disk_mgr/disk_mgr.h"
#include "unit/cli/common/cli_test_support.h"

/** What the commands called, in order, and how it is to answer. */
struct CmdDoubles {
    static inline std::vector<std::string> calls;
    static inline std::map<std::string, uint32_t> results; /**< by a call's first words; 0 for the others */
    static inline bool settingsAreNotSaved = false;        /**< from the prefail switch on */
    static inline uint32_t listResult = 0;                 /**< of the list of disks, when not 0 */
    static inline uint32_t listCount = 0;                  /**< instead of the true number, when not 0 */

    static void Reset()
    {
        calls.clear();
        results.clear();
        settingsAreNotSaved = false;
        listResult = 0;
        listCount = 0;
    }
};

inline int RefuseRename(const char *, const char *)
{
    errno = EROFS;
    return -1;
}

/** Settings cannot be saved from here on. */
inline void RefuseSaves()
{
    g_osCalls.rename = RefuseRename;
}

inline constexpr const char *kSettings = R"({
"feature_switch": 1, "takeover_disk_switch": 0, "disklife_prediction": {"task_cycle": 86400},
"sata_ssd_disk": {"task_cycle": 20, "min_threshold_value": 1, "min_slow_cycle": 50},
"sas_ssd_disk": {"task_cycle": 21, "min_threshold_value": 2, "min_slow_cycle": 51},
"nvme_disk": {"task_cycle": 22, "min_threshold_value": 3, "min_slow_cycle": 52},
"sas_hdd": {"task_cycle": 2592000, "min_threshold_value": 100, "min_slow_cycle": 100}})";

/** Doubles, an empty store that is not started, and no settings yet. */
template <typename Fixture>
class CmdFixture : public Fixture {
protected:
    CmdFixture()
    {
        CmdDoubles::Reset();
        g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **result) {
            entry->pw_uid = 0;
            *result = entry;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *, size_t, struct group **result) {
            entry->gr_gid = 0;
            *result = entry;
            return 0;
        };
        g_osCalls.chown = [](const char *, uid_t, gid_t) { return 0; };
        g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) { return 0u; };
        std::copy(std::begin(g_diskInfoGetFunc), std::end(g_diskInfoGetFunc), savedGets_);
        EXPECT_EQ(DiskMgrInit(nullptr), 0u);
    }

    ~CmdFixture() override
    {
        std::copy(std::begin(savedGets_), std::end(savedGets_), g_diskInfoGetFunc);
        (void)DataMgrDestroy();
        (void)DiskMgrDestroy();
        for (DiskMgrObj *&record : g_diskMgrObj) { // the upper half stays by design
            g_corvaneInfra.memFree(record);
            record = nullptr;
        }
        if (g_dataMgrLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_dataMgrLock);
            g_dataMgrLock = nullptr;
        }
        g_drmDiskEventNotifyFunc = nullptr;
        g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
        cJSON_Delete(g_configRoot);
        g_configRoot = nullptr;
        if (g_configLock != nullptr) {
            g_corvaneInfra.rwlockDestroy(g_configLock);
            g_configLock = nullptr;
        }
        CmdDoubles::Reset();
    }

    std::string ConfigFile() const { return this->Prefix() + "/config/corvane_config.json"; }
    void LoadSettings(const std::string &text = kSettings)
    {
        std::filesystem::create_directory(this->Prefix() + "/userconfig_bak");
        this->WriteFile(ConfigFile(), text);
        ASSERT_EQ(InitConfig(), 0u);
    }
    /** A setting as a restart would find it; 0xFFFFFFFF if there is none. */
    uint32_t Saved(const char *parent, const char *child) const
    {
        const CJsonPtr root(cJSON_Parse(this->ReadFile(ConfigFile()).c_str()));
        const cJSON *section = parent != nullptr ? cJSON_GetObjectItem(root.get(), parent) : root.get();
        const cJSON *item = cJSON_GetObjectItem(section, child);
        return item != nullptr ? static_cast<uint32_t>(item->valueint) : 0xFFFFFFFFu;
    }
    /** A setting as it holds now. */
    static uint32_t Held(const char *parent, const char *child)
    {
        uint32_t value = 0xFFFFFFFFu;
        (void)(parent != nullptr ? GetChildNodeConfigInt(parent, child, &value) : GetConfigInt(child, &value));
        return value;
    }

    static std::string SnOf(uint32_t diskId)
    {
        char sn[DISK_SN_SIZE] = {};
        (void)std::snprintf(sn, sizeof(sn), "SERIAL-%03u", diskId);
        return sn;
    }
    /** Registers a disk; the store must not be started yet. */
    static void AddDisk(uint32_t diskId, uint32_t type = DISK_TYPE_SSD_NVME)
    {
        DiskMgrObj record{};
        record.diskType = type;
        std::strcpy(record.sn, SnOf(diskId).c_str());
        ASSERT_EQ(DiskInfoUpdate(diskId, &record), 0u) << diskId;
    }
    /** Starts the store with the registered disks. */
    static void StartStore()
    {
        g_drmDiskEventNotifyFunc = [](uint32_t, DiskSnRef, uint32_t) { return 0u; };
        ASSERT_EQ(DataMgrInit(), 0u);
    }
    static DataMgrObj &Disk(uint32_t diskId) { return *g_diskDataMgr[diskId]; }
    static DiskMgrObj &Base(uint32_t diskId) { return *g_diskDataMgr[diskId]->baseInfo; }
    /** The store gives this result for one kind of record. */
    template <uint32_t Result>
    static void FailGet(DISK_INFO_TYPE_E type)
    {
        g_diskInfoGetFunc[type] = [](uint32_t, DiskSnRef, void *, uint32_t) { return Result; };
    }

    /** Runs a request as the server forms it. */
    struct Answer {
        int code;
        std::string output;
        std::string action; /**< of the answer's head */
        bool operator==(const Answer &) const = default;
    };
    template <typename Command>
    static Answer Run(const std::string &name, const std::string &param)
    {
        Command command;
        command.SetData({name, param, -1});
        Answer answer;
        answer.code = command.Exec(param, answer.output);
        answer.action = command.GetAction();
        return answer;
    }

private:
    DataMgrInfoGetFunc savedGets_[DISK_INFO_BUTT] = {};
};

using CmdTest = CmdFixture<CliLogTest>;

#endif
