// Any bytes as the catalogue of errors, and its texts with a parameter in them.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "cli/common/CliResultCode.h"
#include "cli/common/ConfigMgr.h"
#include "cli/common/ErrorCode.h"
#include "cli_fuzz_support.h"

using CORVANE_CLI::ErrorCode;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const FuzzPrefix prefix;
    mxmlSetErrorCallback([](const char *) {});
    WriteFuzzFile(prefix.File("config/error_en.xml"), data, size);
    ErrorCode::m_errorCode.clear();
    ErrorCode::m_hasInit = false;

    Require(ErrorCode::LoadConfigFile() == 0);

    const auto &catalogue = ErrorCode::GetErrorCode();
    Require(catalogue.count(CORVANE_CLI::CLI_OK) == 1 && catalogue.count(CORVANE_CLI::CLI_MULTI_ERROR_CODE) == 1);
    std::vector<std::pair<int, std::string>> errors;
    for (const auto &[code, entry] : catalogue) {
        const std::string text = entry.GetMessage("%s 3 {0}");
        Require(text.empty() || code == 0 || code == CORVANE_CLI::CLI_MULTI_ERROR_CODE || text.rfind("Cause:", 0) == 0);
        errors.emplace_back(code, "%n");
    }
    std::string message;
    Require(ErrorCode::GetMessage(errors, message) == CORVANE_CLI::CLI_MULTI_ERROR_CODE);
    Require(message.rfind("Cause:\n1. ", 0) == 0);

    // The same bytes as a file of settings that is written back.
    CORVANE_CLI::ConfigMgr settings;
    Require(settings.ReadConfig(prefix.File("config/error_en.xml")) == 0);
    const std::string other = prefix.File("config/other.xml");
    Require(settings.SaveConfigDirect(other) == 0);
    (void)CORVANE_CLI::Format(std::string(reinterpret_cast<const char *>(data), size), "parameter");
    return 0;
}
