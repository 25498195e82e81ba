#include "ma/drm/framework/drm_action_handle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "support/fake_host.h"

using ::testing::IsEmpty;

namespace {

constexpr uint32_t kError = 3;
constexpr uint32_t kInfo = 6;
constexpr uint32_t kOpcode = DRM_OPCODE_GET_DISK_HEALTH_INFO;

struct Call {
    void *in;
    uint32_t inLen;
    uint64_t outData;
    uint64_t outInfo;
};

struct Answer {
    void *callbackArg;
    uint64_t outData;
    uint64_t outInfo;
    size_t callsBefore;
};

std::vector<Call> g_calls;
std::vector<Answer> g_answers;
uint32_t g_result;

uint32_t Handler(void *in, uint32_t inLen, uint64_t *outData, uint64_t *outInfo)
{
    g_calls.push_back({in, inLen, *outData, *outInfo});
    *outData = 0x1122334455667788;
    *outInfo = 0x99AABBCCDDEEFF00;
    return g_result;
}

uint32_t OtherHandler(void *, uint32_t, uint64_t *, uint64_t *)
{
    return 1;
}

void Callback(void *callbackArg, uint64_t outData, uint64_t outInfo)
{
    g_answers.push_back({callbackArg, outData, outInfo, g_calls.size()});
}

std::string Pointer(DrmActionHandlerFunc handler)
{
    char text[32];
    (void)std::snprintf(text, sizeof(text), "0x%p", reinterpret_cast<void *>(handler));
    return text;
}

class ActionTest : public FakeHostTest {
protected:
    ActionTest()
    {
        EXPECT_EQ(DrmActionHandleInit(), DRM_OK);
        g_calls.clear();
        g_answers.clear();
        g_result = 0;
    }
    ~ActionTest() override { (void)DrmActionHandleInit(); }
};

using DrmActionHandleInitTest = ActionTest;
using DrmRegisterActionHandlerTest = ActionTest;
using DrmAsyncActionRequestTest = ActionTest;
using DrmSyncActionRequestTest = ActionTest;

} // namespace

TEST_F(DrmActionHandleInitTest, EmptiesTheTable)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    g_drmActionHandler[127] = {7, Handler};

    EXPECT_EQ(DrmActionHandleInit(), DRM_OK);

    for (const DrmActionHandler &row : g_drmActionHandler) {
        EXPECT_EQ(row.opcode, 0u);
        EXPECT_EQ(row.handler, nullptr);
    }
}

TEST_F(DrmActionHandleInitTest, FinLeavesTheTableAsItIs)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);

    EXPECT_EQ(DrmActionHandleFin(), DRM_OK);

    EXPECT_EQ(g_drmActionHandler[0].opcode, kOpcode);
    EXPECT_EQ(g_drmActionHandler[0].handler, Handler);
}

TEST_F(DrmRegisterActionHandlerTest, TakesTheFirstFreeRow)
{
    EXPECT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    EXPECT_EQ(DrmRegisterActionHandler(DRM_OPCODE_SET_LIFE_MONITOR_RESULT, OtherHandler), DRM_OK);

    EXPECT_EQ(g_drmActionHandler[0].opcode, 0x20f0001u);
    EXPECT_EQ(g_drmActionHandler[0].handler, Handler);
    EXPECT_EQ(g_drmActionHandler[1].opcode, 0x20f0101u);
    EXPECT_EQ(g_drmActionHandler[1].handler, OtherHandler);
    EXPECT_EQ(HostLogCount(kInfo, "Add Handler index(0),opcode(34537473),handler(" + Pointer(Handler) + ")."), 1u);
    EXPECT_EQ(HostLogCount(kInfo, "Add Handler index(1),opcode(34537729),handler(" + Pointer(OtherHandler) + ")."), 1u);

    g_drmActionHandler[0] = {};
    EXPECT_EQ(DrmRegisterActionHandler(5, OtherHandler), DRM_OK);
    EXPECT_EQ(g_drmActionHandler[0].opcode, 5u);
}

TEST_F(DrmRegisterActionHandlerTest, RefusesANullHandler)
{
    EXPECT_EQ(DrmRegisterActionHandler(kOpcode, nullptr), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "handler is NULL"), 1u);
    EXPECT_EQ(g_drmActionHandler[0].opcode, 0u);
}

TEST_F(DrmRegisterActionHandlerTest, RefusesAnOpcodeThatHasOne)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);

    EXPECT_EQ(DrmRegisterActionHandler(kOpcode, OtherHandler), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "OpCode(0x20f0001) has already been registered."), 1u);
    EXPECT_EQ(g_drmActionHandler[0].handler, Handler);
    EXPECT_EQ(g_drmActionHandler[1].handler, nullptr);
}

TEST_F(DrmRegisterActionHandlerTest, TheTableHolds128)
{
    for (uint32_t i = 1; i <= 128; i++) {
        ASSERT_EQ(DrmRegisterActionHandler(i, Handler), DRM_OK) << i;
    }

    EXPECT_EQ(DrmRegisterActionHandler(129, Handler), DRM_ERR_FAIL);

    EXPECT_EQ(g_drmActionHandler[127].opcode, 128u);
    EXPECT_EQ(HostLogCount(kError, "Add Handler failed due to lack of index resource,opcode(129),handler(" +
                                       Pointer(Handler) + ")."),
              1u);
    EXPECT_EQ(DrmRegisterActionHandler(128, Handler), DRM_ERR_FAIL);
    EXPECT_TRUE(HostLogged(kError, "OpCode(0x80) has already been registered.")) << "looked for before a free row";
}

TEST_F(DrmAsyncActionRequestTest, RunsTheHandlerAndThenTheCallback)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    ClearHostLog();
    uint32_t in = 0;
    uint32_t arg = 0;

    EXPECT_EQ(DrmAsyncActionRequest(kOpcode, &in, 4, Callback, &arg), DRM_OK);

    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].in, &in);
    EXPECT_EQ(g_calls[0].inLen, 4u);
    ASSERT_EQ(g_answers.size(), 1u);
    EXPECT_EQ(g_answers[0].callbackArg, &arg);
    EXPECT_EQ(g_answers[0].outData, 0x1122334455667788u);
    EXPECT_EQ(g_answers[0].outInfo, 0x00000000DDEEFF00u) << "the upper half is the result";
    EXPECT_EQ(g_answers[0].callsBefore, 1u);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmAsyncActionRequestTest, AFailureReachesTheCallbackToo)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    g_result = 0x80000007;

    EXPECT_EQ(DrmAsyncActionRequest(kOpcode, nullptr, 0, Callback, nullptr), 0x80000007u);

    ASSERT_EQ(g_answers.size(), 1u);
    EXPECT_EQ(g_answers[0].outInfo, 0x80000007DDEEFF00u);
    EXPECT_EQ(HostLogCount(kError, "Drm actionSubHandler handle failed, opcode(0x20f0001)."), 1u);
}

TEST_F(DrmAsyncActionRequestTest, NeedsNoCallback)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);

    EXPECT_EQ(DrmAsyncActionRequest(kOpcode, nullptr, 0, nullptr, nullptr), DRM_OK);

    EXPECT_EQ(g_calls.size(), 1u);
}

TEST_F(DrmAsyncActionRequestTest, AnUnknownOpcodeCallsNobody)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);

    EXPECT_EQ(DrmAsyncActionRequest(0xABC, nullptr, 0, Callback, nullptr), 65206u);

    EXPECT_EQ(HostLogCount(kError, "Drm actionHandler is NULL, opcode(0xabc)."), 1u);
    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_THAT(g_answers, IsEmpty());
}

TEST_F(DrmAsyncActionRequestTest, ARowWithoutHandlerFails)
{
    g_drmActionHandler[127] = {kOpcode, nullptr};

    EXPECT_EQ(DrmAsyncActionRequest(kOpcode, nullptr, 0, Callback, nullptr), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "Drm sub actionSubHandler is NULL, opcode(0x20f0001)."), 1u);
    EXPECT_THAT(g_answers, IsEmpty());
}

TEST_F(DrmSyncActionRequestTest, TheHandlerSeesCopiesOfTheOutputs)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    uint32_t in = 0;
    uint64_t out = 42;

    EXPECT_EQ(DrmSyncActionRequest(kOpcode, &in, 4, &out, 0xFFFFFFF8), DRM_OK);

    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].in, &in);
    EXPECT_EQ(g_calls[0].inLen, 4u);
    EXPECT_EQ(g_calls[0].outData, reinterpret_cast<uintptr_t>(&out));
    EXPECT_EQ(g_calls[0].outInfo, 0xFFFFFFF8u);
    EXPECT_EQ(out, 42u);
}

TEST_F(DrmSyncActionRequestTest, FailsAsTheAsynchronousRequest)
{
    ASSERT_EQ(DrmRegisterActionHandler(kOpcode, Handler), DRM_OK);
    g_drmActionHandler[1] = {6, nullptr};
    g_result = 9;

    EXPECT_EQ(DrmSyncActionRequest(kOpcode, nullptr, 0, nullptr, 0), 9u);
    EXPECT_EQ(DrmSyncActionRequest(5, nullptr, 0, nullptr, 0), 65206u);
    EXPECT_EQ(DrmSyncActionRequest(6, nullptr, 0, nullptr, 0), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "Drm actionSubHandler handle failed, opcode(0x20f0001)."), 1u);
    EXPECT_EQ(HostLogCount(kError, "Drm actionHandler is NULL, opcode(0x5)."), 1u);
    EXPECT_EQ(HostLogCount(kError, "Drm sub actionSubHandler is NULL, opcode(0x6)."), 1u);
}
