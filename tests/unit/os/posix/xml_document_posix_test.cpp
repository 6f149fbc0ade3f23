#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "base/text_encoding.h"
#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "ports/xml_document.h"

namespace tw {
namespace {

using ::tw::testing::TempFolder;

// The Windows form ("Z:\\tmp\\...") of a POSIX path, as the core sees it.
std::wstring WindowsForm(const std::string& posixPath) { return posix::ToWindowsPath(posixPath); }
// The POSIX path as wide text, as it stands.
std::wstring Wide(const std::string& posixPath) { return Utf8ToWide(posixPath); }

class PosixXmlDocumentTest : public ::testing::Test {
 protected:
  // Creates and loads a document from bytes; returns its document element (null if none).
  std::unique_ptr<XmlElement> LoadRoot(std::string_view bytes) {
    document_ = NewXmlDocument();
    EXPECT_EQ(document_->Create(), hr::kOk);
    const std::string file = folder_.WriteFile("doc.xml", std::string(bytes));
    EXPECT_EQ(document_->Load(WindowsForm(file)), hr::kOk);
    std::unique_ptr<XmlElement> root;
    EXPECT_EQ(document_->GetDocumentElement(root), hr::kOk);
    return root;
  }

  static std::wstring TextOf(XmlElement& element) {
    std::wstring text;
    EXPECT_EQ(element.GetText(text), hr::kOk);
    return text;
  }

  static std::unique_ptr<XmlElement> Child(XmlElement& parent, std::wstring_view name) {
    std::unique_ptr<XmlElement> child;
    EXPECT_EQ(parent.SelectChild(name, child), hr::kOk) << std::wstring(name);
    return child;
  }

  TempFolder folder_;
  std::unique_ptr<XmlDocument> document_;
};

TEST_F(PosixXmlDocumentTest, LoadsWindowsFormAndPosixPaths) {
  const std::string file = folder_.WriteFile("a.xml", "<r><x>1</x></r>");
  for (const std::wstring& path : {WindowsForm(file), Wide(file)}) {
    auto document = NewXmlDocument();
    ASSERT_EQ(document->Create(), hr::kOk);
    ASSERT_EQ(document->Load(path), hr::kOk) << path;
    std::unique_ptr<XmlElement> root;
    ASSERT_EQ(document->GetDocumentElement(root), hr::kOk);
    EXPECT_EQ(TextOf(*Child(*root, L"x")), L"1");
  }
}

TEST_F(PosixXmlDocumentTest, MissingFileFailsWithFileNotFound) {
  auto document = NewXmlDocument();
  ASSERT_EQ(document->Create(), hr::kOk);
  const std::string missing = (folder_.path() / "none.xml").string();
  EXPECT_EQ(document->Load(WindowsForm(missing)), HResultFromWin32(err::kFileNotFound));
  std::unique_ptr<XmlElement> root;
  EXPECT_EQ(document->GetDocumentElement(root), hr::kFalse);
  EXPECT_EQ(root, nullptr);
}

// A folder or a device holds no document: it loads as a file that did not parse, as the Windows
// document's load gives S_FALSE for it.
TEST_F(PosixXmlDocumentTest, FolderAndDeviceLoadButHaveNoDocumentElement) {
  for (const std::string& path : {folder_.path().string(), std::string("/dev/zero")}) {
    auto document = NewXmlDocument();
    ASSERT_EQ(document->Create(), hr::kOk);
    EXPECT_EQ(document->Load(WindowsForm(path)), hr::kOk) << path;
    std::unique_ptr<XmlElement> root;
    EXPECT_EQ(document->GetDocumentElement(root), hr::kFalse) << path;
    EXPECT_EQ(root, nullptr);
  }
}

TEST_F(PosixXmlDocumentTest, PathOnAnotherDriveFailsWithPathNotFound) {
  auto document = NewXmlDocument();
  ASSERT_EQ(document->Create(), hr::kOk);
  EXPECT_EQ(document->Load(L"C:\\nowhere\\cfg.xml"), HResultFromWin32(err::kPathNotFound));
}

TEST_F(PosixXmlDocumentTest, MalformedFileLoadsButHasNoDocumentElement) {
  for (const char* bytes : {"<r><x>1</r>", "", "just text", "<a/><b/>", "<a/>trailing"}) {
    auto document = NewXmlDocument();
    ASSERT_EQ(document->Create(), hr::kOk);
    const std::string file = folder_.WriteFile("bad.xml", bytes);
    EXPECT_EQ(document->Load(WindowsForm(file)), hr::kOk) << bytes;
    std::unique_ptr<XmlElement> root;
    EXPECT_EQ(document->GetDocumentElement(root), hr::kFalse) << bytes;
    EXPECT_EQ(root, nullptr);
  }
}

TEST_F(PosixXmlDocumentTest, TextIsAllDescendantTextTrimmed) {
  auto root = LoadRoot(
      "<?xml version=\"1.0\"?>\n<r>\n  <a>  one <b>two</b> <![CDATA[ <three> ]]> <!-- no -->\n"
      "  </a>\n<c>\t</c><d/></r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"one two <three>");
  EXPECT_EQ(TextOf(*Child(*root, L"c")), L"");
  EXPECT_EQ(TextOf(*Child(*root, L"d")), L"");
}

TEST_F(PosixXmlDocumentTest, TextKeepsInnerBlanksEntitiesAndNonAscii) {
  auto root = LoadRoot("<r><a> x  &amp; &#x263A; \xC3\xA9\xF0\x9F\x98\x80 %s%n%% </a></r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"x  & \u263A \u00E9\U0001F600 %s%n%%");
}

TEST_F(PosixXmlDocumentTest, ReadsUtf16FileWithByteOrderMark) {
  const std::u16string text = u"\uFEFF<r><a>\u00FCber</a></r>";
  std::string bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  auto root = LoadRoot(bytes);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"\u00FCber");
}

TEST_F(PosixXmlDocumentTest, ReadsLatin1FileByItsDeclaration) {
  auto root = LoadRoot("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r><a>caf\xE9</a></r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"caf\u00E9");
}

TEST_F(PosixXmlDocumentTest, ChildIsFirstElementOfExactName) {
  auto root = LoadRoot("<r><!--a--><A>upper</A><a>first</a><a>second</a><x:a>ns</x:a></r>");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"first");
  EXPECT_EQ(TextOf(*Child(*root, L"A")), L"upper");
  std::unique_ptr<XmlElement> child;
  EXPECT_EQ(root->SelectChild(L"missing", child), hr::kFalse);
  EXPECT_EQ(child, nullptr);
}

TEST_F(PosixXmlDocumentTest, ChildIsADirectChildOnly) {
  auto root = LoadRoot("<r><outer><inner>x</inner></outer></r>");
  ASSERT_NE(root, nullptr);
  std::unique_ptr<XmlElement> child;
  EXPECT_EQ(root->SelectChild(L"inner", child), hr::kFalse);
  auto outer = Child(*root, L"outer");
  EXPECT_EQ(TextOf(*Child(*outer, L"inner")), L"x");
}

TEST_F(PosixXmlDocumentTest, IntegerAttributeConvertsAsAVariant) {
  auto root = LoadRoot(
      "<r one=\"1\" two=\" 2 \" neg=\"-3\" t=\"true\" hex=\"0x10\" empty=\"\" big=\"4294967296\""
      " half=\"2.5\"/>");
  ASSERT_NE(root, nullptr);
  const struct {
    const wchar_t* name;
    HResult result;
    std::optional<std::int32_t> value;
  } cases[] = {{L"one", hr::kOk, 1},
               {L"two", hr::kOk, 2},
               {L"neg", hr::kOk, -3},
               {L"t", hr::kOk, std::nullopt},
               {L"hex", hr::kOk, std::nullopt},
               {L"empty", hr::kOk, std::nullopt},
               {L"big", hr::kOk, std::nullopt},
               {L"half", hr::kOk, 2},
               {L"absent", hr::kFalse, std::nullopt},
               {L"ONE", hr::kFalse, std::nullopt}};
  for (const auto& c : cases) {
    std::optional<std::int32_t> value = 99;
    EXPECT_EQ(root->GetInt32Attribute(c.name, value), c.result) << c.name;
    EXPECT_EQ(value, c.value) << c.name;
  }
}

TEST_F(PosixXmlDocumentTest, ElementsOutliveTheirDocument) {
  std::unique_ptr<XmlElement> root = LoadRoot("<r><a>kept</a></r>");
  ASSERT_NE(root, nullptr);
  document_.reset();
  EXPECT_EQ(TextOf(*Child(*root, L"a")), L"kept");
}

TEST_F(PosixXmlDocumentTest, CallsBeforeCreateFail) {
  auto document = NewXmlDocument();
  EXPECT_EQ(document->Load(L"Z:\\tmp\\x.xml"), hr::kFail);
  std::unique_ptr<XmlElement> root;
  EXPECT_EQ(document->GetDocumentElement(root), hr::kFail);
}

}  // namespace
}  // namespace tw
