#include "processes.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "connection.h"
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

/** @return false if nobody is there. */
bool Examine(Process &process)
{
    struct stat before {};
    struct stat after {};
    if (lstat(process.socket.c_str(), &before) != 0 || !S_ISSOCK(before.st_mode)) {
        return false;
    }
    const Answer answer = Ask(process.socket, {nordiag::FrameType::STATE, {}, false, kStatePatienceMs, nullptr});
    if (answer.outcome == Answer::Outcome::DESERTED) {
        // A new process of this number may have put its own socket here just now.
        if (lstat(process.socket.c_str(), &after) == 0 && after.st_ino == before.st_ino) {
            (void)unlink(process.socket.c_str());
        }
        return false;
    }
    process.user = UserName(answer.user != static_cast<uid_t>(-1) ? answer.user : before.st_uid);
    process.state = StateOf(answer);
    return true;
}

template <typename Fits>
std::vector<Process> Find(Fits fits)
{
    std::vector<Process> found;
    for (const fs::path &folder : SocketFolders()) {
        for (const fs::path &entry : EntriesOf(folder)) {
            const std::string file = entry.filename();
            std::string_view name;
            Process process;
            if (!nordiag::ParseSocketName(file, process.id, name)) {
                continue;
            }
            process.name = name;
            process.socket = entry;
            if (fits(process) && Examine(process)) {
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
