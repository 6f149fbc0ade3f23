#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "hive/offreg_api.h"
#include "hive/security_parts.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

std::vector<std::uint8_t> Utf16Bytes(const std::wstring& text) {
  std::vector<std::uint8_t> out;
  for (const wchar_t c : text) {
    out.push_back(static_cast<std::uint8_t>(c));
    out.push_back(static_cast<std::uint8_t>(static_cast<std::uint32_t>(c) >> 8));
  }
  return out;
}

class OffregValues : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tw_ORCreateHive(&hive_), err::kSuccess);
    ASSERT_EQ(tw_ORCreateKey(hive_, L"K", nullptr, 0, nullptr, &key_, nullptr), err::kSuccess);
  }
  void TearDown() override { tw_ORCloseHive(hive_); }
  DWORD Set(const wchar_t* name, DWORD type, const std::vector<std::uint8_t>& data) {
    return tw_ORSetValue(key_, name, type, data.data(), static_cast<DWORD>(data.size()));
  }
  ORHKEY hive_ = nullptr;
  ORHKEY key_ = nullptr;
};

TEST_F(OffregValues, SetThenGetIsCaseInsensitiveAndReplaces) {
  ASSERT_EQ(Set(L"Name", 3, {1, 2, 3}), err::kSuccess);
  ASSERT_EQ(Set(L"NAME", 4, {9, 0, 0, 0}), err::kSuccess);
  DWORD type = 0, size = 16;
  std::uint8_t data[16] = {};
  ASSERT_EQ(tw_ORGetValue(key_, nullptr, L"name", &type, data, &size), err::kSuccess);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(data[0], 9);
  DWORD values = 0;
  tw_ORQueryInfoKey(key_, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                    nullptr, nullptr);
  EXPECT_EQ(values, 1u);
  // The value name keeps the spelling of its first write.
  wchar_t name[8];
  DWORD count = 8;
  ASSERT_EQ(tw_OREnumValue(key_, 0, name, &count, nullptr, nullptr, nullptr), err::kSuccess);
  EXPECT_EQ(std::wstring(name, count), L"Name");
}

TEST_F(OffregValues, GetValueSizeQueryMissingValueAndSmallBuffer) {
  ASSERT_EQ(Set(L"bin", 3, std::vector<std::uint8_t>(40, 7)), err::kSuccess);
  DWORD size = 0;
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"bin", nullptr, nullptr, &size), err::kSuccess);
  EXPECT_EQ(size, 40u);
  std::uint8_t small[10];
  size = 10;
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"bin", nullptr, small, &size), err::kMoreData);
  EXPECT_EQ(size, 40u);
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"none", nullptr, nullptr, &size), err::kFileNotFound);
  EXPECT_EQ(tw_ORGetValue(hive_, L"missing", L"bin", nullptr, nullptr, &size), err::kFileNotFound);
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"bin", nullptr, small, nullptr), err::kInvalidParameter);
  // Through a sub key path from the root.
  EXPECT_EQ(tw_ORGetValue(hive_, L"k", L"bin", nullptr, nullptr, &size), err::kSuccess);
}

TEST_F(OffregValues, GetValueAppendsAMissingStringTerminator) {
  const auto text = Utf16Bytes(L"C:\\Users\\ann");  // stored without terminator, on purpose
  ASSERT_EQ(Set(L"Personal", 1, text), err::kSuccess);
  DWORD size = 0;
  ASSERT_EQ(tw_ORGetValue(key_, nullptr, L"Personal", nullptr, nullptr, &size), err::kSuccess);
  EXPECT_EQ(size, text.size() + 2);
  std::vector<std::uint8_t> exact(text.size());
  size = static_cast<DWORD>(exact.size());
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"Personal", nullptr, exact.data(), &size),
            err::kMoreData);
  std::vector<std::uint8_t> buffer(100, 0xAA);
  size = 100;
  ASSERT_EQ(tw_ORGetValue(key_, nullptr, L"Personal", nullptr, buffer.data(), &size),
            err::kSuccess);
  EXPECT_EQ(size, text.size() + 2);
  EXPECT_EQ(buffer[text.size()], 0);
  EXPECT_EQ(buffer[text.size() + 1], 0);
  // OREnumValue returns the data exactly as stored.
  wchar_t name[16];
  DWORD count = 16;
  size = 100;
  ASSERT_EQ(tw_OREnumValue(key_, 0, name, &count, nullptr, buffer.data(), &size), err::kSuccess);
  EXPECT_EQ(size, text.size());
}

TEST_F(OffregValues, TerminatedStringIsReturnedAsStored) {
  const auto text = Utf16Bytes(std::wstring(L"abc\0", 4));
  ASSERT_EQ(Set(L"s", 2, text), err::kSuccess);
  DWORD size = 0;
  ASSERT_EQ(tw_ORGetValue(key_, nullptr, L"s", nullptr, nullptr, &size), err::kSuccess);
  EXPECT_EQ(size, text.size());
}

TEST_F(OffregValues, DefaultValueByNullOrEmptyName) {
  ASSERT_EQ(Set(nullptr, 1, Utf16Bytes(std::wstring(L"d\0", 2))), err::kSuccess);
  DWORD type = 0, size = 0;
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"", &type, nullptr, &size), err::kSuccess);
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(tw_ORDeleteValue(key_, L""), err::kSuccess);
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, nullptr, &type, nullptr, &size), err::kFileNotFound);
  EXPECT_EQ(tw_ORDeleteValue(key_, nullptr), err::kFileNotFound);
}

TEST_F(OffregValues, EnumValueProtocol) {
  ASSERT_EQ(Set(L"first", 4, {1, 0, 0, 0}), err::kSuccess);
  ASSERT_EQ(Set(L"second", 3, std::vector<std::uint8_t>(600, 1)), err::kSuccess);
  wchar_t name[8];
  DWORD count = 8, type = 0, size = 0;
  // Size only.
  ASSERT_EQ(tw_OREnumValue(key_, 1, name, &count, &type, nullptr, &size), err::kSuccess);
  EXPECT_EQ(size, 600u);
  EXPECT_EQ(type, 3u);
  // Data buffer too small: the name and type are given, the size is the one needed.
  std::vector<std::uint8_t> data(520);
  count = 8;
  size = 520;
  EXPECT_EQ(tw_OREnumValue(key_, 1, name, &count, &type, data.data(), &size), err::kMoreData);
  EXPECT_EQ(size, 600u);
  EXPECT_EQ(std::wstring(name, count), L"second");
  // Name buffer too small.
  count = 6;
  EXPECT_EQ(tw_OREnumValue(key_, 1, name, &count, nullptr, nullptr, nullptr), err::kMoreData);
  EXPECT_EQ(count, 6u);
  count = 8;
  EXPECT_EQ(tw_OREnumValue(key_, 2, name, &count, nullptr, nullptr, nullptr), err::kNoMoreItems);
  EXPECT_EQ(tw_OREnumValue(key_, 0, name, &count, nullptr, data.data(), nullptr),
            err::kInvalidParameter);
}

TEST_F(OffregValues, SetValueArgumentsAndEmptyData) {
  EXPECT_EQ(tw_ORSetValue(key_, L"x", 3, nullptr, 5), err::kInvalidParameter);
  EXPECT_EQ(tw_ORSetValue(key_, std::wstring(16384, L'v').c_str(), 3, nullptr, 0),
            err::kInvalidParameter);
  ASSERT_EQ(tw_ORSetValue(key_, L"empty", 0, nullptr, 0), err::kSuccess);
  DWORD size = 9;
  EXPECT_EQ(tw_ORGetValue(key_, nullptr, L"empty", nullptr, nullptr, &size), err::kSuccess);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(tw_ORDeleteValue(key_, L"EMPTY"), err::kSuccess);
}

TEST_F(OffregValues, KeySecuritySizeQueryPartsAndReplace) {
  DWORD full = 0;
  ASSERT_EQ(tw_ORQueryInfoKey(key_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, &full, nullptr),
            err::kSuccess);
  EXPECT_EQ(full, DefaultSecurityDescriptor().size());
  DWORD size = 0;
  EXPECT_EQ(tw_ORGetKeySecurity(key_, kDaclSecurityInformation, nullptr, &size),
            err::kInsufficientBuffer);
  EXPECT_GT(size, 20u);
  EXPECT_LT(size, full);  // no owner or group
  std::vector<std::uint8_t> small(size - 1);
  DWORD smallSize = size - 1;
  EXPECT_EQ(tw_ORGetKeySecurity(key_, kDaclSecurityInformation, small.data(), &smallSize),
            err::kInsufficientBuffer);
  EXPECT_EQ(smallSize, size);
  std::vector<std::uint8_t> dacl(full);  // the caller's buffer of the full size fits a part
  DWORD daclSize = full;
  ASSERT_EQ(tw_ORGetKeySecurity(key_, kDaclSecurityInformation, dacl.data(), &daclSize),
            err::kSuccess);
  EXPECT_EQ(daclSize, size);
  EXPECT_EQ(dacl[4] | dacl[5] | dacl[6] | dacl[7], 0);  // no owner offset

  // Protect the DACL, then unprotect it: the control bit follows.
  ASSERT_EQ(tw_ORSetKeySecurity(key_, kDaclSecurityInformation | kProtectedDaclSecurityInformation,
                                dacl.data()),
            err::kSuccess);
  std::vector<std::uint8_t> now(full);
  DWORD nowSize = full;
  ASSERT_EQ(tw_ORGetKeySecurity(key_, 0x5, now.data(), &nowSize), err::kSuccess);
  EXPECT_EQ((now[2] | (now[3] << 8)) & kSeDaclProtected, kSeDaclProtected);
  EXPECT_NE(now[4] | now[5] | now[6] | now[7], 0);  // the owner is still there
  ASSERT_EQ(tw_ORSetKeySecurity(
                key_, kDaclSecurityInformation | kUnprotectedDaclSecurityInformation, dacl.data()),
            err::kSuccess);
  nowSize = full;
  ASSERT_EQ(tw_ORGetKeySecurity(key_, 0x5, now.data(), &nowSize), err::kSuccess);
  EXPECT_EQ((now[2] | (now[3] << 8)) & kSeDaclProtected, 0);

  std::uint8_t garbage[20] = {7};
  EXPECT_EQ(tw_ORSetKeySecurity(key_, kDaclSecurityInformation, garbage),
            err::kInvalidSecurityDescr);
  EXPECT_EQ(tw_ORSetKeySecurity(key_, kDaclSecurityInformation, nullptr), err::kInvalidParameter);
  EXPECT_EQ(tw_ORGetKeySecurity(key_, kDaclSecurityInformation, nullptr, nullptr),
            err::kInvalidParameter);
}

TEST(OffregTimes, SettingAndDeletingAValueUpdateTheKeysTime) {
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive(testing::TestHive("windows-xp-special.hiv").wstring().c_str(), &hive),
            err::kSuccess);
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive, L"weird\u2122", &key), err::kSuccess);
  const auto timeOf = [](ORHKEY k) {
    FILETIME t{};
    tw_ORQueryInfoKey(k, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                      nullptr, &t);
    return (std::uint64_t{t.dwHighDateTime} << 32) | t.dwLowDateTime;
  };
  EXPECT_EQ(timeOf(key), 130338615627187500ull);  // as written by Windows
  const std::uint8_t one = 1;
  ASSERT_EQ(tw_ORSetValue(key, L"v", 3, &one, 1), err::kSuccess);
  const std::uint64_t afterSet = timeOf(key);
  EXPECT_GT(afterSet, 130338615627187500ull + 10000000ull * 3600 * 24 * 365);
  EXPECT_EQ(timeOf(hive), 130338615627187500ull);  // the parent is not touched by values
  ASSERT_EQ(tw_ORDeleteValue(key, L"V"), err::kSuccess);
  EXPECT_GE(timeOf(key), afterSet);
  tw_ORCloseHive(hive);
}

}  // namespace
}  // namespace tw::hive
