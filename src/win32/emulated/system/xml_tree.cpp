#include "win32/emulated/system/xml_tree.h"

#include <limits>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include "win32/emulated/text.h"

namespace emulated {

namespace {

struct FreeContext {
  void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};
struct FreeBuffer {
  void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};

const xmlChar* Chars(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }
std::string_view View(const xmlChar* text) { return text ? reinterpret_cast<const char*>(text) : std::string_view(); }

// Whatever is wrong is told by the result; nothing goes to the host's stderr.
void Silence(void*, const char*, ...) {}  // NOLINT(cert-dcl50-cpp): as libxml2 calls it

// Definitions can grow without bound when they are used, and name files and addresses: a document has none.
void RefuseDefinition(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  auto* const parser = static_cast<xmlParserCtxt*>(context);
  parser->wellFormed = 0;
  xmlStopParser(parser);
}

bool IsWhiteSpace(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

void DropWhiteSpace(xmlNode* element) {
  for (xmlNode *child = element->children, *next = nullptr; child; child = next) {
    next = child->next;
    if (child->type == XML_ELEMENT_NODE) DropWhiteSpace(child);
    if (child->type != XML_TEXT_NODE || !IsWhiteSpace(View(child->content))) continue;
    xmlUnlinkNode(child);
    xmlFreeNode(child);
  }
}

void AppendWithLineBreaks(std::string& to, std::string_view text) {
  for (const char character : text) {
    if (character == '\n') to += '\r';
    to += character;
  }
}

std::string Declaration(const xmlDoc& document) {
  constexpr int kNone = -1;
  if (document.standalone == kNone) return {};
  std::string text = "<?xml version=\"1.0\"";
  if (document.standalone >= 0) text += document.standalone ? " standalone=\"yes\"" : " standalone=\"no\"";
  return text + "?>\r\n";
}

}  // namespace

std::unique_ptr<XmlTree> XmlTree::Parse(std::u16string_view text, bool preserveWhiteSpace) {
  const std::size_t size = text.size() * sizeof(char16_t);
  if (size == 0 || size > static_cast<std::size_t>(std::numeric_limits<int>::max())) return nullptr;
  xmlSetGenericErrorFunc(nullptr, Silence);
  const std::unique_ptr<xmlParserCtxt, FreeContext> parser(xmlNewParserCtxt());
  if (!parser) return nullptr;
  parser->sax->internalSubset = RefuseDefinition;
  xmlDoc* const document =
      xmlCtxtReadMemory(parser.get(), reinterpret_cast<const char*>(text.data()), static_cast<int>(size), nullptr,
                        "UTF-16LE", XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_IGNORE_ENC);
  if (!document) return nullptr;
  std::unique_ptr<XmlTree> tree(new XmlTree(document));
  if (!parser->nsWellFormed || View(document->version) != "1.0" || !tree->Root()) return nullptr;
  if (!preserveWhiteSpace) DropWhiteSpace(tree->Root());
  return tree;
}

std::unique_ptr<XmlTree> XmlTree::Empty() {
  xmlDoc* const document = xmlNewDoc(nullptr);
  return std::unique_ptr<XmlTree>(document ? new XmlTree(document) : nullptr);
}

XmlTree::~XmlTree() {
  // A detached node may hang below another one by now, which then frees it.
  std::vector<xmlNode*> roots;
  for (xmlNode* const node : detached_)
    if (!node->parent) roots.push_back(node);
  for (xmlNode* const node : roots) xmlFreeNode(node);
  xmlFreeDoc(document_);
}

std::string XmlTree::Text() const {
  std::string text = Root() ? Declaration(*document_) : std::string();
  for (xmlNode* node = document_->children; node; node = node->next) {
    const std::unique_ptr<xmlBuffer, FreeBuffer> buffer(xmlBufferCreate());
    if (!buffer || xmlNodeDump(buffer.get(), document_, node, 0, 0) < 0) return {};
    AppendWithLineBreaks(text, View(xmlBufferContent(buffer.get())));
    text += "\r\n";
  }
  return text;
}

xmlNode* XmlTree::Root() const { return xmlDocGetRootElement(document_); }

xmlNode* XmlTree::CreateElement(const std::string& name) {
  constexpr int kNoBlanksAround = 0;
  if (xmlValidateNCName(Chars(name), kNoBlanksAround) != 0) return nullptr;
  xmlNode* const node = xmlNewDocNode(document_, nullptr, Chars(name), nullptr);
  if (node) detached_.insert(node);
  return node;
}

void XmlTree::Detach(xmlNode* node) {
  xmlUnlinkNode(node);
  detached_.insert(node);
}

std::string XmlNodeText(const xmlNode* element) {
  std::string text;
  for (const xmlNode* child = element->children; child; child = child->next) {
    if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) text += View(child->content);
    if (child->type == XML_ELEMENT_NODE) text += XmlNodeText(child);
  }
  return text;
}

void SetXmlNodeText(XmlTree& tree, xmlNode* element, const std::string& text) {
  while (element->children) tree.Detach(element->children);
  if (!text.empty()) xmlAddChild(element, xmlNewDocText(element->doc, Chars(text)));
}

std::vector<xmlNode*> SelectXmlNodes(xmlNode* element, std::string_view path) {
  const std::size_t slash = path.find('/');
  const std::string_view name = path.substr(0, slash);
  std::vector<xmlNode*> found;
  for (xmlNode* child = element->children; child; child = child->next) {
    if (child->type != XML_ELEMENT_NODE || child->ns || View(child->name) != name) continue;
    if (slash == std::string_view::npos) {
      found.push_back(child);
    } else {
      const std::vector<xmlNode*> below = SelectXmlNodes(child, path.substr(slash + 1));
      found.insert(found.end(), below.begin(), below.end());
    }
  }
  return found;
}

}  // namespace emulated
