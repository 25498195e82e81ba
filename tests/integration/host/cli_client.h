/**
 * @file cli_client.h
 * @brief A client of the management socket that builds its packets from bytes, and the answers that it gets.
 */
#ifndef HOST_CLI_CLIENT_H
#define HOST_CLI_CLIENT_H

#include <cstdint>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <vector>

#include "drm_fixture.h"

inline constexpr const char *kCliLogFolder = "/var/log/corvane_super/cli_log";

inline constexpr int kCliPermission = 0x40036901;
inline constexpr int kCliFormat = 0x40036904;
inline constexpr int kCliUnknown = 0x4003690B;
inline constexpr int kCliExecFailed = 0x4003690C;
inline constexpr int kCliBusy = 0x4003690D;
inline constexpr int kCliSlowConfig = 0x4003690E;
inline constexpr int kCliNoDisk = 0x40036910;
inline constexpr int kCliDprParam = 0x40036911;
inline constexpr int kCliLifeParam = 0x40036912;

/** What stands in a packet; what a receiver must not look at is filled with noise. */
struct CliPacket {
    uint8_t count = 1;
    uint8_t index = 0;
    uint32_t total = 0;
    std::string user = "root";
    std::string action = "show";
    std::string piece;

    std::string Bytes() const;
};

/** Head of 40 bytes of noise, text and its terminator. */
std::string CliImage(const std::string &text);
std::string CliRequestText(const std::string &agrs, const std::string &cmd = "any");
/** A request in one packet. */
std::string CliRequest(const std::string &agrs, const std::string &action, const std::string &user = "root");

/** A connection to the management socket. */
class CliSocket {
public:
    explicit CliSocket(const std::string &path);
    ~CliSocket();
    CliSocket(const CliSocket &) = delete;
    CliSocket &operator=(const CliSocket &) = delete;

    int Error() const { return error_; } /**< errno of the connect, 0 if it stands */
    /** Write all bytes with one call. @return whether the peer was there. */
    bool Send(const std::string &bytes) const;
    /** Wait until the peer has taken what was written. */
    bool WaitUntilRead() const;
    /** Everything up to the end of the connection; a test fails that waits longer than this. */
    std::string ReadAll(int seconds = 100) const;
    void CloseWriting() const;

private:
    int error_ = 0;
    int fd_;
};

/**
 * Send a request on a connection of its own, again while the server tells that it is at work: the request before stands
 * in its count for a moment after its answer. @return the answer's bytes; @p error is errno of the connect.
 */
std::string CliExchange(const std::string &path, const std::vector<std::string> &packets, int &error);

/** An answer as its reader sees it; the text as it stands in the document. */
struct CliAnswer {
    bool closed = false; /**< no byte came */
    int code = 0;
    std::string text;
    std::string action;

    bool operator==(const CliAnswer &) const = default;
};
std::ostream &operator<<(std::ostream &out, const CliAnswer &answer);
inline const CliAnswer kCliClosed{true, 0, "", ""};

/** Take an answer of one packet apart; every byte that is fixed is compared. */
CliAnswer CliParse(const std::string &raw, const std::string &sender = "root");
/** The document of an answer of one packet. */
std::string CliDocument(const std::string &raw, const std::string &sender = "root");

/** A setting file with every key. */
std::string CliConfig(int featureSwitch, int takeOver = 0);

/** A started library with disks and settings, and its management socket. */
class CliTest : public DrmTest {
protected:
    void SetUp() override;
    /** Start with this setting file. */
    void StartWith(const std::string &config);
    /** Start with collection off, for disks that the test puts into the store itself. */
    void StartForDisks();
    std::string SocketPath() const { return prefix_ + "/config/CLI_UDS.unix"; }
    std::string ConfigPath() const { return prefix_ + "/config/corvane_config.json"; }
    /** The answer to a request whose head names its first word. */
    CliAnswer Ask(const std::string &agrs) const;
    CliAnswer Ask(const std::string &agrs, const std::string &action) const;
    std::string AskRaw(const std::string &bytes) const;
    /** Number under a section of the setting file on disk; -1 if there is none. */
    int Saved(const std::string &section, const std::string &key) const;
    int Saved(const std::string &key) const { return Saved("", key); }
};

/** Lines of the log that end in this text behind their head. */
std::vector<std::string> CliLogLines(const std::string &text, const std::string &folder = kCliLogFolder);
/** Wait for such a line. */
bool WaitForCliLog(const std::string &text, size_t count = 1, const std::string &folder = kCliLogFolder);

/** A process of another user that sends one request when told to. Start it before the library's threads. */
class CliPeer {
public:
    CliPeer(uid_t uid, gid_t gid, const std::vector<gid_t> &groups, const std::string &socketPath,
            const std::string &request);
    ~CliPeer();
    CliPeer(const CliPeer &) = delete;
    CliPeer &operator=(const CliPeer &) = delete;

    /** Let it go. @return "errno N" of its connect, or what it read. */
    std::string Go();

private:
    pid_t pid_;
    int go_;
    int result_;
};

/** More accounts for this process and its children. */
void AddAccounts(const std::string &passwd, const std::string &group);

#endif
