/**
 * @file XmlModule.h
 * @brief The XML documents of requests and responses. No state; any thread.
 */
#ifndef CLI_XML_MODULE_H
#define CLI_XML_MODULE_H

#include <mxml.h>
#include <string>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

class CORVANE_API XmlModule {
public:
    XmlModule();
    ~XmlModule(); // NOLINT(performance-trivially-destructible): hosts call it by name

    static constexpr size_t CMD_LEN_MAX = 0x2000000;
    static constexpr size_t PARAM_LEN_MAX = 0x100000;

    /** @brief A request. @param param Action, command and pairs, separated by blanks. @return empty on failure. */
    std::string CliCMDtoXml(const std::string &cmd, const std::string &param);
    /** @brief A response. @param text What is printed, then " errorCode=" and the number. @return empty on failure. */
    std::string SvCMDtoXml(const std::string &text);
    /** @return the text of the root's child of this name; empty if there is none. */
    std::string AnalysisXml(const std::string &xml, const std::string &key);
    /** @brief Print a tree into @p xmlLen bytes, with its terminator; what does not fit is cut. */
    std::string ToString(int xmlLen, mxml_node_t *node);
};

} // namespace CORVANE_CLI

#endif
