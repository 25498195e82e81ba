#include "common/command_line.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <getopt.h>

std::string RefusedOption(char *const *argv, const char *letters)
{
    // Of a word with several letters the index still names the word before. Else it has passed the option, which is a
    // long one: of an unknown one there is no letter, and one that takes no value has a letter that is known.
    const bool isLetter = optopt > 0 && optopt <= UCHAR_MAX && std::strchr(letters, optopt) == nullptr;
    return isLetter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
}

std::string FlushOutput()
{
    errno = 0;
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    return failed ? std::string("standard output: ") + std::strerror(errno != 0 ? errno : EIO) : "";
}
