#include "log/log_timestamp.h"

namespace tw {
namespace {

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && IsLeapYear(year)) return 29;
  return kDays[month - 1];
}

void AppendTwoDigits(std::wstring& text, int value) {
  text.push_back(static_cast<wchar_t>(L'0' + value / 10 % 10));
  text.push_back(static_cast<wchar_t>(L'0' + value % 10));
}

}  // namespace

bool IsValidLogTime(const CalendarTime& time) {
  if (time.year < 100 || time.year > 9999) return false;
  if (time.month < 1 || time.month > 12) return false;
  if (time.day < 1 || time.day > DaysInMonth(time.year, time.month)) return false;
  if (time.hour < 0 || time.hour > 23) return false;
  if (time.minute < 0 || time.minute > 59) return false;
  return time.second >= 0 && time.second <= 59;
}

std::wstring FormatLogTime(const CalendarTime& time) {
  std::wstring text;
  text.reserve(17);
  AppendTwoDigits(text, time.month);
  text.push_back(L'/');
  AppendTwoDigits(text, time.day);
  text.push_back(L'/');
  AppendTwoDigits(text, time.year % 100);
  text.push_back(L' ');
  AppendTwoDigits(text, time.hour);
  text.push_back(L':');
  AppendTwoDigits(text, time.minute);
  text.push_back(L':');
  AppendTwoDigits(text, time.second);
  return text;
}

std::wstring LogTimestamp(SystemServices& system) {
  CalendarTime time;
  if (!system.CurrentLocalTime(time) || !IsValidLogTime(time)) return L"Invalid DateTime";
  return FormatLogTime(time);
}

}  // namespace tw
