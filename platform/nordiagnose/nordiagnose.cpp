#include "platform/nordiagnose.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <pthread.h>

static_assert(sizeof(DBG_CmdInfo) == 104);
static_assert(offsetof(DBG_CmdInfo, description) == 20 && offsetof(DBG_CmdInfo, exec) == 88 &&
              offsetof(DBG_CmdInfo, help) == 96);

namespace {

constexpr size_t kMaxAgents = 8;

struct Agent {
    int processId; ///< 0: free row
    std::array<char, 32> name;
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER; ///< the two tables
std::array<Agent, kMaxAgents> g_agents;
std::array<DBG_CmdInfo, DBG_MAX_COMMANDS> g_commands; ///< an empty name is a free row

class Guard {
public:
    Guard() noexcept { (void)pthread_mutex_lock(&g_lock); }
    ~Guard() { (void)pthread_mutex_unlock(&g_lock); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
};

Agent *FindAgentLocked(int processId) noexcept
{
    for (Agent &agent : g_agents) {
        if (agent.processId == processId) {
            return &agent;
        }
    }
    return nullptr;
}

DBG_CmdInfo *FindCommandLocked(const char *name) noexcept
{
    for (DBG_CmdInfo &command : g_commands) {
        if (std::strncmp(command.name, name, sizeof(command.name)) == 0) {
            return &command;
        }
    }
    return nullptr;
}

bool IsTerminated(const char *text, size_t size) noexcept
{
    return std::memchr(text, '\0', size) != nullptr;
}

int Unregister(const char *name) noexcept
{
    if (name == nullptr || name[0] == '\0') {
        return -1;
    }
    const Guard guard;
    DBG_CmdInfo *command = FindCommandLocked(name);
    if (command == nullptr) {
        return -1;
    }
    *command = {};
    return 0;
}

int PrintOperator(const char *format, va_list args) noexcept
{
    const int length = std::vprintf(format, args);
    return std::fflush(stdout) == 0 ? length : -1;
}

} // namespace

#define DBG_API __attribute__((visibility("default")))

extern "C" {

DBG_API int DBG_DiagnoseAgentInit(int processId, const char *agentName) noexcept
{
    if (processId <= 0 || agentName == nullptr || agentName[0] == '\0') {
        return EINVAL;
    }
    const Guard guard;
    if (FindAgentLocked(processId) != nullptr) {
        return EEXIST;
    }
    Agent *agent = FindAgentLocked(0);
    if (agent == nullptr) {
        return ENOSPC;
    }
    agent->processId = processId;
    (void)std::snprintf(agent->name.data(), agent->name.size(), "%s", agentName);
    return 0;
}

DBG_API int DBG_DiagnoseAgentDestroy(int processId) noexcept
{
    const Guard guard;
    Agent *agent = processId > 0 ? FindAgentLocked(processId) : nullptr;
    if (agent == nullptr) {
        return ENOENT;
    }
    *agent = {};
    return 0;
}

DBG_API int DBG_RegCmd(const DBG_CmdInfo *command, ...) noexcept
{
    if (command == nullptr || command->name[0] == '\0' || command->exec == nullptr ||
        !IsTerminated(command->name, sizeof(command->name)) ||
        !IsTerminated(command->description, sizeof(command->description))) {
        return -1;
    }
    const Guard guard;
    if (FindCommandLocked(command->name) != nullptr) {
        return -1;
    }
    DBG_CmdInfo *row = FindCommandLocked("");
    if (row == nullptr) {
        return -1;
    }
    *row = *command;
    return 0;
}

DBG_API int DBG_UnRegCmd(const char *name) noexcept
{
    return Unregister(name);
}

DBG_API int DBG_UnRegCmdToCLI(const char *name, ...) noexcept
{
    return Unregister(name);
}

DBG_API int DBG_Print(const char *format, ...) noexcept
{
    if (format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int length = PrintOperator(format, args);
    va_end(args);
    return length;
}

DBG_API int DBG_PrintBuf(const char *format, ...) noexcept
{
    if (format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    flockfile(stdout);
    const int length = PrintOperator(format, args);
    funlockfile(stdout);
    va_end(args);
    return length;
}

DBG_API int DBG_ShowUsageAndErrMsg(const char *format, ...) noexcept
{
    int status = 0;
    flockfile(stdout);
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        status = std::vprintf(format, args);
        va_end(args);
        (void)std::printf("\n");
    }
    (void)std::printf("Usage: <group> <command> [arguments]\n");
    {
        const Guard guard;
        for (const DBG_CmdInfo &command : g_commands) {
            if (command.name[0] != '\0') {
                (void)std::printf("  %-20s%s\n", command.name, command.description);
            }
        }
    }
    if (std::fflush(stdout) != 0) {
        status = -1;
    }
    funlockfile(stdout);
    return status;
}

} // extern "C"
