/**
 * @file SlowDIskDetectCmd.h
 * @brief "show slowdisk_detect_config", "change slowdisk_detect_config": the settings of slow disk detection.
 */
#ifndef CLI_SLOW_DISK_DETECT_CMD_H
#define CLI_SLOW_DISK_DETECT_CMD_H

#include <functional>
#include <map>
#include <string>

#include "cli/server/BaseCommand.h"
#include "infrastructure/common/corvane_export.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"

namespace CORVANE_CLI {

class CORVANE_API SlowDiskDetectCmd : public BaseCommand {
public:
    /** Checks a value, puts it into the record and hands that to the feature. */
    using Handler = std::function<int(ClassicalSlowDiskDetectV2Config *record, const std::string &nodeName, int value)>;

    SlowDiskDetectCmd();
    int Exec(std::string param, std::string &output) override;

    void Init();
    int SetSlowDiskDetectParam(std::string &output);
    int ShowSlowDiskDetectParam(std::string &output);
    int ChangeSlowDiskDetectParam(const std::string &key, std::string valueText, const Handler &handler);
    /** @return 0 or CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID. */
    int GetDiskTypeFromParam(int &type);
    /** @brief Fill the record with the present settings of a disk type. @retval -1  They cannot be read. */
    int InitSlowDiskDetectConfigValue(ClassicalSlowDiskDetectV2Config *record, int type);
    int SetMinThresholdValue(ClassicalSlowDiskDetectV2Config *record, const std::string &nodeName, int value);
    int SetMinSlowCycle(ClassicalSlowDiskDetectV2Config *record, const std::string &nodeName, int value);

private:
    std::map<std::string, Handler> m_handlers;
};

} // namespace CORVANE_CLI

#endif
