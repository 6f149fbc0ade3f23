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

TEST(Utf8ToWide, InvalidLeadBytesBecomeStandInsEach) {
  EXPECT_EQ(Utf8ToWide(Str({0x80, 0x41})), FromUnits({0xDC80, 0x41}));
  EXPECT_EQ(Utf8ToWide(Str({0xC0, 0xAF})), FromUnits({0xDCC0, 0xDCAF}));  // overlong "/"
  EXPECT_EQ(Utf8ToWide(Str({0xF5, 0x80})), FromUnits({0xDCF5, 0xDC80}));
  EXPECT_EQ(Utf8ToWide(Str({0xFF})), FromUnits({0xDCFF}));
  EXPECT_EQ(Utf8ToWide(Str({0xC3, 0x28})), FromUnits({0xDCC3, 0x28}));
}

TEST(Utf8ToWide, TruncatedSequenceGivesOneStandInPerByte) {
  EXPECT_EQ(Utf8ToWide(Str({0xE2, 0x82, 0x41})), FromUnits({0xDCE2, 0xDC82, 0x41}));
  EXPECT_EQ(Utf8ToWide(Str({0xE2, 0x82})), FromUnits({0xDCE2, 0xDC82}));
  EXPECT_EQ(Utf8ToWide(Str({0xF0, 0x9F, 0x98})), FromUnits({0xDCF0, 0xDC9F, 0xDC98}));
}

TEST(Utf8ToWide, OverlongThreeAndFourByteFormsAreRejected) {
  EXPECT_EQ(Utf8ToWide(Str({0xE0, 0x80, 0xAF})), FromUnits({0xDCE0, 0xDC80, 0xDCAF}));
  EXPECT_EQ(Utf8ToWide(Str({0xF0, 0x80, 0x80, 0xAF})), FromUnits({0xDCF0, 0xDC80, 0xDC80, 0xDCAF}));
}

TEST(Utf8ToWide, ValuesAboveUnicodeAreRejected) {
  EXPECT_EQ(Utf8ToWide(Str({0xF4, 0x90, 0x80, 0x80})), FromUnits({0xDCF4, 0xDC90, 0xDC80, 0xDC80}));
}

TEST(Utf8ToWide, NeverMakesUpAReplacementCharacter) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    const std::wstring text = Utf8ToWide(std::string(1, static_cast<char>(byte)));
    EXPECT_EQ(text.find(L'\uFFFD'), std::wstring::npos) << byte;
  }
  EXPECT_EQ(Utf8ToWide(Str({0xEF, 0xBF, 0xBD})), L"\uFFFD");  // one that is there is kept
}

TEST(Utf8ToWide, EncodedLoneSurrogateGivesTheSurrogate) {
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80})), FromUnits({0xD800}));
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xB0, 0x80, 0x41})), FromUnits({0xDC00, 0x41}));
}

TEST(Utf8ToWide, EncodedSurrogatesThatWouldNotComeBackAreUndecodableBytes) {
  // A pair in its two three-byte forms would be written back as one four-byte character.
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80, 0xED, 0xB0, 0x80})),
            FromUnits({0xDCED, 0xDCA0, 0xDC80, 0xDC00}));
  // A high surrogate before an undecodable byte would pair with its stand-in.
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80, 0xFF})), FromUnits({0xDCED, 0xDCA0, 0xDC80, 0xDCFF}));
  // ... and so would every high surrogate of a run before it.
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xA0, 0x80, 0xED, 0xA0, 0x81, 0x80})),
            FromUnits({0xDCED, 0xDCA0, 0xDC80, 0xDCED, 0xDCA0, 0xDC81, 0xDC80}));
  // The three-byte form of a stand-in would be written back as one byte.
  EXPECT_EQ(Utf8ToWide(Str({0xED, 0xB2, 0x80})), FromUnits({0xDCED, 0xDCB2, 0xDC80}));
}

TEST(WideToUtf8, StandInsBecomeTheirBytes) {
  EXPECT_EQ(WideToUtf8(FromUnits({0x61, 0xDCFF, 0xDC80, 0x62})), Str({0x61, 0xFF, 0x80, 0x62}));
  // A high surrogate before it makes it the second half of a pair.
  EXPECT_EQ(WideToUtf8(FromUnits({0xD800, 0xDC80})), Str({0xF0, 0x90, 0x82, 0x80}));
}

TEST(Utf8, UnpairedSurrogatesSurviveRoundTrip) {
  const std::wstring text = FromUnits({0x0061, 0xDC01, 0xD802, 0x0062, 0xD803});
  EXPECT_EQ(Utf8ToWide(WideToUtf8(text)), text);
  const std::wstring standIns = FromUnits({0xDC80, 0x41, 0xDCFF, 0xDD00, 0xDFFF});
  EXPECT_EQ(Utf8ToWide(WideToUtf8(standIns)), standIns);
}

// Bytes that make every kind of sequence: ASCII, continuation bytes at the range edges, every
// kind of lead byte, the bytes of surrogates and of values above U+10FFFF.
constexpr unsigned char kInterestingBytes[] = {
    0x00, 0x2F, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xAF, 0xB0, 0xBF, 0xC0, 0xC1, 0xC2,
    0xC3, 0xDF, 0xE0, 0xE2, 0xED, 0xEE, 0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xF8, 0xFE, 0xFF};

void ExpectBytesSurvive(const std::string& bytes) {
  const std::wstring wide = Utf8ToWide(bytes);
  ASSERT_EQ(WideToUtf8(wide), bytes) << ::testing::PrintToString(Bytes(bytes.begin(), bytes.end()));
  // Equal bytes in, equal text out: the stand-ins keep names apart that U+FFFD would merge.
  ASSERT_EQ(Utf8ToWide(WideToUtf8(wide)), wide);
}

TEST(Utf8, EveryByteStringOfUpToTwoBytesSurvivesRoundTrip) {
  for (int a = 0; a < 256; ++a) {
    ExpectBytesSurvive(std::string(1, static_cast<char>(a)));
    for (int b = 0; b < 256; ++b) {
      ExpectBytesSurvive(std::string{static_cast<char>(a), static_cast<char>(b)});
    }
  }
}

TEST(Utf8, EveryFourByteStringOfInterestingBytesSurvivesRoundTrip) {
  std::string bytes(4, '\0');
  for (const unsigned char a : kInterestingBytes) {
    for (const unsigned char b : kInterestingBytes) {
      for (const unsigned char c : kInterestingBytes) {
        for (const unsigned char d : kInterestingBytes) {
          bytes = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c),
                   static_cast<char>(d)};
          ExpectBytesSurvive(bytes);
        }
      }
    }
  }
}

TEST(Utf8, RandomByteStringsSurviveRoundTrip) {
  std::uint32_t state = 12345;
  const auto next = [&state] {
    state = state * 1664525u + 1013904223u;  // a fixed sequence: the test is repeatable
    return state >> 8;
  };
  for (int round = 0; round < 100000; ++round) {
    std::string bytes(next() % 24, '\0');
    for (char& byte : bytes) {
      const std::uint32_t pick = next();
      byte = static_cast<char>(pick % 2 == 0
                                   ? kInterestingBytes[(pick >> 1) % sizeof(kInterestingBytes)]
                                   : (pick >> 1) & 0xFF);
    }
    ExpectBytesSurvive(bytes);
  }
}

TEST(UndecodableByte, IsTheByteOfAStandInOnly) {
  EXPECT_EQ(UndecodableByte(static_cast<wchar_t>(0xDC80)), 0x80);
  EXPECT_EQ(UndecodableByte(static_cast<wchar_t>(0xDCFF)), 0xFF);
  EXPECT_EQ(UndecodableByte(static_cast<wchar_t>(0xDC7F)), -1);
  EXPECT_EQ(UndecodableByte(static_cast<wchar_t>(0xDD00)), -1);
  EXPECT_EQ(UndecodableByte(L'A'), -1);
}

TEST(ShowUndecodableBytes, ShowsEachStandInAsItsByteInHex) {
  EXPECT_EQ(ShowUndecodableBytes(Utf8ToWide(Str({'c', 'a', 'f', 0xE9, '.', 't', 'x', 't'}))),
            L"caf<E9>.txt");
  EXPECT_EQ(ShowUndecodableBytes(Utf8ToWide(Str({0xC3, 0x28, 0x80, 0xFF}))), L"<C3>(<80><FF>");
  EXPECT_EQ(ShowUndecodableBytes(L"Z:\\a\u00E9\\b"), L"Z:\\a\u00E9\\b");
  // The second half of a pair is not a stand-in.
  const std::wstring pair = FromUnits({0xD83D, 0xDC80});
  EXPECT_EQ(ShowUndecodableBytes(pair), pair);
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
