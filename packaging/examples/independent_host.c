/*
 * A process of the library's own (start mode 1): starts it on a prefix, lists the online disks until a signal comes.
 *
 *   independent_host [PREFIX]
 *
 * Only one process of this kind can run on a prefix; with corvaned running, give another one, which needs a folder
 * named config. The kernel agent should serve before the start.
 */
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "config/corvane_prefix_path.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "init/corvane_init.h"

static void ListDisks(void)
{
    static uint32_t ids[DISK_ONLINE_MAX];
    static char texts[DISK_ONLINE_MAX][DISK_SN_SIZE + 1];
    static DiskSnRef serials[DISK_ONLINE_MAX];
    uint32_t count = 0;
    uint32_t i;

    memset(texts, 0, sizeof(texts));
    for (i = 0; i < DISK_ONLINE_MAX; i++) {
        serials[i].len = sizeof(texts[i]);
        serials[i].buf = texts[i];
    }
    if (ListAllOnlineDisk(ids, serials, DISK_ONLINE_MAX, &count) != 0) {
        return;
    }
    printf("%u disks online\n", count);
    for (i = 0; i < count; i++) {
        printf("  %3u %s\n", ids[i], texts[i]);
    }
    (void)fflush(stdout);
}

int main(int argc, char **argv)
{
    const struct timespec period = {5, 0};
    sigset_t signals;
    uint32_t status;

    /* Before the first thread, so that all of them inherit it. */
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGINT);
    (void)sigprocmask(SIG_BLOCK, &signals, NULL);

    if (argc > 1 && SetPrefixPath(argv[1]) != 0) {
        return 1;
    }
    status = InitCorvane(CORVANE_START_INDEPENDENT);
    if (status != 0) {
        (void)fprintf(stderr, "start failed with status %u\n", status);
        return 1;
    }
    printf("started on %s\n", GetPrefixPath());
    do {
        ListDisks();
    } while (sigtimedwait(&signals, NULL, &period) < 0);
    return 0;
}
