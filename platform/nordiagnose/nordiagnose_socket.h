/**
 * @file nordiagnose_socket.h
 * @brief The debug shell's listening socket and its file. C++ sources only.
 *
 * The file stands in the first of these folders that can be used: what NORDIAG_DIR says, and then nothing else;
 * /run/nordiag; $XDG_RUNTIME_DIR/nordiag; /tmp/nordiag-UID. A folder is used if it belongs to the process's user and
 * nobody else may enter it; a missing one is made so.
 */
#ifndef NORDIAGNOSE_SOCKET_H
#define NORDIAGNOSE_SOCKET_H

#include <array>
#include <sys/types.h>
#include <sys/un.h>

namespace nordiag {

/** Standard error says so, once a process: its host starts all the same. */
void TellNoDebugShell(const char *place, const char *problem) noexcept;

class ListeningSocket {
public:
    ListeningSocket() noexcept = default;
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;

    /**
     * Removes what ended processes left in the folder, then listens. @return false if not; standard error says why,
     * once a process.
     */
    [[nodiscard]] bool Open(int processId, const char *agentName) noexcept;
    [[nodiscard]] int Fd() const noexcept { return fd_; }
    /** Removes the file, if it is still this socket's. */
    void RemoveFile() noexcept;
    /** Stops listening, for the thread that accepts: clients that wait to be accepted are cut off. */
    void Close() noexcept;

private:
    [[nodiscard]] bool Listen(const char *folder, const char *file) noexcept;

    int fd_ = -1;
    std::array<char, sizeof(sockaddr_un::sun_path)> path_{};
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace nordiag

#endif
