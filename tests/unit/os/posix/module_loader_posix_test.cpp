// The Linux module port: the hive engine stands in for the offline-registry library.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "hive/offreg_api.h"
#include "os/posix/paths/native_path.h"
#include "ports/module_loader.h"
#include "registry/offreg_wrapper.h"

namespace tw {
namespace {

TEST(ModuleLoaderPosix, ServesTheHiveEngineAsOffregByAnyCaseOfItsName) {
  ModuleLoader& loader = ProcessModuleLoader();
  const ModuleHandle module =
      loader.Load(L"OFFREG.DLL", ModuleSearch::kSystemThenApplicationFolder);
  ASSERT_NE(module, kNoModule);
  EXPECT_EQ(loader.Load(L"offreg.dll", ModuleSearch::kSystemFolder), module);
  EXPECT_NE(loader.FindFunction(module, "OROpenHive"), nullptr);  // a path-mapping shim
  EXPECT_EQ(reinterpret_cast<OREnumValueFunction>(loader.FindFunction(module, "OREnumValue")),
            hive::EngineFunctions().OREnumValue);
  EXPECT_EQ(loader.FindFunction(module, "ORNoSuchFunction"), nullptr);
  EXPECT_EQ(loader.FindFunction(module, "oropenhive"), nullptr);  // export names are exact
  loader.Unload(module);
}

TEST(ModuleLoaderPosix, UnknownLibraryDoesNotLoad) {
  EXPECT_EQ(ProcessModuleLoader().Load(L"sensapi.dll", ModuleSearch::kSystemFolder), kNoModule);
  EXPECT_EQ(ProcessModuleLoader().FindFunction(kNoModule, "OROpenHive"), nullptr);
}

TEST(ModuleLoaderPosix, WrapperOverTheProcessLoaderIsCompleteAndOpensARealHive) {
  testing::LogCapture log;
  COffregWrapper wrapper(ProcessModuleLoader());
  EXPECT_TRUE(wrapper.IsOffregComplete());
  ASSERT_NE(wrapper.ORSetKeySecurity, nullptr);
  for (const std::wstring& line : log.messages()) {
    EXPECT_NE(line, L"Failed getting offreg.dll function pointers");
  }

  const std::wstring hivePath =
      posix::ToWindowsPath(std::string(TARNWICK_TESTDATA_DIR) + "/hives/windows-xp-special.hiv");
  OrKey hive = nullptr;
  ASSERT_EQ(wrapper.OROpenHive(hivePath.c_str(), &hive), 0u);
  OrDword subKeys = 0;
  EXPECT_EQ(wrapper.ORQueryInfoKey(hive, nullptr, nullptr, &subKeys, nullptr, nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr),
            0u);
  EXPECT_GT(subKeys, 0u);
  EXPECT_EQ(wrapper.ORCloseHive(hive), 0u);
}

TEST(ModuleLoaderPosix, HivePathsAreMappedFromTheWindowsForm) {
  testing::TempFolder temp;
  COffregWrapper wrapper(ProcessModuleLoader());
  OrKey hive = nullptr;
  ASSERT_EQ(wrapper.OROpenHive(posix::ToWindowsPath(std::string(TARNWICK_TESTDATA_DIR) +
                                                    "/hives/windows-xp-special.hiv")
                                   .c_str(),
                               &hive),
            0u);
  const std::wstring saved = posix::ToWindowsPath(temp.Child("saved.dat"));
  EXPECT_EQ(wrapper.ORSaveHive(hive, saved.c_str(), 6, 1), 0u);
  EXPECT_TRUE(std::filesystem::is_regular_file(temp.path() / "saved.dat"));
  EXPECT_EQ(wrapper.ORCloseHive(hive), 0u);

  OrKey none = nullptr;
  EXPECT_EQ(wrapper.OROpenHive(L"\\\\nosuchserver\\share\\ntuser.dat", &none), err::kBadNetPath);
  EXPECT_EQ(wrapper.OROpenHive(L"Q:\\ntuser.dat", &none), err::kPathNotFound);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(wrapper.OROpenHive(nullptr, &none), err::kInvalidParameter);
}

TEST(ModuleLoaderPosix, ProcessBindingIsCompleteForTheOfflineRegistry) {
  EXPECT_TRUE(g_offreg.IsOffregComplete());
  EXPECT_NE(g_offreg.offregModule, kNoModule);
  EXPECT_NE(g_offreg.userenvModule, kNoModule);
}

}  // namespace
}  // namespace tw
