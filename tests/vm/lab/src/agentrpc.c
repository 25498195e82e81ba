/* agentrpc: one JSON-RPC exchange with an agent, without the product's own transport.
 *   agentrpc SOCKET REQUEST     prints what the agent writes until it closes
 */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    struct sockaddr_un a = {.sun_family = AF_UNIX};
    char buf[65536];
    ssize_t n;
    int fd;
    if (argc != 3 || strlen(argv[1]) >= sizeof a.sun_path) {
        fprintf(stderr, "usage: agentrpc SOCKET REQUEST\n");
        return 2;
    }
    strcpy(a.sun_path, argv[1]);
    fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, (struct sockaddr *)&a, sizeof a)) {
        perror(argv[1]);
        return 1;
    }
    if (send(fd, argv[2], strlen(argv[2]), MSG_NOSIGNAL) < 0) {
        perror("send");
        return 1;
    }
    while ((n = read(fd, buf, sizeof buf)) > 0)
        fwrite(buf, 1, (size_t)n, stdout);
    putchar('\n');
    return n < 0;
}
