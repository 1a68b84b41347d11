// DuplicationScheduler: a station's music schedule (file 35), and with it on request the song
// and artist histories (34, 33), copied over a span of days and a band of hours onto other
// stations; the gaps of each day (49) go with it. The target hours are cleared first, the copies
// are dated on the target days and moved by the hour shift, and the copied songs are then turned
// into each target's own through the equivalence table.
//
// Every record call names its step: "Lib_Duplication:DuplicationScheduler:" and a mark, so that
// a logged error says where it happened:
//   A, B, C   clearing the target hours (position, delete, pass a record of another hour)
//   D, E      clearing the target day's gaps (position, delete)
//   F, G      copying the schedule and histories, copying the gaps
//   H, I      walking the target's schedule for the equivalence pass (position, next)
//   AA        rewriting an event
//   AB, AC, AD  reading the new song, its artist, the new category
//   AE, AF    the event's song history (read, rewrite or delete)
//   AG        the event's artist history (read, rewrite or delete)
#include <algorithm>
#include <bitset>
#include <map>
#include <memory>
#include <optional>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Text.h"
#include "content/Duplication.h"
#include "content/DuplicationSupport.h"
#include "content/EquivalenceTable.h"
#include "store/Catalogue.h"
#include "store/RecordCopy.h"

namespace toverin {

using namespace btr;
using duplication::FieldRef;
using duplication::KeyBound;

std::string TitreDuMorceau(const std::string& song) {
    static const FieldRef title(22, "Title");
    return title.Trimmed(song);
}

namespace {

const std::string kProcedure = "DuplicationScheduler";

std::string Tag(const char* mark) {
    return std::string(duplication::kModule) + ":" + kProcedure + ":" + mark;
}

// The files a run opens, per station, in the order it opens them.
std::vector<int> FilesOfRun(bool history) {
    if (history) return {20, 21, 22, 33, 34, 35, 49};
    return {20, 21, 22, 35, 49};
}

// The runs of consecutive hours of a set, as (first, last): a run of hours is one key range of
// the schedule and of the song history, read or cleared in one pass.
std::vector<std::pair<int, int>> HourRuns(const std::bitset<kGridHours>& hours) {
    std::vector<std::pair<int, int>> runs;
    for (int h = 0; h < kGridHours; ++h) {
        if (!hours.test(static_cast<size_t>(h))) continue;
        if (!runs.empty() && runs.back().second == h - 1)
            runs.back().second = h;
        else
            runs.emplace_back(h, h);
    }
    return runs;
}

bool Written(int file) {
    return file == 33 || file == 34 || file == 35 || file == 49;
}

// Writes grouped: a run rewrites thousands of records, and the targets' files are made durable
// once, when the run closes them. A run cut short leaves each file as its last durable point
// had it (a re-run puts it right).
constexpr int8_t kWrittenFileMode = kOpenAccelerated;

// The fields a copy dates, numbers and moves, per file.
struct CopyFields {
    std::vector<FieldRef> dates;
    FieldRef sequence;
    FieldRef hour;    // file 35 only
    FieldRef hhmmss;  // file 33: the time whose hour filters the copy
    bool hasSequence = false;
};

CopyFields FieldsOf(int file) {
    CopyFields f;
    int dates = 1;
    if (file == 33) dates = 3;
    if (file == 34) dates = 5;
    for (int i = 0; i < dates; ++i) f.dates.emplace_back(file, "Date", i);
    if (file != 49) {
        f.sequence = FieldRef(file, "Sequence");
        f.hasSequence = true;
    }
    if (file == 35) f.hour = FieldRef(35, "HH");
    if (file == 33) f.hhmmss = FieldRef(33, "hhmmss");
    return f;
}

// The fields of the equivalence pass.
struct EventFields {
    FieldRef kind{35, "EventKind"}, subKind{35, "EventSubKind"}, song{35, "SongCode"},
        second{35, "SecondCode"}, title{35, "Title"}, artist{35, "Artist"},
        break1{35, "BreakTitle1"}, break2{35, "BreakTitle2"}, category{35, "Key_1"},
        fillingCategory{35, "Filling_Cat."}, date{35, "Date"}, sequence{35, "Sequence"};
    FieldRef songTitle{22, "Title"}, songSecond{22, "SecondText"}, songArtist1{22, "Artist_1"},
        songArtist2{22, "Artist_2"}, songAlbum{22, "Album"}, songCategory{22, "Category"};
    FieldRef artistLabel{20, "Label"}, artistGroup{20, "Group_1"};
    FieldRef categoryLabel{21, "Label"};
    FieldRef historySong{34, "SongId"}, historyTitle{34, "Title"}, historyAlbum{34, "Album"},
        historyCategory{34, "Category"};
    FieldRef artistHistoryArtist{33, "Artist"}, artistHistoryGroup{33, "Group"},
        artistHistorySong{33, "SongId"}, artistHistoryNumber{33, "Artist_#"};
};

class ScheduleRun {
  public:
    ScheduleRun(const ScheduleDuplicationRequest& request, ProgressObserver& observer)
        : r_(request), observer_(observer), calls_(bank_, request.base) {}

    ScheduleDuplicationOutcome Run();

  private:
    bool Validate();
    bool OpenFiles();
    void DeletePhase();
    void CopyPhase();
    void EquivalencePhase();

    void DeleteRange(int file, int station, const std::string& low, const std::string& high,
                     const char* positionTag, const char* deleteTag);
    void DeleteArtistHistory(int station, const std::string& date,
                             const std::bitset<kGridHours>& hours);
    void Copy(int file, int station, const std::string& low, const std::string& high,
              const std::string& targetDate, const std::bitset<kGridHours>* hours);
    void ReplaceInDay(int station, const std::string& date);
    bool ReplaceInEvent(int station, std::string& event);
    void ReplaceSong(int station, std::string& event, const std::string& code);
    void ReplaceByCategory(int station, std::string& event, const std::string& cell);
    void ReplaceBreakSound(int station, std::string& event);
    bool ReadSong(int station, const std::string& code, std::string& song);
    bool ReadArtist(int station, const std::string& code, std::string& artist);
    void AlignSongHistory(int station, const std::string& event);
    void AlignArtistHistory(int station, const std::string& event);
    void LoadTable();
    bool CloseFiles();

    // Allowed source hours of the band on the target station's weekday of `day`.
    std::bitset<kGridHours> AllowedHours(int station, LocalTime day) const;
    void Phase(const std::string& phase) {
        if (!phase.empty()) TraceLog("Duplication: Phase: " + phase);
        observer_.OnProgress(progress::PhaseChanged{phase});
    }
    void Day(LocalTime day, int station);
    void Serve() {
        if (++served_ % 20 == 0) ServeEvents();
    }

    const ScheduleDuplicationRequest& r_;
    ProgressObserver& observer_;
    SlotBank bank_{"Duplication"};
    duplication::Calls calls_;
    const EquivalenceTable* table_ = nullptr;
    EquivalenceTable loaded_;
    std::vector<int> targets_;
    int shift_ = 0;  // S
    int days_ = 0;   // N
    LocalTime source_{}, target_{};
    std::string copyItem_;  // the catalogue text of the file being copied
    std::unique_ptr<EventFields> fields_;
    std::map<int, CopyFields> copyFields_;
    // What the event just rewritten asks of its histories.
    enum class History { None, Align, Remove };
    History pending_ = History::None;
    std::optional<std::string> pendingSong_;  // the new song's record, for Align
    ScheduleDuplicationOutcome outcome_;
    long long served_ = 0;
};

bool ScheduleRun::Validate() {
    if (AffMsg("Voulez-vous dupliquer le conducteur musical ?", MsgButtons::YesNo,
               MsgIcon::Question) != MsgAnswer::Yes)
        return false;

    shift_ = static_cast<int16_t>(r_.hourDebCible - r_.hourDeb);
    if (shift_ != 0) {
        for (int hour : {r_.hourDeb, r_.hourFin}) {
            const int moved = hour + shift_;
            if (moved >= 0 && moved <= 23) continue;
            std::string text = "Tranche horaire cible en dehors de la plage 00H - 23H: ";
            text += moved < 0 ? "-" + ZeroPad(-moved, 2) + "H" : ZeroPad(moved, 2) + "H";
            AffMsg(text, MsgButtons::Ok, MsgIcon::Information);
            return false;
        }
    }

    source_ = StartOfDay(r_.dateDeb);
    target_ = StartOfDay(r_.dateCible);
    const LocalTime end = StartOfDay(r_.dateFin);
    days_ = static_cast<int>(SecondsBetween(source_, end) / 86400) + 1;
    if (target_ < source_ && AffMsg("Date cible < Date source. Validez-vous ce choix ?",
                                    MsgButtons::YesNo, MsgIcon::Question) != MsgAnswer::Yes)
        return false;

    targets_ = duplication::SelectedStations(r_.base, r_.targets);
    if (targets_.empty()) {
        AffMsg("Vous devez sélectionner au moins une station cible", MsgButtons::Ok,
               MsgIcon::Critical);
        return false;
    }
    // Only the first target day is compared with the source span: a target span that starts
    // before the source and runs into it is accepted, as it always was.
    const bool sourceIsTarget =
        std::find(targets_.begin(), targets_.end(), r_.sourceStation) != targets_.end();
    if (sourceIsTarget && source_ <= target_ && target_ <= end) {
        AffMsg("Impossible de dupliquer sur la station #" + std::to_string(r_.sourceStation) +
                   " avec des dates qui se chevauchent",
               MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }
    return true;
}

bool ScheduleRun::OpenFiles() {
    std::vector<int> stations = targets_;
    if (std::find(stations.begin(), stations.end(), r_.sourceStation) == stations.end())
        stations.push_back(r_.sourceStation);
    for (int station : stations) {
        const bool target = std::find(targets_.begin(), targets_.end(), station) != targets_.end();
        for (int file : FilesOfRun(r_.history)) {
            const int8_t mode = target && Written(file) ? kWrittenFileMode : int8_t{kOpenNormal};
            if (!duplication::OpenStationFile(bank_, r_.base, station, file, mode, kProcedure))
                return false;
        }
    }
    return true;
}

std::bitset<kGridHours> ScheduleRun::AllowedHours(int station, LocalTime day) const {
    std::bitset<kGridHours> hours;
    const int weekday = WeekdayMondayFirst(day);
    for (int h = std::max(r_.hourDeb, 0); h <= std::min(r_.hourFin, kGridHours - 1); ++h)
        if (r_.grid.Allowed(r_.base, station, weekday, h)) hours.set(static_cast<size_t>(h));
    return hours;
}

void ScheduleRun::Day(LocalTime day, int station) {
    observer_.OnProgress(progress::DayReached{FormatLongDate(day) + " - " +
                                              Site().bases[r_.base].stations[station - 1].label});
    ServeEvents();
}

// ---- Clearing the target hours --------------------------------------------------------------

void ScheduleRun::DeleteRange(int file, int station, const std::string& low,
                              const std::string& high, const char* positionTag,
                              const char* deleteTag) {
    const std::string positionCaller = Tag(positionTag), deleteCaller = Tag(deleteTag);
    const size_t length = high.size();
    std::string data, key = low;
    int16_t status = calls_(kGetGreaterOrEqual, data, key, 0, file, station, positionCaller);
    while (status == kSuccess && key.compare(0, length, high) <= 0) {
        std::string found = key;
        if (calls_(kDelete, data, key, 0, file, station, deleteCaller) == kSuccess) {
            ++outcome_.deleted;
            key = found;
            status = calls_(kGetGreaterOrEqual, data, key, 0, file, station, positionCaller);
        } else {
            status = calls_(kGetNext, data, key, 0, file, station, Tag("C"));
        }
        Serve();
    }
}

// The artist history is keyed by the day and the event's sequence, not by the hour: the day is
// walked once and the records of the cleared hours go.
void ScheduleRun::DeleteArtistHistory(int station, const std::string& date,
                                      const std::bitset<kGridHours>& hours) {
    const FieldRef& hhmmss = copyFields_.at(33).hhmmss;
    const size_t length = static_cast<size_t>(KeyLength(33, 0));
    const std::string high = KeyBound(date, length, '\xFF');
    std::string data, key = KeyBound(date, length, '\0');
    int16_t status = calls_(kGetGreaterOrEqual, data, key, 0, 33, station, Tag("A"));
    while (status == kSuccess && key.compare(0, length, high) <= 0) {
        const std::string_view time = hhmmss.In(data);
        const int hour = (time[0] - '0') * 10 + (time[1] - '0');
        std::string found = key;
        if (hour >= 0 && hour < kGridHours && hours.test(static_cast<size_t>(hour)) &&
            calls_(kDelete, data, key, 0, 33, station, Tag("B")) == kSuccess) {
            ++outcome_.deleted;
            key = found;
            status = calls_(kGetGreaterOrEqual, data, key, 0, 33, station, Tag("A"));
        } else {
            status = calls_(kGetNext, data, key, 0, 33, station, Tag("C"));
        }
        Serve();
    }
}

void ScheduleRun::DeletePhase() {
    Phase("Suppression des données cibles");
    for (int d = 0; d < days_; ++d) {
        const LocalTime day = AddDays(target_, d);
        const std::string date = DateKey(day);
        for (int station : targets_) {
            Day(day, station);
            const std::bitset<kGridHours> hours = AllowedHours(station, day);
            if (r_.history) DeleteArtistHistory(station, date, hours);
            for (auto [first, last] : HourRuns(hours)) {
                if (r_.history)
                    DeleteRange(34, station, KeyBound(date + ZeroPad(first, 2), 14, '\0'),
                                KeyBound(date + ZeroPad(last, 2), 14, '\xFF'), "A", "B");
                DeleteRange(35, station, KeyBound(date + ZeroPad(first + shift_, 2), 19, '\0'),
                            KeyBound(date + ZeroPad(last + shift_, 2), 19, '\xFF'), "A", "B");
            }
            DeleteRange(49, station, date, date, "D", "E");
        }
    }
}

// ---- Copying the source ---------------------------------------------------------------------

void ScheduleRun::Copy(int file, int station, const std::string& low, const std::string& high,
                       const std::string& targetDate, const std::bitset<kGridHours>* hours) {
    const CopyFields& f = copyFields_.at(file);
    const int shift = shift_;
    RecordCopyJob job;
    job.source = &bank_;
    job.target = &bank_;
    job.base = job.targetBase = r_.base;
    job.fileNumber = file;
    job.station = r_.sourceStation;
    job.targetStation = station;
    job.lower = low;
    job.upper = high;
    job.caller = Tag(file == 49 ? "G" : "F");
    int tries = 0;  // inserts of the current record refused as duplicates
    job.rewrite = [&f, &targetDate, hours, shift, &tries](std::string& record) {
        tries = 0;
        if (hours) {
            const std::string_view time = f.hhmmss.In(record);
            const int hour = (time[0] - '0') * 10 + (time[1] - '0');
            if (hour < 0 || hour >= kGridHours || !hours->test(static_cast<size_t>(hour)))
                return RecordAction::Skip;
        }
        for (const FieldRef& date : f.dates) date.Set(record, targetDate);
        if (f.hasSequence)
            f.sequence.SetNumber(record, (f.sequence.Number(record) + 10000) % 1000000);
        if (shift != 0 && f.hour.width() > 0)
            f.hour.SetNumber(record, f.hour.Number(record) + shift);
        return RecordAction::Copy;
    };
    if (f.hasSequence) {
        // Sequences already taken on the target day are raised by 1000 until one is free.
        job.onDuplicate = [this, &f, &tries](std::string& record) {
            if (++tries > 1000) return false;  // every six-digit sequence tried
            f.sequence.SetNumber(record, (f.sequence.Number(record) + 1000) % 1000000);
            if (tries == 1) ++outcome_.raised;
            return true;
        };
    }
    job.onReadError = [this, file](int16_t, const std::string& key) -> std::optional<std::string> {
        calls_.Report(file, r_.sourceStation, Tag(file == 49 ? "G" : "F"), kGetNext);
        return key;
    };
    job.onInsertError = [this, file, station](int16_t, const std::string&) {
        calls_.Report(file, station, Tag(file == 49 ? "G" : "F"), kInsert);
        return true;
    };
    job.progress = [this](long long copied, const std::string& key) {
        observer_.OnProgress(progress::KeyReached{PrintableKey(key)});
        observer_.OnProgress(progress::ItemReached{copyItem_ + ": " + std::to_string(copied)});
    };
    RecordCopyResult result = CopyRecords(job);
    outcome_.copied += result.copied;
    if (result.duplicates > 0)
        TraceLog("Err: Duplication: File " + std::to_string(file) + " Station " +
                 std::to_string(station) + ": " + std::to_string(result.duplicates) +
                 " record(s) left behind: no free key");
}

void ScheduleRun::CopyPhase() {
    Phase("Duplication des données source");
    for (int d = 0; d < days_; ++d) {
        const LocalTime day = AddDays(target_, d);
        const std::string sourceDate = DateKey(AddDays(source_, d));
        const std::string targetDate = DateKey(day);
        for (int station : targets_) {
            Day(day, station);
            const std::bitset<kGridHours> hours = AllowedHours(station, day);
            if (r_.history && hours.any()) {
                copyItem_ = FileDescription(33);
                const size_t length = static_cast<size_t>(KeyLength(33, 0));
                Copy(33, station, KeyBound(sourceDate, length, '\0'),
                     KeyBound(sourceDate, length, '\xFF'), targetDate, &hours);
            }
            for (auto [first, last] : HourRuns(hours)) {
                const std::string low = sourceDate + ZeroPad(first, 2);
                const std::string high = sourceDate + ZeroPad(last, 2);
                if (r_.history) {
                    copyItem_ = FileDescription(34);
                    Copy(34, station, KeyBound(low, 14, '\0'), KeyBound(high, 14, '\xFF'),
                         targetDate, nullptr);
                }
                copyItem_ = FileDescription(35);
                Copy(35, station, KeyBound(low, 19, '\0'), KeyBound(high, 19, '\xFF'), targetDate,
                     nullptr);
            }
            copyItem_ = FileDescription(49);
            Copy(49, station, sourceDate, sourceDate, targetDate, nullptr);
        }
    }
}

// ---- The equivalence pass --------------------------------------------------------------------

bool ScheduleRun::ReadSong(int station, const std::string& code, std::string& song) {
    std::string key = KeyBound(code, 8, ' ');
    return calls_(kGetEqual, song, key, 0, 22, station, Tag("AB")) == kSuccess;
}

bool ScheduleRun::ReadArtist(int station, const std::string& code, std::string& artist) {
    if (Trim(code).empty()) return false;
    std::string key = KeyBound(code, 5, ' ');
    return calls_(kGetEqual, artist, key, 0, 20, station, Tag("AC")) == kSuccess;
}

// A song replaces the event's: its code, and the title and artist that go with it. A code
// whose song cannot be found is written all the same (the table says so), without a title or
// artist that would name another song, and the event's histories go.
void ScheduleRun::ReplaceSong(int station, std::string& event, const std::string& code) {
    const EventFields& f = *fields_;
    f.song.Set(event, code);
    std::string song, artist;
    pendingSong_.reset();
    if (!ReadSong(station, code, song)) {
        TraceLog("Duplication: Station " + std::to_string(station) + ": song " + code +
                 " of the equivalence table not found");
        f.title.Set(event, "");
        f.artist.Set(event, "");
        pending_ = History::Remove;
        return;
    }
    f.title.Set(event, TitreDuMorceau(song));
    f.artist.Set(event, ReadArtist(station, f.songArtist1.Trimmed(song), artist)
                            ? f.artistLabel.Trimmed(artist)
                            : "");
    pendingSong_ = song;
    pending_ = History::Align;
}

// A category replaces the song: no particular song is programmed any more, so the event keeps
// the category alone and its song and artist histories go.
void ScheduleRun::ReplaceByCategory(int station, std::string& event, const std::string& cell) {
    const EventFields& f = *fields_;
    const std::string code = KeyBound(cell.substr(5), 5, ' ');
    std::string category, key = "CATEG" + code;
    const bool found = calls_(kGetEqual, category, key, 0, 21, station, Tag("AD")) == kSuccess;
    if (!found)
        TraceLog("Duplication: Station " + std::to_string(station) + ": category " + Trim(code) +
                 " of the equivalence table not found");
    f.song.Set(event, "");
    f.category.Set(event, code);
    f.fillingCategory.Set(event, code);
    f.title.Set(event, found ? f.categoryLabel.Trimmed(category) : "");
    f.artist.Set(event, "");
    pending_ = History::Remove;
}

// A jingle, liner, rubric or information break names its kind in the song field and its sound
// in the second code; the sound is replaced, and its two short titles follow it.
void ScheduleRun::ReplaceBreakSound(int station, std::string& event) {
    const EventFields& f = *fields_;
    const std::string code = f.second.Trimmed(event);
    if (code.empty()) return;
    std::optional<std::string> cell = table_->Match(r_.sourceStation, station, code);
    if (!cell || StartsWith(Trim(*cell), "CATEG")) return;
    const std::string replacement = Trim(*cell);
    f.second.Set(event, replacement);
    std::string song;
    if (ReadSong(station, replacement, song)) {
        f.break1.Set(event, Trim(TitreDuMorceau(song)));
        f.break2.Set(event, f.songSecond.Trimmed(song));
    } else {
        f.break1.Set(event, Trim(f.break1.In(event)));
        f.break2.Set(event, Trim(f.break2.In(event)));
    }
}

bool ScheduleRun::ReplaceInEvent(int station, std::string& event) {
    const EventFields& f = *fields_;
    pending_ = History::None;
    if (f.kind.Trimmed(event) != "Son") return false;
    const std::string before = event;
    const std::string code = f.song.Trimmed(event);
    if (f.subKind.Trimmed(event) == "Bre") {
        if (code != "JIN" && code != "LIN" && code != "RUB" && code != "INF") return false;
        ReplaceBreakSound(station, event);
        return event != before;
    }
    if (!code.empty()) {
        if (std::optional<std::string> cell = table_->Match(r_.sourceStation, station, code)) {
            const std::string replacement = Trim(*cell);
            if (StartsWith(replacement, "CATEG"))
                ReplaceByCategory(station, event, replacement);
            else if (replacement != code)
                ReplaceSong(station, event, replacement);
        }
    }
    // The second code (a liner over the song) follows the table too, song for song.
    const std::string second = f.second.Trimmed(event);
    if (!second.empty()) {
        std::optional<std::string> cell = table_->Match(r_.sourceStation, station, second);
        if (cell && !Trim(*cell).empty() && !StartsWith(Trim(*cell), "CATEG"))
            f.second.Set(event, Trim(*cell));
    }
    return event != before;
}

// The song history of the event (file 34, key 5: the day and the event's sequence): brought in
// line with the new song, or removed.
void ScheduleRun::AlignSongHistory(int station, const std::string& event) {
    const EventFields& f = *fields_;
    const std::string head = std::string(f.date.In(event)) + std::string(f.sequence.In(event));
    std::string data, key = head;
    int16_t status = calls_(kGetGreaterOrEqual, data, key, 5, 34, station, Tag("AE"));
    while (status == kSuccess && key.compare(0, head.size(), head) == 0) {
        if (pending_ == History::Remove) {
            if (calls_(kDelete, data, key, 5, 34, station, Tag("AF")) == kSuccess) {
                key = head;
                status = calls_(kGetGreaterOrEqual, data, key, 5, 34, station, Tag("AE"));
                continue;
            }
        } else {
            const std::string& song = *pendingSong_;
            std::string updated = data;
            f.historySong.Set(updated, f.song.In(event));
            f.historyTitle.Set(updated, f.songTitle.In(song));
            f.historyAlbum.Set(updated, f.songAlbum.In(song));
            f.historyCategory.Set(updated, f.songCategory.In(song));
            if (updated != data) {
                std::string k = key;
                calls_(kUpdate, updated, k, 5, 34, station, Tag("AF"));
            }
        }
        status = calls_(kGetNext, data, key, 5, 34, station, Tag("AE"));
    }
}

// The artist history of the event (file 33, key 0: the day, the sequence, the artist's and
// the group's numbers): the new song's artists and group, or removed.
void ScheduleRun::AlignArtistHistory(int station, const std::string& event) {
    const EventFields& f = *fields_;
    const std::string head = std::string(f.date.In(event)) + std::string(f.sequence.In(event));
    const size_t length = static_cast<size_t>(KeyLength(33, 0));
    std::string data, key = KeyBound(head, length, '\0');
    int16_t status = calls_(kGetGreaterOrEqual, data, key, 0, 33, station, Tag("AG"));
    while (status == kSuccess && key.compare(0, head.size(), head) == 0) {
        std::string artistCode;
        if (pending_ == History::Align) {
            const std::string& song = *pendingSong_;
            artistCode = f.artistHistoryNumber.Number(data) == 2 ? f.songArtist2.Trimmed(song)
                                                                 : f.songArtist1.Trimmed(song);
        }
        if (artistCode.empty()) {
            std::string found = key;
            if (calls_(kDelete, data, key, 0, 33, station, Tag("AG")) == kSuccess) {
                key = found;
                status = calls_(kGetGreaterOrEqual, data, key, 0, 33, station, Tag("AG"));
                continue;
            }
        } else {
            std::string artist, updated = data;
            f.artistHistoryArtist.Set(updated, artistCode);
            f.artistHistoryGroup.Set(
                updated, ReadArtist(station, artistCode, artist) ? f.artistGroup.In(artist) : "");
            f.artistHistorySong.Set(updated, f.song.In(event));
            if (updated != data) {
                std::string k = key;
                calls_(kUpdate, updated, k, 0, 33, station, Tag("AG"));
            }
        }
        status = calls_(kGetNext, data, key, 0, 33, station, Tag("AG"));
    }
}

void ScheduleRun::ReplaceInDay(int station, const std::string& date) {
    const std::string high = KeyBound(date, 19, '\xFF');
    std::string data, key = KeyBound(date, 19, '\0');
    int16_t status = calls_(kGetGreaterOrEqual, data, key, 0, 35, station, Tag("H"));
    while (status == kSuccess && key.compare(0, high.size(), high) <= 0) {
        if (ReplaceInEvent(station, data)) {
            std::string k = key;
            if (calls_(kUpdate, data, k, 0, 35, station, Tag("AA")) == kSuccess) {
                ++outcome_.replaced;
                observer_.OnProgress(
                    progress::ItemReached{Utf8FromCp1252(fields_->title.Trimmed(data))});
                // Histories were copied (and can be reached) only with the schedule's.
                if (r_.history && pending_ != History::None) {
                    AlignSongHistory(station, data);
                    AlignArtistHistory(station, data);
                }
            }
        }
        Serve();
        status = calls_(kGetNext, data, key, 0, 35, station, Tag("I"));
    }
}

void ScheduleRun::EquivalencePhase() {
    Phase("Recherche des morceaux à changer selon la table d'équivalence");
    if (!table_) return;
    for (int d = 0; d < days_; ++d) {
        const LocalTime day = AddDays(target_, d);
        for (int station : targets_) {
            if (station == r_.sourceStation) continue;
            Day(day, station);
            ReplaceInDay(station, DateKey(day));
        }
    }
}

// ---- The run --------------------------------------------------------------------------------

void ScheduleRun::LoadTable() {
    const bool other = std::any_of(targets_.begin(), targets_.end(),
                                   [this](int s) { return s != r_.sourceStation; });
    if (!other) return;
    if (r_.equivalence) {
        table_ = r_.equivalence;
        return;
    }
    // A bank of its own: loading opens and closes station 1's files, which the run may hold.
    SlotBank tableBank("Duplication equivalence");
    if (!loaded_.Load(tableBank, r_.base))
        TraceLog("Err: Duplication: the equivalence table of the base could not be read");
    table_ = &loaded_;
}

bool ScheduleRun::CloseFiles() {
    bool durable = true;
    std::vector<int> stations = targets_;
    stations.push_back(r_.sourceStation);
    for (int station : stations) {
        for (int file : FilesOfRun(r_.history)) {
            if (!bank_.IsFileOpen(r_.base, file, station)) continue;
            bank_.FichierPervasiveFermer(r_.base, station, station, file);
            // Closing makes the grouped writes durable: a failure there loses them.
            if (bank_.LastStatus() != kSuccess) durable = false;
        }
    }
    return durable;
}

ScheduleDuplicationOutcome ScheduleRun::Run() {
    duplication::RunFrame frame(observer_, "Duplication",
                                "Duplication du conducteur musical de la base ", r_.base);
    if (!frame.Begin([this] { return Validate(); }))
        return frame.Ended(outcome_, progress::Outcome::Refused, "");
    std::string targets;
    for (int station : targets_) targets += (targets.empty() ? "" : ",") + std::to_string(station);
    TraceLog("Duplication: Base " + std::to_string(r_.base + 1) + " |Source: Station " +
             std::to_string(r_.sourceStation) + " " + DateKey(source_) + " + " +
             std::to_string(days_) + " day(s) " + ZeroPad(r_.hourDeb, 2) + "H-" +
             ZeroPad(r_.hourFin, 2) + "H |Targets: " + targets + " " + DateKey(target_) +
             " |Shift: " + std::to_string(shift_) + " |History: " + (r_.history ? "Yes" : "No"));

    LoadTable();
    fields_ = std::make_unique<EventFields>();
    for (int file : {33, 34, 35, 49}) copyFields_.emplace(file, FieldsOf(file));
    if (!OpenFiles()) {
        CloseFiles();
        TraceLogEncadre("Duplication: Ended: files could not be opened", '=');
        return frame.Ended(outcome_, progress::Outcome::Failed, "Fichiers non ouverts");
    }
    TraceLog("Duplication: Files opened");
    DeletePhase();
    CopyPhase();
    EquivalencePhase();
    TraceLog("Duplication: Closing the files");
    const bool durable = CloseFiles();
    Phase("");
    observer_.OnProgress(progress::DayReached{""});
    observer_.OnProgress(progress::KeyReached{""});
    observer_.OnProgress(progress::ItemReached{""});

    outcome_.errors = calls_.errors() + (durable ? 0 : 1);
    const std::string summary =
        std::to_string(outcome_.copied) + " enregistrements copiés, " +
        std::to_string(outcome_.deleted) + " supprimés, " + std::to_string(outcome_.replaced) +
        " remplacés" +
        (outcome_.errors ? ", " + std::to_string(outcome_.errors) + " erreur(s)" : "");
    TraceLog("Duplication: Deleted: " + std::to_string(outcome_.deleted) + " |Copied: " +
             std::to_string(outcome_.copied) + " |Raised: " + std::to_string(outcome_.raised) +
             " |Replaced: " + std::to_string(outcome_.replaced) +
             " |Errors: " + std::to_string(outcome_.errors));
    return frame.Ended(outcome_,
                       frame.Finish("Duplication du conducteur musical terminée", outcome_.errors),
                       summary);
}

}  // namespace

ScheduleDuplicationOutcome DuplicationScheduler(const ScheduleDuplicationRequest& request,
                                                ProgressObserver& observer) {
    return duplication::Guarded<ScheduleDuplicationOutcome>(
        request.base, request.sourceStation, observer, "DuplicationScheduler:Lib_Duplication",
        [&] { return ScheduleRun(request, observer).Run(); });
}

}  // namespace toverin
