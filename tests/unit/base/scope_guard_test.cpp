// The scope guard: its action runs once, when its scope ends, on every way out, after the
// locals declared after it, and never once dismissed.
#include "base/scope_guard.h"

#include <gtest/gtest.h>

#include <string>

namespace tw {
namespace {

// Appends its name to a record when it ends.
class Noting {
 public:
  Noting(std::string& record, const char* name) : record_(record), name_(name) {}
  Noting(const Noting&) = delete;
  Noting& operator=(const Noting&) = delete;
  ~Noting() { record_ += name_; }

 private:
  std::string& record_;
  const char* name_;
};

TEST(ScopeGuardTest, RunsOnceWhenItsScopeEnds) {
  int runs = 0;
  {
    const ScopeGuard guard([&] { ++runs; });
    EXPECT_EQ(runs, 0);
  }
  EXPECT_EQ(runs, 1);
}

TEST(ScopeGuardTest, RunsOnEveryWayOut) {
  std::string record;
  const auto leave = [&](int way) {
    const ScopeGuard guard([&] { record += "g"; });
    if (way == 0) return 0;
    for (int i = 0; i < 3; ++i) {
      if (way == 1) break;
    }
    record += "e";
    return 2;
  };
  EXPECT_EQ(leave(0), 0);
  EXPECT_EQ(record, "g");
  record.clear();
  EXPECT_EQ(leave(1), 2);
  EXPECT_EQ(record, "eg");
}

TEST(ScopeGuardTest, RunsWhenAnExceptionLeavesTheScope) {
  int runs = 0;
  EXPECT_THROW(
      {
        const ScopeGuard guard([&] { ++runs; });
        throw 1;
      },
      int);
  EXPECT_EQ(runs, 1);
}

TEST(ScopeGuardTest, RunsAfterTheLocalsDeclaredAfterItAndBeforeTheOnesBefore) {
  std::string record;
  {
    const Noting before(record, "b");
    const ScopeGuard guard([&] { record += "g"; });
    const Noting after(record, "a");
  }
  EXPECT_EQ(record, "agb");
}

TEST(ScopeGuardTest, ADismissedGuardDoesNothing) {
  int runs = 0;
  {
    ScopeGuard guard([&] { ++runs; });
    guard.Dismiss();
  }
  EXPECT_EQ(runs, 0);
}

}  // namespace
}  // namespace tw
