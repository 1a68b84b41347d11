// The music-schedule duplication on a demo site: its questions and refusals, what it clears and
// copies under the band, the shift and the weekly grid, and the equivalence pass.
#include <algorithm>
#include <map>

#include "content/EquivalenceTable.h"
#include "store/Pervasive.h"
#include "store/engine/Btrieve.h"
#include "tests/content/DuplicationFixture.h"

namespace toverin {
namespace {

using testing::DuplicationFixture;

// What a copy of `record` (file 33, 34, 35 or 49) looks like on `date`, `shift` hours later.
std::string Copied(int file, std::string record, const std::string& date, int shift = 0) {
    RecordView v(file, record);
    const int dates = file == 33 ? 3 : file == 34 ? 5 : 1;
    for (int i = 0; i < dates; ++i) v.SetText("Date", date, i);
    if (file != 49) {
        EXPECT_TRUE(v.SetNumber("Sequence", v.Number("Sequence") + 10000));
    }
    if (file == 35) v.SetText("HH", ZeroPad(v.Number("HH") + shift, 2));
    return record;
}

std::vector<std::string> Sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

std::vector<std::string> CopiedAll(int file, const std::vector<std::string>& records,
                                   const std::string& date, int shift = 0) {
    std::vector<std::string> out;
    for (const auto& r : records) out.push_back(Copied(file, r, date, shift));
    return Sorted(out);
}

class Duplication : public DuplicationFixture {};

TEST_F(Duplication, QuestionsAndChecksStopBeforeAnyFileIsTouched) {
    const auto before35 = Records(35, 2);
    const auto before1 = Records(35, 1);

    dialogs.QueueAnswer(MsgAnswer::No);
    EXPECT_EQ(Duplicate(Request(1, {2}, 18, 18, 25)).outcome, progress::Outcome::Refused);
    EXPECT_EQ(MessageTexts(),
              std::vector<std::string>{"Voulez-vous dupliquer le conducteur musical ?"});
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Question);

    // The end hour lands past 23 (20..23 moved to 22: 25H), or before 00 when the end hour
    // lies before the start hour (5..1 moved to 2: 1 - 3 = -2).
    for (auto [deb, fin, cible, text] : std::vector<std::tuple<int, int, int, std::string>>{
             {20, 23, 22, "25H"}, {5, 1, 2, "-02H"}}) {
        dialogs.messages.clear();
        dialogs.QueueAnswer(MsgAnswer::Yes);
        auto r = Request(1, {2}, 18, 18, 25);
        r.hourDeb = deb;
        r.hourFin = fin;
        r.hourDebCible = cible;
        EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Refused);
        ASSERT_EQ(dialogs.messages.size(), 2u);
        EXPECT_EQ(dialogs.messages[1].text,
                  "Tranche horaire cible en dehors de la plage 00H - 23H: " + text);
        EXPECT_EQ(dialogs.messages[1].icon, MsgIcon::Information);
    }

    dialogs.messages.clear();
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(Request(1, {}, 18, 18, 25)).outcome, progress::Outcome::Refused);
    EXPECT_EQ(dialogs.messages.back().text, "Vous devez sélectionner au moins une station cible");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Critical);

    // A target date before the source asks; No stops.
    dialogs.messages.clear();
    dialogs.QueueAnswer(MsgAnswer::Yes);
    dialogs.QueueAnswer(MsgAnswer::No);
    EXPECT_EQ(Duplicate(Request(1, {2}, 20, 20, 19)).outcome, progress::Outcome::Refused);
    EXPECT_EQ(dialogs.messages.back().text, "Date cible < Date source. Validez-vous ce choix ?");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Question);

    // The source station among the targets, on the last day of the source span.
    dialogs.messages.clear();
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(Request(1, {2, 1}, 18, 19, 19)).outcome, progress::Outcome::Refused);
    EXPECT_EQ(dialogs.messages.back().text,
              "Impossible de dupliquer sur la station #1 avec des dates qui se chevauchent");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Critical);

    EXPECT_EQ(Records(35, 2), before35);
    EXPECT_EQ(Records(35, 1), before1);
    EXPECT_EQ(Log().find("Duplication: Started"), std::string::npos);
}

TEST_F(Duplication, TheBandIsCopiedOntoTheTargetHoursWithItsDaysSequencesAndShift) {
    const std::string from = NovKey(18), to = NovKey(25);
    std::map<int, std::vector<std::string>> source;
    for (int file : {33, 34, 35})
        for (int h : {10, 11})
            for (const auto& r : DayRecords(file, 1, from, h)) source[file].push_back(r);
    const auto gaps = DayRecords(49, 1, from);
    ASSERT_EQ(gaps.size(), 1u);
    ASSERT_FALSE(source[33].empty());
    ASSERT_FALSE(source[34].empty());
    const auto ownHour10 = DayRecords(35, 2, to, 10);
    const auto ownHour16 = DayRecords(35, 2, to, 16);
    ASSERT_FALSE(ownHour10.empty());

    auto r = Request(1, {2}, 18, 18, 25);
    r.hourDeb = 10;
    r.hourFin = 11;
    r.hourDebCible = 14;
    r.history = true;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ScheduleDuplicationOutcome outcome = Duplicate(r);
    EXPECT_EQ(outcome.outcome, progress::Outcome::Finished);
    EXPECT_EQ(MessageTexts().back(), "Duplication du conducteur musical terminée");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);

    // The schedule moves four hours on; its hours 14 and 15 are the copies and nothing else.
    auto copied35 = DayRecords(35, 2, to, 14);
    for (const auto& rec : DayRecords(35, 2, to, 15)) copied35.push_back(rec);
    EXPECT_EQ(Sorted(copied35), CopiedAll(35, source[35], to, 4));
    EXPECT_EQ(DayRecords(35, 2, to, 10), ownHour10);
    EXPECT_EQ(DayRecords(35, 2, to, 16), ownHour16);
    // Histories keep their hour, with every date on the target day.
    for (int file : {33, 34}) {
        auto copied = DayRecords(file, 2, to, 10);
        for (const auto& rec : DayRecords(file, 2, to, 11)) copied.push_back(rec);
        EXPECT_EQ(Sorted(copied), CopiedAll(file, source[file], to)) << file;
    }
    EXPECT_EQ(DayRecords(49, 2, to), CopiedAll(49, gaps, to));
    EXPECT_EQ(
        outcome.copied,
        static_cast<long long>(source[33].size() + source[34].size() + source[35].size()) + 1);
    EXPECT_EQ(outcome.raised, 0);

    std::vector<std::string> phases;
    for (const auto& p : progress.All<progress::PhaseChanged>()) phases.push_back(p.phase);
    EXPECT_EQ(phases, (std::vector<std::string>{
                          "Suppression des données cibles", "Duplication des données source",
                          "Recherche des morceaux à changer selon la table d'équivalence", ""}));
    ASSERT_NE(progress.Last<progress::Ended>(), nullptr);
    EXPECT_EQ(progress.Last<progress::Ended>()->outcome, progress::Outcome::Finished);
}

TEST_F(Duplication, AFullBandWithoutShiftSkipsTheBandCheckAndCopiesTheWholeDay) {
    const std::string day = NovKey(18);
    const auto source35 = DayRecords(35, 1, day);
    const auto source34 = DayRecords(34, 1, day);
    const auto otherDay = DayRecords(35, 3, NovKey(17));
    auto r = Request(1, {3}, 18, 18, 18);
    r.hourDeb = 0;
    r.hourFin = 23;
    r.hourDebCible = 0;
    r.history = true;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Finished);
    EXPECT_EQ(MessageTexts(),
              (std::vector<std::string>{"Voulez-vous dupliquer le conducteur musical ?",
                                        "Duplication du conducteur musical terminée"}));
    EXPECT_EQ(Sorted(DayRecords(35, 3, day)), CopiedAll(35, source35, day));
    EXPECT_EQ(Sorted(DayRecords(34, 3, day)), CopiedAll(34, source34, day));
    EXPECT_EQ(DayRecords(35, 3, NovKey(17)), otherDay);
}

TEST_F(Duplication, ATargetDateBeforeTheSourceGoesOnWhenConfirmed) {
    const auto source = DayRecords(35, 1, NovKey(20), 8);
    auto r = Request(1, {2}, 20, 20, 19);
    r.hourDeb = r.hourFin = r.hourDebCible = 8;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Finished);
    EXPECT_EQ(MessageTexts()[1], "Date cible < Date source. Validez-vous ce choix ?");
    EXPECT_EQ(Sorted(DayRecords(35, 2, NovKey(19), 8)), CopiedAll(35, source, NovKey(19)));
}

// The source station may be its own target on other days: the copy reads and writes the same
// file, and the source days come out untouched.
TEST_F(Duplication, OverlapIsRefusedOnTheLastSourceDayAndAcceptedTheDayAfter) {
    const auto day18 = DayRecords(35, 1, NovKey(18));
    const auto day19 = DayRecords(35, 1, NovKey(19));
    auto r = Request(1, {1}, 18, 19, 19);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Refused);

    r.dateCible = Nov(20);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Finished);
    EXPECT_EQ(DayRecords(35, 1, NovKey(18)), day18);
    EXPECT_EQ(DayRecords(35, 1, NovKey(19)), day19);
    EXPECT_EQ(Sorted(DayRecords(35, 1, NovKey(20))), CopiedAll(35, day18, NovKey(20)));
    EXPECT_EQ(Sorted(DayRecords(35, 1, NovKey(21))), CopiedAll(35, day19, NovKey(21)));
}

TEST_F(Duplication, AClosedGridHourIsNeitherClearedNorCopiedOnThatWeekdayOnly) {
    auto r = Request(1, {2}, 18, 19, 25);  // Wednesday and Thursday onto the next ones
    r.hourDeb = r.hourDebCible = 9;
    r.hourFin = 11;
    r.grid.Set(0, 2, 3, 10, false);  // station 2, Wednesday, 10H
    const auto own = DayRecords(35, 2, NovKey(25), 10);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).outcome, progress::Outcome::Finished);
    EXPECT_EQ(DayRecords(35, 2, NovKey(25), 10), own);
    for (int h : {9, 11})
        EXPECT_EQ(Sorted(DayRecords(35, 2, NovKey(25), h)),
                  CopiedAll(35, DayRecords(35, 1, NovKey(18), h), NovKey(25)));
    EXPECT_EQ(Sorted(DayRecords(35, 2, NovKey(26), 10)),
              CopiedAll(35, DayRecords(35, 1, NovKey(19), 10), NovKey(26)));
}

TEST_F(Duplication, SequencesAlreadyTakenOnTheTargetAreRaisedBy1000) {
    auto r = Request(1, {2}, 18, 18, 25);
    r.hourDeb = r.hourFin = r.hourDebCible = 10;
    r.history = true;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ASSERT_EQ(Duplicate(r).outcome, progress::Outcome::Finished);
    const auto once35 = Records(35, 2);
    const auto once33 = Records(33, 2);

    // The same copy again: the target hour is cleared first, so it lands on the same keys.
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ScheduleDuplicationOutcome again = Duplicate(r);
    EXPECT_EQ(again.outcome, progress::Outcome::Finished);
    EXPECT_EQ(again.raised, 0);
    EXPECT_EQ(Records(35, 2), once35);
    EXPECT_EQ(Records(33, 2), once33);

    // The artist history is keyed by day and sequence, not by hour: records of another hour
    // (left by the suite's other programs) can hold the copy's sequence and the next one up.
    const std::string first = DayRecords(33, 1, NovKey(18), 10).front();
    const long long sequence = RecordView(33, first).Number("Sequence");
    std::vector<std::string> blockers;
    for (long long taken : {sequence + 10000, sequence + 11000}) {
        std::string b = Copied(33, first, NovKey(25));
        RecordView v(33, b);
        ASSERT_TRUE(v.SetNumber("Sequence", taken));
        v.SetText("hhmmss", "080000");
        blockers.push_back(b);
    }
    Rewrite(33, 2, [&](std::string& rec) {
        RecordView v(33, rec);
        return !(v.Text("Date") == NovKey(25) && v.Text("hhmmss").substr(0, 2) == "10");
    });
    {
        auto records = Records(33, 2);
        records.insert(records.end(), blockers.begin(), blockers.end());
        WriteFileAt(33, 2, records);
    }
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ScheduleDuplicationOutcome raised = Duplicate(r);
    EXPECT_EQ(raised.outcome, progress::Outcome::Finished);
    EXPECT_EQ(raised.raised, 1);
    std::vector<long long> hour10;
    for (const auto& rec : DayRecords(33, 2, NovKey(25), 10))
        hour10.push_back(RecordView(33, rec).Number("Sequence"));
    EXPECT_NE(std::find(hour10.begin(), hour10.end(), sequence + 12000), hour10.end());
    EXPECT_EQ(DayRecords(33, 2, NovKey(25), 8).size(), 2u);  // the other hour is kept
}

// ---- The equivalence pass ---------------------------------------------------------------------

class DuplicationEquivalence : public DuplicationFixture {
  protected:
    void SetUp() override {
        DuplicationFixture::SetUp();
        // The music events and a jingle break of 10H..11H on station 1, Wednesday 18.
        for (int h : {10, 11}) {
            for (const auto& e : DayRecords(35, 1, NovKey(18), h)) {
                RecordView v(35, e);
                if (v.Text("EventKind") != "Son") continue;
                if (v.Text("EventSubKind") == "Bre") {
                    if (v.Text("SongCode") == "JIN" && jingle.empty())
                        jingle = v.Text("SecondCode");
                } else if (std::find(songs.begin(), songs.end(), v.Text("SongCode")) ==
                           songs.end()) {
                    songs.push_back(v.Text("SongCode"));
                }
            }
        }
        ASSERT_GE(songs.size(), 4u);
        ASSERT_FALSE(jingle.empty());
    }
    void Row(int number, const std::string& station1, const std::string& station2) {
        EquivalenceTable::Row row;
        row.number = number;
        row.cells.resize(3);
        row.cells[0].code = station1;
        row.cells[1].code = station2;
        table.rows().push_back(row);
    }
    // Station 2's events of Wednesday 25, 10H..11H, that come from station 1's events of song
    // `code` (found by their sequence).
    std::vector<std::string> CopiesOf(const std::string& code, int subKindBreak = 0) {
        std::vector<long long> sequences;
        for (int h : {10, 11})
            for (const auto& e : DayRecords(35, 1, NovKey(18), h)) {
                RecordView v(35, e);
                if ((subKindBreak ? v.Text("SecondCode") : v.Text("SongCode")) == code)
                    sequences.push_back(v.Number("Sequence") + 10000);
            }
        std::vector<std::string> out;
        for (int h : {10, 11})
            for (const auto& e : DayRecords(35, 2, NovKey(25), h))
                if (std::count(sequences.begin(), sequences.end(),
                               RecordView(35, e).Number("Sequence")))
                    out.push_back(e);
        return out;
    }
    std::string Song(int station, const std::string& code) {
        for (const auto& s : Records(22, station))
            if (RecordView(22, s).Text("SongId") == code) return s;
        ADD_FAILURE() << "no song " << code;
        return BlankRecord(22);
    }
    std::string Label(int file, int station, const std::string& key, const char* field) {
        for (const auto& s : Records(file, station))
            if (s.compare(0, key.size(), key) == 0) return RecordView(file, s).Text(field);
        return "";
    }
    // The histories of an event of station 2 on Wednesday 25 (by day and sequence).
    std::vector<std::string> Histories(int file, const std::string& event) {
        std::vector<std::string> out;
        const long long sequence = RecordView(35, event).Number("Sequence");
        for (const auto& h : Records(file, 2))
            if (RecordView(file, h).Number("Sequence") == sequence &&
                RecordView(file, h).Text("Date") == NovKey(25))
                out.push_back(h);
        return out;
    }
    ScheduleDuplicationRequest Band() {
        auto r = Request(1, {2}, 18, 18, 25);
        r.hourDeb = r.hourDebCible = 10;
        r.hourFin = 11;
        r.history = true;
        return r;
    }
    std::vector<std::string> songs;
    std::string jingle;
};

TEST_F(DuplicationEquivalence, SongsCategoriesAndBreakSoundsFollowTheTable) {
    const std::string own = "00092001", other = "00092002";
    Row(1, songs[0], own);           // a song of station 2's own
    Row(2, songs[1], "");            // nothing for station 2: left as copied
    Row(3, songs[0], other);         // a lower row of the same song: the upper one wins
    Row(4, songs[2], "CATEGJAZZ ");  // a category
    Row(5, jingle, "JIN00004");      // another jingle
    // songs[3] has no row: left as copied.
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ScheduleDuplicationOutcome outcome = Duplicate(Band());
    ASSERT_EQ(outcome.outcome, progress::Outcome::Finished);
    EXPECT_GT(outcome.replaced, 0);
    std::map<std::string, std::vector<std::string>> after;
    for (size_t i = 0; i < 4; ++i) after[songs[i]] = CopiesOf(songs[i]);

    // The song: its code, title and artist, and those of its histories.
    const std::string song = Song(2, own);
    const std::string artistCode = RecordView(22, song).Text("Artist_1");
    const std::string artist = Label(20, 2, FixedWidth(artistCode, 5), "Label");
    ASSERT_FALSE(after[songs[0]].empty());
    for (const auto& e : after[songs[0]]) {
        RecordView v(35, e);
        EXPECT_EQ(v.Text("SongCode"), own);
        EXPECT_EQ(v.Text("Title"), RecordView(22, song).Text("Title"));
        EXPECT_EQ(v.Text("Artist"), artist);
        for (const auto& h : Histories(34, e)) {
            EXPECT_EQ(RecordView(34, h).Text("SongId"), own);
            EXPECT_EQ(RecordView(34, h).Text("Title"), RecordView(22, song).Text("Title"));
        }
        ASSERT_FALSE(Histories(33, e).empty());
        for (const auto& h : Histories(33, e)) {
            EXPECT_EQ(RecordView(33, h).Text("Artist"), artistCode);
            EXPECT_EQ(RecordView(33, h).Text("SongId"), own);
        }
    }
    // No row, or an empty cell: as copied.
    for (int i : {1, 3}) {
        ASSERT_FALSE(after[songs[i]].empty());
        for (const auto& e : after[songs[i]]) {
            EXPECT_EQ(RecordView(35, e).Text("SongCode"), songs[i]);
            EXPECT_FALSE(Histories(34, e).empty());
        }
    }
    // The category: no song any more, and no histories either.
    ASSERT_FALSE(after[songs[2]].empty());
    for (const auto& e : after[songs[2]]) {
        RecordView v(35, e);
        EXPECT_EQ(v.Text("SongCode"), "");
        EXPECT_EQ(v.Text("Filling_Cat."), "JAZZ");
        EXPECT_EQ(v.Text("Title"), Label(21, 2, "CATEGJAZZ ", "Label"));
        EXPECT_EQ(v.Text("Artist"), "");
        EXPECT_TRUE(Histories(34, e).empty());
        EXPECT_TRUE(Histories(33, e).empty());
    }
    // The jingle's sound and its two short titles.
    const std::string newJingle = Song(2, "JIN00004");
    const auto breaks = CopiesOf(jingle, 1);
    ASSERT_FALSE(breaks.empty());
    for (const auto& e : breaks) {
        RecordView v(35, e);
        EXPECT_EQ(v.Text("SongCode"), "JIN");
        EXPECT_EQ(v.Text("SecondCode"), "JIN00004");
        EXPECT_EQ(v.Text("BreakTitle1"),
                  TrimRight(RecordView(22, newJingle).Text("Title").substr(0, 13)));
        EXPECT_EQ(v.Text("BreakTitle2"),
                  TrimRight(RecordView(22, newJingle).Text("SecondText").substr(0, 10)));
    }
}

// A record call that fails is reported with its step and the run goes on to its end, which
// says that it met errors.
int16_t gFailUpdates = 0;
int16_t FailingUpdates(uint16_t operation, void* positionBlock, void* dataBuffer,
                       uint32_t* dataLength, void* keyBuffer, uint8_t keyLength, int8_t keyNumber) {
    if (operation == btr::kUpdate && gFailUpdates > 0) {
        --gFailUpdates;
        return btr::kIoError;
    }
    return BTRCALL(operation, positionBlock, dataBuffer, dataLength, keyBuffer, keyLength,
                   keyNumber);
}

TEST_F(DuplicationEquivalence, AFailedCallIsReportedWithItsStepAndTheRunGoesOn) {
    Row(1, songs[0], "00092001");
    Row(2, songs[2], "CATEGJAZZ ");
    struct ScopedEngine {
        ScopedEngine() { SetRecordEngine(FailingUpdates); }
        ~ScopedEngine() { SetRecordEngine(nullptr); }
    } engine;
    gFailUpdates = 1;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    ScheduleDuplicationOutcome outcome = Duplicate(Band());
    EXPECT_EQ(outcome.outcome, progress::Outcome::Incomplete);
    EXPECT_EQ(outcome.errors, 1);
    EXPECT_NE(Log().find("(Lib_Duplication:DuplicationScheduler:AA)"), std::string::npos);
    EXPECT_EQ(MessageTexts().back(),
              "Duplication du conducteur musical terminée avec des erreurs (1) : voir le "
              "journal du jour.");
    // The events after the failed one were still rewritten.
    EXPECT_GT(outcome.replaced, 0);
}

}  // namespace
}  // namespace toverin
