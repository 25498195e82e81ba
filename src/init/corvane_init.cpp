#include "init/corvane_init.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unistd.h>

#include "bounded/bounded.h"
#include "cli/server/CliUdsServer.h"
#include "config/corvane_config.h"
#include "config/corvane_config_bak.h"
#include "config/corvane_prefix_path.h"
#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_sync.h"
#include "diagnose/corvane_diagnose.h"
#include "diagnose/corvane_trace_point.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"
#include "init/corvane_bringup.h"
#include "platform/norax.h"
#include "platform/nordiagnose.h"
#include "platform/norlog.h"
#include "platform/normm.h"

static_assert(sizeof(CorvaneInitFiniStep) == 48 && offsetof(CorvaneInitFiniStep, init) == 32 &&
              offsetof(CorvaneInitFiniStep, fini) == 40);
static_assert(sizeof(g_corvaneInitFiniSteps) == 768);
static_assert(CORVANE_START_COMBINED == F_RDLCK && CORVANE_START_INDEPENDENT == F_WRLCK,
              "start mode 0 shares the process lock, start mode 1 holds it alone");

namespace {

constexpr size_t kLockPathSize = 1024;
constexpr mode_t kLockFileMode = 0660;
constexpr uint32_t kHostLogFiles = 100;

/** The process's name in the host's debug shell. */
constexpr const char *kAgentName = "corvane";

uint32_t StartNorax() noexcept
{
    return static_cast<uint32_t>(norax_Init());
}

uint32_t StopNorax() noexcept
{
    norax_destory();
    return 0;
}

uint32_t StartNorlog() noexcept
{
    // Hosts in which the library is a guest log to a folder of their own. A host log that does not start is no reason
    // not to watch disks.
    const char *folder = g_corvaneStartMode == CORVANE_START_COMBINED ? "/var/log/corvane_super/" : "/var/log/corvane/";
    (void)norlog_set_file_path_ext(folder, folder);
    (void)norlog_init();
    (void)norlog_set_backup_num(kHostLogFiles);
    return 0;
}

uint32_t StopNorlog() noexcept
{
    return static_cast<uint32_t>(norlog_destroy());
}

uint32_t StartDiagnoseAgent() noexcept
{
    return static_cast<uint32_t>(DBG_DiagnoseAgentInit(getpid(), kAgentName));
}

uint32_t StopDiagnoseAgent() noexcept
{
    return static_cast<uint32_t>(DBG_DiagnoseAgentDestroy(getpid()));
}

uint32_t StartMemoryPool() noexcept
{
    return static_cast<uint32_t>(nor_mm_pool_init());
}

uint32_t StopMemoryPool() noexcept
{
    return static_cast<uint32_t>(nor_mm_pool_exit());
}

uint32_t StartDiskMgr() noexcept
{
    return DiskMgrInit(nullptr);
}

uint32_t StartDataMgr() noexcept
{
    return DataMgrInit();
}

uint32_t StartCliServer() noexcept
{
    return static_cast<uint32_t>(InitCliServertoC());
}

uint32_t StartTracePoint() noexcept
{
    CorvaneTpInit();
    return 0;
}

/** Undoes the rows below @p failedRow, last first. The failed row cleans up after itself. */
void FinalizeStepsBefore(size_t failedRow) noexcept
{
    for (size_t row = failedRow; row-- > 0;) {
        const CorvaneInitFiniStep &step = g_corvaneInitFiniSteps[row];
        if (step.fini == nullptr) {
            continue;
        }
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Corvane step(%s) finalize start. ", step.name);
        const uint32_t result = step.fini();
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Corvane step(%s) finalized(ret:%d).", step.name,
                            static_cast<int>(result));
    }
}

uint32_t RunSteps() noexcept
{
    for (size_t row = 0; row < CORVANE_INIT_STEP_COUNT; row++) {
        const CorvaneInitFiniStep &step = g_corvaneInitFiniSteps[row];
        if (step.init == nullptr) {
            continue;
        }
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Corvane step(%s) initialize start.", step.name);
        const uint32_t result = step.init();
        if (result != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "Corvane step(%s) initialize failed(ret:%d).", step.name,
                                static_cast<int>(result));
            FinalizeStepsBefore(row);
            return result;
        }
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Corvane step(%s) initialize success.", step.name);
    }
    return 0;
}

/** Says why the lock was not given. */
void LogLockFailure(int error) noexcept
{
    switch (error) {
    case EACCES:
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT",
                            "get process file lock fail, maybe the permission has been set error.");
        break;
    case EAGAIN:
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT",
                            "process file has already locked (EAGAIN), maybe the process has started and conflict "
                            "with this process start mode(%d).",
                            static_cast<int>(g_corvaneStartMode));
        break;
    default:
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "failed to lock process file(errno:%d).", error);
        break;
    }
}

} // namespace

extern "C" {

CORVANE_API uint32_t g_corvaneStartMode = CORVANE_START_COMBINED;

// The order binds. The lock stands before anything that another process could be using; the adapter table before
// everything that allocates or locks; DRM before DATA_MGR, which reports every registered disk to the features at
// once.
CORVANE_API CorvaneInitFiniStep g_corvaneInitFiniSteps[CORVANE_INIT_STEP_COUNT] = {
    {"Process_Check", CorvaneInitProcessCheck, nullptr},
    {"norax", StartNorax, StopNorax},
    {"norlog", StartNorlog, StopNorlog},
    {"DBG_DiagnoseAgent", StartDiagnoseAgent, StopDiagnoseAgent},
    {"nor_mm_pool", StartMemoryPool, StopMemoryPool},
    {"InfraAdapter_VELMAR-Lite", CorvaneInfraRegisterInfraAdapter, nullptr},
    {"schedule_task_frame", InitScheduleTask, DestroyScheduleTask},
    {"CONFIG", InitConfig, nullptr},
    {"DISK_MGR", StartDiskMgr, nullptr},
    {"DRM", CorvaneInitDrm, CorvaneExitDrm},
    {"DATA_MGR", StartDataMgr, nullptr},
    {"HOT_PLUG", InitHotPlugLock, nullptr},
    {"Cli-Server", StartCliServer, nullptr},
    {"DCM", InitDataCollectMaster, nullptr},
    {"TracePoint", StartTracePoint, nullptr},
    {"diagnose", CorvaneDiagnoseInit, nullptr},
};

CORVANE_API uint32_t *GetCorvaneStartMode(void) noexcept
{
    return &g_corvaneStartMode;
}

CORVANE_API uint32_t CorvaneTryLockFile(uint16_t lockType) noexcept
{
    std::array<char, kLockPathSize> path{};
    errno = 0;
    if (snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", GetPrefixPath(),
                   "config/corvane_master_process_lockfile") < 0) {
        // The formatting does not promise an error number, and a lock that was not taken must not look taken.
        const int error = errno != 0 ? errno : ENAMETOOLONG;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get lock file failed(errno:%d).", error);
        return static_cast<uint32_t>(error);
    }

    const int fd = g_osCalls.openMode(path.data(), O_RDWR | O_CREAT, kLockFileMode);
    if (fd < 0) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "fail open process lock file %s (errno:%d).", path.data(),
                            error);
        return static_cast<uint32_t>(error);
    }

    struct flock lock = {};
    lock.l_type = static_cast<short>(lockType);
    lock.l_whence = SEEK_SET; // start 0 and length 0: the whole file
    if (g_osCalls.setLock(fd, &lock) != 0) {
        const int error = errno;
        (void)close(fd);
        LogLockFailure(error);
        return static_cast<uint32_t>(error);
    }
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "success lock file");
    // The descriptor stays open until the process ends: closing any descriptor of the file drops the lock.
    return 0;
}

CORVANE_API uint32_t CorvaneInitProcessCheck(void) noexcept
{
    switch (g_corvaneStartMode) {
    case CORVANE_START_COMBINED:
        return CorvaneTryLockFile(F_RDLCK);
    case CORVANE_START_INDEPENDENT:
        return CorvaneTryLockFile(F_WRLCK);
    default:
        return CORVANE_INIT_ERR_FAIL;
    }
}

CORVANE_API uint32_t InitCorvane(uint32_t startMode) noexcept
{
    if (startMode >= CORVANE_START_MODE_BUTT) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Error start mode (%d)", static_cast<int>(startMode));
        return CORVANE_INIT_ERR_FAIL;
    }
    if (g_corvaneStartMode != startMode) { // at a second start others are reading it
        g_corvaneStartMode = startMode;
    }
    if (startMode == CORVANE_START_COMBINED && InitCorvanePrefixPathComb() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "INIT", "Init corvane prefix path failed.");
        return CORVANE_INIT_ERR_FAIL;
    }

    const uint32_t result = RunSteps();
    if (result != 0) {
        return result;
    }
    StartQueryAgentScheduleTask();
    (void)StartDmmSync2DmaScheduleTask();
    (void)StartConfigBackUpTask();
    StartFeature();
    StartTakeOverDiskSwitch();
    return 0;
}

CORVANE_API uint32_t initCorvane(uint32_t startMode) noexcept
{
    return InitCorvane(startMode);
}

} // extern "C"
