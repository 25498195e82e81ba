// What the store costs: one I/O statistic, and a refresh that finds nothing new.
#include <benchmark/benchmark.h>

#include "bench_store.h"

namespace {

BenchStore &TheStore()
{
    static BenchStore store([](uint32_t, DiskMgrObj &record) {
        record.diskType = DISK_TYPE_SSD_NVME;
        std::strcpy(record.vendor, "VELMAR");
    });
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
