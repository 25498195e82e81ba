/**
 * @file CliResultCode.h
 * @brief What the management commands answer: the numbers that stand in a response and in the error catalogue.
 */
#ifndef CLI_RESULT_CODE_H
#define CLI_RESULT_CODE_H

namespace CORVANE_CLI {

constexpr int CLI_OK = 0;
constexpr int CLI_FAIL = -1; /**< a failure without a number of its own */

constexpr int CLI_USER_PERMISSION_ERROR = 0x40036901;   /**< peer not allowed, or packet heads differ */
constexpr int CLI_SOCKET_CLOSED_ERROR = 0x40036903;     /**< the peer closed the socket during a send */
constexpr int CLI_COMMAND_FORMAT_ERROR = 0x40036904;    /**< bad action, missing key, bad number */
constexpr int CLI_SEND_DATA_EXCEED = 0x40036905;        /**< text too long */
constexpr int CLI_RECV_TRANSMISSION_ERROR = 0x40036906; /**< receive failed */
constexpr int CLI_ERROR_NOT_FOUND = 0x40036907;         /**< empty list of errors, or unknown number */
constexpr int CLI_COMMAND_PARAM_INVALID = 0x4003690B;   /**< unknown command */
constexpr int CLI_COMMAND_EXEC_FAILED = 0x4003690C;
constexpr int CLI_TASK_MAX_ERROR = 0x4003690D; /**< another command is in progress */
constexpr int CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID = 0x4003690E;
constexpr int CLI_DB_ID_NOT_EXIST = 0x40036910; /**< no such disk */
constexpr int CLI_DPR_SMART_CONFIG_PARAM_INVALID = 0x40036911;
constexpr int CLI_DISKLIFE_PRE_PARAM_INVALID = 0x40036912;

constexpr int CLI_MULTI_ERROR_CODE = 1111111111; /**< several errors in one message */

} // namespace CORVANE_CLI

#endif
