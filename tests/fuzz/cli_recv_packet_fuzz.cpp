// A stream of packets into the receive side of the management socket, as server or as client.
//
// Input: the first byte's lowest bit says which side receives. Then one record for each recv(): a length of two bytes,
// low byte first, and so many bytes. With the highest bit of the length the packet is filled up to the largest size.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli_fuzz_support.h"

namespace {

using namespace CORVANE_CLI;

constexpr size_t kLengthBits = 0x7FFF;
/** Packets that claim more are answered as if there were no memory: clearing 32 MiB for each would take all the time.
 */
constexpr size_t kMallocMax = size_t{4} << 20;

const uint8_t *g_next = nullptr;
const uint8_t *g_end = nullptr;

ssize_t NextPacket(int, void *buffer, size_t size, int)
{
    if (g_end - g_next < 2) {
        return 0;
    }
    const unsigned int length = g_next[0] | static_cast<unsigned int>(g_next[1]) << 8;
    g_next += 2;
    const size_t taken = std::min({static_cast<size_t>(g_end - g_next), size_t{length & kLengthBits}, size});
    std::memcpy(buffer, g_next, taken);
    g_next += taken;
    if (length <= kLengthBits) {
        return static_cast<ssize_t>(taken);
    }
    std::memset(static_cast<char *>(buffer) + taken, 'p', size - taken);
    return static_cast<ssize_t>(size);
}

/** Root, and somebody whose group is looked up. */
int FindAccount(const char *name, struct passwd *entry, char *buffer, size_t size, struct passwd **found)
{
    *found = nullptr;
    if (std::strcmp(name, "root") == 0 || std::strcmp(name, "other") == 0) {
        (void)std::snprintf(buffer, size, "%s", name);
        entry->pw_name = buffer;
        *found = entry;
    }
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    DropCliLog();
    g_osCalls.recv = NextPacket;
    g_osCalls.getpwnam_r = FindAccount;
    g_osCalls.malloc = [](size_t bytes) { return bytes > kMallocMax ? nullptr : std::malloc(bytes); };
    g_next = data + 1;
    g_end = data + size;
    const int side = data[0] & 1;

    CliUdsComm comm;
    std::string text;
    std::string user;
    std::string action;
    const int result = comm.RecvString(text, CLI_NO_SOCKET, side, user, action);

    Require(result == CLI_OK || result == CLI_FAIL || result == CLI_RECV_TRANSMISSION_ERROR ||
            result == CLI_USER_PERMISSION_ERROR);
    Require(result == CLI_OK || text.empty());
    Require(text.size() <= CLI_MSG_LEN_MAX && user.size() <= CLI_USER_NAME_SIZE &&
            action.size() <= CLI_ACTION_NAME_SIZE);
    Require(text.empty() || side != CLI_SERVER_SIDE || user == "root");
    return 0;
}
