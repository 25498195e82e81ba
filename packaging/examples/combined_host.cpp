// A process with other work that has the library in it (start mode 0), and asks it about its disks.
//
//   combined_host
//
// The prefix is the folder above the one that libnordiagnose.so was loaded from. Its folder named config must exist and
// be writable. Any number of such processes may run on a prefix, but none beside corvaned.
#include <csignal>
#include <cstdio>
#include <ctime>

#include "config/corvane_prefix_path.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "init/corvane_init.h"

namespace {

/** The host's own work, here: telling which disks there are. */
void Work()
{
    for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
        DiskMgrObj disk{};
        if (DiskBaseInfoCliGet(id, &disk, sizeof(disk)) == 0) {
            std::printf("disk %u is online\n", id);
        }
    }
    std::printf("work done\n");
    (void)std::fflush(stdout);
}

} // namespace

int main()
{
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGINT);
    (void)sigprocmask(SIG_BLOCK, &signals, nullptr); // before the first thread, so that all inherit it

    if (const uint32_t status = InitCorvane(CORVANE_START_COMBINED); status != 0) {
        (void)std::fprintf(stderr, "start failed with status %u\n", status);
        return 1;
    }
    std::printf("started on %s\n", GetPrefixPath());
    const timespec period{5, 0};
    do {
        Work();
    } while (sigtimedwait(&signals, nullptr, &period) < 0);
    return 0;
}
