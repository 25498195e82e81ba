#include "infrastructure/common/accounts.h"

#include "support/corvane_fixture.h"

namespace {

constexpr uid_t kUser = 4711;
constexpr gid_t kGroup = 4712;
constexpr uid_t kUntouched = 1;

/** The smallest buffer that the entry fits. */
size_t g_entrySize = 0;
/** What the look-up returns instead of an entry, unless it is 0. */
int g_error = 0;

int Answer(size_t size)
{
    return g_error != 0 ? g_error : size < g_entrySize ? ERANGE : 0;
}

/** Knows one user. */
int OneUser(const char *name, struct passwd *entry, char *, size_t size, struct passwd **result)
{
    const int error = Answer(size);
    entry->pw_uid = kUser;
    *result = error == 0 && std::string(name) == "known" ? entry : nullptr;
    return error;
}

/** Knows one group. */
int OneGroup(const char *name, struct group *entry, char *, size_t size, struct group **result)
{
    const int error = Answer(size);
    entry->gr_gid = kGroup;
    *result = error == 0 && std::string(name) == "known" ? entry : nullptr;
    return error;
}

void *NoMemory(size_t)
{
    return nullptr;
}

} // namespace

class FindAccountTest : public CorvaneTest {
protected:
    FindAccountTest()
    {
        g_osCalls.getpwnam_r = OneUser;
        g_osCalls.getgrnam_r = OneGroup;
        g_entrySize = 0;
        g_error = 0;
    }

    void ExpectFound(const char *name)
    {
        EXPECT_TRUE(FindUserId(name, user_));
        EXPECT_TRUE(FindGroupId(name, group_));
        EXPECT_EQ(user_, kUser);
        EXPECT_EQ(group_, kGroup);
    }
    void ExpectNotFound(const char *name)
    {
        EXPECT_FALSE(FindUserId(name, user_));
        EXPECT_FALSE(FindGroupId(name, group_));
        EXPECT_EQ(user_, kUntouched);
        EXPECT_EQ(group_, kUntouched);
    }

    uid_t user_ = kUntouched;
    gid_t group_ = kUntouched;
};

TEST_F(FindAccountTest, GivesTheNumber)
{
    ExpectFound("known");
}

TEST_F(FindAccountTest, WorksBeforeTheAdapterTableIsFilled)
{
    g_corvaneInfra = {};

    ExpectFound("known");
}

TEST_F(FindAccountTest, GrowsItsBufferForALargeEntry)
{
    g_entrySize = 1024 * 1024;

    ExpectFound("known");
}

TEST_F(FindAccountTest, GivesUpOnAnEntryWithoutEnd)
{
    g_entrySize = SIZE_MAX;

    ExpectNotFound("known");
}

TEST_F(FindAccountTest, DoesNotKnowOthers)
{
    ExpectNotFound("unknown");
    ExpectNotFound(nullptr);
}

TEST_F(FindAccountTest, FailsWithTheLookUp)
{
    g_error = EIO;

    ExpectNotFound("known");
}

TEST_F(FindAccountTest, FailsWithoutMemory)
{
    g_osCalls.malloc = NoMemory;

    ExpectNotFound("known");
}
