#include "ma/drm/feature/slow_disk_detecter/slow_disk_detector_debug.h"

#include <algorithm>
#include <array>
#include <bounded/bounded.h>
#include <charconv>
#include <span>
#include <string_view>

#include "data_mgr/disk_types.h"
#include "ma/drm/feature/drm_trace_point_list.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "platform/nordiagnose.h"

namespace {

constexpr const char *kCluster = "u_drm_slow_disk";
constexpr DrmDebugCmdInfo kHostCommand = {"u_drm_slow_disk", "diagnose function of slow disk detection",
                                          DrmDebugExecDiagCmd, DrmDebugCmdHelp};

constexpr int kArgCount = 3; // cluster, command, number
constexpr size_t kArgNumber = 2;

constexpr size_t kIdsPerLine = 16;
constexpr size_t kLineSize = 128; // ids are below 128, so 16 of them take half of it

constexpr uint32_t kSlotsPerBlock = 25;
constexpr size_t kLabelWidth = 10;
constexpr size_t kValueMax = 20; // digits of a u64
/** A label, the values, and the terminator. */
constexpr size_t kRowSize = kLabelWidth + kSlotsPerBlock * kValueMax + 1;

/** @return the number a command was given; DRM_INVALID, which no disk and no zone has, for anything else. */
uint32_t NumberOf(std::string_view text) noexcept
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : DRM_INVALID;
}

/** A text that is put together in a buffer of its own. */
template <size_t Size>
class Line {
public:
    /** @return whether it still fits. */
    template <typename... Args>
    [[nodiscard]] bool Append(const char *format, Args... args) noexcept
    {
        const int length = snprintf_s(text_.data() + used_, Size - used_, Size - used_ - 1, format, args...);
        if (length < 0) {
            return false;
        }
        used_ += static_cast<size_t>(length);
        return true;
    }
    void DropLast() noexcept { text_[--used_] = '\0'; }
    [[nodiscard]] const char *Get() const noexcept { return text_.data(); }

private:
    std::array<char, Size> text_{};
    size_t used_ = 0;
};

/** Prints the identifiers on one line. @return whether they fit. */
bool PrintIds(std::span<const uint32_t> ids) noexcept
{
    Line<kLineSize> line;
    for (const uint32_t id : ids) {
        if (!line.Append("%d,", static_cast<int>(id))) {
            return false;
        }
    }
    line.DropLast();
    (void)DBG_Print("%s\n", line.Get());
    return true;
}

/** Identifiers of a zone's members. */
struct ZoneIds {
    std::array<uint32_t, DISK_ID_MAX> ids{};
    size_t count = 0;
};

ZoneIds IdsOf(DrmSlowDiskZone *zone) noexcept
{
    ZoneIds result;
    const DrmSpinGuard guard(zone->lock);
    for (const DrmSlowDiskObj *member : DrmListView<DrmSlowDiskObj>(&zone->disks)) {
        if (result.count == result.ids.size()) {
            break;
        }
        result.ids[result.count++] = member->diskId;
    }
    return result;
}

uint32_t ShowDiskInZone(int argc, char **argv) noexcept
{
    if (argc < kArgCount) {
        (void)DBG_Print("lack param.\n");
        return DRM_OK;
    }
    const uint32_t diskType = NumberOf(argv[kArgNumber]);
    DrmSlowDiskZone *zone = DrmGetSlowDiskDetectZone(diskType);
    if (zone == nullptr) {
        (void)DBG_Print("invalid disk type: %u.\n", diskType);
        return DRM_OK;
    }
    const ZoneIds members = IdsOf(zone);
    std::span<const uint32_t> rest(members.ids.data(), members.count);
    while (!rest.empty()) {
        const size_t count = std::min(rest.size(), kIdsPerLine);
        if (!PrintIds(rest.first(count))) {
            (void)DBG_Print("inner error occur.\n");
            return DRM_OK;
        }
        rest = rest.subspan(count);
    }
    return DRM_OK;
}

/** A row of a block: what it shows of a slot. */
struct WindowRow {
    const char *label;
    uint64_t (*value)(const DrmDiskIostatWindow &window, uint32_t slot);
};

constexpr std::array<WindowRow, 8> kWindowRows{{
    {"index:", [](const DrmDiskIostatWindow &, uint32_t slot) -> uint64_t { return slot; }},
    {"isvalid:",
     [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t {
         return DrmSlowDiskBitAt(window.validBits, slot);
     }},
    {"isslow:",
     [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t {
         return DrmSlowDiskBitAt(window.slowBits, slot);
     }},
    {"svctm:", [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t { return window.samples[slot].svctm; }},
    {"iops:", [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t { return window.samples[slot].iops; }},
    {"bandwidth:",
     [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t { return window.samples[slot].bandwidth; }},
    {"util:", [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t { return window.samples[slot].util; }},
    {"busynum:",
     [](const DrmDiskIostatWindow &window, uint32_t slot) -> uint64_t { return window.samples[slot].busyNum; }},
}};

void PrintRow(const WindowRow &row, const DrmDiskIostatWindow &window, uint32_t firstSlot) noexcept
{
    Line<kRowSize> line;
    bool fits = line.Append("%10s", row.label);
    for (uint32_t slot = firstSlot; fits && slot < firstSlot + kSlotsPerBlock; slot++) {
        fits = line.Append("%10lu", row.value(window, slot));
    }
    (void)DBG_Print("%s\n", line.Get());
}

/** Copies a disk's window. @return whether it has one. */
bool CopyWindow(uint32_t diskId, DrmDiskIostatWindow *out) noexcept
{
    const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
    void *data = nullptr;
    if (getFeatureLocPrivateData(diskId, DRM_FEATURE_SLOW_DISK, &data) != DRM_OK || data == nullptr) {
        return false;
    }
    *out = *static_cast<const DrmDiskIostatWindow *>(data);
    return true;
}

uint32_t ShowDiskIostat(int argc, char **argv) noexcept
{
    if (argc < kArgCount) {
        (void)DBG_Print("lack param.\n");
        return DRM_OK;
    }
    const uint32_t diskId = NumberOf(argv[kArgNumber]);
    DrmDiskIostatWindow window{};
    if (!CopyWindow(diskId, &window)) {
        (void)DBG_Print("disk(%u) iostat not exist.\n", diskId);
        return DRM_OK;
    }
    for (uint32_t firstSlot = 0; firstSlot < SLOW_DISK_WINDOW_SIZE; firstSlot += kSlotsPerBlock) {
        for (const WindowRow &row : kWindowRows) {
            PrintRow(row, window, firstSlot);
        }
    }
    return DRM_OK;
}

std::array<DrmDiagCmd, 2> g_commands{{
    {"showdiskinzone", ShowDiskInZone, "u_drm_slow_disk showdisk disktype: show disk list in zone, disktype[0-3]\n"},
    {"showdiskiostat", ShowDiskIostat, "u_drm_slow_disk showdiskiostat diskid: show disk iostat\n"},
}};

bool Matches(const char *list, uint32_t diskId, bool emptyIsAll) noexcept
{
    const DrmTracePointMatch match = DrmTracePointLookUp(list, diskId);
    return match == DrmTracePointMatch::LISTED || (emptyIsAll && match == DrmTracePointMatch::EMPTY);
}

} // namespace

void DrmSlowDiskDetectDebugExitDiag() noexcept
{
    DrmDebugUnRegDiagCmdGroup(kCluster, g_commands.data());
    (void)DBG_UnRegCmd(kCluster);
}

extern "C" {

void DrmSlowDiskDetectDebugInitDiag(void) noexcept
{
    if (DrmDebugRegHostCmd(kHostCommand) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_SLOW_DISK: reg diag cmd fail.");
        return;
    }
    if (DrmDebugRegDiagCmdGroup(kCluster, g_commands.data(), g_commands.size()) != DRM_OK) {
        (void)DBG_UnRegCmd(kCluster); // it would answer nothing
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_SLOW_DISK: reg diag cmd fail.");
    }
}

void DrmSlowDiskDetectDebugRegTp(void) noexcept {}

void DrmSlowDiskDetectSkipUpdateDiskPerfTp(const char *list, uint32_t diskId, uint32_t *hit) noexcept
{
    if (Matches(list, diskId, false)) {
        *hit = 1;
    }
}

void DrmSlowDiskDetectCreateDiskObjFailTp(const char *list, uint32_t *hit, uint32_t diskId) noexcept
{
    if (Matches(list, diskId, true)) {
        *hit = 1;
    }
}

void DrmSlowDiskDetectGetIostatFailTp(const char *list, uint32_t *hit, uint32_t diskId, uint32_t *result) noexcept
{
    if (Matches(list, diskId, true)) {
        *hit = 1;
        *result = DRM_ERR_FAIL;
    }
}

} // extern "C"
