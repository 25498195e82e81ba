#include "mount_namespace.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>

namespace {

std::string Failure(const std::string &what)
{
    return what + ": " + std::strerror(errno);
}

/** Puts a copy of an account file with one more line in its place. */
bool BindWithLine(const std::string &path, const std::string &copy, const std::string &name, const std::string &line)
{
    std::ifstream in(path);
    std::ofstream out(copy);
    std::string text;
    while (std::getline(in, text)) {
        if (text.rfind(name + ":", 0) != 0) {
            out << text << '\n';
        }
    }
    out << line << '\n';
    out.close();
    return out && mount(copy.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

} // namespace

std::string EnterPrivateMounts(const std::string &keep)
{
    if (unshare(CLONE_NEWNS) != 0) {
        return Failure("a mount namespace needs root");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return Failure("private mounts");
    }
    // The kept folder may lie below one of those that are about to be covered.
    if (mount("tmpfs", "/mnt", "tmpfs", 0, nullptr) != 0) {
        return Failure("tmpfs on /mnt");
    }
    std::filesystem::create_directory("/mnt/keep");
    if (mount(keep.c_str(), "/mnt/keep", nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return Failure("bind of " + keep);
    }
    for (const char *folder : {"/tmp", "/var/tmp", "/var/log"}) {
        if (mount("tmpfs", folder, "tmpfs", 0, "mode=1777") != 0) {
            return Failure(std::string("tmpfs on ") + folder);
        }
    }
    std::error_code failure;
    std::filesystem::create_directories(keep, failure);
    if (mount("/mnt/keep", keep.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return Failure("bind back of " + keep);
    }
    if (!BindWithLine("/etc/passwd", "/mnt/passwd", "corvane_user",
                      "corvane_user:x:64901:64901::/nonexistent:/usr/sbin/nologin") ||
        !BindWithLine("/etc/group", "/mnt/group", "corvane_group", "corvane_group:x:64901:")) {
        return Failure("accounts");
    }
    (void)setenv("NORDIAG_DIR", "/tmp/nordiag", 1); // the debug shell's sockets; /run is everybody's
    return "";
}
