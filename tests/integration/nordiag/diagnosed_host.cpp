/**
 * @file diagnosed_host.cpp
 * @brief A process with debug commands: diagnosed_host NAME [NAME...] registers itself under each name, the second and
 *        later ones with made-up process numbers, and lives until its standard input ends.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "platform/nordiagnose.h"

namespace {

int Disk(int argc, char **argv)
{
    if (argc < 2) {
        (void)DBG_ShowUsageAndErrMsg("Which command?");
        return -1;
    }
    const std::string word = argv[1];
    if (word == "list") {
        (void)DBG_Print("sda\nsdb\n");
        return 0;
    }
    if (word == "words") {
        for (int i = 2; i < argc; i++) {
            (void)DBG_Print("[%s]", argv[i]);
        }
        (void)DBG_Print("\n");
        return 0;
    }
    if (word == "fail") {
        return argc > 2 ? std::atoi(argv[2]) : 1;
    }
    if (word == "much") {
        const std::string line(99, 'm');
        for (int i = 0; i < 20000; i++) {
            (void)DBG_Print("%s\n", line.c_str());
        }
        (void)std::printf("printed\n");
        (void)std::fflush(stdout);
        return 0;
    }
    if (word == "hang") {
        (void)DBG_Print("hanging\n");
        while (DBG_Print(".") > 0) { // until the client has gone
            (void)usleep(1000);
        }
        (void)std::printf("left\n");
        (void)std::fflush(stdout);
        return 0;
    }
    if (word == "die") {
        _exit(0);
    }
    (void)DBG_ShowUsageAndErrMsg("Unknown command!");
    return -1;
}

void DiskHelp(const char *name, int verbose)
{
    for (const char *command : {"list", "words", "fail", "much", "hang"}) {
        (void)DBG_Print("\t%s %s%s\n", name, command, verbose != 0 ? "\t:does it" : "");
    }
}

int Silent(int, char **)
{
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const DBG_CmdInfo disk = {"disk", "what the disks do", Disk, DiskHelp};
    const DBG_CmdInfo dish = {"dish", "quiet, without help", Silent, nullptr};
    if (DBG_RegCmd(&disk) != 0 || DBG_RegCmd(&dish) != 0) {
        return 1;
    }
    for (int i = 1; i < argc; i++) {
        if (DBG_DiagnoseAgentInit(i == 1 ? getpid() : 4000000 + i, argv[i]) != 0) {
            return 1;
        }
    }
    (void)std::printf("serving\n");
    (void)std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    for (int i = 1; i < argc; i++) {
        (void)DBG_DiagnoseAgentDestroy(i == 1 ? getpid() : 4000000 + i);
    }
    return 0;
}
