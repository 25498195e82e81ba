#include "cli/common/XmlLoad.h"

#include <cstring>
#include <memory>
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

} // namespace

mxml_node_t *LoadXmlText(const char *text)
{
    if (std::strpbrk(text, kWideMarks) != nullptr) {
        return nullptr;
    }
    return LoadBelowHolder([text](mxml_node_t *holder) { return mxmlLoadString(holder, text, MXML_OPAQUE_CALLBACK); });
}

mxml_node_t *LoadXmlFile(std::FILE *file)
{
    return LoadBelowHolder([file](mxml_node_t *holder) { return mxmlLoadFile(holder, file, MXML_OPAQUE_CALLBACK); });
}

} // namespace CORVANE_CLI
