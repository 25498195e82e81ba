/**
 * @file dcak_slot.h
 * @brief Which slot of the chassis a user-space NVMe disk sits in, from its PCI address.
 *
 * The slot follows from the root port above the disk, by a table that a register of the board selects. That is known of
 * one family of boards; on any other the query is refused, and the disk keeps its unknown slot.
 *
 * Owns the tables. Nothing is kept between two calls; every function may be called from any thread and takes no lock.
 */
#ifndef DCAK_SLOT_H
#define DCAK_SLOT_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

#define DCAK_MARLO_BOARDS 2u
#define DCAK_MARLO_CONFIGS 10u

/** Looks a root port up in one table. @retval 0 @retval DCAK_FAIL Not in the table; @p slotOut is untouched. */
typedef uint32_t (*MarloSlotLookup)(uint32_t bdfNumber, uint32_t *slotOut);

/** Which table a board with this configuration has. */
typedef struct {
    uint32_t configId;
    MarloSlotLookup lookup;
} MarloSlotMethod;

/** Product names of the base boards whose slots are known. */
extern CORVANE_API const char *const g_marloBaseBoardName[DCAK_MARLO_BOARDS];
/** The known configurations of these boards. */
extern CORVANE_API const MarloSlotMethod SlotMethodTable[DCAK_MARLO_CONFIGS];
/**
 * 1: a PCI address must pass CheckCmdStrIsSecure() before it stands in a command; 0, the default: it is used as the
 * client sent it, and a client can run any command as the user of this agent. A host sets it before it starts the
 * server.
 */
extern CORVANE_API uint32_t g_dcakCheckPciAddress;

/**
 * @brief Answer the slots of `params.devices`, objects with `device_name` and `pci_address`.
 * @param[out] resultOut  `{"disks":[{"device_name":..., "slot_id":...}]}`, owned by the caller; untouched if the slot
 * of one disk is not found.
 */
CORVANE_API void DcakGetDiskSlotId(cJSON *request, cJSON **resultOut) CORVANE_NOEXCEPT;

/**
 * @brief Find the slot of one disk. Runs dmidecode and lspci and reads /dev/mem, so it needs the rights of root.
 * @param pciAddress    As lspci takes it, at most 453 characters; see ::g_dcakCheckPciAddress.
 * @param[out] slotOut  0 to 24; untouched on failure.
 * @retval 0
 * @retval DCAK_FAIL  Null argument, another board, or a root port that is in no table.
 */
CORVANE_API uint32_t GetSlotIdByPciAddr(const char *pciAddress, uint32_t *slotOut) CORVANE_NOEXCEPT;

/** @brief Compare the name of the base board with ::g_marloBaseBoardName. @retval 0 @retval DCAK_FAIL */
CORVANE_API uint32_t CheckSystemBaseBoardValid(void) CORVANE_NOEXCEPT;

/**
 * @brief Read which configuration the board is, three bytes of a register page at physical address 0x80000000.
 * @param[out] configOut  0 to 0xFFFFFF; untouched on failure.
 * @retval 0
 * @retval DCAK_FAIL  /dev/mem cannot be opened or mapped.
 */
CORVANE_API uint32_t GetMarloConfigType(uint32_t *configOut) CORVANE_NOEXCEPT;

/**
 * @brief Turn "bus:device.function", hexadecimal, into bus << 8 | device << 3 | function, each cut to 8 bits.
 * @param[out] numberOut  Untouched on failure.
 * @retval 0
 * @retval DCAK_FAIL  Null argument, or not three fields; a text with a domain in front is none.
 */
CORVANE_API uint32_t GetSlotBdfNum(const char *bdfText, uint32_t *numberOut) CORVANE_NOEXCEPT;

/** @brief Look a root port up in the table of this board's configuration. @retval 0 @retval DCAK_FAIL */
CORVANE_API uint32_t GetSlotFromMarloTable(uint32_t bdfNumber, uint32_t *slotOut) CORVANE_NOEXCEPT;

/** @brief Look a root port up: slots 0 to 3. @retval 0 @retval DCAK_FAIL */
CORVANE_API uint32_t GetSlotFromMarloTable4Slab(uint32_t bdfNumber, uint32_t *slotOut) CORVANE_NOEXCEPT;
/** @brief Look a root port up: slots 0 to 24. @retval 0 @retval DCAK_FAIL */
CORVANE_API uint32_t GetSlotFromMarloTable25Slab(uint32_t bdfNumber, uint32_t *slotOut) CORVANE_NOEXCEPT;
/** @brief Look a root port up: slots 4 to 24. @retval 0 @retval DCAK_FAIL */
CORVANE_API uint32_t GetSlotFromMarloTable21Slab(uint32_t bdfNumber, uint32_t *slotOut) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
