// What the store costs: one I/O statistic, and a refresh that finds nothing new.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

namespace {

void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

uint32_t SendToNobody(uint32_t, DiskSnRef, void *)
{
    return 0;
}

uint32_t FetchNothing(DiskSnRef, DiskMgrObj *)
{
    std::fputs("a known disk was fetched\n", stderr);
    std::abort();
}

int FindUser(const char *, struct passwd *entry, char *, size_t, struct passwd **result)
{
    entry->pw_uid = getuid();
    *result = entry;
    return 0;
}

int FindGroup(const char *, struct group *entry, char *, size_t, struct group **result)
{
    entry->gr_gid = getgid();
    *result = entry;
    return 0;
}

/** A store with 64 disks, made once; its log goes nowhere. */
class Store {
public:
    Store()
    {
        (void)CorvaneInfraRegisterInfraAdapter();
        g_corvaneInfra.log = DropLog;
        g_osCalls.getpwnam_r = FindUser;
        g_osCalls.getgrnam_r = FindGroup;
        g_dataMgrSendRpc = SendToNobody;
        g_dataMgrFetchBaseInfo = FetchNothing;
        (void)DataMgrSetDrmNotifyFunc([](uint32_t, DiskSnRef, uint32_t) { return 0u; });
        char folder[] = "/tmp/corvane-bench.XXXXXX";
        Require(mkdtemp(folder) != nullptr);
        char path[64];
        (void)std::snprintf(path, sizeof(path), "%s/disk_mgr.config", folder);
        Require(DiskMgrInit(path) == 0);
        for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
            DiskMgrObj record{};
            record.diskType = DISK_TYPE_SSD_NVME;
            std::strcpy(record.vendor, "VELMAR");
            (void)std::snprintf(sns_[id].data(), sns_[id].size(), "SERIAL-NUMBER-%02u", id);
            std::memcpy(record.sn, sns_[id].data(), sizeof(record.sn));
            Require(DiskInfoUpdate(id, &record) == 0);
            list_[id] = {.len = DISK_SN_SIZE, .buf = sns_[id].data()};
        }
        Require(DataMgrInit() == 0);
        (void)std::remove(path);
        (void)rmdir(folder);
    }

    DiskSnRef *List() { return list_.data(); }

private:
    static void Require(bool holds)
    {
        if (!holds) {
            std::fputs("the store cannot be made\n", stderr);
            std::abort();
        }
    }

    std::array<std::array<char, DISK_SN_SIZE>, DISK_ONLINE_MAX> sns_{};
    std::array<DiskSnRef, DISK_ONLINE_MAX> list_{};
};

Store &TheStore()
{
    static Store store;
    return store;
}

void IoStatSet(benchmark::State &state)
{
    DiskSnRef sn = TheStore().List()[DISK_ONLINE_MAX - 1]; // found last
    DiskIoInfoFrame frame{};
    frame.ticks = g_diskDataMgr[DISK_ONLINE_MAX - 1]->lastFrame.ticks + 1;
    frame.tickRate = 1000;
    (void)DiskIoStatInfoSet(sn, &frame); // from now on each frame gives a statistic
    for (auto _ : state) {
        frame.ticks += 3000;
        frame.numReadOps += 100;
        frame.bytesRead += 409600;
        frame.readLatencyTicks += 20;
        frame.ioTime += 500000;
        if (DiskIoStatInfoSet(sn, &frame) != 0) {
            state.SkipWithError("set failed");
            break;
        }
    }
}
BENCHMARK(IoStatSet);

void RefreshKnownDisks(benchmark::State &state)
{
    DiskSnRef *list = TheStore().List();
    for (auto _ : state) {
        if (DiskSerialNumberRefresh(list, DISK_ONLINE_MAX) != 0) {
            state.SkipWithError("refresh failed");
            break;
        }
    }
}
BENCHMARK(RefreshKnownDisks);

} // namespace
