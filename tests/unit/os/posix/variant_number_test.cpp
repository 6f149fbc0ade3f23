#include "os/posix/variant_number.h"

#include <gtest/gtest.h>

namespace tw::posix {
namespace {

TEST(VariantTextToInt32, PlainNumbersConvert) {
  EXPECT_EQ(VariantTextToInt32(L"1"), 1);
  EXPECT_EQ(VariantTextToInt32(L"0"), 0);
  EXPECT_EQ(VariantTextToInt32(L"-7"), -7);
  EXPECT_EQ(VariantTextToInt32(L"+12"), 12);
  EXPECT_EQ(VariantTextToInt32(L"007"), 7);
}

TEST(VariantTextToInt32, SurroundingWhiteSpaceIsAccepted) {
  EXPECT_EQ(VariantTextToInt32(L" 2 "), 2);
  EXPECT_EQ(VariantTextToInt32(L"\t3\r\n"), 3);
}

TEST(VariantTextToInt32, NonNumbersDoNotConvert) {
  EXPECT_EQ(VariantTextToInt32(L"true"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"0x10"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L""), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"   "), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"-"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"."), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"1 2"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"1e3"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"1,000"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"5x"), std::nullopt);
}

TEST(VariantTextToInt32, FractionsRoundHalfToEven) {
  EXPECT_EQ(VariantTextToInt32(L"1.5"), 2);
  EXPECT_EQ(VariantTextToInt32(L"2.5"), 2);
  EXPECT_EQ(VariantTextToInt32(L"2.51"), 3);
  EXPECT_EQ(VariantTextToInt32(L"2.49"), 2);
  EXPECT_EQ(VariantTextToInt32(L"-0.5"), 0);
  EXPECT_EQ(VariantTextToInt32(L"-1.5"), -2);
  EXPECT_EQ(VariantTextToInt32(L".6"), 1);
  EXPECT_EQ(VariantTextToInt32(L"4."), 4);
}

TEST(VariantTextToInt32, OutOfRangeDoesNotConvert) {
  EXPECT_EQ(VariantTextToInt32(L"2147483647"), 2147483647);
  EXPECT_EQ(VariantTextToInt32(L"-2147483648"), INT32_MIN);
  EXPECT_EQ(VariantTextToInt32(L"2147483648"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"-2147483649"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"2147483647.5"), std::nullopt);
  EXPECT_EQ(VariantTextToInt32(L"99999999999999999999999"), std::nullopt);
}

}  // namespace
}  // namespace tw::posix
