/**
 * @file server.h
 * @brief Requests to corvaned over its management socket, one connection each, and the answers.
 */
#ifndef CORVANECTL_SERVER_H
#define CORVANECTL_SERVER_H

#include <string>
#include <vector>

struct Answer {
    enum class Outcome {
        DONE,          ///< code 0; text is what was printed
        REFUSED,       ///< any other code; there may be a text
        NO_CONNECTION, ///< nobody listens, or the connection ended before the answer
        NO_PERMISSION, ///< this user may not do that, or not even connect
        NO_ANSWER,     ///< nothing in the time given
        BUSY,          ///< other commands were running all the time
        UNREADABLE,    ///< an answer that is none, or no memory
    };
    Outcome outcome = Outcome::NO_CONNECTION;
    int code = 0; ///< a code of the error catalogue; 0 if there is none
    std::string text;
    std::string problem; ///< where the outcome alone does not tell
};

struct Server {
    std::string socket;
    int timeoutSeconds = 0;
};

/** What stands for an answer whose text is none to this request. */
Answer Unreadable(const std::string &request);

/** One request: "ACTION COMMAND KEY=VALUE...". While the server is busy it is repeated, until the time is up. */
Answer Ask(const Server &server, const std::string &request);

/**
 * Several requests, over a few connections at a time: between two clients that come one after the other the server
 * pauses. An outcome that is neither DONE nor REFUSED ends it; the answers behind it may be missing then.
 */
std::vector<Answer> AskAll(const Server &server, const std::vector<std::string> &requests);

#endif
