// The commands of the library itself, in a real service.
#include "nordiag_fixture.h"

#include <csignal>

#include "support/mount_namespace.h"
#include "support/notify_socket.h"

using ::testing::HasSubstr;

TEST_F(NordiagTest, ReachesCorvaned)
{
    ASSERT_EQ(EnterPrivateMounts(BUILD_DIR), "");
    const std::string prefix = "/tmp/prefix";
    ASSERT_TRUE(std::filesystem::create_directories(prefix + "/config"));
    (void)setenv("NORDIAG_DIR", "/tmp/sockets", 1);
    const NotifySocket manager;
    ChildProcess corvaned({CORVANED_PATH, "--prefix", prefix}, {manager.Environment()});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    EXPECT_THAT(Nordiag({"list"}).out, HasSubstr("corvane                  root             ready\n"));
    EXPECT_EQ(Nordiag({"corvane", "help"}).exitCode, 0);
    EXPECT_EQ(Nordiag({"corvane", "nothing"}).exitCode, 5);

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
    EXPECT_EQ(corvaned.Errors(), "");
    EXPECT_EQ(Nordiag({"corvane", "help"}).exitCode, 3);
}
