#include "operations/Planning.h"

#include <cctype>

#include "app/DateTime.h"
#include "app/Ini.h"
#include "app/Site.h"
#include "app/Text.h"

namespace toverin {
namespace {

int Digits(std::string_view text, size_t at, size_t count) {
    int value = 0;
    for (size_t i = at; i < at + count && i < text.size(); ++i)
        if (std::isdigit(static_cast<unsigned char>(text[i]))) value = value * 10 + (text[i] - '0');
    return value;
}

int Clamp(int v, int lo, int hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

OperationPlan LoadOperation(const std::string& file, const std::string& section,
                            const std::string& key, const std::string& defaultRows) {
    OperationPlan plan;
    plan.rows = ParsePlan(LectureIni(file, section, key, defaultRows));
    plan.active = LectureIni(file, section, key + "_Actif", "0") == "1";
    plan.nature = Digits(LectureIni(file, section, key + "_Nature", "0"), 0, 3);
    plan.previous = LectureIni(file, section, key + "_Prev", "");
    plan.dateRef = LectureIni(file, section, key + "_DateRef", "");
    return plan;
}

void SaveOperation(const std::string& file, const std::string& section, const std::string& key,
                   const OperationPlan& plan, bool withNature) {
    EcritureIni(file, section, key, FormatPlan(plan.rows));
    EcritureIni(file, section, key + "_Actif", plan.active ? "1" : "0");
    if (withNature) {
        EcritureIni(file, section, key + "_Nature", std::to_string(plan.nature));
        EcritureIni(file, section, key + "_Prev", plan.previous);
        EcritureIni(file, section, key + "_DateRef", plan.dateRef);
    }
}

}  // namespace

PlanRow ParsePlanRow(std::string_view text) {
    PlanRow row;
    row.active = !text.empty() && text[0] == '1';
    row.weekday = Clamp(Digits(text, 1, 2), 0, 6);
    row.hour = Clamp(Digits(text, 3, 2), 0, 23);
    row.minute = Clamp(Digits(text, 5, 2), 0, 59);
    return row;
}

std::string FormatPlanRow(const PlanRow& row) {
    return std::string(row.active ? "1" : "0") + ZeroPad(row.weekday, 2) + ZeroPad(row.hour, 2) +
           ZeroPad(row.minute, 2);
}

std::array<PlanRow, kPlanRows> ParsePlan(std::string_view text) {
    std::array<PlanRow, kPlanRows> rows{};
    for (int r = 0; r < kPlanRows; ++r) {
        size_t at = static_cast<size_t>(r) * 7;
        if (at + 7 <= text.size()) rows[r] = ParsePlanRow(text.substr(at, 7));
    }
    return rows;
}

std::string FormatPlan(const std::array<PlanRow, kPlanRows>& rows) {
    std::string text;
    for (const auto& row : rows) text += FormatPlanRow(row);
    return text;
}

std::string ServeurIniFile(int base) {
    return Site().bases.at(static_cast<size_t>(base)).ServeurIni();
}
std::string PlanSection(int base) {
    return "Base_" + std::to_string(base);
}

BasePlan LoadPlan(int base) {
    BasePlan plan;
    const std::string file = ServeurIniFile(base);
    const std::string section = PlanSection(base);
    // Older versions kept the backup plan in a "Zone_" section.
    std::string older =
        LectureIni(file, "Zone_" + std::to_string(base), "Planning_Bkp", kDefaultBackupPlan);
    plan.backup = LoadOperation(file, section, "Planning_Bkp", older);
    plan.backupAll = LectureIni(file, section, "Planning_Bkp_All", "0") == "1";
    plan.filesExport = LectureIni(file, section, "Fichiers_Export", kDefaultFiles);
    plan.stationsExport = LectureIni(file, section, "Stations_Export", "1000000000");
    plan.exportPlan = LoadOperation(file, section, "Planning_Export", "0");
    plan.filesImport = LectureIni(file, section, "Fichiers_Import", kDefaultFiles);
    plan.stationsImport = LectureIni(file, section, "Stations_Import", "0000000000000000");
    plan.importPlan = LoadOperation(file, section, "Planning_Import", "0");
    plan.mayaStations =
        LectureIni(file, "Maya_Base_" + std::to_string(base), "Stations_Import", "1111111111");
    return plan;
}

void SaveSettings(int base, const BasePlan& plan) {
    const std::string file = ServeurIniFile(base);
    const std::string section = PlanSection(base);
    SaveOperation(file, section, "Planning_Bkp", plan.backup, false);
    EcritureIni(file, section, "Planning_Bkp_All", plan.backupAll ? "1" : "0");
    EcritureIni(file, section, "Fichiers_Export", plan.filesExport);
    EcritureIni(file, section, "Stations_Export", plan.stationsExport);
    SaveOperation(file, section, "Planning_Export", plan.exportPlan, true);
    EcritureIni(file, section, "Fichiers_Import", plan.filesImport);
    EcritureIni(file, section, "Stations_Import", plan.stationsImport);
    SaveOperation(file, section, "Planning_Import", plan.importPlan, true);
    EcritureIni(file, "Maya_Base_" + std::to_string(base), "Stations_Import", plan.mayaStations);
}

std::optional<LocalTime> NextDueDate(const OperationPlan& plan, LocalTime now) {
    if (!plan.active) return std::nullopt;
    const LocalTime sentinel = AddDays(now, 20);
    const LocalTime reference = now + std::chrono::seconds(5);
    const LocalTime refDay = StartOfDay(reference);
    const int w = WeekdayMondayFirst(reference);
    LocalTime best = sentinel;
    for (const auto& row : plan.rows) {
        if (!row.active) continue;
        const int d = row.weekday + 1;
        const auto at = std::chrono::hours(row.hour) + std::chrono::minutes(row.minute);
        LocalTime candidate;
        if (w < d) {
            candidate = AddDays(refDay, d - w) + at;
        } else if (w > d) {
            candidate = AddDays(refDay, 7 - (w - d)) + at;
        } else {
            candidate = refDay + at;
            if (candidate <= reference) candidate = AddDays(candidate, 7);
        }
        if (candidate < best) best = candidate;
    }
    if (best == sentinel) return std::nullopt;
    return best;
}

std::optional<LocalTime> LastDueDate(const OperationPlan& plan, LocalTime now) {
    if (!plan.active) return std::nullopt;
    const LocalTime today = StartOfDay(now);
    const int w = WeekdayMondayFirst(now);
    std::optional<LocalTime> latest;
    for (const auto& row : plan.rows) {
        if (!row.active) continue;
        const auto at = std::chrono::hours(row.hour) + std::chrono::minutes(row.minute);
        LocalTime candidate = AddDays(today, -((w - (row.weekday + 1) + 7) % 7)) + at;
        if (candidate > now) candidate = AddDays(candidate, -7);
        if (!latest || candidate > *latest) latest = candidate;
    }
    return latest;
}

std::string NextDateText(const std::optional<LocalTime>& due) {
    if (!due) return "Non planifié";
    return FormatLongDate(*due) + " " + FormatShortTime(*due);
}

}  // namespace toverin
