/**
 * @file nordiagnose_server.h
 * @brief Serves the registered commands to the clients of one diagnosed process. C++ sources only.
 *
 * One thread accepts; each client gets a thread of its own, up to 16 at a time. A client has five seconds to send its
 * request, and is given up when it takes nothing of its answer for five seconds. No lock of its own.
 */
#ifndef NORDIAGNOSE_SERVER_H
#define NORDIAGNOSE_SERVER_H

namespace nordiag {

class Server;

/** @return null if the socket or the thread cannot be had; standard error says so. */
[[nodiscard]] Server *ServerStart(int processId, const char *agentName) noexcept;
/**
 * Removes the socket, gives up the clients, waits for running commands and all threads, and frees the server. On a
 * thread that runs a command it waits for nothing: the rest happens when the commands have ended.
 */
void ServerStop(Server *server) noexcept;

} // namespace nordiag

#endif
