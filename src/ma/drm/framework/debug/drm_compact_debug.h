/**
 * @file drm_compact_debug.h
 * @brief Command clusters: several modules answer under one first word of the host's debug shell.
 *
 * Owns the table of clusters; the commands are the modules'. A lock of its own guards the table; handlers run without
 * it, on the thread of the debug shell.
 */
#ifndef DRM_COMPACT_DEBUG_H
#define DRM_COMPACT_DEBUG_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DRM_DIAG_CLUSTER_NUM 32u
#define DRM_DIAG_CLUSTER_NAME_SIZE 20u /**< a name of 20 characters has no terminator */
#define DRM_DIAG_GROUP_NUM 3u
#define DRM_DIAG_CMD_NAME_SIZE 128u

/** A command. 24 bytes. */
typedef struct DrmDiagCmd {
    const char *name;                           /**< compared up to 128 characters */
    uint32_t (*handler)(int argc, char **argv); /**< argv[0] the cluster, argv[1] the command; not 0: show the help */
    const char *help;
} DrmDiagCmd;

typedef struct DrmDiagCmdGroup {
    DrmDiagCmd *cmds; /**< null: free */
    uint32_t count;
} DrmDiagCmdGroup;

/** A cluster. 72 bytes. */
typedef struct DrmDiagCmdCluster {
    DrmDiagCmdGroup groups[DRM_DIAG_GROUP_NUM];
    char name[DRM_DIAG_CLUSTER_NAME_SIZE]; /**< empty: a free row */
} DrmDiagCmdCluster;

/** A command of the host's debug shell, as DBG_RegCmd() takes it. 104 bytes. */
typedef struct DrmDebugCmdInfo {
    char name[20];
    char description[68];
    int (*exec)(int argc, char **argv);
    void (*help)(const char *name, int verbose);
} DrmDebugCmdInfo;

/**
 * @brief Add commands to a cluster, which is made if there is none of this name.
 * @param cmds  @p count commands; they stay the caller's and must stay valid until they are taken away.
 * @retval DRM_ERR_FAIL  Empty name, no commands, 32 clusters exist, or the cluster has three groups.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmDebugRegDiagCmdGroup(const char *cluster, DrmDiagCmd *cmds,
                                                               uint32_t count) CORVANE_NOEXCEPT;
/** @brief Take them away. A cluster without groups is gone. */
CORVANE_API void DrmDebugUnRegDiagCmdGroup(const char *cluster, DrmDiagCmd *cmds) CORVANE_NOEXCEPT;
/** @brief Run a command of a cluster. @return what the host's print gave last, else 0. */
CORVANE_API int DrmDebugExecDiagCmd(int argc, char **argv) CORVANE_NOEXCEPT;
/** @brief Print the help texts of a cluster. @param verbose  Not used. */
CORVANE_API void DrmDebugCmdHelp(const char *cluster, int verbose) CORVANE_NOEXCEPT;
/** @return the cluster, or null. The first 20 characters count. */
CORVANE_NODISCARD CORVANE_API DrmDiagCmdCluster *DrmDebugGetDiagCmdClusterByName(const char *name) CORVANE_NOEXCEPT;
/** @return the first free row, which now has this name; null if there is none. */
CORVANE_NODISCARD CORVANE_API DrmDiagCmdCluster *DrmDebugInsertDiagCmdClusterByName(const char *name) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>

/**
 * @brief Register a first word with the host, to be answered by the cluster of that name.
 * @param record  Must stay valid until the word is taken back: the host may keep its address.
 * @retval DRM_ERR_FAIL  The host refused.
 */
[[nodiscard]] uint32_t DrmDebugRegHostCmd(const DrmDebugCmdInfo &record) noexcept;

static_assert(sizeof(DrmDiagCmd) == 24 && sizeof(DrmDiagCmdCluster) == 72 && offsetof(DrmDiagCmdCluster, name) == 48);
static_assert(sizeof(DrmDebugCmdInfo) == 104 && offsetof(DrmDebugCmdInfo, exec) == 88);
#endif

#endif
