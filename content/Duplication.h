// Module Lib_Duplication: copying one station's music schedule ("conducteur musical") over a span
// of days and a band of hours onto other stations of the same base (DuplicationScheduler), and
// copying the texts of its categories, subjects, clocks and songs onto them
// (DuplicationLibelle). Both ask through the dialogs port, report through typed progress events
// and hold the program's long-run token while they work; every record call goes through a slot
// bank of their own.
#pragma once

#include <array>
#include <string>

#include "app/Clock.h"
#include "app/Progress.h"
#include "app/Site.h"
#include "content/DuplicationGrid.h"

namespace toverin {

class EquivalenceTable;

// ---- Music-schedule duplication -------------------------------------------------------------

// What the "Conducteur musical" page holds when its button is pressed.
struct ScheduleDuplicationRequest {
    int base = 0;
    int sourceStation = 1;                     // 1..10
    std::array<bool, kMaxStations> targets{};  // index station - 1
    LocalTime dateDeb{};                       // first source day (the time of day is ignored)
    LocalTime dateFin{};                       // last source day
    LocalTime dateCible{};                     // first target day
    int hourDeb = 0;                           // source hours hourDeb..hourFin
    int hourFin = 23;
    int hourDebCible = 0;  // target hour of hourDeb: every copied event moves by the difference
    bool history = false;  // the song and artist histories go with the schedule
    // Which hours of which weekday may be cleared and filled, per target station.
    DuplicationGrid grid;
    // The base's equivalence table as the Equivalence tab holds it (unsaved changes included);
    // nullptr reads it from its file.
    const EquivalenceTable* equivalence = nullptr;
};

struct ScheduleDuplicationOutcome {
    progress::Outcome outcome = progress::Outcome::Refused;
    long long deleted = 0;   // target records removed before the copy
    long long copied = 0;    // records inserted on the targets
    long long raised = 0;    // inserts whose sequence had to be raised by 1000 (or more)
    long long replaced = 0;  // events rewritten through the equivalence table
    long long errors = 0;    // record calls that failed (reported, the run went on)
};

// The whole duplication of the page of `request.base`. Refused: a question answered No, a bad
// band or selection, another run under way. Failed: the files could not be opened. Incomplete:
// it ran to its end but some record calls failed.
ScheduleDuplicationOutcome DuplicationScheduler(const ScheduleDuplicationRequest& request,
                                                ProgressObserver& observer);

// The title of a song record (file 22) as schedules and histories carry it: its title, trimmed
// (Windows-1252).
std::string TitreDuMorceau(const std::string& song);

// ---- Label duplication ----------------------------------------------------------------------

// The groups of texts, in the order they are copied.
enum class LabelGroup { Categ, Theme, Horlo, Mus, Jin, Lin, Rub, Inf };
inline constexpr int kLabelGroups = 8;
// "CATEG", "THEME", "HORLO" (file 21 kinds), "000", "JIN", "LIN", "RUB", "INF" (song types).
const char* LabelGroupKey(LabelGroup group);
bool IsSongGroup(LabelGroup group);

struct LabelDuplicationRequest {
    int base = 0;
    int sourceStation = 1;
    std::array<bool, kMaxStations> targets{};
    std::array<bool, kLabelGroups> groups{};  // index LabelGroup
    bool changeCategory = false;  // "Changer Catégorie": each song's category code goes too
    bool allZones = false;        // "Toutes zones actives": every copied song gets "22222"
};

struct LabelDuplicationOutcome {
    progress::Outcome outcome = progress::Outcome::Refused;
    long long read = 0;       // source records walked
    long long rewritten = 0;  // target records updated
    long long missing = 0;    // source records with no twin on a target (left missing)
    long long errors = 0;
};

LabelDuplicationOutcome DuplicationLibelle(const LabelDuplicationRequest& request,
                                           ProgressObserver& observer);

}  // namespace toverin
