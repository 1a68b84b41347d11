#include "net/FtpListing.h"

#include <cctype>

#include "app/DateTime.h"
#include "app/Text.h"

namespace toverin {
namespace {

bool AllDigits(std::string_view text) {
    if (text.empty()) return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

int Number(std::string_view text) {
    int v = 0;
    for (char c : text) v = v * 10 + (c - '0');
    return v;
}

// The blank-separated words of a line, each with where it starts.
struct Word {
    std::string_view text;
    size_t at;
};
std::vector<Word> Words(std::string_view line) {
    std::vector<Word> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > start) words.push_back({line.substr(start, i - start), start});
    }
    return words;
}

int MonthOf(std::string_view word) {
    static const char* names[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                  "jul", "aug", "sep", "oct", "nov", "dec"};
    if (word.size() != 3) return 0;
    for (int m = 0; m < 12; ++m) {
        bool same = true;
        for (size_t i = 0; i < 3; ++i)
            same = same && std::tolower(static_cast<unsigned char>(word[i])) == names[m][i];
        if (same) return m + 1;
    }
    return 0;
}

// "12:30" or "12:30PM" / "12:30AM"; false when it is not such a time.
bool ParseClock(std::string_view text, int& hour, int& minute) {
    size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view h = text.substr(0, colon), rest = text.substr(colon + 1);
    std::string_view m = rest.substr(0, std::min<size_t>(2, rest.size()));
    std::string_view suffix = rest.substr(m.size());
    if (!AllDigits(h) || m.size() != 2 || !AllDigits(m)) return false;
    hour = Number(h);
    minute = Number(m);
    if (!suffix.empty()) {
        char c = static_cast<char>(std::toupper(static_cast<unsigned char>(suffix[0])));
        if (suffix.size() != 2 || (c != 'A' && c != 'P') ||
            std::toupper(static_cast<unsigned char>(suffix[1])) != 'M' || hour < 1 || hour > 12)
            return false;
        hour = hour % 12 + (c == 'P' ? 12 : 0);
    }
    return hour < 24 && minute < 60;
}

bool MakeDate(int year, int month, int day, int hour, int minute, LocalTime& out) {
    using namespace std::chrono;
    year_month_day ymd{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                       std::chrono::day{static_cast<unsigned>(day)}};
    if (!ymd.ok()) return false;
    out = LocalTime{local_days{ymd}} + hours{hour} + minutes{minute};
    return true;
}

// "-rw-r--r-- 1 user group 24577 Mar 15 12:30 name", the group sometimes left out.
bool ParseUnixLine(std::string_view line, LocalTime now, FtpDirEntry& entry) {
    const std::vector<Word> words = Words(line);
    if (words.size() < 6) return false;
    std::string_view mode = words[0].text;
    if (mode.size() < 10 || std::string_view("-dlbcpsD").find(mode[0]) == std::string_view::npos)
        return false;
    // The date is a month name, the day and a time or a year; the size comes before it and the
    // name, blanks and all, after it.
    for (size_t m = 2; m + 3 < words.size(); ++m) {
        const int month = MonthOf(words[m].text);
        std::string_view size = words[m - 1].text, last = words[m + 2].text;
        if (!month || !AllDigits(words[m + 1].text) || !AllDigits(size)) continue;
        int day = Number(words[m + 1].text), hour = 0, minute = 0, year = 0;
        if (AllDigits(last) && last.size() == 4) {
            year = Number(last);
        } else if (ParseClock(last, hour, minute)) {
            // A recent file is listed without its year: the latest year that is not ahead.
            year = static_cast<int>(
                std::chrono::year_month_day{std::chrono::floor<std::chrono::days>(now)}.year());
            LocalTime candidate;
            if (MakeDate(year, month, day, hour, minute, candidate) &&
                candidate > now + std::chrono::hours(24))
                --year;
        } else {
            continue;
        }
        if (!MakeDate(year, month, day, hour, minute, entry.date)) return false;
        entry.name = std::string(line.substr(words[m + 3].at));
        if (mode[0] == 'l') {
            size_t arrow = entry.name.find(" -> ");
            if (arrow != std::string::npos) entry.name.resize(arrow);
        }
        entry.isDirectory = mode[0] == 'd' || mode[0] == 'D';
        entry.size = 0;
        for (char c : size) entry.size = entry.size * 10 + (c - '0');
        return true;
    }
    return false;
}

// "03-15-26  12:30PM       <DIR>          Archives" or "... 24577 FRADB22.bt6".
bool ParseDosLine(std::string_view line, FtpDirEntry& entry) {
    const std::vector<Word> words = Words(line);
    if (words.size() < 4) return false;
    std::string_view date = words[0].text;
    if (date.size() != 8 && date.size() != 10) return false;
    if (date[2] != '-' && date[2] != '/') return false;
    if (date[5] != date[2]) return false;
    std::string_view mm = date.substr(0, 2), dd = date.substr(3, 2), yy = date.substr(6);
    if (!AllDigits(mm) || !AllDigits(dd) || !AllDigits(yy)) return false;
    int year = Number(yy);
    if (yy.size() == 2) year += year < 70 ? 2000 : 1900;
    int hour = 0, minute = 0;
    if (!ParseClock(words[1].text, hour, minute)) return false;
    if (!MakeDate(year, Number(mm), Number(dd), hour, minute, entry.date)) return false;
    std::string_view kind = words[2].text;
    if (kind == "<DIR>") {
        entry.isDirectory = true;
        entry.size = 0;
    } else {
        entry.isDirectory = false;
        entry.size = 0;
        for (char c : kind) {
            if (c == ',' || c == '.') continue;
            if (!std::isdigit(static_cast<unsigned char>(c))) return false;
            entry.size = entry.size * 10 + (c - '0');
        }
    }
    entry.name = std::string(line.substr(words[3].at));
    return true;
}

}  // namespace

bool ParseFtpTime(std::string_view text, LocalTime& out) {
    using namespace std::chrono;
    if (text.size() < 14 || !AllDigits(text.substr(0, 14))) return false;
    auto num = [&](size_t pos, size_t len) { return Number(text.substr(pos, len)); };
    year_month_day ymd{year{num(0, 4)}, month{static_cast<unsigned>(num(4, 2))},
                       day{static_cast<unsigned>(num(6, 2))}};
    if (!ymd.ok()) return false;
    int ms = 0;
    if (text.size() > 15 && text[14] == '.') {
        int scale = 100;
        for (size_t i = 15;
             i < text.size() && i < 18 && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
            ms += (text[i] - '0') * scale;
            scale /= 10;
        }
    }
    sys_time<Milliseconds> utc = sys_days{ymd} + hours{num(8, 2)} + minutes{num(10, 2)} +
                                 seconds{num(12, 2)} + milliseconds{ms};
    out = LocalTimeOf(time_point_cast<system_clock::duration>(utc));
    return true;
}

std::vector<FtpDirEntry> ParseMlsdListing(std::string_view listing) {
    std::vector<FtpDirEntry> entries;
    for (std::string_view line : SplitLines(listing)) {
        // The facts end at the first blank; the name is everything after it, blanks included.
        size_t blank = line.find(' ');
        if (blank == std::string_view::npos || blank + 1 >= line.size()) continue;
        std::string_view facts = line.substr(0, blank);
        FtpDirEntry entry;
        entry.name = std::string(line.substr(blank + 1));
        bool skip = false;
        while (!facts.empty()) {
            size_t semi = facts.find(';');
            std::string_view fact = facts.substr(0, semi);
            facts = semi == std::string_view::npos ? std::string_view{} : facts.substr(semi + 1);
            size_t eq = fact.find('=');
            if (eq == std::string_view::npos) continue;
            std::string key(fact.substr(0, eq));
            for (auto& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            std::string_view value = fact.substr(eq + 1);
            if (key == "type") {
                std::string type(value);
                for (auto& c : type)
                    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                if (type == "cdir" || type == "pdir") skip = true;
                entry.isDirectory = type == "dir" || type == "cdir" || type == "pdir";
            } else if (key == "size") {
                int64_t size = 0;
                for (char c : value) {
                    if (!std::isdigit(static_cast<unsigned char>(c))) break;
                    size = size * 10 + (c - '0');
                }
                entry.size = size;
            } else if (key == "modify") {
                ParseFtpTime(value, entry.date);
            }
        }
        if (!skip) entries.push_back(std::move(entry));
    }
    return entries;
}

bool FtpNameMatches(std::string_view pattern, std::string_view name) {
    if (pattern.empty() || pattern == "*.*" || pattern == "*") return true;
    auto lower = [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    };
    // Iterative glob with one backtrack point: linear enough for file names.
    size_t p = 0, n = 0, star = std::string_view::npos, mark = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || lower(pattern[p]) == lower(name[n]))) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = n;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

std::vector<FtpDirEntry> ParseListListing(std::string_view listing, LocalTime now) {
    std::vector<FtpDirEntry> entries;
    for (std::string_view line : SplitLines(listing)) {
        FtpDirEntry entry;
        if (!ParseUnixLine(line, now, entry) && !ParseDosLine(line, entry)) continue;
        if (entry.name.empty() || entry.name == "." || entry.name == "..") continue;
        entries.push_back(std::move(entry));
    }
    return entries;
}

}  // namespace toverin
