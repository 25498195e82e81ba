#include "cli/server/BaseCommand.h"

#include <algorithm>

namespace CORVANE_CLI {

namespace {

constexpr size_t kNumberDigitsMax = 7;

} // namespace

BaseCommand::~BaseCommand() = default;

int BaseCommand::ParseParam(std::string &param)
{
    size_t blank = 0;
    do {
        blank = param.find(' ');
        const size_t equals = param.find('=');
        // A word without "=" merges with what follows: its blank stands before the next "=".
        const std::string key = param.substr(0, equals);
        const std::string value =
            equals < blank ? param.substr(equals + 1, blank - equals - 1) : param.substr(equals + 1);
        m_params.emplace(key, value);
        if (blank != std::string::npos) {
            param.erase(0, blank + 1);
        }
    } while (blank != std::string::npos);
    return 0;
}

void BaseCommand::SetData(const CmdData &data)
{
    m_data = data;
}

CmdData BaseCommand::GetData()
{
    return m_data;
}

std::string BaseCommand::GetAction()
{
    return m_params["action"];
}

bool BaseCommand::IsStringFormatCorrect(std::string &text)
{
    if (text.empty() || text.size() > kNumberDigitsMax) {
        return false;
    }
    if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return false;
    }
    return text[0] != '0' || text.size() == 1;
}

int ExitCommand::Exec(std::string, std::string &)
{
    return 0;
}

} // namespace CORVANE_CLI
