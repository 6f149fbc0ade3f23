#include "fakes/fake_xml_document.h"

namespace tw::testing {

namespace {

class FakeXmlElement final : public XmlElement {
 public:
  explicit FakeXmlElement(const FakeXmlNode& node) : node_(node) {}

  HResult SelectChild(std::wstring_view name, std::unique_ptr<XmlElement>& child) override {
    child.reset();
    if (Failed(node_.selectResult)) return node_.selectResult;
    for (const FakeXmlNode& candidate : node_.children) {
      if (candidate.name == name) {
        child = std::make_unique<FakeXmlElement>(candidate);
        return hr::kOk;
      }
    }
    return hr::kFalse;
  }

  HResult GetText(std::wstring& text) override {
    if (Failed(node_.textResult)) return node_.textResult;
    text = node_.text;
    return hr::kOk;
  }

  HResult GetInt32Attribute(std::wstring_view name, std::optional<std::int32_t>& value) override {
    if (Failed(node_.attributeResult)) return node_.attributeResult;
    const auto found = node_.attributes.find(name);
    if (found == node_.attributes.end()) {
      value.reset();
      return hr::kFalse;
    }
    value = found->second;
    return hr::kOk;
  }

 private:
  const FakeXmlNode& node_;
};

}  // namespace

FakeXmlNode FakeText(std::wstring name, std::wstring text) {
  FakeXmlNode node;
  node.name = std::move(name);
  node.text = std::move(text);
  return node;
}

HResult FakeXmlDocument::Create() {
  ++createCalls;
  return createResult;
}

HResult FakeXmlDocument::Load(std::wstring_view path) {
  loadedPaths.emplace_back(path);
  return loadResult;
}

void FakeXmlDocument::Close() { ++closeCalls; }

HResult FakeXmlDocument::GetDocumentElement(std::unique_ptr<XmlElement>& element) {
  element.reset();
  if (documentElementResult != hr::kOk) return documentElementResult;
  element = std::make_unique<FakeXmlElement>(root);
  return hr::kOk;
}

}  // namespace tw::testing
