#include "migration/run_mode.h"

#include <gtest/gtest.h>

#include <string_view>

#include "migration/process_state.h"

namespace tw {
namespace {

TEST(RunModeTest, TheNamedModesInTheOrderTheConfigurationFileIsRead) {
  ASSERT_EQ(std::size(kNamedRunModes), 4u);
  EXPECT_EQ(kNamedRunModes[0].mode, (RunMode{2, 5}));
  EXPECT_EQ(kNamedRunModes[0].option, L"/V2TOV5");
  EXPECT_EQ(kNamedRunModes[0].configurationElement, L"migv2tov5");
  EXPECT_EQ(kNamedRunModes[1].mode, (RunMode{2, 6}));
  EXPECT_EQ(kNamedRunModes[1].option, L"/V2TOV6");
  EXPECT_EQ(kNamedRunModes[1].configurationElement, L"migv2tov6");
  EXPECT_EQ(kNamedRunModes[2].mode, (RunMode{5, 6}));
  EXPECT_EQ(kNamedRunModes[2].option, L"/V5TOV6");
  EXPECT_EQ(kNamedRunModes[2].configurationElement, L"migv5tov6");
  EXPECT_EQ(kNamedRunModes[3].mode, (RunMode{6, 6}));
  EXPECT_EQ(kNamedRunModes[3].option, L"/V6TOV6");
  EXPECT_EQ(kNamedRunModes[3].configurationElement, L"migv6tov6");
}

TEST(RunModeTest, OnlyTheFourPairsAreNamedModes) {
  EXPECT_TRUE(IsNamedRunMode({2, 5}));
  EXPECT_TRUE(IsNamedRunMode({2, 6}));
  EXPECT_TRUE(IsNamedRunMode({5, 6}));
  EXPECT_TRUE(IsNamedRunMode({6, 6}));
  EXPECT_FALSE(IsNamedRunMode(kModeV1ToV2));
  EXPECT_FALSE(IsNamedRunMode({5, 5}));
  EXPECT_FALSE(IsNamedRunMode({6, 5}));
  EXPECT_FALSE(IsNamedRunMode({1, 2}));
}

TEST(RunModeTest, TheSixSixSelectionIsNoVersionMode) {
  EXPECT_TRUE(IsVersionMode(kModeV2ToV5));
  EXPECT_TRUE(IsVersionMode(kModeV2ToV6));
  EXPECT_TRUE(IsVersionMode(kModeV5ToV6));
  EXPECT_FALSE(IsVersionMode(kModeV6ToV6));
  EXPECT_FALSE(IsVersionMode(kModeV1ToV2));
  EXPECT_FALSE(IsVersionMode({2, 2}));
}

TEST(RunModeTest, TheSuffixLoopIsChosenByTheSourceVersionAlone) {
  EXPECT_TRUE(IsSuffixLoopMode({2, 5}));
  EXPECT_TRUE(IsSuffixLoopMode({5, 6}));
  EXPECT_TRUE(IsSuffixLoopMode({2, 0}));
  EXPECT_FALSE(IsSuffixLoopMode(kModeV6ToV6));
  EXPECT_FALSE(IsSuffixLoopMode(kModeV1ToV2));
  EXPECT_EQ(std::wstring_view(SourceSuffixOf(kModeV2ToV6)), L"V2");
  EXPECT_EQ(std::wstring_view(SourceSuffixOf(kModeV5ToV6)), L"V5");
}

TEST(RunModeTest, TheVersionsByTheirOwnNamesAreTheRunModesStorage) {
  const RunMode saved = g_runMode;
  EXPECT_EQ(&g_sourceVersion, &g_runMode.sourceVersion);
  EXPECT_EQ(&g_targetVersion, &g_runMode.targetVersion);
  g_runMode = kModeV5ToV6;
  EXPECT_EQ(g_sourceVersion, 5);
  EXPECT_EQ(g_targetVersion, 6);
  g_sourceVersion = 2;
  EXPECT_EQ(g_runMode, kModeV2ToV6);
  g_runMode = saved;
}

}  // namespace
}  // namespace tw
