#include "cli_client.h"

#include <filesystem>
#include <grp.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::SizeIs;

constexpr gid_t kGroup = 64901;

struct Person {
    const char *who;
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups;
    bool reads;   /**< "show" and "help" */
    bool changes; /**< any other action */
};

const std::vector<Person> kPeople = {
    {"root", 0, 0, {}, true, true},
    {"the service's own user", 64901, 64901, {}, true, true},
    {"a member by primary group", 64902, kGroup, {}, true, false},
    {"a member by supplementary group", 64903, 64903, {kGroup}, true, false},
    {"a member whose process has left the group", 64903, 64903, {}, true, false},
    {"a stranger", 64904, 64904, {}, false, false},
    {"a stranger whose process has the group", 64904, 64904, {kGroup}, false, false},
    {"a member whose primary group has no record", 64905, 64999, {kGroup}, false, false},
    {"a user without a record", 64906, 64906, {kGroup}, false, false},
    {"a member of a group with a similar name", 64907, 64907, {64908}, false, false},
};

class CliRightsTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        AddAccounts("cli_primary:x:64902:64901::/nonexistent:/bin/false\n"
                    "cli_second:x:64903:64903::/nonexistent:/bin/false\n"
                    "cli_stranger:x:64904:64904::/nonexistent:/bin/false\n"
                    "cli_orphan:x:64905:64999::/nonexistent:/bin/false\n"
                    "cli_similar:x:64907:64907::/nonexistent:/bin/false\n",
                    "cli_second:x:64903:\ncli_stranger:x:64904:\ncli_similar:x:64907:\n"
                    "corvane_groups:x:64908:cli_similar\n");
        // The group's own line, with its members.
        std::string groups = ReadText("/etc/group");
        const std::string line = "corvane_group:x:64901:";
        groups.insert(groups.find(line) + line.size(), "cli_second,cli_orphan");
        WriteText("/etc/group", groups);
        std::filesystem::permissions(prefix_, std::filesystem::perms{0755});
    }

    std::unique_ptr<CliPeer> Peer(const Person &person, const std::string &agrs, const std::string &action,
                                  const std::string &user = "root") const
    {
        return std::make_unique<CliPeer>(person.uid, person.gid, person.groups, SocketPath(),
                                         CliRequest(agrs, action, user));
    }
};

TEST_F(CliRightsTest, EachPeerMayDoWhatItsAccountAllows)
{
    std::vector<std::unique_ptr<CliPeer>> peers;
    const char *const actions[] = {"show", "help", "change", "SHOW", "shows", "any"};
    for (const Person &person : kPeople) {
        for (const char *action : actions) {
            // Its name in the head is a lie each time.
            peers.push_back(
                Peer(person, std::string(action) + " summary", action, person.uid == 0 ? "cli_stranger" : "root"));
        }
    }
    StartForDisks();
    ASSERT_EQ(chmod(SocketPath().c_str(), 0666), 0);

    size_t at = 0;
    for (const Person &person : kPeople) {
        for (const std::string action : actions) {
            const std::string raw = peers[at++]->Go();
            const bool reading = action == "show" || action == "help";
            if (reading ? person.reads : person.changes) {
                const CliAnswer answer = CliParse(raw);
                EXPECT_EQ(answer.code, action == "show" ? 0 : kCliFormat) << person.who << " " << action;
                EXPECT_EQ(answer.action, action);
            } else {
                EXPECT_EQ(raw, "") << person.who << " " << action;
            }
        }
    }
    EXPECT_THAT(CliLogLines("Get clientUserInfo failed; 0x40036901."), SizeIs(6)) << "of the user without a record";
    EXPECT_FALSE(CliLogLines("CLI_USER_PERMISSION_ERROR 0x40036901.").empty());
}

TEST_F(CliRightsTest, HeadsAndRequestsMayDifferUnlessTheHostForbidsIt)
{
    const Person member = kPeople[2];
    const std::unique_ptr<CliPeer> before = Peer(member, "change disklife_prediction task_cycle=100", "show");
    const std::unique_ptr<CliPeer> after = Peer(member, "change disklife_prediction task_cycle=200", "show");
    const std::unique_ptr<CliPeer> same = Peer(member, "show disklife_prediction", "show");
    const std::unique_ptr<CliPeer> other = Peer(member, "show disklife_prediction", "help");
    const std::unique_ptr<CliPeer> unknown = Peer(member, "change nothing", "show");
    StartForDisks();
    ASSERT_EQ(chmod(SocketPath().c_str(), 0666), 0);
    EXPECT_EQ(lib::Global<uint32_t>("g_cliRefuseActionMismatch"), 0u);

    EXPECT_EQ(CliParse(before->Go()).code, 0) << "only the head is judged";
    EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), 100);

    lib::Global<uint32_t>("g_cliRefuseActionMismatch") = 1;
    EXPECT_EQ(CliParse(after->Go()).code, kCliPermission);
    EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), 100);
    EXPECT_EQ(CliParse(other->Go()).code, kCliPermission);
    EXPECT_EQ(CliParse(unknown->Go()).code, kCliPermission);
    EXPECT_EQ(CliParse(same->Go()).text, "task_cycle: 100\n");
    EXPECT_EQ(Ask("change disklife_prediction task_cycle=300", "show").code, kCliPermission) << "root as well";
    EXPECT_EQ(Ask("change disklife_prediction task_cycle=300").code, 0);
    const CliAnswer refused = Ask("change disklife_prediction task_cycle=400", "show");
    EXPECT_EQ(refused.text, "null");
}

TEST_F(CliRightsTest, RightsAreCheckedWithEachPacket)
{
    StartForDisks();
    const CliSocket client(SocketPath());
    const std::string image = CliImage(CliRequestText("show summary"));
    CliPacket packet;
    packet.count = 2;
    packet.total = static_cast<uint32_t>(image.size());
    packet.piece = image.substr(0, 60);
    ASSERT_TRUE(client.Send(packet.Bytes()));
    ASSERT_TRUE(client.WaitUntilRead());

    // The account vanishes between the two.
    std::string accounts = ReadText("/etc/passwd");
    accounts.replace(accounts.find("root:"), 5, "toor:");
    WriteText("/etc/passwd", accounts);
    packet.index = 1;
    packet.piece = image.substr(60);
    ASSERT_TRUE(client.Send(packet.Bytes()));

    EXPECT_EQ(client.ReadAll(), "");
}

TEST_F(CliRightsTest, ServerOfTheServicesUser)
{
    const std::string folder = "/var/log/corvane/cli_log";
    std::filesystem::create_directories(folder);
    for (const std::string &path : {prefix_, prefix_ + "/config", folder}) {
        ASSERT_EQ(chown(path.c_str(), 64901, 64901), 0);
    }
    std::vector<std::unique_ptr<CliPeer>> peers;
    for (const Person &person : kPeople) {
        peers.push_back(Peer(person, "change summary", "show"));
    }
    lib::Open();
    const gid_t none[] = {64901};
    ASSERT_EQ(setgroups(1, none), 0);
    ASSERT_EQ(setgid(64901), 0);
    ASSERT_EQ(setuid(64901), 0);
    (void)prctl(PR_SET_DUMPABLE, 1);
    ASSERT_EQ(lib::SetPrefixPath(prefix_.c_str()), 0u);
    ASSERT_EQ(lib::Call<int()>{"InitCliServertoC"}(), 0);

    struct stat seen {};
    ASSERT_EQ(stat(SocketPath().c_str(), &seen), 0);
    EXPECT_EQ(seen.st_mode & 07777U, 0660U);
    EXPECT_EQ(seen.st_uid, 64901u);
    EXPECT_EQ(seen.st_gid, 64901u);
    for (size_t i = 0; i < kPeople.size(); i++) {
        const Person &person = kPeople[i];
        const bool reaches = person.uid == 0 || person.uid == 64901 || person.gid == kGroup ||
                             person.groups == std::vector<gid_t>{kGroup};
        const std::string raw = peers[i]->Go();
        if (!reaches) {
            EXPECT_EQ(raw, "errno 13") << person.who;
        } else if (!person.reads) {
            EXPECT_EQ(raw, "") << person.who;
        } else {
            EXPECT_EQ(CliParse(raw, "corvane_user").code, kCliFormat) << person.who;
        }
    }

    for (const char *name : {"cli.log", "oper.log"}) {
        ASSERT_EQ(stat((folder + "/" + name).c_str(), &seen), 0) << name;
        EXPECT_EQ(seen.st_mode & 07777U, 0660U) << name;
        EXPECT_EQ(seen.st_uid, 64901u) << name;
        EXPECT_EQ(seen.st_gid, 64901u) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(std::string(kCliLogFolder) + "/cli.log"));
}

} // namespace
