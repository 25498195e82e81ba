/**
 * @file cli_server_test_support.h
 * @brief A client of the management socket made of bytes, servers of their own for each test, and commands that a test
 *        holds and releases.
 */
#ifndef CLI_SERVER_TEST_SUPPORT_H
#define CLI_SERVER_TEST_SUPPORT_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "cli/common/CliResultCode.h"
#include "cli/server/CliCmdHandler.h"
#include "cli/server/CliCmdPool.h"
#include "cli/server/CliUdsServer.h"
#include "infrastructure/common/corvane_raii.h"
#include "support/child_process.h"
#include "unit/cli/common/cli_test_support.h"

/** Longest wait for what must come; a machine under a sanitizer needs seconds for what takes milliseconds. */
inline constexpr int kPatienceSeconds = 60;

/** One packet as it goes over the socket: head of 50 bytes, piece, two bytes. */
inline std::string Packet(uint8_t count, uint8_t index, uint32_t totalLen, const std::string &user,
                          const std::string &action, const std::string &piece)
{
    std::string packet(50, '\0');
    packet[0] = static_cast<char>(count);
    packet[1] = static_cast<char>(index);
    for (size_t i = 0; i < 4; i++) {
        packet[4 + i] = static_cast<char>(totalLen >> (8 * i) & 0xFF);
    }
    packet.replace(8, user.size(), user);
    packet.replace(40, action.size(), action);
    return packet + piece + std::string(2, '\0');
}

/** The image of a message: head of 40 bytes, text, terminator. */
inline std::string Image(const std::string &text)
{
    std::string head(40, '\0');
    head[2] = 1;
    return head + text + '\0';
}

inline std::string RequestXml(const std::string &agrs, const std::string &cmd = "any")
{
    return "<req><cmd>" + cmd + "</cmd><agrs>" + agrs + "</agrs></req>";
}

/** A message of one packet. */
inline std::string Message(const std::string &text, const std::string &action, const std::string &user = "root")
{
    const std::string image = Image(text);
    return Packet(1, 0, static_cast<uint32_t>(image.size()), user, action, image);
}

inline std::string AnswerXml(int code, const std::string &text)
{
    // The saver ends a document that fits with a line feed.
    return "<response><error_code>" + std::to_string(code) + "</error_code><print_data>" + text +
           "</print_data></response>\n";
}

/** What the server sends for this answer, byte for byte. */
inline std::string AnswerBytes(int code, const std::string &text, const std::string &action,
                               const std::string &user = "root")
{
    return Message(AnswerXml(code, text), action, user);
}

/** The document of an answer of one packet; empty for anything else. */
inline std::string DocumentOf(const std::string &bytes)
{
    constexpr size_t frame = 50 + 40 + 1 + 2;
    return bytes.size() > frame && bytes[0] == 1 ? bytes.substr(90, bytes.size() - frame) : "";
}

inline void BoundReceive(int fd)
{
    const timeval bound = {kPatienceSeconds, 0};
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof(bound));
}

inline bool SendAll(int fd, const std::string &bytes)
{
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

/** Everything until the peer closes; "(nothing came)" behind it if it does not. */
inline std::string ReceiveAll(int fd)
{
    std::string bytes;
    std::array<char, 65536> buffer{};
    while (true) {
        const ssize_t length = recv(fd, buffer.data(), buffer.size(), 0);
        if (length > 0) {
            bytes.append(buffer.data(), static_cast<size_t>(length));
        } else if (length == 0 || errno == ECONNRESET) {
            return bytes;
        } else if (errno != EINTR) {
            return bytes + "(nothing came)";
        }
    }
}

/** @return a connected socket, or one that is not valid, with errno. */
inline UniqueFd Connect(const std::string &path)
{
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof(address.sun_path) - 1));
    if (connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        fd.Reset();
    } else {
        BoundReceive(fd.Get());
    }
    return fd;
}

/** Both ends of a connection; the second is the server's. */
inline std::array<UniqueFd, 2> ConnectedPair()
{
    int fds[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    BoundReceive(fds[0]);
    return {UniqueFd(fds[0]), UniqueFd(fds[1])};
}

/** Waits for a condition that other threads make true. */
template <typename Condition>
bool WaitFor(Condition condition)
{
    for (int i = 0; i < kPatienceSeconds * 100; i++) {
        if (condition()) {
            return true;
        }
        (void)usleep(10000);
    }
    return false;
}

/** A command that says what it was given; a test may hold it in its run. */
class ProbeCmd : public CORVANE_CLI::BaseCommand {
public:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool held = false;
        int running = 0;
        int runs = 0;
        int result = 0;
        std::string output; /**< "" and not echo: nothing */
        bool echo = true;
        bool throws = false;
        bool clears = false; /**< the parameters, as some commands do */
    };
    static State &Shared()
    {
        static State *const state = new State; // commands may outlive a test
        return *state;
    }
    static void Reset()
    {
        State &state = Shared();
        const std::lock_guard<std::mutex> guard(state.mutex);
        state.held = state.throws = state.clears = false;
        state.echo = true;
        state.runs = state.result = 0;
        state.output.clear();
    }
    static void Hold()
    {
        const std::lock_guard<std::mutex> guard(Shared().mutex);
        Shared().held = true;
    }
    static void Release()
    {
        const std::lock_guard<std::mutex> guard(Shared().mutex);
        Shared().held = false;
        Shared().changed.notify_all();
    }
    static bool WaitUntilItRuns()
    {
        std::unique_lock<std::mutex> lock(Shared().mutex);
        return Shared().changed.wait_for(lock, std::chrono::seconds(kPatienceSeconds),
                                         [] { return Shared().running > 0; });
    }
    static int Runs()
    {
        const std::lock_guard<std::mutex> guard(Shared().mutex);
        return Shared().runs;
    }

    int Exec(std::string param, std::string &output) override
    {
        State &state = Shared();
        const std::string given = param;
        (void)ParseParam(param);
        std::unique_lock<std::mutex> lock(state.mutex);
        state.runs++;
        state.running++;
        state.changed.notify_all();
        state.changed.wait(lock, [&state] { return !state.held; });
        state.running--;
        output = state.echo ? m_data.name + "|" + given : state.output;
        if (state.throws) {
            throw std::bad_alloc();
        }
        if (state.clears) {
            m_params.clear();
        }
        return state.result;
    }
};

/** What the server's code called, with the true functions behind. */
struct ServerDoubles {
    static inline std::mutex mutex;
    static inline std::vector<unsigned int> sleeps; /**< microseconds */
    static inline bool listenFails = false;
    static inline int backlog = 0;

    static std::vector<unsigned int> Sleeps()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return sleeps;
    }
};

/** Lets this process have no more than some threads, for a scope. The limit does not hold for root, so that the process
 * is nobody of note meanwhile. */
class NoMoreThreads {
public:
    /** @param files What the process must be able to write. */
    NoMoreThreads(const std::vector<std::string> &files, rlim_t more)
    {
        std::thread([] {}).join(); // with the first one a sanitizer starts its own
        for (const std::string &file : files) {
            EXPECT_EQ(chown(file.c_str(), kUser, kUser), 0) << file;
        }
        EXPECT_EQ(getrlimit(RLIMIT_NPROC, &former_), 0);
        EXPECT_EQ(setresuid(kUser, kUser, 0), 0);
        const rlimit limit = {ThreadCount() + more, former_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
    }
    ~NoMoreThreads()
    {
        EXPECT_EQ(setresuid(0, 0, 0), 0);
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &former_), 0);
    }
    NoMoreThreads(const NoMoreThreads &) = delete;
    NoMoreThreads &operator=(const NoMoreThreads &) = delete;

private:
    /** Another one in each process: tests run side by side. */
    static inline const uid_t kUser = 100000 + static_cast<uid_t>(getpid());
    /** Threads of that user. */
    static rlim_t ThreadCount()
    {
        rlim_t count = 0;
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream status(entry.path() / "status");
            std::string line;
            while (std::getline(status, line)) {
                count += line.starts_with("Uid:\t" + std::to_string(kUser) + "\t") ? 1 : 0;
            }
        }
        return count;
    }

    rlimit former_ = {};
};

/** A server of its own below the test's prefix. */
class CliServerTest : public CliLogTest {
protected:
    CliServerTest() : savedRootPath_(ROOT_LOG_PATH), savedPath_(CORVANE_LOG_PATH), folderPath_(folder_ + "/")
    {
        ROOT_LOG_PATH = folderPath_.c_str();
        CORVANE_LOG_PATH = folderPath_.c_str();
        g_iLogLevel = CLI_LOG_LEVEL_INFO;
        g_cliRefuseActionMismatch = 0;
        ProbeCmd::Reset();
        const std::lock_guard<std::mutex> guard(ServerDoubles::mutex);
        ServerDoubles::sleeps.clear();
        ServerDoubles::listenFails = false;
        ServerDoubles::backlog = 0;
    }
    ~CliServerTest() override
    {
        Stop();
        g_objLogger.Close();
        g_objLoggerOpt.Close();
        g_objLoggerOpt.SetDbgFlg(false);
        g_cliRefuseActionMismatch = 0;
        g_iLogLevel = CLI_LOG_LEVEL_DEBUG;
        ROOT_LOG_PATH = savedRootPath_;
        CORVANE_LOG_PATH = savedPath_;
    }

    /** Servers are never destroyed: a thread may still be on its way out. */
    static CORVANE_CLI::CliUdsServer &NewServer()
    {
        static auto *const servers = new std::vector<std::unique_ptr<CORVANE_CLI::CliUdsServer>>;
        return *servers->emplace_back(std::make_unique<CORVANE_CLI::CliUdsServer>());
    }
    void Start()
    {
        server_ = &NewServer();
        ASSERT_EQ(server_->InitCliServer(), 0);
        AddProbe();
    }
    /** "probe", for all tests of this process. */
    static void AddProbe()
    {
        (void)CORVANE_CLI::CliCmdHandler::GetInstance().RegisterCmd("probe",
                                                                    [] { return std::make_shared<ProbeCmd>(); });
    }
    /** Ends the server and waits for its threads. */
    void Stop()
    {
        ProbeCmd::Release();
        if (server_ == nullptr) {
            return;
        }
        EXPECT_EQ(server_->UnInitCliServer(), 0);
        EXPECT_TRUE(WaitForThreadsToEnd());
        server_ = nullptr;
    }
    bool WaitForThreadsToEnd(size_t servers = 1) const
    {
        return WaitFor([this, servers] {
            return LineCount("]End accept thread.") >= servers && LineCount("]End recv thread.") >= servers;
        });
    }

    std::string SocketPath() const { return Prefix() + "/config/CLI_UDS.unix"; }
    /** Sends one request and gives what came until the server closed; again while another command runs. */
    std::string Ask(const std::string &agrs, const std::string &action = "show", const std::string &user = "root") const
    {
        return AskBytes(Message(RequestXml(agrs), action, user));
    }
    std::string AskBytes(const std::string &bytes) const
    {
        const std::string busy = AnswerXml(CORVANE_CLI::CLI_TASK_MAX_ERROR, "null");
        std::string answer;
        (void)WaitFor([&] {
            answer = AskOnce(bytes);
            return DocumentOf(answer) != busy;
        });
        return answer;
    }
    std::string AskOnce(const std::string &bytes) const
    {
        const UniqueFd client = Connect(SocketPath());
        EXPECT_TRUE(client.Valid()) << std::strerror(errno);
        EXPECT_TRUE(SendAll(client.Get(), bytes));
        return ReceiveAll(client.Get());
    }
    /** The server's threads read it meanwhile. */
    static void RefuseActionMismatch(uint32_t value)
    {
        std::atomic_ref<uint32_t> shared(g_cliRefuseActionMismatch);
        shared = value;
    }
    /** Packets arrive whole, however long; their sender ends its side behind the last. */
    static void ReceiveWholePackets()
    {
        g_osCalls.recv = [](int fd, void *data, size_t size, int) { return recv(fd, data, size, MSG_WAITALL); };
    }
    /** How many lines of the log hold this. */
    size_t LineCount(const std::string &text) const
    {
        size_t count = 0;
        for (const std::string &line : CliLog()) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }
    /** The log's lines that begin with this message, from it on, in their order. */
    std::vector<std::string> Messages(const std::string &begin) const
    {
        std::vector<std::string> messages;
        for (const std::string &line : CliLog()) {
            const size_t at = line.find("]" + begin);
            if (at != std::string::npos) {
                messages.push_back(line.substr(at + 1));
            }
        }
        return messages;
    }

    CORVANE_CLI::CliUdsServer *server_ = nullptr;

private:
    const char *savedRootPath_;
    const char *savedPath_;
    std::string folderPath_;
};

/** Runs a test's body in a process of its own: there it is the first, and what it changes goes with it. */
#define IN_A_PROCESS_OF_ITS_OWN()                                                                                      \
    do {                                                                                                               \
        if (std::getenv("CLI_TEST_FRESH") == nullptr) {                                                                \
            const ::testing::TestInfo *info_ = ::testing::UnitTest::GetInstance()->current_test_info();                \
            ChildProcess child_(                                                                                       \
                {"/proc/self/exe", std::string("--gtest_filter=") + info_->test_suite_name() + "." + info_->name()},   \
                {"CLI_TEST_FRESH=1"});                                                                                 \
            ASSERT_EQ(child_.WaitForExit(), 0) << child_.Output() << child_.Errors();                                  \
            ASSERT_NE(child_.Output().find("[  PASSED  ] 1 test."), std::string::npos) << child_.Output();             \
            return;                                                                                                    \
        }                                                                                                              \
    } while (false)

#endif
