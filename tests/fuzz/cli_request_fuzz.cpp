// Any text as a request: the whole path from the packet to the answer and the end of the connection. Run as root, or
// the peer is a stranger and nothing is reached.
//
// Input: the first byte's lowest bit turns the comparison of request and authorised action on, the next one makes the
// authorised action "change" instead of "show". The rest is the text of the packet.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"
#include "cli/server/CliCmdHandler.h"
#include "cli/server/CliUdsServer.h"
#define CLI_FUZZ_WITH_STORE
#include "cli_fuzz_support.h"

namespace {

using namespace CORVANE_CLI;

/** More would not go through a socket in one piece. */
constexpr size_t kRequestMax = 65536;

const std::set<std::string> g_codes = {
    "0",
    "-1",
    std::to_string(CLI_USER_PERMISSION_ERROR),
    std::to_string(CLI_COMMAND_FORMAT_ERROR),
    std::to_string(CLI_COMMAND_PARAM_INVALID),
    std::to_string(CLI_COMMAND_EXEC_FAILED),
    std::to_string(CLI_TASK_MAX_ERROR),
    std::to_string(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID),
    std::to_string(CLI_DB_ID_NOT_EXIST),
    std::to_string(CLI_DPR_SMART_CONFIG_PARAM_INVALID),
    std::to_string(CLI_DISKLIFE_PRE_PARAM_INVALID),
};

std::string Packet(const std::string &text, const char *action)
{
    CliDataHead head = {};
    head.chunkCount = 1;
    head.totalLen = static_cast<uint32_t>(text.size() + CLI_MSG_HEAD_LEN + 1);
    std::strcpy(head.username, "root");
    std::strcpy(head.actionName, action);
    return std::string(reinterpret_cast<const char *>(&head), CLI_PACKET_HEAD_LEN) +
           std::string(CLI_MSG_HEAD_LEN, '\0') + text + std::string(3, '\0');
}

/** What comes until the other end closes. */
std::string ReadAll(int fd)
{
    std::string all;
    char buffer[16384];
    for (ssize_t count = 0; (count = read(fd, buffer, sizeof(buffer))) > 0;) {
        all.append(buffer, static_cast<size_t>(count));
    }
    return all;
}

std::string FirstWord(const std::string &text)
{
    return text.substr(0, text.find(' '));
}

/** One packet with a whole response. @return its code. */
std::string CheckedCode(const std::string &answer)
{
    CliDataHead head = {};
    Require(answer.size() > CLI_PACKET_OVERHEAD + CLI_MSG_HEAD_LEN);
    std::memcpy(&head, answer.data(), CLI_PACKET_HEAD_LEN);
    Require(head.chunkCount == 1 && head.chunkIndex == 0 && head.totalLen == answer.size() - CLI_PACKET_OVERHEAD);
    const std::string document = answer.c_str() + CLI_PACKET_HEAD_LEN + CLI_MSG_HEAD_LEN;
    XmlModule xml;
    const std::string code = xml.AnalysisXml(document, "error_code");
    Require(g_codes.count(code) == 1 && !xml.AnalysisXml(document, "print_data").empty());
    return code;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const FuzzNode node;
    static const int initialised = CliCmdHandler::GetInstance().Initialize();
    Require(initialised == CLI_OK);
    if (size == 0 || size > kRequestMax) {
        return 0;
    }
    const bool refuses = (data[0] & 1) != 0;
    const char *authorised = (data[0] & 2) != 0 ? "change" : "show";
    __atomic_store_n(&g_cliRefuseActionMismatch, refuses ? 1U : 0U, __ATOMIC_RELAXED);
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string packet = Packet(text, authorised);
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    Require(write(ends[1], packet.data(), packet.size()) == static_cast<ssize_t>(packet.size()));

    CliUdsServer::GetInstance().InnerRecvTask(ends[0]);
    const std::string answer = ReadAll(ends[1]);
    (void)close(ends[1]);

    if (answer.empty()) { // an action of ten characters does not go back
        return 0;
    }
    const std::string code = CheckedCode(answer);
    XmlModule xml;
    const std::string action = FirstWord(xml.AnalysisXml(text, "agrs"));
    Require((code == std::to_string(CLI_USER_PERMISSION_ERROR)) == (refuses && action != authorised));
    return 0;
}
