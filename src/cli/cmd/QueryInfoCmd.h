/**
 * @file QueryInfoCmd.h
 * @brief "show disk_info", "show iostat_info", "show smart_info", "show drm_info": one disk's data.
 */
#ifndef CLI_QUERY_INFO_CMD_H
#define CLI_QUERY_INFO_CMD_H

#include <sstream>
#include <string>

#include "cli/server/BaseCommand.h"
#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API QueryInfoCmd : public BaseCommand {
public:
    QueryInfoCmd();
    int Exec(std::string param, std::string &output) override;

    /** @name Each prints one record of a disk. @return 0, the getter's result, or CLI_COMMAND_EXEC_FAILED. */
    /** @{ */
    int ShowDiskBaseInfo(int diskId, std::string &out);
    int ShowDiskIoStatInfo(int diskId, std::string &out);
    int ShowDiskHealthInfo(int diskId, std::string &out);
    int ShowDiskDrmInfo(int diskId, std::string &out);
    int DrmInfoHealthInfo(int diskId, DiskMgrObj *base, std::stringstream &out);
    /** @} */
    /** @brief Remaining life in months of 720 hours. */
    void DrmInfoDiskLifeGet(DiskDrmInfo *drm, std::stringstream &out);
    /** @param capacity Bytes. @return a number with one decimal and its unit, at most TB. */
    std::string TransDiskCapacityUnit(unsigned long capacity);
    std::string GetDiskState(DISK_STATE_E state);
    std::string GetIntfType(DISK_TYPE_E type);
};

} // namespace CORVANE_CLI

#endif
