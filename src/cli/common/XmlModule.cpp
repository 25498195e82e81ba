#include "cli/common/XmlModule.h"

#include <cstring>
#include <memory>
#include <string_view>

#include "cli/common/CLogger.h"
#include "cli/common/XmlLoad.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

constexpr std::string_view kRequest = "<req></req>";
constexpr std::string_view kCommand = "<cmd></cmd>";
constexpr std::string_view kArguments = "<agrs></agrs>"; // spelled so on the wire
constexpr std::string_view kResponse = "<response></response>";
constexpr std::string_view kPrintData = "<print_data></print_data>";
constexpr std::string_view kErrorCode = "<error_code></error_code>";
constexpr std::string_view kErrorCodeMarker = " errorCode=";

/** Room for what the saver expands in a response, such as "<" in a text. */
constexpr size_t kExpansionRoom = 20;

struct MxmlDelete {
    void operator()(mxml_node_t *node) const noexcept { mxmlDelete(node); }
};
using MxmlPtr = std::unique_ptr<mxml_node_t, MxmlDelete>;

/** A document that does not parse is told by the missing tree; the library
 * would write to standard error. */
void IgnoreParseError(const char *) {}

MxmlPtr Parse(const char *text)
{
    mxmlSetErrorCallback(IgnoreParseError); // of this thread
    return MxmlPtr(LoadXmlText(text));
}

/** Adds an element to the root and gives it a text. @return false if it is not
 * there afterwards. */
bool AddTextElement(mxml_node_t *root, const char *name, const char *text)
{
    if (root == nullptr || mxmlNewElement(root, name) == nullptr) {
        return false;
    }
    mxml_node_t *element = mxmlFindElement(root, root, name, nullptr, nullptr, MXML_DESCEND_FIRST);
    return element != nullptr && mxmlNewOpaque(element, text) != nullptr;
}

/** Saves a tree into a buffer of this size; what does not fit is cut. @return
 * null without memory. */
MallocPtr<char> Save(mxml_node_t *node, size_t size)
{
    MallocPtr<char> buffer(static_cast<char *>(g_osCalls.malloc(size)));
    if (buffer == nullptr) {
        return buffer;
    }
    std::memset(buffer.get(), 0, size);
    mxmlSetWrapMargin(0); // of this thread; no line breaks of the saver's own
    (void)mxmlSaveString(node, buffer.get(), static_cast<int>(size), MXML_NO_CALLBACK);
    return buffer;
}

} // namespace

XmlModule::XmlModule() = default;
XmlModule::~XmlModule() = default;

std::string XmlModule::CliCMDtoXml(const std::string &cmd, const std::string &param)
{
    if (cmd.empty() || param.empty() || cmd.size() > CMD_LEN_MAX || param.size() > PARAM_LEN_MAX) {
        CLI_LOG_ERROR("input error, cmd:%zu param:%zu.", cmd.size(), param.size());
        return "";
    }
    const MxmlPtr root = Parse(kRequest.data());
    if (!AddTextElement(root.get(), "cmd", cmd.c_str())) {
        CLI_LOG_ERROR("cmd or param is empty");
        return "";
    }
    if (!AddTextElement(root.get(), "agrs", param.c_str())) {
        CLI_LOG_ERROR("add element args failed");
        return "";
    }
    const size_t size = cmd.size() + param.size() + kRequest.size() + kCommand.size() + kArguments.size() + 1;
    const MallocPtr<char> buffer = Save(root.get(), size);
    if (buffer == nullptr) {
        CLI_LOG_ERROR("malloc xmlinfo buf failed");
        return "";
    }
    return buffer.get();
}

std::string XmlModule::SvCMDtoXml(const std::string &text)
{
    if (text.empty()) {
        CLI_LOG_ERROR("callback is empty.");
        return "";
    }
    const size_t marker = text.find(kErrorCodeMarker);
    const std::string print = text.substr(0, marker);
    const std::string code = marker == std::string::npos ? "" : text.substr(marker + kErrorCodeMarker.size());

    const MxmlPtr root = Parse(kResponse.data());
    if (!AddTextElement(root.get(), "error_code", code.c_str())) {
        CLI_LOG_ERROR("add element error_code failed.");
        return "";
    }
    if (!AddTextElement(root.get(), "print_data", print.c_str())) {
        CLI_LOG_ERROR("add element print_data failed.");
        return "";
    }
    const size_t size =
        print.size() + kResponse.size() + kPrintData.size() + kErrorCode.size() + code.size() + kExpansionRoom;
    return ToString(static_cast<int>(size), root.get());
}

std::string XmlModule::ToString(int xmlLen, mxml_node_t *node)
{
    if (xmlLen <= 0) {
        CLI_LOG_ERROR("xmlLen:%d is error", xmlLen);
        return "";
    }
    const MallocPtr<char> buffer = Save(node, static_cast<size_t>(xmlLen));
    if (buffer == nullptr) {
        CLI_LOG_ERROR("malloc xml buf failed.");
        return "";
    }
    return buffer.get();
}

std::string XmlModule::AnalysisXml(const std::string &xml, const std::string &key)
{
    const MxmlPtr root = Parse(xml.c_str());
    mxml_node_t *element = mxmlFindElement(root.get(), root.get(), key.c_str(), nullptr, nullptr, MXML_DESCEND_FIRST);
    if (element == nullptr) {
        CLI_LOG_ERROR("Not found element %s", key.c_str());
        return "";
    }
    const char *text = mxmlGetOpaque(element);
    return text != nullptr ? text : "";
}

} // namespace CORVANE_CLI
