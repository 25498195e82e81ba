/**
 * @file dcak_fixture.h
 * @brief Scripted surroundings of the kernel agent: shell commands with planned outputs, SG_IO with planned command
 *        blocks, and trees in place of sysfs, procfs and /dev. Anything unplanned fails the test.
 */
#ifndef DCAK_FIXTURE_H
#define DCAK_FIXTURE_H

#include <cerrno>
#include <cjson/cJSON.h>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <scsi/sg.h>
#include <unistd.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"
#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

using Bytes = std::vector<uint8_t>;

/** One expected SG_IO. */
struct PlannedCommand {
    Bytes cdb; ///< all bytes that are sent
    uint32_t dataLength;
    uint32_t senseLength;
    Bytes data; ///< what the disk returns
    std::function<void(sg_io_hdr_t &)> outcome = nullptr;
    int error = 0; ///< errno of a failing ioctl
};

inline const char *const kVersionCommand = "export LANG=en_US.UTF-8 && lsblk --version 2>/dev/null";
inline const char *const kListCommand = "lsblk -S -o NAME,SERIAL,TYPE,VENDOR,MODEL,WWN";
inline const char *const kFactsCommand = "lsblk -S -o NAME,SERIAL,WWN,REV,SIZE,LOG-SEC,VENDOR -b";

inline const Bytes kCdbPoh{0x4D, 0, 0x15, 0, 0, 0, 0, 0, 0xFC, 0};
inline const Bytes kCdbWear{0x4D, 0, 0x11, 0, 0, 0, 0, 0, 0xFC, 0};
inline Bytes CdbLogSense(uint8_t page)
{
    return {0x4D, 0, static_cast<uint8_t>(page | 0x40), 0, 0, 0, 0, 0x20, 0x80, 0, 0, 0, 0, 0, 0, 0};
}
inline const Bytes kCdbRequestSense{0x03, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
inline const Bytes kCdbInquiry{0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
inline const Bytes kCdbInquirySerial{0x12, 1, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
inline const Bytes kCdbThresholds{0x85, 0x08, 0x0E, 0, 0xD1, 0, 1, 0, 1, 0, 0x4F, 0, 0xC2, 0x00, 0xB0, 0};
inline const Bytes kCdbSmartData{0x85, 0x09, 0x0E, 0, 0xD0, 0, 1, 0, 1, 0, 0x4F, 0, 0xC2, 0xA0, 0xB0, 0};

/** The Background Scan page with these power-on minutes. */
inline Bytes MinutesPage(uint32_t minutes)
{
    return {0x15,
            0,
            0,
            0x14,
            0,
            0,
            3,
            0x10,
            static_cast<uint8_t>(minutes >> 24),
            static_cast<uint8_t>(minutes >> 16),
            static_cast<uint8_t>(minutes >> 8),
            static_cast<uint8_t>(minutes)};
}

/** The Solid State Media page of a disk with this much of its life used. */
inline Bytes WearPage(uint8_t percent)
{
    return {0x11, 0, 0, 8, 0, 1, 3, 4, 0, 0, 0, percent};
}

/** A page with these bytes at these places. */
inline Bytes PageWith(std::initializer_list<std::pair<size_t, uint8_t>> bytes, size_t size = 256)
{
    Bytes page(size, 0);
    for (const auto &[at, value] : bytes) {
        page[at] = value;
    }
    return page;
}

/** A kernel answer: something abnormal, with these codes. */
inline std::function<void(sg_io_hdr_t &)> Outcome(uint16_t host, uint16_t driver)
{
    return [host, driver](sg_io_hdr_t &hdr) {
        hdr.info = SG_INFO_CHECK;
        hdr.host_status = host;
        hdr.driver_status = driver;
    };
}

class DcakTest : public CorvaneTest {
protected:
    DcakTest()
    {
        root_ = Prefix();
        g_osPaths = {.sys = root_.c_str(), .proc = root_.c_str(), .dev = root_.c_str()};
        std::filesystem::create_directories(root_ + "/proc");
        std::filesystem::create_directories(root_ + "/dev");
        g_osCalls.popen = PlannedPopen;
        g_osCalls.pclose = std::fclose;
        g_osCalls.open = PlannedOpen;
        g_osCalls.ioctl = PlannedIoctl;
        outputs_.clear();
        ran_.clear();
        commands_.clear();
        opened_.clear();
        g_DCAK_SERVER = {};
        SetSwitches(0, 0);
    }
    ~DcakTest() override
    {
        EXPECT_TRUE(commands_.empty()) << commands_.size() << " planned commands were not sent";
        SetSwitches(0, 0);
    }

    static void SetSwitches(uint32_t debug, uint32_t linkError)
    {
        __atomic_store_n(&g_DCAK_DEBUG_SWITCH, debug, __ATOMIC_RELAXED);
        __atomic_store_n(&g_dcakLinkErr, linkError, __ATOMIC_RELAXED);
    }

    /** A disk in sysfs. */
    void AddDisk(const std::string &name, const std::string &vendor, int rotational, const std::string &model = "MODEL")
    {
        const std::string base = root_ + "/sys/block/" + name;
        std::filesystem::create_directories(base + "/queue");
        std::filesystem::create_directories(base + "/device");
        WriteFile(base + "/queue/rotational", std::to_string(rotational) + "\n");
        WriteFile(base + "/queue/nr_requests", "256\n");
        WriteFile(base + "/device/vendor", vendor + "\n");
        WriteFile(base + "/device/model", model + "\n");
        WriteFile(root_ + "/dev/" + name, "");
    }
    void AddSasSsd(const std::string &name) { AddDisk(name, "SEAGATE ", 0); }
    void AddVssd(const std::string &name) { AddDisk(name, "VELMAR  ", 0); }
    void AddSasHdd(const std::string &name) { AddDisk(name, "TOSHIBA ", 1); }
    void AddSataSsd(const std::string &name) { AddDisk(name, "ATA     ", 0); }
    void AddSataHdd(const std::string &name) { AddDisk(name, "ATA     ", 1); }

    static std::string AtaCommand(const std::string &name)
    {
        return "udevadm info --query=property --name=/dev/" + name +
               " 2>/dev/null | grep SERIAL_SHORT | awk -F'=' '{print$2}'";
    }
    static std::string SasCommand(const std::string &name)
    {
        return "udevadm info --query=property --name=/dev/" + name +
               " 2>/dev/null | grep SCSI_SERIAL | awk -F'=' '{print$2}'";
    }
    static void PlanTool(const std::string &command, const std::string &output) { outputs_[command] = output; }
    static void PlanVersion(const std::string &version)
    {
        PlanTool(kVersionCommand, "lsblk from util-linux " + version + "\n");
    }
    static size_t TimesRun(const std::string &command)
    {
        return static_cast<size_t>(std::count(ran_.begin(), ran_.end(), command));
    }
    static void PlanCommand(PlannedCommand command) { commands_.push_back(std::move(command)); }
    static void PlanLogPage(uint8_t page, Bytes data, std::function<void(sg_io_hdr_t &)> outcome = nullptr)
    {
        PlanCommand({CdbLogSense(page), 256, 96, std::move(data), std::move(outcome), 0});
    }
    static const std::vector<std::string> &Opened() { return opened_; }
    const std::string &Root() const { return root_; }

    static CJsonPtr Request(const std::string &devices)
    {
        return CJsonPtr(cJSON_Parse((R"({"params":{"devices":)" + devices + "}}").c_str()));
    }
    using Method = void (*)(cJSON *, cJSON **);
    /** What a handler answers, printed; "null" without a result. */
    static std::string Answer(Method method, const std::string &devices)
    {
        const CJsonPtr request = Request(devices);
        cJSON *result = nullptr;
        method(request.get(), &result);
        return Printed(result);
    }
    /** Prints and deletes. */
    static std::string Printed(cJSON *tree)
    {
        const CJsonPtr owner(tree);
        if (tree == nullptr) {
            return "null";
        }
        const CJsonText text(cJSON_PrintUnformatted(tree));
        return text.get();
    }

private:
    static std::FILE *PlannedPopen(const char *command, const char *mode)
    {
        EXPECT_STREQ(mode, "r");
        ran_.emplace_back(command);
        const auto found = outputs_.find(command);
        if (found == outputs_.end()) {
            ADD_FAILURE() << "unplanned tool: " << command;
            return nullptr;
        }
        std::FILE *file = std::tmpfile();
        (void)std::fwrite(found->second.data(), 1, found->second.size(), file);
        std::rewind(file);
        return file;
    }
    static int PlannedOpen(const char *path, int flags)
    {
        EXPECT_EQ(flags, O_RDWR | O_CLOEXEC) << "a tool of another request must not hold the disk open";
        opened_.emplace_back(path);
        return open(path, flags);
    }
    static int PlannedIoctl(int, unsigned long request, void *arg)
    {
        EXPECT_EQ(request, static_cast<unsigned long>(SG_IO));
        auto &hdr = *static_cast<sg_io_hdr_t *>(arg);
        const Bytes cdb(hdr.cmdp, hdr.cmdp + hdr.cmd_len);
        if (commands_.empty()) {
            ADD_FAILURE() << "unplanned command: " << ::testing::PrintToString(cdb);
            errno = EIO;
            return -1;
        }
        const PlannedCommand planned = commands_.front();
        commands_.pop_front();
        EXPECT_EQ(cdb, planned.cdb);
        EXPECT_EQ(hdr.dxfer_len, planned.dataLength);
        EXPECT_EQ(hdr.mx_sb_len, planned.senseLength);
        EXPECT_EQ(hdr.interface_id, 'S');
        EXPECT_EQ(hdr.dxfer_direction, SG_DXFER_FROM_DEV);
        EXPECT_EQ(hdr.timeout, 20000u);
        EXPECT_EQ(hdr.flags, 0u);
        EXPECT_NE(hdr.sbp, nullptr);
        const auto *data = static_cast<const uint8_t *>(hdr.dxferp);
        EXPECT_TRUE(std::all_of(data, data + hdr.dxfer_len, [](uint8_t byte) { return byte == 0; }))
            << "a command's buffer holds stray memory";
        if (planned.error != 0) {
            errno = planned.error;
            return -1;
        }
        std::copy_n(planned.data.data(), std::min<size_t>(planned.data.size(), hdr.dxfer_len),
                    static_cast<uint8_t *>(hdr.dxferp));
        if (planned.outcome != nullptr) {
            planned.outcome(hdr);
        }
        return 0;
    }

    std::string root_;
    static inline std::map<std::string, std::string> outputs_;
    static inline std::vector<std::string> ran_;
    static inline std::deque<PlannedCommand> commands_;
    static inline std::vector<std::string> opened_;
};

#endif
