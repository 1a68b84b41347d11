// Calendar helpers over LocalTime: the suite's date keys, French day names and long dates.
#pragma once

#include <string>

#include "app/Clock.h"

namespace toverin {

LocalTime MakeLocalTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
// Monday = 1 .. Sunday = 7.
int WeekdayMondayFirst(LocalTime t);
LocalTime AddDays(LocalTime t, int days);
LocalTime StartOfDay(LocalTime t);
// Whole seconds from a to b (negative when b is earlier).
long long SecondsBetween(LocalTime a, LocalTime b);

std::string DateKey(LocalTime t);             // "YYYYMMDD"
std::string TimeKey(LocalTime t);             // "HHMMSS"
std::string FormatTime(LocalTime t);          // "HH:MM:SS"
std::string FormatShortTime(LocalTime t);     // "HH:MM"
std::string FormatShortDate(LocalTime t);     // "22/11/2026"
std::string FormatDateTime(LocalTime t);      // "22/11/2026 04:30:00"
std::string FormatLongDate(LocalTime t);      // "dimanche 22 novembre 2026"
std::string FormatLongDateTime(LocalTime t);  // long date, a blank, "HH:MM:SS"
// "Lundi" .. "Dimanche", the names of the seven backup generations.
std::string DayName(int weekdayMondayFirst);
std::string DayName(LocalTime t);
// Duration in seconds as minutes and seconds: "12 min 05 s".
std::string FormatDuration(long long seconds);
// Parses "DD/MM/YYYY HH:MM:SS" (the time optional); false when it is not such a text.
bool ParseDateTime(const std::string& text, LocalTime& out);

}  // namespace toverin
