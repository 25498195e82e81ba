/**
 * @file nordiagnose_commands.h
 * @brief The table of registered commands and their running executions. C++ sources only.
 *
 * Every operation may be called from any thread; the table has one lock, under which nothing but the table is touched
 * and no command runs.
 */
#ifndef NORDIAGNOSE_COMMANDS_H
#define NORDIAGNOSE_COMMANDS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "platform/nordiagnose.h"

namespace nordiag {

/** @return 0, or -1: bad record, name taken, or no room. */
int CommandAdd(const DBG_CmdInfo *command) noexcept;
/** @param wait  Wait for its running executions. @return 0, or -1 if there is no such command. */
int CommandRemove(const char *name, bool wait) noexcept;
/** One line for each command. */
void CommandsPrint(std::FILE *out) noexcept;
/** Names and descriptions in turn, each with its terminating zero. @return bytes written. */
size_t CommandsPack(char *buffer, size_t size) noexcept;
/** How many executions run, help included. */
uint32_t CommandsRunning() noexcept;
/** Lets those who wait for a command ask again whether they are still wanted. / */
void CommandsWake() noexcept;

enum class Begin { STARTED, NO_SUCH_COMMAND, NOT_WANTED };

/** Keeps a command from being removed for as long as it lives. */
class Execution {
public:
    Execution() noexcept = default;
    ~Execution();
    Execution(const Execution &) = delete;
    Execution &operator=(const Execution &) = delete;

    /**
     * For its exec function: one at a time for each command, so this may wait.
     * @param wanted  Asked with @p context now and then, under the table's lock, whether to go on waiting.
     */
    [[nodiscard]] Begin ForRun(const char *name, bool (*wanted)(void *context), void *context) noexcept;
    /** For its help function: beside any other execution. */
    [[nodiscard]] Begin ForHelp(const char *name) noexcept;
    [[nodiscard]] const DBG_CmdInfo &Command() const noexcept { return command_; }

private:
    DBG_CmdInfo command_{};
    size_t row_ = DBG_MAX_COMMANDS; ///< beyond the table: nothing has begun
    bool exclusive_ = false;
};

} // namespace nordiag

#endif
