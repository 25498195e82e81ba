#include "cli/common/ErrorCode.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bounded/bounded.h"
#include "cli/common/CliResultCode.h"
#include "cli/common/ConfigMgr.h"
#include "config/corvane_prefix_path.h"

namespace CORVANE_CLI {

namespace {

constexpr size_t kPathSize = 4096;
constexpr const char *kCatalogue = "config/error_en.xml";
constexpr std::string_view kPlaceholder = "{0}";
constexpr std::string_view kParameter = "{%s}";

/** Puts the first placeholder of a text into the form that takes the parameter. */
void MarkParameter(std::string &text)
{
    const size_t at = text.find(kPlaceholder);
    if (at != std::string::npos) {
        text.replace(at, kPlaceholder.size(), kParameter);
    }
}

} // namespace

std::map<int, ErrorCode> ErrorCode::m_errorCode;
bool ErrorCode::m_hasInit = false;

ErrorCode::ErrorCode(int code, std::string reason, std::string suggestion)
    : m_code(code), m_reason(std::move(reason)), m_suggestion(std::move(suggestion))
{
}

std::map<int, ErrorCode> &ErrorCode::GetErrorCode()
{
    if (!m_hasInit) {
        (void)LoadConfigFile(); // without it every number is unknown
    }
    return m_errorCode;
}

int ErrorCode::LoadConfigFile()
{
    std::array<char, kPathSize> path{};
    if (snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", GetPrefixPath(), kCatalogue) < 0) {
        return CLI_FAIL;
    }
    ConfigMgr catalogue;
    (void)catalogue.ReadConfig(path.data()); // a missing file is an empty catalogue
    const ConfigNode errors = catalogue.GetConfig().Get("root").Get("errors").Get("error");
    for (int i = 0; i < errors.Size(); i++) {
        const ConfigNode error = errors[i];
        const int code = std::atoi(error.GetAttr("id").c_str());
        ErrorCode entry(code, error.Get("reason").GetAttr("description"),
                        error.Get("suggestions").Get("suggestion").GetAttr("description"));
        entry.m_hasParam = entry.m_reason.find(kPlaceholder) != std::string::npos ||
                           entry.m_suggestion.find(kPlaceholder) != std::string::npos;
        m_errorCode.emplace(code, std::move(entry));
    }
    for (const int code : {CLI_MULTI_ERROR_CODE, CLI_OK}) {
        ErrorCode entry(code, "", "");
        entry.m_hasParam = true;
        m_errorCode.emplace(code, std::move(entry));
    }
    m_hasInit = true;
    return CLI_OK;
}

std::string ErrorCode::GetMessageTemp() const
{
    std::string text = "Cause:" + m_reason + "\nSuggestion:" + m_suggestion + "\n";
    if (m_code == CLI_OK || m_code == CLI_MULTI_ERROR_CODE) {
        text = "%s";
    }
    if (m_hasParam) {
        MarkParameter(text);
    }
    return text;
}

std::string ErrorCode::GetMessage(const std::string &param) const
{
    const std::string text = GetMessageTemp();
    return m_hasParam ? Format(text, param) : text;
}

std::string ErrorCode::PrintMessage(const std::string &param) const
{
    std::string text = GetMessage(param);
    (void)std::printf("%s", text.c_str());
    return text;
}

std::string ErrorCode::PrintErrorCode(int code, const std::string &param)
{
    const std::map<int, ErrorCode> &catalogue = GetErrorCode();
    const auto entry = catalogue.find(code);
    std::string text = entry != catalogue.end() ? entry->second.GetMessage(param) : "";
    (void)std::printf("%s", text.c_str());
    return text;
}

int ErrorCode::GetMessage(std::vector<std::pair<int, std::string>> &errors, std::string &out)
{
    if (errors.empty()) {
        out = "null";
        return CLI_ERROR_NOT_FOUND;
    }
    if (errors.size() == 1) {
        out = errors.front().second;
        return errors.front().first;
    }

    const std::map<int, ErrorCode> &catalogue = GetErrorCode();
    std::string suggestions = "Suggestion:\n";
    size_t number = 0;
    out = "Cause:\n";
    for (const auto &[code, param] : errors) {
        number++;
        out += std::to_string(number) + ". ";
        const auto entry = catalogue.find(code);
        if (entry == catalogue.end()) {
            return CLI_ERROR_NOT_FOUND;
        }
        std::string reason = entry->second.m_reason;
        if (entry->second.m_hasParam) {
            MarkParameter(reason);
            reason = Format(reason, param);
        }
        out += reason + "\n";
        suggestions += std::to_string(number) + ". " + entry->second.m_suggestion + "\n";
    }
    out += suggestions;
    return CLI_MULTI_ERROR_CODE;
}

std::string Format(const std::string &format, const std::string &param)
{
    // By hand: the texts come from a file that people edit.
    std::string text = format;
    const size_t at = text.find('%');
    if (at != std::string::npos) {
        if (text.compare(at, 2, "%s") != 0 || text.find('%', at + 2) != std::string::npos) {
            return "";
        }
        text.replace(at, 2, param);
    }
    return text.size() < ErrorCode::MESSAGE_SIZE ? text : "";
}

} // namespace CORVANE_CLI
