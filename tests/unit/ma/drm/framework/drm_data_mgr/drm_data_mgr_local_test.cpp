#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "platform/norax.h"
#include "platform/normm.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr uint32_t kError = 3;
constexpr uint32_t kFeature = 15;

class LocalDataTest : public FakeHostTest {
protected:
    LocalDataTest() { EXPECT_EQ(DrmLocalDataMgrInit(), DRM_OK); }
    ~LocalDataTest() override { (void)DrmLocalDataMgrFin(); }

    static bool IsTaken(uint32_t featureId) { return g_drmAllLocalDiskInfo.locks[featureId].lock != 0; }

    uint32_t word_ = 0;
};

using DrmLocalDataMgrInitTest = FakeHostTest;
using DrmLocalDataMgrFinTest = FakeHostTest;
using LockDrmFeatureDataTest = LocalDataTest;
using GetFeatureLocPrivateDataTest = LocalDataTest;
using SetFeatureLocPrivateDataTest = LocalDataTest;
using GetFeatureLocValidDataIndexTest = LocalDataTest;

std::string InvalidText(uint32_t diskId, uint32_t innerId, uint32_t featureId)
{
    return "Para is invalid: disk ID(" + std::to_string(diskId) + "), inner ID(" + std::to_string(innerId) +
           "), feature ID(" + std::to_string(featureId) + ").";
}

} // namespace

TEST_F(DrmLocalDataMgrInitTest, MakesARowForEachDisk)
{
    uint64_t before = 0;
    normm_usage(481, &before, nullptr);

    EXPECT_EQ(DrmLocalDataMgrInit(), DRM_OK);

    uint64_t after = 0;
    normm_usage(481, &after, nullptr);
    EXPECT_EQ(after, before + 33792) << "one block";
    ASSERT_EQ(g_drmAllLocalDiskInfo.diskNum, 128u);
    for (uint32_t i = 0; i < 128; i++) {
        const DrmLocalDiskData &row = g_drmAllLocalDiskInfo.disks[i];
        EXPECT_EQ(row.innerId, i);
        EXPECT_EQ(row.invalid, 0xFFFFFFFFu);
        for (const void *data : row.featureData) {
            EXPECT_EQ(data, nullptr);
        }
    }
    for (DrmSpinlock &lock : g_drmAllLocalDiskInfo.locks) {
        EXPECT_EQ(do_norax_tspinlock_trylock(&lock, "test", 1), 1);
        do_norax_spinlock_unlock(&lock, "test", 1);
    }
    EXPECT_EQ(DrmLocalDataMgrFin(), DRM_OK);
}

TEST_F(DrmLocalDataMgrInitTest, WithoutMemoryThereIsNoTable)
{
    Knobs().blockFailAfter = 0;

    EXPECT_EQ(DrmLocalDataMgrInit(), DRM_ERR_FAIL);

    ASSERT_THAT(HostLog(), SizeIs(2));
    EXPECT_EQ(HostLog()[0].text, "Create BDM_DRM_LOCAL_DISK_POOL failed.");
    EXPECT_EQ(HostLog()[1].text, "Drm local alloc partition failed.");
    EXPECT_TRUE(HostLogged(kError, "Create BDM_DRM_LOCAL_DISK_POOL failed."));
    EXPECT_TRUE(HostLogged(kError, "Drm local alloc partition failed."));
    void *data = nullptr;
    EXPECT_EQ(getFeatureLocPrivateData(0, kFeature, &data), DRM_ERR_FAIL);
    EXPECT_EQ(setFeatureLocPrivateData(0, kFeature, &data), DRM_ERR_FAIL);
    std::array<uint32_t, 1> ids{};
    uint32_t count = 0;
    EXPECT_EQ(getFeatureLocValidDataIndex(kFeature, ids.data(), 1, &count), DRM_ERR_FAIL);
}

TEST_F(DrmLocalDataMgrFinTest, GivesTheBlockBackOnce)
{
    uint64_t before = 0;
    normm_usage(481, &before, nullptr);
    ASSERT_EQ(DrmLocalDataMgrInit(), DRM_OK);

    EXPECT_EQ(DrmLocalDataMgrFin(), DRM_OK);
    EXPECT_EQ(DrmLocalDataMgrFin(), DRM_OK);

    uint64_t after = 0;
    normm_usage(481, &after, nullptr);
    EXPECT_EQ(after, before);
    EXPECT_THAT(PoolsDeleted(), SizeIs(1));
    void *data = nullptr;
    EXPECT_EQ(getFeatureLocPrivateData(0, kFeature, &data), DRM_ERR_FAIL) << "no access to what is gone";
}

TEST_F(LockDrmFeatureDataTest, EachFeatureHasItsOwn)
{
    for (const uint32_t featureId : {0u, 3u, 31u}) {
        LOCK_DRM_FEATURE_DATA(featureId);

        for (uint32_t other = 0; other < 32; other++) {
            EXPECT_EQ(IsTaken(other), other == featureId) << other;
        }

        UNLOCK_DRM_FEATURE_DATA(featureId);
        EXPECT_FALSE(IsTaken(featureId));
    }
}

TEST_F(LockDrmFeatureDataTest, DoesNothingFromThirtyTwoUp)
{
    std::array<DrmSpinlock, 32> before{};
    std::memcpy(before.data(), g_drmAllLocalDiskInfo.locks, sizeof(before));
    const DrmLocalDiskData *disks = g_drmAllLocalDiskInfo.disks;
    testing::internal::CaptureStderr();

    for (const uint32_t featureId : {32u, 33u, 0xFFFFFFFFu}) {
        LOCK_DRM_FEATURE_DATA(featureId);
        UNLOCK_DRM_FEATURE_DATA(featureId);
    }

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the host sees no lock at all";
    EXPECT_EQ(std::memcmp(before.data(), g_drmAllLocalDiskInfo.locks, sizeof(before)), 0);
    EXPECT_EQ(g_drmAllLocalDiskInfo.disks, disks);
}

TEST_F(LockDrmFeatureDataTest, AGuardHoldsItForItsScope)
{
    {
        const DrmFeatureDataGuard guard(kFeature);
        EXPECT_TRUE(IsTaken(kFeature));
    }
    EXPECT_FALSE(IsTaken(kFeature));
}

TEST_F(SetFeatureLocPrivateDataTest, KeepsOneWordPerDiskAndFeature)
{
    uint32_t other = 0;
    ASSERT_EQ(setFeatureLocPrivateData(0, 0, &word_), DRM_OK);
    ASSERT_EQ(setFeatureLocPrivateData(127, 31, &other), DRM_OK);

    for (uint32_t diskId = 0; diskId < 128; diskId++) {
        for (uint32_t featureId = 0; featureId < 32; featureId++) {
            void *data = &data;
            ASSERT_EQ(getFeatureLocPrivateData(diskId, featureId, &data), DRM_OK);
            const void *expected = diskId == 0 && featureId == 0      ? &word_
                                   : diskId == 127 && featureId == 31 ? &other
                                                                      : nullptr;
            EXPECT_EQ(data, expected) << diskId << " " << featureId;
        }
    }

    EXPECT_EQ(setFeatureLocPrivateData(0, 0, nullptr), DRM_OK);
    void *data = &word_;
    EXPECT_EQ(getFeatureLocPrivateData(0, 0, &data), DRM_OK);
    EXPECT_EQ(data, nullptr);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(SetFeatureLocPrivateDataTest, RefusesDisksAndFeaturesOutOfRange)
{
    EXPECT_EQ(setFeatureLocPrivateData(127, 32, &word_), DRM_ERR_FAIL);
    EXPECT_EQ(setFeatureLocPrivateData(128, 31, &word_), DRM_ERR_FAIL);
    EXPECT_EQ(setFeatureLocPrivateData(0xFFFFFFFF, 0xFFFFFFFF, &word_), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, InvalidText(127, 127, 32)), 1u);
    EXPECT_EQ(HostLogCount(kError, InvalidText(128, 128, 31)), 1u);
    EXPECT_EQ(HostLogCount(kError, InvalidText(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF)), 1u);
}

TEST_F(GetFeatureLocPrivateDataTest, RefusesDisksAndFeaturesOutOfRange)
{
    void *data = &word_;

    EXPECT_EQ(getFeatureLocPrivateData(3, 32, &data), DRM_ERR_FAIL);
    EXPECT_EQ(getFeatureLocPrivateData(128, 0, &data), DRM_ERR_FAIL);
    EXPECT_EQ(getFeatureLocPrivateData(0, 0, nullptr), DRM_ERR_FAIL);

    EXPECT_EQ(data, &word_);
    EXPECT_EQ(HostLogCount(kError, InvalidText(3, 3, 32)), 1u);
    EXPECT_EQ(HostLogCount(kError, InvalidText(128, 128, 0)), 1u);
}

TEST_F(GetFeatureLocPrivateDataTest, LeavesTheLockToTheCaller)
{
    const DrmFeatureDataGuard guard(kFeature);
    void *data = nullptr;

    EXPECT_EQ(setFeatureLocPrivateData(5, kFeature, &word_), DRM_OK);
    EXPECT_EQ(getFeatureLocPrivateData(5, kFeature, &data), DRM_OK);

    EXPECT_EQ(data, &word_);
    EXPECT_TRUE(IsTaken(kFeature));
}

TEST_F(GetFeatureLocValidDataIndexTest, ListsTheDisksOfTheFeature)
{
    for (const uint32_t diskId : {127u, 0u, 64u}) {
        ASSERT_EQ(setFeatureLocPrivateData(diskId, kFeature, &word_), DRM_OK);
    }
    ASSERT_EQ(setFeatureLocPrivateData(5, kFeature + 1, &word_), DRM_OK);
    std::array<uint32_t, 4> ids{9, 9, 9, 9};
    uint32_t count = 0;

    EXPECT_EQ(getFeatureLocValidDataIndex(kFeature, ids.data(), 3, &count), DRM_OK);

    EXPECT_EQ(count, 3u);
    EXPECT_THAT(ids, ElementsAre(0, 64, 127, 9));
    EXPECT_FALSE(IsTaken(kFeature));
}

TEST_F(GetFeatureLocValidDataIndexTest, MoreDisksThanFitIsAFailure)
{
    for (const uint32_t diskId : {1u, 2u, 3u}) {
        ASSERT_EQ(setFeatureLocPrivateData(diskId, kFeature, &word_), DRM_OK);
    }
    std::array<uint32_t, 3> ids{9, 9, 9};
    uint32_t count = 77;

    EXPECT_EQ(getFeatureLocValidDataIndex(kFeature, ids.data(), 2, &count), DRM_ERR_FAIL);

    EXPECT_EQ(count, 77u);
    EXPECT_EQ(ids[2], 9u);
    EXPECT_FALSE(IsTaken(kFeature));
}

TEST_F(GetFeatureLocValidDataIndexTest, NoDiskNeedsNoRoom)
{
    uint32_t id = 9;
    uint32_t count = 77;

    EXPECT_EQ(getFeatureLocValidDataIndex(31, &id, 0, &count), DRM_OK);

    EXPECT_EQ(count, 0u);
    EXPECT_EQ(id, 9u);
}

TEST_F(GetFeatureLocValidDataIndexTest, RefusesBadArguments)
{
    uint32_t id = 9;
    uint32_t count = 77;

    EXPECT_EQ(getFeatureLocValidDataIndex(32, &id, 1, &count), DRM_ERR_FAIL);
    EXPECT_EQ(getFeatureLocValidDataIndex(0, nullptr, 1, &count), DRM_ERR_FAIL);
    EXPECT_EQ(getFeatureLocValidDataIndex(0, &id, 1, nullptr), DRM_ERR_FAIL);

    EXPECT_EQ(count, 77u);
}

TEST_F(GetFeatureLocValidDataIndexTest, WaitsForTheLock)
{
    // A lock without its magic number is told and left alone: so the host saw that this one was asked for.
    g_drmAllLocalDiskInfo.locks[kFeature].magic = 0;
    testing::internal::CaptureStderr();
    uint32_t id = 0;
    uint32_t count = 0;

    EXPECT_EQ(getFeatureLocValidDataIndex(kFeature, &id, 1, &count), DRM_OK);

    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("is not set up"));
    g_drmAllLocalDiskInfo.locks[kFeature].magic = DRM_SPINLOCK_MAGIC;
}
