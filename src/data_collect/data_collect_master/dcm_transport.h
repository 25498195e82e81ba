/**
 * @file dcm_transport.h
 * @brief Takes one request to one agent and brings one answer back, over a connection of its own.
 *
 * Owns the constant records of the three agents and nothing that lives between calls. Any number of threads may be
 * inside at once; no lock is taken, but callers may hold locks over the network I/O done here: up to five tries of
 * three seconds each for receiving, and as long for sending.
 *
 * There is no length and no terminator on the wire: a request is one send, an answer is what one receive returns.
 */
#ifndef DCM_TRANSPORT_H
#define DCM_TRANSPORT_H

#include <cjson/cJSON.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Bytes of one answer at most; a longer one is cut and fails to parse. */
#define DCM_RESPONSE_CAPACITY 8192

extern CORVANE_API const AgentInfo g_uniqueSpdkAgent; /**< user-space NVMe disks */
extern CORVANE_API const AgentInfo g_uniqueDcakAgent; /**< disks that the kernel sees */
extern CORVANE_API const AgentInfo g_uniqueDmaAgent;  /**< the data agent; shares the socket of the first */

/**
 * @brief Compare two agents: names over 32 bytes, types, address bytes.
 * @return true when all are the same; false also when either pointer is null.
 */
CORVANE_API bool IsAgentEqual(const AgentInfo *a, const AgentInfo *b) CORVANE_NOEXCEPT;

/**
 * @brief Narrow a size.
 * @return The size; all ones, with a debug line, for one that needs more than 32 bits.
 */
CORVANE_API uint32_t CastSizeToUint32(size_t size) CORVANE_NOEXCEPT;

/**
 * @brief Print a request, post it and parse the answer. Failures are logged.
 * @param[in] agent        Whom to ask.
 * @param[in] requestJson  Stays with the caller.
 * @return The answer, which the caller deletes; null when posting or parsing failed.
 */
CORVANE_NODISCARD CORVANE_API cJSON *PostRequestWithJSON(const AgentInfo *agent, cJSON *requestJson) CORVANE_NOEXCEPT;

/**
 * @brief Post a request and take the answer as text.
 * @param[in]  agent          Whom to ask.
 * @param[in]  requestLength  Length of the text with its terminator.
 * @param[in]  requestText    Zero-terminated; the terminator does not travel.
 * @param[out] response       Cleared, then filled and zero-terminated; needs room for capacity + 1 bytes. A negative
 *                            capacity is taken as INT32_MAX, and nothing is cleared then.
 * @retval 0                      Answered; an answer of no bytes (the peer closed) is the empty text.
 * @retval DCM_ERR_BAD_INPUT      A null argument, an unknown agent type, no socket, or no connection.
 * @retval DCM_ERR_SOCKET_OPTION  The time-outs could not be set; the descriptor stays open.
 * @retval DCM_ERR_TRANSFER       All five tries failed.
 * @retval DCM_ERR_NO_MEMORY      Type 1 only: no memory for the port's digits.
 */
CORVANE_NODISCARD CORVANE_API uint32_t PostRequest(const AgentInfo *agent, uint32_t requestLength,
                                                   const char *requestText, ResponseBuffer *response) CORVANE_NOEXCEPT;

/**
 * @brief PostRequest over a UNIX stream socket.
 * @param[in] pathLength  Characters of @p path that count, 107 at most; @p path may lack a terminator behind them.
 * @retval DCM_ERR_TOO_LONG  The path does not fit a socket address.
 * @return Else as PostRequest.
 */
CORVANE_NODISCARD CORVANE_API uint32_t PostRequestWithSockFile(uint32_t requestLength, const char *requestText,
                                                               uint32_t pathLength, const char *path,
                                                               ResponseBuffer *response) CORVANE_NOEXCEPT;

/**
 * @brief PostRequest over TCP.
 * @param[in] addressLength  Characters of the address and digits of the port together; informative.
 * @param[in] address        IPv4 address in dotted form, zero-terminated.
 * @param[in] port           Host byte order.
 * @return As PostRequest.
 */
CORVANE_NODISCARD CORVANE_API uint32_t PostRequestWithIpv4(uint32_t requestLength, const char *requestText,
                                                           uint32_t addressLength, const char *address, uint16_t port,
                                                           ResponseBuffer *response) CORVANE_NOEXCEPT;

/**
 * @brief One exchange on a connected socket: one send, one receive.
 * @param[in] fd  Connected stream socket; stays with the caller. A send to a closed peer raises no signal.
 * @retval 0                  A receive returned; none or some bytes are in @p response, zero-terminated.
 * @retval DCM_ERR_TRANSFER   The send or the receive failed, or the receive ran into the socket's time-out.
 * @retval DCM_ERR_BAD_INPUT  A null argument.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SendAndReceiveWithSocketSession(int fd, uint32_t requestLength,
                                                                       const char *requestText,
                                                                       ResponseBuffer *response) CORVANE_NOEXCEPT;

/**
 * @brief Up to five exchanges on the same socket, until one succeeds.
 * @return 0, or the result of the last exchange.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SendAndReceiveRetryWithSocketSession(int fd, uint32_t requestLength,
                                                                            const char *requestText,
                                                                            ResponseBuffer *response) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
