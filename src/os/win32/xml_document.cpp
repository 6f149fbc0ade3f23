// The XML document port over MSXML through COM: the document is created from the ProgID
// "MSXML.DOMDocument", loaded from a VT_BSTR path, and read with selectSingleNode, get_text and
// getAttribute. COM must be initialised on the calling thread (the run flow does it).
//
// Load returns what IXMLDOMDocument::load returns. MSXML may report a file it cannot open as
// S_FALSE rather than as a failure; the document then has no document element, and the
// configuration loader returns S_FALSE as it does for a file that does not parse.
#include "ports/xml_document.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "os/native_ports.h"

// The SDK's COM and MSXML headers come after the one header that sets up <windows.h>.
// clang-format off
#include "os/win32/windows_headers.h"
#include <objbase.h>
#include <oleauto.h>
#include <msxml.h>
// clang-format on

namespace tw {
namespace {

// An owned COM interface pointer.
template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  ~ComPtr() { Reset(); }
  ComPtr(const ComPtr& other) : pointer_(other.pointer_) {
    if (pointer_ != nullptr) pointer_->AddRef();
  }
  ComPtr& operator=(const ComPtr&) = delete;

  T* get() const { return pointer_; }
  T* operator->() const { return pointer_; }
  explicit operator bool() const { return pointer_ != nullptr; }
  // Releases what is held and gives the slot a call fills.
  T** Put() {
    Reset();
    return &pointer_;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }
  void Reset() {
    if (pointer_ != nullptr) pointer_->Release();
    pointer_ = nullptr;
  }

 private:
  T* pointer_ = nullptr;
};

// An owned BSTR.
class Bstr {
 public:
  explicit Bstr(std::wstring_view text)
      : bstr_(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
  Bstr() = default;
  ~Bstr() { ::SysFreeString(bstr_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;

  BSTR get() const { return bstr_; }
  BSTR* Put() {
    ::SysFreeString(bstr_);
    bstr_ = nullptr;
    return &bstr_;
  }
  std::wstring Text() const {
    return bstr_ == nullptr ? std::wstring() : std::wstring(bstr_, ::SysStringLen(bstr_));
  }

 private:
  BSTR bstr_ = nullptr;
};

// An owned VARIANT, zeroed (VT_EMPTY) at construction.
class Variant {
 public:
  Variant() { ::VariantInit(&variant_); }
  ~Variant() { ::VariantClear(&variant_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  VARIANT& get() { return variant_; }

 private:
  VARIANT variant_;
};

class MsxmlElement final : public XmlElement {
 public:
  explicit MsxmlElement(const ComPtr<IXMLDOMElement>& element) : element_(element) {}

  [[nodiscard]] HResult SelectChild(std::wstring_view name,
                                    std::unique_ptr<XmlElement>& child) override {
    child.reset();
    const Bstr query(name);
    if (query.get() == nullptr && !name.empty()) return hr::kOutOfMemory;
    ComPtr<IXMLDOMNode> node;
    const HResult result{element_->selectSingleNode(query.get(), node.Put())};
    if (result != hr::kOk || !node) return result;
    ComPtr<IXMLDOMElement> element;
    if (FAILED(node->QueryInterface(IID_IXMLDOMElement, element.PutVoid())) || !element) {
      return hr::kFalse;  // a node that is not an element counts as missing
    }
    child = std::make_unique<MsxmlElement>(element);
    return hr::kOk;
  }

  [[nodiscard]] HResult GetText(std::wstring& text) override {
    Bstr value;
    const HResult result{element_->get_text(value.Put())};
    if (Failed(result)) return result;
    text = value.Text();
    return result;
  }

  HResult GetInt32Attribute(std::wstring_view name, std::optional<std::int32_t>& value) override {
    const Bstr attributeName(name);
    if (attributeName.get() == nullptr && !name.empty()) return hr::kOutOfMemory;
    Variant attribute;
    const HResult result{element_->getAttribute(attributeName.get(), &attribute.get())};
    if (Failed(result)) return result;
    value.reset();
    if (attribute.get().vt == VT_NULL || attribute.get().vt == VT_EMPTY) return result;
    if (!FAILED(::VariantChangeType(&attribute.get(), &attribute.get(), 0, VT_I4)) &&
        attribute.get().vt == VT_I4) {
      value = static_cast<std::int32_t>(attribute.get().lVal);
    }
    return result;
  }

 private:
  ComPtr<IXMLDOMElement> element_;
};

class MsxmlDocument final : public XmlDocument {
 public:
  [[nodiscard]] HResult Create() override {
    CLSID clsid;
    HResult result{::CLSIDFromProgID(L"MSXML.DOMDocument", &clsid)};
    if (Failed(result)) return result;
    result = HResult{
        ::CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument, document_.PutVoid())};
    return result;
  }

  [[nodiscard]] HResult Load(std::wstring_view path) override {
    if (!document_) return hr::kFail;
    Variant source;
    source.get().vt = VT_BSTR;
    source.get().bstrVal = ::SysAllocStringLen(path.data(), static_cast<UINT>(path.size()));
    if (source.get().bstrVal == nullptr) return hr::kOutOfMemory;
    VARIANT_BOOL successful = VARIANT_FALSE;  // not examined
    return HResult{document_->load(source.get(), &successful)};
  }

  [[nodiscard]] HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) override {
    element.reset();
    if (!document_) return hr::kFail;
    ComPtr<IXMLDOMElement> root;
    const HResult result{document_->get_documentElement(root.Put())};
    if (result == hr::kOk && root) element = std::make_unique<MsxmlElement>(root);
    return result;
  }

  void Close() override { document_.Reset(); }

 private:
  ComPtr<IXMLDOMDocument> document_;
};

}  // namespace

std::unique_ptr<XmlDocument> NewNativeXmlDocument() { return std::make_unique<MsxmlDocument>(); }

}  // namespace tw
