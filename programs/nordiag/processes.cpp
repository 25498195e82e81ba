#include "processes.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "nordiagnose_socket_name.h"

namespace fs = std::filesystem;

namespace {

constexpr int kStatePatienceMs = 2000;

std::vector<fs::path> EntriesOf(const fs::path &folder)
{
    std::vector<fs::path> entries;
    std::error_code failure;
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end; entry.increment(failure)) {
        entries.push_back(entry->path());
    }
    return entries;
}

/** Where processes of this user, and for root those of all users, have their sockets. */
std::set<fs::path> SocketFolders()
{
    const char *named = std::getenv(nordiag::kFolderVariable);
    if (named != nullptr && *named != '\0') {
        return {named};
    }
    const std::string own = std::to_string(geteuid());
    std::set<fs::path> folders = {nordiag::kSystemFolder, "/run/user/" + own + "/nordiag", "/tmp/nordiag-" + own};
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/') {
        folders.insert(fs::path(runtime) / "nordiag");
    }
    if (geteuid() == 0) {
        for (const fs::path &user : EntriesOf("/run/user")) {
            folders.insert(user / "nordiag");
        }
        for (const fs::path &service : EntriesOf("/run")) { // each service with a runtime directory of its own
            folders.insert(service / "nordiag");
        }
        for (const fs::path &entry : EntriesOf("/tmp")) {
            if (entry.filename().string().rfind("nordiag-", 0) == 0) {
                folders.insert(entry);
            }
        }
    }
    return folders;
}

std::string UserName(uid_t user)
{
    const passwd *account = getpwuid(user);
    return account != nullptr ? account->pw_name : std::to_string(user);
}

std::string StateOf(const Answer &answer)
{
    switch (answer.outcome) {
    case Answer::Outcome::DONE:
        return answer.words.size() >= 3 && answer.words[2] != "0" ? "busy" : "ready";
    case Answer::Outcome::REFUSED:
        return answer.refusal == nordiag::Refusal::BUSY ? "busy" : answer.problem;
    case Answer::Outcome::SILENT:
        return "silent";
    default:
        return answer.problem;
    }
}

/** A folder that processes of its owner have their sockets in. It stays the same one, whatever its path leads to. */
class SocketFolder {
public:
    explicit SocketFolder(fs::path path)
        : path_(std::move(path)), fd_(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))
    {
        struct stat status {};
        if (fd_ >= 0 && fstat(fd_, &status) == 0) {
            owner_ = status.st_uid;
            counts_ = geteuid() == 0 || owner_ == geteuid();
        }
    }
    ~SocketFolder()
    {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }
    SocketFolder(const SocketFolder &) = delete;
    SocketFolder &operator=(const SocketFolder &) = delete;

    [[nodiscard]] std::vector<fs::path> Entries() const { return counts_ ? EntriesOf(path_) : std::vector<fs::path>(); }
    [[nodiscard]] uid_t Owner() const { return owner_; }
    [[nodiscard]] bool HasSocket(const std::string &file, ino_t &inode) const
    {
        struct stat status {};
        if (fstatat(fd_, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(status.st_mode) ||
            status.st_uid != owner_) {
            return false;
        }
        inode = status.st_ino;
        return true;
    }
    /** Only the owner may: in the folder of another user nothing is root's to remove. */
    void Remove(const std::string &file) const
    {
        if (owner_ == geteuid()) {
            (void)unlinkat(fd_, file.c_str(), 0);
        }
    }

private:
    fs::path path_;
    int fd_;
    uid_t owner_ = 0;
    bool counts_ = false;
};

/** @return false if nobody is there who counts. */
bool Examine(const SocketFolder &folder, const std::string &file, Process &process)
{
    ino_t before = 0;
    ino_t after = 0;
    if (!folder.HasSocket(file, before)) {
        return false;
    }
    const Answer answer = Ask(process.peer, {nordiag::FrameType::STATE, {}, false, kStatePatienceMs, nullptr});
    if (answer.outcome == Answer::Outcome::DESERTED) {
        // A new process of this number may have put its own socket here just now.
        if (folder.HasSocket(file, after) && after == before) {
            folder.Remove(file);
        }
        return false;
    }
    process.user = UserName(process.peer.user);
    process.state = StateOf(answer);
    return answer.outcome != Answer::Outcome::STRANGER;
}

template <typename Fits>
std::vector<Process> Find(Fits fits)
{
    std::vector<Process> found;
    for (const fs::path &path : SocketFolders()) {
        const SocketFolder folder(path);
        for (const fs::path &entry : folder.Entries()) {
            const std::string file = entry.filename();
            std::string_view name;
            Process process;
            if (!nordiag::ParseSocketName(file, process.id, name)) {
                continue;
            }
            process.name = name;
            process.peer = {entry, folder.Owner()};
            if (fits(process) && Examine(folder, file, process)) {
                found.push_back(process);
            }
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Process &a, const Process &b) { return a.id != b.id ? a.id < b.id : a.name < b.name; });
    return found;
}

} // namespace

std::vector<Process> DiagnosedProcesses()
{
    return Find([](const Process &) { return true; });
}

std::vector<Process> ProcessesThatFit(const std::string &numberOrName)
{
    std::vector<Process> found = Find([&](const Process &p) { return std::to_string(p.id) == numberOrName; });
    return !found.empty() ? found : Find([&](const Process &p) { return p.name == numberOrName; });
}
