// XML documents, of win32/xml.h.
#include "win32/xml.h"

#include "win32/emulated/call.h"
#include "win32/emulated/system/com.h"
#include "win32/emulated/system/xml_tree.h"
#include "win32/emulated/text.h"

namespace win32 {

using emulated::HresultFromWin32;
using emulated::Utf16;
using emulated::Utf8;
using emulated::XmlTree;

struct XmlNodeState {
  std::shared_ptr<XmlTree> tree;
  xmlNode* node;
};

struct XmlDocumentState {
  bool preserveWhiteSpace = false;
  std::shared_ptr<XmlTree> tree;  // null: the document is empty
};

namespace {

constexpr HRESULT kNotInitialized = static_cast<HRESULT>(0x800401F0);  // CO_E_NOTINITIALIZED

XmlNode Handle(const std::shared_ptr<XmlTree>& tree, xmlNode* node) {
  return XmlNode(std::make_shared<XmlNodeState>(XmlNodeState{tree, node}));
}

// Line breaks of a text that is stored are LFs, as if it had been read.
std::string StoredText(const std::u16string& text) {
  std::string stored;
  const std::string utf8 = Utf8(text);
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    if (utf8[i] != '\r')
      stored += utf8[i];
    else if (i + 1 == utf8.size() || utf8[i + 1] != '\n')
      stored += '\n';
  }
  return stored;
}

bool IsSameOrAbove(const xmlNode* node, const xmlNode* of) {
  for (; of; of = of->parent)
    if (of == node) return true;
  return false;
}

}  // namespace

HRESULT XmlNode::selectSingleNode(const std::u16string& queryString, XmlNode& resultNode) const {
  WIN32_CALL(queryString.c_str());
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  const auto state = state_;  // the result may be this node's own handle
  const auto found = emulated::SelectXmlNodes(state->node, Utf8(queryString));
  resultNode = found.empty() ? XmlNode() : Handle(state->tree, found.front());
  return call.Return(found.empty() ? S_FALSE : S_OK);
}

HRESULT XmlNode::selectNodes(const std::u16string& queryString, std::vector<XmlNode>& resultList) const {
  WIN32_CALL(queryString.c_str());
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  std::vector<XmlNode> result;
  for (xmlNode* const node : emulated::SelectXmlNodes(state_->node, Utf8(queryString)))
    result.push_back(Handle(state_->tree, node));
  resultList = std::move(result);
  return call.Return(S_OK);
}

HRESULT XmlNode::get_text(std::u16string& text) const {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  text = Utf16(emulated::XmlNodeText(state_->node));
  return call.Return(S_OK);
}

HRESULT XmlNode::put_text(const std::u16string& text) {
  WIN32_CALL(text.c_str());
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_ || !IsXmlText(text)) return call.Return(E_INVALIDARG);
  emulated::SetXmlNodeText(*state_->tree, state_->node, StoredText(text));
  return call.Return(S_OK);
}

HRESULT XmlNode::get_parentNode(XmlNode& parent) const {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  const auto state = state_;
  xmlNode* const above = state->node->parent;
  const bool isElement = above && above->type == XML_ELEMENT_NODE;
  parent = isElement ? Handle(state->tree, above) : XmlNode();
  return call.Return(isElement ? S_OK : S_FALSE);
}

HRESULT XmlNode::appendChild(const XmlNode& newChild) {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_ || !newChild || newChild.state_->tree != state_->tree) return call.Return(E_INVALIDARG);
  xmlNode* const child = newChild.state_->node;
  if (IsSameOrAbove(child, state_->node)) return call.Return(E_FAIL);
  state_->tree->Detach(child);
  return call.Return(xmlAddChild(state_->node, child) ? S_OK : E_OUTOFMEMORY);
}

HRESULT XmlNode::removeChild(const XmlNode& childNode) {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_ || !childNode || childNode.state_->node->parent != state_->node) return call.Return(E_INVALIDARG);
  state_->tree->Detach(childNode.state_->node);
  return call.Return(S_OK);
}

HRESULT XmlDocument::CreateInstance() {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!emulated::ComIsInitialized()) return call.Return(kNotInitialized);
  state_ = std::make_shared<XmlDocumentState>();
  return call.Return(S_OK);
}

HRESULT XmlDocument::put_preserveWhiteSpace(BOOL isPreserving) {
  WIN32_CALL(isPreserving);
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  state_->preserveWhiteSpace = isPreserving != FALSE;
  return call.Return(S_OK);
}

HRESULT XmlDocument::loadXML(const std::u16string& xml) {
  WIN32_CALL(xml.size());
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  state_->tree = XmlTree::Parse(xml, state_->preserveWhiteSpace);
  return call.Return(state_->tree ? S_OK : S_FALSE);
}

HRESULT XmlDocument::get_xml(std::u16string& xml) const {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  xml = state_->tree ? Utf16(state_->tree->Text()) : std::u16string();
  return call.Return(S_OK);
}

HRESULT XmlDocument::get_documentElement(XmlNode& element) const {
  WIN32_CALL();
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  xmlNode* const root = state_->tree ? state_->tree->Root() : nullptr;
  element = root ? Handle(state_->tree, root) : XmlNode();
  return call.Return(root ? S_OK : S_FALSE);
}

HRESULT XmlDocument::createNode(const std::u16string& name, XmlNode& node) {
  WIN32_CALL(name.c_str());
  if (call.Refused()) return HresultFromWin32(call.error());
  if (!state_) return call.Return(E_INVALIDARG);
  if (!state_->tree) state_->tree = XmlTree::Empty();
  xmlNode* const made = state_->tree ? state_->tree->CreateElement(Utf8(name)) : nullptr;
  if (!made) return call.Return(E_FAIL);
  node = Handle(state_->tree, made);
  return call.Return(S_OK);
}

}  // namespace win32
