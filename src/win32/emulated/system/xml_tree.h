// A document's tree on libxml2, as MSXML reads and writes it. Texts are UTF-8 here, line breaks in the tree LF.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <libxml/tree.h>

namespace emulated {

class XmlTree {
 public:
  // Null for a text that is not a well-formed document, has a document type definition, or is nested or large beyond
  // all reason.
  static std::unique_ptr<XmlTree> Parse(std::u16string_view text, bool preserveWhiteSpace);
  // A document without content.
  static std::unique_ptr<XmlTree> Empty();
  ~XmlTree();
  XmlTree(const XmlTree&) = delete;
  XmlTree& operator=(const XmlTree&) = delete;

  // Each top-level node and CR LF; the declaration, where there is one, without its encoding.
  std::string Text() const;
  xmlNode* Root() const;
  // A new element outside the tree; null for what is not a name.
  xmlNode* CreateElement(const std::string& name);
  // Takes a node out of the tree. It lives as long as the tree does.
  void Detach(xmlNode* node);

 private:
  explicit XmlTree(xmlDoc* document) : document_(document) {}

  xmlDoc* document_;
  std::set<xmlNode*> detached_;  // made or taken out, and perhaps put in again since
};

// Text and CDATA of the element and of all below it.
std::string XmlNodeText(const xmlNode* element);
// In place of everything in the element; what was in it is detached.
void SetXmlNodeText(XmlTree& tree, xmlNode* element, const std::string& text);
// Elements without a namespace at a path of names ("a", "a/b") below `element`, in the order of the document.
std::vector<xmlNode*> SelectXmlNodes(xmlNode* element, std::string_view path);

}  // namespace emulated
