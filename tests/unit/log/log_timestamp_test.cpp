#include "log/log_timestamp.h"

#include <gtest/gtest.h>

#include "fakes/fake_system_services.h"

namespace tw {
namespace {

CalendarTime At(int year, int month, int day, int hour, int minute, int second) {
  return CalendarTime{year, month, day, 0, hour, minute, second};
}

TEST(FormatLogTime, IsMonthDayTwoDigitYearAnd24HourTime) {
  EXPECT_EQ(FormatLogTime(At(2026, 11, 16, 2, 21, 38)), L"11/16/26 02:21:38");
  EXPECT_EQ(FormatLogTime(At(2007, 1, 2, 23, 4, 5)), L"01/02/07 23:04:05");
  EXPECT_EQ(FormatLogTime(At(2100, 12, 31, 0, 0, 0)), L"12/31/00 00:00:00");
}

TEST(IsValidLogTime, AcceptsRealDatesAndTimes) {
  EXPECT_TRUE(IsValidLogTime(At(2026, 11, 16, 2, 21, 38)));
  EXPECT_TRUE(IsValidLogTime(At(2024, 2, 29, 23, 59, 59)));
  EXPECT_TRUE(IsValidLogTime(At(2000, 2, 29, 0, 0, 0)));
  EXPECT_TRUE(IsValidLogTime(At(100, 1, 1, 0, 0, 0)));
  EXPECT_TRUE(IsValidLogTime(At(9999, 12, 31, 23, 59, 59)));
}

TEST(IsValidLogTime, RejectsWhatDoesNotSurviveTheVariantRoundTrip) {
  EXPECT_FALSE(IsValidLogTime(At(2023, 2, 29, 0, 0, 0)));  // not a leap year
  EXPECT_FALSE(IsValidLogTime(At(1900, 2, 29, 0, 0, 0)));  // century, not a leap year
  EXPECT_FALSE(IsValidLogTime(At(2026, 4, 31, 0, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2026, 13, 1, 0, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2026, 0, 1, 0, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2026, 1, 0, 0, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2026, 1, 1, 24, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2026, 1, 1, 0, 60, 0)));
  EXPECT_FALSE(IsValidLogTime(At(2016, 12, 31, 23, 59, 60)));  // leap second
  EXPECT_FALSE(IsValidLogTime(At(99, 1, 1, 0, 0, 0)));
  EXPECT_FALSE(IsValidLogTime(At(10000, 1, 1, 0, 0, 0)));
}

TEST(LogTimestamp, IsInvalidDateTimeWhenTheClockFailsOrTheDateIsNotValid) {
  testing::FakeSystemServices system;
  EXPECT_EQ(LogTimestamp(system), L"11/16/26 02:21:38");
  system.time = At(2026, 2, 30, 1, 2, 3);
  EXPECT_EQ(LogTimestamp(system), L"Invalid DateTime");
  system.time = At(2026, 2, 28, 1, 2, 3);
  system.clockWorks = false;
  EXPECT_EQ(LogTimestamp(system), L"Invalid DateTime");
}

}  // namespace
}  // namespace tw
