/**
 * @file host_fixture.h
 * @brief A host with a prefix of its own, that starts the library and gives it agents.
 */
#ifndef HOST_FIXTURE_H
#define HOST_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "abi.h"
#include "fake_agent.h"
#include "host_operations.h"

inline constexpr uint32_t kFail = 0xFFFFFFFFU;
inline constexpr uint32_t kById = 0xFFFFFFFFU;
inline constexpr const char *kKernelSocket = "/tmp/dcak.sock";
inline constexpr const char *kSpdkSocket = "/var/tmp/spdk.sock";

/** A disk as an agent tells of it. */
struct FakeDisk {
    std::string sn;
    std::string device;
    std::string type;
    std::string vendor;
    std::string model;
    std::string firmware = "FW1";
    std::string capacity = "480103981056";
    std::string sector = "512";
    std::string media = "TLC";
    std::string pci = "";
};

std::string BriefJson(const FakeDisk &disk);
std::string BaseJson(const FakeDisk &disk);
/** {"disks":[...]} of the named devices, in the order of the request; of all disks for a request without devices. */
std::string DisksJson(const std::vector<FakeDisk> &disks, const std::string &request,
                      const std::function<std::string(const FakeDisk &)> &one);
/** Names in the "devices" member of a request. */
std::vector<std::string> DevicesOf(const std::string &request);
/** Let an agent tell of these disks in lists and base information. */
void ServeDisks(FakeAgent &agent, const std::vector<FakeDisk> &disks);
/** An envelope around a result. */
std::string Envelope(const std::string &result);
/** The request without its number, which depends on what was sent before. */
std::string WithoutId(const std::string &request);

lib::DiskSnRef Sn(const char *text);
lib::DiskMgrObj Record(const std::string &sn, uint32_t type = 2);
lib::AgentInfo KernelAgent();
lib::AgentInfo SpdkAgent();
std::string ReadText(const std::string &path);
void WriteText(const std::string &path, const std::string &text);
/** What @p action writes to standard output. */
std::string CaptureStdout(const std::function<void()> &action);
/** Look until it is true. @return whether it became so within @p seconds. */
bool Eventually(const std::function<bool()> &condition, int seconds = 30);

class HostTest : public ::testing::Test {
protected:
    HostTest();

    /** Open the library with the test's prefix. */
    void Open();
    /** Start in mode 1 with collection switched off, so that the test asks for each step itself. */
    void StartQuiet();
    /** The two agents in the library's list, in the order of a start, and served by the test; no threads. */
    void AddAgents();
    /** Scan once, on this thread. */
    static void Scan() { lib::ScanAllAgentDeviceListScheduleTask(); }
    /** Query one message of these disks of an agent and store it. */
    static uint32_t Query(uint32_t message, const lib::AgentInfo &agent, const std::vector<FakeDisk> &disks);

    static lib::DiskMgrObj Base(uint32_t diskId);
    static bool Online(uint32_t diskId)
    {
        lib::DiskMgrObj record{};
        return lib::DiskBaseInfoCliGet(diskId, &record, sizeof(record)) == 0;
    }
    /** The object itself; only while no thread of the library is at work. */
    static lib::DataMgrObj &Object(uint32_t diskId)
    {
        return *lib::Global<lib::DataMgrObj *[128]>("g_diskDataMgr")[diskId];
    }
    std::string Registry() const { return ReadText(prefix_ + "/config/disk_mgr.config"); }
    std::string RegistryPath() const { return prefix_ + "/config/disk_mgr.config"; }
    /** While it stands no save of the registry succeeds. */
    void BlockSaves() const;
    void UnblockSaves() const;

    std::string prefix_ = "/tmp/prefix";
    std::string startOutput_;
    std::unique_ptr<FakeAgent> kernel_;
    std::unique_ptr<FakeAgent> spdk_;
    uint8_t cancelFlags_[2] = {0, 0};
};

#endif
