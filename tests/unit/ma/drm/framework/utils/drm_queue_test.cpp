#include "ma/drm/framework/utils/drm_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "support/fake_host.h"

using ::testing::HasSubstr;

namespace {

class QueueTest : public FakeHostTest {
protected:
    QueueTest()
    {
        EXPECT_EQ(DrmMemMgrInit(), DRM_OK);
        drmQueueInit(&queue_);
    }
    ~QueueTest() override { (void)DrmMemMgrFin(); }

    bool IsFree() const { return queue_.lock.lock == 0; }

    DrmQueue queue_ = {};
    std::array<int, 4> data_{};
};

using DrmQueueQueueTest = QueueTest;
using DrmQueueQueueHeadTest = QueueTest;
using DrmQueueDequeueTest = QueueTest;
using DrmQueueExitTest = QueueTest;

} // namespace

TEST_F(DrmQueueQueueTest, FirstInFirstOut)
{
    for (int &each : data_) {
        EXPECT_EQ(drmQueueQueue(&queue_, &each), DRM_OK);
        EXPECT_TRUE(IsFree());
    }

    for (int &each : data_) {
        EXPECT_EQ(drmQueueDequeue(&queue_), &each);
        EXPECT_TRUE(IsFree());
    }
    EXPECT_EQ(drmQueueDequeue(&queue_), nullptr);
}

TEST_F(DrmQueueQueueTest, ItsNodesComeFromThePools)
{
    ASSERT_EQ(drmQueueQueue(&queue_, &data_[0]), DRM_OK);

    EXPECT_EQ(PoolItems(), 1);
    EXPECT_EQ(HeapBlocks(), 0);
    DrmDebugPrintMemInfo();
    EXPECT_THAT(TakePrinted(), HasSubstr("cm_size_32                               1          1          1"));

    EXPECT_EQ(drmQueueDequeue(&queue_), &data_[0]);
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmQueueQueueTest, FailsWithoutQueueOrMemory)
{
    EXPECT_EQ(drmQueueQueue(nullptr, &data_[0]), DRM_ERR_FAIL);
    Knobs().itemFailAfter = 0;
    EXPECT_EQ(drmQueueQueue(&queue_, &data_[0]), DRM_ERR_FAIL);

    EXPECT_EQ(PoolItems(), 0);
    EXPECT_EQ(drmQueueDequeue(&queue_), nullptr);
}

TEST_F(DrmQueueQueueTest, ANullPointerIsAnEntryToo)
{
    ASSERT_EQ(drmQueueQueue(&queue_, nullptr), DRM_OK);
    ASSERT_EQ(drmQueueQueue(&queue_, &data_[0]), DRM_OK);

    EXPECT_EQ(drmQueueDequeue(&queue_), nullptr);
    EXPECT_EQ(drmQueueDequeue(&queue_), &data_[0]);
}

TEST_F(DrmQueueQueueHeadTest, GoesInFront)
{
    ASSERT_EQ(drmQueueQueue(&queue_, &data_[2]), DRM_OK);
    EXPECT_EQ(drmQueueQueueHead(&queue_, &data_[1]), DRM_OK);
    EXPECT_EQ(drmQueueQueueHead(&queue_, &data_[0]), DRM_OK);
    ASSERT_EQ(drmQueueQueue(&queue_, &data_[3]), DRM_OK);

    for (int &each : data_) {
        EXPECT_EQ(drmQueueDequeue(&queue_), &each);
    }
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmQueueQueueHeadTest, FailsWithoutQueueOrMemory)
{
    EXPECT_EQ(drmQueueQueueHead(nullptr, &data_[0]), DRM_ERR_FAIL);
    Knobs().itemFailAfter = 0;
    EXPECT_EQ(drmQueueQueueHead(&queue_, &data_[0]), DRM_ERR_FAIL);

    EXPECT_EQ(drmQueueDequeue(&queue_), nullptr);
}

TEST_F(DrmQueueDequeueTest, GivesNullForAnEmptyAndANullQueue)
{
    EXPECT_EQ(drmQueueDequeue(&queue_), nullptr);
    EXPECT_EQ(drmQueueDequeue(nullptr), nullptr);

    EXPECT_TRUE(IsFree());
}

TEST_F(DrmQueueExitTest, LeavesTheEntriesAlone)
{
    ASSERT_EQ(drmQueueQueue(&queue_, &data_[0]), DRM_OK);

    drmQueueExit(&queue_);
    drmQueueExit(nullptr);
    drmQueueInit(nullptr);

    EXPECT_EQ(PoolItems(), 1);
    EXPECT_EQ(drmQueueDequeue(&queue_), &data_[0]) << "a worker that still drains gets them";
}
