// The weekly plans of a base (backup, export, import) kept in its "KV3_Toverin_Serveur.ini", and
// the rule that turns a plan into the next due date.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"

namespace toverin {

// One row: "1" or "0", the weekday "00" (Monday) .. "06", the hour and the minute on two digits.
struct PlanRow {
    bool active = false;
    int weekday = 0;  // 0 = Monday .. 6 = Sunday
    int hour = 0;
    int minute = 0;
};

inline constexpr int kPlanRows = 10;
inline constexpr const char* kDefaultBackupPlan =
    "1000202101020210202021030202104020210502021060202000000000000000000000";
inline constexpr const char* kDefaultFiles = "011111110010111110001111111101111000000000000000000";

PlanRow ParsePlanRow(std::string_view text);
std::string FormatPlanRow(const PlanRow& row);
// The rows of a plan text (7 characters each); always kPlanRows rows, missing ones off.
std::array<PlanRow, kPlanRows> ParsePlan(std::string_view text);
std::string FormatPlan(const std::array<PlanRow, kPlanRows>& rows);

struct OperationPlan {
    std::array<PlanRow, kPlanRows> rows{};
    bool active = false;  // planning on for the base
    int nature = 0;       // export and import: the list index of the nature
    std::string previous;
    std::string dateRef;
};

struct BasePlan {
    OperationPlan backup;
    bool backupAll = false;  // CheckBkpAll
    OperationPlan exportPlan;
    std::string filesExport = kDefaultFiles;
    std::string stationsExport = "1000000000";
    OperationPlan importPlan;
    std::string filesImport = kDefaultFiles;
    // Sources 01..04 then targets 01..04 of the import, each a station number on two digits.
    std::string stationsImport = "0000000000000000";
    std::string mayaStations = "1111111111";
};

std::string ServeurIniFile(int base);
std::string PlanSection(int base);  // "Base_" + base index
BasePlan LoadPlan(int base);
// Writes every key back, in the order of the settings table.
void SaveSettings(int base, const BasePlan& plan);

// The next due date of a plan: the earliest active row after now + 5 s; nothing when the plan is
// off or no row applies within the 20-day horizon.
std::optional<LocalTime> NextDueDate(const OperationPlan& plan, LocalTime now);
// The latest time at or before `now` that the plan named (within the week before it); nothing
// when the plan is off or has no active row.
std::optional<LocalTime> LastDueDate(const OperationPlan& plan, LocalTime now);
// "Non planifié" or the long date and the short time.
std::string NextDateText(const std::optional<LocalTime>& due);

}  // namespace toverin
