/**
 * @file connection.h
 * @brief One request to a diagnosed process and its answer.
 */
#ifndef NORDIAG_CONNECTION_H
#define NORDIAG_CONNECTION_H

#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

#include "nordiagnose_protocol.h"

struct Answer {
    enum class Outcome {
        DONE,      ///< result says what the command returned
        REFUSED,   ///< refusal and problem say why
        DESERTED,  ///< nobody listens: the process has ended
        STRANGER,  ///< a process of another user listens; it was asked nothing
        FAILED,    ///< problem says why
        SILENT,    ///< no answer in the time given
        ABANDONED, ///< on the user's request
    };
    Outcome outcome = Outcome::FAILED;
    int result = 0;
    nordiag::Refusal refusal{};
    std::string problem;            ///< on one line, without control characters
    std::vector<std::string> words; ///< the same
};

/** Whom to ask. */
struct Peer {
    std::string socket;
    uid_t user = 0; ///< whose process must listen there
};

struct Request {
    nordiag::FrameType type{};
    std::vector<std::string> words;
    bool printsOutput = false; ///< to standard output; else it is dropped
    int patienceMs = -1;       ///< for the whole exchange; -1: as long as it takes
    /** Set by a handler of SIGINT; may be null. SIGINT is blocked outside the waiting. */
    volatile std::sig_atomic_t *abandon = nullptr;
};

/** The words cannot be sent as one request. */
bool IsTooLong(const std::vector<std::string> &words);

/**
 * Output is taken as it comes and kept until standard output takes it, so a pager does not hold the process up. A
 * terminal gets it without control characters.
 */
Answer Ask(const Peer &peer, const Request &request);

#endif
