#include "cli/cmd/QueryInfoCmd.h"

#include <array>
#include <cmath>
#include <iomanip>

#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_raii.h"

namespace CORVANE_CLI {

namespace {

constexpr int kDiskIdMax = 63;
constexpr int kBaseWidth = 16;
constexpr int kIoStatWidth = 14;
constexpr int kHealthWidth = 18;
constexpr uint32_t kHoursPerMonth = 720;
constexpr uint32_t kLifeMonthsMax = 60;

constexpr std::array<const char *, 5> kStateNames = {"Normal state", "Fault state", "Off-line state", "Prefail state",
                                                     "Slow state"};
constexpr std::array<const char *, 6> kTypeNames = {"NVME SSD", "SAS SSD",  "SATA SSD",
                                                    "SAS HDD",  "SATA HDD", "NL SAS HDD"};
constexpr std::array<const char *, 5> kCapacityUnits = {"B", "KB", "MB", "GB", "TB"};

struct ShowRow {
    const char *name;
    int (QueryInfoCmd::*show)(int diskId, std::string &out);
};

constexpr std::array<ShowRow, 4> kShows = {{
    {"disk_info", &QueryInfoCmd::ShowDiskBaseInfo},
    {"iostat_info", &QueryInfoCmd::ShowDiskIoStatInfo},
    {"smart_info", &QueryInfoCmd::ShowDiskHealthInfo},
    {"drm_info", &QueryInfoCmd::ShowDiskDrmInfo},
}};

template <typename Value>
void PrintLine(std::ostream &out, int width, const char *label, const Value &value)
{
    out << std::left << std::setw(width) << label << ": " << value << "\n";
}

/** MallocNew(); a failure is logged. */
template <typename Record>
MallocPtr<Record> NewRecord(const char *caller)
{
    MallocPtr<Record> record = MallocNew<Record>();
    if (record == nullptr) {
        CLI_LOG_ERROR_FROM(caller, "malloc failed 0x%x.", static_cast<unsigned int>(CLI_COMMAND_EXEC_FAILED));
    }
    return record;
}

/** "12.5" for 12 and 5 hundredths: the fraction is a plain number. */
std::string Percent(uint32_t whole, uint32_t fraction)
{
    return std::to_string(whole) + "." + std::to_string(fraction) + "%";
}

/** A number that is no enumerator must not become one: it counts as the one behind the last. */
DISK_STATE_E StateOf(const DiskMgrObj &disk)
{
    return disk.diskState < DISK_STATE_BUTT ? static_cast<DISK_STATE_E>(disk.diskState) : DISK_STATE_BUTT;
}

DISK_TYPE_E TypeOf(const DiskMgrObj &disk)
{
    return disk.diskType < DISK_TYPE_BUTT ? static_cast<DISK_TYPE_E>(disk.diskType) : DISK_TYPE_BUTT;
}

std::string SlotText(uint32_t slotId)
{
    return slotId == UINT32_MAX ? "NA" : std::to_string(slotId);
}

} // namespace

QueryInfoCmd::QueryInfoCmd() = default;

int QueryInfoCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    constexpr auto formatError = static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR);
    if (GetAction() != "show") {
        CLI_LOG_ERROR("only support 'show' command 0x%x.", formatError);
        return CLI_COMMAND_FORMAT_ERROR;
    }
    std::string &diskIdText = m_params["disk_id"];
    if (!IsStringFormatCorrect(diskIdText)) {
        CLI_LOG_ERROR("disk_id format is not correct 0x%x.", formatError);
        return CLI_COMMAND_FORMAT_ERROR;
    }
    const int diskId = std::stoi(diskIdText);
    if (diskId > kDiskIdMax) {
        CLI_LOG_ERROR("disk_id is not correct 0x%x.", formatError);
        return CLI_DB_ID_NOT_EXIST;
    }
    const ShowRow *row = nullptr;
    for (const ShowRow &candidate : kShows) {
        if (GetData().name == candidate.name) {
            row = &candidate;
        }
    }
    if (row == nullptr) {
        CLI_LOG_ERROR("queried info is not correct 0x%x.", formatError);
        return CLI_COMMAND_FORMAT_ERROR;
    }

    const int result = (this->*row->show)(diskId, output);
    m_params.clear();
    if (result == CLI_OK) {
        return CLI_OK;
    }
    if (result == static_cast<int>(DATA_MGR_ERR_NO_OBJECT)) {
        CLI_LOG_ERROR("CLI_DB_ID_NOT_EXIST 0x%x.", static_cast<unsigned int>(CLI_DB_ID_NOT_EXIST));
        return CLI_DB_ID_NOT_EXIST;
    }
    CLI_LOG_ERROR("CLI_COMMAND_EXEC_FAILED 0x%x.", static_cast<unsigned int>(CLI_COMMAND_EXEC_FAILED));
    return CLI_COMMAND_EXEC_FAILED;
}

int QueryInfoCmd::ShowDiskBaseInfo(int diskId, std::string &out)
{
    const MallocPtr<DiskMgrObj> disk = NewRecord<DiskMgrObj>(__func__);
    if (disk == nullptr) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    const uint32_t result = DiskBaseInfoCliGet(static_cast<uint32_t>(diskId), disk.get(), sizeof(*disk));
    if (result != 0) {
        return static_cast<int>(result);
    }
    std::stringstream text;
    PrintLine(text, kBaseWidth, "Diskid", disk->diskId);
    PrintLine(text, kBaseWidth, "DiskState", GetDiskState(StateOf(*disk)));
    PrintLine(text, kBaseWidth, "DiskCapacity", TransDiskCapacityUnit(disk->diskCapacity));
    PrintLine(text, kBaseWidth, "SectorSize", disk->sectorSize);
    PrintLine(text, kBaseWidth, "Vendor", BoundedText<sizeof(disk->vendor)>(disk->vendor).Get());
    PrintLine(text, kBaseWidth, "Model", BoundedText<sizeof(disk->model)>(disk->model).Get());
    PrintLine(text, kBaseWidth, "Firmware", BoundedText<sizeof(disk->firmware)>(disk->firmware).Get());
    PrintLine(text, kBaseWidth, "Sn", BoundedText<sizeof(disk->sn)>(disk->sn).Get());
    PrintLine(text, kBaseWidth, "DeviceName", BoundedText<sizeof(disk->deviceName)>(disk->deviceName).Get());
    PrintLine(text, kBaseWidth, "PciAddr", BoundedText<sizeof(disk->pciAddr)>(disk->pciAddr).Get());
    PrintLine(text, kBaseWidth, "IntfType", GetIntfType(TypeOf(*disk)));
    PrintLine(text, kBaseWidth, "SlotId", SlotText(disk->slotId));
    out = text.str();
    return CLI_OK;
}

int QueryInfoCmd::ShowDiskIoStatInfo(int diskId, std::string &out)
{
    const MallocPtr<DiskIoStatInfo> stat = NewRecord<DiskIoStatInfo>(__func__);
    if (stat == nullptr) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    const uint32_t result = DiskIoStatInfoCliGet(static_cast<uint32_t>(diskId), stat.get(), sizeof(*stat));
    if (result != 0) {
        return static_cast<int>(result);
    }
    std::stringstream text;
    PrintLine(text, kIoStatWidth, "ReadIops", stat->readIops);
    PrintLine(text, kIoStatWidth, "WriteIops", stat->writeIops);
    PrintLine(text, kIoStatWidth, "ReadIoBand", std::to_string(stat->readIoBand) + "kb/s");
    PrintLine(text, kIoStatWidth, "WriteIoBand", std::to_string(stat->writeIoBand) + "kb/s");
    PrintLine(text, kIoStatWidth, "ReadIoDelay", std::to_string(stat->readIoDelay) + "us");
    PrintLine(text, kIoStatWidth, "WriteIoDelay", std::to_string(stat->writeIoDelay) + "us");
    PrintLine(text, kIoStatWidth, "QueueDepth", stat->queueDepth);
    PrintLine(text, kIoStatWidth, "ioBusyNum", stat->ioBusyNum);
    PrintLine(text, kIoStatWidth, "svctm", stat->avgServeTime);
    PrintLine(text, kIoStatWidth, "utilization", Percent(stat->utilizationInt, stat->utilizationFrac));
    out = text.str();
    return CLI_OK;
}

int QueryInfoCmd::ShowDiskHealthInfo(int diskId, std::string &out)
{
    const MallocPtr<DiskHealthInfo> health = NewRecord<DiskHealthInfo>(__func__);
    if (health == nullptr) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    const uint32_t result = DiskSmartInfoCliGet(static_cast<uint32_t>(diskId), health.get(), sizeof(*health));
    if (result != 0) {
        return static_cast<int>(result);
    }
    std::stringstream text;
    PrintLine(text, kHealthWidth, "PowerOnlineTime", std::to_string(health->powerOnHours) + "h");
    PrintLine(text, kHealthWidth, "Degree of wear", Percent(health->wearInt, health->wearFrac));
    out = text.str();
    return CLI_OK;
}

int QueryInfoCmd::ShowDiskDrmInfo(int diskId, std::string &out)
{
    const MallocPtr<DiskMgrObj> disk = NewRecord<DiskMgrObj>(__func__);
    if (disk == nullptr) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    const uint32_t read = DiskBaseInfoCliGet(static_cast<uint32_t>(diskId), disk.get(), sizeof(*disk));
    if (read != 0) {
        return static_cast<int>(read);
    }
    std::stringstream text;
    const int result = DrmInfoHealthInfo(diskId, disk.get(), text);
    if (result != CLI_OK) {
        return result;
    }
    PrintLine(text, kHealthWidth, "DiskState", GetDiskState(StateOf(*disk)));
    const char *suggestion = DiskStrategyStrGet(static_cast<uint32_t>(diskId));
    PrintLine(text, kHealthWidth, "Suggestions", suggestion != nullptr ? suggestion : "");
    out = text.str();
    return CLI_OK;
}

int QueryInfoCmd::DrmInfoHealthInfo(int diskId, DiskMgrObj *base, std::stringstream &out)
{
    const MallocPtr<DiskDrmInfo> drm = NewRecord<DiskDrmInfo>(__func__);
    if (drm == nullptr) {
        return CLI_COMMAND_EXEC_FAILED;
    }
    const uint32_t result = DiskDrmInfoCliGet(static_cast<uint32_t>(diskId), drm.get(), sizeof(*drm));
    if (result != 0) {
        return static_cast<int>(result);
    }
    switch (base->diskType) {
    case DISK_TYPE_HDD_SAS:
    case DISK_TYPE_HDD_SATA:
    case DISK_TYPE_HDD_NL_SAS:
        PrintLine(out, kHealthWidth, "DiskHealthScore", "N/A");
        PrintLine(out, kHealthWidth, "DiskLife", "N/A");
        return CLI_OK;
    default:
        break;
    }
    if (drm->diskLife == DISK_LIFE_UNKNOWN) {
        PrintLine(out, kHealthWidth, "DiskHealthScore", "No predictions yet");
        PrintLine(out, kHealthWidth, "DiskLife", "No predictions yet");
        return CLI_OK;
    }
    PrintLine(out, kHealthWidth, "DiskHealthScore", drm->healthScore);
    DrmInfoDiskLifeGet(drm.get(), out);
    return CLI_OK;
}

void QueryInfoCmd::DrmInfoDiskLifeGet(DiskDrmInfo *drm, std::stringstream &out)
{
    const uint32_t months = drm->diskLife / kHoursPerMonth;
    std::string text = std::to_string(months);
    if (months < 1) {
        text = "<1";
    } else if (months > kLifeMonthsMax) {
        text = ">60";
    }
    PrintLine(out, kHealthWidth, "DiskLife", text);
}

std::string QueryInfoCmd::TransDiskCapacityUnit(unsigned long capacity)
{
    constexpr double step = 1024.0;
    auto value = static_cast<double>(capacity);
    size_t unit = 0;
    while (value >= step && unit < kCapacityUnits.size() - 1) {
        value /= step;
        unit++;
    }
    value = std::round(value * 10.0) / 10.0;
    std::stringstream text;
    text << std::fixed << std::setprecision(1) << value << kCapacityUnits[unit];
    return text.str();
}

std::string QueryInfoCmd::GetDiskState(DISK_STATE_E state)
{
    const auto index = static_cast<size_t>(state);
    return index < kStateNames.size() ? kStateNames[index] : "";
}

std::string QueryInfoCmd::GetIntfType(DISK_TYPE_E type)
{
    const auto index = static_cast<size_t>(type);
    return index < kTypeNames.size() ? kTypeNames[index] : "UNKONW DISK TYPE";
}

} // namespace CORVANE_CLI
