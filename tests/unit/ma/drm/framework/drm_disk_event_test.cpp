#include "ma/drm/framework/drm_disk_event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::vector<std::string> g_seen;

template <char Name>
uint32_t Note(uint32_t diskId, uint32_t event)
{
    g_seen.push_back(Name + std::to_string(diskId) + "/" + std::to_string(event));
    return DRM_ERR_FAIL; // nobody looks at it
}

class DiskEventTest : public FakeHostTest {
protected:
    DiskEventTest()
    {
        std::fill(std::begin(g_drmLocalDiskUpdateHandle), std::end(g_drmLocalDiskUpdateHandle),
                  DrmDiskUpdateHandle{nullptr, nullptr});
        g_seen.clear();
    }
    ~DiskEventTest() override
    {
        std::fill(std::begin(g_drmLocalDiskUpdateHandle), std::end(g_drmLocalDiskUpdateHandle),
                  DrmDiskUpdateHandle{nullptr, nullptr});
    }
};

using DrmNotifyDiskEventTest = DiskEventTest;
using DrmRegisterDiskEventHandlerTest = DiskEventTest;
using DrmUnRegisterDiskEventHandlerTest = DiskEventTest;

} // namespace

TEST_F(DrmNotifyDiskEventTest, CallsEveryFeatureInOrderTheLocalHandlerFirst)
{
    DrmRegisterDiskEventHandler(31, Note<'e'>, Note<'f'>);
    DrmRegisterDiskEventHandler(3, Note<'b'>, nullptr);
    DrmRegisterDiskEventHandler(15, nullptr, Note<'c'>);
    DrmRegisterDiskEventHandler(0, nullptr, Note<'a'>);

    DrmNotifyDiskEvent(127, 1);

    EXPECT_THAT(g_seen, ElementsAre("a127/1", "b127/1", "c127/1", "e127/1", "f127/1"));
}

TEST_F(DrmNotifyDiskEventTest, WithoutHandlersNothingHappens)
{
    DrmNotifyDiskEvent(5, 0);

    EXPECT_THAT(g_seen, IsEmpty());
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmRegisterDiskEventHandlerTest, TheLastRegistrationCounts)
{
    DrmRegisterDiskEventHandler(3, Note<'a'>, Note<'b'>);
    DrmRegisterDiskEventHandler(3, nullptr, Note<'c'>);

    DrmNotifyDiskEvent(5, 0);

    EXPECT_THAT(g_seen, ElementsAre("c5/0"));
}

TEST_F(DrmRegisterDiskEventHandlerTest, IgnoresFeaturesFromThirtyTwoUp)
{
    DrmRegisterDiskEventHandler(32, Note<'a'>, Note<'b'>);
    DrmRegisterDiskEventHandler(0xFFFFFFFF, Note<'a'>, Note<'b'>);

    DrmNotifyDiskEvent(5, 0);

    EXPECT_THAT(g_seen, IsEmpty());
}

TEST_F(DrmUnRegisterDiskEventHandlerTest, TakesBothHandlersAway)
{
    DrmRegisterDiskEventHandler(3, Note<'a'>, Note<'b'>);
    DrmRegisterDiskEventHandler(31, Note<'c'>, nullptr);

    DrmUnRegisterDiskEventHandler(3);
    DrmUnRegisterDiskEventHandler(32);
    DrmUnRegisterDiskEventHandler(0xFFFFFFFF);

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[3].localHandler, nullptr);
    EXPECT_EQ(g_drmLocalDiskUpdateHandle[3].masterHandler, nullptr);
    DrmNotifyDiskEvent(5, 0);
    EXPECT_THAT(g_seen, ElementsAre("c5/0"));
}
