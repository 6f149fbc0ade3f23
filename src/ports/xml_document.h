// XML document port: the few DOM calls the configuration loader makes, shaped after the MSXML
// DOM it uses on Windows. The Win32 adapter is MSXML through COM (ProgID "MSXML.DOMDocument");
// the POSIX adapter is pugixml with MSXML's rules for element text and for the conversion of an
// attribute to an integer. Results are HRESULT-style codes as the DOM calls give them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/hresult.h"

namespace tw {

// One element of a loaded document.
class XmlElement {
 public:
  XmlElement() = default;
  XmlElement(const XmlElement&) = delete;
  XmlElement& operator=(const XmlElement&) = delete;
  XmlElement(XmlElement&&) = delete;
  XmlElement& operator=(XmlElement&&) = delete;
  virtual ~XmlElement() = default;

  // selectSingleNode with the bare name (an XPath child step: the first child element of that
  // name, case-sensitive), queried for an element. S_OK with `child` set when there is one;
  // S_FALSE with `child` reset when there is none; a failure code when the call itself fails.
  [[nodiscard]] virtual HResult SelectChild(std::wstring_view name,
                                            std::unique_ptr<XmlElement>& child) = 0;

  // The element's `text`: all its descendant text (text and CDATA, in document order),
  // with leading and trailing white space removed. A failure code when it cannot be read.
  [[nodiscard]] virtual HResult GetText(std::wstring& text) = 0;

  // getAttribute(name), then the value converted to a 32-bit integer as VariantChangeType to
  // VT_I4 converts a string: "1" and " 2 " convert, "true", "0x10", "" and other non-numbers do
  // not, nor does a number out of the 32-bit range. Returns the getAttribute result: a failure
  // code when the call fails (`value` untouched); otherwise S_OK (present) or S_FALSE (absent),
  // with `value` set to the integer, or to nullopt when the attribute is absent or its value
  // does not convert.
  [[nodiscard]] virtual HResult GetInt32Attribute(std::wstring_view name,
                                                  std::optional<std::int32_t>& value) = 0;
};

// One DOM document: created, loaded once, then read.
class XmlDocument {
 public:
  XmlDocument() = default;
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  XmlDocument(XmlDocument&&) = delete;
  XmlDocument& operator=(XmlDocument&&) = delete;
  virtual ~XmlDocument() = default;

  // CLSIDFromProgID("MSXML.DOMDocument") and CoCreateInstance: the failure of either is
  // returned. Must succeed before the calls below.
  [[nodiscard]] virtual HResult Create() = 0;

  // load(path): a failing code when the file cannot be read. A file that is read but is not
  // well-formed XML is not a failure here; the document then has no document element.
  [[nodiscard]] virtual HResult Load(std::wstring_view path) = 0;

  // get_documentElement: S_OK with `element` set; S_FALSE with `element` reset when the loaded
  // file did not parse; a failure code when the call fails.
  [[nodiscard]] virtual HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) = 0;

  // Releases the document and everything the adapter holds for it (on Windows the MSXML
  // objects, which belong to COM: the run releases them before CoUninitialize). Elements handed
  // out before must be gone. Create may be called again afterwards.
  virtual void Close() = 0;
};

// A new, not yet created document of the platform's real adapter.
std::unique_ptr<XmlDocument> NewXmlDocument();

}  // namespace tw
