#include "base/hresult.h"

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

#include "base/format.h"
#include "base/hresult_error.h"
#include "base/result_conversions.h"
#include "base/win32_error.h"

namespace tw {
namespace {

// The two result types do not mix: neither is made from, compared with or assigned from the other.
static_assert(!std::is_convertible_v<err::Win32Error, HResult>);
static_assert(!std::is_constructible_v<HResult, err::Win32Error>);
static_assert(!std::is_convertible_v<HResult, err::Win32Error>);
static_assert(!std::is_constructible_v<err::Win32Error, HResult>);
static_assert(!std::is_convertible_v<HResult, std::int32_t>);
static_assert(!std::is_convertible_v<std::int32_t, HResult>);
static_assert(!std::is_convertible_v<std::uint32_t, err::Win32Error>);
static_assert(!std::is_invocable_v<decltype(HResultFromWin32), HResult>);
static_assert(!std::is_invocable_v<decltype(HResultFromWin32), std::uint32_t>);
template <class A, class B>
concept EqualityComparable = requires(A a, B b) {
  a == b;
};
static_assert(!EqualityComparable<HResult, err::Win32Error>);
static_assert(!EqualityComparable<err::Win32Error, HResult>);
static_assert(!EqualityComparable<HResult, int>);

TEST(HResultFromWin32, PositiveCodeGetsFacilityWin32) {
  EXPECT_EQ(HResultFromWin32(err::kAccessDenied), HResult::FromBits(0x80070005u));
  EXPECT_EQ(HResultFromWin32(err::kAlreadyExists), hr::kAlreadyExists);
  EXPECT_EQ(HResultFromWin32(err::kInvalidHandle), hr::kHandle);
  EXPECT_EQ(HResultFromWin32(err::kInvalidFunction), hr::kNotBound);
}

TEST(HResultFromWin32, OnlyLowSixteenBitsAreKept) {
  EXPECT_EQ(HResultFromWin32(err::Win32Error{0x12345u}), HResult::FromBits(0x80072345u));
}

TEST(HResultFromWin32, ZeroAndNegativeValuesAreKept) {
  EXPECT_EQ(HResultFromWin32(err::kSuccess), hr::kOk);
  EXPECT_EQ(HResultFromWin32(err::Win32Error{0x80040001u}), hr::kSourceProfileInvalid);
  EXPECT_EQ(HResultFromWin32(err::Win32Error{0xFFFFFFFFu}), HResult{-1});
}

TEST(HResult, SucceededAndFailedFollowTheSign) {
  EXPECT_TRUE(Succeeded(hr::kOk));
  EXPECT_TRUE(Succeeded(hr::kFalse));
  EXPECT_FALSE(Failed(hr::kFalse));
  EXPECT_TRUE(Failed(hr::kFail));
  EXPECT_EQ(HResult{}, hr::kOk);
  EXPECT_EQ(err::Win32Error{}, err::kSuccess);
}

TEST(HResult, FormatsAsItsThirtyTwoBits) {
  EXPECT_EQ(Format(L"(0x%08X)", hr::kAlreadyExists), L"(0x800700B7)");
  EXPECT_EQ(Format(L"%d", hr::kFail), L"-2147467259");
  EXPECT_EQ(Format(L"(0x%08X)", err::kAlreadyExists), L"(0x000000B7)");
  EXPECT_EQ(Format(L"%u", err::kAccessDenied), L"5");
}

TEST(HResult, PrintsForTests) {
  std::ostringstream hrText;
  PrintTo(hr::kAlreadyExists, &hrText);
  EXPECT_EQ(hrText.str(), "0x800700B7");
  std::ostringstream errorText;
  PrintTo(err::kAccessDenied, &errorText);
  EXPECT_EQ(errorText.str(), "Win32Error 5");
}

// The documented mixes: each keeps its raw behaviour, and a "fix" to the regular conversion
// would fail here.
TEST(ResultConversions, RawWin32CodeStaysTheBareNumber) {
  EXPECT_EQ(RawWin32CodeAsResult(err::kInvalidFunction), HResult{1});
  EXPECT_EQ(RawWin32CodeAsResult(err::kPathNotFound), HResult{3});
  EXPECT_NE(RawWin32CodeAsResult(err::kPathNotFound), HResultFromWin32(err::kPathNotFound));
  EXPECT_TRUE(Succeeded(RawWin32CodeAsResult(err::kPathNotFound)));
}

TEST(ResultConversions, OnlyTheBareValueMatchesAWin32Code) {
  EXPECT_TRUE(ResultIsBareWin32Code(HResult{183}, err::kAlreadyExists));
  EXPECT_FALSE(ResultIsBareWin32Code(hr::kAlreadyExists, err::kAlreadyExists));
  EXPECT_FALSE(ResultIsBareWin32Code(HResultFromWin32(err::kAlreadyExists), err::kAlreadyExists));
}

TEST(HResultError, CarriesItsCode) {
  try {
    ThrowHResult(hr::kOutOfMemory);
  } catch (const HResultError& e) {
    EXPECT_EQ(e.code(), HResult::FromBits(0x8007000Eu));
    return;
  }
  FAIL() << "no exception";
}

}  // namespace
}  // namespace tw
