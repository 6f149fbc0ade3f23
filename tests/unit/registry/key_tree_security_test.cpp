#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"
#include "registry/offreg_calls.h"
#include "registry/registry_key_copy.h"
#include "registry_test_bed.h"

namespace tw {
namespace {

using registry::kNoOrKey;
using ::testing::ElementsAre;
using testing::Fields;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::MakeDescriptor;
using testing::MakeHive;
using ::testing::Not;
using testing::OffregFunction;
using testing::RegistryTestBed;
using testing::ReglookupKey;
using testing::WinPath;

constexpr const char* kTree =
    "[\\Tree]\n\n"
    "[\\Tree\\A]\n\n"
    "[\\Tree\\A\\B]\n\n"
    "[\\Tree\\A\\B\\C]\n\n"
    "[\\Tree\\D]\n\n";

// A hive with the tree above. The minimal hive's root DACL, which hivex gives every new key, is
// protected; so the keys below Tree get an unprotected DACL of their own first, and Tree\A\B a
// protected one.
class KeyTreeSecurityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeHive(bed.folder.path() / "tree.dat", kTree);
    ASSERT_EQ(offreg().OROpenHive(WinPath(bed.folder.path() / "tree.dat").c_str(), &hive), 0u);
    ASSERT_EQ(offreg().OROpenKey(hive, L"Tree", &tree), 0u);
    for (const wchar_t* path : {L"Tree\\A", L"Tree\\A\\B\\C", L"Tree\\D"}) {
      SetDacl(path, MakeDescriptor(nullptr, {L"S-1-5-32-544"}), 0x20000004u);
    }
    SetDacl(L"Tree\\A\\B", MakeDescriptor(nullptr, {L"S-1-5-21-9-9-9-1"}, true), 0x80000004u);
    bed.fake.ClearCalls();
  }
  void TearDown() override {
    if (tree != nullptr) offreg().ORCloseKey(tree);
    if (hive != nullptr) offreg().ORCloseHive(hive);
  }
  COffregWrapper& offreg() { return bed.fake.offreg(); }
  void SetDacl(const wchar_t* path, std::vector<std::uint8_t> own, OrDword information) {
    OrKey key = nullptr;
    ASSERT_EQ(offreg().OROpenKey(hive, path, &key), 0u);
    ASSERT_EQ(offreg().ORSetKeySecurity(key, information, own.data()), 0u);
    offreg().ORCloseKey(key);
  }

  // The DACL entries of a key as reglookup shows them, after saving the hive.
  std::string SavedDacl(const std::string& path) {
    const std::filesystem::path saved = bed.folder.path() / ("saved" + std::to_string(++saves_));
    EXPECT_EQ(offreg().ORSaveHive(hive, WinPath(saved).c_str(), 6, 1), 0u);
    const std::vector<std::string> fields = Fields(ReglookupKey(saved, path));
    return fields.size() == 9 ? fields[7] : "(missing)";
  }
  // The control word of a key's descriptor, read through the engine.
  std::uint16_t ControlOf(const wchar_t* path) {
    OrKey key = nullptr;
    EXPECT_EQ(offreg().OROpenKey(hive, path, &key), 0u);
    std::vector<std::uint8_t> buffer(4096);
    OrDword size = 4096;
    EXPECT_EQ(offreg().ORGetKeySecurity(key, 4, buffer.data(), &size), 0u);
    offreg().ORCloseKey(key);
    return security::SelfRelativeControl(buffer).value_or(0);
  }

  RegistryTestBed bed;
  OrKey hive = nullptr;
  OrKey tree = nullptr;
  std::vector<std::uint8_t> descriptor =
      MakeDescriptor(nullptr, {L"S-1-5-18", L"S-1-5-21-4-4-4-1004"});
  int saves_ = 0;
};

TEST_F(KeyTreeSecurityTest, EveryKeyGetsTheDaclExceptOneWithAProtectedDaclWhoseChildrenStillDo) {
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kOk);
  EXPECT_THAT(bed.log.messages(), IsEmpty());
  const std::string applied =
      "S-1-5-18:ALLOW:QRY_VAL SET_VAL CREATE_KEY ENUM_KEYS NOTIFY CREATE_LNK DELETE R_CONT W_DAC "
      "W_OWNER:|S-1-5-21-4-4-4-1004:ALLOW:QRY_VAL SET_VAL CREATE_KEY ENUM_KEYS NOTIFY CREATE_LNK "
      "DELETE R_CONT W_DAC W_OWNER:";
  EXPECT_EQ(SavedDacl("/Tree"), applied);
  EXPECT_EQ(SavedDacl("/Tree/A"), applied);
  EXPECT_EQ(SavedDacl("/Tree/A/B/C"), applied);
  EXPECT_EQ(SavedDacl("/Tree/D"), applied);
  EXPECT_THAT(SavedDacl("/Tree/A/B"), HasSubstr("S-1-5-21-9-9-9-1:ALLOW:"));
  EXPECT_THAT(SavedDacl("/Tree/A/B"), Not(HasSubstr("S-1-5-18")));
  EXPECT_NE(ControlOf(L"Tree\\A\\B") & security::kSeDaclProtected, 0);

  // The root is written with DACL_SECURITY_INFORMATION, the keys below with the unprotected flag.
  const auto sets = bed.fake.CallsOf(OffregFunction::kSetKeySecurity);
  ASSERT_EQ(sets.size(), 4u);
  EXPECT_EQ(sets[0].subject, L"Tree");
  EXPECT_EQ(sets[0].first, 4u);
  for (std::size_t i = 1; i < sets.size(); ++i) {
    EXPECT_EQ(sets[i].first, 0x20000004u);
    EXPECT_NE(sets[i].subject, L"B");
  }
}

TEST_F(KeyTreeSecurityTest, TheMinusOneKeyAndAnUnboundQueryAreRefused) {
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, kNoOrKey, descriptor.data(), true), hr::kHandle);
  offreg().ORQueryInfoKey = nullptr;
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kNotBound);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed to query key info (0x80070006)",
                                              L"Failed to query key info (0x80070001)"));
}

TEST_F(KeyTreeSecurityTest, AFailingQueryOrSecurityReadEndsTheWalk) {
  bed.fake.Fail(OffregFunction::kQueryInfoKey, err::kInvalidData, L"Tree", 0, 1);
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true),
            HResultFromWin32(err::kInvalidData));
  bed.fake.Fail(OffregFunction::kGetKeySecurity, err::kAccessDenied, L"Tree", 0, 1);
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kAccessDenied);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed to query key info (0x8007000D)",
                                              L"Failed to query key security (0x80070005)"));
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kSetKeySecurity), IsEmpty());
}

TEST_F(KeyTreeSecurityTest, AnUnboundSetOnTheRootLogsTwoLinesAndVisitsNoChild) {
  offreg().ORSetKeySecurity = nullptr;
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kNotBound);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed setting key security (0x80070001)",
                                              L"Failed to set key security (0x80070001)"));
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kEnumKey), IsEmpty());
}

TEST_F(KeyTreeSecurityTest, AChildThatCannotBeSetIsLoggedByNameAndItsSiblingsFollow) {
  bed.fake.Fail(OffregFunction::kSetKeySecurity, err::kAccessDenied, L"A");
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kOk);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed to set key security (0x80070005)",
                                              L"Failed setting key security (0x80070005): A"));
  EXPECT_THAT(SavedDacl("/Tree/D"), HasSubstr("S-1-5-21-4-4-4-1004"));
  // A's children were not visited.
  EXPECT_THAT(SavedDacl("/Tree/A/B/C"), Not(HasSubstr("S-1-5-21-4-4-4-1004")));
}

TEST_F(KeyTreeSecurityTest, AnEnumerationThatWantsMoreBufferSkipsThatIndexOnly) {
  bed.fake.Fail(OffregFunction::kEnumKey, err::kMoreData, L"Tree", 0, 1);
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kOk);
  EXPECT_THAT(bed.log.messages(),
              ElementsAre(L"Failed enumerating key (0x800700EA). Need more buffer."));
  // Index 0 (A) was skipped; index 1 (D) still got the DACL.
  EXPECT_THAT(SavedDacl("/Tree/A"), Not(HasSubstr("S-1-5-21-4-4-4-1004")));
  EXPECT_THAT(SavedDacl("/Tree/D"), HasSubstr("S-1-5-21-4-4-4-1004"));
}

TEST_F(KeyTreeSecurityTest, AChildThatCannotBeOpenedEndsTheWalkOfItsLevel) {
  bed.fake.Fail(OffregFunction::kOpenKey, err::kAccessDenied, L"A");
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kOk);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed to open sub key (0x80070005): A"));
  EXPECT_THAT(SavedDacl("/Tree/D"), Not(HasSubstr("S-1-5-21-4-4-4-1004")));
  EXPECT_THAT(SavedDacl("/Tree"), HasSubstr("S-1-5-21-4-4-4-1004"));
}

// A child whose name begins with NUL (a damaged hive, made here by patching the bytes hivex
// wrote) cannot be opened by that name: the walk logs it and ends that level, instead of
// standing on the parent again until the stack runs out.
TEST(KeyTreeSecurityHostileTest, AChildNameBeginningWithNulEndsTheWalkOfItsLevel) {
  RegistryTestBed bed;
  const std::filesystem::path file = bed.folder.path() / "nul.dat";
  MakeHive(file, "[\\Tree]\n\n[\\Tree\\!nulkey]\n\n[\\Tree\\Later]\n\n");
  ASSERT_TRUE(testing::ReplaceUniqueBytes(file, "!nulkey", std::string("\0nulkey", 7)));
  COffregWrapper& offreg = bed.fake.offreg();
  OrKey hive = nullptr;
  ASSERT_EQ(offreg.OROpenHive(WinPath(file).c_str(), &hive), 0u);
  OrKey tree = nullptr;
  ASSERT_EQ(offreg.OROpenKey(hive, L"Tree", &tree), 0u);
  std::vector<std::uint8_t> descriptor = MakeDescriptor(nullptr, {L"S-1-5-18"});
  EXPECT_EQ(SetKeyTreeSecurity(bed.context, tree, descriptor.data(), true), hr::kOk);
  EXPECT_THAT(bed.log.messages(), ElementsAre(L"Failed to open sub key (0x80070057): "));
  offreg.ORCloseKey(tree);
  offreg.ORCloseHive(hive);
}

}  // namespace
}  // namespace tw
