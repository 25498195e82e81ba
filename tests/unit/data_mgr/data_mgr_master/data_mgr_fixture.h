/**
 * @file data_mgr_fixture.h
 * @brief A registry and a store of their own for each test, with doubles for both agents and for the features.
 */
#ifndef DATA_MGR_FIXTURE_H
#define DATA_MGR_FIXTURE_H

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "data_mgr/data_mgr_master/data_mgr_white_list.h"
#include "disk_mgr/disk_mgr.h"
#include "support/corvane_fixture.h"

namespace data_mgr_test {

inline constexpr const char *kModule = "DATA_MGR_MASTER";

/** What the data agent was told. */
struct Message {
    uint32_t type;
    std::string sn;
    std::string text;    /**< of a strategy; "(null)" without one */
    uint32_t state = 0;  /**< of a state */
    DiskMgrObj record{}; /**< of a base record */
};

/** What the features were told. */
struct Event {
    uint32_t diskId;
    std::string sn;
    uint32_t type;
    bool operator==(const Event &) const = default;
};

inline std::string TextOf(const char *text)
{
    return {text, strnlen(text, DISK_SN_SIZE)};
}

/** State of the doubles; one test runs at a time. */
struct Doubles {
    std::mutex mutex; /**< the store serialises its calls, but tests look at the lists meanwhile */
    std::vector<Message> messages;
    std::map<uint32_t, uint32_t> sendRet; /**< by message type */
    std::vector<Event> events;
    uint32_t notifyRet = 0;
    std::map<std::string, DiskMgrObj> agentDisks;
    std::vector<std::string> fetches;
    uint32_t fetchRet = 123; /**< for a disk that is not in agentDisks */
    bool noMemory = false;
    void (*realFree)(void *) = nullptr;
    void *(*realAlloc)(uint64_t) = nullptr;
    std::vector<void *> freed;
};

inline Doubles *g_doubles = nullptr;

inline uint32_t FakeSend(uint32_t type, DiskSnRef sn, void *data)
{
    const std::lock_guard<std::mutex> guard(g_doubles->mutex);
    Message message{.type = type, .sn = TextOf(sn.buf), .text = ""};
    if (type == DATA_MGR_RPC_DISK_INFO) {
        message.record = *static_cast<DiskMgrObj *>(data);
    } else if (type == DATA_MGR_RPC_DISK_STATE) {
        message.state = *static_cast<uint32_t *>(data);
    } else if (type == DATA_MGR_RPC_HANDLE_STRATEGY) {
        message.text = data == nullptr ? "(null)" : static_cast<const char *>(data);
    }
    g_doubles->messages.push_back(message);
    const auto ret = g_doubles->sendRet.find(type);
    return ret == g_doubles->sendRet.end() ? 0 : ret->second;
}

inline uint32_t FakeFetch(DiskSnRef sn, DiskMgrObj *record)
{
    const std::lock_guard<std::mutex> guard(g_doubles->mutex);
    const std::string text = sn.buf == nullptr ? "" : TextOf(sn.buf);
    g_doubles->fetches.push_back(text);
    const auto found = g_doubles->agentDisks.find(text);
    if (found == g_doubles->agentDisks.end()) {
        return g_doubles->fetchRet;
    }
    *record = found->second;
    return 0;
}

inline uint32_t FakeNotify(uint32_t diskId, DiskSnRef sn, uint32_t eventType)
{
    const std::lock_guard<std::mutex> guard(g_doubles->mutex);
    g_doubles->events.push_back({diskId, TextOf(sn.buf), eventType});
    return g_doubles->notifyRet;
}

inline void *ScarceAlloc(uint64_t size)
{
    return g_doubles->noMemory ? nullptr : g_doubles->realAlloc(size);
}

/** For tests that ask whether something was freed. */
inline void RecordingFree(void *ptr)
{
    g_doubles->freed.push_back(ptr);
    g_doubles->realFree(ptr);
}

inline int FakePasswd(const char *, struct passwd *entry, char *, size_t, struct passwd **result)
{
    entry->pw_uid = 0;
    *result = entry;
    return 0;
}

inline int FakeGroup(const char *, struct group *entry, char *, size_t, struct group **result)
{
    entry->gr_gid = 0;
    *result = entry;
    return 0;
}

inline int FakeChown(const char *, uid_t, gid_t)
{
    return 0;
}

inline int FailRename(const char *, const char *)
{
    errno = EIO;
    return -1;
}

inline int FailChmod(const char *, mode_t)
{
    errno = EIO;
    return -1;
}

/** A serial number for a call; keeps the text in 40 zero-filled bytes. */
class Sn {
public:
    explicit Sn(const std::string &text, uint32_t len = DISK_SN_SIZE) : len_(len)
    {
        std::memcpy(text_, text.data(), std::min<size_t>(text.size(), sizeof(text_)));
    }
    operator DiskSnRef() { return {.len = len_, .buf = text_}; }

private:
    char text_[DISK_SN_SIZE] = {};
    uint32_t len_;
};

inline DiskMgrObj MakeRecord(const std::string &sn, uint32_t type = DISK_TYPE_SSD_NVME,
                             const std::string &vendor = "VELMAR", const std::string &model = "MODEL")
{
    DiskMgrObj record{};
    record.diskState = DISK_STATE_KEEP;
    record.diskCapacity = 1000;
    record.sectorSize = 512;
    record.diskType = type;
    std::memcpy(record.sn, sn.data(), std::min(sn.size(), sizeof(record.sn)));
    std::memcpy(record.vendor, vendor.data(), std::min(vendor.size(), sizeof(record.vendor)));
    std::memcpy(record.model, model.data(), std::min(model.size(), sizeof(record.model)));
    std::strcpy(record.deviceName, "nvme0n1");
    return record;
}

/** Registry initialised and empty, store not started. */
class DataMgrBareTest : public CorvaneTest {
protected:
    DataMgrBareTest()
    {
        g_doubles = &doubles_;
        doubles_.realAlloc = g_corvaneInfra.memAlloc;
        doubles_.realFree = g_corvaneInfra.memFree;
        g_corvaneInfra.memAlloc = ScarceAlloc;
        g_osCalls.getpwnam_r = FakePasswd;
        g_osCalls.getgrnam_r = FakeGroup;
        g_osCalls.chown = FakeChown;
        g_dataMgrSendRpc = FakeSend;
        g_dataMgrFetchBaseInfo = FakeFetch;
        EXPECT_EQ(DiskMgrInit(nullptr), 0u);
    }

    ~DataMgrBareTest() override
    {
        doubles_.noMemory = false;
        (void)DataMgrDestroy();
        for (DataMgrObj *&obj : g_diskDataMgr) {
            g_corvaneInfra.memFree(obj);
            obj = nullptr;
        }
        (void)DiskMgrDestroy();
        for (DiskMgrObj *&record : g_diskMgrObj) { // the upper half stays by design
            g_corvaneInfra.memFree(record);
            record = nullptr;
        }
        while (g_nonWhiteListSnHead != nullptr) {
            NonWhiteListSnNode *node = g_nonWhiteListSnHead;
            g_nonWhiteListSnHead = node->next;
            g_corvaneInfra.memFree(node);
        }
        g_nonWhiteListSnCount = 0;
        if (g_dataMgrLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_dataMgrLock);
            g_dataMgrLock = nullptr;
        }
        g_drmDiskEventNotifyFunc = nullptr;
        g_ioStatFreshTime = 0;
        g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
        g_dataMgrFetchBaseInfo = savedFetch_;
        g_doubles = nullptr;
    }

    static bool LoggedText(const std::string &text) { return TextCount(text) > 0; }
    static size_t TextCount(const std::string &text)
    {
        size_t count = 0;
        for (const LogLine &line : Logs()) {
            count += line.module == kModule && line.text == text ? 1 : 0;
        }
        return count;
    }
    std::vector<uint32_t> MessageTypes() const
    {
        std::vector<uint32_t> types;
        for (const Message &message : doubles_.messages) {
            types.push_back(message.type);
        }
        return types;
    }
    void ForgetCalls()
    {
        doubles_.messages.clear();
        doubles_.events.clear();
        doubles_.fetches.clear();
        ClearLogs();
    }
    /** Register a disk without the store's knowledge. */
    static void Register(const std::string &sn, uint32_t diskId)
    {
        DiskMgrObj record = MakeRecord(sn);
        ASSERT_EQ(DiskInfoUpdate(diskId, &record), 0u);
    }
    /** The agent reports the disk and the refresh finds it. */
    void Offer(const DiskMgrObj &record) { doubles_.agentDisks[TextOf(record.sn)] = record; }
    static uint32_t Refresh(const std::vector<std::string> &sns)
    {
        std::vector<Sn> texts;
        for (const std::string &sn : sns) {
            texts.emplace_back(sn);
        }
        std::vector<DiskSnRef> list(texts.begin(), texts.end());
        return DiskSerialNumberRefresh(list.data(), static_cast<uint32_t>(list.size()));
    }
    static uint32_t IdOf(const std::string &sn)
    {
        uint32_t id = 0xFFFFFFFFu;
        return GetDiskIdBySn(Sn(sn), &id) == 0 ? id : 0xFFFFFFFFu;
    }
    std::string RegistryFile() const { return ReadFile(Prefix() + "/config/disk_mgr.config"); }

    Doubles doubles_;

private:
    uint32_t (*savedFetch_)(DiskSnRef, DiskMgrObj *) = g_dataMgrFetchBaseInfo;
};

/** Store started, with the disk "SN-1" at identifier 0 and the features' callback installed. */
class DataMgrTest : public DataMgrBareTest {
protected:
    DataMgrTest()
    {
        (void)DataMgrSetDrmNotifyFunc(FakeNotify);
        EXPECT_EQ(DataMgrInit(), 0u);
        Offer(MakeRecord("SN-1"));
        EXPECT_EQ(Refresh({"SN-1"}), 0u);
        EXPECT_NE(g_diskDataMgr[0], nullptr);
        ForgetCalls();
    }
    Sn sn_{"SN-1"};
};

} // namespace data_mgr_test

#endif
