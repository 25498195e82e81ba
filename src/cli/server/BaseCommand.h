/**
 * @file BaseCommand.h
 * @brief What every command is made of. One object per request, used by one thread at a time.
 */
#ifndef CLI_BASE_COMMAND_H
#define CLI_BASE_COMMAND_H

#include <map>
#include <string>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

/** A request on its way to the worker. */
struct CmdData {
    std::string name;  /**< key of the registry */
    std::string param; /**< "action=... key=value ... userName=..." */
    int clientFd = -1; /**< where the answer goes */
};

class CORVANE_API BaseCommand {
public:
    virtual ~BaseCommand();
    /** @brief Run. @param[out] output What is shown. @return 0, -1 or a number of CliResultCode.h. */
    virtual int Exec(std::string param, std::string &output) = 0;
    /** @brief Fill the map of parameters; a key keeps its first value. @param[in,out] param Cut down. @return 0 */
    virtual int ParseParam(std::string &param);

    void SetData(const CmdData &data);
    CmdData GetData();
    /** @return the parameter "action". */
    std::string GetAction();
    /** @return whether the text is a decimal number of 1 to 7 digits without leading zeros. */
    bool IsStringFormatCorrect(std::string &text);

protected:
    std::map<std::string, std::string> m_params;
    std::string m_text; /**< unused; keeps the place of what hosts' commands have there */
    CmdData m_data;
};

/** Ends the worker. */
class CORVANE_API ExitCommand : public BaseCommand {
public:
    int Exec(std::string param, std::string &output) override;
};

} // namespace CORVANE_CLI

#endif
