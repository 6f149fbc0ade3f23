// An in-memory XML document for tests, with switches that make any DOM call fail with a chosen
// result (COM creation, load, the document element, a child lookup, a text, an attribute).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/hresult.h"
#include "ports/xml_document.h"

namespace tw::testing {

struct FakeXmlNode {
  std::wstring name;
  std::wstring text;  // what GetText gives, as it stands
  // Attributes as the integer conversion sees them: nullopt for one that does not convert.
  std::map<std::wstring, std::optional<std::int32_t>, std::less<>> attributes;
  std::vector<FakeXmlNode> children;
  HResult selectResult = hr::kOk;     // a failure makes SelectChild fail
  HResult textResult = hr::kOk;       // a failure makes GetText fail
  HResult attributeResult = hr::kOk;  // a failure makes GetInt32Attribute fail

  FakeXmlNode& Add(FakeXmlNode child) {
    children.push_back(std::move(child));
    return children.back();
  }
};

// A leaf element with text.
FakeXmlNode FakeText(std::wstring name, std::wstring text);

class FakeXmlDocument final : public XmlDocument {
 public:
  HResult createResult = hr::kOk;
  HResult loadResult = hr::kOk;
  // The result of GetDocumentElement when it is not a failure; S_FALSE: not parsed.
  HResult documentElementResult = hr::kOk;
  FakeXmlNode root{L"configuration", {}, {}, {}};

  // What happened.
  int createCalls = 0;
  int closeCalls = 0;
  std::vector<std::wstring> loadedPaths;

  HResult Create() override;
  HResult Load(std::wstring_view path) override;
  HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) override;
  void Close() override;
};

}  // namespace tw::testing
