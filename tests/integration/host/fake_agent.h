/**
 * @file fake_agent.h
 * @brief An agent that the test serves itself, on the socket path that the library knows.
 */
#ifndef FAKE_AGENT_H
#define FAKE_AGENT_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/** What becomes of one connection after its request has been read. */
struct FakeReply {
    enum Kind {
        TEXT,   /**< written at once, then the connection ends */
        HALF,   /**< written at once, and the rest is kept back until the master gives up */
        CLOSE,  /**< the connection ends without a byte */
        SILENT, /**< nothing is written; whatever else comes is read until the master gives up */
    };
    Kind kind;
    std::string text;
};

class FakeAgent {
public:
    using Handler = std::function<FakeReply(const std::string &request)>;

    explicit FakeAgent(const std::string &path);
    ~FakeAgent();
    FakeAgent(const FakeAgent &) = delete;
    FakeAgent &operator=(const FakeAgent &) = delete;

    void On(const std::string &method, const Handler &handler);
    /** Answer @p method with the result member @p result in a proper envelope. */
    void Result(const std::string &method, const std::string &result);
    /** Answer @p method with these bytes. */
    void Bytes(const std::string &method, const std::string &text);

    /** Close each connection before a byte of it is read. */
    void RefuseAll() { refuse_ = true; }

    /** Requests of a method in order of arrival; of all methods if it is empty. */
    std::vector<std::string> Requests(const std::string &method = "") const;
    bool WaitForRequests(const std::string &method, size_t count, int seconds = 30) const;
    void ClearRequests();
    /** Close the listening socket and remove its file. */
    void Stop();

private:
    void Accept();
    void Serve(int fd);
    std::vector<std::string> RequestsLocked(const std::string &method) const;

    std::string path_;
    int listenFd_;
    int stopPipe_[2];
    mutable std::mutex lock_;
    mutable std::condition_variable arrived_;
    std::map<std::string, Handler> handlers_;
    std::vector<std::string> requests_;
    std::vector<std::thread> connections_;
    std::atomic<bool> refuse_{false};
    std::thread thread_;
};

#endif
