// Who may do what, with a real service and real users.
#include "ctl_fixture.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>

#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fs = std::filesystem;

/** As the packages leave it: the settings' folder is closed to others, and a copy of the catalogue is open to all. */
class RightsTest : public NodeTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(NodeTest::SetUp());
        fs::create_directories(kPrefix + "/share/corvane");
        fs::copy_file(kPrefix + "/config/error_en.xml", kPrefix + "/share/corvane/error_en.xml");
        ASSERT_EQ(chmod((kPrefix + "/config").c_str(), 0750), 0);
    }

    static inline const std::string kPrefix = "/tmp/opt";
};

namespace {

/** A request that announces one action and asks for another. @return the code of the answer. */
std::string AskWithOtherAction(const std::string &socketPath, const std::string &announced, const std::string &request)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        return "not connected";
    }
    CORVANE_CLI::CliUdsComm comm;
    CORVANE_CLI::XmlModule xml;
    std::string answer;
    std::string user;
    std::string action;
    errno = 0;
    EXPECT_EQ(comm.SendString(xml.CliCMDtoXml("x", request), fd.Get(), 0, announced), 0);
    EXPECT_EQ(comm.RecvString(answer, fd.Get(), 0, user, action), 0);
    return xml.AnalysisXml(answer, "error_code");
}

} // namespace

TEST_F(RightsTest, GoByUserGroupAndAction)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet("corvane_user"));
    struct stat status = {};
    ASSERT_EQ(stat(kSocket.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_gid, 64901u);

    for (const char *user : {"root", "corvane_user"}) {
        EXPECT_EQ(Ctl({"show", "config"}, user).exitCode, 0) << user;
        EXPECT_EQ(Ctl({"change", "config", "takeover_disk_switch=off"}, user).exitCode, 0) << user;
    }

    const Finished shown = Ctl({"list"}, "reader");
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_THAT(shown.out, HasSubstr("DEMONVME0002"));
    const Finished changed = Ctl({"change", "config", "takeover_disk_switch=on"}, "reader");
    EXPECT_EQ(changed.exitCode, 4);
    EXPECT_THAT(changed.err,
                HasSubstr("corvanectl: no permission at " + kSocket + "\nCause:This user may not do that."));
    EXPECT_THAT(Ctl({"show", "config"}).out, HasSubstr("takeover_disk_switch  : off\n"));

    const Finished kept = Ctl({"show", "config"}, "stranger");
    EXPECT_EQ(kept.exitCode, 4);
    EXPECT_THAT(kept.err, StartsWith("corvanectl: no permission at " + kSocket + "\nCause:This user may not do that."));
    EXPECT_THAT(kept.err, HasSubstr("\nSuggestion:Run the command as root or corvane_user."));
    ASSERT_EQ(chmod((kPrefix + "/config").c_str(), 0751), 0);
    ASSERT_EQ(chmod(kSocket.c_str(), 0666), 0);
    const Finished closed = Ctl({"show", "config"}, "stranger");
    EXPECT_EQ(closed.exitCode, 4);
    EXPECT_EQ(closed.err, kept.err);
    EXPECT_EQ(closed.out, "");

    EXPECT_EQ(AskWithOtherAction(kSocket, "show", "change config takeover_disk_switch=on"),
              std::to_string(CORVANE_CLI::CLI_USER_PERMISSION_ERROR));
    EXPECT_THAT(Ctl({"show", "config"}).out, HasSubstr("takeover_disk_switch  : off\n"));
}

TEST_F(RightsTest, AnotherActionThanTheAuthorisedOneRunsIfTheServiceIsToldSo)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet("root", {"--allow-action-mismatch"}));

    EXPECT_EQ(AskWithOtherAction(kSocket, "show", "change config takeover_disk_switch=on"), "0");

    EXPECT_THAT(Ctl({"show", "config"}).out, HasSubstr("takeover_disk_switch  : on\n"));
}
