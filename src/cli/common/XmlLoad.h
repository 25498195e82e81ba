/**
 * @file XmlLoad.h
 * @brief Loading of XML documents that others wrote. No state; any thread.
 *
 * A document is what the XML library takes for one, without what the library does not survive: bytes that switch it to
 * an encoding of two bytes, in which it reads behind the end of a text, and nodes outside of the root, which it loses.
 */
#ifndef CLI_XML_LOAD_H
#define CLI_XML_LOAD_H

#include <cstdio>
#include <mxml.h>

namespace CORVANE_CLI {

/** @return the root, below which texts are opaque, to be freed with mxmlDelete(); null if the text does not parse. */
mxml_node_t *LoadXmlText(const char *text);
/** @brief The same for a file, which stays open. */
mxml_node_t *LoadXmlFile(std::FILE *file);

} // namespace CORVANE_CLI

#endif
