#include "cli/common/XmlLoad.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace CORVANE_CLI {

namespace {

/** Marks of two-byte encodings; no text in UTF-8 holds either byte. */
constexpr const char *kWideMarks = "\xFE\xFF";

struct MxmlDelete {
    void operator()(mxml_node_t *node) const noexcept { mxmlDelete(node); }
};
using MxmlPtr = std::unique_ptr<mxml_node_t, MxmlDelete>;

/** @return whether all that follows a root of this name belongs below it: "<?xml ...?>" and the like. */
bool IsDeclaration(std::string_view name)
{
    return name.starts_with('?') ||
           (name.starts_with('!') && !name.starts_with("!--") && !name.starts_with("![CDATA["));
}

/** Brings what follows the root to its place. @return false for a second root. */
bool Gather(mxml_node_t *root)
{
    const bool takesAll = IsDeclaration(mxmlGetElement(root));
    while (mxml_node_t *next = mxmlGetNextSibling(root)) {
        if (takesAll) {
            mxmlAdd(root, MXML_ADD_AFTER, nullptr, next);
        } else if (mxmlGetType(next) == MXML_ELEMENT) {
            return false;
        } else {
            mxmlDelete(next); // a line feed at the end, say
        }
    }
    return true;
}

/** Loads below a node that holds whatever is made, so that nothing is lost. */
template <typename Load>
mxml_node_t *LoadBelowHolder(Load load)
{
    const MxmlPtr holder(mxmlNewElement(nullptr, "holder"));
    if (holder == nullptr || load(holder.get()) == nullptr) {
        return nullptr;
    }
    mxml_node_t *root = mxmlGetFirstChild(holder.get());
    if (root == nullptr || mxmlGetType(root) != MXML_ELEMENT || !Gather(root)) {
        return nullptr;
    }
    mxmlRemove(root);
    return root;
}

mxml_node_t *LoadBelowHolder(const char *text)
{
    if (std::strpbrk(text, kWideMarks) != nullptr) {
        return nullptr;
    }
    return LoadBelowHolder([text](mxml_node_t *holder) { return mxmlLoadString(holder, text, MXML_OPAQUE_CALLBACK); });
}

/**
 * Loads a text whose root is not closed. The library takes that for whole, without the text at its end, if there is
 * nothing above the root; below the holder it does not, so it is given the missing tag.
 */
mxml_node_t *LoadUnclosed(std::string_view text)
{
    const std::string_view name = text.substr(0, text.find_first_of(" \t\r\n/>"));
    if (name.size() < 2 || name.front() != '<' || IsDeclaration(name.substr(1))) {
        return nullptr;
    }
    std::string closed(text);
    closed.append("</").append(name.substr(1)).append(">");
    mxml_node_t *root = LoadBelowHolder(closed.c_str());
    if (root == nullptr || text.ends_with('>')) {
        return root;
    }
    if (mxml_node_t *last = mxmlGetLastChild(root); last != nullptr && mxmlGetType(last) == MXML_OPAQUE) {
        mxmlDelete(last);
    }
    return root;
}

/** @return all that is left of the file. */
std::string Rest(std::FILE *file)
{
    std::string text;
    std::array<char, 4096> piece{};
    while (const size_t length = std::fread(piece.data(), 1, piece.size(), file)) {
        text.append(piece.data(), length);
    }
    return text;
}

} // namespace

mxml_node_t *LoadXmlText(const char *text)
{
    mxml_node_t *root = LoadBelowHolder(text);
    return root != nullptr ? root : LoadUnclosed(text);
}

mxml_node_t *LoadXmlFile(std::FILE *file)
{
    mxml_node_t *root =
        LoadBelowHolder([file](mxml_node_t *holder) { return mxmlLoadFile(holder, file, MXML_OPAQUE_CALLBACK); });
    if (root != nullptr) {
        return root;
    }
    std::rewind(file);
    return LoadUnclosed(Rest(file));
}

} // namespace CORVANE_CLI
