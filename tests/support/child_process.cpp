#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/** Generous: a loaded machine under a sanitizer needs seconds for what takes milliseconds. */
constexpr long kPatienceMs = 60000;

long NowMs()
{
    struct timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

int Code(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/** @return false when the pipe is closed. */
bool ReadSome(int &fd, std::string &text)
{
    char buffer[4096];
    const ssize_t count = read(fd, buffer, sizeof(buffer));
    if (count > 0) {
        text.append(buffer, static_cast<size_t>(count));
        return true;
    }
    (void)close(fd);
    fd = -1;
    return false;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &arguments, const std::vector<std::string> &environment)
{
    int input[2];
    int output[2];
    int errors[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
        std::abort();
    }
    pid_ = fork();
    if (pid_ == 0) {
        (void)dup2(input[0], STDIN_FILENO);
        (void)dup2(output[1], STDOUT_FILENO);
        (void)dup2(errors[1], STDERR_FILENO);
        for (const std::string &line : environment) {
            (void)putenv(const_cast<char *>(line.c_str()));
        }
        std::vector<char *> argv;
        for (const std::string &argument : arguments) {
            argv.push_back(const_cast<char *>(argument.c_str()));
        }
        argv.push_back(nullptr);
        (void)execv(argv[0], argv.data());
        _exit(127);
    }
    (void)close(input[0]);
    (void)close(output[1]);
    (void)close(errors[1]);
    input_ = input[1];
    outputFd_ = output[0];
    errorsFd_ = errors[0];
}

ChildProcess::~ChildProcess()
{
    if (!ended_ && pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    for (const int fd : {input_, outputFd_, errorsFd_}) {
        if (fd >= 0) {
            (void)close(fd);
        }
    }
}

bool ChildProcess::Pump(long deadlineMs)
{
    struct pollfd fds[2] = {{outputFd_, POLLIN, 0}, {errorsFd_, POLLIN, 0}};
    if (outputFd_ < 0 && errorsFd_ < 0) {
        return false;
    }
    const long left = deadlineMs - NowMs();
    if (left <= 0 || poll(fds, 2, static_cast<int>(left)) <= 0) {
        return false;
    }
    if (fds[0].revents != 0) {
        (void)ReadSome(outputFd_, output_);
    }
    if (fds[1].revents != 0) {
        (void)ReadSome(errorsFd_, errors_);
    }
    return true;
}

bool ChildProcess::WaitForOutput(const std::string &text)
{
    return WaitForOutput([&text](const std::string &output) { return output.find(text) != std::string::npos; });
}

bool ChildProcess::WaitForOutput(const std::function<bool(const std::string &output)> &holds)
{
    const long deadline = NowMs() + kPatienceMs;
    while (!holds(output_)) {
        if (!Pump(deadline)) {
            return false;
        }
    }
    return true;
}

void ChildProcess::Signal(int number) const
{
    if (!ended_) { // once reaped, the number may be another's
        (void)kill(pid_, number);
    }
}

void ChildProcess::CloseInput()
{
    if (input_ >= 0) {
        (void)close(input_);
        input_ = -1;
    }
}

int ChildProcess::WaitForExit()
{
    const long deadline = NowMs() + kPatienceMs;
    while (Pump(deadline)) {
    }
    if (!ended_) {
        const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        struct pollfd end = {fd, POLLIN, 0};
        const long left = deadline - NowMs();
        if (fd < 0 || left <= 0 || poll(&end, 1, static_cast<int>(left)) <= 0) {
            (void)close(fd);
            return -1;
        }
        (void)close(fd);
        (void)waitpid(pid_, &status_, 0);
        ended_ = true;
    }
    return Code(status_);
}

bool ChildProcess::Running()
{
    if (!ended_) {
        ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
    }
    return !ended_;
}
