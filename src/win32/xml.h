// The document object model of MSXML 3: a text to a tree, its elements read and edited, and the tree to a text again.
// Operations bear MSXML's names and answer with HRESULTs: a negative one is a failure; S_FALSE says that what was
// asked for is not there, or that the text is no document.
//
// Nodes and documents keep alive what they refer to and are used by the thread that made them, inside its COM apartment
// (CoInitializeEx).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "win32/constants.h"

namespace win32 {

// False for a text with a character that XML has no way to write: controls but tab and line breaks, lone surrogates,
// U+FFFE, U+FFFF. A document that held one could not be read again.
inline bool IsXmlText(std::u16string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    const bool paired = i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
    if (unit >= 0xD800 && unit < 0xDC00 && paired)
      ++i;
    else if ((unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r') || (unit >= 0xD800 && unit < 0xE000) ||
             unit >= 0xFFFE)
      return false;
  }
  return true;
}

struct XmlNodeState;      // of the backend
struct XmlDocumentState;  // of the backend

// An element of a document, or none.
class XmlNode {
 public:
  XmlNode() = default;
  explicit XmlNode(std::shared_ptr<XmlNodeState> state) : state_(std::move(state)) {}
  explicit operator bool() const { return state_ != nullptr; }
  void reset() { state_.reset(); }

  // queryString: the name of a child element, or several with slashes between them ("list/item"). The first match in
  // the order of the document; S_FALSE and none without a match.
  HRESULT selectSingleNode(const std::u16string& queryString, XmlNode& resultNode) const;
  // All matches in the order of the document. S_OK also without one.
  HRESULT selectNodes(const std::u16string& queryString, std::vector<XmlNode>& resultList) const;

  // The text of the element and of all below it; line breaks are single LFs.
  HRESULT get_text(std::u16string& text) const;
  // In place of all that the element holds. E_INVALIDARG for what is no XML text.
  HRESULT put_text(const std::u16string& text);

  // S_FALSE and none for the document element and for an element that is not in the tree.
  HRESULT get_parentNode(XmlNode& parent) const;
  // newChild: made by createNode of the same document.
  HRESULT appendChild(const XmlNode& newChild);
  HRESULT removeChild(const XmlNode& childNode);

  const std::shared_ptr<XmlNodeState>& state() const { return state_; }  // for the backend

 private:
  std::shared_ptr<XmlNodeState> state_;
};

// A document of the class "Msxml2.DOMDocument.3.0", or none.
class XmlDocument {
 public:
  explicit operator bool() const { return state_ != nullptr; }
  void reset() { state_.reset(); }

  // CLSIDFromProgID and CoCreateInstance. Nothing outside the text is ever loaded by the document, and a text with a
  // document type definition is no document for it.
  HRESULT CreateInstance();

  // TRUE: white space between elements is kept by the next loadXML.
  HRESULT put_preserveWhiteSpace(BOOL isPreserving);
  // Any encoding that the declaration names is passed over: the text is UTF-16. S_FALSE for a text that is not
  // well-formed; the document is empty then.
  HRESULT loadXML(const std::u16string& xml);
  // The whole document as text: each top-level node and a CR LF, line breaks inside as CR LF, and a declaration without
  // its encoding. Empty for an empty document.
  HRESULT get_xml(std::u16string& xml) const;
  // S_FALSE and none for an empty document.
  HRESULT get_documentElement(XmlNode& element) const;
  // A new element (NODE_ELEMENT, no namespace) that is nowhere in the tree yet.
  HRESULT createNode(const std::u16string& name, XmlNode& node);

 private:
  std::shared_ptr<XmlDocumentState> state_;
};

}  // namespace win32
