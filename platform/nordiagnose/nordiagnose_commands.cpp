#include "nordiagnose_commands.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <string_view>

#include "mutex_guard.h"

static_assert(sizeof(DBG_CmdInfo) == 104);
static_assert(offsetof(DBG_CmdInfo, description) == 20 && offsetof(DBG_CmdInfo, exec) == 88 &&
              offsetof(DBG_CmdInfo, help) == 96);

namespace nordiag {
namespace {

struct Row {
    DBG_CmdInfo command; ///< an empty name: nobody finds it
    uint32_t executions;
    bool running;        ///< its exec function is taken
    bool leaving;        ///< removed, and not free before its executions have ended
    uint64_t generation; ///< tells whoever waits for its end from the row's next user
};

constexpr long kAskAgainNanoseconds = 250000000L;
constexpr long kNanosecondsPerSecond = 1000000000L;

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;  ///< the table
pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER; ///< an execution has ended, or a command is gone
std::array<Row, DBG_MAX_COMMANDS> g_rows;

Row *FindLocked(const char *name) noexcept
{
    if (name == nullptr || name[0] == '\0') {
        return nullptr;
    }
    const auto row = std::find_if(g_rows.begin(), g_rows.end(), [name](const Row &candidate) {
        return std::strncmp(candidate.command.name, name, sizeof(candidate.command.name)) == 0;
    });
    return row != g_rows.end() ? row : nullptr;
}

Row *FindFreeLocked() noexcept
{
    const auto row = std::find_if(g_rows.begin(), g_rows.end(), [](const Row &candidate) {
        return candidate.command.name[0] == '\0' && !candidate.leaving;
    });
    return row != g_rows.end() ? row : nullptr;
}

void WaitBrieflyLocked() noexcept
{
    timespec until{};
    (void)clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += kAskAgainNanoseconds;
    if (until.tv_nsec >= kNanosecondsPerSecond) {
        until.tv_nsec -= kNanosecondsPerSecond;
        until.tv_sec++;
    }
    (void)pthread_cond_clockwait(&g_changed, &g_lock, CLOCK_MONOTONIC, &until);
}

bool IsTerminated(const char *text, size_t size) noexcept
{
    return std::memchr(text, '\0', size) != nullptr;
}

bool IsGood(const DBG_CmdInfo &command) noexcept
{
    return command.name[0] != '\0' && command.exec != nullptr && IsTerminated(command.name, sizeof(command.name)) &&
           IsTerminated(command.description, sizeof(command.description));
}

} // namespace

int CommandAdd(const DBG_CmdInfo *command) noexcept
{
    if (command == nullptr || !IsGood(*command)) {
        return -1;
    }
    const MutexGuard guard(g_lock);
    Row *row = FindLocked(command->name) == nullptr ? FindFreeLocked() : nullptr;
    if (row == nullptr) {
        return -1;
    }
    row->command = *command;
    return 0;
}

int CommandRemove(const char *name, bool wait) noexcept
{
    const MutexGuard guard(g_lock);
    Row *row = FindLocked(name);
    if (row == nullptr) {
        return -1;
    }
    row->command = {};
    row->leaving = row->executions > 0;
    const uint64_t generation = ++row->generation;
    (void)pthread_cond_broadcast(&g_changed); // those in line for it find it gone
    while (wait && row->leaving && row->generation == generation) {
        (void)pthread_cond_wait(&g_changed, &g_lock);
    }
    return 0;
}

void CommandsPrint(std::FILE *out) noexcept
{
    const MutexGuard guard(g_lock);
    for (const Row &row : g_rows) {
        if (row.command.name[0] != '\0') {
            (void)std::fprintf(out, "  %-20s%s\n", row.command.name, row.command.description);
        }
    }
}

size_t CommandsPack(char *buffer, size_t size) noexcept
{
    size_t used = 0;
    const MutexGuard guard(g_lock);
    for (const Row &row : g_rows) {
        if (row.command.name[0] == '\0') {
            continue;
        }
        for (const std::string_view text : {row.command.name, row.command.description}) {
            if (text.size() < size - used) {
                (void)text.copy(buffer + used, text.size());
                used += text.size();
                buffer[used++] = '\0';
            }
        }
    }
    return used;
}

uint32_t CommandsRunning() noexcept
{
    uint32_t count = 0;
    const MutexGuard guard(g_lock);
    for (const Row &row : g_rows) {
        count += row.executions;
    }
    return count;
}

void CommandsWake() noexcept
{
    const MutexGuard guard(g_lock);
    (void)pthread_cond_broadcast(&g_changed);
}

Begin Execution::ForRun(const char *name, bool (*wanted)(void *context), void *context) noexcept
{
    const MutexGuard guard(g_lock);
    Row *row = FindLocked(name);
    while (row != nullptr && wanted(context) && row->running) {
        WaitBrieflyLocked();
        row = FindLocked(name); // it may be gone, or stand elsewhere
    }
    if (row == nullptr) {
        return Begin::NO_SUCH_COMMAND;
    }
    if (row->running || !wanted(context)) {
        return Begin::NOT_WANTED;
    }
    row->running = true;
    row->executions++;
    exclusive_ = true;
    command_ = row->command;
    row_ = static_cast<size_t>(row - g_rows.data());
    return Begin::STARTED;
}

Begin Execution::ForHelp(const char *name) noexcept
{
    const MutexGuard guard(g_lock);
    Row *row = FindLocked(name);
    if (row == nullptr) {
        return Begin::NO_SUCH_COMMAND;
    }
    row->executions++;
    command_ = row->command;
    row_ = static_cast<size_t>(row - g_rows.data());
    return Begin::STARTED;
}

Execution::~Execution()
{
    if (row_ == DBG_MAX_COMMANDS) {
        return;
    }
    const MutexGuard guard(g_lock);
    Row &row = g_rows[row_];
    row.executions--;
    row.running = row.running && !exclusive_;
    if (row.executions == 0) {
        row.leaving = false;
    }
    (void)pthread_cond_broadcast(&g_changed);
}

} // namespace nordiag
