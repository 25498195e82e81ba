/**
 * @file ConfigCmd.h
 * @brief "show config", "change config": the two switches.
 */
#ifndef CLI_CONFIG_CMD_H
#define CLI_CONFIG_CMD_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "cli/server/BaseCommand.h"
#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API ConfigCmd : public BaseCommand {
public:
    /** Puts a new value to work. @return 0, or the store gets the old value back. */
    using Handler = std::function<int(const std::string &key, uint32_t value)>;

    ConfigCmd();
    int Exec(std::string param, std::string &output) override;

    void Init();
    int ChangeConfig(std::string &output);
    int ShowConfig(std::string &output);
    int ChangeSwitchConfig(const std::string &key, const std::string &valueText, const Handler &handler);
    /** @return "on", "off", or "internal error". */
    std::string GetSwitchConfigStrVal(uint32_t value);
    /** @retval -1  Neither "on" nor "off". */
    int GetSwitchConfigIntVal(const std::string &key, const std::string &text, uint32_t &value);
    int CliSetFeatureSwitchConfig(const std::string &key, uint32_t value);
    int CliSetTakeOverSwitchConfig(const std::string &key, uint32_t value);
    int CliSetDprSmartSwitchConfig(uint32_t value);
    int CliSetSlowDiskDetectSwitchConfig(uint32_t value);

private:
    std::map<std::string, Handler> m_handlers;
};

} // namespace CORVANE_CLI

#endif
