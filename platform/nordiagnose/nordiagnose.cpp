#include "platform/nordiagnose.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <pthread.h>

#include "mutex_guard.h"
#include "nordiagnose_commands.h"
#include "nordiagnose_server.h"
#include "nordiagnose_session.h"

namespace {

constexpr size_t kMaxAgents = 8;

enum class AgentState { FREE, CHANGING, REGISTERED };

struct Agent {
    AgentState state;
    int processId;
    nordiag::Server *server; ///< null: no socket could be had
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER; ///< the agents; sockets are opened and ended without it
std::array<Agent, kMaxAgents> g_agents;

Agent *FindAgentLocked(int processId) noexcept
{
    for (Agent &agent : g_agents) {
        if (agent.state != AgentState::FREE && agent.processId == processId) {
            return &agent;
        }
    }
    return nullptr;
}

/** Keeps a row for the process. @return 0 or an errno number. */
int ReserveAgent(int processId, Agent *&reserved) noexcept
{
    const MutexGuard guard(g_lock);
    if (FindAgentLocked(processId) != nullptr) {
        return EEXIST;
    }
    for (Agent &agent : g_agents) {
        if (agent.state == AgentState::FREE) {
            agent = {AgentState::CHANGING, processId, nullptr};
            reserved = &agent;
            return 0;
        }
    }
    return ENOSPC;
}

struct FreeText {
    void operator()(char *text) const noexcept { std::free(text); }
};
using TextPtr = std::unique_ptr<char, FreeText>;

/** To the client whose command runs on this thread, else to standard output in one piece. */
bool PrintText(std::string_view text) noexcept
{
    nordiag::Session *session = nordiag::CurrentSession();
    if (session != nullptr) {
        return session->Print(text);
    }
    flockfile(stdout);
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    funlockfile(stdout);
    return written;
}

__attribute__((format(printf, 1, 0))) int PrintOperator(const char *format, va_list args) noexcept
{
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    if (length < 0) {
        return -1;
    }
    const TextPtr owner(text);
    return PrintText({text, static_cast<size_t>(length)}) ? length : -1;
}

} // namespace

#define DBG_API __attribute__((visibility("default")))

extern "C" {

DBG_API int DBG_DiagnoseAgentInit(int processId, const char *agentName) noexcept
{
    if (processId <= 0 || agentName == nullptr || agentName[0] == '\0') {
        return EINVAL;
    }
    Agent *agent = nullptr;
    const int status = ReserveAgent(processId, agent);
    if (status != 0) {
        return status;
    }
    nordiag::Server *server = nordiag::ServerStart(processId, agentName);
    const MutexGuard guard(g_lock);
    *agent = {AgentState::REGISTERED, processId, server};
    return 0;
}

DBG_API int DBG_DiagnoseAgentDestroy(int processId) noexcept
{
    Agent *agent = nullptr;
    {
        const MutexGuard guard(g_lock);
        agent = processId > 0 ? FindAgentLocked(processId) : nullptr;
        if (agent == nullptr || agent->state != AgentState::REGISTERED) {
            return ENOENT;
        }
        agent->state = AgentState::CHANGING;
    }
    nordiag::ServerStop(agent->server);
    const MutexGuard guard(g_lock);
    *agent = {};
    return 0;
}

DBG_API int DBG_RegCmd(const DBG_CmdInfo *command, ...) noexcept
{
    return nordiag::CommandAdd(command);
}

DBG_API int DBG_UnRegCmd(const char *name) noexcept
{
    return nordiag::CommandRemove(name, nordiag::CurrentSession() == nullptr);
}

DBG_API int DBG_UnRegCmdToCLI(const char *name, ...) noexcept
{
    return nordiag::CommandRemove(name, nordiag::CurrentSession() == nullptr);
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
    const int length = PrintOperator(format, args);
    va_end(args);
    return length;
}

DBG_API int DBG_ShowUsageAndErrMsg(const char *format, ...) noexcept
{
    char *text = nullptr;
    size_t size = 0;
    int status = 0;
    std::FILE *out = open_memstream(&text, &size);
    if (out == nullptr) {
        return -1;
    }
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        status = std::vfprintf(out, format, args);
        va_end(args);
        (void)std::fputc('\n', out);
    }
    (void)std::fputs("Usage: <group> <command> [arguments]\n", out);
    nordiag::CommandsPrint(out);
    const bool complete = std::fclose(out) == 0;
    const TextPtr owner(text);
    return complete && PrintText({text, size}) ? status : -1;
}

} // extern "C"
