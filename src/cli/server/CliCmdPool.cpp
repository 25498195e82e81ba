#include "cli/server/CliCmdPool.h"

#include <exception>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "cli/common/XmlModule.h"
#include "cli/server/CliUdsServer.h"

namespace CORVANE_CLI {

namespace {

/** Runs a command. A command that has no memory left fails; the worker goes on. */
int RunCommand(BaseCommand &command, std::string &output)
{
    try {
        return command.Exec(command.GetData().param, output);
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("command ended by an exception: %s", error.what());
        output.clear();
        return CLI_COMMAND_EXEC_FAILED;
    }
}

} // namespace

template class UnlimitedQueue<BaseCommand>; // for hosts that look its operations up by name

thread_local int clientId = -1;

int CliSendAnswer(int clientFd, std::string &msg, int errorCode, const std::string &actionName)
{
    msg += " errorCode=" + std::to_string(errorCode);
    XmlModule xml;
    msg = xml.SvCMDtoXml(msg);
    (void)CliUdsServer::GetInstance().SendMsg(msg, clientFd, actionName); // a peer that is gone needs no answer
    return CLI_OK;
}

CliCmdPool::CliCmdPool() : m_haltToken(std::make_shared<ExitCommand>()) {}

CliCmdPool::~CliCmdPool()
{
    DestroyPool();
}

void CliCmdPool::CreatePool(int threads)
{
    CLI_LOG_INFO("create worker thread %d.", threads);
    for (int i = 0; i < threads; i++) {
        m_workers.emplace_back(&CliCmdPool::WorkerLoop, this);
    }
}

void CliCmdPool::DestroyPool()
{
    m_queue.Put(m_haltToken);
    for (std::thread &worker : m_workers) {
        worker.join();
    }
    m_workers.clear();
}

void CliCmdPool::PushCmdTask(std::shared_ptr<BaseCommand> task)
{
    m_queue.Put(std::move(task));
    m_taskCount++;
}

int CliCmdPool::GetTaskCnt()
{
    return m_taskCount;
}

void CliCmdPool::WorkerLoop()
{
    while (true) {
        std::shared_ptr<BaseCommand> task;
        (void)m_queue.Get(task, 0);
        if (task == nullptr) {
            CLI_LOG_WARN("pBaseCmd is null.");
            m_taskCount--;
            continue;
        }
        if (task == m_haltToken) {
            CLI_LOG_WARN("Received halt task, all worker threads will be stoped.");
            m_taskCount--;
            return;
        }
        std::string output;
        const int result = RunCommand(*task, output);
        clientId = -1; // that of the last one may be another's by now
        try {
            clientId = task->GetData().clientFd;
            (void)DBPrint(output, result, task->GetAction());
        } catch (const std::exception &error) {
            CLI_LOG_ERROR("The answer could not be sent, %s.", error.what());
        }
        // One request per connection: the answer ends it.
        (void)shutdown(clientId, SHUT_RDWR);
        (void)close(clientId);
        m_taskCount--;
    }
}

int CliCmdPool::DBPrint(std::string &msg, int errorCode, std::string actionName) const
{
    if (msg.empty()) {
        msg = "null";
    }
    CLI_LOG_DEBUG("DBPrint, clientId:%d, msg:%s, errorCode:%d, actionName:%s.", clientId, msg.c_str(), errorCode,
                  actionName.c_str());
    return CliSendAnswer(clientId, msg, errorCode, actionName);
}

int CliCmdPool::DBPrint(int clientFd, std::string &msg, int errorCode, std::string actionName) const
{
    if (msg.empty()) {
        msg = "null";
    }
    CLI_LOG_DEBUG("DBPrint, clientFd:%d, msg:%s, errorCode:%d, actionName:%s.", clientFd, msg.c_str(), errorCode,
                  actionName.c_str());
    return CliSendAnswer(clientFd, msg, errorCode, actionName);
}

} // namespace CORVANE_CLI
