// The label duplication on a demo site, whose second station writes its category names and some
// song titles in capitals and whose stations each have songs of their own.
#include <map>

#include "tests/content/DuplicationFixture.h"

namespace toverin {
namespace {

using testing::DuplicationFixture;

class Labels : public DuplicationFixture {
  protected:
    LabelDuplicationRequest Request(int source, std::vector<int> targets,
                                    std::vector<LabelGroup> groups) const {
        LabelDuplicationRequest r;
        r.sourceStation = source;
        for (int t : targets) r.targets[static_cast<size_t>(t - 1)] = true;
        for (LabelGroup g : groups) r.groups[static_cast<size_t>(g)] = true;
        return r;
    }
    static std::vector<LabelGroup> All() {
        std::vector<LabelGroup> all;
        for (int g = 0; g < kLabelGroups; ++g) all.push_back(static_cast<LabelGroup>(g));
        return all;
    }
    LabelDuplicationOutcome Duplicate(const LabelDuplicationRequest& r) {
        progress = RecordingProgress{};
        return DuplicationLibelle(r, progress);
    }
    // Field `field` of the record of `file` whose first `key.size()` bytes are `key`.
    std::string FieldOf(int file, int station, const std::string& key, const char* field) {
        for (const auto& r : Records(file, station))
            if (r.compare(0, key.size(), key) == 0) return RecordView(file, r).Text(field);
        return "<none>";
    }
    std::map<int, std::vector<std::string>> Files(int station) {
        std::map<int, std::vector<std::string>> files;
        for (int f : {21, 22, 23, 24, 26, 29}) files[f] = Records(f, station);
        return files;
    }
};

TEST_F(Labels, TheQuestionAndTheStationsAreCheckedFirst) {
    const auto before = Files(2);
    dialogs.QueueAnswer(MsgAnswer::No);
    EXPECT_EQ(Duplicate(Request(1, {2}, All())).outcome, progress::Outcome::Refused);
    EXPECT_EQ(MessageTexts(), std::vector<std::string>{"Voulez-vous dupliquer les libellés ?"});

    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(Request(1, {}, All())).outcome, progress::Outcome::Refused);
    EXPECT_EQ(MessageTexts().back(), "Vous devez sélectionner au moins une station cible");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Critical);

    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(Request(2, {3, 2}, All())).outcome, progress::Outcome::Refused);
    EXPECT_EQ(MessageTexts().back(), "Impossible de dupliquer sur la station #2");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Critical);
    EXPECT_EQ(Files(2), before);
}

TEST_F(Labels, TextsAreCopiedAndATargetAlreadyEqualIsNotWrittenAgain) {
    ASSERT_EQ(FieldOf(21, 2, "CATEGJAZZ ", "Label"), "JAZZ");
    const auto voices = FieldOf(21, 2, "VOIX FEM  ", "Label");
    const auto own = FieldOf(22, 2, "00092001", "Title");
    dialogs.QueueAnswer(MsgAnswer::Yes);
    LabelDuplicationOutcome first = Duplicate(Request(1, {2, 3}, All()));
    EXPECT_EQ(first.outcome, progress::Outcome::Finished);
    EXPECT_GT(first.rewritten, 0);
    EXPECT_EQ(MessageTexts().back(), "Duplication des libellés terminée");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);

    EXPECT_EQ(FieldOf(21, 2, "CATEGJAZZ ", "Label"), "Jazz");
    EXPECT_EQ(FieldOf(21, 2, "VOIX FEM  ", "Label"), voices);  // not a copied kind
    // Every song both stations have now carries station 1's texts, in every song file.
    int common = 0;
    for (const auto& song : Records(22, 1)) {
        const std::string id = RecordView(22, song).Raw("SongId");
        if (FieldOf(22, 2, id, "SongId") == "<none>" || id.compare(0, 3, "PUB") == 0) continue;
        ++common;
        EXPECT_EQ(FieldOf(22, 2, id, "Title"), RecordView(22, song).Text("Title")) << id;
        EXPECT_EQ(FieldOf(24, 2, id, "Title"), FieldOf(24, 1, id, "Title")) << id;
        EXPECT_EQ(FieldOf(26, 2, id, "Title"), FieldOf(26, 1, id, "Title")) << id;
    }
    EXPECT_GT(common, 40);
    // Station 2's own songs have no twin on station 1: untouched.
    EXPECT_EQ(FieldOf(22, 2, "00092001", "Title"), own);

    // Once equal, nothing is written: every record stays as it is, byte for byte.
    const auto equal2 = Files(2), equal3 = Files(3);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    LabelDuplicationOutcome second = Duplicate(Request(1, {2, 3}, All()));
    EXPECT_EQ(second.outcome, progress::Outcome::Finished);
    EXPECT_EQ(second.rewritten, 0);
    EXPECT_EQ(Files(2), equal2);
    EXPECT_EQ(Files(3), equal3);
}

TEST_F(Labels, MissingSongsStayMissingAndTheOptionsCopyCategoryAndZones) {
    const std::string gone = "00000003", song = "00000005";
    const std::string category = FieldOf(22, 1, song, "Category");
    Rewrite(22, 2, [&](std::string& r) {
        RecordView v(22, r);
        if (v.Text("SongId") == gone) return false;
        if (v.Text("SongId") == song) {
            v.SetText("Zones", "22122");
            v.SetText("Category", category == "JAZZ" ? "ROCK" : "JAZZ");
        }
        return true;
    });
    ASSERT_EQ(FieldOf(22, 2, song, "Title"), FieldOf(22, 1, song, "Title"));

    dialogs.QueueAnswer(MsgAnswer::Yes);
    auto r = Request(1, {2}, {LabelGroup::Mus});
    LabelDuplicationOutcome plain = Duplicate(r);
    EXPECT_EQ(plain.outcome, progress::Outcome::Finished);
    EXPECT_GE(plain.missing, 1);
    EXPECT_EQ(FieldOf(22, 2, gone, "Title"), "<none>");
    EXPECT_EQ(FieldOf(22, 2, song, "Zones"), "22122");
    EXPECT_NE(FieldOf(22, 2, song, "Category"), category);

    // "Toutes zones actives" rewrites the song though its title is already the same.
    r.allZones = true;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).rewritten, 1);
    EXPECT_EQ(FieldOf(22, 2, song, "Zones"), "22222");
    EXPECT_NE(FieldOf(22, 2, song, "Category"), category);

    r.changeCategory = true;
    dialogs.QueueAnswer(MsgAnswer::Yes);
    EXPECT_EQ(Duplicate(r).rewritten, 1);
    EXPECT_EQ(FieldOf(22, 2, song, "Category"), category);
    EXPECT_EQ(FieldOf(22, 2, gone, "Title"), "<none>");
}

TEST_F(Labels, WithNoGroupCheckedTheRunStillEndsWithItsMessage) {
    const auto before = Files(2);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    LabelDuplicationOutcome outcome = Duplicate(Request(1, {2}, {}));
    EXPECT_EQ(outcome.outcome, progress::Outcome::Finished);
    EXPECT_EQ(outcome.read, 0);
    EXPECT_EQ(MessageTexts(), (std::vector<std::string>{"Voulez-vous dupliquer les libellés ?",
                                                        "Duplication des libellés terminée"}));
    EXPECT_EQ(Files(2), before);
}

}  // namespace
}  // namespace toverin
