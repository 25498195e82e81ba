/**
 * @file scripted_server.h
 * @brief A management server that answers what a test says, over the same packets.
 */
#ifndef SCRIPTED_SERVER_H
#define SCRIPTED_SERVER_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Reply {
    enum class Kind {
        ANSWER,  ///< code and text
        RAW,     ///< text is sent as it is, in place of a document
        CLOSE,   ///< no answer
        STALL,   ///< no answer, and the connection stays open
        PARTIAL, ///< the head of a packet that promises two, and the connection stays open
        BROKEN,  ///< the same, and the connection ends
    };
    Kind kind = Kind::ANSWER;
    int code = 0;
    std::string text = "null";
};

class ScriptedServer {
public:
    using Script = std::function<Reply(const std::string &request)>;

    ScriptedServer(std::string path, Script script);
    /** Ends it; its socket file stays, as that of a killed server does. */
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    /** The requests so far. */
    std::vector<std::string> Requests();
    /** Waits for so many. @return false if they do not come. */
    bool WaitForRequests(size_t count);
    /** The action in the head of the last request. */
    std::string LastAction();

private:
    void Serve();
    void ServeClient(int client);

    std::string path_;
    Script script_;
    int listener_ = -1;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> requests_;
    std::string lastAction_;
    std::vector<int> stalled_;
    std::thread thread_;
};

#endif
