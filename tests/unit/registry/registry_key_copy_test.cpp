#include "registry/registry_key_copy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "hive/offreg_api.h"
#include "registry/offreg_calls.h"
#include "registry_test_bed.h"

namespace tw {
namespace {

using registry::kNoOrKey;
using ::testing::ElementsAre;
using testing::ExportHive;
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

// Source and target hives made by hivexregedit, opened through the fake table.
class KeyCopyTest : public ::testing::Test {
 protected:
  void Build(const std::string& sourceReg, const std::string& targetReg) {
    MakeHive(bed.folder.path() / "source.dat", sourceReg);
    MakeHive(bed.folder.path() / "target.dat", targetReg);
    ASSERT_EQ(
        bed.fake.offreg().OROpenHive(WinPath(bed.folder.path() / "source.dat").c_str(), &source),
        0u);
    ASSERT_EQ(
        bed.fake.offreg().OROpenHive(WinPath(bed.folder.path() / "target.dat").c_str(), &target),
        0u);
    bed.fake.ClearCalls();
  }
  void TearDown() override {
    if (source != nullptr) bed.fake.offreg().ORCloseHive(source);
    if (target != nullptr) bed.fake.offreg().ORCloseHive(target);
  }
  // Saves the target hive to a new file and returns its path.
  std::filesystem::path SaveTarget(const char* name = "saved.dat") {
    const std::filesystem::path saved = bed.folder.path() / name;
    EXPECT_EQ(bed.fake.offreg().ORSaveHive(target, WinPath(saved).c_str(), 6, 1), 0u);
    return saved;
  }
  std::vector<std::wstring> Messages() const { return bed.log.messages(); }
  // Creates `name` below `parent` with the engine (class and descriptor as given) and returns it.
  OrKey Create(OrKey parent, const wchar_t* name, const std::wstring& keyClass = L"",
               std::vector<std::uint8_t> descriptor = {}) {
    OrKey key = nullptr;
    std::wstring classText = keyClass;
    EXPECT_EQ(bed.fake.offreg().ORCreateKey(
                  parent, name, keyClass.empty() ? nullptr : classText.data(), 0,
                  descriptor.empty() ? nullptr : descriptor.data(), &key, nullptr),
              0u);
    return key;
  }
  void SetString(OrKey key, const wchar_t* name, const std::wstring& text) {
    std::vector<std::uint8_t> data;
    for (const wchar_t c : text + L'\0') {
      data.push_back(static_cast<std::uint8_t>(c & 0xFF));
      data.push_back(static_cast<std::uint8_t>((c >> 8) & 0xFF));
    }
    EXPECT_EQ(
        bed.fake.offreg().ORSetValue(key, name, 1, data.data(), static_cast<OrDword>(data.size())),
        0u);
  }
  // The class the engine holds for key `path` below `hive`.
  std::wstring ClassOf(OrKey hive, const wchar_t* path) {
    OrKey key = nullptr;
    EXPECT_EQ(bed.fake.offreg().OROpenKey(hive, path, &key), 0u);
    std::vector<wchar_t> buffer(4096);
    OrDword length = 4096;
    EXPECT_EQ(
        bed.fake.offreg().ORQueryInfoKey(key, buffer.data(), &length, nullptr, nullptr, nullptr,
                                         nullptr, nullptr, nullptr, nullptr, nullptr),
        0u);
    bed.fake.offreg().ORCloseKey(key);
    return std::wstring(buffer.data(), length);
  }
  bool HasKey(OrKey hive, const wchar_t* path) {
    OrKey key = nullptr;
    if (bed.fake.offreg().OROpenKey(hive, path, &key) != 0) return false;
    bed.fake.offreg().ORCloseKey(key);
    return true;
  }

  RegistryTestBed bed;
  OrKey source = nullptr;
  OrKey target = nullptr;
};

constexpr const char* kSoftwareTree =
    "[\\Software]\n"
    "\"Top\"=\"level\"\n"
    "\n"
    "[\\Software\\Vendor]\n"
    "\"Name\"=\"source name\"\n"
    "\"Count\"=dword:00000007\n"
    "\"Path\"=hex(2):25,00,55,00,53,00,45,00,52,00,50,00,52,00,4f,00,46,00,49,00,4c,00,45,00,25,"
    "00,00,00\n"
    "\"Blob\"=hex:01,02,03\n"
    "\n"
    "[\\Software\\Vendor\\App]\n"
    "\"Setting\"=\"on\"\n"
    "\n";

TEST_F(KeyCopyTest, CopiesAKeyTreeWithItsValuesIntoAHiveWithoutIt) {
  Build(kSoftwareTree, "");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), IsEmpty());
  const std::string copied = ExportHive(SaveTarget(), "\\Software");
  // The independent reader sees the same tree in both hives.
  EXPECT_EQ(copied, ExportHive(bed.folder.path() / "source.dat", "\\Software"));
  EXPECT_THAT(copied, HasSubstr("[\\Software\\Vendor\\App]\n"));
  EXPECT_THAT(copied, HasSubstr("\"Count\"=dword:00000007\n"));
}

TEST_F(KeyCopyTest, AnExistingTargetKeyKeepsClassOwnerAndDaclWhileValuesAreMerged) {
  Build(kSoftwareTree, "[\\Software]\n\n");
  OrKey software = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenKey(target, L"Software", &software), 0u);
  const OrKey vendor = Create(software, L"Vendor", L"TargetClass",
                              MakeDescriptor(L"S-1-5-21-7-8-9-1001", {L"S-1-5-21-7-8-9-1001"}));
  SetString(vendor, L"Name", L"target name");
  SetString(vendor, L"Only", L"target only");
  bed.fake.offreg().ORCloseKey(vendor);
  bed.fake.offreg().ORCloseKey(software);

  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), IsEmpty());
  const std::filesystem::path saved = SaveTarget();
  const std::vector<std::string> key = Fields(ReglookupKey(saved, "/Software/Vendor"));
  ASSERT_EQ(key.size(), 9u);
  EXPECT_EQ(key[4], "S-1-5-21-7-8-9-1001");
  EXPECT_EQ(key[7],
            "S-1-5-21-7-8-9-1001:ALLOW:QRY_VAL SET_VAL CREATE_KEY ENUM_KEYS NOTIFY "
            "CREATE_LNK DELETE R_CONT W_DAC W_OWNER:");
  EXPECT_EQ(key[8], "TargetClass");
  const std::string values = ExportHive(saved, "\\Software\\Vendor");
  // The source's value overwrites the target's of the same name; the target's own value stays.
  EXPECT_THAT(values, HasSubstr("\"Name\"=hex(1):73,00,6f,00,75,00,72,00,63,00,65,00,20,00"));
  EXPECT_THAT(values, HasSubstr("\"Only\"=hex(1):74,00,61,00,72,00,67,00,65,00,74,00"));
  EXPECT_THAT(values, HasSubstr("\"Count\"=dword:00000007"));
  EXPECT_THAT(values, HasSubstr("[\\Software\\Vendor\\App]"));
  // Neither class nor security was written on the existing key.
  for (const auto& call : bed.fake.CallsOf(OffregFunction::kSetKeySecurity)) {
    EXPECT_NE(call.subject, L"Vendor");
  }
}

TEST_F(KeyCopyTest, ANewKeyGetsTheSourceOwnerAndDacl) {
  Build("[\\Software]\n\n", "");
  OrKey software = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenKey(source, L"Software", &software), 0u);
  bed.fake.offreg().ORCloseKey(
      Create(software, L"Secured", L"",
             MakeDescriptor(L"S-1-5-21-1-2-3-500", {L"S-1-5-18", L"S-1-5-21-1-2-3-500"})));
  bed.fake.offreg().ORCloseKey(software);

  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  const std::filesystem::path saved = SaveTarget();
  const std::vector<std::string> copied = Fields(ReglookupKey(saved, "/Software/Secured"));
  ASSERT_EQ(copied.size(), 9u);
  EXPECT_EQ(copied[4], "S-1-5-21-1-2-3-500");
  EXPECT_THAT(copied[7], HasSubstr("S-1-5-18:ALLOW:"));
  EXPECT_THAT(copied[7], HasSubstr("S-1-5-21-1-2-3-500:ALLOW:"));
  // The security was asked for and written as owner and DACL (5).
  const auto sets = bed.fake.CallsOf(OffregFunction::kSetKeySecurity);
  ASSERT_EQ(sets.size(), 2u);
  EXPECT_EQ(sets[1].subject, L"Secured");
  EXPECT_EQ(sets[1].first, 5u);
}

TEST_F(KeyCopyTest, AClassLongerThanTheFirstBufferRegrowsItOnceAndIsCopiedWhole) {
  Build("[\\Software]\n\n", "");
  const std::wstring longClass(1500, L'c');
  OrKey software = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenKey(source, L"Software", &software), 0u);
  bed.fake.offreg().ORCloseKey(Create(software, L"Classy", longClass));
  bed.fake.offreg().ORCloseKey(software);
  bed.fake.ClearCalls();

  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(ClassOf(target, L"Software\\Classy"), longClass);

  std::vector<std::uint32_t> classyQueries;
  for (const auto& call : bed.fake.CallsOf(OffregFunction::kQueryInfoKey)) {
    if (call.subject == L"Classy") {
      classyQueries.push_back(call.first);
      if (classyQueries.size() == 1) {
        EXPECT_EQ(call.result, err::kMoreData);
      }
    }
  }
  // First with 1024 characters, then with the reported length + 1.
  EXPECT_THAT(classyQueries, ElementsAre(1024u, 1501u));
  const auto creates = bed.fake.CallsOf(OffregFunction::kCreateKey);
  ASSERT_EQ(creates.size(), 2u);
  EXPECT_EQ(creates[1].text, longClass);

  const std::vector<std::string> saved = Fields(ReglookupKey(SaveTarget(), "/Software/Classy"));
  ASSERT_EQ(saved.size(), 9u);
  EXPECT_EQ(saved[8], std::string(1500, 'c'));
}

TEST_F(KeyCopyTest, AKeyWithoutClassIsCreatedWithNoClass) {
  Build(kSoftwareTree, "");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  const auto creates = bed.fake.CallsOf(OffregFunction::kCreateKey);
  ASSERT_EQ(creates.size(), 3u);
  for (const auto& create : creates) EXPECT_EQ(create.first, 0u) << "a class was passed";
  EXPECT_EQ(ClassOf(target, L"Software\\Vendor"), L"");
}

constexpr const char* kFiveChildren =
    "[\\Parent]\n\n"
    "[\\Parent\\K1]\n\"V\"=dword:00000001\n\n"
    "[\\Parent\\K2]\n\"V\"=dword:00000002\n\n"
    "[\\Parent\\K3]\n\"V\"=dword:00000003\n\n"
    "[\\Parent\\K4]\n\"V\"=dword:00000004\n\n"
    "[\\Parent\\K5]\n\"V\"=dword:00000005\n\n";

TEST_F(KeyCopyTest, ASubKeyThatCannotBeOpenedEndsTheCopyOfItsSiblings) {
  Build(kFiveChildren, "");
  bed.fake.Fail(OffregFunction::kOpenKey, err::kAccessDenied, L"K3", 0, 1);
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Parent"), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to open source registry key (0x80070005), skipping this key: K3",
                          L"Failed to copy registry key to target hive (0x80070005): Parent/K3"));
  EXPECT_TRUE(HasKey(target, L"Parent\\K1"));
  EXPECT_TRUE(HasKey(target, L"Parent\\K2"));
  EXPECT_FALSE(HasKey(target, L"Parent\\K3"));
  EXPECT_FALSE(HasKey(target, L"Parent\\K4"));
  EXPECT_FALSE(HasKey(target, L"Parent\\K5"));
}

TEST_F(KeyCopyTest, AValueThatCannotBeWrittenEndsTheValuesButNotTheSubKeys) {
  Build("[\\Software]\n\"A\"=\"1\"\n\"B\"=\"2\"\n\"C\"=\"3\"\n\n[\\Software\\Sub]\n\"D\"=\"4\"\n\n",
        "");
  bed.fake.Fail(OffregFunction::kSetValue, err::kAccessDenied, L"B");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to copy registry value to target hive (0x80070005): B"));
  const std::string exported = ExportHive(SaveTarget(), "\\Software");
  EXPECT_THAT(exported, HasSubstr("\"A\"="));
  EXPECT_THAT(exported, Not(HasSubstr("\"B\"=")));
  EXPECT_THAT(exported, Not(HasSubstr("\"C\"=")));
  EXPECT_THAT(exported, HasSubstr("[\\Software\\Sub]\n\"D\"="));
}

TEST_F(KeyCopyTest, TheSourceParentOfMinusOneFailsWithInvalidHandle) {
  Build(kSoftwareTree, "");
  EXPECT_EQ(CopyRegistryKey(bed.context, kNoOrKey, target, L"Software"), hr::kHandle);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open source registry key (0x80070006), "
                                      L"skipping this key: Software"));
  EXPECT_THAT(bed.fake.calls(), IsEmpty());
}

TEST_F(KeyCopyTest, TheTargetParentOfMinusOneIsLoggedWithTheRawCodeAndTheCopyGoesOn) {
  Build(kSoftwareTree, "");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, kNoOrKey, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open or create target registry key "
                                      L"(0x80070006) 6: Software, class: "));
}

TEST_F(KeyCopyTest, AnUnboundOpenCountsAsErrorOne) {
  Build(kSoftwareTree, "");
  bed.fake.offreg().OROpenKey = nullptr;
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kNotBound);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open source registry key (0x80070001), "
                                      L"skipping this key: Software"));
}

TEST_F(KeyCopyTest, AnUnboundKeySecuritySetFailsTheNewKeyAndStopsItsSiblings) {
  Build(kFiveChildren, "[\\Parent]\n\n");
  bed.fake.offreg().ORSetKeySecurity = nullptr;
  // Parent exists in the target: its security is not touched; K1 is new and cannot get its own.
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Parent"), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed setting security descriptor key (0x80070001): K1",
                          L"Failed to copy registry key to target hive (0x80070001): Parent/K1"));
  // K1 was created, but got no values; K2 was never reached.
  EXPECT_TRUE(HasKey(target, L"Parent\\K1"));
  EXPECT_FALSE(HasKey(target, L"Parent\\K2"));
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kSetValue), IsEmpty());
}

TEST_F(KeyCopyTest, AQueryThatStillWantsMoreDataIsLoggedAndTheKeyIsPassedOver) {
  Build(kSoftwareTree, "");
  bed.fake.Fail(OffregFunction::kQueryInfoKey, err::kMoreData, L"Software");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to query key info from source registry key "
                                      L"(0x800700EA): Software"));
  const auto queries = bed.fake.CallsOf(OffregFunction::kQueryInfoKey);
  ASSERT_EQ(queries.size(), 2u);
  EXPECT_EQ(queries[0].first, 1024u);
  // The fake left the length as it was handed in: the regrowth asks for 1024 + 1.
  EXPECT_EQ(queries[1].first, 1025u);
  EXPECT_FALSE(HasKey(target, L"Software"));
  // The source key was closed again.
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kCloseKey).size(), 1u);
}

TEST_F(KeyCopyTest, AFailingCreateIsLoggedWithItsCodeNameAndClass) {
  Build("[\\Software]\n\n", "");
  OrKey software = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenKey(source, L"Software", &software), 0u);
  bed.fake.offreg().ORCloseKey(Create(software, L"Classy", L"MyClass"));
  bed.fake.offreg().ORCloseKey(software);
  bed.fake.Fail(OffregFunction::kCreateKey, err::kAccessDenied, L"Classy");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open or create target registry key "
                                      L"(0x80070005) 5: Classy, class: MyClass"));
}

TEST_F(KeyCopyTest, AFailingSecurityReadLeavesTheNewKeyEmpty) {
  Build(kSoftwareTree, "");
  bed.fake.Fail(OffregFunction::kGetKeySecurity, err::kAccessDenied, L"Vendor");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to get security descriptor from registry key "
                                      L"(0x80070005): Vendor"));
  EXPECT_TRUE(HasKey(target, L"Software\\Vendor"));
  EXPECT_FALSE(HasKey(target, L"Software\\Vendor\\App"));
  const std::string exported = ExportHive(SaveTarget(), "\\Software\\Vendor");
  EXPECT_THAT(exported, Not(HasSubstr("\"Name\"")));
}

TEST_F(KeyCopyTest, EnumerationErrorsEndTheirLoopsWithTheKeyName) {
  Build(kSoftwareTree, "");
  bed.fake.Fail(OffregFunction::kEnumValue, err::kInvalidData, L"Vendor");
  bed.fake.Fail(OffregFunction::kEnumKey, err::kInvalidData, L"Vendor");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Software"), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed enumerating value in key (0x8007000D): Vendor",
                                      L"Failed enumerating key (0x8007000D): Vendor"));
  EXPECT_TRUE(HasKey(target, L"Software\\Vendor"));
  EXPECT_FALSE(HasKey(target, L"Software\\Vendor\\App"));
}

// A sub key whose name begins with NUL (as in a damaged hive; made here by patching the bytes of
// a hive hivexregedit wrote): the engine refuses to open it by that name, so it fails as a sub
// key that cannot be opened (logged as the C string it is, empty) and its later siblings are not
// copied; the walk never stands on its parent again.
TEST_F(KeyCopyTest, ASubKeyNameBeginningWithNulFailsThatSubKeyAndEndsItsSiblings) {
  MakeHive(bed.folder.path() / "source.dat",
           "[\\Parent]\n\"Top\"=dword:00000001\n\n"
           "[\\Parent\\!nulkey]\n\"V\"=dword:00000002\n\n"
           "[\\Parent\\!nulkey\\Below]\n\n"
           "[\\Parent\\Later]\n\"V\"=dword:00000003\n\n");
  ASSERT_TRUE(testing::ReplaceUniqueBytes(bed.folder.path() / "source.dat", "!nulkey",
                                          std::string("\0nulkey", 7)));
  MakeHive(bed.folder.path() / "target.dat", "");
  ASSERT_EQ(
      bed.fake.offreg().OROpenHive(WinPath(bed.folder.path() / "source.dat").c_str(), &source), 0u);
  ASSERT_EQ(
      bed.fake.offreg().OROpenHive(WinPath(bed.folder.path() / "target.dat").c_str(), &target), 0u);
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Parent"), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to open source registry key (0x80070057), skipping this key: ",
                          L"Failed to copy registry key to target hive (0x80070057): Parent/"));
  EXPECT_TRUE(HasKey(target, L"Parent"));
  EXPECT_FALSE(HasKey(target, L"Parent\\Later"));
  OrKey parent = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenKey(target, L"Parent", &parent), 0u);
  OrDword subKeys = 0;
  OrDword values = 0;
  EXPECT_EQ(bed.fake.offreg().ORQueryInfoKey(parent, nullptr, nullptr, &subKeys, nullptr, nullptr,
                                             &values, nullptr, nullptr, nullptr, nullptr),
            0u);
  EXPECT_EQ(subKeys, 0u);
  EXPECT_EQ(values, 1u);  // "Top": values come before the sub keys
  bed.fake.offreg().ORCloseKey(parent);
}

// A chain of keys deeper than 512 levels: the copy stops where the engine refuses to open a key
// (Windows' own limit), through the failure of a sub key that cannot be opened.
TEST_F(KeyCopyTest, AChainDeeperThanTheRegistryLimitIsCopiedDownToTheLimit) {
  std::string key = "\\Chain";
  std::string reg = "[" + key + "]\n\n";
  for (int level = 2; level <= 520; ++level) {
    key += "\\d";
    reg += "[" + key + "]\n\n";
  }
  Build(reg, "");
  EXPECT_EQ(CopyRegistryKey(bed.context, source, target, L"Chain"), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to open source registry key (0x80070057), skipping this key: d",
                          L"Failed to copy registry key to target hive (0x80070057): d/d"));
  std::wstring deepest = L"Chain";
  for (int level = 2; level <= 512; ++level) deepest += L"\\d";
  EXPECT_TRUE(HasKey(target, deepest.c_str()));
  EXPECT_FALSE(HasKey(target, (deepest + L"\\d").c_str()));
}

}  // namespace
}  // namespace tw
