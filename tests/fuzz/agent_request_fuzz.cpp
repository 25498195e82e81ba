// Feeds any request to the kernel agent. Tools and SG_IO are replaced, so that no command runs.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_infra.h"

namespace {

void NoLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

std::FILE *FakePopen(const char *command, const char *)
{
    const char *text = "";
    if (std::strstr(command, "--version") != nullptr) {
        text = "lsblk from util-linux 2.38.1\n";
    } else if (std::strncmp(command, "lsblk", 5) == 0) {
        text = R"({"blockdevices":[{"name":"sda","type":"disk","vendor":"ATA","model":"M","wwn":"0x5","size":1}]})";
    } else {
        text = "SN1\n";
    }
    std::FILE *file = std::tmpfile();
    (void)std::fputs(text, file);
    std::rewind(file);
    return file;
}

int NoDevice(const char *, int)
{
    errno = ENXIO;
    return -1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    g_corvaneInfra.log = NoLog;
    g_osCalls.popen = FakePopen;
    g_osCalls.pclose = std::fclose;
    g_osCalls.open = NoDevice;
    g_osPaths = {.sys = "/nonexistent", .proc = "/nonexistent", .dev = "/nonexistent"};
    __atomic_store_n(&g_DCAK_DEBUG_SWITCH, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&g_dcakLinkErr, 0, __ATOMIC_RELAXED);

    const std::string request(reinterpret_cast<const char *>(data), size);
    char *text = nullptr;
    const uint32_t result = ParseReqAndResponse(request.c_str(), &text);
    const CJsonText owner(text);
    if ((result == 0) != (text != nullptr)) {
        std::abort();
    }
    if (text != nullptr && std::strncmp(text, R"({"jsonrpc":"2.0","id":)", 22) != 0) {
        std::abort();
    }
    return 0;
}
