// What stands between a process's text and standard output.
#include "nordiag_fixture.h"
#include "output.h"
#include "strange_peer.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

std::string Passed(std::string text)
{
    ControlFilter filter;
    for (char &byte : text) {
        byte = filter.Pass(byte);
    }
    return text;
}

} // namespace

TEST(ControlFilterTest, LeavesLettersOfAnyScriptAndTheLayout)
{
    for (const char *text : {"plain ~\n\ttext", "j\xc3\xbc \xc2\xa0 \xdf\xbf", "\xe0\xa0\x80 \xe2\x82\xac \xef\xbf\xbd",
                             "\xf0\x90\x80\x80 \xf0\x9f\x92\xbe \xf4\x8f\xbf\xbf"}) {
        EXPECT_EQ(Passed(text), text);
    }
}

TEST(ControlFilterTest, TakesControlCharactersOut)
{
    const std::pair<std::string, std::string> cases[] = {
        {std::string("\0\1\a\b\r\033\037\177", 8), "????????"},
        // U+009B and its neighbours
        {"\xc2\x9b[2J", "\xc2?[2J"},
        {"\xc2\x80\xc2\x9f", "\xc2?\xc2?"},
        // in forms that are too long
        {"\xc0\x9b \xc1\x9b", "?? ??"},
        {"\xe0\x82\x9b \xe0\x80\x9b", "\xe0?? \xe0??"},
        {"\xf0\x80\x82\x9b", "\xf0???"},
        // in one byte: alone, after a letter that breaks off, after a whole one, after what starts none
        {"\x9b[2J", "?[2J"},
        {"\xc3x\x9b", "\xc3x?"},
        {"\xc3\xbc\x9b", "\xc3\xbc?"},
        {"\xf5\x80\xff\x9b", "????"},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(Passed(text), expected);
    }
}

TEST(OnePlainLineTest, TakesTheLayoutOutToo)
{
    EXPECT_EQ(OnePlainLine("a\nb\tc\033 j\xc3\xbc"), "a?b?c? j\xc3\xbc");
}

TEST(OutputQueueTest, WritesInOrderWhateverThePieces)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    OutputQueue queue(ends[1]);
    std::string expected;
    std::string written;
    for (const size_t size : {0U, 1U, 65535U, 1U, 0U, 4096U, 70000U, 3U}) {
        const std::string piece(size, static_cast<char>('a' + expected.size() % 26));
        queue.Add(piece);
        expected += piece;
    }
    EXPECT_EQ(queue.Size(), expected.size());

    while (!queue.Empty()) {
        ASSERT_TRUE(queue.WriteSome());
        std::string some(4096, '\0');
        some.resize(static_cast<size_t>(read(ends[0], some.data(), some.size())));
        written += some;
        EXPECT_EQ(queue.Size(), expected.size() - written.size());
    }

    EXPECT_EQ(written, expected);
    (void)close(ends[0]);
    EXPECT_EQ(close(ends[1]), 0);
}

class NordiagOutputTest : public NordiagTest {
protected:
    /** A figure in KiB of /proc/PID/status. */
    static long Memory(pid_t process, const std::string &figure)
    {
        const std::string text = ReadAll("/proc/" + std::to_string(process) + "/status");
        const size_t at = text.find("\n" + figure + ":");
        return at == std::string::npos ? -1 : std::atol(text.c_str() + at + figure.size() + 2);
    }
};

TEST_F(NordiagOutputTest, WhatIsWrittenIsKeptNoLonger)
{
    constexpr size_t kWaiting = 32U << 20; // less than is kept, more than pipe and socket hold
    constexpr size_t kStep = 1U << 20;
    constexpr size_t kTotal = 288U << 20;
    constexpr size_t kPeriod = 251;
    std::string pattern;
    while (pattern.size() < kStep + kPeriod) {
        pattern += static_cast<char>(' ' + pattern.size() % kPeriod % 90);
    }
    const std::string fifo = folder_ + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(mkdir(Sockets().c_str(), 0700), 0);
    const int listener = ListenAs(geteuid(), Sockets() + "/77.flood");
    const char *options = std::getenv("ASAN_OPTIONS"); // memory that is free has to be used again
    ChildProcess client({"/bin/sh", "-c", "exec " NORDIAG_PATH " flood all >" + fifo},
                        {std::string("ASAN_OPTIONS=") + (options != nullptr ? options : "") + ":quarantine_size_mb=1"});
    const int reader = open(fifo.c_str(), O_RDONLY | O_CLOEXEC);
    const int state = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_EQ(send(state, End().data(), End().size(), MSG_NOSIGNAL), static_cast<ssize_t>(End().size()));
    const int run = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    size_t sent = 0;
    size_t taken = 0;
    const auto give = [&] {
        std::string frames;
        for (size_t end = sent + kStep; sent < end; sent += kStep / 32) {
            frames += Frame('o', pattern.substr(sent % kPeriod, kStep / 32));
        }
        for (size_t at = 0; at < frames.size();) {
            const ssize_t count = send(run, frames.data() + at, frames.size() - at, MSG_NOSIGNAL);
            ASSERT_GT(count, 0);
            at += static_cast<size_t>(count);
        }
    };
    const auto take = [&](size_t size) {
        for (std::string some; size > 0; size -= some.size()) {
            some.resize(std::min<size_t>(size, 65536));
            const ssize_t count = read(reader, some.data(), some.size());
            ASSERT_GT(count, 0);
            some.resize(static_cast<size_t>(count));
            ASSERT_EQ(pattern.compare(taken % kPeriod, some.size(), some), 0) << "at " << taken;
            taken += some.size();
        }
    };

    // given: much waits
    while (sent < kWaiting) {
        ASSERT_NO_FATAL_FAILURE(give());
    }
    ASSERT_NO_FATAL_FAILURE(take(kStep));
    const long before = Memory(client.Pid(), "VmHWM");

    // when: much more goes through, and as much always waits
    while (sent < kTotal) {
        ASSERT_NO_FATAL_FAILURE(give());
        ASSERT_NO_FATAL_FAILURE(take(kStep));
    }

    // then
    const long after = Memory(client.Pid(), "VmHWM");
    EXPECT_GT(before, 0);
    EXPECT_LT(after - before, 64L << 10) << "of " << after << " KiB";
    ASSERT_EQ(send(run, End().data(), End().size(), MSG_NOSIGNAL), static_cast<ssize_t>(End().size()));
    ASSERT_NO_FATAL_FAILURE(take(sent - taken));
    EXPECT_EQ(client.WaitForExit(), 0) << client.Errors();
    for (const int fd : {listener, reader, state, run}) {
        (void)close(fd);
    }
}

TEST_F(NordiagOutputTest, AFullStandardOutputIsAnError)
{
    StartHost();

    for (const std::string words :
         {"--help", "--version", "list", "storage help", "storage help disk", "storage disk list"}) {
        const Finished run = Sh(NORDIAG_PATH " " + words + " >/dev/full");
        EXPECT_EQ(run.exitCode, 4) << words;
        EXPECT_THAT(run.err,
                    MatchesRegex("nordiag: (storage \\([0-9]+\\): )?standard output: No space left on device\n"))
            << words;
    }
}

TEST_F(NordiagOutputTest, AShellPrintsAgainWhenThereIsRoom)
{
    StartHost();
    const std::string output = folder_ + "/output";
    const std::string input = folder_ + "/input";
    ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
    std::ofstream(output) << std::string(512, 'x'); // all that may be written
    ChildProcess shell(
        {"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 1; exec " NORDIAG_PATH " storage <" + input + " >>" + output});
    std::ofstream lines(input);

    lines << "help\n" << std::flush;
    EXPECT_TRUE(shell.WaitForOutput([&](const std::string &) {
        return shell.Errors().find("nordiag: standard output: File too large\n") != std::string::npos;
    }));
    std::filesystem::resize_file(output, 0);
    lines << "help\n" << std::flush;
    lines.close();

    EXPECT_EQ(shell.WaitForExit(), 0) << shell.Errors();
    EXPECT_THAT(ReadAll(output), HasSubstr("  disk                what the disks do\n"));
}
