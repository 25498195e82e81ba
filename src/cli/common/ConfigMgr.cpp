#include "cli/common/ConfigMgr.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "cli/common/XmlLoad.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

constexpr int kOk = 0;
constexpr int kFail = -1;

constexpr int kSaveBufferSize = 32768;
constexpr size_t kBackupPathMax = 1024;
constexpr std::string_view kBackupSuffix = ".bak";
constexpr int kIndent = 4;

constexpr const char *kTypeAttribute = "type";
constexpr const char *kTypeString = "string";
constexpr const char *kTypeInt = "int";
constexpr const char *kTypeBool = "bool";

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/** The text of a node whose type, if it has one, is this. @return null if there is none. */
const char *TypedText(const std::vector<mxml_node_t *> &nodes, const char *type)
{
    if (nodes.empty()) {
        return nullptr;
    }
    const char *present = mxmlElementGetAttr(nodes.front(), kTypeAttribute);
    if (present != nullptr && std::strcmp(present, type) != 0) {
        return nullptr;
    }
    return mxmlGetOpaque(nodes.front());
}

/** Sets type and text of the first node, if there is one. */
int SetTyped(const std::vector<mxml_node_t *> &nodes, const char *type, const char *text)
{
    if (nodes.empty()) {
        return kOk;
    }
    mxml_node_t *node = nodes.front();
    mxmlElementSetAttr(node, kTypeAttribute, type);
    mxml_node_t *child = mxmlGetFirstChild(node);
    while (child != nullptr && mxmlGetType(child) != MXML_OPAQUE) {
        child = mxmlGetNextSibling(child);
    }
    if (child != nullptr) {
        (void)mxmlSetOpaque(child, text);
    } else {
        (void)mxmlNewOpaque(node, text);
    }
    return kOk;
}

/** The text that is written for a tree; cut at the buffer's end. @return false without memory. */
bool SavedText(mxml_node_t *node, std::string &text)
{
    const MallocPtr<char> buffer(static_cast<char *>(g_osCalls.malloc(kSaveBufferSize)));
    if (buffer == nullptr) {
        return false;
    }
    buffer.get()[0] = '\0';
    mxmlSetWrapMargin(0); // of this thread; no line breaks of the saver's own
    (void)mxmlSaveString(node, buffer.get(), kSaveBufferSize, MXML_NO_CALLBACK);
    text = XmlFormat(buffer.get());
    return true;
}

/** Writes a text and closes the file. @return 0, or the errno of what failed first. */
int WriteAndClose(std::FILE *file, const std::string &text)
{
    int error = 0;
    if (g_osCalls.fwrite(text.data(), 1, text.size(), file) != text.size()) {
        error = errno != 0 ? errno : EIO;
    }
    if (g_osCalls.fclose(file) != 0 && error == 0) {
        error = errno != 0 ? errno : EIO;
    }
    return error;
}

} // namespace

ConfigNode::ConfigNode() = default;

ConfigNode::ConfigNode(mxml_node_t *node)
{
    if (node != nullptr) {
        m_nodes.push_back(node);
    }
}

ConfigNode::ConfigNode(std::vector<mxml_node_t *> nodes) : m_nodes(std::move(nodes)) {}

ConfigNode ConfigNode::Get(const std::string &name) const
{
    std::set<mxml_node_t *> children;
    if (!m_nodes.empty()) {
        for (mxml_node_t *child = mxmlGetFirstChild(m_nodes.front()); child != nullptr;
             child = mxmlGetNextSibling(child)) {
            const char *element = mxmlGetElement(child);
            if (element != nullptr && name == element) {
                children.insert(child);
            }
        }
    }
    return ConfigNode(std::vector<mxml_node_t *>(children.begin(), children.end()));
}

int ConfigNode::Size() const
{
    return static_cast<int>(m_nodes.size());
}

ConfigNode ConfigNode::operator[](int i) const
{
    return i >= 0 && i < Size() ? ConfigNode(m_nodes[static_cast<size_t>(i)]) : ConfigNode();
}

ConfigNode ConfigNode::WithAttr(const std::string &name, const std::string &value)
{
    std::vector<mxml_node_t *> nodes;
    std::copy_if(m_nodes.begin(), m_nodes.end(), std::back_inserter(nodes), [&](mxml_node_t *node) {
        const char *attribute = mxmlElementGetAttr(node, name.c_str());
        return attribute != nullptr && value == attribute;
    });
    return ConfigNode(std::move(nodes));
}

std::string ConfigNode::GetAttr(const std::string &name) const
{
    const char *attribute = m_nodes.empty() ? nullptr : mxmlElementGetAttr(m_nodes.front(), name.c_str());
    return attribute != nullptr ? attribute : "";
}

std::string ConfigNode::GetString() const
{
    const char *text = m_nodes.empty() ? nullptr : mxmlGetOpaque(m_nodes.front());
    return text != nullptr ? text : "";
}

bool ConfigNode::GetBool() const
{
    return Lower(GetString()) == "true";
}

int ConfigNode::GetInt() const
{
    return std::atoi(GetString().c_str());
}

int ConfigNode::GetString(std::string &out) const
{
    const char *text = TypedText(m_nodes, kTypeString);
    if (text == nullptr) {
        return kFail;
    }
    out = text;
    return kOk;
}

int ConfigNode::GetInt(int &out) const
{
    const char *text = TypedText(m_nodes, kTypeInt);
    if (text == nullptr) {
        return kFail;
    }
    out = std::atoi(text);
    return kOk;
}

int ConfigNode::GetBool(bool &out) const
{
    const char *text = TypedText(m_nodes, kTypeBool);
    if (text == nullptr) {
        return kFail;
    }
    const std::string value = Lower(text);
    if (value != "true" && value != "false") {
        return kFail;
    }
    out = value == "true";
    return kOk;
}

int ConfigNode::SetAttr(const std::string &name, const std::string &value)
{
    if (!m_nodes.empty()) {
        mxmlElementSetAttr(m_nodes.front(), name.c_str(), value.c_str());
    }
    return kOk;
}

int ConfigNode::SetString(const std::string &value)
{
    return SetTyped(m_nodes, kTypeString, value.c_str());
}

int ConfigNode::SetInt(int value)
{
    return SetTyped(m_nodes, kTypeInt, std::to_string(value).c_str());
}

int ConfigNode::SetBool(bool value)
{
    return SetTyped(m_nodes, kTypeBool, value ? "true" : "false");
}

int ConfigNode::Delete()
{
    if (!m_nodes.empty()) {
        MymxmlDelete(m_nodes.front());
        m_nodes.erase(m_nodes.begin());
    }
    return kOk;
}

ConfigNode ConfigNode::Create(const std::string &name)
{
    return m_nodes.empty() ? ConfigNode() : ConfigNode(mxmlNewElement(m_nodes.front(), name.c_str()));
}

ConfigMgr::ConfigMgr() = default;

ConfigMgr::~ConfigMgr()
{
    Release();
}

int ConfigMgr::ReadConfig(std::string path)
{
    if (m_root != nullptr) {
        return kOk;
    }
    std::FILE *file = g_osCalls.fopen(path.c_str(), "re");
    if (file == nullptr) {
        return errno;
    }
    m_root = LoadXmlFile(file);
    (void)g_osCalls.fclose(file);
    return kOk;
}

ConfigNode ConfigMgr::CreateConfig()
{
    if (m_root == nullptr) {
        m_root = mxmlNewXML("1.0");
    }
    return GetConfig();
}

ConfigNode ConfigMgr::GetConfig()
{
    return ConfigNode(m_root);
}

int ConfigMgr::SaveConfig(std::string path) const
{
    return IntCfgSaveInner(m_root, path.c_str());
}

int ConfigMgr::SaveConfigDirect(std::string path)
{
    if (m_root == nullptr) {
        return kOk;
    }
    std::string text;
    if (!SavedText(m_root, text)) {
        return ENOMEM;
    }
    std::FILE *file = g_osCalls.fopen(path.c_str(), "we");
    return file == nullptr ? errno : WriteAndClose(file, text);
}

void ConfigMgr::Release()
{
    MymxmlDelete(m_root);
    m_root = nullptr;
}

void MymxmlDelete(mxml_node_t *node)
{
    // Not by calls of itself: a file may nest deeper than the stack is.
    mxml_node_t *at = node;
    while (at != nullptr) {
        if (mxml_node_t *child = mxmlGetFirstChild(at)) {
            at = child;
            continue;
        }
        mxml_node_t *parent = at == node ? nullptr : mxmlGetParent(at);
        mxmlDelete(at);
        at = parent;
    }
}

std::string XmlRmSpace(const std::string &text)
{
    std::string out;
    bool inTag = false;
    for (const char c : text) {
        if (c == '<') {
            inTag = true;
        } else if (c == '>') {
            inTag = false;
        }
        if (inTag || (c != ' ' && c != '\t' && c != '\n')) {
            out += c;
        }
    }
    return out;
}

bool IsXmlLastNodeInOneLine(const std::string &text, size_t i)
{
    return i >= 2 && text[i - 2] == '/' && text[i - 1] == '>';
}

bool IsXmlNodeEndStr(const std::string &text, size_t i)
{
    return i + 1 < text.size() && text[i + 1] == '/';
}

void XmlAddSpace(int depth, std::string &out)
{
    if (depth > 0) {
        out.append(static_cast<size_t>(depth) * kIndent, ' ');
    }
}

void XmlHandleLeftBracket(const std::string &text, size_t i, int &depth, std::string &out)
{
    if (i == 0 || text[i - 1] != '>') {
        out += '<';
        return;
    }
    if (IsXmlLastNodeInOneLine(text, i)) {
        depth--;
    }
    const bool closes = IsXmlNodeEndStr(text, i);
    if (closes) {
        depth--;
    }
    XmlAddSpace(depth, out);
    out += '<';
    if (!closes) {
        depth++;
    }
}

std::string XmlFormat(std::string text)
{
    const std::string dense = XmlRmSpace(text);
    std::string out;
    int depth = 0;
    for (size_t i = 0; i < dense.size(); i++) {
        if (dense[i] == '<') {
            XmlHandleLeftBracket(dense, i, depth, out);
            continue;
        }
        out += dense[i];
        if (dense[i] == '>' && (i + 1 == dense.size() || dense[i + 1] == '<')) {
            out += '\n';
        }
    }
    return out;
}

char *InfCfgMakeBakPath(const char *path)
{
    if (path == nullptr || std::strlen(path) + kBackupSuffix.size() > kBackupPathMax) {
        return nullptr;
    }
    const size_t length = std::strlen(path);
    char *backup = static_cast<char *>(g_osCalls.malloc(length + kBackupSuffix.size() + 1));
    if (backup != nullptr) {
        *std::copy(kBackupSuffix.begin(), kBackupSuffix.end(), std::copy_n(path, length, backup)) = '\0';
    }
    return backup;
}

int InfCfgRename(const char *from, const char *to)
{
    struct stat present = {};
    if (from == nullptr || to == nullptr || stat(to, &present) != 0) {
        return kFail;
    }
    if (g_osCalls.chmod(from, present.st_mode & ALLPERMS) != 0) {
        return kFail;
    }
    return g_osCalls.rename(from, to) == 0 ? kOk : kFail;
}

int IntCfgSaveInner(mxml_node_t *node, const char *path)
{
    std::string text;
    // A missing tree must not empty the file in place.
    if (node == nullptr || !SavedText(node, text)) {
        return kFail;
    }
    const MallocPtr<char> backup(InfCfgMakeBakPath(path));
    if (backup == nullptr) {
        return kFail;
    }
    std::FILE *file = g_osCalls.fopen(backup.get(), "we");
    if (file == nullptr) {
        return -errno;
    }
    const int error = WriteAndClose(file, text);
    if (error != 0) {
        (void)g_osCalls.remove(backup.get());
        return -error;
    }
    const int result = InfCfgRename(backup.get(), path);
    if (result != kOk) {
        (void)g_osCalls.remove(backup.get());
    }
    return result;
}

} // namespace CORVANE_CLI
