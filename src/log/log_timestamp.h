// The timestamp at the start of every log line.
#pragma once

#include <string>

#include "ports/system_services.h"

namespace tw {

// True when time is a date and time that an OLE variant date holds and gives back unchanged:
// the round trip SystemTimeToVariantTime -> VariantTimeToSystemTime that decides validity on
// Windows, done by rule instead of by call. It holds for a year of 100-9999 (a variant date
// reads years below 100 as 19xx/20xx, so they do not come back), a month of 1-12, a day that
// exists in that month of the Gregorian calendar, an hour of 0-23, a minute of 0-59 and a
// second of 0-59 (a leap second rolls over into the next minute and does not come back). The day
// of the week is not checked, as the conversion ignores it.
bool IsValidLogTime(const CalendarTime& time);

// "MM/DD/YY HH:MM:SS" (two-digit month, day and year, 24-hour clock), which is what "%c" gives in
// the C run-time's default locale on Windows. Written digit by digit, never through the C
// library, so the locale settings (LANG, LC_ALL) cannot change it.
std::wstring FormatLogTime(const CalendarTime& time);

// The text of the current time for a log line: FormatLogTime, or "Invalid DateTime" when the
// local time is not available or not IsValidLogTime.
std::wstring LogTimestamp(SystemServices& system);

}  // namespace tw
