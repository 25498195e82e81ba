// A parameter string into each management command, on a node with disks and settings, and its way into an answer.
//
// Input: the first byte selects the command (byte modulo 10, so that '0' to '9' can be typed), the rest is the string.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "cli/cmd/ConfigCmd.h"
#include "cli/cmd/DiskLifePredictionCmd.h"
#include "cli/cmd/DprSmartCmd.h"
#include "cli/cmd/QueryInfoCmd.h"
#include "cli/cmd/SlowDIskDetectCmd.h"
#include "cli/cmd/SlowDiskCmd.h"
#include "cli/common/CliResultCode.h"
#include "cli/common/XmlModule.h"
#define CLI_FUZZ_WITH_STORE
#include "cli_fuzz_support.h"

namespace {

using namespace CORVANE_CLI;

template <typename Command>
std::unique_ptr<BaseCommand> Make()
{
    return std::make_unique<Command>();
}

struct Row {
    const char *name;
    std::unique_ptr<BaseCommand> (*make)();
};

constexpr std::array<Row, 10> kRows = {{{"slowdisk", Make<SlowDiskCmd>},
                                        {"summary", Make<SlowDiskCmd>},
                                        {"config", Make<ConfigCmd>},
                                        {"slowdisk_detect_config", Make<SlowDiskDetectCmd>},
                                        {"disk_info", Make<QueryInfoCmd>},
                                        {"iostat_info", Make<QueryInfoCmd>},
                                        {"smart_info", Make<QueryInfoCmd>},
                                        {"drm_info", Make<QueryInfoCmd>},
                                        {"dpr_smart", Make<DprSmartCmd>},
                                        {"disklife_prediction", Make<DiskLifePredictionCmd>}}};

constexpr std::array kResults = {CLI_OK,
                                 CLI_FAIL,
                                 CLI_COMMAND_FORMAT_ERROR,
                                 CLI_COMMAND_EXEC_FAILED,
                                 CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID,
                                 CLI_DB_ID_NOT_EXIST,
                                 CLI_DPR_SMART_CONFIG_PARAM_INVALID,
                                 CLI_DISKLIFE_PRE_PARAM_INVALID};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const FuzzNode node;
    if (size == 0) {
        return 0;
    }
    FuzzNode::ResetSettings();
    const Row &row = kRows[data[0] % kRows.size()];
    const std::string param(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::unique_ptr<BaseCommand> command = row.make();
    command->SetData({row.name, param, -1});
    std::string output;

    const int result = command->Exec(param, output);

    Require(std::find(kResults.begin(), kResults.end(), result) != kResults.end());
    Require(output.size() < 65536);
    (void)command->GetAction();
    XmlModule xml;
    const std::string answer = xml.SvCMDtoXml(output + " errorCode=" + std::to_string(result));
    Require(xml.AnalysisXml(answer, "error_code") == std::to_string(result));
    Require(xml.AnalysisXml(answer, "print_data") == output);
    return 0;
}
