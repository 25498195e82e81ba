#include "cli/cmd/SlowDiskCmd.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <iomanip>

#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

constexpr unsigned int kTableDisksMax = DISK_ONLINE_MAX;
constexpr uint32_t kSnSize = DISK_SN_SIZE + 1;
constexpr int kRuleLength = 63;

/** Serial numbers of a list of disks. */
class SerialNumbers {
public:
    explicit SerialNumbers(unsigned int count)
        : m_texts(static_cast<char *>(g_osCalls.malloc(size_t{count} * kSnSize))),
          m_refs(static_cast<DiskSnRef *>(g_osCalls.malloc(size_t{count} * sizeof(DiskSnRef))))
    {
        if (!Valid()) {
            return;
        }
        std::memset(m_texts.get(), 0, size_t{count} * kSnSize);
        for (unsigned int i = 0; i < count; i++) {
            m_refs.get()[i] = {kSnSize, m_texts.get() + size_t{i} * kSnSize};
        }
    }

    [[nodiscard]] bool Valid() const { return m_texts != nullptr && m_refs != nullptr; }
    [[nodiscard]] DiskSnRef *Refs() const { return m_refs.get(); }
    [[nodiscard]] std::string Text(unsigned int i) const
    {
        return BoundedText<kSnSize>(m_texts.get() + size_t{i} * kSnSize).Get();
    }

private:
    MallocPtr<char> m_texts;
    MallocPtr<DiskSnRef> m_refs;
};

/** Lists the online disks. @return false if that failed, or gave more than fit. */
bool ListDisks(const char *caller, unsigned int *ids, const SerialNumbers &serialNumbers, unsigned int max,
               unsigned int &count)
{
    count = 0; // a disabled data manager writes nothing
    std::memset(ids, 0, max * sizeof(*ids));
    const uint32_t result = ListAllOnlineDisk(ids, serialNumbers.Refs(), max, &count);
    if (result != 0 || count > max) {
        CLI_LOG_INFO_FROM(caller, "get online disk failed ret:%u, num:%u", result, count);
        return false;
    }
    CLI_LOG_INFO_FROM(caller, "get online disk num %u", count);
    return true;
}

} // namespace

SlowDiskCmd::SlowDiskCmd() : m_snWidth(42), m_slotWidth(6), m_stateWidth(10), m_idWidth(8) {}

int SlowDiskCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    const std::string action = GetAction();
    if (action == "show") {
        return ShowCmd(output);
    }
    if (action == "change") {
        CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR not support change.");
        return CLI_COMMAND_FORMAT_ERROR;
    }
    CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR 0x%x.", static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR));
    return CLI_COMMAND_FORMAT_ERROR;
}

int SlowDiskCmd::ShowCmd(std::string &out)
{
    const std::string name = GetData().name;
    if (name == "summary") {
        return ShowSummaryCmd(out);
    }
    if (name == "slowdisk") {
        return ShowSlowDiskCmd(out);
    }
    CLI_LOG_INFO("error cmd name: %s", name.c_str());
    return CLI_COMMAND_FORMAT_ERROR;
}

int SlowDiskCmd::GetAllOnlineDisk(unsigned int *ids, unsigned int max, unsigned int &count)
{
    if (ids == nullptr || max == 0) {
        CLI_LOG_ERROR("input error");
        return CLI_FAIL;
    }
    const SerialNumbers serialNumbers(max);
    if (!serialNumbers.Valid()) {
        CLI_LOG_ERROR("malloc failed");
        return CLI_FAIL;
    }
    return ListDisks(__func__, ids, serialNumbers, max, count) ? CLI_OK : CLI_FAIL;
}

int SlowDiskCmd::ShowSlowDiskCmd(std::string &out)
{
    std::array<unsigned int, kTableDisksMax> ids{};
    unsigned int count = 0;
    if (GetAllOnlineDisk(ids.data(), kTableDisksMax, count) != CLI_OK) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    std::stringstream text;
    PrintHeader(text);
    int result = CLI_OK;
    for (unsigned int i = 0; i < count; i++) {
        DiskMgrObj disk = {};
        if (DiskBaseInfoCliGet(ids[i], &disk, sizeof(disk)) != 0) {
            CLI_LOG_ERROR("get diskInfo failed: %u", ids[i]);
            result = CLI_COMMAND_EXEC_FAILED;
            break;
        }
        if (IsSlowDisk(disk)) {
            PrintDiskInfo(disk, text);
        }
    }
    // What was gathered is handed out with the error as well.
    PrintEnd(text);
    out = text.str();
    CLI_LOG_INFO("show result: %s", result == CLI_OK ? "successfully" : "failed");
    return result;
}

int SlowDiskCmd::ShowSummaryCmd(std::string &out)
{
    std::array<unsigned int, kTableDisksMax> ids{};
    const SerialNumbers serialNumbers(kTableDisksMax);
    if (!serialNumbers.Valid()) {
        CLI_LOG_ERROR("malloc failed");
        return CLI_COMMAND_EXEC_FAILED;
    }
    unsigned int count = 0;
    if (!ListDisks(__func__, ids.data(), serialNumbers, kTableDisksMax, count)) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    std::stringstream text;
    PrintSummaryHeader(text);
    for (unsigned int i = 0; i < count; i++) {
        PrintSummaryDiskInfo(ids[i], serialNumbers.Text(i), text);
    }
    PrintEnd(text);
    out = text.str();
    return CLI_OK;
}

bool SlowDiskCmd::IsSlowDisk(DiskMgrObj &disk)
{
    return disk.diskState == DISK_STATE_SLOW;
}

void SlowDiskCmd::PrintHeader(std::stringstream &out)
{
    out << "SlowDiskInfo:\n"
        << std::left << std::setw(m_snWidth) << "Sn" << std::setw(m_slotWidth) << "Slot" << std::setw(m_stateWidth)
        << "State"
        << "\n";
    PrintEnd(out);
}

void SlowDiskCmd::PrintDiskInfo(DiskMgrObj &disk, std::stringstream &out)
{
    const std::string slot = disk.slotId == UINT32_MAX ? "NA" : std::to_string(disk.slotId);
    out << std::left << std::setw(m_snWidth) << BoundedText<sizeof(disk.sn)>(disk.sn).Get() << std::setw(m_slotWidth)
        << slot << std::setw(m_stateWidth) << "Slow"
        << "\n";
}

void SlowDiskCmd::PrintSummaryHeader(std::stringstream &out)
{
    out << "SummaryInfo:\n"
        << std::left << std::setw(m_idWidth) << "DiskId" << std::setw(m_snWidth) << "DiskSn"
        << "\n";
    PrintEnd(out);
}

void SlowDiskCmd::PrintSummaryDiskInfo(unsigned int diskId, const std::string &sn, std::stringstream &out)
{
    out << std::left << std::setw(m_idWidth) << diskId << std::setw(m_snWidth) << sn << "\n";
}

void SlowDiskCmd::PrintEnd(std::stringstream &out)
{
    out << std::string(kRuleLength, '-') << "\n";
}

} // namespace CORVANE_CLI
