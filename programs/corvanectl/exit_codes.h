/**
 * @file exit_codes.h
 * @brief What corvanectl's exit status says. Scripts rely on the numbers.
 */
#ifndef CORVANECTL_EXIT_CODES_H
#define CORVANECTL_EXIT_CODES_H

enum ExitCode {
    EXIT_CODE_OK = 0,            /**< the server answered with code 0; a watch was ended */
    EXIT_CODE_OTHER = 1,         /**< an answer that cannot be read, no memory, standard output closed */
    EXIT_CODE_USAGE = 2,         /**< bad command line; nothing was sent */
    EXIT_CODE_NO_CONNECTION = 3, /**< nobody listens, or the connection ended before the answer */
    EXIT_CODE_NO_PERMISSION = 4, /**< this user may not do that */
    EXIT_CODE_REFUSED = 5,       /**< the server answered with a code other than 0 */
    EXIT_CODE_NO_ANSWER = 6,     /**< no answer in the time given, or busy all the time */
};

#endif
