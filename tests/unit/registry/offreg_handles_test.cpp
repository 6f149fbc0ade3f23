#include "registry/offreg_handles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "base/win32_error.h"
#include "fakes/fake_offreg.h"
#include "fakes/temp_folder.h"
#include "registry_test_bed.h"

namespace tw {
namespace {

using registry::CallCreateKey;
using registry::CallOpenHive;
using registry::HiveCloser;
using registry::KeyCloser;
using registry::kNoOrKey;
using testing::FakeOffreg;
using testing::OffregFunction;
using testing::TempFolder;
using testing::WinPath;

// A copy of the minimal hive, opened through the fake table; each test's closers then work on
// it, and the calls the fake records are what the closers did.
class OffregHandlesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::filesystem::path file = folder.path() / "closers.dat";
    std::filesystem::copy_file(
        std::filesystem::path(TARNWICK_TESTDATA_DIR) / "hives" / "windows-2003-minimal.hiv", file);
    ASSERT_EQ(CallOpenHive(offreg(), WinPath(file).c_str(), &hive), err::kSuccess);
    fake.ClearCalls();
  }
  void TearDown() override {
    if (hive != kNoOrKey) offreg().ORCloseHive(hive);
  }
  COffregWrapper& offreg() { return fake.offreg(); }
  std::size_t CountOf(OffregFunction function) const { return fake.CallsOf(function).size(); }

  TempFolder folder;
  FakeOffreg fake;
  OrKey hive = kNoOrKey;
};

TEST_F(OffregHandlesTest, HiveCloserClosesTheHiveWhenItsScopeEnds) {
  {
    HiveCloser closeHive(offreg(), hive);
    EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 0u);
  }
  EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 1u);
  EXPECT_EQ(hive, kNoOrKey);
}

TEST_F(OffregHandlesTest, HiveCloserClosesTheHiveWhileAnExceptionPasses) {
  EXPECT_THROW(
      {
        HiveCloser closeHive(offreg(), hive);
        throw std::runtime_error("unwinding");
      },
      std::runtime_error);
  EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 1u);
  EXPECT_EQ(hive, kNoOrKey);
}

TEST_F(OffregHandlesTest, CloseClosesAtOnceAndTheScopeEndClosesNothingMore) {
  {
    HiveCloser closeHive(offreg(), hive);
    EXPECT_EQ(closeHive.Close(), err::kSuccess);
    EXPECT_EQ(hive, kNoOrKey);
    EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 1u);
    EXPECT_EQ(closeHive.Close(), err::kSuccess);  // nothing left to close
  }
  EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 1u);
}

TEST_F(OffregHandlesTest, TheCloserClosesWhatTheVariableHoldsAtTheEnd) {
  // As SaveTargetHive does: the watched variable is closed and re-opened in between.
  {
    HiveCloser closeHive(offreg(), hive);
    ASSERT_EQ(registry::CloseHive(offreg(), hive), err::kSuccess);
    ASSERT_EQ(CallOpenHive(offreg(), WinPath(folder.path() / "closers.dat").c_str(), &hive),
              err::kSuccess);
    EXPECT_NE(hive, kNoOrKey);
  }
  EXPECT_EQ(CountOf(OffregFunction::kOpenHive), 1u);
  EXPECT_EQ(CountOf(OffregFunction::kCloseHive), 2u);
  EXPECT_EQ(hive, kNoOrKey);
}

TEST_F(OffregHandlesTest, AClosedHandleOfMinusOneCallsNothing) {
  OrKey none = kNoOrKey;
  {
    KeyCloser closeKey(offreg(), none);
    HiveCloser closeHive(offreg(), none);
  }
  EXPECT_TRUE(fake.calls().empty());
}

TEST_F(OffregHandlesTest, KeyCloserClosesTheKeyAndCloseReportsAFailedClose) {
  OrKey key = kNoOrKey;
  ASSERT_EQ(CallCreateKey(offreg(), hive, L"Closed", nullptr, &key), err::kSuccess);
  { KeyCloser closeKey(offreg(), key); }
  EXPECT_EQ(CountOf(OffregFunction::kCloseKey), 1u);
  EXPECT_EQ(key, kNoOrKey);

  ASSERT_EQ(CallCreateKey(offreg(), hive, L"Refused", nullptr, &key), err::kSuccess);
  fake.Fail(OffregFunction::kCloseKey, err::kAccessDenied);
  KeyCloser closeKey(offreg(), key);
  EXPECT_EQ(closeKey.Close(), err::kAccessDenied);
  EXPECT_EQ(key, kNoOrKey);  // given up on: the closer does not try again
  EXPECT_EQ(CountOf(OffregFunction::kCloseKey), 2u);
}

}  // namespace
}  // namespace tw
