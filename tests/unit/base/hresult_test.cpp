#include "base/hresult.h"

#include <gtest/gtest.h>

#include "base/hresult_error.h"
#include "base/win32_error.h"

namespace tw {
namespace {

TEST(HResultFromWin32, PositiveCodeGetsFacilityWin32) {
  EXPECT_EQ(HResultFromWin32(err::kAccessDenied), static_cast<HResult>(0x80070005u));
  EXPECT_EQ(HResultFromWin32(err::kAlreadyExists), hr::kAlreadyExists);
  EXPECT_EQ(HResultFromWin32(err::kInvalidHandle), hr::kHandle);
  EXPECT_EQ(HResultFromWin32(1), hr::kNotBound);
}

TEST(HResultFromWin32, OnlyLowSixteenBitsAreKept) {
  EXPECT_EQ(HResultFromWin32(0x12345u), static_cast<HResult>(0x80072345u));
}

TEST(HResultFromWin32, ZeroAndNegativeValuesAreKept) {
  EXPECT_EQ(HResultFromWin32(0), 0);
  EXPECT_EQ(HResultFromWin32(0x80040001u), hr::kSourceProfileInvalid);
  EXPECT_EQ(HResultFromWin32(0xFFFFFFFFu), -1);
}

TEST(HResultError, CarriesItsCode) {
  try {
    ThrowHResult(hr::kOutOfMemory);
  } catch (const HResultError& e) {
    EXPECT_EQ(e.code(), static_cast<HResult>(0x8007000Eu));
    return;
  }
  FAIL() << "no exception";
}

}  // namespace
}  // namespace tw
