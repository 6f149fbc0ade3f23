// The XML document port on POSIX, over pugixml.
//
// MSXML's behaviour kept here:
// - a file that cannot be opened or read fails Load with the Win32 error of the failure turned
//   into a result (a missing file 0x80070002, a folder or an unreadable file 0x80070005);
// - a file that is read but does not parse loads "successfully" and has no document element
//   (GetDocumentElement gives S_FALSE). Besides pugixml's own errors, a document without exactly
//   one top-level element, or with text outside it, counts as not parsed;
// - the encoding is taken from the byte-order mark or the XML declaration (UTF-8 by default);
// - `text` is the concatenation of all descendant text and CDATA, with leading and trailing XML
//   white space (space, tab, carriage return, line feed) removed; text nodes of white space only
//   are not kept, as MSXML drops them when it does not preserve white space;
// - child elements are matched by their qualified name exactly as written ("x:source" is not
//   "source"); namespace declarations are not interpreted.
// pugixml does not check everything MSXML checks (for example undeclared entity references are
// kept as text); such files are read instead of being refused.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "platform/posix/errno_win32.h"
#include "platform/posix/native_path.h"
#include "platform/posix/variant_number.h"
#include "platform/xml_document.h"

namespace tw {

namespace {

// pugixml's default options, parsed as a fragment so that text outside the top-level element is
// kept and can be refused by HasSingleRootElement (in document mode pugixml drops it silently).
constexpr unsigned int kParseOptions = pugi::parse_default | pugi::parse_fragment;

bool IsXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

void AppendDescendantText(const pugi::xml_node& node, std::string& text) {
  for (const pugi::xml_node& child : node.children()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
      text += child.value();
    } else if (child.type() == pugi::node_element) {
      AppendDescendantText(child, text);
    }
  }
}

class PugiElement final : public XmlElement {
 public:
  PugiElement(std::shared_ptr<const pugi::xml_document> document, pugi::xml_node node)
      : document_(std::move(document)), node_(node) {}

  HResult SelectChild(std::wstring_view name, std::unique_ptr<XmlElement>& child) override {
    const std::string wanted = WideToUtf8(name);
    for (const pugi::xml_node& candidate : node_.children()) {
      if (candidate.type() == pugi::node_element && wanted == candidate.name()) {
        child = std::make_unique<PugiElement>(document_, candidate);
        return hr::kOk;
      }
    }
    child.reset();
    return hr::kFalse;
  }

  HResult GetText(std::wstring& text) override {
    std::string bytes;
    AppendDescendantText(node_, bytes);
    std::size_t begin = 0;
    std::size_t end = bytes.size();
    while (begin < end && IsXmlSpace(bytes[begin])) ++begin;
    while (end > begin && IsXmlSpace(bytes[end - 1])) --end;
    text = Utf8ToWide(std::string_view(bytes).substr(begin, end - begin));
    return hr::kOk;
  }

  HResult GetInt32Attribute(std::wstring_view name, std::optional<std::int32_t>& value) override {
    const pugi::xml_attribute attribute = node_.attribute(WideToUtf8(name).c_str());
    if (!attribute) {
      value.reset();
      return hr::kFalse;
    }
    value = posix::VariantTextToInt32(Utf8ToWide(attribute.value()));
    return hr::kOk;
  }

 private:
  std::shared_ptr<const pugi::xml_document> document_;  // keeps node_ alive
  pugi::xml_node node_;
};

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Reads the whole file at the native path; a Win32 error on failure.
err::Win32Error ReadWholeFile(const std::string& native, std::vector<char>& contents) {
  const FileDescriptor file(open(native.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return posix::Win32ErrorFromErrno(errno);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return posix::Win32ErrorFromErrno(errno);
  // Opening a folder as a document fails on Windows with access denied.
  if (S_ISDIR(status.st_mode)) return err::kAccessDenied;
  contents.clear();
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(file.get(), buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      return posix::Win32ErrorFromErrno(errno);
    }
    if (got == 0) break;
    contents.insert(contents.end(), buffer, buffer + got);
  }
  return err::kSuccess;
}

// Whether a parsed document has the shape of a well-formed one: one top-level element and no
// text beside it.
bool HasSingleRootElement(const pugi::xml_document& document) {
  int elements = 0;
  for (const pugi::xml_node& child : document.children()) {
    if (child.type() == pugi::node_element) ++elements;
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) return false;
  }
  return elements == 1;
}

class PugiDocument final : public XmlDocument {
 public:
  HResult Create() override {
    document_ = std::make_shared<pugi::xml_document>();
    return hr::kOk;
  }

  HResult Load(std::wstring_view path) override {
    if (!document_) return hr::kFail;
    parsed_ = false;
    document_->reset();
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return HResultFromWin32(error);
    std::vector<char> contents;
    error = ReadWholeFile(native, contents);
    if (error != err::kSuccess) return HResultFromWin32(error);
    const pugi::xml_parse_result result = document_->load_buffer(
        contents.data(), contents.size(), kParseOptions, pugi::encoding_auto);
    parsed_ = result && HasSingleRootElement(*document_);
    return hr::kOk;
  }

  HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) override {
    element.reset();
    if (!document_) return hr::kFail;
    if (!parsed_) return hr::kFalse;
    element = std::make_unique<PugiElement>(document_, document_->document_element());
    return hr::kOk;
  }

  void Close() override {
    document_.reset();
    parsed_ = false;
  }

 private:
  std::shared_ptr<pugi::xml_document> document_;
  bool parsed_ = false;
};

}  // namespace

std::unique_ptr<XmlDocument> NewXmlDocument() { return std::make_unique<PugiDocument>(); }

}  // namespace tw
