/**
 * @file ErrorCode.h
 * @brief Turns result numbers into causes and suggestions, from the catalogue "config/error_en.xml" below the prefix.
 *
 * The catalogue is filled once and has no lock: one thread loads it.
 */
#ifndef CLI_ERROR_CODE_H
#define CLI_ERROR_CODE_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API ErrorCode {
public:
    static constexpr size_t MESSAGE_SIZE = 2048; /**< a longer text becomes empty */

    ErrorCode(int code, std::string reason, std::string suggestion);

    /** @return the catalogue, loaded at the first call. */
    static std::map<int, ErrorCode> &GetErrorCode();
    /** @brief Load it; a file that is missing is an empty one. @retval -1  The path does not fit. */
    static int LoadConfigFile();
    /** @return cause and suggestion, with "%s" for the parameter. */
    std::string GetMessageTemp() const;
    /** @return the same with the parameter in it. */
    std::string GetMessage(const std::string &param) const;
    /** @brief GetMessage(), also printed to standard output. */
    std::string PrintMessage(const std::string &param) const;
    /** @brief Print and return the message of a number; empty for an unknown one. */
    static std::string PrintErrorCode(int code, const std::string &param);
    /**
     * @brief One text for several errors, each with its parameter.
     * @return the number of the only one, CLI_MULTI_ERROR_CODE, or CLI_ERROR_NOT_FOUND.
     */
    static int GetMessage(std::vector<std::pair<int, std::string>> &errors, std::string &out);

    static std::map<int, ErrorCode> m_errorCode;
    static bool m_hasInit;

private:
    int m_code;
    std::string m_reason;
    std::string m_suggestion;
    bool m_hasParam = false;
};

/** @return @p format with its one "%s" replaced; empty for any other percent sequence, or above 2047 characters. */
CORVANE_API std::string Format(const std::string &format, const std::string &param);

} // namespace CORVANE_CLI

#endif
