/**
 * @file dcm_hot_plug.h
 * @brief Hands NVMe disks that are plugged in to the agent that is to serve them, once the kernel's driver has them.
 *
 * Owns the two flags, which g_HotPlugLock guards, and the listener thread with its socket for the kernel's events. The
 * listener is started and stopped by the start-up and the switch command; a stopped one keeps reading and acts on
 * nothing. Each disk is waited for by a task of its own. No other
 * lock of the library is taken and no I/O done under g_HotPlugLock; a thread is created under it.
 */
#ifndef DCM_HOT_PLUG_H
#define DCM_HOT_PLUG_H

#include <linux/netlink.h>
#include <stdbool.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** What is taken from an event: the index of g_eventPrefix. */
enum DcmHotPlugField {
    HOT_PLUG_ACTION = 0,
    HOT_PLUG_DEVPATH = 1,
    HOT_PLUG_SUBSYSTEM = 2,
    HOT_PLUG_FIELD_BUTT = 3,
};

#define HOT_PLUG_PCI_ADDR_SIZE 256u

/** A field of an event, as "prefix" and value. 16 bytes. */
typedef struct DcmEventPrefix {
    const char *prefix;
    uint32_t length; /**< of the prefix */
} DcmEventPrefix;

/** What the task of a disk works on. 264 bytes. */
typedef struct DcmNvmeDiskOnContext {
    char pciAddr[HOT_PLUG_PCI_ADDR_SIZE];
    AgentInfo *agent; /**< the task's own copy, or the caller's */
} DcmNvmeDiskOnContext;

/** 1: events are dropped. Written with g_HotPlugLock held, read by the listener without it as an atomic. */
extern CORVANE_API uint8_t g_isShutDown;
/** 1: there is a listener thread. Guarded by g_HotPlugLock. */
extern CORVANE_API uint8_t g_isThreadCreate;
/** Spinlock of the adapter table; null before InitHotPlugLock(). */
extern CORVANE_API void *g_HotPlugLock;
/** Row n is field n. */
extern CORVANE_API DcmEventPrefix g_eventPrefix[HOT_PLUG_FIELD_BUTT];

/** @brief Start-up step: make the lock. @retval DCM_ERR_ALREADY Made before. @retval DCM_ERR_NO_MEMORY Not made. */
CORVANE_NODISCARD CORVANE_API uint32_t InitHotPlugLock(void) CORVANE_NOEXCEPT;

/**
 * @brief Act on events from now on; the thread is made if there is none.
 * @param[in] agent  Whom to hand disks to. A thread that exists already stays with the agent it was made for.
 * @retval 0                 Listening.
 * @retval DCM_ERR_ALREADY   It was listening.
 * @retval DCM_ERR_NOT_INIT  No lock, no memory or no thread.
 * @note Takes g_HotPlugLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t StartHotPlugListener(AgentInfo agent) CORVANE_NOEXCEPT;
/** @brief Drop events from now on; what waits for its driver goes on. @return always 0. @note Takes g_HotPlugLock. */
CORVANE_API uint32_t StopHotPlugListener(AgentInfo agent) CORVANE_NOEXCEPT;
/** @brief Make the listener thread. @return 0 or DCM_ERR_NO_MEMORY. @note The caller holds g_HotPlugLock. */
CORVANE_NODISCARD CORVANE_API uint32_t CreateAndStartListenerThread(AgentInfo agent) CORVANE_NOEXCEPT;
/** @brief The listener thread. @param agent  AgentInfo in table memory, freed at the end. @return null */
CORVANE_API void *HotPlugSocketListerHandler(void *agent) CORVANE_NOEXCEPT;

/**
 * @brief Open a socket for the kernel's events.
 * @param[in] address  Where to bind it.
 * @return the descriptor, closed by the caller; -1 on failure.
 */
CORVANE_NODISCARD CORVANE_API int GetSysHotPlugEventSocketFd(struct sockaddr_nl *address) CORVANE_NOEXCEPT;

/**
 * @brief Act on one event: start a task for an NVMe disk that was added; ignore everything else.
 * @param[in] buffer  @p length bytes of texts, each with a terminator; the last one may lack it.
 */
CORVANE_API void HandleSysHotPlugEventMsg(AgentInfo *agent, char *buffer, uint32_t length) CORVANE_NOEXCEPT;

/** @return the first place of @p prefix that has at least one byte of the @p length behind it; null: none. */
CORVANE_NODISCARD CORVANE_API char *FindPrefixInBuffer(const char *prefix, char *buffer,
                                                       uint32_t length) CORVANE_NOEXCEPT;

/** @brief Whether the kernel's NVMe driver has the device. */
CORVANE_NODISCARD CORVANE_API bool IsDiskOnNvmeDriver(const char *pciAddress) CORVANE_NOEXCEPT;

/** @brief Ask the agent to take the disk over, and wait for its answer, which is not looked at. */
CORVANE_API void SendRebindPciAddrToAgent(AgentInfo *agent, const char *pciAddress) CORVANE_NOEXCEPT;

/** @brief Start the task that waits for a disk; refused while the one before for this disk lives. */
CORVANE_API void CreateTaskForNotifyAgentNvmeDiskOn(AgentInfo *agent, const char *pciAddress) CORVANE_NOEXCEPT;

/**
 * @brief The task: wait for the driver, for 600 times 100 seconds at most, then tell the agent.
 * @param[in] context  DcmNvmeDiskOnContext; stays with the caller.
 * @return null
 */
CORVANE_API void *NotifyAgentNvmeDiskOnTaskFunc(void *context) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DcmEventPrefix) == 16 && sizeof(DcmNvmeDiskOnContext) == 264);
static_assert(offsetof(DcmNvmeDiskOnContext, agent) == 256);
#endif

#endif
