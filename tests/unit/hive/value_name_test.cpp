#include "hive/value_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace tw::hive {
namespace {

// Names just below, at and above the length kept in the object.
std::vector<std::wstring> Samples() {
  const std::size_t n = ValueName::kInlineLength;
  return {L"",
          L"a",
          std::wstring(n - 1, L'b'),
          std::wstring(n, L'c'),
          std::wstring(n + 1, L'd'),
          std::wstring(300, L'e'),
          std::wstring(L"zero\0inside", 11)};
}

TEST(ValueName, HoldsTheCharactersItIsMadeFrom) {
  for (const std::wstring& text : Samples()) {
    const ValueName name(text);
    EXPECT_EQ(name.view(), text);
    EXPECT_EQ(name.size(), text.size());
    EXPECT_EQ(name.empty(), text.empty());
    EXPECT_EQ(std::wstring_view(name), text);
  }
  EXPECT_TRUE(ValueName().empty());
  EXPECT_EQ(ValueName(L"literal").view(), L"literal");
}

TEST(ValueName, CopiesAndMovesEveryLength) {
  for (const std::wstring& text : Samples()) {
    for (const std::wstring& other : Samples()) {
      ValueName source(text);
      ValueName copy(source);
      EXPECT_EQ(copy.view(), text);
      ValueName target(other);
      target = source;
      EXPECT_EQ(target.view(), text);
      EXPECT_EQ(source.view(), text);
      ValueName moved(std::move(copy));
      EXPECT_EQ(moved.view(), text);
      EXPECT_TRUE(copy.empty());  // NOLINT: a moved-from name is empty
      ValueName assigned(other);
      assigned = std::move(moved);
      EXPECT_EQ(assigned.view(), text);
      EXPECT_EQ(assigned, source);
    }
  }
}

TEST(ValueName, SelfAssignmentAndPartsOfItselfKeepTheRightCharacters) {
  for (const std::wstring& text : Samples()) {
    ValueName name(text);
    const ValueName& same = name;
    name = same;
    EXPECT_EQ(name.view(), text);
    name = name.view().substr(name.size() / 2);
    EXPECT_EQ(name.view(), text.substr(text.size() / 2));
  }
}

TEST(ValueName, OverwriteGivesRoomForTheCharacters) {
  for (const std::wstring& text : Samples()) {
    ValueName name(L"before");
    std::copy(text.begin(), text.end(), name.Overwrite(text.size()));
    EXPECT_EQ(name.view(), text);
  }
}

TEST(ValueName, ComparesByCharacters) {
  EXPECT_EQ(ValueName(L"Run"), L"Run");
  EXPECT_FALSE(ValueName(L"Run") == L"run");
  EXPECT_FALSE(ValueName(L"Run") == L"Run ");
}

}  // namespace
}  // namespace tw::hive
