#include "terminal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr long kPatienceSeconds = 60;

} // namespace

Terminal::Terminal(const std::vector<std::string> &arguments, unsigned short columns, unsigned short lines)
{
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
        std::abort();
    }
    const std::string name = ptsname(master_);
    pid_ = fork();
    if (pid_ == 0) {
        (void)setsid();
        const int slave = open(name.c_str(), O_RDWR); // the controlling terminal, since the session has none
        const winsize size = {lines, columns, 0, 0};
        (void)ioctl(slave, TIOCSWINSZ, &size);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            (void)dup2(slave, fd);
        }
        (void)setenv("TERM", "vt100", 1);
        // The editing library keeps the names of the functions that it is given.
        const char *options = std::getenv("ASAN_OPTIONS");
        const std::string withoutLeaks = std::string(options != nullptr ? options : "") + ":detect_leaks=0";
        (void)setenv("ASAN_OPTIONS", withoutLeaks.c_str(), 1);
        std::vector<char *> argv;
        for (const std::string &argument : arguments) {
            argv.push_back(const_cast<char *>(argument.c_str()));
        }
        argv.push_back(nullptr);
        (void)execv(argv[0], argv.data());
        _exit(127);
    }
}

Terminal::~Terminal()
{
    if (pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    (void)close(master_);
}

void Terminal::Resize(unsigned short columns, unsigned short lines) const
{
    const winsize size = {lines, columns, 0, 0};
    (void)ioctl(master_, TIOCSWINSZ, &size);
}

void Terminal::Type(const std::string &keys) const
{
    (void)!write(master_, keys.data(), keys.size());
}

bool Terminal::ReadSome(long deadline)
{
    pollfd readable = {master_, POLLIN, 0};
    const long left = deadline - time(nullptr);
    if (left <= 0 || poll(&readable, 1, static_cast<int>(left * 1000)) <= 0) {
        return false;
    }
    char buffer[4096];
    const ssize_t count = read(master_, buffer, sizeof(buffer));
    if (count <= 0) {
        return false; // the program has closed its side
    }
    screen_.append(buffer, static_cast<size_t>(count));
    return true;
}

bool Terminal::WaitFor(const std::string &text, std::string *before)
{
    const long deadline = time(nullptr) + kPatienceSeconds;
    size_t at = 0;
    while ((at = screen_.find(text, seen_)) == std::string::npos) {
        if (!ReadSome(deadline)) {
            return false;
        }
    }
    if (before != nullptr) {
        *before = screen_.substr(seen_, at - seen_);
    }
    seen_ = at + text.size();
    return true;
}

bool Terminal::WaitForPrompt(const std::string &text)
{
    const long deadline = time(nullptr) + kPatienceSeconds;
    termios mode{};
    if (!WaitFor(text)) {
        return false;
    }
    while (tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0) {
        if (time(nullptr) > deadline) {
            return false;
        }
        (void)usleep(1000);
    }
    return true;
}

int Terminal::WaitForExit()
{
    const long deadline = time(nullptr) + kPatienceSeconds;
    while (ReadSome(deadline)) {
    }
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(pid_, &status, WNOHANG)) == 0 && time(nullptr) < deadline) {
        (void)usleep(2000);
    }
    if (ended != pid_) {
        return -1;
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
