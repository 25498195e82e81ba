#include "infrastructure/common/corvane_log.h"

#include "support/corvane_fixture.h"

namespace {

struct LevelName {
    uint32_t level;
    const char *name;
};

} // namespace

class CorvaneLogLevelNameTest : public CorvaneTest, public ::testing::WithParamInterface<LevelName> {};

TEST_P(CorvaneLogLevelNameTest, NamesTheLevel)
{
    EXPECT_STREQ(CorvaneLogLevelName(GetParam().level), GetParam().name);
}

TEST_P(CorvaneLogLevelNameTest, CheckedFormPrintsItWithoutALog)
{
    g_corvaneInfra.log = nullptr;
    const uint32_t level = GetParam().level;

    ::testing::internal::CaptureStdout();
    CORVANE_LOG_CHECKED(level, "INIT", "value %d of %s", 7, "x");
    const std::string output = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(output, "[INIT] " + std::string(GetParam().name) + " : value 7 of x\n");
    EXPECT_TRUE(Logs().empty());
}

INSTANTIATE_TEST_SUITE_P(Levels, CorvaneLogLevelNameTest,
                         ::testing::Values(LevelName{0, "N/A"}, LevelName{1, "N/A"}, LevelName{2, "CRITICAL"},
                                           LevelName{3, "ERROR"}, LevelName{4, "WARN"}, LevelName{5, "EVENT"},
                                           LevelName{6, "INFO"}, LevelName{7, "DEBUG"}, LevelName{8, "N/A"},
                                           LevelName{UINT32_MAX, "N/A"}));

class CorvaneLogTest : public CorvaneTest {};

namespace {

struct SeenCall {
    uint32_t level;
    std::string module;
    std::string file;
    uint32_t line;
    std::string func;
    std::string format;
};
SeenCall g_seen;

void RecordCall(uint32_t level, const char *module, const char *file, uint32_t line, const char *func, const char *fmt,
                ...)
{
    g_seen = {level, module, file, line, func, fmt};
}

} // namespace

TEST_F(CorvaneLogTest, CheckedFormGoesToTheLogWhenThereIsOne)
{
    g_corvaneInfra.log = RecordCall;

    ::testing::internal::CaptureStdout();
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "success lock file");
    const uint32_t line = __LINE__ - 1;
    const std::string output = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(output, "");
    EXPECT_EQ(g_seen.level, 7u);
    EXPECT_EQ(g_seen.module, "INIT");
    EXPECT_EQ(g_seen.file, "corvane_log_test.cpp"); // no folder
    EXPECT_EQ(g_seen.line, line);
    EXPECT_EQ(g_seen.func, "TestBody");
    EXPECT_EQ(g_seen.format, "success lock file");
}

TEST_F(CorvaneLogTest, PlainFormGoesToTheLog)
{
    g_corvaneInfra.log = RecordCall;

    CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "ret:%d", 4);

    EXPECT_EQ(g_seen.level, 4u);
    EXPECT_EQ(g_seen.module, "DCM");
    EXPECT_EQ(g_seen.file, "corvane_log_test.cpp");
    EXPECT_EQ(g_seen.format, "ret:%d");
}
