/**
 * @file exit_codes.h
 * @brief What corvaned's exit status says. Service files and scripts rely on the numbers.
 */
#ifndef CORVANED_EXIT_CODES_H
#define CORVANED_EXIT_CODES_H

enum ExitCode {
    EXIT_CODE_OK = 0,              /**< ended by SIGTERM or SIGINT, or --help or --version */
    EXIT_CODE_START_FAILED = 1,    /**< the library did not start, or the text of --help or --version cannot be written;
                                        standard error says what to do */
    EXIT_CODE_USAGE = 2,           /**< bad command line */
    EXIT_CODE_ALREADY_RUNNING = 3, /**< another process holds this prefix */
};

#endif
