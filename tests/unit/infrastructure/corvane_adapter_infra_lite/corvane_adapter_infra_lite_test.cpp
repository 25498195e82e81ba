#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

#include <cstdarg>
#include <cstring>
#include <limits>

#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"
#include "platform/norax.h"
#include "platform/norlog.h"
#include "platform/normm.h"
#include "support/corvane_fixture.h"

namespace {

struct HostLine {
    uint32_t module;
    uint32_t level;
    std::string file;
    uint32_t line;
    std::string func;
    uint32_t reserved;
    std::string text;

    bool operator==(const HostLine &) const = default;
};

void PrintTo(const HostLine &value, std::ostream *out)
{
    *out << value.module << '/' << value.level << ' ' << value.file << ':' << value.line << ' ' << value.func << ' '
         << value.reserved << " \"" << value.text << '"';
}

std::vector<HostLine> g_hostLines;
uint32_t g_hostLevel = 7;
uint32_t g_levelModule = 0;
size_t g_mallocCalls = 0;
size_t g_lastMallocSize = 0;

void *CountMalloc(size_t size)
{
    g_mallocCalls++;
    g_lastMallocSize = size;
    return std::malloc(size);
}

void *NoMemory(size_t)
{
    return nullptr;
}

} // namespace

// The host's log, as this process brings it: the library's calls land here.
extern "C" void norlog(uint32_t module, uint32_t level, const char *file, uint32_t line, const char *func,
                       uint32_t reserved, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char *text = nullptr;
    const int length = vasprintf(&text, fmt, args);
    va_end(args);
    ASSERT_GE(length, 0);
    g_hostLines.push_back({module, level, file, line, func, reserved, text});
    std::free(text);
}

extern "C" uint32_t norlog_loglevel_get(uint32_t module)
{
    g_levelModule = module;
    return g_hostLevel;
}

class CorvaneInfraLogTest : public CorvaneTest {
protected:
    CorvaneInfraLogTest()
    {
        g_hostLines.clear();
        g_infraLogLevel = 7;
        g_debugLogSwitch = false;
        g_mallocCalls = 0;
    }
    ~CorvaneInfraLogTest() override
    {
        g_debugLogSwitch = false;
        g_infraLogLevel = 7;
    }
    static void Log(uint32_t level, const std::string &message)
    {
        CorvaneInfraLog(level, "DCM", "file.cpp", 42, "Func", "%s", message.c_str());
    }
    static HostLine Line(uint32_t level, const std::string &text)
    {
        return {999, level, "file.cpp", 42, "Func", 0, text};
    }
};

TEST_F(CorvaneInfraLogTest, PutsTheModuleBeforeTheMessage)
{
    CorvaneInfraLog(4, "DCM", "file.cpp", 42, "Func", "ret:%d name:%s", -1, "x");

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(4, "[DCM]ret:-1 name:x")));
}

TEST_F(CorvaneInfraLogTest, DoesNothingAboveTheLevel)
{
    g_infraLogLevel = 3;
    g_osCalls.malloc = CountMalloc;

    Log(4, "dropped");

    EXPECT_TRUE(g_hostLines.empty());
    EXPECT_EQ(g_mallocCalls, 0u);
}

TEST_F(CorvaneInfraLogTest, ComparesLevelsUnsigned)
{
    Log(UINT32_MAX, "dropped");

    EXPECT_TRUE(g_hostLines.empty());
}

TEST_F(CorvaneInfraLogTest, LogsAtTheLevel)
{
    g_infraLogLevel = 3;

    Log(3, "kept");

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(3, "[DCM]kept")));
}

TEST_F(CorvaneInfraLogTest, BufferSizeFollowsTheDebugSwitch)
{
    g_osCalls.malloc = CountMalloc;

    Log(3, "a");
    EXPECT_EQ(g_lastMallocSize, 511u);

    g_debugLogSwitch = true;
    Log(3, "a");
    EXPECT_EQ(g_lastMallocSize, 8192u);
}

TEST_F(CorvaneInfraLogTest, SaysThatThereIsNoMemory)
{
    g_osCalls.malloc = NoMemory;

    Log(6, "lost");

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(3, "buf malloc fail!")));
}

TEST_F(CorvaneInfraLogTest, LogsAMessageOf510Characters)
{
    const std::string message(510, 'x');

    Log(3, message);

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(3, "[DCM]" + message)));
}

TEST_F(CorvaneInfraLogTest, LosesAMessageOf511Characters)
{
    Log(6, std::string(511, 'x'));

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(3, "vsnprintf_s fail. ret:-1")));
}

TEST_F(CorvaneInfraLogTest, DebugSwitchCutsIntoPiecesOf300)
{
    g_debugLogSwitch = true;
    const std::string first(300, 'a');

    Log(5, first + "b");

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(5, "[DCM]" + first), Line(5, "[DCM]b")));
}

TEST_F(CorvaneInfraLogTest, DebugSwitchKeeps300CharactersInOneLine)
{
    g_debugLogSwitch = true;
    const std::string message(300, 'a');

    Log(5, message);

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(5, "[DCM]" + message)));
}

TEST_F(CorvaneInfraLogTest, DebugSwitchGivesNoLineForAnEmptyMessage)
{
    g_debugLogSwitch = true;

    Log(5, "");

    EXPECT_TRUE(g_hostLines.empty());
}

TEST_F(CorvaneInfraLogTest, AnEmptyMessageIsALineOtherwise)
{
    Log(5, "");

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(5, "[DCM]")));
}

TEST_F(CorvaneInfraLogTest, DebugSwitchAllows8191Characters)
{
    g_debugLogSwitch = true;

    Log(5, std::string(8191, 'a'));

    ASSERT_EQ(g_hostLines.size(), 28u);
    EXPECT_EQ(g_hostLines[26].text, "[DCM]" + std::string(300, 'a'));
    EXPECT_EQ(g_hostLines[27].text, "[DCM]" + std::string(91, 'a'));
}

TEST_F(CorvaneInfraLogTest, DebugSwitchLoses8192Characters)
{
    g_debugLogSwitch = true;

    Log(5, std::string(8192, 'a'));

    EXPECT_THAT(g_hostLines, ::testing::ElementsAre(Line(3, "vsnprintf_s fail. ret:-1")));
}

class CorvaneInfraRegisterInfraAdapterTest : public CorvaneTest {
protected:
    ~CorvaneInfraRegisterInfraAdapterTest() override
    {
        g_hostLevel = 7;
        g_infraLogLevel = 7;
    }
};

TEST_F(CorvaneInfraRegisterInfraAdapterTest, FillsEverySlotInItsPlace)
{
    g_corvaneInfra = {};
    const auto address = [](auto *function) { return reinterpret_cast<void *>(function); };
    const std::vector<void *> expected = {
        address(CorvaneOsMalloc), address(CorvaneOsFree), address(CorvaneOsThreadCreate), address(CorvaneOsThreadYield),
        address(CorvaneOsThreadSleep), address(CorvaneInfraLog), address(CorvaneOsSemCreate),
        address(CorvaneOsSemDestroy), address(CorvaneOsSemDown), address(CorvaneOsSemUp), address(CorvaneOsSemTryDown),
        address(CorvaneOsSemTryDownWithinTimeout),
        // the second group
        address(CorvaneOsSemDown), address(CorvaneOsSemUp), address(CorvaneOsSemTryDown),
        address(CorvaneOsSemTryDownWithinTimeout),
        // atomics
        address(CorvaneOsAtomicCreate), address(CorvaneOsAtomicDestroy), address(CorvaneOsAtomicGet),
        address(CorvaneOsAtomicSet), address(CorvaneOsAtomicCompareAndSet), address(CorvaneOsAtomicAddAndGet),
        address(CorvaneOsAtomicIncrementAndGet), address(CorvaneOsAtomicDecrementAndGet),
        // locks
        address(CorvaneOsSpinlockCreate), address(CorvaneOsSpinlockDestroy), address(CorvaneOsSpinlockLock),
        address(CorvaneOsSpinlockUnlock), address(CorvaneOsSpinlockTryLock), address(CorvaneOsRwlockCreate),
        address(CorvaneOsRwlockDestroy), address(CorvaneOsRwlockLockWriteLock),
        address(CorvaneOsRwlockTryLockWriteLock), address(CorvaneOsRwlockLockReadLock),
        address(CorvaneOsRwlockTryLockReadLock), address(CorvaneOsRwlockUnlockRwlock)};

    EXPECT_EQ(CorvaneInfraRegisterInfraAdapter(), 0u);

    std::vector<void *> slots(sizeof(g_corvaneInfra) / sizeof(void *));
    std::memcpy(slots.data(), &g_corvaneInfra, sizeof(g_corvaneInfra));
    EXPECT_EQ(slots, expected);
}

TEST_F(CorvaneInfraRegisterInfraAdapterTest, TakesTheHostsLevel)
{
    g_hostLevel = 5;

    EXPECT_EQ(CorvaneInfraRegisterInfraAdapter(), 0u);

    EXPECT_EQ(g_levelModule, 999u);
    EXPECT_EQ(g_infraLogLevel, 5u);
}

class CorvaneInfraHostMemoryTest : public CorvaneTest {};

TEST_F(CorvaneInfraHostMemoryTest, IsCountedToTheLibrarysModule)
{
    uint64_t bytes = 0;
    uint64_t blocks = 0;

    void *memory = CorvaneInfraMalloc(100);
    ASSERT_NE(memory, nullptr);
    normm_usage(999, &bytes, &blocks);
    EXPECT_EQ(bytes, 100u);
    EXPECT_EQ(blocks, 1u);

    CorvaneInfraFree(memory);
    normm_usage(999, &bytes, &blocks);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(blocks, 0u);
}

TEST_F(CorvaneInfraHostMemoryTest, FreeIgnoresNull)
{
    ::testing::internal::CaptureStderr();

    CorvaneInfraFree(nullptr);

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

class CorvaneInfraSpinlockTest : public CorvaneTest {};

TEST_F(CorvaneInfraSpinlockTest, IsMadeFreeWithMagicAndNoOwner)
{
    void *lock = CorvaneInfraSpinlockCreate();
    ASSERT_NE(lock, nullptr);

    const auto *record = static_cast<NoraxSpinlock *>(lock);
    EXPECT_EQ(record->lock, 0u);
    EXPECT_EQ(record->magic, 0xdead4eadu);
    EXPECT_EQ(record->ownerThread, -1);
    EXPECT_EQ(record->ownerLine, -1);

    CorvaneInfraSpinlockDestroy(lock);
}

TEST_F(CorvaneInfraSpinlockTest, ExcludesWhileHeld)
{
    void *lock = CorvaneInfraSpinlockCreate();
    ASSERT_NE(lock, nullptr);

    CorvaneInfraSpinlockLock(lock);
    EXPECT_FALSE(CorvaneInfraSpinlockTryLock(lock));

    CorvaneInfraSpinlockUnlock(lock);
    EXPECT_TRUE(CorvaneInfraSpinlockTryLock(lock));

    CorvaneInfraSpinlockUnlock(lock);
    CorvaneInfraSpinlockDestroy(lock);
}

TEST_F(CorvaneInfraSpinlockTest, CreateSaysThatThereIsNoMemory)
{
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(CorvaneInfraSpinlockCreate(), nullptr);

    EXPECT_EQ(LogCount(3, "adapter_infra", "failed to malloc spinlock"), 1u);
}

TEST_F(CorvaneInfraSpinlockTest, NullIsIgnored)
{
    ::testing::internal::CaptureStderr();

    CorvaneInfraSpinlockLock(nullptr);
    CorvaneInfraSpinlockUnlock(nullptr);
    CorvaneInfraSpinlockDestroy(nullptr);
    EXPECT_FALSE(CorvaneInfraSpinlockTryLock(nullptr));

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}
