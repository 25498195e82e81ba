#include "disk_mgr/disk_mgr_cjson_util.h"

#include <climits>
#include <cstring>
#include <memory>

#include "bounded/bounded.h"
#include "infrastructure/common/accounts.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr const char *kModule = "DISK_MGR";
constexpr const char *kWalSuffix = ".wal";

/** Closes through the seam, so that tests see every file call. For the paths on which the result says nothing. */
struct SeamClose {
    void operator()(std::FILE *file) const noexcept { (void)g_osCalls.fclose(file); }
};
using SeamFilePtr = std::unique_ptr<std::FILE, SeamClose>;

/** Size of an open file, or a negative number. Leaves the position at the start. */
long MeasureFile(std::FILE *file) noexcept
{
    if (g_osCalls.fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const long size = g_osCalls.ftell(file);
    // Some file systems give a folder the largest offset there is as its end.
    if (size == LONG_MAX || g_osCalls.fseek(file, 0, SEEK_SET) != 0) {
        return -1;
    }
    return size;
}

} // namespace

char *GetWalFileName(const char *path) noexcept
{
    if (path == nullptr) {
        return nullptr;
    }
    const size_t size = std::strlen(path) + std::strlen(kWalSuffix) + 1;
    InfraPtr<char> name(static_cast<char *>(g_corvaneInfra.memAlloc(size)));
    if (name == nullptr || snprintf_s(name.get(), size, size - 1, "%s%s", path, kWalSuffix) < 0) {
        return nullptr;
    }
    return name.release();
}

int32_t SetFilePermission(const char *file, uint32_t mode, const char *user, const char *group) noexcept
{
    if (file == nullptr || g_osCalls.chmod(file, mode) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "chmod %s fail, mode = %d\n", TextOrNull(file), mode);
        return -1;
    }
    uid_t uid = 0;
    if (!FindUserId(user, uid)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "user:%s not exist\n", TextOrNull(user));
        return -1;
    }
    gid_t gid = 0;
    if (!FindGroupId(group, gid)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "group:%s not exist\n", TextOrNull(group));
        return -1;
    }
    if (g_osCalls.chown(file, uid, gid) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "chmown %s fail, %s:%s\n", file, user, group);
        return -1;
    }
    return 0;
}

uint32_t TrySaveCJsonToFile(const char *path, cJSON *json, uint32_t mode, const char *user, const char *group) noexcept
{
    if (json == nullptr) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "pCJson is null");
        return CJSON_FILE_ERR_FAIL;
    }
    const CJsonText text(cJSON_Print(json));
    if (text == nullptr) {
        return CJSON_FILE_ERR_FAIL;
    }
    SeamFilePtr file(path != nullptr ? g_osCalls.fopen(path, "w+") : nullptr);
    if (file == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "cant open config file, config file path = %s", TextOrNull(path));
        return CJSON_FILE_ERR_FAIL;
    }
    if (SetFilePermission(path, mode, user, group) != 0) {
        file.reset();
        (void)g_osCalls.remove(path);
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "config file permission set fail, file path = %s", path);
        return CJSON_FILE_ERR_FAIL;
    }
    const size_t length = std::strlen(text.get());
    if (g_osCalls.fwrite(text.get(), 1, length, file.get()) != length || g_osCalls.fflush(file.get()) != 0) {
        return CJSON_FILE_ERR_FAIL;
    }
    // Network file systems report a full disk here. The stream is gone either way.
    return g_osCalls.fclose(file.release()) == 0 ? 0 : CJSON_FILE_ERR_FAIL;
}

uint32_t SaveCJsonToFile(const char *path, cJSON *json, uint32_t mode, const char *user, const char *group) noexcept
{
    const InfraPtr<char> walName(GetWalFileName(path));
    if (walName == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "make tmp Config File Path error");
        return CJSON_FILE_ERR_FAIL;
    }
    if (TrySaveCJsonToFile(walName.get(), json, mode, user, group) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Save to  tmp Config error");
        return CJSON_FILE_ERR_FAIL;
    }
    if (g_osCalls.remove(path) != 0) {
        // At the first save there is nothing to remove.
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Remove old config fail");
    }
    if (g_osCalls.rename(walName.get(), path) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Rename new config fail");
        return CJSON_FILE_ERR_FAIL;
    }
    return 0;
}

cJSON *TryLoadCJsonFromFile(const char *path) noexcept
{
    const SeamFilePtr file(path != nullptr ? g_osCalls.fopen(path, "r") : nullptr);
    if (file == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "TryLoadCJsonFromFile %s fail, file not exist", TextOrNull(path));
        return nullptr;
    }
    const long measured = MeasureFile(file.get());
    if (measured < 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "TryLoadCJsonFromFile %s fail, seek fail", path);
        return nullptr;
    }
    const size_t size = static_cast<size_t>(measured);
    const InfraPtr<char> text(static_cast<char *>(g_corvaneInfra.memAlloc(size + 1)));
    if (text == nullptr) {
        return nullptr;
    }
    std::memset(text.get(), 0, size + 1);
    const size_t readSize = g_osCalls.fread(text.get(), 1, size, file.get());
    if (readSize != size) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "TryLoadCJsonFromFile %s fail, read size = %zu,filesize = %zu", path,
                    readSize, size);
        return nullptr;
    }
    return cJSON_Parse(text.get());
}

cJSON *LoadIfExisitAndVaild(const char *path) noexcept
{
    if (path == nullptr || g_osCalls.access(path, F_OK) != 0) {
        return nullptr;
    }
    return TryLoadCJsonFromFile(path);
}

cJSON *LoadCJsonFromFile(const char *path) noexcept
{
    const InfraPtr<char> walName(GetWalFileName(path));
    if (walName == nullptr) {
        return nullptr;
    }
    CJsonPtr tree(LoadIfExisitAndVaild(walName.get()));
    if (tree == nullptr) {
        return TryLoadCJsonFromFile(path);
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "Exisit wal file and read from = %s", walName.get());
    if (g_osCalls.rename(walName.get(), path) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Rename wal config File fail");
    }
    return tree.release();
}
