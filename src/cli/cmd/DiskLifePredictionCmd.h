/**
 * @file DiskLifePredictionCmd.h
 * @brief "show disklife_prediction", "change disklife_prediction": how often life is predicted.
 */
#ifndef CLI_DISK_LIFE_PREDICTION_CMD_H
#define CLI_DISK_LIFE_PREDICTION_CMD_H

#include <string>

#include "cli/server/BaseCommand.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API DiskLifePredictionCmd : public BaseCommand {
public:
    DiskLifePredictionCmd();
    int Exec(std::string param, std::string &output) override;

    int SetDiskLifePredictionParam(std::string &output);
    int ShowDiskLifePredictionParam(std::string &output);
};

} // namespace CORVANE_CLI

#endif
