#include "win32/xml.h"

#include "win32/native/cast.h"

#include <objbase.h>
#include <oleauto.h>
#include <msxml2.h>

namespace win32 {

namespace {

// Published interface identifiers; the import libraries lack one of them.
constexpr ::IID kIXMLDOMDocument = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr ::IID kIXMLDOMDocument2 = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// A reference to an object.
template <typename Interface>
class ComPointer {
 public:
  ComPointer() = default;
  ComPointer(ComPointer&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
  ComPointer(const ComPointer&) = delete;
  ComPointer& operator=(const ComPointer&) = delete;
  ~ComPointer() {
    if (pointer_) pointer_->Release();
  }
  Interface* operator->() const { return pointer_; }
  Interface* get() const { return pointer_; }
  explicit operator bool() const { return pointer_ != nullptr; }
  Interface** put() { return &pointer_; }  // of an empty one

 private:
  Interface* pointer_ = nullptr;
};

// A text as automation passes it.
class Bstr {
 public:
  Bstr() = default;
  explicit Bstr(const std::u16string& text)
      : text_(::SysAllocStringLen(native::Wide(text.c_str()), static_cast<UINT>(text.size()))) {}
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  ~Bstr() { ::SysFreeString(text_); }
  BSTR get() const { return text_; }
  BSTR* put() { return &text_; }
  std::u16string Text() const {
    return text_ ? std::u16string(native::Utf16(text_), ::SysStringLen(text_)) : std::u16string();
  }

 private:
  BSTR text_ = nullptr;
};

// What is open to harm in a text from outside is switched off. MSXML versions that do not know a property refuse it,
// and lack what it limits.
void Restrict(::IXMLDOMDocument& document) {
  document.put_resolveExternals(VARIANT_FALSE);
  document.put_validateOnParse(VARIANT_FALSE);
  ComPointer<::IXMLDOMDocument2> properties;
  if (FAILED(document.QueryInterface(kIXMLDOMDocument2, reinterpret_cast<void**>(properties.put())))) return;
  VARIANT value;
  ::VariantInit(&value);
  value.vt = VT_BOOL;
  value.boolVal = VARIANT_TRUE;
  properties->setProperty(Bstr(u"ProhibitDTD").get(), value);
  value.vt = VT_I4;
  value.lVal = 256;
  properties->setProperty(Bstr(u"MaxElementDepth").get(), value);
}

}  // namespace

struct XmlNodeState {
  ComPointer<::IXMLDOMNode> node;
};

struct XmlDocumentState {
  ComPointer<::IXMLDOMDocument> document;
};

namespace {

// The answer of a call that gives a node, and the node's handle.
HRESULT Give(HRESULT result, ComPointer<::IXMLDOMNode>&& node, XmlNode& to) {
  const bool given = result == S_OK && node;
  to = given ? XmlNode(std::make_shared<XmlNodeState>(XmlNodeState{std::move(node)})) : XmlNode();
  return given || result < 0 ? result : S_FALSE;
}

}  // namespace

HRESULT XmlNode::selectSingleNode(const std::u16string& queryString, XmlNode& resultNode) const {
  if (!state_) return E_INVALIDARG;
  ComPointer<::IXMLDOMNode> node;
  const HRESULT result = state_->node->selectSingleNode(Bstr(queryString).get(), node.put());
  return Give(result, std::move(node), resultNode);
}

HRESULT XmlNode::selectNodes(const std::u16string& queryString, std::vector<XmlNode>& resultList) const {
  if (!state_) return E_INVALIDARG;
  ComPointer<::IXMLDOMNodeList> list;
  HRESULT result = state_->node->selectNodes(Bstr(queryString).get(), list.put());
  std::vector<XmlNode> found;
  for (bool more = result == S_OK && list; more;) {
    ComPointer<::IXMLDOMNode> node;
    result = list->nextNode(node.put());
    more = result == S_OK && node;
    if (more) Give(S_OK, std::move(node), found.emplace_back());
  }
  if (result < 0) return result;
  resultList = std::move(found);
  return S_OK;
}

HRESULT XmlNode::get_text(std::u16string& text) const {
  if (!state_) return E_INVALIDARG;
  Bstr value;
  const HRESULT result = state_->node->get_text(value.put());
  if (result >= 0) text = value.Text();
  return result;
}

HRESULT XmlNode::put_text(const std::u16string& text) {
  if (!state_ || !IsXmlText(text)) return E_INVALIDARG;
  const Bstr value(text);
  return value.get() ? state_->node->put_text(value.get()) : E_OUTOFMEMORY;
}

HRESULT XmlNode::get_parentNode(XmlNode& parent) const {
  if (!state_) return E_INVALIDARG;
  ComPointer<::IXMLDOMNode> node;
  HRESULT result = state_->node->get_parentNode(node.put());
  DOMNodeType type = NODE_INVALID;
  if (result == S_OK && node) result = node->get_nodeType(&type);
  if (result == S_OK && type != NODE_ELEMENT) result = S_FALSE;
  return Give(result, std::move(node), parent);
}

HRESULT XmlNode::appendChild(const XmlNode& newChild) {
  if (!state_ || !newChild) return E_INVALIDARG;
  return state_->node->appendChild(newChild.state_->node.get(), nullptr);
}

HRESULT XmlNode::removeChild(const XmlNode& childNode) {
  if (!state_ || !childNode) return E_INVALIDARG;
  return state_->node->removeChild(childNode.state_->node.get(), nullptr);
}

HRESULT XmlDocument::CreateInstance() {
  ::CLSID classId;
  if (const HRESULT result = ::CLSIDFromProgID(L"Msxml2.DOMDocument.3.0", &classId); FAILED(result)) return result;
  auto state = std::make_shared<XmlDocumentState>();
  const HRESULT result =
      ::CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER,
                         kIXMLDOMDocument, reinterpret_cast<void**>(state->document.put()));
  if (FAILED(result)) return result;
  Restrict(*state->document.get());
  state_ = std::move(state);
  return S_OK;
}

HRESULT XmlDocument::put_preserveWhiteSpace(BOOL isPreserving) {
  if (!state_) return E_INVALIDARG;
  return state_->document->put_preserveWhiteSpace(isPreserving ? VARIANT_TRUE : VARIANT_FALSE);
}

HRESULT XmlDocument::loadXML(const std::u16string& xml) {
  if (!state_) return E_INVALIDARG;
  const Bstr text(xml);
  if (!text.get()) return E_OUTOFMEMORY;
  VARIANT_BOOL isSuccessful = VARIANT_FALSE;
  const HRESULT result = state_->document->loadXML(text.get(), &isSuccessful);
  return result == S_OK && isSuccessful == VARIANT_FALSE ? S_FALSE : result;
}

HRESULT XmlDocument::get_xml(std::u16string& xml) const {
  if (!state_) return E_INVALIDARG;
  Bstr text;
  const HRESULT result = state_->document->get_xml(text.put());
  if (result >= 0) xml = text.Text();
  return result;
}

HRESULT XmlDocument::get_documentElement(XmlNode& element) const {
  if (!state_) return E_INVALIDARG;
  ComPointer<::IXMLDOMElement> root;
  HRESULT result = state_->document->get_documentElement(root.put());
  ComPointer<::IXMLDOMNode> node;
  if (result == S_OK && root) result = root->QueryInterface(IID_IXMLDOMNode, reinterpret_cast<void**>(node.put()));
  return Give(result, std::move(node), element);
}

HRESULT XmlDocument::createNode(const std::u16string& name, XmlNode& node) {
  if (!state_) return E_INVALIDARG;
  VARIANT type;
  ::VariantInit(&type);
  type.vt = VT_I4;
  type.lVal = NODE_ELEMENT;
  ComPointer<::IXMLDOMNode> made;
  const HRESULT result = state_->document->createNode(type, Bstr(name).get(), Bstr(u"").get(), made.put());
  return Give(result, std::move(made), node);
}

}  // namespace win32
