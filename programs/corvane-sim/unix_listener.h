// A listening UNIX stream socket and its file.
#pragma once

#include <string>
#include <sys/types.h>
#include <sys/un.h>

namespace corvane_sim {

/** @throws std::runtime_error for a path that is empty or too long. */
sockaddr_un UnixAddressOf(const std::string &path);

class UnixListener {
public:
    explicit UnixListener(std::string path) : path_(std::move(path)) {}
    ~UnixListener() { Close(false); }
    UnixListener(const UnixListener &) = delete;
    UnixListener &operator=(const UnixListener &) = delete;

    /** Bind and listen. A file left by a program that is gone is replaced; one that is served is not touched. */
    void Open();
    /** @param keepFile leave the file: clients then find a socket that nobody serves. */
    void Close(bool keepFile);
    [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }
    [[nodiscard]] int Fd() const { return fd_; }
    [[nodiscard]] const std::string &Path() const { return path_; }
    /** The next waiting connection, non-blocking; -1 with errno set if there is none. */
    [[nodiscard]] int Accept() const;

private:
    void RemoveStaleFile() const;
    bool RememberFile();
    void RemoveOwnFile() const;

    std::string path_;
    int fd_ = -1;
    dev_t device_ = 0; // of the file made here: another program's file at the same path is not ours to remove
    ino_t inode_ = 0;
};

} // namespace corvane_sim
