#include "server.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"
#include "infrastructure/common/corvane_raii.h"

using CORVANE_CLI::CliUdsComm;
using Outcome = Answer::Outcome;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kClientSide = 0;
constexpr size_t kConnections = 4;
/** At once: most commands take less than a millisecond, and a server that sees no client pauses for 100. */
constexpr int kImmediateTries = 4;
constexpr milliseconds kPauseMin(5);
constexpr milliseconds kPauseMax(200);
constexpr std::string_view kNothingPrinted = "null";
/** What the request carries in its element "cmd"; the server goes by the words of the request. */
constexpr const char *kCommandElement = "corvanectl";

Answer Failed(Outcome outcome, std::string problem, int code = 0)
{
    Answer answer;
    answer.outcome = outcome;
    answer.problem = std::move(problem);
    answer.code = code;
    return answer;
}

/** Until @p deadline; not less than a millisecond, as no time at all means no limit to a socket. */
milliseconds Left(Clock::time_point deadline)
{
    return std::max(milliseconds(1), std::chrono::ceil<milliseconds>(deadline - Clock::now()));
}

void LimitSocket(int fd, int option, Clock::time_point deadline)
{
    const long ms = Left(deadline).count();
    const timeval limit = {ms / 1000, ms % 1000 * 1000};
    (void)setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit));
}

/** Whether this process's user may do this, by the rules that the server goes by. */
bool MayDo(const std::string &action)
{
    CliUdsComm comm;
    std::string user;
    int permission = CORVANE_CLI::CLI_PERMISSION_NONE;
    return comm.GetUsersName(user) == CORVANE_CLI::CLI_OK &&
           comm.GetUserinWhiteList(user, permission, action, CORVANE_CLI::CLI_NO_SOCKET) == CORVANE_CLI::CLI_OK &&
           permission != CORVANE_CLI::CLI_PERMISSION_NONE;
}

/** The server answers nothing to whom it does not trust: it closes. */
Answer Closed(const std::string &action)
{
    return MayDo(action) ? Failed(Outcome::NO_CONNECTION, "the server closed the connection without an answer",
                                  CORVANE_CLI::CLI_RECV_TRANSMISSION_ERROR)
                         : Failed(Outcome::NO_PERMISSION, "", CORVANE_CLI::CLI_USER_PERMISSION_ERROR);
}

Answer NotConnected(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return Failed(Outcome::NO_PERMISSION, "", CORVANE_CLI::CLI_USER_PERMISSION_ERROR);
    case EAGAIN:
        return Failed(Outcome::NO_ANSWER, "");
    default:
        return Failed(Outcome::NO_CONNECTION, std::strerror(error));
    }
}

/** Control characters of a device's text must not reach the terminal. */
void Clean(std::string &text)
{
    for (char &letter : text) {
        if (letter != '\n' && letter != '\t' && (letter < ' ' || letter > '~')) { // bytes above 127 are below 0
            letter = '?';
        }
    }
}

Answer Read(const std::string &document)
{
    CORVANE_CLI::XmlModule xml;
    const std::string number = xml.AnalysisXml(document, "error_code");
    Answer answer;
    const char *end = number.data() + number.size();
    const auto [rest, failure] = std::from_chars(number.data(), end, answer.code);
    if (number.empty() || failure != std::errc() || rest != end) {
        return Failed(Outcome::UNREADABLE, "the answer of the server cannot be read");
    }
    answer.text = xml.AnalysisXml(document, "print_data");
    if (answer.text == kNothingPrinted) {
        answer.text.clear();
    }
    Clean(answer.text);
    switch (answer.code) {
    case CORVANE_CLI::CLI_OK:
        answer.outcome = Outcome::DONE;
        break;
    case CORVANE_CLI::CLI_USER_PERMISSION_ERROR:
        answer.outcome = Outcome::NO_PERMISSION;
        break;
    case CORVANE_CLI::CLI_TASK_MAX_ERROR:
        answer.outcome = Outcome::BUSY;
        break;
    default:
        answer.outcome = Outcome::REFUSED;
        break;
    }
    return answer;
}

Answer Receive(int fd, const std::string &action, Clock::time_point deadline)
{
    pollfd readable = {fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&readable, 1, static_cast<int>(Left(deadline).count()));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
        return Failed(Outcome::NO_ANSWER, "");
    }
    char first = 0;
    if (recv(fd, &first, sizeof(first), MSG_PEEK) <= 0) {
        return Closed(action);
    }
    LimitSocket(fd, SO_RCVTIMEO, deadline);
    CliUdsComm comm;
    std::string document;
    std::string user;
    std::string answered;
    if (comm.RecvString(document, fd, kClientSide, user, answered) != CORVANE_CLI::CLI_OK) {
        return errno == EAGAIN ? Failed(Outcome::NO_ANSWER, "")
                               : Failed(Outcome::UNREADABLE, "the answer of the server is broken off");
    }
    return Read(document);
}

Answer AskOnce(const Server &server, const std::string &document, const std::string &action, Clock::time_point deadline)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (server.socket.size() >= sizeof(address.sun_path)) {
        return NotConnected(ENAMETOOLONG);
    }
    (void)server.socket.copy(address.sun_path, server.socket.size());
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.Get() < 0) {
        return NotConnected(errno);
    }
    LimitSocket(fd.Get(), SO_SNDTIMEO, deadline);
    if (connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        return NotConnected(errno);
    }
    CliUdsComm comm;
    errno = 0; // an EPIPE of before would count as one of now
    const int sent = comm.SendString(document, fd.Get(), kClientSide, action);
    if (sent != CORVANE_CLI::CLI_OK && sent != CORVANE_CLI::CLI_SOCKET_CLOSED_ERROR) {
        return errno == EAGAIN ? Failed(Outcome::NO_ANSWER, "")
                               : Failed(Outcome::UNREADABLE, "the request cannot be sent");
    }
    return Receive(fd.Get(), action, deadline);
}

} // namespace

Answer Unreadable(const std::string &request)
{
    return Failed(Outcome::UNREADABLE, "the answer to \"" + request + "\" cannot be read");
}

Answer Ask(const Server &server, const std::string &request)
{
    CORVANE_CLI::XmlModule xml;
    const std::string document = xml.CliCMDtoXml(kCommandElement, request);
    if (document.empty()) {
        return Failed(Outcome::UNREADABLE, "there is no memory for the request");
    }
    const std::string action = request.substr(0, request.find(' '));
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(server.timeoutSeconds);
    milliseconds pause = kPauseMin;
    for (int tries = 1;; tries++) {
        Answer answer = AskOnce(server, document, action, deadline);
        if (answer.outcome == Outcome::NO_ANSWER && tries > 1) {
            return Failed(Outcome::BUSY, "", CORVANE_CLI::CLI_TASK_MAX_ERROR); // the last try had little time
        }
        if (answer.outcome != Outcome::BUSY || Clock::now() + pause >= deadline) {
            return answer;
        }
        if (tries < kImmediateTries) {
            continue;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, kPauseMax);
    }
}

std::vector<Answer> AskAll(const Server &server, const std::vector<std::string> &requests)
{
    std::vector<Answer> answers(requests.size());
    std::atomic<size_t> next = 0;
    const auto work = [&]() {
        for (size_t i = next++; i < requests.size(); i = next++) {
            answers[i] = Ask(server, requests[i]);
            if (answers[i].outcome != Outcome::DONE && answers[i].outcome != Outcome::REFUSED) {
                next = requests.size();
            }
        }
    };
    std::vector<std::thread> others;
    try {
        for (size_t i = 1; i < std::min(kConnections, requests.size()); i++) {
            others.emplace_back(work);
        }
    } catch (const std::system_error &) {
        // Fewer threads do the same.
    }
    work();
    for (std::thread &other : others) {
        other.join();
    }
    return answers;
}
