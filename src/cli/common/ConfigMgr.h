/**
 * @file ConfigMgr.h
 * @brief XML files of settings: a tree, handles on nodes of it, and how it is written back.
 *
 * A ConfigMgr owns its tree; a ConfigNode is a handle and owns nothing. No locks: a tree belongs to one thread.
 */
#ifndef CLI_CONFIG_MGR_H
#define CLI_CONFIG_MGR_H

#include <mxml.h>
#include <string>
#include <vector>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

/** A list of nodes. An empty one is valid: every get gives the empty result, every set does nothing. */
class CORVANE_API ConfigNode {
public:
    ConfigNode();
    explicit ConfigNode(mxml_node_t *node);
    explicit ConfigNode(std::vector<mxml_node_t *> nodes);

    /** @return the first node's child elements of this name, in the order of their addresses. */
    ConfigNode Get(const std::string &name) const;
    int Size() const;
    /** @return a handle on one node; an empty one out of range. */
    ConfigNode operator[](int i) const;
    /** @return the nodes whose attribute has this value. */
    ConfigNode WithAttr(const std::string &name, const std::string &value);
    std::string GetAttr(const std::string &name) const;
    std::string GetString() const;
    /** @return whether the text is "true" in any case. */
    bool GetBool() const;
    /** @return the text as a decimal number; 0 for anything else. */
    int GetInt() const;
    /** @name Checked gets. @retval -1  Empty handle, another type, no text, or no such value. */
    /** @{ */
    int GetString(std::string &out) const;
    int GetInt(int &out) const;
    int GetBool(bool &out) const;
    /** @} */
    /** @name Sets on the first node. @return always 0. */
    /** @{ */
    int SetAttr(const std::string &name, const std::string &value);
    int SetString(const std::string &value);
    int SetInt(int value);
    int SetBool(bool value);
    /** Deletes it, and takes it out of the handle. */
    int Delete();
    /** @} */
    /** @return a new child element of the first node. */
    ConfigNode Create(const std::string &name);

private:
    std::vector<mxml_node_t *> m_nodes;
};

class CORVANE_API ConfigMgr {
public:
    ConfigMgr();
    ~ConfigMgr();
    ConfigMgr(const ConfigMgr &) = delete;
    ConfigMgr &operator=(const ConfigMgr &) = delete;

    /** @brief Load a file, unless a tree is loaded. @return 0, also if it does not parse; errno if it cannot be opened.
     */
    int ReadConfig(std::string path);
    /** @return a handle on the tree, which is made if there is none. */
    ConfigNode CreateConfig();
    /** @return a handle on the tree; an empty one if there is none. */
    ConfigNode GetConfig();
    /** @brief Write through a backup file, keeping the mode of the file that must exist. @see IntCfgSaveInner */
    int SaveConfig(std::string path) const;
    /** @brief Write into the file itself. @return 0 or errno. */
    int SaveConfigDirect(std::string path);
    void Release();

private:
    mxml_node_t *m_root = nullptr;
};

/** @brief Delete a node and all below it, first child first. */
CORVANE_API void MymxmlDelete(mxml_node_t *node);
/** @return the document with a line and an indentation for each element. */
CORVANE_API std::string XmlFormat(std::string text);
/** @return the text without blanks, tabs and line feeds outside of tags. */
CORVANE_API std::string XmlRmSpace(const std::string &text);
/** @brief Write one "<" with what goes before it. @param[in,out] depth  Elements that are open. */
CORVANE_API void XmlHandleLeftBracket(const std::string &text, size_t i, int &depth, std::string &out);
/** @return whether the two characters before are the end of an empty element. */
CORVANE_API bool IsXmlLastNodeInOneLine(const std::string &text, size_t i);
/** @return whether the "<" begins a closing tag. */
CORVANE_API bool IsXmlNodeEndStr(const std::string &text, size_t i);
/** @brief Write four blanks for each level; none for a negative depth. */
CORVANE_API void XmlAddSpace(int depth, std::string &out);
/** @return path + ".bak", to be freed with free(); null for a null path or above 1024 bytes. */
CORVANE_API char *InfCfgMakeBakPath(const char *path);
/** @brief Rename, the file in place giving its mode. @retval -1  It does not exist, or the system refused. */
CORVANE_API int InfCfgRename(const char *from, const char *to);
/** @brief Save a tree of at most 32767 bytes. @return 0, -1, or a negative errno. */
CORVANE_API int IntCfgSaveInner(mxml_node_t *node, const char *path);

} // namespace CORVANE_CLI

#endif
