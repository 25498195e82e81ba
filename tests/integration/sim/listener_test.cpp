// The listening sockets when the system refuses: no descriptor for a connection, no listening, no mode.
#include "acceptor.h"
#include "event_loop.h"
#include "unix_listener.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

int g_acceptError = 0; // of the next calls
int g_accepts = 0;
int g_listenError = 0;
int g_chmodError = 0;

int Refuse(int error)
{
    errno = error;
    return -1;
}

} // namespace

extern "C" {

int __real_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int __real_listen(int fd, int backlog);
int __real_chmod(const char *path, mode_t mode);

// Visible, since the linker takes the same names of other libraries for these.
__attribute__((visibility("default"))) int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    g_accepts++;
    return g_acceptError != 0 ? Refuse(g_acceptError) : __real_accept4(fd, address, length, flags);
}

__attribute__((visibility("default"))) int __wrap_listen(int fd, int backlog)
{
    return g_listenError != 0 ? Refuse(g_listenError) : __real_listen(fd, backlog);
}

__attribute__((visibility("default"))) int __wrap_chmod(const char *path, mode_t mode)
{
    return g_chmodError != 0 ? Refuse(g_chmodError) : __real_chmod(path, mode);
}

} // extern "C"

namespace {

using namespace corvane_sim;

class ListenerTest : public testing::Test {
protected:
    ListenerTest()
    {
        std::string folder = (std::filesystem::temp_directory_path() / "corvane-sim-test-XXXXXX").string();
        folder_ = mkdtemp(folder.data()) != nullptr ? folder : "";
        g_acceptError = g_accepts = g_listenError = g_chmodError = 0;
    }
    ~ListenerTest() override
    {
        for (const int fd : clients_) {
            close(fd);
        }
        std::filesystem::remove_all(folder_);
    }
    [[nodiscard]] std::string Path() const { return folder_ + "/x.sock"; }
    void Connect()
    {
        const sockaddr_un address = UnixAddressOf(Path());
        clients_.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(clients_.back(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    }

private:
    std::string folder_;
    std::vector<int> clients_;
};

TEST_F(ListenerTest, WithoutADescriptorItPausesAndThenTakesAllThatWait)
{
    EventLoop loop;
    int taken = 0;
    Acceptor acceptor(loop, Path(), [&](int fd) {
        close(fd);
        if (++taken == 2) {
            loop.Stop();
        }
    });
    acceptor.Start();
    Connect();
    Connect();
    g_acceptError = EMFILE;

    // Due before the pause is over, however late it comes: one try, not one after the other.
    loop.After(0.05, [&loop] { loop.Stop(); });
    loop.Run();
    EXPECT_EQ(g_accepts, 1);

    g_acceptError = 0;
    loop.Run();
    EXPECT_EQ(taken, 2);
}

TEST_F(ListenerTest, StopEndsThePause)
{
    EventLoop loop;
    Acceptor acceptor(loop, Path(), [](int fd) { close(fd); });
    acceptor.Start();
    Connect();
    g_acceptError = ENFILE;
    loop.After(0.05, [&] {
        acceptor.Stop(false);
        EXPECT_FALSE(acceptor.IsServing());
    });
    loop.After(0.2, [&loop] { loop.Stop(); });

    loop.Run(); // a pause that went on would look for what is no longer watched

    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(ListenerTest, ASocketThatCannotListenLeavesNoFile)
{
    UnixListener listener(Path());
    g_listenError = EADDRINUSE;
    EXPECT_THROW(listener.Open(), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(Path()));
    EXPECT_FALSE(listener.IsOpen());

    g_listenError = 0;
    g_chmodError = EPERM;
    EXPECT_THROW(listener.Open(), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(Path()));

    g_chmodError = 0;
    listener.Open();
    Connect();
}

TEST_F(ListenerTest, APathThatCannotBeBoundKeepsAnothersFile)
{
    UnixListener listener(Path());
    listener.Open();
    listener.Close(true);
    ASSERT_TRUE(std::filesystem::remove(Path()));
    std::ofstream(Path()) << "another file";

    EXPECT_THROW(listener.Open(), std::runtime_error);
    listener.Close(false);

    EXPECT_TRUE(std::filesystem::exists(Path()));
}

} // namespace
