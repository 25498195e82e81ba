#include "cli/common/CliAccounts.h"

#include <cerrno>

#include "cli_test_support.h"

using CORVANE_CLI::FindGroupName;
using CORVANE_CLI::FindUser;
using CORVANE_CLI::UserRecord;

class CliAccountsTest : private CliAccountsInPlace, public CorvaneTest {
protected:
    UserRecord user_;
};

class FindUserTest : public CliAccountsTest {};
class FindGroupNameTest : public CliAccountsTest {};

TEST_F(FindUserTest, ByNumber)
{
    ASSERT_TRUE(FindUser(kExtraMember.uid, user_));
    EXPECT_STREQ(user_.entry.pw_name, "reader_extra");
    EXPECT_EQ(user_.entry.pw_gid, kExtraMember.gid);

    ASSERT_TRUE(FindUser(kRootAccount.uid, user_)) << "into the same record";
    EXPECT_STREQ(user_.entry.pw_name, "root");
}

TEST_F(FindUserTest, ByName)
{
    ASSERT_TRUE(FindUser(std::string("stranger"), user_));

    EXPECT_EQ(user_.entry.pw_uid, kStranger.uid);
    EXPECT_STREQ(user_.entry.pw_name, "stranger");
}

TEST_F(FindUserTest, WhoseRecordIsLong)
{
    ASSERT_TRUE(FindUser(kWordy.uid, user_));
    EXPECT_EQ(std::string(user_.entry.pw_gecos), std::string(5000, 'w'));
    EXPECT_STREQ(user_.entry.pw_name, "wordy");

    UserRecord byName;
    ASSERT_TRUE(FindUser(std::string("wordy"), byName));
    EXPECT_EQ(byName.entry.pw_uid, kWordy.uid);
    EXPECT_STREQ(byName.entry.pw_shell, "/bin/sh");
}

TEST_F(FindUserTest, FindsNobodyWithoutARecord)
{
    EXPECT_FALSE(FindUser(kUnknown.uid, user_));
    EXPECT_FALSE(FindUser(std::string("nobody-knows"), user_));
    EXPECT_FALSE(FindUser(std::string(), user_));
}

TEST_F(FindUserTest, FindsNobodyWhenTheLookUpFails)
{
    g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **found) {
        *found = entry;
        return EIO;
    };

    EXPECT_FALSE(FindUser(std::string("root"), user_));
}

TEST_F(FindUserTest, EndsForARecordThatNeverFits)
{
    static size_t largest;
    static int calls;
    largest = 0;
    calls = 0;
    g_osCalls.getpwnam_r = [](const char *, struct passwd *, char *, size_t size, struct passwd **found) {
        largest = size;
        calls++;
        *found = nullptr;
        return ERANGE;
    };

    EXPECT_FALSE(FindUser(std::string("root"), user_));

    EXPECT_EQ(largest, size_t{1} << 24);
    EXPECT_EQ(calls, 15) << "each twice as large as the one before, from 1024";
}

TEST_F(FindGroupNameTest, ByNumber)
{
    std::string name;

    EXPECT_TRUE(FindGroupName(kServiceAccount.gid, name));
    EXPECT_EQ(name, "corvane_group");
    EXPECT_TRUE(FindGroupName(0, name));
    EXPECT_EQ(name, "root");
}

TEST_F(FindGroupNameTest, WhoseRecordIsLong)
{
    std::string name;

    EXPECT_TRUE(FindGroupName(kCrowdGroup, name));

    EXPECT_EQ(name, "crowd");
}

TEST_F(FindGroupNameTest, LeavesTheNameWithoutARecord)
{
    std::string name = "before";

    EXPECT_FALSE(FindGroupName(kGroupless.gid, name));

    EXPECT_EQ(name, "before");
}
