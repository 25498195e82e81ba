#include "data_mgr/data_mgr_master/data_mgr_white_list.h"

#include <bounded/bounded.h>
#include <regex.h>

#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "infrastructure/common/corvane_log.h"

uint32_t (*g_dataMgrFetchBaseInfo)(DiskSnRef sn, DiskMgrObj *record) = FetchDiskBaseInfo;

extern "C" {

DiskAdmissionRow g_diskAdmissionTable[DISK_ADMISSION_ROWS] = {
    {DISK_TYPE_SSD_SATA, "^ATA$", "^((VSSD-)|(VLR)|(VL-SAS)).*"},
    {DISK_TYPE_SSD_NVME, "^VELMAR$|^0x1f7c$", ".*"},
    {DISK_TYPE_SSD_SAS, "^VELMAR$|^0x1f7c$|^ORSTAN$|^ORSYL$", ".*"},
    {DISK_TYPE_HDD_SAS, "^WD$|^Western Digital$|^SEAGATE$|^TOSHIBA$", ".*"},
};
NonWhiteListSnNode *g_nonWhiteListSnHead = nullptr;
uint32_t g_nonWhiteListSnCount = 0;

} // extern "C"

namespace {

/** A compiled extended regular expression. */
class Pattern {
public:
    explicit Pattern(const char *text) noexcept : compiled_(regcomp(&regex_, text, REG_EXTENDED | REG_NOSUB) == 0) {}
    ~Pattern()
    {
        if (compiled_) {
            regfree(&regex_);
        }
    }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;
    [[nodiscard]] bool Compiled() const noexcept { return compiled_; }
    [[nodiscard]] bool Matches(const char *text) const noexcept { return regexec(&regex_, text, 0, nullptr, 0) == 0; }

private:
    regex_t regex_{};
    bool compiled_;
};

} // namespace

extern "C" {

bool IsInWhiteList(DiskSnRef sn, void *buf, uint32_t infoType) noexcept
{
    const SnText snText(sn.buf);
    if (IsInNonWhiteListSn(snText.Get())) {
        return false;
    }
    DiskMgrObj record{};
    if (infoType == DISK_INFO_BASE) {
        if (memcpy_s(&record, sizeof(record), buf, sizeof(record)) != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "IsInWhiteList copy baseInfo error");
            return false;
        }
    } else {
        // Whatever came back is judged: after a failure an empty record, which no row admits.
        (void)g_dataMgrFetchBaseInfo(sn, &record);
    }
    const BoundedText<sizeof(record.vendor)> vendor(record.vendor);
    const BoundedText<sizeof(record.model)> model(record.model);
    const uint32_t ret = CheckInWhiteList(vendor.Get(), model.Get(), record.diskType);
    if (ret != 0) {
        ProcessNonWhitelist(snText.Get(), vendor.Get(), model.Get(), ret);
        return false;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Current sn (%s) in whitelist. vendor(%s), model(%s)", snText.Get(),
                vendor.Get(), model.Get());
    return true;
}

uint32_t CheckInWhiteList(const char *vendor, const char *model, uint32_t diskType) noexcept
{
    if (vendor == nullptr || model == nullptr) {
        return WHITE_LIST_NO_MATCH;
    }
    for (const DiskAdmissionRow &row : g_diskAdmissionTable) {
        // Both patterns before the type: a broken row is noticed whatever disk is asked about.
        const Pattern vendorPattern(row.vendor);
        if (!vendorPattern.Compiled()) {
            return WHITE_LIST_BAD_PATTERN;
        }
        const Pattern modelPattern(row.model);
        if (!modelPattern.Compiled()) {
            return WHITE_LIST_BAD_PATTERN;
        }
        if (diskType == row.diskType && vendorPattern.Matches(vendor) && modelPattern.Matches(model)) {
            return 0;
        }
    }
    return WHITE_LIST_NO_MATCH;
}

bool IsInNonWhiteListSn(const char *sn) noexcept
{
    for (const NonWhiteListSnNode *node = g_nonWhiteListSnHead; node != nullptr; node = node->next) {
        if (SnEqual(node->sn, sn)) {
            CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "Current sn (%s) in NonWhiteListSnNode", SnText(sn).Get());
            return true;
        }
    }
    return false;
}

uint32_t AddSnToNonWhiteList(const char *sn) noexcept
{
    if (g_nonWhiteListSnCount + 1 > NON_WHITE_LIST_MAX) {
        CORVANE_LOG(CORVANE_LOG_WARN, kDataMgrModule, "nonWhiteListSnNode cache is full");
        return WHITE_LIST_ERR_FAIL;
    }
    InfraPtr<NonWhiteListSnNode> node = InfraNew<NonWhiteListSnNode>();
    if (node == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "malloc nonWhiteListSnNode failed");
        return WHITE_LIST_ERR_FAIL;
    }
    if (sn == nullptr || strcpy_s(node->sn, NON_WHITE_LIST_SN_LIMIT, SnText(sn).Get()) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "copy nonWhiteListSnNode sn failed");
        return WHITE_LIST_ERR_FAIL;
    }
    node->next = g_nonWhiteListSnHead;
    g_nonWhiteListSnHead = node.release();
    g_nonWhiteListSnCount++;
    return 0;
}

void ProcessNonWhitelist(const char *sn, const char *vendor, const char *model, uint32_t result) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "Current sn (%s) not in whitelist. vendor(%s), model(%s)",
                SnText(sn).Get(), vendor != nullptr ? vendor : "", model != nullptr ? model : "");
    if (result != WHITE_LIST_NO_MATCH) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Check whiteList unknown error.");
        return;
    }
    if (AddSnToNonWhiteList(sn) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "AddSnToNonWhiteList fail");
    }
}

} // extern "C"
