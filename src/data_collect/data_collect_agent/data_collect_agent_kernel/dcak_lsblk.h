/**
 * @file dcak_lsblk.h
 * @brief Running tools through a shell, and reading what lsblk prints: as JSON, or as a table where it is too old.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock. No time limit is set on a
 * command.
 */
#ifndef DCAK_LSBLK_H
#define DCAK_LSBLK_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/** Limit on the output of a list or version command, with the terminator. */
#define DCAK_CMD_OUTPUT_SIZE 15360u
/** Buffer for a version text, with the terminator. */
#define DCAK_VERSION_SIZE 10u
/** Labels that the table reader holds; columns behind them are dropped. */
#define DCAK_TABLE_LABEL_MAX 32u
/** Buffer for a label, with the terminator. */
#define DCAK_TABLE_LABEL_SIZE 20u
#define DCAK_LSBLK_NUM_LABELS 2u

/** Columns whose values are numbers, in lower case. */
extern CORVANE_API const char *const g_lsblkNumLabel[DCAK_LSBLK_NUM_LABELS];

/**
 * @brief Run a shell command and collect its output.
 *
 * The exit status is not looked at: a command that prints nothing succeeds with an empty output.
 * @param command     Must have passed CheckCmdStrIsSecure() in every part that comes from outside.
 * @param outputSize  Room at @p output in bytes.
 * @retval 0          The whole output, terminated.
 * @retval DCAK_FAIL  The command could not be started, or an argument is null or zero.
 * @return Otherwise the error of strncat_s(): the output is longer than the room. @p output is empty then.
 */
CORVANE_API uint32_t DcakExecCmd(const char *command, uint32_t outputSize, char *output) CORVANE_NOEXCEPT;

/**
 * @brief Run an lsblk list command in the best mode that the installed version has.
 * @param command       Command without an output mode, at most 511 characters with the " -J" that may be added.
 * @param[out] jsonOut  `{"blockdevices":[...]}`, owned by the caller; null on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t DcakExecLsblkCmd(const char *command, cJSON **jsonOut) CORVANE_NOEXCEPT;

/**
 * @brief Turn an lsblk table into the tree that its JSON mode would give.
 *
 * Member names are the header's labels as printed. An empty cell shifts the row's later values one label to the left.
 * @param[in,out] tableText  Cut into pieces by the call.
 * @param[out] jsonOut       `{"blockdevices":[...]}`, owned by the caller; null on failure.
 * @retval 0
 * @retval DCAK_FAIL  Null argument, a label of 20 characters or more, or no memory.
 */
CORVANE_API uint32_t DcakParseLsblkTable2Json(char *tableText, cJSON **jsonOut) CORVANE_NOEXCEPT;

/** @return 1 if the column with this label holds numbers, else 0. Case does not matter. */
CORVANE_API uint32_t DcakIsLabelNum(const char *label) CORVANE_NOEXCEPT;

/**
 * @brief Ask lsblk for its version.
 * @param[out] versionOut  DCAK_VERSION_SIZE bytes.
 * @retval 0
 * @retval DCAK_FAIL  There is no lsblk, or it does not tell.
 */
CORVANE_API uint32_t GetLsblkVersion(char *versionOut) CORVANE_NOEXCEPT;

/** @return 1 if @p version is @p wanted or later, else 0. Components are numbers between points, missing ones are 0. */
CORVANE_API uint32_t CompareVersionValid(const char *version, const char *wanted) CORVANE_NOEXCEPT;

/** @return 1 if lsblk is new enough to be used, from 2.23.2 up, else 0. */
CORVANE_API uint32_t CheckLsblkVersionValid(void) CORVANE_NOEXCEPT;

/** @return 1 if lsblk can print JSON as this agent uses it, from 2.24 up, else 0. */
CORVANE_API uint32_t CheckLsblkVersionJsonValid(void) CORVANE_NOEXCEPT;

/** @return 1 if the text can stand in a shell command; 0 for null, an empty text or one with a shell character. */
CORVANE_API uint32_t CheckCmdStrIsSecure(const char *text) CORVANE_NOEXCEPT;

/** @brief Replace the white space that ends the @p length bytes at @p text by zero bytes. */
CORVANE_API void EndTrim(char *text, uint32_t length) CORVANE_NOEXCEPT;

/**
 * @brief Cut a text at any of the characters of @p delimiters; empty tokens are left out.
 * @param maxTokens    Room at @p tokens; what stands behind the last one is dropped.
 * @param[out] tokens  Copies, to be freed by StrTokensFree().
 * @return Number of tokens; 0 also for a null argument or when there is no memory.
 */
CORVANE_API uint32_t StrSplit(const char *text, const char *delimiters, uint32_t maxTokens,
                              char **tokens) CORVANE_NOEXCEPT;

/** @brief Free what StrSplit() gave and set the entries to null. */
CORVANE_API void StrTokensFree(char **tokens, uint32_t count) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
