/**
 * @file dcak_server.h
 * @brief The kernel agent's server: listens on a local socket and answers one JSON-RPC request a connection.
 *
 * Owns the server record and the two switches. One listener thread and one detached thread for each connection run
 * here; they share nothing but the switches, which are single words read and flipped as atomics. No lock is taken.
 */
#ifndef DCAK_SERVER_H
#define DCAK_SERVER_H

#include <cjson/cJSON.h>
#include <sys/socket.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/** Where the agent serves; filled by DcakServerInit(). A host may set type, port and an IPv4 address beforehand. */
extern CORVANE_API DcakServerInfo g_DCAK_SERVER;
/** Non-zero: all functions of the agent log their details. Atomic access only. */
extern CORVANE_API uint32_t g_DCAK_DEBUG_SWITCH;
/** Non-zero: every method but the link switch answers "link err", which imitates a broken link. Atomic access only. */
extern CORVANE_API uint32_t g_dcakLinkErr;

/**
 * @brief Start the agent: check the tools, then serve on a thread of its own.
 *
 * Each call unlinks the socket file and starts a further server. There is no stop; a server runs until its accept
 * fails or the process ends. The listener needs the rights to chown the socket, the handlers those for SG_IO.
 * @retval 0          A server thread was asked for, or the server type is none that can be served. A thread that the
 *                    system refuses, a failed bind and a missing account show only in the log, and by nobody serving.
 * @retval DCAK_FAIL  lsblk is missing or too old.
 */
CORVANE_API uint32_t DcakInitSocketSever(void) CORVANE_NOEXCEPT;

/**
 * @brief Fill g_DCAK_SERVER with the name and, for a socket file, its path.
 *
 * The type stays as it is: 0, a socket file, unless a host has chosen another before.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t DcakServerInit(void) CORVANE_NOEXCEPT;

/**
 * @brief Thread body: serve on the socket file of @p server (a DcakServerInfo, not owned).
 *
 * The file gets mode 660, owner root and group corvane_group; without that group nothing is accepted. The listening
 * socket is closed when the thread ends, so that clients fail at once.
 * @return Always null.
 */
CORVANE_API void *DcakSocketServerRunWithFile(void *server) CORVANE_NOEXCEPT;

/** @brief Thread body: serve on the IPv4 address and port of @p server. @return Always null. */
CORVANE_API void *DcakSocketServerRun(void *server) CORVANE_NOEXCEPT;

/**
 * @brief Accept connections, each on a detached thread, until something fails.
 * @param listenFd           Stays open and the caller's.
 * @param[out] address       Receives the address of each peer.
 * @param[in] addressLength  Room at @p address in bytes.
 */
CORVANE_API void DcakSockProcess(int listenFd, struct sockaddr *address, socklen_t addressLength) CORVANE_NOEXCEPT;

/**
 * @brief Thread body of one connection: read one request of at most 3071 bytes in one piece, answer it, close.
 * @param clientFdPointer  An int from malloc() that holds the connected stream socket. Memory and socket are taken
 *                         over.
 * @return Always null.
 */
CORVANE_API void *DcakHandleClient(void *clientFdPointer) CORVANE_NOEXCEPT;

/**
 * @brief Answer one request.
 * @param[out] responseTextOut  The response, for cJSON_free(); untouched on failure.
 * @retval 0          Answered. A handler that failed shows as an empty list of disks.
 * @retval DCAK_FAIL  The request is no JSON, or there is no memory for the response.
 */
CORVANE_API uint32_t ParseReqAndResponse(const char *requestText, char **responseTextOut) CORVANE_NOEXCEPT;

/**
 * @brief Answer the methods that flip the agent's switches, and all others while the link error is on.
 * @param methodItem      The request's method, a string with a value.
 * @param[out] resultOut  The result, owned by the caller; untouched if not answered.
 * @retval 1  Answered.
 * @retval 0  The method is for a handler.
 */
CORVANE_API uint32_t DcakDebugProcess(cJSON *methodItem, cJSON **resultOut) CORVANE_NOEXCEPT;

/**
 * @brief Give @p file to @p user and @p group with mode 660.
 * @retval 0
 * @retval -1  An account is unknown, or a change was refused.
 */
CORVANE_API int32_t DcakSetGroupUserPermisson(const char *file, const char *group, const char *user) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
