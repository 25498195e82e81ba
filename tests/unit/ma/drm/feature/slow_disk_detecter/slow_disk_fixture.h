/**
 * @file slow_disk_fixture.h
 * @brief The started feature, with disks whose statistics a test sets and samples that a test takes.
 */
#ifndef SLOW_DISK_FIXTURE_H
#define SLOW_DISK_FIXTURE_H

#include <string>
#include <vector>

#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/drm_base.h"
#include "unit/ma/drm/feature_disks.h"

/** Statistics that a test spells out; the rest are those of a suspected disk that moves nothing. */
struct Io {
    uint64_t svctm = 0;
    uint32_t busy = 30;
    uint32_t util = 90;
    uint64_t band = 0;
    uint64_t iops = 10;
};

class SlowDiskTest : public FeatureDisksTest {
protected:
    static constexpr uint32_t kNvme = 2;
    static constexpr uint32_t kHdd = 3;

    SlowDiskTest()
    {
        // The limiter of the one repeating line remembers earlier tests.
        static uint64_t jiffies = 0;
        jiffies += 100000000;
        start_ = jiffies;
        SetJiffies(start_);
        EXPECT_EQ(DrmClassicalSlowDiskDetectV2Init(), 0u);
        ForgetRegistrations();
        EXPECT_EQ(DrmSetClassicalSlowDiskDetectV2Switch(1), 0u);
        ClearHostLog();
        ClearLogs();
    }

    ~SlowDiskTest() override
    {
        Knobs() = HostKnobs();
        DrmSlowDiskDetectorHandleDiskEvent();
        for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
            (void)DrmSlowDiskDetectorHandleDiskOutEvent(diskId);
        }
        for (uint32_t type = 0; type < SLOW_DISK_ZONE_NUM; type++) {
            *DrmGetSlowDiskDetectV2Config(type) = savedConfig_[type];
        }
        (void)DrmSetClassicalSlowDiskDetectV2Switch(0);
        DrmClassicalSlowDiskDetectV2Exit();
    }

    /** A disk that has come. */
    static void Join(uint32_t diskId, uint32_t diskType = DISK_TYPE_SSD_NVME)
    {
        AddDisk(diskId, diskType);
        ASSERT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(diskId), 0u);
    }
    static void Set(uint32_t diskId, const Io &io)
    {
        SetStat(diskId, {.readIops = io.iops,
                         .writeIops = 0,
                         .readIoBand = io.band,
                         .writeIoBand = 0,
                         .readIoDelay = 0,
                         .writeIoDelay = 0,
                         .queueDepth = 0,
                         .ioBusyNum = io.busy,
                         .avgServeTime = io.svctm,
                         .utilizationInt = io.util,
                         .utilizationFrac = 0});
    }
    static void Configure(uint32_t type, uint8_t threshold, uint8_t slowCycle)
    {
        ClassicalSlowDiskDetectV2Config config = {type, threshold, slowCycle};
        ASSERT_EQ(DrmConfigClassicalSlowDiskDetectV2(&config), 0u);
    }
    static DrmSlowDiskZone &Zone(uint32_t type = kNvme) { return g_drm_slow_disk_detecter_zones[type]; }
    static std::vector<uint32_t> Members(uint32_t type = kNvme)
    {
        std::vector<uint32_t> ids;
        for (const DrmSlowDiskObj *member : DrmListView<DrmSlowDiskObj>(&Zone(type).disks)) {
            ids.push_back(member->diskId);
        }
        return ids;
    }
    static void *PrivateData(uint32_t diskId)
    {
        return g_drmAllLocalDiskInfo.disks[diskId].featureData[DRM_FEATURE_SLOW_DISK];
    }
    static DrmDiskIostatWindow &Window(uint32_t diskId)
    {
        return *static_cast<DrmDiskIostatWindow *>(PrivateData(diskId));
    }
    static bool Bit(const uint8_t *bits, uint32_t index) { return ((bits[index / 8] >> (index % 8)) & 1) != 0; }
    /** Marks in the disk's window. */
    static uint32_t Marks(uint32_t diskId) { return DrmSlowDiskGetSlowCycleCnt(&Window(diskId)); }
    /** Whether the present slot is marked. */
    static bool MarkedNow(uint32_t diskId, uint32_t type = kNvme)
    {
        return Bit(Window(diskId).slowBits, Zone(type).cycleIndex);
    }
    /** Disks with a mark in the present slot of their zone. */
    static std::vector<uint32_t> MarkedNowIn(uint32_t type)
    {
        std::vector<uint32_t> ids;
        for (const uint32_t diskId : Members(type)) {
            if (MarkedNow(diskId, type)) {
                ids.push_back(diskId);
            }
        }
        return ids;
    }
    static void Sample(uint32_t times = 1)
    {
        for (uint32_t i = 0; i < times; i++) {
            (void)DrmSlowDiskDetectorLocalSchedule(DRM_CODE_SCHEDULE);
        }
    }
    /** Marks of the slots from @p first on. */
    static void Mark(uint32_t diskId, uint32_t count, uint32_t first = 0)
    {
        for (uint32_t i = first; i < first + count; i++) {
            Window(diskId).slowBits[i / 8] |= static_cast<uint8_t>(1u << (i % 8));
        }
    }
    static size_t SuspectLines(uint32_t suspected)
    {
        return HostLogCount(CORVANE_LOG_INFO,
                            "Find " + std::to_string(suspected) + " suspected disks, don't set slow cycle.");
    }
    static bool Told(const std::string &text) { return HostLogged(CORVANE_LOG_ERROR, text); }

    uint64_t start_;

private:
    ClassicalSlowDiskDetectV2Config savedConfig_[SLOW_DISK_ZONE_NUM] = {
        *DrmGetSlowDiskDetectV2Config(0), *DrmGetSlowDiskDetectV2Config(1), *DrmGetSlowDiskDetectV2Config(2),
        *DrmGetSlowDiskDetectV2Config(3)};
};

#endif
