#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "hive/hive_model.h"
#include "hive/hive_writer.h"
#include "hive/offreg_api.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::TestHive;

std::wstring Wide(const std::filesystem::path& path) { return path.wstring(); }

class OffregKeys : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tw_OROpenHive(Wide(TestHive("windows-xp-special.hiv")).c_str(), &hive_),
              err::kSuccess);
  }
  void TearDown() override {
    if (hive_ != nullptr) tw_ORCloseHive(hive_);
  }
  ORHKEY hive_ = nullptr;
};

TEST_F(OffregKeys, OpenHiveOfMissingFileIsFileNotFoundAndNullsTheHandle) {
  testing::TempFolder folder;
  ORHKEY handle = reinterpret_cast<ORHKEY>(std::uintptr_t{0x1234});
  EXPECT_EQ(tw_OROpenHive(Wide(folder / "none.dat").c_str(), &handle), err::kFileNotFound);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(tw_OROpenHive(Wide(folder / "no" / "none.dat").c_str(), &handle), err::kPathNotFound);
}

TEST_F(OffregKeys, OpenHiveOfEmptyFileIsBadDbAndOfTextIsNotARegistryFile) {
  testing::TempFolder folder;
  testing::WriteBytes(folder / "empty.dat", {});
  testing::WriteBytes(folder / "text.dat", std::vector<std::uint8_t>(5000, 'x'));
  ORHKEY handle = nullptr;
  EXPECT_EQ(tw_OROpenHive(Wide(folder / "empty.dat").c_str(), &handle), err::kBadDb);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(tw_OROpenHive(Wide(folder / "text.dat").c_str(), &handle), err::kNotRegistryFile);
  EXPECT_EQ(tw_OROpenHive(Wide(folder.path()).c_str(), &handle), err::kAccessDenied);
}

TEST_F(OffregKeys, OpenKeyIsCaseInsensitive) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"ABCD_\u00c4\u00d6\u00dc\u00df", &key), err::kSuccess);
  wchar_t name[64];
  DWORD count = 64;
  // The key has one value; enumerate it to prove the handle names the right key.
  ASSERT_EQ(tw_OREnumValue(key, 0, name, &count, nullptr, nullptr, nullptr), err::kSuccess);
  EXPECT_EQ(std::wstring(name, count), L"abcd_\u00e4\u00f6\u00fc\u00df");
  EXPECT_EQ(tw_ORCloseKey(key), err::kSuccess);
}

TEST_F(OffregKeys, OpenMissingKeyIsFileNotFound) {
  ORHKEY key = reinterpret_cast<ORHKEY>(std::uintptr_t{0x77});
  EXPECT_EQ(tw_OROpenKey(hive_, L"missing", &key), err::kFileNotFound);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(tw_OROpenKey(hive_, L"weird\u2122\\below", &key), err::kFileNotFound);
}

TEST_F(OffregKeys, RootHandleRules) {
  ORHKEY key = nullptr;
  EXPECT_EQ(tw_OROpenKey(hive_, nullptr, &key), err::kInvalidParameter);
  EXPECT_EQ(tw_OROpenKey(hive_, L"", &key), err::kInvalidParameter);
  EXPECT_EQ(tw_ORCloseKey(hive_), err::kInvalidParameter);
  EXPECT_EQ(tw_ORDeleteKey(hive_, nullptr), err::kInvalidParameter);
  EXPECT_EQ(tw_ORCreateKey(hive_, L"", nullptr, 0, nullptr, &key, nullptr), err::kInvalidParameter);
}

TEST_F(OffregKeys, OpenWithNullNameGivesTheSameHandleAndAnEmptyNameIsRefused) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"zero", &key), err::kFileNotFound);  // the name is "zero\0key"
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &key), err::kSuccess);
  ORHKEY same = nullptr;
  EXPECT_EQ(tw_OROpenKey(key, nullptr, &same), err::kSuccess);
  EXPECT_EQ(same, key);
  // A name without a component never names the key itself: a walk that opens each enumerated
  // name must not stand on the same key again.
  const wchar_t nulLeading[] = {L'\0', L'k', L'e', L'y', L'\0'};
  for (const wchar_t* name : {L"", L"\\", static_cast<const wchar_t*>(nulLeading)}) {
    ORHKEY other = reinterpret_cast<ORHKEY>(std::uintptr_t{0x77});
    EXPECT_EQ(tw_OROpenKey(key, name, &other), err::kInvalidParameter);
    EXPECT_EQ(other, nullptr);
  }
  EXPECT_EQ(tw_ORCloseKey(key), err::kSuccess);
}

// A chain of `levels` keys named "d" below `parent`, made 32 levels per call.
void CreateChain(ORHKEY parent, std::size_t levels) {
  ORHKEY key = parent;
  while (levels > 0) {
    const std::size_t step = std::min<std::size_t>(levels, 32);
    std::wstring path = L"d";
    for (std::size_t i = 1; i < step; ++i) path += L"\\d";
    ORHKEY next = nullptr;
    ASSERT_EQ(tw_ORCreateKey(key, path.c_str(), nullptr, 0, nullptr, &next, nullptr),
              err::kSuccess);
    if (key != parent) tw_ORCloseKey(key);
    key = next;
    levels -= step;
  }
  if (key != parent) tw_ORCloseKey(key);
}

// The key `levels` levels of "d" below `hive`, opened one level at a time; null where an open
// failed, with that failure in `error`.
ORHKEY OpenChain(ORHKEY hive, std::size_t levels, DWORD* error) {
  ORHKEY key = hive;
  for (std::size_t level = 1; level <= levels; ++level) {
    ORHKEY next = nullptr;
    *error = tw_OROpenKey(key, L"d", &next);
    if (key != hive) tw_ORCloseKey(key);
    if (*error != err::kSuccess) return nullptr;
    key = next;
  }
  return key;
}

TEST(OffregKeyDepth, NoKeyIsCreatedMoreThan512LevelsBelowTheRoot) {
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  CreateChain(hive, 511);
  DWORD error = 0;
  ORHKEY deep = OpenChain(hive, 511, &error);
  ASSERT_NE(deep, nullptr) << error;
  ORHKEY key = nullptr;
  EXPECT_EQ(tw_ORCreateKey(deep, L"d\\d", nullptr, 0, nullptr, &key, nullptr),
            err::kInvalidParameter);
  ASSERT_EQ(tw_ORCreateKey(deep, L"d", nullptr, 0, nullptr, &key, nullptr), err::kSuccess);
  ORHKEY below = nullptr;
  EXPECT_EQ(tw_ORCreateKey(key, L"d", nullptr, 0, nullptr, &below, nullptr),
            err::kInvalidParameter);
  EXPECT_EQ(below, nullptr);
  tw_ORCloseKey(key);
  tw_ORCloseKey(deep);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
}

TEST(OffregKeyDepth, AKeyDeeperThan512LevelsInAHiveFileIsNeverOpened) {
  // A chain of 600 keys, written by the engine's own writer (which has no such limit).
  Key root;
  root.name = L"ROOT";
  Key* last = &root;
  for (int level = 1; level <= 600; ++level) {
    auto child = std::make_unique<Key>();
    child->name = L"d";
    child->parent = last;
    last->children.push_back(std::move(child));
    last = last->children.back().get();
  }
  testing::TempFolder folder;
  testing::WriteBytes(folder / "deep.dat", SerializeHive(root, 5, L"deep.dat", 0));
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive(Wide(folder / "deep.dat").c_str(), &hive), err::kSuccess);
  DWORD error = 0;
  ORHKEY deepest = OpenChain(hive, 512, &error);
  ASSERT_NE(deepest, nullptr) << error;
  ORHKEY below = reinterpret_cast<ORHKEY>(std::uintptr_t{0x77});
  EXPECT_EQ(tw_OROpenKey(deepest, L"d", &below), err::kInvalidParameter);
  EXPECT_EQ(below, nullptr);
  tw_ORCloseKey(deepest);
  // A path that reaches past the limit in one call is refused too.
  std::wstring path = L"d";
  for (int i = 1; i < 513; ++i) path += L"\\d";
  EXPECT_EQ(tw_OROpenKey(hive, path.c_str(), &below), err::kInvalidParameter);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
}

TEST_F(OffregKeys, ClosedGarbageAndMinusOneHandlesAreInvalid) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &key), err::kSuccess);
  ASSERT_EQ(tw_ORCloseKey(key), err::kSuccess);
  ORHKEY other = nullptr;
  EXPECT_EQ(tw_ORCloseKey(key), err::kInvalidHandle);
  EXPECT_EQ(tw_OROpenKey(key, L"x", &other), err::kInvalidHandle);
  DWORD count = 0;
  EXPECT_EQ(tw_ORQueryInfoKey(key, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr),
            err::kInvalidHandle);
  const ORHKEY minusOne = reinterpret_cast<ORHKEY>(~std::uintptr_t{0});
  EXPECT_EQ(tw_OROpenKey(minusOne, L"x", &other), err::kInvalidHandle);
  EXPECT_EQ(tw_ORCloseKey(minusOne), err::kInvalidHandle);
  EXPECT_EQ(tw_ORCloseHive(minusOne), err::kInvalidHandle);
  EXPECT_EQ(tw_ORCloseHive(nullptr), err::kInvalidHandle);
  EXPECT_EQ(tw_ORCloseKey(reinterpret_cast<ORHKEY>(std::uintptr_t{0x12345678})),
            err::kInvalidHandle);
}

TEST_F(OffregKeys, ClosingTheHiveInvalidatesItsKeyHandles) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &key), err::kSuccess);
  EXPECT_EQ(tw_ORCloseHive(key), err::kInvalidParameter);  // not a root handle
  ASSERT_EQ(tw_ORCloseHive(hive_), err::kSuccess);
  EXPECT_EQ(tw_ORCloseKey(key), err::kInvalidHandle);
  EXPECT_EQ(tw_ORCloseHive(hive_), err::kInvalidHandle);
  hive_ = nullptr;
}

TEST_F(OffregKeys, QueryInfoReportsCountsAndLengthsInCharacters) {
  DWORD subKeys = 0, maxSubKey = 0, maxClass = 0, values = 0, maxValueName = 0, maxValue = 0;
  DWORD security = 0;
  FILETIME time{};
  ASSERT_EQ(tw_ORQueryInfoKey(hive_, nullptr, nullptr, &subKeys, &maxSubKey, &maxClass, &values,
                              &maxValueName, &maxValue, &security, &time),
            err::kSuccess);
  EXPECT_EQ(subKeys, 3u);
  EXPECT_EQ(maxSubKey, 9u);  // "abcd_äöüß"
  EXPECT_EQ(maxClass, 0u);
  EXPECT_EQ(values, 0u);
  EXPECT_GT(security, 20u);
  const std::uint64_t ft = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  EXPECT_EQ(ft, 130338615627187500ull);

  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &key), err::kSuccess);
  ASSERT_EQ(tw_ORQueryInfoKey(key, nullptr, nullptr, &subKeys, &maxSubKey, &maxClass, &values,
                              &maxValueName, &maxValue, nullptr, nullptr),
            err::kSuccess);
  EXPECT_EQ(values, 1u);
  EXPECT_EQ(maxValueName, 13u);  // "symbols $£₤₧€"
  EXPECT_EQ(maxValue, 4u);
  tw_ORCloseKey(key);
}

TEST_F(OffregKeys, QueryInfoClassBufferRules) {
  ORHKEY key = nullptr;
  ASSERT_EQ(
      tw_ORCreateKey(hive_, L"classy", const_cast<wchar_t*>(L"MyClass"), 0, nullptr, &key, nullptr),
      err::kSuccess);
  wchar_t cls[16] = {};
  DWORD length = 7;  // no room for the terminator
  EXPECT_EQ(tw_ORQueryInfoKey(key, cls, &length, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr),
            err::kMoreData);
  EXPECT_EQ(length, 7u);
  length = 8;
  EXPECT_EQ(tw_ORQueryInfoKey(key, cls, &length, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr),
            err::kSuccess);
  EXPECT_EQ(length, 7u);
  EXPECT_EQ(std::wstring(cls), L"MyClass");
  EXPECT_EQ(tw_ORQueryInfoKey(key, cls, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr),
            err::kInvalidParameter);
  DWORD maxClass = 0;
  ASSERT_EQ(tw_ORQueryInfoKey(hive_, nullptr, nullptr, nullptr, nullptr, &maxClass, nullptr,
                              nullptr, nullptr, nullptr, nullptr),
            err::kSuccess);
  EXPECT_EQ(maxClass, 7u);
  tw_ORCloseKey(key);
}

TEST_F(OffregKeys, EnumKeyInUpperCaseOrderUntilNoMoreItems) {
  std::vector<std::wstring> names;
  for (DWORD i = 0;; ++i) {
    wchar_t name[32];
    DWORD count = 32;
    const DWORD result = tw_OREnumKey(hive_, i, name, &count, nullptr, nullptr, nullptr);
    if (result == err::kNoMoreItems) break;
    ASSERT_EQ(result, err::kSuccess);
    names.emplace_back(name, count);
    EXPECT_EQ(name[count], L'\0');
  }
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names[0], L"abcd_\u00e4\u00f6\u00fc\u00df");
  EXPECT_EQ(names[1], L"weird\u2122");
  EXPECT_EQ(names[2], std::wstring(L"zero\0key", 8));
  wchar_t name[32];
  DWORD count = 32;
  EXPECT_EQ(tw_OREnumKey(hive_, 99, name, &count, nullptr, nullptr, nullptr), err::kNoMoreItems);
}

TEST_F(OffregKeys, EnumKeyWithSmallBufferIsMoreDataAndCopiesNothing) {
  wchar_t name[8] = {L'#', L'#', L'#', L'#', L'#', L'#'};
  DWORD count = 6;  // "weird™" needs 7 with the terminator
  EXPECT_EQ(tw_OREnumKey(hive_, 1, name, &count, nullptr, nullptr, nullptr), err::kMoreData);
  EXPECT_EQ(count, 6u);
  EXPECT_EQ(name[0], L'#');
  count = 7;
  FILETIME time{};
  EXPECT_EQ(tw_OREnumKey(hive_, 1, name, &count, nullptr, nullptr, &time), err::kSuccess);
  EXPECT_EQ(count, 6u);
  EXPECT_NE(time.dwHighDateTime, 0u);
}

TEST_F(OffregKeys, CreateKeyCreatesEveryLevelAndReportsDisposition) {
  ORHKEY key = nullptr;
  DWORD disposition = 0;
  ASSERT_EQ(tw_ORCreateKey(hive_, L"A\\B\\C", nullptr, 0, nullptr, &key, &disposition),
            err::kSuccess);
  EXPECT_EQ(disposition, kRegCreatedNewKey);
  tw_ORCloseKey(key);
  ASSERT_EQ(tw_ORCreateKey(hive_, L"a\\b\\c", nullptr, 0, nullptr, &key, &disposition),
            err::kSuccess);
  EXPECT_EQ(disposition, kRegOpenedExistingKey);
  tw_ORCloseKey(key);
  ASSERT_EQ(tw_OROpenKey(hive_, L"A\\b", &key), err::kSuccess);
  tw_ORCloseKey(key);
  EXPECT_EQ(tw_ORCreateKey(hive_, L"\\lead", nullptr, 0, nullptr, &key, nullptr),
            err::kBadPathname);
  EXPECT_EQ(tw_ORCreateKey(hive_, L"x", nullptr, kRegOptionVolatile, nullptr, &key, nullptr),
            err::kInvalidParameter);
  EXPECT_EQ(
      tw_ORCreateKey(hive_, std::wstring(256, L'n').c_str(), nullptr, 0, nullptr, &key, nullptr),
      err::kInvalidParameter);
}

TEST_F(OffregKeys, NewKeySharesItsParentsDescriptorAndSetsTimes) {
  ORHKEY parent = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &parent), err::kSuccess);
  FILETIME before{};
  ASSERT_EQ(tw_ORQueryInfoKey(parent, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, &before),
            err::kSuccess);
  ORHKEY child = nullptr;
  ASSERT_EQ(tw_ORCreateKey(parent, L"child", nullptr, 0, nullptr, &child, nullptr), err::kSuccess);
  DWORD parentSize = 0, childSize = 0;
  EXPECT_EQ(tw_ORGetKeySecurity(parent, 0x7, nullptr, &parentSize), err::kInsufficientBuffer);
  EXPECT_EQ(tw_ORGetKeySecurity(child, 0x7, nullptr, &childSize), err::kInsufficientBuffer);
  std::vector<std::uint8_t> a(parentSize), b(childSize);
  ASSERT_EQ(tw_ORGetKeySecurity(parent, 0x7, a.data(), &parentSize), err::kSuccess);
  ASSERT_EQ(tw_ORGetKeySecurity(child, 0x7, b.data(), &childSize), err::kSuccess);
  EXPECT_EQ(a, b);
  FILETIME after{};
  ASSERT_EQ(tw_ORQueryInfoKey(parent, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, &after),
            err::kSuccess);
  EXPECT_GT(after.dwHighDateTime, before.dwHighDateTime);
  tw_ORCloseKey(child);
  tw_ORCloseKey(parent);
}

TEST_F(OffregKeys, DeleteKeyRules) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_ORCreateKey(hive_, L"P\\C", nullptr, 0, nullptr, &key, nullptr), err::kSuccess);
  EXPECT_EQ(tw_ORDeleteKey(hive_, L"P"), err::kKeyHasChildren);
  EXPECT_EQ(tw_ORDeleteKey(hive_, L"P\\missing"), err::kFileNotFound);
  // Deleting through the key's own handle: later calls fail, the close still works.
  EXPECT_EQ(tw_ORDeleteKey(key, nullptr), err::kSuccess);
  ORHKEY other = nullptr;
  EXPECT_EQ(tw_OROpenKey(key, L"x", &other), err::kKeyDeleted);
  EXPECT_EQ(tw_ORSetValue(key, L"v", 4, nullptr, 0), err::kKeyDeleted);
  EXPECT_EQ(tw_OROpenKey(hive_, L"P\\C", &other), err::kFileNotFound);
  EXPECT_EQ(tw_ORCloseKey(key), err::kSuccess);
  EXPECT_EQ(tw_ORDeleteKey(hive_, L"P"), err::kSuccess);
  EXPECT_EQ(tw_OROpenKey(hive_, L"P", &other), err::kFileNotFound);
}

TEST(OffregCreateHive, EmptyRootWithDefaultSecurity) {
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  DWORD subKeys = 9, values = 9, security = 0;
  ASSERT_EQ(tw_ORQueryInfoKey(hive, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr,
                              nullptr, &security, nullptr),
            err::kSuccess);
  EXPECT_EQ(subKeys, 0u);
  EXPECT_EQ(values, 0u);
  EXPECT_GT(security, 20u);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
  EXPECT_EQ(tw_ORCreateHive(nullptr), err::kInvalidParameter);
}

TEST(OffregVersion, ReportsOneZero) {
  DWORD major = 0, minor = 9;
  tw_ORGetVersion(&major, &minor);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 0u);
  EXPECT_EQ(EngineFunctions().OROpenHive, &tw_OROpenHive);
  EXPECT_EQ(EngineFunctions().ORGetVersion, &tw_ORGetVersion);
}

}  // namespace
}  // namespace tw::hive
