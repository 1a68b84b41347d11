// A source file damaged in its middle, as a disk fault would leave it, backed up around the
// damage through the key dialog.
#include <gtest/gtest.h>

#include "app/Text.h"
#include "operations/Backup.h"
#include "store/RecordView.h"
#include "tests/operations/SiteFixture.h"
#include "tests/support/DiskDamage.h"

namespace toverin {
namespace {

class BackupDamage : public testing::SiteFixture {
  protected:
    void SetUp() override {
        MakeSite(1);
        std::vector<std::string> songs;
        for (int n = 1; n <= kSongs; ++n) songs.push_back(Record(22, n));
        WriteFile(22, 1, songs);
        // Overwrite a data page in the middle: the records on it are lost, the others are not.
        auto leaves = testing::LeafPages(DataPath(22, 1), "records");
        ASSERT_GT(leaves.size(), 10u);
        size_t middle = leaves.size() / 2;
        for (size_t i = 0; i < middle; ++i) before += leaves[i].second;
        lost = leaves[middle].second;
        testing::Scribble(DataPath(22, 1), leaves[middle].first);
        options = Options();
        options.files.fill(false);
        options.files[22] = true;
    }
    std::vector<int> Backed() {
        std::vector<int> numbers;
        for (const std::string& r :
             ReadAll(dir.folder() + "C/KV_Local/Data/_Backup/Lundi/FRADA22.btr"))
            numbers.push_back(static_cast<int>(RecordView(22, r).Number("SongId")));
        return numbers;
    }

    static constexpr int kSongs = 2500;
    int before = 0;
    int lost = 0;
    BackupOptions options;
    RecordingProgress view;
};

TEST_F(BackupDamage, TheKeyDialogResumesPastTheDamageAndKeepsEverythingElse) {
    options.keyOnError = true;
    // The user first types a key still inside the damage, then one past it.
    dialogs.QueueInput(ZeroPad(before + 1, 8));
    dialogs.QueueInput(ZeroPad(before + lost, 8));
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_EQ(outcome.failedFiles, 1) << "the damaged file is reported";

    std::vector<int> numbers = Backed();
    ASSERT_EQ(numbers.size(), static_cast<size_t>(kSongs - lost));
    for (int i = 0; i < before; ++i) EXPECT_EQ(numbers[i], i + 1);
    EXPECT_EQ(numbers[before], before + lost + 1);
    EXPECT_EQ(numbers.back(), kSongs);

    ASSERT_EQ(dialogs.prompts.size(), 2u);
    EXPECT_EQ(dialogs.prompts[0].prompt,
              "Clé (supérieure) à partir de laquelle il faut reprendre la sauvegarde");
    bool told = false;
    for (const auto& m : dialogs.messages)
        told = told || m.text ==
                           "Fichier endommagé. Vous allez devoir saisir une clé pour poursuivre la "
                           "sauvegarde\r\nLa clé doit être supérieure à celle affichée.";
    EXPECT_TRUE(told);
    std::string log = Log();
    EXPECT_NE(log.find(":Err: 2 Reading File: " + DataPath(22, 1) + "\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Err: Key: " + ZeroPad(before, 8) + "\r\n"), std::string::npos);
}

TEST_F(BackupDamage, WithoutTheDialogTheCopyEndsAtTheDamageAndLastWeeksCopyStays) {
    const std::string lastWeek = dir.folder() + "C/KV_Local/Data/_Backup/Lundi/FRADA22.btr";
    WriteRecordFile(lastWeek, 22, {Record(22, 1), Record(22, 2), Record(22, 3)});
    BackupOutcome outcome = BackupData(0, false, options, view);
    EXPECT_EQ(outcome.failedFiles, 1);
    EXPECT_EQ(outcome.failedNames, std::vector<std::string>{"FRADA22.bt6"});
    EXPECT_EQ(Backed(), (std::vector<int>{1, 2, 3})) << "a copy cut short replaces nothing";
    EXPECT_FALSE(std::filesystem::exists(lastWeek + ".new"));
    EXPECT_TRUE(dialogs.prompts.empty());
    EXPECT_NE(Log().find("Backup: Err: Last week's copy kept: " + lastWeek), std::string::npos);
    EXPECT_TRUE(outcome.finished) << "one bad file ends only itself";
}

}  // namespace
}  // namespace toverin
