#include "base/text_encoding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tw {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Wide text from UTF-16 code units, the same on both wchar_t widths (through the decoder).
std::wstring FromUnits(std::initializer_list<std::uint16_t> units) {
  Bytes bytes;
  for (const std::uint16_t unit : units) {
    bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
  }
  return Utf16LeToWide(bytes);
}

std::string Str(std::initializer_list<unsigned char> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

// UTF-8

TEST(WideToUtf8, EncodesOneToFourByteForms) {
  EXPECT_EQ(WideToUtf8(L"A"), "A");
  EXPECT_EQ(WideToUtf8(L"\u00E9"), Str({0xC3, 0xA9}));
  EXPECT_EQ(WideToUtf8(L"\u20AC"), Str({0xE2, 0x82, 0xAC}));
  EXPECT_EQ(WideToUtf8(FromUnits({0xD83D, 0xDE00})), Str({0xF0, 0x9F, 0x98, 0x80}));
}

TEST(WideToUtf8, UnpairedSurrogateIsWrittenAsItsOwnCodePoint) {
  EXPECT_EQ(WideToUtf8(FromUnits({0xD800})), Str({0xED, 0xA0, 0x80}));
  EXPECT_EQ(WideToUtf8(FromUnits({0x0041, 0xDC00})), Str({0x41, 0xED, 0xB0, 0x80}));
}

TEST(WideToUtf8, EmptyTextGivesNoBytes) { EXPECT_TRUE(WideToUtf8(L"").empty()); }

TEST(Utf8ToWide, DecodesValidText) {
  EXPECT_EQ(Utf8ToWide("abc"), L"abc");
  EXPECT_EQ(Utf8ToWide(Str({0xC3, 0xA9, 0xE2, 0x82, 0xAC})), L"\u00E9\u20AC");
  EXPECT_EQ(Utf8ToWide(Str({0xF0, 0x9F, 0x98, 0x80})), FromUnits({0xD83D, 0xDE00}));
}

TEST(Utf8ToWide, EmbeddedNulIsKept) {
  const std::wstring text = Utf8ToWide(std::string("a\0b", 3));
  EXPECT_EQ(text, std::wstring(L"a\0b", 3));
}

TEST(Utf8ToWide, InvalidLeadBytesBecomeReplacementEach) {
  EXPECT_EQ(Utf8ToWide(Str({0x80, 0x41})),
            L"\uFFFD"
            L"A");
  EXPECT_EQ(Utf8ToWide(Str({0xC0, 0xAF})), L"\uFFFD\uFFFD");  // overlong "/"
  EXPECT_EQ(Utf8ToWide(Str({0xF5, 0x80})), L"\uFFFD\uFFFD");
  EXPECT_EQ(Utf8ToWide(Str({0xFF})), L"\uFFFD");
}

TEST(Utf8ToWide, TruncatedSequenceIsOneReplacement) {
  EXPECT_EQ(Utf8ToWide(Str({0xE2, 0x82, 0x41})),
            L"\uFFFD"
            L"A");
  EXPECT_EQ(Utf8ToWide(Str({0xE2, 0x82})), L"\uFFFD");
  EXPECT_EQ(Utf8ToWide(Str({0xF0, 0x9F, 0x98})), L"\uFFFD");
}

TEST(Utf8ToWide, OverlongThreeAndFourByteFormsAreRejected) {
  EXPECT_EQ(Utf8ToWide(Str({0xE0, 0x80, 0xAF})), L"\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(Utf8ToWide(Str({0xF0, 0x80, 0x80, 0xAF})), L"\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(Utf8ToWide, ValuesAboveUnicodeAreRejected) {
  EXPECT_EQ(Utf8ToWide(Str({0xF4, 0x90, 0x80, 0x80})), L"\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(Utf8ToWide, EncodedSurrogateGivesTheSurrogate) {
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80})), FromUnits({0xD800}));
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80, 0xED, 0xB0, 0x80})), FromUnits({0xD800, 0xDC00}));
}

TEST(Utf8, UnpairedSurrogatesSurviveRoundTrip) {
  const std::wstring text = FromUnits({0x0061, 0xDC01, 0xD802, 0x0062, 0xD803});
  EXPECT_EQ(Utf8ToWide(WideToUtf8(text)), text);
}

// UTF-16LE

TEST(WideToUtf16Le, WritesLittleEndianUnitsWithoutTerminator) {
  EXPECT_EQ(WideToUtf16Le(L"A\u20AC"), (Bytes{0x41, 0x00, 0xAC, 0x20}));
  EXPECT_TRUE(WideToUtf16Le(L"").empty());
}

TEST(WideToUtf16Le, SupplementaryCharacterBecomesSurrogatePair) {
  const std::wstring text = Utf8ToWide(Str({0xF0, 0x9F, 0x98, 0x80}));
  EXPECT_EQ(WideToUtf16Le(text), (Bytes{0x3D, 0xD8, 0x00, 0xDE}));
}

TEST(Utf16LeToWide, CombinesSurrogatePair) {
  const std::wstring text = Utf16LeToWide(Bytes{0x3D, 0xD8, 0x00, 0xDE});
  if constexpr (sizeof(wchar_t) == 4) {
    ASSERT_EQ(text.size(), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(text[0]), 0x1F600u);
  } else {
    ASSERT_EQ(text.size(), 2u);
    EXPECT_EQ(static_cast<std::uint32_t>(text[0]), 0xD83Du);
  }
}

TEST(Utf16LeToWide, OddTrailingByteIsIgnored) {
  EXPECT_EQ(Utf16LeToWide(Bytes{0x41, 0x00, 0x42}), L"A");
  EXPECT_EQ(Utf16LeToWide(Bytes{0x41}), L"");
}

TEST(Utf16LeToWide, UnpairedSurrogatesAreKept) {
  const std::wstring text = Utf16LeToWide(Bytes{0x00, 0xDC, 0x41, 0x00, 0x00, 0xD8});
  ASSERT_EQ(text.size(), 3u);
  EXPECT_EQ(static_cast<std::uint32_t>(text[0]), 0xDC00u);
  EXPECT_EQ(text[1], L'A');
  EXPECT_EQ(static_cast<std::uint32_t>(text[2]), 0xD800u);
}

TEST(Utf16Le, EveryUnitSequenceSurvivesRoundTrip) {
  // Lone and reversed surrogates, a high surrogate before a pair, NUL, the largest unit.
  const Bytes bytes = {0x00, 0xDC, 0x00, 0xD8, 0x00, 0xD8, 0x00, 0xDC, 0x00, 0x00,
                       0xFF, 0xFF, 0x3D, 0xD8, 0x3D, 0xD8, 0x00, 0xDE, 0x00, 0xDC};
  EXPECT_EQ(WideToUtf16Le(Utf16LeToWide(bytes)), bytes);
}

TEST(Utf16Le, AllSingleUnitsSurviveRoundTrip) {
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    const Bytes bytes = {static_cast<std::uint8_t>(unit & 0xFF),
                         static_cast<std::uint8_t>(unit >> 8)};
    ASSERT_EQ(WideToUtf16Le(Utf16LeToWide(bytes)), bytes) << unit;
  }
}

TEST(Utf16Length, CountsSupplementaryCharactersTwice) {
  EXPECT_EQ(Utf16Length(L"abc"), 3u);
  EXPECT_EQ(Utf16Length(FromUnits({0x41, 0xD83D, 0xDE00, 0xD800})), 4u);
  EXPECT_EQ(Utf16Length(L""), 0u);
}

// Windows-1252

TEST(WideToWindows1252, AsciiAndLatin1AreOneByteEach) {
  bool usedDefault = true;
  EXPECT_EQ(WideToWindows1252(L"Az\u00A0\u00E9\u00FF", &usedDefault),
            Str({0x41, 0x7A, 0xA0, 0xE9, 0xFF}));
  EXPECT_FALSE(usedDefault);
}

TEST(WideToWindows1252, HighControlRowMapsAsWindows) {
  EXPECT_EQ(WideToWindows1252(L"\u20AC\u201A\u0192\u2026\u0160\u017D\u2018\u2122\u0178"),
            Str({0x80, 0x82, 0x83, 0x85, 0x8A, 0x8E, 0x91, 0x99, 0x9F}));
}

TEST(WideToWindows1252, UndefinedBytesRoundTripThroughC1Controls) {
  bool usedDefault = true;
  EXPECT_EQ(WideToWindows1252(L"\u0081\u008D\u008F\u0090\u009D", &usedDefault),
            Str({0x81, 0x8D, 0x8F, 0x90, 0x9D}));
  EXPECT_FALSE(usedDefault);
}

TEST(WideToWindows1252, CharactersOutsideTheCodePageBecomeQuestionMark) {
  bool usedDefault = false;
  EXPECT_EQ(WideToWindows1252(L"a\u0100b\u0080c\u4E2D", &usedDefault), "a?b?c?");
  EXPECT_TRUE(usedDefault);
}

TEST(WideToWindows1252, SurrogatePairIsOneQuestionMark) {
  bool usedDefault = false;
  EXPECT_EQ(WideToWindows1252(FromUnits({0xD83D, 0xDE00, 0xD800}), &usedDefault), "??");
  EXPECT_TRUE(usedDefault);
}

TEST(WideToWindows1252, UsedDefaultMayBeOmitted) { EXPECT_EQ(WideToWindows1252(L"\u0100"), "?"); }

TEST(Windows1252ToWide, HighControlRowMapsAsWindows) {
  const std::wstring text =
      Windows1252ToWide(Str({0x80, 0x81, 0x8C, 0x8D, 0x9C, 0x9F, 0xA0, 0xFF}));
  EXPECT_EQ(text, L"\u20AC\u0081\u0152\u008D\u0153\u0178\u00A0\u00FF");
}

TEST(Windows1252, EveryByteSurvivesRoundTrip) {
  std::string all;
  for (int value = 0; value < 256; ++value) all += static_cast<char>(value);
  bool usedDefault = true;
  EXPECT_EQ(WideToWindows1252(Windows1252ToWide(all), &usedDefault), all);
  EXPECT_FALSE(usedDefault);
}

}  // namespace
}  // namespace tw
