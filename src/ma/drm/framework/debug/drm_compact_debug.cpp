#include "ma/drm/framework/debug/drm_compact_debug.h"

#include <array>
#include <cstring>

#include "infrastructure/common/bounded_text.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/utils/drm_lock.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "platform/nordiagnose.h"

namespace {

constexpr int kHostCmdFailed = -1;

DrmSpinlock g_clusterLock = DRM_SPINLOCK_FREE;
std::array<DrmDiagCmdCluster, DRM_DIAG_CLUSTER_NUM> g_clusters CORVANE_GUARDED_BY(g_clusterLock){};

/** As much of a cluster's name as counts, terminated. */
using ClusterName = BoundedText<DRM_DIAG_CLUSTER_NAME_SIZE>;

bool IsEmpty(const char *name)
{
    return name == nullptr || name[0] == '\0';
}

/** A free row has no name, so that an empty name must not be compared. */
DrmDiagCmdCluster *FindClusterLocked(const char *name) CORVANE_REQUIRES(g_clusterLock)
{
    if (IsEmpty(name)) {
        return nullptr;
    }
    for (DrmDiagCmdCluster &cluster : g_clusters) {
        if (std::strncmp(cluster.name, name, sizeof(cluster.name)) == 0) {
            return &cluster;
        }
    }
    return nullptr;
}

DrmDiagCmdCluster *InsertClusterLocked(const char *name) CORVANE_REQUIRES(g_clusterLock)
{
    if (IsEmpty(name)) {
        return nullptr;
    }
    for (DrmDiagCmdCluster &cluster : g_clusters) {
        if (cluster.name[0] == '\0') {
            std::memcpy(cluster.name, ClusterName(name).Get(), sizeof(cluster.name));
            return &cluster;
        }
    }
    return nullptr;
}

bool AddGroup(DrmDiagCmdCluster *cluster, const DrmDiagCmdGroup &added)
{
    for (DrmDiagCmdGroup &group : cluster->groups) {
        if (group.cmds == nullptr) {
            group = added;
            return true;
        }
    }
    return false;
}

/** @return whether the cluster had them. */
bool RemoveGroups(DrmDiagCmdCluster *cluster, const DrmDiagCmd *cmds)
{
    bool removed = false;
    bool left = false;
    for (DrmDiagCmdGroup &group : cluster->groups) {
        if (group.cmds == cmds) {
            group = {};
            removed = true;
        }
        left = left || group.cmds != nullptr;
    }
    if (!left) {
        std::memset(cluster->name, 0, sizeof(cluster->name));
    }
    return removed;
}

bool ClusterExists(const char *name)
{
    const DrmSpinGuard guard(g_clusterLock);
    return FindClusterLocked(name) != nullptr;
}

/**
 * Copies a command, one at a time: a handler and the print run without the lock, and either may come back to find the
 * group or the cluster gone.
 */
bool GetCommand(const char *name, uint32_t group, uint32_t index, DrmDiagCmd *command)
{
    const DrmSpinGuard guard(g_clusterLock);
    const DrmDiagCmdCluster *cluster = FindClusterLocked(name);
    if (cluster == nullptr || cluster->groups[group].cmds == nullptr || index >= cluster->groups[group].count) {
        return false;
    }
    *command = cluster->groups[group].cmds[index];
    return true;
}

/** The first command of a group that can run under this word. */
bool FindCommand(const char *name, uint32_t group, const char *word, DrmDiagCmd *command)
{
    for (uint32_t index = 0; GetCommand(name, group, index, command); index++) {
        if (word != nullptr && command->name != nullptr && command->handler != nullptr &&
            std::strncmp(command->name, word, DRM_DIAG_CMD_NAME_SIZE) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

uint32_t DrmDebugRegHostCmd(const DrmDebugCmdInfo &record) noexcept
{
    // The record itself, not a copy: other hosts' libraries may keep its address.
    return DBG_RegCmd(reinterpret_cast<const DBG_CmdInfo *>(&record)) == kHostCmdFailed ? DRM_ERR_FAIL : DRM_OK;
}

extern "C" {

uint32_t DrmDebugRegDiagCmdGroup(const char *cluster, DrmDiagCmd *cmds, uint32_t count) noexcept
{
    if (IsEmpty(cluster) || cmds == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: Input is invalid, cmdOps is null.\n");
        return DRM_ERR_FAIL;
    }
    const DrmSpinGuard guard(g_clusterLock);
    DrmDiagCmdCluster *row = FindClusterLocked(cluster);
    if (row == nullptr) {
        row = InsertClusterLocked(cluster);
    }
    if (row == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: Cluster is full.\n");
        return DRM_ERR_FAIL;
    }
    if (!AddGroup(row, {cmds, count})) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: register diagnose cmd array failed.\n");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

void DrmDebugUnRegDiagCmdGroup(const char *cluster, DrmDiagCmd *cmds) noexcept
{
    if (IsEmpty(cluster) || cmds == nullptr) {
        return;
    }
    const DrmSpinGuard guard(g_clusterLock);
    DrmDiagCmdCluster *row = FindClusterLocked(cluster);
    if (row == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(%s).\n", ClusterName(cluster).Get());
        return;
    }
    if (!RemoveGroups(row, cmds)) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: unregister diagnose cmd array failed.\n");
    }
}

int DrmDebugExecDiagCmd(int argc, char **argv) noexcept
{
    if (argc <= 1) {
        return DBG_ShowUsageAndErrMsg("Please input valid command.");
    }
    if (!ClusterExists(argv[0])) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(%s).\n", ClusterName(argv[0]).Get());
        return 0;
    }
    int printed = 0;
    bool found = false;
    for (uint32_t group = 0; group < DRM_DIAG_GROUP_NUM; group++) {
        DrmDiagCmd command{};
        if (!FindCommand(argv[0], group, argv[1], &command)) {
            continue;
        }
        found = true;
        if (command.handler(argc, argv) != DRM_OK && command.help != nullptr) {
            printed = DBG_Print("%s", command.help);
        }
    }
    return found ? printed : DBG_Print("Can't Find The Diagnose Cmd\n");
}

void DrmDebugCmdHelp(const char *cluster, int) noexcept
{
    (void)DBG_Print("SYNOPSIS\n");
    if (!ClusterExists(cluster)) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(%s).\n", ClusterName(cluster).Get());
        return;
    }
    for (uint32_t group = 0; group < DRM_DIAG_GROUP_NUM; group++) {
        DrmDiagCmd command{};
        for (uint32_t index = 0; GetCommand(cluster, group, index, &command); index++) {
            if (command.help != nullptr) {
                (void)DBG_Print("%s", command.help);
            }
        }
    }
}

DrmDiagCmdCluster *DrmDebugGetDiagCmdClusterByName(const char *name) noexcept
{
    const DrmSpinGuard guard(g_clusterLock);
    return FindClusterLocked(name);
}

DrmDiagCmdCluster *DrmDebugInsertDiagCmdClusterByName(const char *name) noexcept
{
    const DrmSpinGuard guard(g_clusterLock);
    return InsertClusterLocked(name);
}

} // extern "C"
