#include "screen.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "exit_codes.h"

namespace {

constexpr std::string_view kBegin = "\033[?25l\033[?7l\033[2J"; // no cursor, no wrapping, an empty screen
constexpr std::string_view kEnd = "\r\033[K\033[?7h\033[?25h";  // without the keys that the terminal has shown
/** 64 disks take less than half of it. */
constexpr size_t kPieceSize = 65536;
constexpr const char *kHome = "\033[H";
constexpr const char *kLineEnd = "\033[K\n";
constexpr const char *kRestEmpty = "\033[J";

volatile std::sig_atomic_t g_framed = 0;

void OnEnd(int)
{
    if (g_framed != 0) {
        (void)!write(STDOUT_FILENO, kEnd.data(), kEnd.size());
    }
    _exit(EXIT_CODE_OK);
}

void OnResize(int) {}

void Handle(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    (void)sigaction(signal, &action, nullptr);
}

bool IsSet(const char *name)
{
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

} // namespace

Screen::Screen()
{
    const char *term = std::getenv("TERM");
    terminal_ = isatty(STDOUT_FILENO) != 0 && term != nullptr && std::strcmp(term, "dumb") != 0;
    coloured_ = terminal_ && !IsSet("NO_COLOR");
}

ScreenSize Screen::Size()
{
    winsize window = {};
    ScreenSize size;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 && window.ws_row > 0) {
        size = {window.ws_col, window.ws_row};
    }
    return size;
}

Page Screen::TablePage() const
{
    return {isatty(STDOUT_FILENO) != 0 ? Size().columns : 0, coloured_};
}

void EndOnSignals()
{
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action = {};
        // A shell that puts a job into the background shields it from the keyboard; that stays.
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            Handle(signal, OnEnd);
        }
    }
}

void BeginFrames()
{
    // It comes while the program sleeps, not between the look at the window and the sleep.
    sigset_t resize;
    (void)sigemptyset(&resize);
    (void)sigaddset(&resize, SIGWINCH);
    (void)pthread_sigmask(SIG_BLOCK, &resize, nullptr);
    Handle(SIGWINCH, OnResize);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Handle(signal, OnEnd);
    }
    g_framed = 1;
    (void)std::fwrite(kBegin.data(), 1, kBegin.size(), stdout);
}

void EndFrames()
{
    g_framed = 0;
    (void)std::fwrite(kEnd.data(), 1, kEnd.size(), stdout);
}

std::string Frame(const std::vector<std::string> &lines)
{
    std::string text = kHome;
    for (const std::string &line : lines) {
        text += line + kLineEnd;
    }
    return text + kRestEmpty;
}

bool SleepUnlessResized(int seconds)
{
    const timespec time = {seconds, 0};
    sigset_t open;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &open);
    (void)sigdelset(&open, SIGWINCH);
    return ppoll(nullptr, 0, &time, &open) == 0;
}

void WriteAtOnce()
{
    static std::array<char, kPieceSize> buffer; // as long as the stream
    (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
}

std::string FlushOutput()
{
    errno = 0;
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    return failed ? std::string("standard output: ") + std::strerror(errno != 0 ? errno : EIO) : "";
}
