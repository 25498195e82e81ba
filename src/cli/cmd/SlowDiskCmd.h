/**
 * @file SlowDiskCmd.h
 * @brief "show slowdisk" and "show summary": tables over the online disks.
 */
#ifndef CLI_SLOW_DISK_CMD_H
#define CLI_SLOW_DISK_CMD_H

#include <sstream>
#include <string>

#include "cli/server/BaseCommand.h"
#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API SlowDiskCmd : public BaseCommand {
public:
    SlowDiskCmd();
    int Exec(std::string param, std::string &output) override;

    int ShowCmd(std::string &out);
    int ShowSlowDiskCmd(std::string &out);
    int ShowSummaryCmd(std::string &out);
    /** @param[out] ids @p max identifiers. @retval -1  Bad argument, no memory, or the list failed. */
    int GetAllOnlineDisk(unsigned int *ids, unsigned int max, unsigned int &count);
    bool IsSlowDisk(DiskMgrObj &disk);
    void PrintHeader(std::stringstream &out);
    void PrintDiskInfo(DiskMgrObj &disk, std::stringstream &out);
    void PrintSummaryHeader(std::stringstream &out);
    void PrintSummaryDiskInfo(unsigned int diskId, const std::string &sn, std::stringstream &out);
    void PrintEnd(std::stringstream &out);

private:
    int m_snWidth;
    int m_slotWidth;
    int m_stateWidth;
    int m_idWidth;
};

} // namespace CORVANE_CLI

#endif
