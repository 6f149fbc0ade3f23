#include "base/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "base/hresult_error.h"

namespace tw {
namespace {

TEST(Format, WideStringAndIntegers) {
  EXPECT_EQ(Format(L"Migrating profile: %s", std::wstring(L"\\\\srv\\p\\bob")),
            L"Migrating profile: \\\\srv\\p\\bob");
  EXPECT_EQ(Format(L"%d profiles were migrated from %s.", 3, L"x"),
            L"3 profiles were migrated from x.");
  EXPECT_EQ(Format(L"(return %d)", -1), L"(return -1)");
}

TEST(Format, HexCodesAsThirtyTwoBitValues) {
  EXPECT_EQ(Format(L"(0x%08X)", static_cast<std::int32_t>(0x800700B7u)), L"(0x800700B7)");
  EXPECT_EQ(Format(L"(0x%08X)", 5u), L"(0x00000005)");
  EXPECT_EQ(Format(L"[0x%08lx]", std::uint32_t{0x1a2c}), L"[0x00001a2c]");
  EXPECT_EQ(Format(L"%x", std::int32_t{-1}), L"ffffffff");
}

TEST(Format, DecimalOfUnsignedCodeIsSigned) {
  EXPECT_EQ(Format(L"%d", 0x80070005u), L"-2147024891");
  EXPECT_EQ(Format(L"%u", std::int32_t{-1}), L"4294967295");
}

TEST(Format, PercentInArgumentIsNotInterpreted) {
  EXPECT_EQ(Format(L"path %s done", L"C:\\a%sb%n%%"), L"path C:\\a%sb%n%% done");
  EXPECT_EQ(Format(L"100%%"), L"100%");
}

TEST(Format, ConversionWithoutTypeLetterAtEnd) {
  EXPECT_EQ(Format(L"code 0x%08", 0x80070005u), L"code 0x80070005");
}

TEST(Format, ConversionWithoutTypeLetterKeepsNextCharacterAndNextArgument) {
  EXPECT_EQ(Format(L"owner (0x%08): %s", 0x80070005u, L"C:\\p\\ntuser.dat"),
            L"owner (0x80070005): C:\\p\\ntuser.dat");
  EXPECT_EQ(Format(L"(0x%08)%s", 0x1Fu, L"!"), L"(0x0000001F)!");
}

TEST(Format, FlagsWidthPrecision) {
  EXPECT_EQ(Format(L"[%5d]", 42), L"[   42]");
  EXPECT_EQ(Format(L"[%-5d]", 42), L"[42   ]");
  EXPECT_EQ(Format(L"[%05d]", -42), L"[-0042]");
  EXPECT_EQ(Format(L"[%+d]", 42), L"[+42]");
  EXPECT_EQ(Format(L"[%.3s]", L"abcdef"), L"[abc]");
  EXPECT_EQ(Format(L"[%6s]", L"ab"), L"[    ab]");
  EXPECT_EQ(Format(L"[%#x]", 255), L"[0xff]");
  EXPECT_EQ(Format(L"[%c]", L'Z'), L"[Z]");
  EXPECT_EQ(Format(L"[%.4d]", 7), L"[0007]");
}

TEST(Format, NullStringPrintsNullMarker) {
  const wchar_t* nothing = nullptr;
  EXPECT_EQ(Format(L"[%s]", nothing), L"[(null)]");
}

TEST(Format, SixtyFourBitValues) {
  EXPECT_EQ(Format(L"%llu", std::uint64_t{10485761}), L"10485761");
  EXPECT_EQ(Format(L"%I64d", std::int64_t{-5}), L"-5");
}

TEST(FormatWithArgs, MismatchThrowsInvalidArg) {
  const format_detail::Arg number = format_detail::MakeArg(5);
  try {
    FormatWithArgs(L"%s", std::span<const format_detail::Arg>(&number, 1));
    FAIL() << "no exception";
  } catch (const HResultError& e) {
    EXPECT_EQ(e.code(), hr::kInvalidArg);
  }
  EXPECT_THROW(FormatWithArgs(L"%d %d", std::span<const format_detail::Arg>(&number, 1)),
               HResultError);
  EXPECT_THROW(FormatWithArgs(L"none", std::span<const format_detail::Arg>(&number, 1)),
               HResultError);
}

TEST(FormatMessageText, LineBreaksInArgumentsAreWrittenEscaped) {
  EXPECT_EQ(FormatMessageText(L"Processing folder %s", L"a\r\nb"), L"Processing folder a<CR><LF>b");
  EXPECT_EQ(FormatMessageText(L"%s|%s", std::wstring(L"\n\n"), std::wstring_view(L"\r")),
            L"<LF><LF>|<CR>");
  EXPECT_EQ(FormatMessageText(L"[%c]", static_cast<int>(L'\n')), L"[<LF>]");
}

TEST(FormatMessageText, LineBreaksOfTheFormatItselfStay) {
  EXPECT_EQ(FormatMessageText(L"%d profiles were migrated from %s.\r\n", 1, L"\\\\s\\p\r\nx"),
            L"1 profiles were migrated from \\\\s\\p<CR><LF>x.\r\n");
  EXPECT_EQ(FormatMessageText(L"No command line args, exiting.\r\n---------- Exiting"),
            L"No command line args, exiting.\r\n---------- Exiting");
}

TEST(FormatMessageText, EverythingElseIsAsFormatWritesIt) {
  // Backslashes, "%", tabs and other control characters are not escaped; widths and precisions
  // count the written characters.
  EXPECT_EQ(FormatMessageText(L"%s", L"C:\\new\\reports\t%s\x01"), L"C:\\new\\reports\t%s\x01");
  EXPECT_EQ(FormatMessageText(L"(0x%08X): %s", 0x80070005u, L"p"), L"(0x80070005): p");
  EXPECT_EQ(FormatMessageText(L"%.5s|%-7s|", L"a\nbcd", L"\r"), L"a<LF>|<CR>   |");
  const wchar_t* none = nullptr;
  EXPECT_EQ(FormatMessageText(L"%s", none), L"(null)");
}

TEST(Format, KeepsLineBreaksInArgumentsForPathsAndNames) {
  EXPECT_EQ(Format(L"%s\\%s", L"C:\\p", L"a\r\nb"), L"C:\\p\\a\r\nb");
}

}  // namespace
}  // namespace tw
