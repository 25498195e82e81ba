/**
 * @file CliCmdHandler.h
 * @brief The commands by name, and the one place that lets a request run.
 *
 * One per process, made at the first use and never destroyed. A mutex guards registry and pool; it is not held while a
 * command runs.
 */
#ifndef CLI_CMD_HANDLER_H
#define CLI_CMD_HANDLER_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "cli/server/BaseCommand.h"
#include "cli/server/CliCmdPool.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API CliCmdHandler {
public:
    using Factory = std::function<std::shared_ptr<BaseCommand>()>;

    static CliCmdHandler &GetInstance();
    ~CliCmdHandler();
    CliCmdHandler(const CliCmdHandler &) = delete;
    CliCmdHandler &operator=(const CliCmdHandler &) = delete;

    /** @brief One worker and the ten commands. @retval -1  No memory for the pool. */
    int Initialize();
    /** @retval -1  The name is taken. */
    int RegisterCmd(std::string name, Factory factory);
    /**
     * @brief Give a request to the worker, which answers and closes its socket.
     * @return 0; CLI_COMMAND_PARAM_INVALID for an unknown command, CLI_TASK_MAX_ERROR while another one waits or runs:
     *         both are answered here, and the socket stays the caller's.
     */
    int PushCmdTask(CmdData &data, std::string actionName);

private:
    CliCmdHandler() = default;

    std::shared_ptr<CliCmdPool> m_pool;
    std::map<std::string, Factory> m_registry;
    std::mutex m_mutex; /**< guards both */
};

} // namespace CORVANE_CLI

#endif
