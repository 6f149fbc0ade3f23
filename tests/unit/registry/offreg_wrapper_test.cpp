#include "registry/offreg_wrapper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "fakes/fake_module_loader.h"
#include "fakes/log_capture.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const wchar_t* kUserenvLine = L"Failed getting userenv.dll function pointers";
constexpr const wchar_t* kOffregLine = L"Failed getting offreg.dll function pointers";

// Each stand-in returns its own code, so a test can tell which function a pointer reaches.
std::int32_t TW_OR_CALL FakeCreateProfile(const wchar_t*, const wchar_t*, wchar_t*, OrDword) {
  return 0x101;  // a bare HRESULT, as the C function returns it
}
std::int32_t TW_OR_CALL FakeDeleteProfileW(const wchar_t*, const wchar_t*, const wchar_t*) {
  return 0x102;
}
OrDword TW_OR_CALL FakeOpenHive(const wchar_t*, OrKey*) { return 0x201; }
OrDword TW_OR_CALL FakeCloseHive(OrKey) { return 0x202; }
OrDword TW_OR_CALL FakeSaveHive(OrKey, const wchar_t*, OrDword, OrDword) { return 0x203; }
OrDword TW_OR_CALL FakeOpenKey(OrKey, const wchar_t*, OrKey*) { return 0x204; }
OrDword TW_OR_CALL FakeCloseKey(OrKey) { return 0x205; }
OrDword TW_OR_CALL FakeCreateKey(OrKey, const wchar_t*, wchar_t*, OrDword, void*, OrKey*,
                                 OrDword*) {
  return 0x206;
}
OrDword TW_OR_CALL FakeQueryInfoKey(OrKey, wchar_t*, OrDword*, OrDword*, OrDword*, OrDword*,
                                    OrDword*, OrDword*, OrDword*, OrDword*, OrFileTime*) {
  return 0x207;
}
OrDword TW_OR_CALL FakeEnumKey(OrKey, OrDword, wchar_t*, OrDword*, wchar_t*, OrDword*,
                               OrFileTime*) {
  return 0x208;
}
OrDword TW_OR_CALL FakeGetKeySecurity(OrKey, OrDword, void*, OrDword*) { return 0x209; }
OrDword TW_OR_CALL FakeSetKeySecurity(OrKey, OrDword, void*) { return 0x20A; }
OrDword TW_OR_CALL FakeGetValue(OrKey, const wchar_t*, const wchar_t*, OrDword*, void*, OrDword*) {
  return 0x20B;
}
OrDword TW_OR_CALL FakeSetValue(OrKey, const wchar_t*, OrDword, const std::uint8_t*, OrDword) {
  return 0x20C;
}
OrDword TW_OR_CALL FakeEnumValue(OrKey, OrDword, wchar_t*, OrDword*, OrDword*, std::uint8_t*,
                                 OrDword*) {
  return 0x20D;
}

template <class Function>
ModuleFunction Untyped(Function function) {
  return reinterpret_cast<ModuleFunction>(function);
}

// The offline-registry functions a complete library exports, ORSetKeySecurity included.
std::map<std::string, ModuleFunction> OffregExports() {
  return {{"OROpenHive", Untyped(&FakeOpenHive)},
          {"ORCloseHive", Untyped(&FakeCloseHive)},
          {"ORSaveHive", Untyped(&FakeSaveHive)},
          {"OROpenKey", Untyped(&FakeOpenKey)},
          {"ORCloseKey", Untyped(&FakeCloseKey)},
          {"ORCreateKey", Untyped(&FakeCreateKey)},
          {"ORQueryInfoKey", Untyped(&FakeQueryInfoKey)},
          {"OREnumKey", Untyped(&FakeEnumKey)},
          {"ORGetKeySecurity", Untyped(&FakeGetKeySecurity)},
          {"ORSetKeySecurity", Untyped(&FakeSetKeySecurity)},
          {"ORGetValue", Untyped(&FakeGetValue)},
          {"ORSetValue", Untyped(&FakeSetValue)},
          {"OREnumValue", Untyped(&FakeEnumValue)}};
}

class COffregWrapperTest : public ::testing::Test {
 protected:
  COffregWrapperTest() {
    loader_.AddModule(L"userenv.dll", {{"CreateProfile", Untyped(&FakeCreateProfile)},
                                       {"DeleteProfileW", Untyped(&FakeDeleteProfileW)}});
    loader_.AddModule(L"offreg.dll", OffregExports());
  }

  testing::FakeModuleLoader loader_;
  testing::LogCapture log_;
};

TEST_F(COffregWrapperTest, BindsEveryFunctionByNameAndLogsNothing) {
  COffregWrapper wrapper(loader_);
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_TRUE(wrapper.IsUserenvBound());
  EXPECT_TRUE(wrapper.IsOffregComplete());
  EXPECT_EQ(wrapper.userenvModule, loader_.HandleOf(L"userenv.dll"));
  EXPECT_EQ(wrapper.offregModule, loader_.HandleOf(L"offreg.dll"));

  EXPECT_EQ(wrapper.CreateProfile(L"S-1-5-21", L"_tarnwick_", nullptr, 0), 0x101);
  EXPECT_EQ(wrapper.DeleteProfileW(L"S-1-5-21", nullptr, nullptr), 0x102);
  EXPECT_EQ(wrapper.OROpenHive(L"x", nullptr), 0x201u);
  EXPECT_EQ(wrapper.ORCloseHive(nullptr), 0x202u);
  EXPECT_EQ(wrapper.ORSaveHive(nullptr, L"x", 6, 1), 0x203u);
  EXPECT_EQ(wrapper.OROpenKey(nullptr, L"x", nullptr), 0x204u);
  EXPECT_EQ(wrapper.ORCloseKey(nullptr), 0x205u);
  EXPECT_EQ(wrapper.ORCreateKey(nullptr, L"x", nullptr, 0, nullptr, nullptr, nullptr), 0x206u);
  EXPECT_EQ(wrapper.ORQueryInfoKey(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr),
            0x207u);
  EXPECT_EQ(wrapper.OREnumKey(nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), 0x208u);
  EXPECT_EQ(wrapper.ORGetKeySecurity(nullptr, 4, nullptr, nullptr), 0x209u);
  EXPECT_EQ(wrapper.ORSetKeySecurity(nullptr, 4, nullptr), 0x20Au);
  EXPECT_EQ(wrapper.ORGetValue(nullptr, nullptr, L"v", nullptr, nullptr, nullptr), 0x20Bu);
  EXPECT_EQ(wrapper.ORSetValue(nullptr, L"v", 1, nullptr, 0), 0x20Cu);
  EXPECT_EQ(wrapper.OREnumValue(nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), 0x20Du);
}

TEST_F(COffregWrapperTest, LoadsUserenvFirstThenOffregByName) {
  COffregWrapper wrapper(loader_);
  EXPECT_THAT(loader_.loadCalls(), ElementsAre(L"userenv.dll", L"offreg.dll"));
}

// Never the program's or the current folder first: userenv.dll from the system folder only,
// offreg.dll from the system folder, else the program's folder.
TEST_F(COffregWrapperTest, LoadsUserenvFromTheSystemFolderOnlyAndOffregFromThereFirst) {
  COffregWrapper wrapper(loader_);
  EXPECT_THAT(loader_.loadSearches(),
              ElementsAre(ModuleSearch::kSystemFolder, ModuleSearch::kSystemThenApplicationFolder));
}

TEST_F(COffregWrapperTest, StartsWithAReferenceCountOfOne) {
  COffregWrapper wrapper(loader_);
  EXPECT_EQ(wrapper.AddRef(), 2);
  EXPECT_EQ(wrapper.Release(), 1);
}

TEST_F(COffregWrapperTest, MissingOffregLibraryLogsOneLineAndIsIncomplete) {
  testing::FakeModuleLoader loader;
  loader.AddModule(L"userenv.dll", {{"CreateProfile", Untyped(&FakeCreateProfile)},
                                    {"DeleteProfileW", Untyped(&FakeDeleteProfileW)}});
  COffregWrapper wrapper(loader);
  EXPECT_THAT(log_.messages(), ElementsAre(kOffregLine));
  EXPECT_FALSE(wrapper.IsOffregComplete());
  EXPECT_TRUE(wrapper.IsUserenvBound());
  EXPECT_EQ(wrapper.offregModule, kNoModule);
  EXPECT_EQ(wrapper.OROpenHive, nullptr);
  EXPECT_EQ(wrapper.ORSetKeySecurity, nullptr);
}

TEST_F(COffregWrapperTest, MissingUserenvLibraryLogsItsLineAndOffregStillBinds) {
  testing::FakeModuleLoader loader;
  loader.AddModule(L"offreg.dll", OffregExports());
  COffregWrapper wrapper(loader);
  EXPECT_THAT(log_.messages(), ElementsAre(kUserenvLine));
  EXPECT_FALSE(wrapper.IsUserenvBound());
  EXPECT_TRUE(wrapper.IsOffregComplete());
  EXPECT_EQ(wrapper.userenvModule, kNoModule);
  EXPECT_EQ(wrapper.CreateProfile, nullptr);
  EXPECT_EQ(wrapper.DeleteProfileW, nullptr);
}

TEST_F(COffregWrapperTest, EitherUserenvFunctionMissingLogsTheUserenvLine) {
  for (const char* missing : {"CreateProfile", "DeleteProfileW"}) {
    log_.Clear();
    testing::FakeModuleLoader loader;
    loader.AddModule(L"userenv.dll", {{"CreateProfile", Untyped(&FakeCreateProfile)},
                                      {"DeleteProfileW", Untyped(&FakeDeleteProfileW)}});
    loader.AddModule(L"offreg.dll", OffregExports());
    loader.RemoveFunction(L"userenv.dll", missing);
    COffregWrapper wrapper(loader);
    EXPECT_THAT(log_.messages(), ElementsAre(kUserenvLine)) << missing;
    EXPECT_FALSE(wrapper.IsUserenvBound()) << missing;
    EXPECT_TRUE(wrapper.IsOffregComplete()) << missing;
  }
}

TEST_F(COffregWrapperTest, NothingLoadableGivesBothLinesInOrderAndNeverFails) {
  testing::FakeModuleLoader empty;
  COffregWrapper wrapper(empty);
  EXPECT_THAT(log_.messages(), ElementsAre(kUserenvLine, kOffregLine));
  EXPECT_FALSE(wrapper.IsUserenvBound());
  EXPECT_FALSE(wrapper.IsOffregComplete());
}

class MissingOffregFunctionTest : public COffregWrapperTest,
                                  public ::testing::WithParamInterface<const char*> {};

TEST_P(MissingOffregFunctionTest, LogsTheOffregLineOnceAndIsIncomplete) {
  loader_.RemoveFunction(L"offreg.dll", GetParam());
  COffregWrapper wrapper(loader_);
  EXPECT_THAT(log_.messages(), ElementsAre(kOffregLine));
  EXPECT_FALSE(wrapper.IsOffregComplete());
  EXPECT_TRUE(wrapper.IsUserenvBound());
}

INSTANTIATE_TEST_SUITE_P(EveryCheckedFunction, MissingOffregFunctionTest,
                         ::testing::Values("OROpenHive", "ORCloseHive", "ORSaveHive", "OROpenKey",
                                           "ORCloseKey", "ORCreateKey", "ORQueryInfoKey",
                                           "OREnumKey", "ORGetKeySecurity", "ORGetValue",
                                           "ORSetValue", "OREnumValue"));

TEST_F(COffregWrapperTest, MissingORSetKeySecurityPassesBothTests) {
  loader_.RemoveFunction(L"offreg.dll", "ORSetKeySecurity");
  COffregWrapper wrapper(loader_);
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_TRUE(wrapper.IsOffregComplete());
  EXPECT_EQ(wrapper.ORSetKeySecurity, nullptr);
}

TEST_F(COffregWrapperTest, DestructionFreesEachLoadedModuleOnce) {
  {
    COffregWrapper wrapper(loader_);
    EXPECT_EQ(loader_.LoadedNow(), 2);
    EXPECT_THAT(loader_.unloaded(), IsEmpty());
  }
  EXPECT_EQ(loader_.LoadedNow(), 0);
  EXPECT_THAT(loader_.unloaded(), ::testing::UnorderedElementsAre(loader_.HandleOf(L"userenv.dll"),
                                                                  loader_.HandleOf(L"offreg.dll")));
}

TEST_F(COffregWrapperTest, DestructionSkipsAModuleThatDidNotLoad) {
  testing::FakeModuleLoader loader;
  loader.AddModule(L"offreg.dll", OffregExports());
  { COffregWrapper wrapper(loader); }
  EXPECT_THAT(loader.unloaded(), ElementsAre(loader.HandleOf(L"offreg.dll")));
}

TEST_F(COffregWrapperTest, ReleaseToZeroDeletesAndFreesTheModules) {
  auto* wrapper = new COffregWrapper(loader_);
  EXPECT_EQ(wrapper->Release(), 0);
  EXPECT_EQ(loader_.LoadedNow(), 0);
  EXPECT_EQ(loader_.unloaded().size(), 2u);
}

}  // namespace
}  // namespace tw
