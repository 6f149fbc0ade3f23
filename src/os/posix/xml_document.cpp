// The XML document port on POSIX, over pugixml.
//
// MSXML's behaviour kept here:
// - a file that cannot be found fails Load with the Win32 error of the failure turned into a
//   result (a missing file 0x80070002); a path that is not a regular file (folder, FIFO,
//   device), a file over 16 MiB and a file that may not be read load as a file that did not
//   parse (see ReadDocumentFile);
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
#include "ports/xml_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "os/native_ports.h"
#include "os/posix/errno_win32.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/variant_number.h"

namespace tw {

namespace {

// pugixml's default options, parsed as a fragment so that text outside the top-level element is
// kept and can be refused by HasSingleRootElement (in document mode pugixml drops it silently).
constexpr unsigned int kParseOptions = pugi::parse_default | pugi::parse_fragment;

bool IsXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Appends the text and CDATA of every descendant of `node`, in document order. The walk moves
// along the tree's own links instead of recursing, so a document nested as deeply as its size
// allows never exhausts the stack.
void AppendDescendantText(const pugi::xml_node& node, std::string& text) {
  pugi::xml_node current = node.first_child();
  while (current && current != node) {
    if (current.type() == pugi::node_pcdata || current.type() == pugi::node_cdata) {
      text += current.value();
    }
    if (current.type() == pugi::node_element && current.first_child()) {
      current = current.first_child();
      continue;
    }
    while (current != node && !current.next_sibling()) current = current.parent();
    if (current != node) current = current.next_sibling();
  }
}

class PugiElement final : public XmlElement {
 public:
  PugiElement(std::shared_ptr<const pugi::xml_document> document, pugi::xml_node node)
      : document_(std::move(document)), node_(node) {}

  [[nodiscard]] HResult SelectChild(std::wstring_view name,
                                    std::unique_ptr<XmlElement>& child) override {
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

  [[nodiscard]] HResult GetText(std::wstring& text) override {
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

// The largest configuration file that is read; a larger one counts as a file that does not parse.
constexpr off_t kMaxDocumentSize = off_t{16} * 1024 * 1024;

// How a read of the document file ended.
enum class FileRead {
  kRead,         // the bytes are in `contents`
  kNotDocument,  // nothing that can hold a document: it loads as a file that did not parse
};

bool IsReadableDocument(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_size <= kMaxDocumentSize;
}

// Reads the whole file at the native path; a Win32 error when it cannot be found.
//
// A path that is not a regular file (a folder, a FIFO, a device such as /dev/zero) and a file
// that may not be read load as a file that did not parse (the document has no element; nothing
// is stored and nothing is reported), as the Windows document's load does when it gives back
// S_FALSE. Deliberate deviation: a file larger than 16 MiB counts as one that did not parse as
// well, so that no configuration can make the run's memory grow without bound. Only a regular
// file is ever opened for reading: the type is checked before the open and again on the opened
// descriptor, and the open never waits (O_NONBLOCK), so a FIFO without a writer cannot hang the
// run and a device is never read. The path itself is the administrator's choice, so a symbolic
// link to a regular file is followed.
[[nodiscard]] err::Win32Error ReadDocumentFile(const std::string& native,
                                               std::vector<char>& contents, FileRead& outcome) {
  contents.clear();
  outcome = FileRead::kNotDocument;
  struct stat status {};
  if (stat(native.c_str(), &status) != 0) {
    if (errno == EACCES || errno == EPERM) return err::kSuccess;
    return posix::Win32ErrorFromErrno(errno);
  }
  if (!IsReadableDocument(status)) return err::kSuccess;
  const FileDescriptor file(open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) {
    if (errno == EACCES || errno == EPERM) return err::kSuccess;
    return posix::Win32ErrorFromErrno(errno);
  }
  if (fstat(file.get(), &status) != 0 || !IsReadableDocument(status)) return err::kSuccess;
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(file.get(), buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      if (errno == EACCES || errno == EPERM) return err::kSuccess;
      return posix::Win32ErrorFromErrno(errno);
    }
    if (got == 0) break;
    // A file that grows while it is read is cut off at the limit: it counts as too large.
    if (contents.size() + static_cast<std::size_t>(got) >
        static_cast<std::size_t>(kMaxDocumentSize)) {
      contents.clear();
      return err::kSuccess;
    }
    contents.insert(contents.end(), buffer, buffer + got);
  }
  outcome = FileRead::kRead;
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
  [[nodiscard]] HResult Create() override {
    document_ = std::make_shared<pugi::xml_document>();
    return hr::kOk;
  }

  [[nodiscard]] HResult Load(std::wstring_view path) override {
    if (!document_) return hr::kFail;
    parsed_ = false;
    document_->reset();
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return HResultFromWin32(error);
    std::vector<char> contents;
    FileRead outcome = FileRead::kNotDocument;
    error = ReadDocumentFile(native, contents, outcome);
    if (error != err::kSuccess) return HResultFromWin32(error);
    if (outcome != FileRead::kRead) return hr::kOk;  // loads as a file that did not parse
    const pugi::xml_parse_result result = document_->load_buffer(
        contents.data(), contents.size(), kParseOptions, pugi::encoding_auto);
    parsed_ = result && HasSingleRootElement(*document_);
    return hr::kOk;
  }

  [[nodiscard]] HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) override {
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

std::unique_ptr<XmlDocument> NewNativeXmlDocument() { return std::make_unique<PugiDocument>(); }

}  // namespace tw
