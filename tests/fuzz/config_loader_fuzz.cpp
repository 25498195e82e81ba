// The configuration's loader and its readers on any file. The first byte chooses what the rest is: the configuration,
// an upgrade file beside a good configuration, a write-ahead copy, or the newest backup.

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "config/corvane_config.h"
#include "config/corvane_config_bak.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"
#include "infrastructure/corvane_infra.h"

namespace {

constexpr const char *kGood = R"({"feature_switch":1,"sas_hdd":{"task_cycle":20},"list":[1,2]})";

void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

/** A prefix of this process, removed at its end. */
class Prefix {
public:
    Prefix()
    {
        char name[] = "/tmp/corvane-fuzz.XXXXXX";
        path_ = mkdtemp(name);
        std::filesystem::create_directory(path_ + "/config");
        std::filesystem::create_directory(path_ + "/userconfig_bak");
        (void)SetPrefixPath(path_.c_str());
        (void)CorvaneInfraRegisterInfraAdapter();
        g_corvaneInfra.log = DropLog;
        // The service's account need not exist where the fuzzer runs.
        g_osCalls.chown = [](const char *, uid_t, gid_t) { return 0; };
        g_osCalls.getpwnam_r = [](const char *, passwd *entry, char *, size_t, passwd **result) {
            *result = entry;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *, group *entry, char *, size_t, group **result) {
            *result = entry;
            return 0;
        };
    }
    ~Prefix()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Prefix(const Prefix &) = delete;
    Prefix &operator=(const Prefix &) = delete;

    [[nodiscard]] std::string File(const char *name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void Write(const std::string &path, const void *data, size_t size)
{
    std::FILE *file = std::fopen(path.c_str(), "w");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::abort();
    }
}

void RemoveAll(const Prefix &prefix)
{
    for (const char *folder : {"config", "userconfig_bak"}) {
        for (const auto &entry : std::filesystem::directory_iterator(prefix.File(folder))) {
            std::filesystem::remove(entry.path());
        }
    }
}

/** Whatever was loaded, the readers give a value or leave the variable, and a set keeps the file loadable. */
void UseSettings()
{
    uint32_t value = 0;
    (void)GetConfigSwitchVal("feature_switch", &value);
    (void)GetConfigInt("list", &value);
    for (const char *section : g_diskTypeConfigNames) {
        (void)GetChildNodeConfigInt(section, "task_cycle", &value);
    }
    if (SetConfigInt("feature_switch", 5) == 0 && (GetConfigInt("feature_switch", &value) != 0 || value != 5)) {
        std::abort();
    }
    (void)SetChildNodeConfigInt("sas_hdd", "task_cycle", -1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Prefix prefix;
    if (size == 0) {
        return 0;
    }
    const std::string config = prefix.File("config/corvane_config.json");
    const std::array<std::string, 4> targets{config, config + ".rpmnew", config + ".wal",
                                             prefix.File("userconfig_bak/corvane_config_bak__2026-01-01-00-00-00")};
    const size_t choice = data[0] % targets.size();
    RemoveAll(prefix);
    if (choice == 1) {
        Write(config, kGood, std::char_traits<char>::length(kGood));
    }
    Write(targets[choice], data + 1, size - 1);

    if (InitConfig() == 0) {
        UseSettings();
    }
    cJSON_Delete(g_configRoot);
    g_configRoot = nullptr;
    return 0;
}
