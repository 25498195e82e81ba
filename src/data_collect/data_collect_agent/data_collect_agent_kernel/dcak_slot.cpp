#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_slot.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <span>
#include <sys/mman.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_request.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr const char *kBoardCommand = "dmidecode -t 2 2>/dev/null | grep \"Product Name:\" | awk -F': ' '{print$2}'";
constexpr const char *kRootPortCommand = "lspci -PP -s %s 2>/dev/null | awk -F'/' '{print$1}'";
constexpr size_t kCommandSize = 512;
constexpr uint32_t kOutputSize = 512;

constexpr off_t kRegisterPage = 0x80000000;
constexpr size_t kRegisterPageSize = 4096;
constexpr size_t kConfigRegister = 0x10A; // three bytes, the lowest first

constexpr uint32_t kByteMask = 0xFF;
constexpr uint32_t kBusShift = 8;
constexpr uint32_t kDeviceShift = 3;
constexpr int kBdfFields = 3;

struct BdfSlot {
    uint32_t bdfNumber;
    uint32_t slot;
};
constexpr BdfSlot k4Slab[] = {{0x0050, 0}, {0x0040, 1}, {0x0090, 2}, {0x0058, 3}};
constexpr BdfSlot k25Slab[] = {
    {0x8038, 0},  {0x8030, 1},  {0x8028, 2},  {0x8020, 3},  {0x8018, 4},  {0x8010, 5},  {0x8000, 6},
    {0x0030, 7},  {0x0028, 8},  {0x0018, 9},  {0x0010, 10}, {0x0008, 11}, {0x8008, 12}, {0x0000, 13},
    {0x0038, 14}, {0x0050, 15}, {0x0020, 16}, {0x0040, 17}, {0x8058, 18}, {0x8050, 19}, {0x8048, 20},
    {0x0090, 21}, {0x0058, 22}, {0x8070, 23}, {0x8060, 24},
};
constexpr BdfSlot k21Slab[] = {
    {0x8098, 4},  {0x8090, 5},  {0x8080, 6},  {0x0030, 7},  {0x0028, 8},  {0x0018, 9},  {0x0010, 10},
    {0x0008, 11}, {0x8088, 12}, {0x0000, 13}, {0x0038, 14}, {0x0050, 15}, {0x0020, 16}, {0x0040, 17},
    {0x8058, 18}, {0x8050, 19}, {0x8048, 20}, {0x0090, 21}, {0x0058, 22}, {0x8070, 23}, {0x8060, 24},
};

/** @param table  The name of the table in the log. */
uint32_t LookUp(std::span<const BdfSlot> rows, const char *table, uint32_t bdfNumber, uint32_t *slotOut)
{
    for (const BdfSlot &row : rows) {
        if (row.bdfNumber == bdfNumber) {
            *slotOut = row.slot;
            DCAK_LOG_COURSE("Found slot id <%u> from %s-slab bdf-slot table.", row.slot, table);
            return DCAK_OK;
        }
    }
    DCAK_LOG_FAILURE("No matching slot id in %s-slab table from pcieBdf num: %u.", table, bdfNumber);
    return DCAK_FAIL;
}

/** The first line of a tool's output. Null if it printed none. */
MallocPtr<char> FirstLine(const char *output)
{
    std::array<char *, 1> lines{};
    (void)StrSplit(output, "\n", lines.size(), lines.data());
    return MallocPtr<char>(lines[0]);
}

/** The page of registers, mapped for a scope. */
class RegisterPage {
public:
    explicit RegisterPage(int fd) noexcept
        : page_(mmap(nullptr, kRegisterPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, kRegisterPage))
    {
    }
    ~RegisterPage()
    {
        if (IsMapped()) {
            (void)munmap(page_, kRegisterPageSize);
        }
    }
    RegisterPage(const RegisterPage &) = delete;
    RegisterPage &operator=(const RegisterPage &) = delete;
    [[nodiscard]] bool IsMapped() const noexcept { return page_ != MAP_FAILED; }
    /** A register must be read each time, and as one byte. */
    [[nodiscard]] uint32_t Byte(size_t offset) const noexcept
    {
        return static_cast<const volatile uint8_t *>(page_)[offset];
    }

private:
    void *page_;
};

int OpenMemory()
{
    std::array<char, PATH_MAX> path{};
    if (snprintf_s(path.data(), path.size(), path.size() - 1, "%s/dev/mem", g_osPaths.dev) < 0) {
        return -1;
    }
    return g_osCalls.open(path.data(), O_RDWR | O_SYNC | O_CLOEXEC);
}

/** A descriptor of 0 was the caller's standard input before it was closed there, and stays. */
void CloseMemory(int fd)
{
    if (fd != 0) {
        (void)g_osCalls.close(fd);
    }
}

CJsonPtr MakeSlot(const char *name, uint32_t slot)
{
    const size_t length = name != nullptr ? std::strlen(name) : 0;
    const MallocPtr<char> trimmed(name != nullptr ? static_cast<char *>(g_osCalls.malloc(length + 1)) : nullptr);
    if (trimmed == nullptr) {
        return nullptr;
    }
    std::memcpy(trimmed.get(), name, length + 1);
    EndTrim(trimmed.get(), static_cast<uint32_t>(length));
    CJsonPtr object(cJSON_CreateObject());
    const bool added = cJSON_AddStringToObject(object.get(), "device_name", trimmed.get()) != nullptr &&
                       cJSON_AddNumberToObject(object.get(), "slot_id", slot) != nullptr;
    return added ? std::move(object) : nullptr;
}

} // namespace

const char *const g_marloBaseBoardName[DCAK_MARLO_BOARDS] = {"QXR4BDMZ31", "QXR4BDMZ32"};

const MarloSlotMethod SlotMethodTable[DCAK_MARLO_CONFIGS] = {
    {0x000000, GetSlotFromMarloTable4Slab},  {0x120101, GetSlotFromMarloTable4Slab},
    {0x120201, GetSlotFromMarloTable4Slab},  {0x120300, GetSlotFromMarloTable4Slab},
    {0x120401, GetSlotFromMarloTable25Slab}, {0x120500, GetSlotFromMarloTable25Slab},
    {0x120600, GetSlotFromMarloTable4Slab},  {0x120701, GetSlotFromMarloTable4Slab},
    {0x120801, GetSlotFromMarloTable21Slab}, {0x120900, GetSlotFromMarloTable25Slab},
};

uint32_t g_dcakCheckPciAddress = 0;

void DcakGetDiskSlotId(cJSON *request, cJSON **resultOut) noexcept
{
    CJsonPtr slots(cJSON_CreateArray());
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, DcakRequestDevices(request))
    {
        const char *address = cJSON_GetStringValue(cJSON_GetObjectItem(device, "pci_address"));
        uint32_t slot = 0;
        if (GetSlotIdByPciAddr(address, &slot) != DCAK_OK) {
            DCAK_LOG_FAILURE("GetSlotIdByPciAddr ERR.");
            return;
        }
        CJsonPtr object = MakeSlot(cJSON_GetStringValue(cJSON_GetObjectItem(device, "device_name")), slot);
        if (object == nullptr || !cJSON_AddItemToArray(slots.get(), object.get())) {
            DCAK_LOG_FAILURE("no device_name, or no memory, for the slot of %s", address);
            return;
        }
        (void)object.release();
    }
    const int length = DcakMakeDisksResult(std::move(slots), resultOut);
    if (length < 0) {
        return;
    }
    DCAK_LOG_COURSE("DcakGetDiskSlotId exec over, devListLen is %d.", length);
}

uint32_t GetSlotIdByPciAddr(const char *pciAddress, uint32_t *slotOut) noexcept
{
    if (pciAddress == nullptr || slotOut == nullptr) {
        DCAK_LOG_FAILURE("param pciAddr or slotId is NULL.");
        return DCAK_FAIL;
    }
    if (DcakSwitchIsOn(&g_dcakCheckPciAddress) && CheckCmdStrIsSecure(pciAddress) != 1) {
        DCAK_LOG_FAILURE("cmd not secure, %s", pciAddress);
        return DCAK_FAIL;
    }
    if (CheckSystemBaseBoardValid() != DCAK_OK) {
        DCAK_LOG_FAILURE("System base board is not valid for disk slot query.");
        return DCAK_FAIL;
    }
    std::array<char, kCommandSize> command{};
    if (snprintf_s(command.data(), command.size(), command.size() - 1, kRootPortCommand, pciAddress) < 0) {
        DCAK_LOG_FAILURE("snprintf_s failed: %s, pciAddr:%s", kRootPortCommand, pciAddress);
        return DCAK_FAIL;
    }
    std::array<char, kOutputSize> output{};
    if (DcakExecCmd(command.data(), kOutputSize, output.data()) != DCAK_OK) {
        DCAK_LOG_FAILURE("exec cmd failed, cmd is: %s.", command.data());
        return DCAK_FAIL;
    }
    const MallocPtr<char> rootPort = FirstLine(output.data());
    if (rootPort == nullptr) {
        DCAK_LOG_FAILURE("bdf string is NULL.");
        return DCAK_FAIL;
    }
    uint32_t bdfNumber = 0;
    if (GetSlotBdfNum(rootPort.get(), &bdfNumber) != DCAK_OK) {
        DCAK_LOG_FAILURE("GetSlotIdByPciAddr failed in parsing into bdf num, bdfStr is %s.", rootPort.get());
        return DCAK_FAIL;
    }
    if (GetSlotFromMarloTable(bdfNumber, slotOut) != DCAK_OK) {
        DCAK_LOG_FAILURE("GetSlotIdByPciAddr failed in GetSlotFromMarloTable, pcieBdf is %u.", bdfNumber);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t CheckSystemBaseBoardValid(void) noexcept
{
    std::array<char, kOutputSize> output{};
    if (DcakExecCmd(kBoardCommand, kOutputSize, output.data()) != DCAK_OK) {
        DCAK_LOG_FAILURE("exec dmidecode cmd failed.");
        return DCAK_FAIL;
    }
    const MallocPtr<char> board = FirstLine(output.data());
    if (board == nullptr) {
        DCAK_LOG_FAILURE("base board name is NULL.");
        return DCAK_FAIL;
    }
    for (const char *known : g_marloBaseBoardName) {
        if (std::strcmp(board.get(), known) == 0) {
            DCAK_LOG_COURSE("system base board is valid for disk slot query.");
            return DCAK_OK;
        }
    }
    DCAK_LOG_FAILURE("system base board product name <%s> is not valid.", board.get());
    return DCAK_FAIL;
}

uint32_t GetMarloConfigType(uint32_t *configOut) noexcept
{
    if (configOut == nullptr) {
        return DCAK_FAIL;
    }
    const int fd = OpenMemory();
    if (fd < 0) {
        DCAK_LOG_FAILURE("open /dev/mem failed.");
        return DCAK_FAIL;
    }
    const RegisterPage page(fd);
    if (!page.IsMapped()) {
        DCAK_LOG_FAILURE("get mapBase failed, errno: %s.", ErrorText(errno).Get());
        CloseMemory(fd);
        return DCAK_FAIL;
    }
    const uint32_t regA = page.Byte(kConfigRegister);
    const uint32_t regB = page.Byte(kConfigRegister + 1);
    const uint32_t regC = page.Byte(kConfigRegister + 2);
    *configOut = regA | regB << 8 | regC << 16;
    DCAK_LOG_DETAIL("marlo configId is: %x, regA<%x>, regB<%x>, regC<%x>.", *configOut, regA, regB, regC);
    CloseMemory(fd);
    return DCAK_OK;
}

uint32_t GetSlotBdfNum(const char *bdfText, uint32_t *numberOut) noexcept
{
    uint32_t bus = 0;
    uint32_t device = 0;
    uint32_t function = 0;
    if (bdfText == nullptr || numberOut == nullptr ||
        sscanf_s(bdfText, "%x:%x.%x", &bus, &device, &function) != kBdfFields) {
        DCAK_LOG_FAILURE("Parse bdfStr into busNum, devNum, funcNum failed.");
        return DCAK_FAIL;
    }
    *numberOut = (bus & kByteMask) << kBusShift | (device & kByteMask) << kDeviceShift | (function & kByteMask);
    DCAK_LOG_COURSE("GetSlotBdfNum succeed in getting bdf num: %u.", *numberOut);
    return DCAK_OK;
}

uint32_t GetSlotFromMarloTable(uint32_t bdfNumber, uint32_t *slotOut) noexcept
{
    uint32_t configId = 0;
    if (slotOut == nullptr || GetMarloConfigType(&configId) != DCAK_OK) {
        DCAK_LOG_FAILURE("Get marlo config id failed.");
        return DCAK_FAIL;
    }
    for (const MarloSlotMethod &method : SlotMethodTable) {
        if (method.configId == configId) {
            return method.lookup(bdfNumber, slotOut);
        }
    }
    DCAK_LOG_FAILURE("No matching get slot id method from configId: %u.", configId);
    return DCAK_FAIL;
}

uint32_t GetSlotFromMarloTable4Slab(uint32_t bdfNumber, uint32_t *slotOut) noexcept
{
    return LookUp(k4Slab, "4", bdfNumber, slotOut);
}

uint32_t GetSlotFromMarloTable25Slab(uint32_t bdfNumber, uint32_t *slotOut) noexcept
{
    return LookUp(k25Slab, "25", bdfNumber, slotOut);
}

uint32_t GetSlotFromMarloTable21Slab(uint32_t bdfNumber, uint32_t *slotOut) noexcept
{
    return LookUp(k21Slab, "21", bdfNumber, slotOut);
}
