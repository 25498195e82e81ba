/**
 * @file bench_store.h
 * @brief A store with all the disks that a node may have, for benchmarks of what works on them.
 */
#ifndef BENCH_STORE_H
#define BENCH_STORE_H

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <unistd.h>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

/** Ends the program when a benchmark's ground does not hold. */
inline void Require(bool holds, const char *what)
{
    if (!holds) {
        (void)std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

/** Made once in a process; its log goes nowhere. */
class BenchStore {
public:
    /** @param describe  Fills in type and vendor of the disk with this identifier. */
    explicit BenchStore(const std::function<void(uint32_t diskId, DiskMgrObj &record)> &describe)
    {
        (void)CorvaneInfraRegisterInfraAdapter();
        g_corvaneInfra.log = DropLog;
        g_osCalls.getpwnam_r = FindUser;
        g_osCalls.getgrnam_r = FindGroup;
        g_dataMgrSendRpc = SendToNobody;
        g_dataMgrFetchBaseInfo = FetchNothing;
        (void)DataMgrSetDrmNotifyFunc([](uint32_t, DiskSnRef, uint32_t) { return 0u; });
        char folder[] = "/tmp/corvane-bench.XXXXXX";
        Require(mkdtemp(folder) != nullptr, "no temporary folder");
        char path[64];
        (void)std::snprintf(path, sizeof(path), "%s/disk_mgr.config", folder);
        Require(DiskMgrInit(path) == 0, "no registry");
        for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
            DiskMgrObj record{};
            describe(id, record);
            (void)std::snprintf(sns_[id].data(), sns_[id].size(), "SERIAL-NUMBER-%02u", id);
            std::memcpy(record.sn, sns_[id].data(), sizeof(record.sn));
            Require(DiskInfoUpdate(id, &record) == 0, "a disk was refused");
            list_[id] = {.len = DISK_SN_SIZE, .buf = sns_[id].data()};
        }
        Require(DataMgrInit() == 0, "no live records");
        (void)std::remove(path);
        (void)rmdir(folder);
    }

    /** DISK_ONLINE_MAX serial numbers; the index is the disk's identifier. */
    DiskSnRef *List() { return list_.data(); }

private:
    static void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}
    static uint32_t SendToNobody(uint32_t, DiskSnRef, void *) { return 0; }
    static uint32_t FetchNothing(DiskSnRef, DiskMgrObj *)
    {
        Require(false, "a known disk was fetched");
        return 1;
    }
    static int FindUser(const char *, struct passwd *entry, char *, size_t, struct passwd **result)
    {
        entry->pw_uid = getuid();
        *result = entry;
        return 0;
    }
    static int FindGroup(const char *, struct group *entry, char *, size_t, struct group **result)
    {
        entry->gr_gid = getgid();
        *result = entry;
        return 0;
    }

    std::array<std::array<char, DISK_SN_SIZE>, DISK_ONLINE_MAX> sns_{};
    std::array<DiskSnRef, DISK_ONLINE_MAX> list_{};
};

#endif
