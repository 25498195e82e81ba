#include "support/corvane_fixture.h"

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "config/corvane_prefix_path.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"

namespace {

std::mutex g_logMutex;
std::vector<LogLine> g_logLines;

void CaptureLog(uint32_t level, const char *module, const char *, uint32_t, const char *, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char *text = nullptr;
    const int length = vasprintf(&text, fmt, args);
    va_end(args);
    if (length >= 0) {
        const std::lock_guard<std::mutex> guard(g_logMutex);
        g_logLines.push_back({level, module, text});
        std::free(text);
    }
}

} // namespace

CorvaneTest::CorvaneTest()
    : savedPrefix_(g_prefixPath), savedInfra_(g_corvaneInfra), savedOsCalls_(g_osCalls), savedOsPaths_(g_osPaths)
{
    char name[] = "/tmp/corvane-test.XXXXXX";
    prefix_ = mkdtemp(name);
    std::filesystem::create_directory(prefix_ + "/config");
    g_prefixPath = strdup(prefix_.c_str());
    (void)CorvaneInfraRegisterInfraAdapter();
    g_corvaneInfra.log = CaptureLog;
    ClearLogs();
}

CorvaneTest::~CorvaneTest()
{
    std::free(g_prefixPath);
    g_prefixPath = savedPrefix_;
    g_corvaneInfra = savedInfra_;
    g_osCalls = savedOsCalls_;
    g_osPaths = savedOsPaths_;
    std::error_code ignored;
    std::filesystem::remove_all(prefix_, ignored);
}

std::vector<LogLine> CorvaneTest::Logs()
{
    const std::lock_guard<std::mutex> guard(g_logMutex);
    return g_logLines;
}

void CorvaneTest::ClearLogs()
{
    const std::lock_guard<std::mutex> guard(g_logMutex);
    g_logLines.clear();
}

size_t CorvaneTest::LogCount(uint32_t level, const std::string &module, const std::string &text)
{
    size_t count = 0;
    for (const LogLine &line : Logs()) {
        if (line.level == level && line.module == module && line.text == text) {
            count++;
        }
    }
    return count;
}

std::string CorvaneTest::ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void CorvaneTest::WriteFile(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
}
