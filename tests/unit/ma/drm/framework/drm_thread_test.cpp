#include "ma/drm/framework/drm_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <string>

#include "ma/drm/framework/drm_base.h"
#include "platform/normm.h"
#include "support/fake_host.h"
#include "unit/platform/platform_test_support.h"

using ::testing::IsEmpty;

namespace {

constexpr uint32_t kError = 3;

/** What the worker saw; tests run one at a time. */
struct Seen {
    Event go;
    Event done;
    std::string data;
    const void *address = nullptr;
    uint32_t dataLen = 77;
    bool detached = false;
    bool elsewhere = false;
};

Seen *g_seen;
pthread_t g_caller;
const pthread_attr_t *g_attributes;
uint64_t g_size;

void Worker(void *data, uint32_t dataLen)
{
    Seen &seen = *g_seen;
    EXPECT_TRUE(seen.go.Wait());
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        int state = 0;
        (void)pthread_attr_getdetachstate(&attributes, &state);
        seen.detached = state == PTHREAD_CREATE_DETACHED;
        (void)pthread_attr_destroy(&attributes);
    }
    seen.elsewhere = pthread_equal(pthread_self(), g_caller) == 0;
    seen.data.assign(static_cast<const char *>(data), dataLen);
    seen.address = data;
    seen.dataLen = dataLen;
    seen.done.Signal();
}

int NoThread(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return EAGAIN;
}

int WatchedThread(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg)
{
    g_attributes = attributes;
    EXPECT_EQ(entry, DrmPthreadFuncProc);
    return pthread_create(thread, attributes, entry, arg);
}

class ThreadTest : public FakeHostTest {
protected:
    ThreadTest()
    {
        g_seen = &seen_;
        g_caller = pthread_self();
    }
    /** Also the end of the worker's use of everything here. */
    static bool AllFreed()
    {
        return WaitFor([] { return HeapBlocks() == 0; });
    }

    Seen seen_;
};

using DrmAsyncThreadCtxRunTest = ThreadTest;
using DrmPthreadFuncProcTest = ThreadTest;
using IsDrmAsyncThreadParamValidTest = ThreadTest;

} // namespace

TEST_F(DrmAsyncThreadCtxRunTest, RunsOnADetachedThreadWithACopyOfTheData)
{
    static pthread_attr_t notDefault;
    g_attributes = &notDefault;
    g_osCalls.threadCreate = WatchedThread;
    char data[] = "eight by";

    EXPECT_EQ(DrmAsyncThreadCtxRun(0xDEAD, Worker, data, 8), DRM_OK);
    std::memset(data, 'x', 8);
    seen_.go.Signal();
    ASSERT_TRUE(seen_.done.Wait());

    EXPECT_EQ(seen_.data, "eight by") << "the caller's memory may go";
    EXPECT_EQ(seen_.dataLen, 8u);
    EXPECT_TRUE(seen_.detached);
    EXPECT_TRUE(seen_.elsewhere);
    EXPECT_EQ(g_attributes, nullptr) << "default attributes";
    EXPECT_TRUE(AllFreed());
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmAsyncThreadCtxRunTest, NeedsNoData)
{
    EXPECT_EQ(DrmAsyncThreadCtxRun(0, Worker, nullptr, 0), DRM_OK);
    seen_.go.Signal();
    ASSERT_TRUE(seen_.done.Wait());

    EXPECT_EQ(seen_.dataLen, 0u);
    EXPECT_TRUE(AllFreed());
}

TEST_F(DrmAsyncThreadCtxRunTest, InvalidArgumentsRunNothingAndSucceed)
{
    uint32_t data = 0;
    g_osCalls.threadCreate = NoThread;

    EXPECT_EQ(DrmAsyncThreadCtxRun(0, nullptr, &data, 4), DRM_OK);
    EXPECT_EQ(DrmAsyncThreadCtxRun(0, Worker, nullptr, 4), DRM_OK);

    EXPECT_EQ(HostLogCount(kError, "func is NULL."), 1u);
    EXPECT_EQ(HostLogCount(kError, "data is NULL but len is than 0."), 1u);
    EXPECT_EQ(HostLog().size(), 2u);
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmAsyncThreadCtxRunTest, FailsWithoutMemory)
{
    uint32_t data = 0;
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmAsyncThreadCtxRun(0, Worker, &data, 4), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "DrmAsyncThreadCtxRun alloc param failed."), 1u);
}

TEST_F(DrmAsyncThreadCtxRunTest, FreesTheBlockWhenThereIsNoThread)
{
    uint32_t data = 0;
    g_osCalls.threadCreate = NoThread;

    EXPECT_EQ(DrmAsyncThreadCtxRun(0, Worker, &data, 4), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "Create pthread failed."), 1u);
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmAsyncThreadCtxRunTest, AsksForSixteenBytesMoreThanTheData)
{
    static uint64_t used;
    g_osCalls.threadCreate = [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
        normm_usage(481, &used, nullptr);
        return EAGAIN;
    };
    normm_usage(481, &g_size, nullptr);
    char data[100] = {};

    EXPECT_EQ(DrmAsyncThreadCtxRun(0, Worker, data, sizeof(data)), DRM_ERR_FAIL);

    EXPECT_EQ(used, g_size + 116);
}

TEST_F(DrmPthreadFuncProcTest, CallsAndFreesTheBlock)
{
    auto *ctx = static_cast<DrmAsyncThreadCtx *>(normm_malloc(16 + 4, 481, "test"));
    *ctx = {Worker, 4};
    std::memcpy(ctx + 1, "abcd", 4);
    seen_.go.Signal();

    EXPECT_EQ(DrmPthreadFuncProc(ctx), nullptr);

    EXPECT_EQ(seen_.data, "abcd");
    EXPECT_EQ(seen_.address, ctx + 1) << "the copy lies behind the head";
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(IsDrmAsyncThreadParamValidTest, WantsAFunctionAndDataIfItHasALength)
{
    uint32_t data = 0;

    EXPECT_TRUE(IsDrmAsyncThreadParamValid(Worker, &data, 4));
    EXPECT_TRUE(IsDrmAsyncThreadParamValid(Worker, &data, 0));
    EXPECT_TRUE(IsDrmAsyncThreadParamValid(Worker, nullptr, 0));
    EXPECT_THAT(HostLog(), IsEmpty());
    EXPECT_FALSE(IsDrmAsyncThreadParamValid(nullptr, nullptr, 4));
    EXPECT_FALSE(IsDrmAsyncThreadParamValid(Worker, nullptr, 1));

    ASSERT_EQ(HostLog().size(), 2u);
    EXPECT_EQ(HostLog()[0].text, "func is NULL.") << "looked at first";
    EXPECT_EQ(HostLog()[1].text, "data is NULL but len is than 0.");
}
