/**
 * @file CliUdsServer.h
 * @brief The management socket: takes clients, reads one request from each, hands it to the command handler.
 *
 * One per process, never destroyed. An accept thread and a receive thread; a mutex guards the list of clients between
 * them and is held across no blocking call.
 */
#ifndef CLI_UDS_SERVER_H
#define CLI_UDS_SERVER_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * 1: a request whose first word is not the action that was authorised is answered with 0x40036901 and runs nothing.
 * 0, the default, runs it. Read as an atomic.
 */
extern CORVANE_API uint32_t g_cliRefuseActionMismatch;

/** @brief Start-up step "Cli-Server". @retval -1  The socket or the command handler could not be made. */
CORVANE_NODISCARD CORVANE_API int InitCliServertoC(void) CORVANE_NOEXCEPT;
/** @brief Stop the server; it does not start again. @retval -1  The socket's path does not fit. */
CORVANE_API int UnInitCliServertoC(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace CORVANE_CLI {

class CORVANE_API CliUdsServer {
public:
    CliUdsServer();
    CliUdsServer(const CliUdsServer &) = delete;
    CliUdsServer &operator=(const CliUdsServer &) = delete;

    /** @return the process-wide instance. */
    static CliUdsServer &GetInstance();

    int InitCliServer();
    int UnInitCliServer();
    /** @brief Wait for one client. @return 0, -1, CLI_RECV_TRANSMISSION_ERROR. */
    int AcceptCliServer();
    /** @brief The accept thread. */
    void Run();
    /** @brief The receive thread: one client at a time. */
    void InnerRecvThreadRun();
    /** @brief Read one request and hand it on. The socket is closed, or the worker's, afterwards. */
    void InnerRecvTask(int clientFd);
    /** @brief Forget a client and close its socket. */
    void CloseClient(int clientFd);
    /** @brief Tell both threads to end; waits 200 ms. */
    void Stop();
    int SendMsg(const std::string &text, int sockFd, const std::string &actionName);
    int RecvMsg(std::string &text, int sockFd, std::string &userName, std::string &actionName);

private:
    /** @return whether both threads run. */
    bool StartThreads();
    /** @brief InnerRecvTask() of which no exception leaves. */
    void ServeClient(int clientFd);

    std::vector<int> m_clients; /**< accepted, not yet taken by the receive thread */
    std::mutex m_clientsMutex;
    std::atomic<int> m_stop = 0;
    std::atomic<int> m_listenFd = -1;
    std::thread m_acceptThread;
    std::thread m_recvThread;
};

} // namespace CORVANE_CLI

#endif

#endif
