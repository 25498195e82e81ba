/**
 * @file exit_codes.h
 * @brief What nordiag's exit status says. Scripts rely on the numbers.
 */
#ifndef NORDIAG_EXIT_CODES_H
#define NORDIAG_EXIT_CODES_H

enum ExitCode {
    EXIT_CODE_OK = 0,             /**< done; of a shell: the last command was */
    EXIT_CODE_COMMAND_FAILED = 1, /**< the command returned something other than 0 */
    EXIT_CODE_USAGE = 2,          /**< bad command line */
    EXIT_CODE_NO_PROCESS = 3,     /**< no diagnosed process fits, or several do */
    EXIT_CODE_NO_ANSWER = 4,      /**< the process refuses, does not answer, or ended meanwhile; or standard output
                                       cannot be written to */
    EXIT_CODE_NO_GROUP = 5,       /**< it has no such command group, or no help for it */
    EXIT_CODE_ABANDONED = 130,    /**< Ctrl-C; the command runs on in the process */
};

#endif
