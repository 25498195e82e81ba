/**
 * @file nordiagnose_session.h
 * @brief Whose command runs on the calling thread, and the way of its output. C++ sources only.
 *
 * A session belongs to one thread at a time and has no lock.
 */
#ifndef NORDIAGNOSE_SESSION_H
#define NORDIAGNOSE_SESSION_H

#include <cstddef>
#include <string_view>

#include "nordiagnose_protocol.h"

namespace nordiag {

/** Sends to a client until it is gone or has taken nothing for five seconds; from then on output is dropped. */
class Session {
public:
    explicit Session(int socket) noexcept : socket_(socket) {}
    /** Keeps what is printed, up to @p size characters of it, instead of sending it. */
    Session(char *text, size_t size) noexcept : text_(text), capacity_(size) {}
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /** Output of a command. @return false if the client is lost. */
    bool Print(std::string_view text) noexcept;
    /** One frame. @return the same. */
    bool Send(FrameType type, const void *payload, size_t size) noexcept;
    bool End(int result) noexcept;
    bool Refuse(Refusal reason, std::string_view text) noexcept;
    /** The client has closed its end, or was given up. */
    [[nodiscard]] bool Lost() noexcept;
    [[nodiscard]] std::string_view Kept() const noexcept { return {text_, kept_}; }

private:
    int socket_ = -1;
    bool lost_ = false;
    char *text_ = nullptr;
    size_t capacity_ = 0;
    size_t kept_ = 0;
};

/** The session whose command runs on the calling thread, or null. */
[[nodiscard]] Session *CurrentSession() noexcept;

/** Makes a session the current one of the calling thread. */
class SessionScope {
public:
    explicit SessionScope(Session &session) noexcept;
    ~SessionScope();
    SessionScope(const SessionScope &) = delete;
    SessionScope &operator=(const SessionScope &) = delete;

private:
    Session *outer_;
};

/** How long a client may take nothing of what is sent to it. */
constexpr long kSendSeconds = 5;

} // namespace nordiag

#endif
