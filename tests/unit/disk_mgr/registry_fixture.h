/**
 * @file registry_fixture.h
 * @brief A registry in the temporary prefix, with the two accounts doubled, and every file call of it under control.
 */
#ifndef REGISTRY_FIXTURE_H
#define REGISTRY_FIXTURE_H

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "disk_mgr/disk_mgr.h"
#include "disk_mgr/disk_mgr_cjson_util.h"
#include "disk_mgr/disk_mgr_file.h"
#include "support/corvane_fixture.h"

/** Stands in front of the system calls: records them, and fails or ends the process at a chosen one. */
class FileCalls {
public:
    enum class Act { None, Fail, DieBefore, DieAfter, DieMidway };

    /** Takes the place of the calls in g_osCalls, which the fixture restores. */
    static void Install()
    {
        real_ = g_osCalls;
        g_osCalls.fopen = [](const char *path, const char *mode) {
            return Do<std::FILE *>("fopen", nullptr, [&] { return real_.fopen(path, mode); });
        };
        g_osCalls.fread = [](void *data, size_t size, size_t count, std::FILE *file) {
            return Do<size_t>("fread", 0, [&] { return real_.fread(data, size, count, file); });
        };
        g_osCalls.fwrite = [](const void *data, size_t size, size_t count, std::FILE *file) {
            return Do<size_t>(
                "fwrite", count / 2, [&] { return real_.fwrite(data, size, count, file); },
                [&] {
                    (void)real_.fwrite(data, size, count / 2, file);
                    (void)real_.fflush(file);
                });
        };
        g_osCalls.fflush = [](std::FILE *file) { return Do<int>("fflush", EOF, [&] { return real_.fflush(file); }); };
        g_osCalls.fclose = [](std::FILE *file) {
            // A failed close closes all the same.
            const int closed = Do<int>("fclose", -2, [&] { return real_.fclose(file); });
            return closed == -2 ? (real_.fclose(file), EOF) : closed;
        };
        g_osCalls.fseek = [](std::FILE *file, long offset, int whence) {
            return Do<int>("fseek", -1, [&] { return real_.fseek(file, offset, whence); });
        };
        g_osCalls.ftell = [](std::FILE *file) { return Do<long>("ftell", -1, [&] { return real_.ftell(file); }); };
        g_osCalls.remove = [](const char *path) { return Do<int>("remove", -1, [&] { return real_.remove(path); }); };
        g_osCalls.rename = [](const char *from, const char *to) {
            return Do<int>("rename", -1, [&] { return real_.rename(from, to); });
        };
        g_osCalls.access = [](const char *path, int mode) {
            return Do<int>("access", -1, [&] { return real_.access(path, mode); });
        };
        g_osCalls.chmod = [](const char *path, mode_t mode) {
            return Do<int>("chmod", -1, [&] { return real_.chmod(path, mode); });
        };
        g_osCalls.chown = [](const char *path, uid_t owner, gid_t group) {
            return Do<int>("chown", -1, [&] { return real_.chown(path, owner, group); });
        };
        g_osCalls.getpwnam_r = [](const char *name, struct passwd *entry, char *buffer, size_t size,
                                  struct passwd **result) {
            *result = nullptr;
            return Do<int>("getpwnam_r", EIO, [&] { return real_.getpwnam_r(name, entry, buffer, size, result); });
        };
        g_osCalls.getgrnam_r = [](const char *name, struct group *entry, char *buffer, size_t size,
                                  struct group **result) {
            *result = nullptr;
            return Do<int>("getgrnam_r", EIO, [&] { return real_.getgrnam_r(name, entry, buffer, size, result); });
        };
        Arm(Act::None, 0);
    }

    /** What happens at the call number @p at, counted from 0 from now on. */
    static void Arm(Act act, size_t at)
    {
        act_ = act;
        at_ = at;
        calls_.clear();
    }
    /** Names of the calls since Arm(). */
    static const std::vector<std::string> &Calls() { return calls_; }

private:
    static void Die() { (void)kill(getpid(), SIGKILL); }

    template <typename Result, typename Call>
    static Result Do(const char *name, Result failure, Call call)
    {
        return Do<Result>(name, failure, call, [] {});
    }
    template <typename Result, typename Call, typename Half>
    static Result Do(const char *name, Result failure, Call call, Half half)
    {
        const bool chosen = act_ != Act::None && calls_.size() == at_;
        calls_.emplace_back(name);
        if (!chosen) {
            return call();
        }
        if (act_ == Act::Fail) {
            errno = EIO;
            return failure;
        }
        if (act_ == Act::DieAfter) {
            (void)call();
        } else if (act_ == Act::DieMidway) {
            half();
        }
        Die();
        return failure;
    }

    static inline OsCalls real_{};
    static inline Act act_ = Act::None;
    static inline size_t at_ = 0;
    static inline std::vector<std::string> calls_;
};

/** Identifier, serial number and state of one registered disk. */
using Registered = std::tuple<uint32_t, std::string, uint32_t>;

class RegistryTest : public CorvaneTest {
protected:
    RegistryTest()
    {
        g_osCalls.getpwnam_r = [](const char *name, struct passwd *entry, char *, size_t, struct passwd **result) {
            *entry = {};
            entry->pw_uid = geteuid();
            *result = std::strcmp(name, "corvane_user") == 0 ? entry : nullptr;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *name, struct group *entry, char *, size_t, struct group **result) {
            *entry = {};
            entry->gr_gid = getegid();
            *result = std::strcmp(name, "corvane_group") == 0 ? entry : nullptr;
            return 0;
        };
        FileCalls::Install();
    }
    ~RegistryTest() override
    {
        Forget();
        allocationsLeft_ = -1;
    }

    std::string Path() const { return Prefix() + "/config/disk_mgr.config"; }
    std::string WalPath() const { return Path() + ".wal"; }

    /** The process's end: everything in memory is gone, the files stay. */
    static void Forget()
    {
        (void)DiskMgrDestroy();
        for (DiskMgrObj *&obj : g_diskMgrObj) {
            g_corvaneInfra.memFree(obj);
            obj = nullptr;
        }
        if (g_configFilePath != nullptr) {
            g_corvaneInfra.memFree(g_configFilePath);
            g_configFilePath = nullptr;
        }
    }
    void Start() const { ASSERT_EQ(DiskMgrInit(Path().c_str()), 0u); }
    void Restart() const
    {
        Forget();
        Start();
    }

    static DiskMgrObj Record(uint32_t id, const std::string &sn)
    {
        DiskMgrObj obj{};
        obj.diskId = id;
        obj.frameId = 3;
        obj.slotId = 7;
        obj.diskCapacity = 960197124096;
        obj.sectorSize = 512;
        (void)std::snprintf(obj.vendor, sizeof(obj.vendor), "ATA");
        (void)std::snprintf(obj.model, sizeof(obj.model), "Model \"X\" 960");
        (void)std::snprintf(obj.firmware, sizeof(obj.firmware), "FW01");
        (void)std::snprintf(obj.sn, sizeof(obj.sn), "%s", sn.c_str());
        (void)std::snprintf(obj.deviceName, sizeof(obj.deviceName), "sda");
        (void)std::snprintf(obj.pciAddr, sizeof(obj.pciAddr), "0000:3b:00.0");
        obj.diskType = DISK_TYPE_SSD_SATA;
        obj.mediaType = DISK_MEDIA_TYPE_TLC;
        return obj;
    }
    static uint32_t Add(uint32_t id, const std::string &sn)
    {
        DiskMgrObj obj = Record(id, sn);
        return DiskInfoUpdate(id, &obj);
    }
    static uint32_t TakeOffline(uint32_t id, const std::string &sn)
    {
        DiskMgrObj obj = Record(id, sn);
        obj.diskState = DISK_STATE_OFFLINE;
        return DiskInfoUpdate(id, &obj);
    }
    static uint64_t Count() { return g_corvaneInfra.atomicGet(g_diskNumAtomic); }

    static std::vector<Registered> Table()
    {
        std::vector<Registered> disks;
        for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
            if (g_diskMgrObj[id] != nullptr) {
                disks.emplace_back(id, g_diskMgrObj[id]->sn, g_diskMgrObj[id]->diskState);
            }
        }
        return disks;
    }

    /** From now on the table's memory ends after @p count allocations; -1: never. */
    static void LimitAllocations(int count)
    {
        if (g_corvaneInfra.memAlloc != LimitedAlloc) {
            realAlloc_ = g_corvaneInfra.memAlloc;
            g_corvaneInfra.memAlloc = LimitedAlloc;
        }
        allocationsLeft_ = count;
    }

private:
    static void *LimitedAlloc(uint64_t size)
    {
        if (allocationsLeft_ == 0) {
            return nullptr;
        }
        if (allocationsLeft_ > 0) {
            allocationsLeft_--;
        }
        return realAlloc_(size);
    }
    static inline void *(*realAlloc_)(uint64_t size) = nullptr;
    static inline int allocationsLeft_ = -1;
};

/** cJSON runs out of memory after a number of allocations, for a scope. */
class CJsonMemoryLimit {
public:
    explicit CJsonMemoryLimit(int count)
    {
        left_ = count;
        cJSON_Hooks hooks{[](size_t size) -> void * { return left_-- > 0 ? std::malloc(size) : nullptr; }, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~CJsonMemoryLimit() { cJSON_InitHooks(nullptr); }
    CJsonMemoryLimit(const CJsonMemoryLimit &) = delete;
    CJsonMemoryLimit &operator=(const CJsonMemoryLimit &) = delete;

private:
    static inline int left_ = 0;
};

#endif
