// What the program finds of the base's backups when it starts: a run a crash interrupted, a last
// good backup too old, a planned backup that passed while the program was off.
#include <gtest/gtest.h>

#include "app/FileOps.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "operations/Backup.h"
#include "operations/BackupHealth.h"
#include "tests/operations/SiteFixture.h"

namespace toverin {
namespace {

class BackupHealthAtStart : public testing::SiteFixture {
  protected:
    void SetUp() override {
        ClearIncidents();
        MakeSite(1);
        plan = LoadPlan(0).backup;
        plan.active = true;  // the default plan: every day at 02:02
    }
    std::string Marker(const char* key) {
        return LectureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", key, "<none>");
    }
    void GoodBackupAt(LocalTime t) {
        EcritureIni(dir.file("C/KV_Config/Bk_Sys.ini"), "Sauvegarde", "Date", FormatDateTime(t));
        SaveLastRun(0, {t - std::chrono::minutes(3), "Finished", ""});
    }
    OperationPlan plan;
};

TEST_F(BackupHealthAtStart, ARunACrashInterruptedIsSetBackToOffAndRecorded) {
    const LocalTime started = MakeLocalTime(2026, 11, 23, 2, 2, 0);
    SaveLastRun(0, {started, "", ""});
    EcritureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Start", "ON");
    EcritureIni(dir.file("C/KV_Config/BK_PRG.ini"), "Data_Backup", "Pause", "ON");
    {
        // Another program's backup of the base holds its lock: its marker is its own.
        FileLock running(BackupLockFile(0));
        ASSERT_TRUE(running.held());
        CheckBackupAtStartup(0, plan, 2, AppClock().Now());
        EXPECT_EQ(Marker("Start"), "ON");
    }
    CheckBackupAtStartup(0, plan, 2, AppClock().Now());
    EXPECT_EQ(Marker("Start"), "0FF");
    EXPECT_EQ(Marker("Pause"), "0FF");
    const LastRun last = LoadLastRun(0);
    EXPECT_EQ(last.result, "Interrupted");
    EXPECT_EQ(LastRunText(last).rfind("Interrompu : le programme ou la machine s'est arrêté", 0),
              0u);
    bool recorded = false;
    for (const Incident& i : Incidents())
        recorded = recorded || i.text.rfind("Backup de la base Radio Test interrompu : ", 0) == 0;
    EXPECT_TRUE(recorded);
    EXPECT_NE(Log().find("Backup: Err: The backup of base Radio Test started 23/11/2026 02:02:00 "
                         "was interrupted"),
              std::string::npos);
}

TEST_F(BackupHealthAtStart, StaleAndMissedBackupsOfAPlannedBaseAreSaid) {
    const LocalTime now = AppClock().Now();  // Monday 10:00
    // Last good backup on Saturday at 02:05; the program was off since.
    GoodBackupAt(MakeLocalTime(2026, 11, 21, 2, 5, 0));
    std::string warning = CheckBackupAtStartup(0, plan, 2, now);
    EXPECT_EQ(warning,
              "Base Radio Test : le dernier backup réussi date du samedi 21 novembre 2026 "
              "02:05:00 (plus de 2 jours) ; le backup prévu le lundi 23 novembre 2026 à 02:02 "
              "n'a pas été fait (programme arrêté)");
    EXPECT_EQ(Incidents().back().text, warning);
    // Three days allowed: only the missed night is said.
    EXPECT_EQ(CheckBackupAtStartup(0, plan, 3, now),
              "Base Radio Test : le backup prévu le lundi 23 novembre 2026 à 02:02 n'a pas été "
              "fait (programme arrêté)");
    // Last night's backup ran: nothing to say.
    GoodBackupAt(MakeLocalTime(2026, 11, 23, 2, 5, 0));
    EXPECT_EQ(CheckBackupAtStartup(0, plan, 2, now), "");
    // No backup ever, on a planned base.
    std::filesystem::remove(dir.file("C/KV_Config/Bk_Sys.ini"));
    EXPECT_NE(CheckBackupAtStartup(0, plan, 2, now).find("aucun backup réussi n'est enregistré"),
              std::string::npos);
    // Nobody expects backups of a base without a plan.
    plan.active = false;
    EXPECT_EQ(CheckBackupAtStartup(0, plan, 2, now), "");
}

TEST(BackupAge, TextsAndTheLastPlannedTime) {
    const LocalTime now = MakeLocalTime(2026, 11, 23, 10, 0, 0);  // Monday
    EXPECT_EQ(BackupAgeText(std::nullopt, now), "Aucun backup réussi enregistré");
    EXPECT_EQ(BackupAgeText(now - std::chrono::minutes(1), now),
              "Dernier backup réussi il y a 1 minute");
    EXPECT_EQ(BackupAgeText(now - std::chrono::hours(8), now),
              "Dernier backup réussi il y a 8 heures");
    EXPECT_EQ(BackupAgeText(now - std::chrono::hours(30), now),
              "Dernier backup réussi il y a 30 heures");
    EXPECT_EQ(BackupAgeText(now - std::chrono::hours(24 * 3 + 1), now),
              "Dernier backup réussi il y a 3 jours");

    OperationPlan plan;
    plan.active = true;
    plan.rows[0] = {true, 0, 2, 2};   // Monday 02:02
    plan.rows[1] = {true, 4, 23, 0};  // Friday 23:00
    EXPECT_EQ(LastDueDate(plan, now), MakeLocalTime(2026, 11, 23, 2, 2, 0));
    EXPECT_EQ(LastDueDate(plan, MakeLocalTime(2026, 11, 23, 2, 1, 0)),
              MakeLocalTime(2026, 11, 20, 23, 0, 0));
    EXPECT_EQ(LastDueDate(plan, MakeLocalTime(2026, 11, 23, 2, 2, 0)),
              MakeLocalTime(2026, 11, 23, 2, 2, 0))
        << "at the very minute";
    plan.rows[1].active = false;
    EXPECT_EQ(LastDueDate(plan, MakeLocalTime(2026, 11, 22, 12, 0, 0)),
              MakeLocalTime(2026, 11, 16, 2, 2, 0))
        << "a week back";
    plan.active = false;
    EXPECT_FALSE(LastDueDate(plan, now));
}

}  // namespace
}  // namespace toverin
