#include "failure.h"

#include <array>
#include <cstdio>

#include "cli/common/ConfigMgr.h"
#include "cli/common/ErrorCode.h"
#include "config/corvane_prefix_path.h"
#include "exit_codes.h"

using CORVANE_CLI::ConfigMgr;
using CORVANE_CLI::ConfigNode;
using CORVANE_CLI::ErrorCode;
using Outcome = Answer::Outcome;

namespace {

/** The settings' folder is closed to those who most need to read why they were refused; this copy is everybody's. */
constexpr const char *kOpenCatalogue = "/share/corvane/error_en.xml";

std::string g_ownPrefix;

/** @return empty if the prefix's catalogue does not know the code. */
std::string TextOf(int code)
{
    const auto &catalogue = ErrorCode::GetErrorCode();
    const auto entry = catalogue.find(code);
    return entry != catalogue.end() ? entry->second.GetMessage("") : "";
}

/** @return empty if the copy beside the program does not know the code. */
std::string OpenTextOf(int code)
{
    ConfigMgr catalogue;
    (void)catalogue.ReadConfig(g_ownPrefix + kOpenCatalogue); // a missing file is an empty catalogue
    const ConfigNode errors = catalogue.GetConfig().Get("root").Get("errors");
    ConfigNode error = errors.Get("error").WithAttr("id", std::to_string(code));
    return error.Size() == 0 ? ""
                             : ErrorCode(code, error.Get("reason").GetAttr("description"),
                                         error.Get("suggestions").Get("suggestion").GetAttr("description"))
                                   .GetMessage("");
}

std::string Hex(int code)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned int>(code));
    return text.data();
}

std::string Seconds(int seconds)
{
    return std::to_string(seconds) + (seconds == 1 ? " second" : " seconds");
}

} // namespace

void SetCataloguePrefix(const std::string &prefix, const std::string &own)
{
    (void)SetPrefixPath(prefix.c_str()); // without memory there is no text either
    g_ownPrefix = own;
}

std::string Explanation(int code)
{
    std::string text = TextOf(code);
    if (text.empty()) {
        text = OpenTextOf(code);
    }
    return !text.empty() ? text
                         : "no text for code " + std::to_string(code) + "; is share/corvane/error_en.xml installed?\n";
}

int ExplainFailure(const Answer &answer, const Server &server, std::string &text)
{
    const std::string code = answer.code != 0 ? Explanation(answer.code) : "";
    switch (answer.outcome) {
    case Outcome::REFUSED:
        text = "the server refused, code " + Hex(answer.code) + "\n" + code;
        return EXIT_CODE_REFUSED;
    case Outcome::NO_CONNECTION:
        text = "no connection to " + server.socket + ": " + answer.problem + "\n" +
               (!code.empty() ? code : "Suggestion:Start corvaned, or name its prefix with --prefix.\n");
        return EXIT_CODE_NO_CONNECTION;
    case Outcome::NO_PERMISSION:
        text = "no permission at " + server.socket + "\n" + code;
        return EXIT_CODE_NO_PERMISSION;
    case Outcome::NO_ANSWER:
        text = "no answer from " + server.socket + " within " + Seconds(server.timeoutSeconds) +
               "\nSuggestion:Try again; a silent client can hold the server up for a minute. Wait longer with "
               "--timeout.\n";
        return EXIT_CODE_NO_ANSWER;
    case Outcome::BUSY:
        text = "the server was busy for " + Seconds(server.timeoutSeconds) + "\n" + code;
        return EXIT_CODE_NO_ANSWER;
    default:
        text = answer.problem + "\nSuggestion:Try again. If it stays so, compare corvanectl --version with corvaned "
                                "--version: both must be of one version.\n";
        return EXIT_CODE_OTHER;
    }
}
