/**
 * @file CliCmdPool.h
 * @brief Runs commands on worker threads and sends their answers.
 */
#ifndef CLI_CMD_POOL_H
#define CLI_CMD_POOL_H

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cli/server/BaseCommand.h"
#include "cli/server/UnlimitedQueue.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

/** Socket of the command that this worker answers. */
extern CORVANE_API thread_local int clientId;

/** @brief Send a response made of a text and a number. @param[in,out] msg Becomes the document. @return always 0. */
int CliSendAnswer(int clientFd, std::string &msg, int errorCode, const std::string &actionName);

class CORVANE_API CliCmdPool {
public:
    CliCmdPool();
    ~CliCmdPool();
    CliCmdPool(const CliCmdPool &) = delete;
    CliCmdPool &operator=(const CliCmdPool &) = delete;

    void CreatePool(int threads);
    /** @brief Stop one worker and wait for all: there is one. */
    void DestroyPool();
    void PushCmdTask(std::shared_ptr<BaseCommand> task);
    /** @return commands that wait or run; may be -1 for a moment. */
    int GetTaskCnt();
    /** @brief The worker's thread: a command, its answer, the end of its connection; until the halt token. */
    void WorkerLoop();
    /** @brief Answer the client whose command runs on this thread. @return always 0. */
    int DBPrint(std::string &msg, int errorCode, std::string actionName) const;
    /** @brief Answer a client. @return always 0. */
    int DBPrint(int clientFd, std::string &msg, int errorCode, std::string actionName) const;

private:
    std::vector<std::thread> m_workers;
    std::shared_ptr<BaseCommand> m_haltToken;
    UnlimitedQueue<BaseCommand> m_queue;
    std::atomic<int> m_taskCount = 0;
};

} // namespace CORVANE_CLI

#endif
