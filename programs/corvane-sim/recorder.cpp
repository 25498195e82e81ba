#include "recorder.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace corvane_sim {
namespace {

CJsonPtr NewLine(double time, AgentKind agent)
{
    CJsonPtr line(cJSON_CreateObject());
    cJSON_AddNumberToObject(line.get(), "time", std::round(time * 1000) / 1000);
    cJSON_AddStringToObject(line.get(), "socket", std::string(kAgentNames[static_cast<size_t>(agent)]).c_str());
    return line;
}

void AddCopy(cJSON *line, const cJSON *request, const char *name)
{
    const cJSON *member = cJSON_GetObjectItemCaseSensitive(request, name);
    cJSON_AddItemToObject(line, name, member != nullptr ? cJSON_Duplicate(member, 1) : cJSON_CreateNull());
}

} // namespace

Recorder::Recorder(const std::string &path) : path_(path)
{
    if (path.empty()) {
        return;
    }
    file_.reset(std::fopen(path.c_str(), "we"));
    if (file_ == nullptr) {
        throw std::runtime_error(path + ": cannot be written: " + std::strerror(errno) +
                                 "; check the path and its permissions");
    }
}

void Recorder::WriteLine(const cJSON *line)
{
    if (std::fprintf(file_.get(), "%s\n", PrintJson(line).c_str()) < 0 || std::fflush(file_.get()) != 0) {
        // Whoever reads the record must not take a part for the whole.
        throw std::runtime_error(path_ + ": cannot be written any more: " + std::strerror(errno));
    }
}

void Recorder::Write(double time, AgentKind agent, const Request &request)
{
    if (file_ == nullptr) {
        return;
    }
    const CJsonPtr line = NewLine(time, agent);
    AddCopy(line.get(), request.tree, "method");
    AddCopy(line.get(), request.tree, "id");
    AddCopy(line.get(), request.tree, "params");
    WriteLine(line.get());
}

void Recorder::WriteUnreadable(double time, AgentKind agent, const std::string &text)
{
    if (file_ == nullptr) {
        return;
    }
    const CJsonPtr line = NewLine(time, agent);
    for (const char *name : {"method", "id", "params"}) {
        cJSON_AddNullToObject(line.get(), name);
    }
    cJSON_AddStringToObject(line.get(), "unreadable", text.c_str());
    WriteLine(line.get());
}

} // namespace corvane_sim
