// toverinctl duplicate schedule / labels: the two pages of the Duplication tab for scripts. The
// command line is checked whole before the site is read; the run's questions are answered Yes
// (the command line states the choice) and logged with their answers. The exit status is 0 only
// when the duplication ran to its end without error.
#include <iostream>
#include <sstream>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/Duplication.h"
#include "content/DuplicationGrid.h"
#include "ctl/Ctl.h"
#include "ctl/CtlSite.h"

namespace toverin::ctl {
namespace {

// A number of one or two digits within low..high.
bool ParseNumber(const std::string& text, int low, int high, int& out) {
    if (text.empty() || text.size() > 2 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    out = std::stoi(text);
    return out >= low && out <= high;
}

// "YYYY-MM-DD", a day of the calendar.
bool ParseDay(const std::string& text, LocalTime& out) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
    for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (text[i] < '0' || text[i] > '9') return false;
    const int year = std::stoi(text.substr(0, 4));
    const int month = std::stoi(text.substr(5, 2));
    const int day = std::stoi(text.substr(8, 2));
    const std::chrono::year_month_day ymd{std::chrono::year(year),
                                          std::chrono::month(static_cast<unsigned>(month)),
                                          std::chrono::day(static_cast<unsigned>(day))};
    if (!ymd.ok()) return false;
    out = MakeLocalTime(year, month, day);
    return true;
}

// "--option YYYY-MM-DD": "" when it reads, else what is wrong (absent, or not a date).
std::string TakeDay(Args& args, const std::string& what, const std::string& option,
                    const std::string& meaning, std::string& text, LocalTime& out) {
    if (!TakeOption(args, option, text))
        return what + ": " + option + " YYYY-MM-DD (" + meaning + ") is required";
    if (!ParseDay(text, out))
        return what + ": " + option + " takes a date YYYY-MM-DD, not '" + text + "'";
    return "";
}

// The site is read only once the whole command line is known to be good.
Args RootArgs(const std::string& root) {
    return root.empty() ? Args{} : Args{"--root", root};
}

std::string TakeRoot(Args& args) {
    std::string root;
    TakeOption(args, "--root", root);
    return root;
}

// The parts every duplication shares: the base, the source and the targets.
struct Stations {
    int base = 0;
    int source = 0;
    std::array<bool, kMaxStations> targets{};
};

// A value given but unreadable is named: "is required" would send the user looking for a typo
// in the option's name.
std::string TakeStations(Args& args, const std::string& what, Stations& out) {
    std::string base, source, targets;
    if (!TakeOption(args, "--base", base))
        return what + ": --base N (0 = the first base) is required";
    if (!ParseNumber(base, 0, kMaxBases - 1, out.base))
        return what + ": --base takes a base number (0 = the first base), not '" + base + "'";
    if (!TakeOption(args, "--source", source))
        return what + ": --source S (a station, 1 = the first) is required";
    if (!ParseNumber(source, 1, kMaxStations, out.source))
        return what + ": --source takes a station number (1 = the first), not '" + source + "'";
    if (!TakeOption(args, "--targets", targets))
        return what + ": --targets LIST (for example 2,3 or 2-4) is required";
    if (std::string error = ParseList("--targets", targets, 1, out.targets); !error.empty())
        return what + ": " + error;
    return "";
}

// After the site is read: the base and the stations must be the site's.
std::string CheckOnSite(const std::string& what, const Stations& s) {
    if (s.base >= Site().baseCount)
        return what + ": the site has no base " + std::to_string(s.base) + " (it has " +
               std::to_string(Site().baseCount) + ")";
    const int stations = Site().bases[static_cast<size_t>(s.base)].stationCount;
    if (s.source > stations) return what + ": the base has no station " + std::to_string(s.source);
    for (int t = stations + 1; t <= kMaxStations; ++t)
        if (s.targets[static_cast<size_t>(t - 1)])
            return what + ": the base has no station " + std::to_string(t);
    return "";
}

// Reads the site at `root`, checks the stations on it and puts them into the request `r`: 0, or
// the exit status after saying what is wrong.
template <class Request>
int OpenSiteFor(const std::string& what, const std::string& root, const Stations& stations,
                Request& r) {
    Args site = RootArgs(root);
    if (int status = OpenSite(site, what)) return status;
    if (std::string error = CheckOnSite(what, stations); !error.empty()) return Fail(error);
    r.base = stations.base;
    r.sourceStation = stations.source;
    r.targets = stations.targets;
    return 0;
}

struct Session {
    Session() : dialogs(true) { SetAppDialogs(&dialogs); }
    ~Session() {
        TraceLogForce();
        SetAppDialogs(nullptr);
    }
    FlagDialogs dialogs;
};

const char* OutcomeWord(progress::Outcome outcome) {
    switch (outcome) {
        case progress::Outcome::Finished:
            return "finished";
        case progress::Outcome::Incomplete:
            return "finished with errors";
        case progress::Outcome::Stopped:
            return "stopped";
        case progress::Outcome::Failed:
            return "failed";
        case progress::Outcome::Refused:
            return "refused";
    }
    return "?";
}

int Schedule(Args args) {
    const std::string what = "duplicate schedule";
    const std::string root = TakeRoot(args);
    const bool history = TakeFlag(args, "--history");
    Stations stations;
    if (std::string error = TakeStations(args, what, stations); !error.empty()) return Fail(error);
    ScheduleDuplicationRequest r;
    std::string from, to, target, hours = "00-23", targetHour;
    if (std::string e = TakeDay(args, what, "--from", "the first source day", from, r.dateDeb);
        !e.empty())
        return Fail(e);
    if (std::string e = TakeDay(args, what, "--to", "the last source day", to, r.dateFin);
        !e.empty())
        return Fail(e);
    if (r.dateFin < r.dateDeb) return Fail(what + ": --to is before --from");
    if (std::string e =
            TakeDay(args, what, "--target-date", "the first target day", target, r.dateCible);
        !e.empty())
        return Fail(e);
    TakeOption(args, "--hours", hours);
    if (hours.size() != 5 || hours[2] != '-' ||
        !ParseNumber(hours.substr(0, 2), 0, 23, r.hourDeb) ||
        !ParseNumber(hours.substr(3, 2), 0, 23, r.hourFin))
        return Fail(what + ": --hours takes HH-HH (00-23), not '" + hours + "'");
    r.hourDebCible = r.hourDeb;  // as the page does: the target starts at the source's hour
    if (TakeOption(args, "--target-hour", targetHour) &&
        !ParseNumber(targetHour, 0, 23, r.hourDebCible))
        return Fail(what + ": --target-hour takes HH (00-23), not '" + targetHour + "'");
    if (!args.empty()) return Fail(what + ": unexpected '" + args[0] + "'");

    Session session;
    if (int status = OpenSiteFor(what, root, stations, r)) return status;
    r.history = history;
    InitSettingsDuplication(r.grid);
    TraceLog("toverinctl: duplicate schedule: base " + std::to_string(r.base) + " station " +
             std::to_string(r.sourceStation) + " " + from + ".." + to + " " + hours + " -> " +
             target + " " + ZeroPad(r.hourDebCible, 2) + "H" + (history ? " with history" : ""));
    NullProgress nobody;
    ScheduleDuplicationOutcome outcome = DuplicationScheduler(r, nobody);
    std::cout << "duplicate schedule of base " << r.base << ": " << OutcomeWord(outcome.outcome)
              << ", " << outcome.deleted << " records deleted, " << outcome.copied << " copied ("
              << outcome.raised << " with a raised sequence), " << outcome.replaced
              << " events replaced, " << outcome.errors << " error(s)\n";
    return outcome.outcome == progress::Outcome::Finished ? 0 : kExitFailed;
}

int Labels(Args args) {
    const std::string what = "duplicate labels";
    const std::string root = TakeRoot(args);
    LabelDuplicationRequest r;
    r.changeCategory = TakeFlag(args, "--change-category");
    r.allZones = TakeFlag(args, "--all-zones");
    Stations stations;
    if (std::string error = TakeStations(args, what, stations); !error.empty()) return Fail(error);
    std::string groups = "categ,theme,horlo,000,jin,lin,rub,inf";
    TakeOption(args, "--groups", groups);
    std::stringstream list(groups);
    std::string group;
    while (std::getline(list, group, ',')) {
        bool known = false;
        for (int g = 0; g < kLabelGroups; ++g) {
            if (EqualsIgnoreCase(group, LabelGroupKey(static_cast<LabelGroup>(g)))) {
                r.groups[static_cast<size_t>(g)] = true;
                known = true;
            }
        }
        if (!known)
            return Fail(what + ": unknown group '" + group +
                        "' (categ, theme, horlo, 000, jin, lin, rub, inf)");
    }
    if (!args.empty()) return Fail(what + ": unexpected '" + args[0] + "'");

    Session session;
    if (int status = OpenSiteFor(what, root, stations, r)) return status;
    TraceLog("toverinctl: duplicate labels: base " + std::to_string(r.base) + " station " +
             std::to_string(r.sourceStation) + " groups " + groups +
             (r.changeCategory ? " change-category" : "") + (r.allZones ? " all-zones" : ""));
    NullProgress nobody;
    LabelDuplicationOutcome outcome = DuplicationLibelle(r, nobody);
    std::cout << "duplicate labels of base " << r.base << ": " << OutcomeWord(outcome.outcome)
              << ", " << outcome.read << " records read, " << outcome.rewritten << " rewritten, "
              << outcome.missing << " missing on a target, " << outcome.errors << " error(s)\n";
    return outcome.outcome == progress::Outcome::Finished ? 0 : kExitFailed;
}

}  // namespace

int RunDuplicateCommand(const Args& args) {
    if (args.empty()) return Fail("duplicate: schedule or labels?");
    if (args[0] == "schedule") return Schedule(Args(args.begin() + 1, args.end()));
    if (args[0] == "labels") return Labels(Args(args.begin() + 1, args.end()));
    return Fail("duplicate: unknown '" + args[0] + "' (schedule or labels)");
}

}  // namespace toverin::ctl
