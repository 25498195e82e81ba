/**
 * @file data_mgr_master_rpc.h
 * @brief One-way calls that tell the data agent about a disk.
 *
 * Owns the request counter and g_dataMgrRpcLock, which lets one request out at a time and is held over the exchange
 * on the socket. Any thread; callers may hold g_dataMgrLock, which comes first.
 */
#ifndef DATA_MGR_MASTER_RPC_H
#define DATA_MGR_MASTER_RPC_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Messages to the data agent: the index of both maps below. */
enum DataMgrRpcMsgType {
    DATA_MGR_RPC_DISK_INFO = 0,       /**< data: the DiskMgrObj */
    DATA_MGR_RPC_DISK_STATE = 1,      /**< data: address of a uint32_t, DISK_STATE_E */
    DATA_MGR_RPC_HANDLE_STRATEGY = 2, /**< data: the strategy's text */
    DATA_MGR_RPC_POWER_OFF = 3,       /**< data: not looked at */
    DATA_MGR_RPC_BUTT = 4,
};

#define DATA_MGR_RPC_ERR_FAIL 0xFFFFFFFFu /**< bad message type or argument, or no memory: nothing was sent */

/** Adds the members of one message to "params". @return 0 or DATA_MGR_RPC_ERR_FAIL */
typedef uint32_t (*DataMgrRpcParamFunc)(cJSON *params, void *data);

/** Method of each message type. */
extern CORVANE_API const char *g_rpcMethodNameMap[DATA_MGR_RPC_BUTT];
/** Builder of each message type's parameters; none is null. Called with g_dataMgrRpcLock held. */
extern CORVANE_API DataMgrRpcParamFunc g_paramConstructMethodMap[DATA_MGR_RPC_BUTT];
/** Spinlock of the adapter table, made by the first send. */
extern CORVANE_API void *g_dataMgrRpcLock;
/** Atomic of the adapter table, made by the first send: requests so far. */
extern void *g_dataMgrRpcIdAtomic;

/**
 * @brief Tell the data agent one thing about one disk, and wait for its answer, which is not looked at.
 * @param[in] msgType  enum DataMgrRpcMsgType.
 * @param[in] sn       Serial number: terminated, or at least 40 bytes long.
 * @param[in] data     What the type asks for; not kept.
 * @retval 0                      The agent answered.
 * @retval DATA_MGR_RPC_ERR_FAIL  Nothing was sent.
 * @return Else the transport's error number. Nothing is kept for a later try.
 * @note Takes g_dataMgrRpcLock over the exchange: others wait as long as the transport's time-outs.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrMasterSendRpcMsg2Agent(uint32_t msgType, DiskSnRef sn,
                                                                     void *data) CORVANE_NOEXCEPT;

/**
 * @brief Attach "params", with the serial number first, to a request.
 * @retval 0                      Attached; @p request owns it.
 * @retval DATA_MGR_RPC_ERR_FAIL  Bad message type, null pointer or no memory; @p request is as before.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrMasterAddParam(uint32_t msgType, DiskSnRef sn, void *data,
                                                             cJSON *request) CORVANE_NOEXCEPT;

/** @brief Builder of DATA_MGR_RPC_DISK_INFO. @return 0 or DATA_MGR_RPC_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t ConstructDiskInfoInnerParam(cJSON *params, void *data) CORVANE_NOEXCEPT;
/** @brief Builder of DATA_MGR_RPC_DISK_STATE. @return 0 or DATA_MGR_RPC_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t ConstructDiskStateParam(cJSON *params, void *data) CORVANE_NOEXCEPT;
/** @brief Builder of DATA_MGR_RPC_HANDLE_STRATEGY. @return 0 or DATA_MGR_RPC_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t ConstructDiskHandleStrategyParam(cJSON *params, void *data) CORVANE_NOEXCEPT;
/** @brief Builder of DATA_MGR_RPC_POWER_OFF, which has no members of its own. @return 0 */
CORVANE_NODISCARD CORVANE_API uint32_t ConstructDiskPowerOffParam(cJSON *params, void *data) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
