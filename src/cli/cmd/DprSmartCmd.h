/**
 * @file DprSmartCmd.h
 * @brief "show dpr_smart", "change dpr_smart": how often the prefail routine visits a disk type.
 */
#ifndef CLI_DPR_SMART_CMD_H
#define CLI_DPR_SMART_CMD_H

#include <string>

#include "cli/server/BaseCommand.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API DprSmartCmd : public BaseCommand {
public:
    DprSmartCmd();
    int Exec(std::string param, std::string &output) override;

    int SetDprSmartParam(std::string &output);
    int ShowDprSmartParam(std::string &output);
    int ChangeDprSmartParam();
    /** @return 0 or CLI_DPR_SMART_CONFIG_PARAM_INVALID. */
    int GetValFromParam(int &type, int &cycle);
};

} // namespace CORVANE_CLI

#endif
