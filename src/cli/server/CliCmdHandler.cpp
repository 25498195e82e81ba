#include "cli/server/CliCmdHandler.h"

#include <exception>
#include <utility>

#include "cli/cmd/ConfigCmd.h"
#include "cli/cmd/DiskLifePredictionCmd.h"
#include "cli/cmd/DprSmartCmd.h"
#include "cli/cmd/QueryInfoCmd.h"
#include "cli/cmd/SlowDIskDetectCmd.h"
#include "cli/cmd/SlowDiskCmd.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"

namespace CORVANE_CLI {

namespace {

template <typename Command>
std::shared_ptr<BaseCommand> Make()
{
    return std::make_shared<Command>();
}

struct CommandRow {
    const char *name;
    std::shared_ptr<BaseCommand> (*make)();
};

constexpr CommandRow kCommands[] = {
    {"slowdisk", Make<SlowDiskCmd>},    {"summary", Make<SlowDiskCmd>},
    {"config", Make<ConfigCmd>},        {"slowdisk_detect_config", Make<SlowDiskDetectCmd>},
    {"disk_info", Make<QueryInfoCmd>},  {"iostat_info", Make<QueryInfoCmd>},
    {"smart_info", Make<QueryInfoCmd>}, {"drm_info", Make<QueryInfoCmd>},
    {"dpr_smart", Make<DprSmartCmd>},   {"disklife_prediction", Make<DiskLifePredictionCmd>},
};

constexpr int kWorkers = 1;

/** Answers a request that does not run. @return @p code */
int Refuse(const CmdData &data, const std::string &actionName, int code)
{
    const CliCmdPool answering;
    std::string nothing;
    (void)answering.DBPrint(data.clientFd, nothing, code, actionName);
    return code;
}

/** @return a pool with its worker; null if there is no memory or no thread for it. */
std::shared_ptr<CliCmdPool> NewPool()
{
    try {
        auto pool = std::make_shared<CliCmdPool>();
        pool->CreatePool(kWorkers);
        return pool;
    } catch (const std::exception &) {
        return nullptr;
    }
}

} // namespace

CliCmdHandler &CliCmdHandler::GetInstance()
{
    // Never destroyed: the worker may run until the process ends.
    static CliCmdHandler *const instance = new CliCmdHandler;
    return *instance;
}

CliCmdHandler::~CliCmdHandler()
{
    if (m_pool != nullptr) {
        m_pool->DestroyPool();
    }
}

int CliCmdHandler::Initialize()
{
    std::shared_ptr<CliCmdPool> pool = NewPool();
    if (pool == nullptr) {
        CLI_LOG_ERROR("Init job pool failed.");
        return CLI_FAIL;
    }
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_pool.swap(pool); // one of an earlier start ends behind the lock
    }
    for (const CommandRow &row : kCommands) {
        (void)RegisterCmd(row.name, row.make);
    }
    return CLI_OK;
}

int CliCmdHandler::RegisterCmd(std::string name, Factory factory)
{
    bool added = false;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        added = m_registry.emplace(name, std::move(factory)).second;
    }
    if (!added) {
        CLI_LOG_ERROR("Command:%s already exist.", name.c_str());
        return CLI_FAIL;
    }
    CLI_LOG_INFO("Command:%s add success.", name.c_str());
    return CLI_OK;
}

int CliCmdHandler::PushCmdTask(CmdData &data, std::string actionName)
{
    Factory factory;
    std::shared_ptr<CliCmdPool> pool;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto row = m_registry.find(data.name);
        if (row != m_registry.end()) {
            factory = row->second;
        }
        pool = m_pool;
    }
    std::shared_ptr<BaseCommand> command;
    if (factory != nullptr && pool != nullptr) {
        CLI_LOG_INFO("Start exec cmd:%s.", data.name.c_str());
        command = factory();
    }
    if (command == nullptr) {
        CLI_LOG_ERROR("CLI_COMMAND_PARAM_INVALID 0x%x.", static_cast<unsigned int>(CLI_COMMAND_PARAM_INVALID));
        return Refuse(data, actionName, CLI_COMMAND_PARAM_INVALID);
    }
    command->SetData(data);
    // Only the receive thread pushes, so that nothing comes between the test and the push.
    if (pool->GetTaskCnt() < 1) {
        pool->PushCmdTask(std::move(command));
        return CLI_OK;
    }
    CLI_LOG_ERROR("CLI_TASK_MAX_ERROR 0x%x.", static_cast<unsigned int>(CLI_TASK_MAX_ERROR));
    return Refuse(data, actionName, CLI_TASK_MAX_ERROR);
}

} // namespace CORVANE_CLI
