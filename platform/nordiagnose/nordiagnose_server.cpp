#include "nordiagnose_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "nordiagnose_commands.h"
#include "nordiagnose_session.h"
#include "nordiagnose_socket.h"

namespace nordiag {
namespace {

constexpr size_t kMaxClients = 16;
constexpr long kRequestMs = 5000;
constexpr int kAcceptPauseMs = 100;
constexpr size_t kHelpSize = 65536;

struct Client {
    Server *server = nullptr;
    int socket = -1; ///< -1: free
    pthread_t thread{};
    std::atomic<bool> ended{false};
};

struct Request {
    FrameType type{};
    std::array<char, kMaxRequest + 1> text{};
    std::array<char *, kMaxWords + 1> words{}; ///< as a command takes them: null after the last
    int count = 0;
};

long NowMs() noexcept
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/** Signals of the host are for the host's threads. @return 0 or an errno number. */
int StartThread(pthread_t &thread, void *(*run)(void *), void *argument, const char *name) noexcept
{
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const int status = pthread_create(&thread, nullptr, run, argument);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (status == 0) {
        (void)pthread_setname_np(thread, name);
    }
    return status;
}

bool Receive(int socket, void *to, size_t size, long deadlineMs) noexcept
{
    for (size_t got = 0; got < size;) {
        pollfd readable{socket, POLLIN, 0};
        const long left = deadlineMs - NowMs();
        if (left <= 0 || (poll(&readable, 1, static_cast<int>(left)) <= 0 && errno != EINTR)) {
            return false;
        }
        const ssize_t count = recv(socket, static_cast<char *>(to) + got, size - got, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        got += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

/** Each word ends with a zero. @return false if one does not, or there are too many. */
bool SplitWords(Request &request, size_t size) noexcept
{
    char *word = request.text.data();
    char *const end = word + size;
    request.count = 0;
    while (word < end) {
        void *zero = std::memchr(word, '\0', static_cast<size_t>(end - word));
        if (zero == nullptr || static_cast<size_t>(request.count) == kMaxWords) {
            return false;
        }
        request.words[static_cast<size_t>(request.count++)] = word;
        word = static_cast<char *>(zero) + 1;
    }
    request.words[static_cast<size_t>(request.count)] = nullptr;
    return true;
}

/** How many words a request takes. */
bool HasItsWords(const Request &request) noexcept
{
    switch (request.type) {
    case FrameType::RUN:
        return request.count >= 1;
    case FrameType::HELP:
    case FrameType::COMMANDS:
        return request.count == 1;
    case FrameType::GROUPS:
    case FrameType::STATE:
        return request.count == 0;
    default:
        return false;
    }
}

/** @return null, or what is wrong with it. */
const char *ReadRequest(int socket, Request &request) noexcept
{
    const long deadline = NowMs() + kRequestMs;
    std::array<unsigned char, kHeaderSize> bytes{};
    FrameHeader header{};
    if (!Receive(socket, bytes.data(), bytes.size(), deadline)) {
        return "the request is not complete";
    }
    if (!UnpackHeader(bytes, header)) {
        return "this is no request of protocol version 1";
    }
    if (header.size > kMaxRequest) {
        return "the request is too long";
    }
    if (!Receive(socket, request.text.data(), header.size, deadline)) {
        return "the request is not complete";
    }
    request.type = header.type;
    if (!SplitWords(request, header.size)) {
        return "the request has too many words, or one without an end";
    }
    return HasItsWords(request) ? nullptr : "the request is unknown, or has not the words that it takes";
}

/** Appends a word that is not there yet. */
class WordList {
public:
    void Add(std::string_view word) noexcept
    {
        for (size_t at = 0; at < size_; at += std::strlen(&text_[at]) + 1) {
            if (word == &text_[at]) {
                return;
            }
        }
        if (word.size() + 1 <= text_.size() - size_) {
            (void)word.copy(&text_[size_], word.size());
            size_ += word.size();
            text_[size_++] = '\0';
        }
    }
    [[nodiscard]] const char *Data() const noexcept { return text_.data(); }
    [[nodiscard]] size_t Size() const noexcept { return size_; }

private:
    std::array<char, 8192> text_{};
    size_t size_ = 0;
};

bool IsWordLetter(char letter) noexcept
{
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_' || letter == '-';
}

/** Cuts the next word off the line, up to a blank. */
std::string_view NextWord(std::string_view &line) noexcept
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    line.remove_prefix(word.size());
    return word;
}

/**
 * Help comes in lines of usage: the group's name, then the sub-command. Where a line starts with blanks the name may
 * be missing; lines of other form are prose.
 */
std::string_view SubCommandOf(std::string_view line, std::string_view group) noexcept
{
    const bool indented = !line.empty() && (line.front() == ' ' || line.front() == '\t');
    std::string_view word = NextWord(line);
    if (word == group) {
        word = NextWord(line);
    } else if (!indented) {
        return {};
    }
    word = word.substr(0, word.find_first_of(":,"));
    const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), IsWordLetter) && word.front() != '-';
    return plain ? word : std::string_view{};
}

void FindSubCommands(std::string_view help, std::string_view group, WordList &words) noexcept
{
    while (!help.empty()) {
        const std::string_view line = help.substr(0, help.find('\n'));
        help.remove_prefix(std::min(line.size() + 1, help.size()));
        const std::string_view word = SubCommandOf(line, group);
        if (!word.empty()) {
            words.Add(word);
        }
    }
}

} // namespace

class Server {
public:
    Server() noexcept = default;
    ~Server()
    {
        if (wake_ >= 0) {
            (void)close(wake_);
        }
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    [[nodiscard]] bool Start(int processId, const char *agentName) noexcept;
    void Stop() noexcept;
    void ServeClients() noexcept;
    void Serve(Client &client) noexcept;

    static void *AcceptThread(void *argument) noexcept;
    static void *ClientThread(void *argument) noexcept;

private:
    void Release() noexcept;
    void Wake() const noexcept;
    void AcceptOne() noexcept;
    void TakeClient(int socket) noexcept;
    void JoinEnded(bool all) noexcept;
    void Answer(Session &session, Request &request) noexcept;
    void Run(Session &session, Request &request) noexcept;
    static void Help(Session &session, const char *group) noexcept;
    static void SendGroups(Session &session) noexcept;
    static void SendSubCommands(Session &session, const char *group) noexcept;
    void SendState(Session &session) noexcept;

    int processId_ = 0;
    std::array<char, 32> name_{};
    ListeningSocket listener_;
    int wake_ = -1; ///< eventfd: a client has ended, or the server is to
    pthread_t thread_{};
    std::atomic<bool> ending_{false};
    std::atomic<int> owners_{2}; ///< the accepting thread and who stops it; the last one frees
    std::array<Client, kMaxClients> clients_;
};

void Server::Wake() const noexcept
{
    const uint64_t one = 1;
    (void)!write(wake_, &one, sizeof(one));
}

bool Server::Start(int processId, const char *agentName) noexcept
{
    processId_ = processId;
    (void)std::snprintf(name_.data(), name_.size(), "%s", agentName);
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) {
        TellNoDebugShell("no event counter", std::strerror(errno));
        return false;
    }
    if (!listener_.Open(processId, name_.data())) {
        return false;
    }
    const int status = StartThread(thread_, AcceptThread, this, "nordiag");
    if (status != 0) {
        TellNoDebugShell("no thread", std::strerror(status));
    }
    return status == 0;
}

void Server::Stop() noexcept
{
    listener_.RemoveFile();
    ending_ = true;
    Wake();
    CommandsWake();
    // The accepting thread waits for every command, and so for one that stops its own server.
    if (CurrentSession() != nullptr) {
        (void)pthread_detach(thread_);
    } else {
        (void)pthread_join(thread_, nullptr);
    }
    Release();
}

void Server::Release() noexcept
{
    if (owners_.fetch_sub(1) == 1) {
        delete this;
    }
}

void *Server::AcceptThread(void *argument) noexcept
{
    auto *server = static_cast<Server *>(argument);
    server->ServeClients();
    server->Release();
    return nullptr;
}

void Server::ServeClients() noexcept
{
    while (!ending_) {
        std::array<pollfd, 2> events{{{wake_, POLLIN, 0}, {listener_.Fd(), POLLIN, 0}}};
        (void)poll(events.data(), events.size(), -1);
        uint64_t count = 0;
        (void)!read(wake_, &count, sizeof(count));
        JoinEnded(false);
        if ((events[1].revents & POLLIN) != 0 && !ending_) {
            AcceptOne();
        }
    }
    listener_.Close();
    for (const Client &client : clients_) {
        if (client.socket >= 0) {
            (void)shutdown(client.socket, SHUT_RDWR);
        }
    }
    JoinEnded(true);
}

void Server::JoinEnded(bool all) noexcept
{
    for (Client &client : clients_) {
        if (client.socket >= 0 && (all || client.ended)) {
            (void)pthread_join(client.thread, nullptr);
            (void)close(client.socket);
            client.socket = -1;
        }
    }
}

void Server::AcceptOne() noexcept
{
    const int socket = accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
        TakeClient(socket);
        return;
    }
    if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        // No descriptors or no memory: the client still waits, so asking at once would only burn time.
        pollfd wake{wake_, POLLIN, 0};
        (void)poll(&wake, 1, kAcceptPauseMs);
    }
}

void Server::TakeClient(int socket) noexcept
{
    ucred peer{};
    socklen_t size = sizeof(peer);
    const timeval limit{kSendSeconds, 0};
    Session session(socket);
    (void)setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || (peer.uid != 0 && peer.uid != geteuid())) {
        (void)session.Refuse(Refusal::NOT_PERMITTED, "only root and the user of the process may use its debug shell");
        (void)close(socket);
        return;
    }
    const auto client = std::find_if(clients_.begin(), clients_.end(), [](const Client &c) { return c.socket < 0; });
    if (client == clients_.end()) {
        (void)session.Refuse(Refusal::BUSY, "16 clients are being served; try again when one has ended");
        (void)close(socket);
        return;
    }
    client->server = this;
    client->socket = socket;
    client->ended = false;
    if (StartThread(client->thread, ClientThread, client, "nordiag-client") != 0) {
        (void)session.Refuse(Refusal::NO_MEMORY, "there is no thread for one more client");
        client->socket = -1;
        (void)close(socket);
    }
}

void *Server::ClientThread(void *argument) noexcept
{
    auto *client = static_cast<Client *>(argument);
    client->server->Serve(*client);
    (void)shutdown(client->socket, SHUT_RDWR);
    client->ended = true;
    client->server->Wake();
    return nullptr;
}

void Server::Serve(Client &client) noexcept
{
    Session session(client.socket);
    const std::unique_ptr<Request> request(new (std::nothrow) Request);
    if (request == nullptr) {
        (void)session.Refuse(Refusal::NO_MEMORY, "there is no memory for the request");
        return;
    }
    const char *problem = ReadRequest(client.socket, *request);
    if (problem != nullptr) {
        (void)session.Refuse(Refusal::BAD_REQUEST, problem);
        return;
    }
    Answer(session, *request);
}

void Server::Answer(Session &session, Request &request) noexcept
{
    switch (request.type) {
    case FrameType::RUN:
        Run(session, request);
        return;
    case FrameType::HELP:
        Help(session, request.words[0]);
        return;
    case FrameType::GROUPS:
        SendGroups(session);
        return;
    case FrameType::COMMANDS:
        SendSubCommands(session, request.words[0]);
        return;
    default:
        SendState(session);
        return;
    }
}

void Server::Run(Session &session, Request &request) noexcept
{
    struct Context {
        const std::atomic<bool> &ending;
        Session &session;
    } context{ending_, session};
    const auto wanted = [](void *argument) {
        const auto *state = static_cast<Context *>(argument);
        return !state->ending && !state->session.Lost();
    };
    int result = 0;
    Begin begin{};
    {
        Execution execution;
        begin = execution.ForRun(request.words[0], wanted, &context);
        if (begin == Begin::STARTED) {
            const SessionScope scope(session);
            result = execution.Command().exec(request.count, request.words.data());
        }
    }
    switch (begin) {
    case Begin::STARTED:
        (void)session.End(result);
        return;
    case Begin::NO_SUCH_COMMAND:
        (void)session.Refuse(Refusal::NO_SUCH_GROUP, "there is no such command group");
        return;
    case Begin::NOT_WANTED:
        (void)session.Refuse(Refusal::ENDING, "the debug shell of this process ends");
        return;
    }
}

/** The execution has ended before the client hears so, as with Run(). */
void Server::Help(Session &session, const char *group) noexcept
{
    Begin begin{};
    bool helped = false;
    {
        Execution execution;
        begin = execution.ForHelp(group);
        if (begin == Begin::STARTED && execution.Command().help != nullptr) {
            const SessionScope scope(session);
            execution.Command().help(execution.Command().name, 1);
            helped = true;
        }
    }
    if (begin != Begin::STARTED) {
        (void)session.Refuse(Refusal::NO_SUCH_GROUP, "there is no such command group");
    } else if (!helped) {
        (void)session.Refuse(Refusal::NO_HELP, "the command group has no help");
    } else {
        (void)session.End(0);
    }
}

void Server::SendGroups(Session &session) noexcept
{
    std::array<char, sizeof(DBG_CmdInfo) * DBG_MAX_COMMANDS> words{};
    const size_t size = CommandsPack(words.data(), words.size());
    (void)session.Send(FrameType::WORDS, words.data(), size);
    (void)session.End(0);
}

void Server::SendSubCommands(Session &session, const char *group) noexcept
{
    WordList words;
    {
        Execution execution;
        const std::unique_ptr<char[]> text(new (std::nothrow) char[kHelpSize]);
        if (execution.ForHelp(group) != Begin::STARTED) {
            (void)session.Refuse(Refusal::NO_SUCH_GROUP, "there is no such command group");
            return;
        }
        if (execution.Command().help != nullptr && text != nullptr) {
            Session kept(text.get(), kHelpSize);
            const SessionScope scope(kept);
            execution.Command().help(execution.Command().name, 0);
            FindSubCommands(kept.Kept(), execution.Command().name, words);
        }
    }
    (void)session.Send(FrameType::WORDS, words.Data(), words.Size());
    (void)session.End(0);
}

void Server::SendState(Session &session) noexcept
{
    std::array<char, 64> words{};
    const int length = std::snprintf(words.data(), words.size(), "%s%c%d%c%u", name_.data(), '\0', processId_, '\0',
                                     CommandsRunning());
    (void)session.Send(FrameType::WORDS, words.data(), static_cast<size_t>(length) + 1);
    (void)session.End(0);
}

Server *ServerStart(int processId, const char *agentName) noexcept
{
    std::unique_ptr<Server> server(new (std::nothrow) Server);
    return server != nullptr && server->Start(processId, agentName) ? server.release() : nullptr;
}

void ServerStop(Server *server) noexcept
{
    if (server != nullptr) {
        server->Stop();
    }
}

} // namespace nordiag
