#include "app/DateTime.h"

#include <array>
#include <cstdio>

#include "app/Text.h"

namespace toverin {

using namespace std::chrono;

namespace {

struct Parts {
    int year, month, day, hour, minute, second, ms;
};

Parts Split(LocalTime t) {
    auto day = floor<days>(t);
    year_month_day ymd{day};
    auto rest = t - day;
    auto h = duration_cast<hours>(rest);
    auto m = duration_cast<minutes>(rest - h);
    auto s = duration_cast<seconds>(rest - h - m);
    auto ms = duration_cast<milliseconds>(rest - h - m - s);
    return {int(ymd.year()),
            static_cast<int>(unsigned(ymd.month())),
            static_cast<int>(unsigned(ymd.day())),
            static_cast<int>(h.count()),
            static_cast<int>(m.count()),
            static_cast<int>(s.count()),
            static_cast<int>(ms.count())};
}

constexpr std::array<const char*, 7> kDayNames = {"Lundi",    "Mardi",  "Mercredi", "Jeudi",
                                                  "Vendredi", "Samedi", "Dimanche"};
constexpr std::array<const char*, 7> kLowerDayNames = {"lundi",    "mardi",  "mercredi", "jeudi",
                                                       "vendredi", "samedi", "dimanche"};
constexpr std::array<const char*, 12> kMonthNames = {
    "janvier", "février", "mars",      "avril",   "mai",      "juin",
    "juillet", "août",    "septembre", "octobre", "novembre", "décembre"};

}  // namespace

LocalTime MakeLocalTime(int y, int mo, int d, int h, int mi, int s) {
    auto day = local_days{year{y} / mo / d};
    return LocalTime{day} + hours{h} + minutes{mi} + seconds{s};
}

int WeekdayMondayFirst(LocalTime t) {
    weekday wd{floor<days>(t)};
    return static_cast<int>(wd.iso_encoding());
}

LocalTime AddDays(LocalTime t, int n) {
    return t + days{n};
}

LocalTime StartOfDay(LocalTime t) {
    return LocalTime{floor<days>(t)};
}

long long SecondsBetween(LocalTime a, LocalTime b) {
    return duration_cast<seconds>(b - a).count();
}

std::string DateKey(LocalTime t) {
    auto p = Split(t);
    return ZeroPad(p.year, 4) + ZeroPad(p.month, 2) + ZeroPad(p.day, 2);
}

std::string TimeKey(LocalTime t) {
    auto p = Split(t);
    return ZeroPad(p.hour, 2) + ZeroPad(p.minute, 2) + ZeroPad(p.second, 2);
}

std::string FormatTime(LocalTime t) {
    auto p = Split(t);
    return ZeroPad(p.hour, 2) + ":" + ZeroPad(p.minute, 2) + ":" + ZeroPad(p.second, 2);
}

std::string FormatShortTime(LocalTime t) {
    auto p = Split(t);
    return ZeroPad(p.hour, 2) + ":" + ZeroPad(p.minute, 2);
}

std::string FormatShortDate(LocalTime t) {
    auto p = Split(t);
    return ZeroPad(p.day, 2) + "/" + ZeroPad(p.month, 2) + "/" + ZeroPad(p.year, 4);
}

std::string FormatDateTime(LocalTime t) {
    return FormatShortDate(t) + " " + FormatTime(t);
}

std::string FormatLongDate(LocalTime t) {
    auto p = Split(t);
    return std::string(kLowerDayNames[WeekdayMondayFirst(t) - 1]) + " " + std::to_string(p.day) +
           " " + kMonthNames[p.month - 1] + " " + std::to_string(p.year);
}

std::string FormatLongDateTime(LocalTime t) {
    return FormatLongDate(t) + " " + FormatTime(t);
}

std::string DayName(int weekdayMondayFirst) {
    if (weekdayMondayFirst < 1 || weekdayMondayFirst > 7) return {};
    return kDayNames[weekdayMondayFirst - 1];
}

std::string DayName(LocalTime t) {
    return DayName(WeekdayMondayFirst(t));
}

std::string FormatDuration(long long secondsTotal) {
    if (secondsTotal < 0) secondsTotal = 0;
    return std::to_string(secondsTotal / 60) + " min " + ZeroPad(secondsTotal % 60, 2) + " s";
}

bool ParseDateTime(const std::string& text, LocalTime& out) {
    int d = 0, mo = 0, y = 0, h = 0, mi = 0, s = 0;
    std::string t = Trim(text);
    int n = std::sscanf(t.c_str(), "%d/%d/%d %d:%d:%d", &d, &mo, &y, &h, &mi, &s);
    if (n != 3 && n != 6) return false;
    year_month_day ymd{year{y}, month(static_cast<unsigned>(mo)), day(static_cast<unsigned>(d))};
    if (!ymd.ok() || h < 0 || h > 23 || mi < 0 || mi > 59 || s < 0 || s > 59) return false;
    out = MakeLocalTime(y, mo, d, h, mi, s);
    return true;
}

}  // namespace toverin
