// The Duplication tab and the options window's duplication grid, on a demo site, with real
// widgets offscreen.
#include <QCalendarWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <set>

#include "app/EventPump.h"
#include "app/Ini.h"
#include "app/Startup.h"
#include "tests/content/DuplicationFixture.h"
#include "tests/ui/UiTestSupport.h"
#include "ui/DuplicationPages.h"
#include "ui/FrmSetup.h"
#include "ui/Frm_Main.h"
#include "ui/SingleInstance.h"

namespace toverin {
namespace {

using ui::Frm_Main;
using ui::MainTab;

QDate Day(int day) {
    return QDate(2026, 11, day);
}

class DuplicationTab : public testing::DuplicationFixture {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetStartup();
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        DuplicationFixture::SetUp();
        instance = std::make_unique<ui::SingleInstance>(
            QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
        frm = std::make_unique<Frm_Main>(instance.get());
        ASSERT_TRUE(frm->Form_Load());
        frm->resize(1100, 760);
        frm->show();
        frm->SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Duplication));
    }
    void TearDown() override {
        SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
        clock->SetAutoAdvance(Milliseconds(50));  // closing waits on the tick
        frm->CloseWithMode(ui::kFormCode);
        frm.reset();
        unsetenv("XDG_DATA_HOME");
    }
    ui::ScheduleDuplicationPage& Schedule() { return frm->duplication()->schedule(0); }
    ui::LabelDuplicationPage& Labels() { return frm->duplication()->labels(0); }
    // The band 10H..11H of Wednesday 18 from station 1 onto station 2, Wednesday 25.
    void FillSchedulePage() {
        auto& p = Schedule();
        p.ComboDuplicationStationSource->setCurrentIndex(0);
        p.DTPickerDuplicationDateDeb->setDate(Day(18));
        p.ComboDuplicationHHDeb->setCurrentIndex(10);
        emit p.ComboDuplicationHHDeb->activated(10);
        p.ComboDuplicationHHFin->setCurrentIndex(11);
        p.ListeDuplicationStationsCibles->item(1)->setSelected(true);
        p.DTPickerDuplicationDateCible->setDate(Day(25));
        p.CheckDuplication->setChecked(true);
    }

    std::unique_ptr<ui::SingleInstance> instance;
    std::unique_ptr<Frm_Main> frm;
};

TEST_F(DuplicationTab, TheSchedulePageHoldsItsControlsAndRunsADuplication) {
    auto& p = Schedule();
    QTabWidget* pages = frm->duplication()->tabs(0);
    ASSERT_EQ(pages->count(), 2);
    EXPECT_EQ(pages->tabText(0), "Conducteur musical");
    EXPECT_EQ(pages->tabText(1), QString::fromUtf8("Libellés"));
    EXPECT_EQ(frm->duplication()->tabs(1)->count(), 2);  // every base has its pages
    ASSERT_EQ(p.ComboDuplicationHHDeb->count(), 24);
    EXPECT_EQ(p.ComboDuplicationHHDeb->itemText(0), "00");
    EXPECT_EQ(p.ComboDuplicationHHFin->itemText(23), "23");
    EXPECT_EQ(p.ComboDuplicationStationSource->count(), 3);
    EXPECT_EQ(p.ListeDuplicationStationsCibles->count(), 3);
    EXPECT_EQ(p.CheckDuplication->text(), QString::fromUtf8("Dupliquer l'historique"));
    // The French calendar, from Monday; today by default.
    EXPECT_TRUE(p.DTPickerDuplicationDateDeb->calendarPopup());
    EXPECT_EQ(p.DTPickerDuplicationDateDeb->calendarWidget()->locale().language(), QLocale::French);
    EXPECT_EQ(p.DTPickerDuplicationDateDeb->calendarWidget()->firstDayOfWeek(), Qt::Monday);
    EXPECT_EQ(p.DTPickerDuplicationDateCible->date(), Day(23));

    // The coupling rules: the first source day is the last one too, the first source hour the
    // target's first hour.
    FillSchedulePage();
    EXPECT_EQ(p.DTPickerDuplicationDateFin->date(), Day(18));
    EXPECT_EQ(p.ComboDuplicationHHDebCible->currentIndex(), 10);

    const auto source = DayRecords(35, 1, NovKey(18), 10);
    std::set<std::string> phases, days;
    bool captioned = false, hourglass = false, disabled = false;
    bool shot = false;
    SetEventPump([&] {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        phases.insert(p.LabelDuplication->text().toStdString());
        days.insert(p.TexteDuplication[0]->text().toStdString());
        captioned |= frm->windowTitle().contains(" - Duplication en cours de la base ");
        hourglass |= QApplication::overrideCursor() != nullptr;
        disabled |= !p.CommandDuplication->isEnabled();
        if (!shot && p.LabelDuplication->text().startsWith("Duplication")) {
            testing::SaveScreenshot(frm.get(), "duplication_conducteur_during_run");
            shot = true;
        }
    });
    dialogs.QueueAnswer(MsgAnswer::Yes);
    p.CommandDuplication->click();
    SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });

    EXPECT_EQ(MessageTexts().back(), "Duplication du conducteur musical terminée");
    EXPECT_EQ(DayRecords(35, 2, NovKey(25), 10).size(), source.size());
    EXPECT_TRUE(phases.count("Suppression des données cibles"));
    EXPECT_TRUE(phases.count("Duplication des données source"));
    EXPECT_TRUE(days.count("mercredi 25 novembre 2026 - Kavella Arras")) << *days.rbegin();
    EXPECT_TRUE(captioned);
    EXPECT_TRUE(hourglass);
    EXPECT_TRUE(disabled);
    // Afterwards: the caption, the button and the cursor are back, the phase cleared.
    EXPECT_FALSE(frm->windowTitle().contains("Duplication"));
    EXPECT_TRUE(p.CommandDuplication->isEnabled());
    EXPECT_EQ(QApplication::overrideCursor(), nullptr);
    EXPECT_EQ(p.LabelDuplication->text(), "");
    testing::SaveScreenshot(frm.get(), "duplication_conducteur");
}

TEST_F(DuplicationTab, TheLabelPageCopiesTheCheckedGroups) {
    frm->duplication()->tabs(0)->setCurrentIndex(1);
    auto& p = Labels();
    EXPECT_EQ(p.CheckDupliquerMorceauInf->text(), "Morceaux: Information");
    EXPECT_EQ(p.CheckZonesActives->text(), "Toutes zones actives");
    p.ComboDuplicationStationSourceLibelle->setCurrentIndex(0);
    p.ListeDuplicationStationsCiblesLibelles->item(1)->setSelected(true);
    p.CheckDupliquerCategorie->setChecked(true);
    testing::SaveScreenshot(frm.get(), "duplication_libelles");
    dialogs.QueueAnswer(MsgAnswer::Yes);
    p.CommandDuplicationLibelle->click();
    EXPECT_EQ(MessageTexts().back(), "Duplication des libellés terminée");
    for (const auto& r : Records(21, 2)) {
        RecordView v(21, r);
        if (v.Text("Header") == "CATEG") {
            EXPECT_NE(v.Text("Label"), UpperAscii(v.Text("Label")));
        }
    }
    EXPECT_TRUE(p.CommandDuplicationLibelle->isEnabled());
}

TEST_F(DuplicationTab, TheOptionsGridIsSavedAndTheNextRunHonoursIt) {
    ui::FrmSetup setup(frm.get());
    setup.resize(900, 520);
    setup.show();
    // The options window's tabs hold the grid page.
    auto* tabs =
        qobject_cast<QTabWidget*>(setup.SftTabsDuplication->parentWidget()->parentWidget());
    ASSERT_NE(tabs, nullptr);
    tabs->setCurrentWidget(setup.SftTabsDuplication);
    EXPECT_EQ(tabs->tabText(tabs->currentIndex()), "Duplication");
    ASSERT_EQ(setup.ComboDuplicationStation->count(), 10);
    setup.ComboDuplicationStation->setCurrentIndex(1);  // station 2
    for (QCheckBox* box : setup.CheckDuplication) EXPECT_TRUE(box->isChecked());

    // Clear all, check all, then close Wednesday 10H alone.
    setup.CommandDuplication[1]->click();
    for (QCheckBox* box : setup.CheckDuplication) EXPECT_FALSE(box->isChecked());
    setup.CommandDuplication[0]->click();
    const int wednesday10 = DuplicationGrid::CellIndex(3, 10);
    setup.CheckDuplication[static_cast<size_t>(wednesday10)]->click();
    EXPECT_FALSE(setup.duplicationGrid().Allowed(0, 2, 3, 10));
    EXPECT_FALSE(setup.duplicationGrid().Allowed(4, 2, 3, 10));
    setup.ComboDuplicationStation->setCurrentIndex(0);
    EXPECT_TRUE(setup.CheckDuplication[static_cast<size_t>(wednesday10)]->isChecked());
    setup.ComboDuplicationStation->setCurrentIndex(1);
    EXPECT_FALSE(setup.CheckDuplication[static_cast<size_t>(wednesday10)]->isChecked());
    testing::SaveScreenshot(&setup, "setup_duplication_grid");
    ASSERT_TRUE(setup.SaveDuplicationGrid());
    std::string expected(kGridCells, '1');
    expected[static_cast<size_t>(wednesday10)] = '0';
    EXPECT_EQ(LectureIni(DuplicationSettingsFile(), "Station_02", "Duplication", ""), expected);

    // The page reads the saved grid: 10H of Wednesday 25 stays station 2's own.
    const auto own = DayRecords(35, 2, NovKey(25), 10);
    FillSchedulePage();
    dialogs.QueueAnswer(MsgAnswer::Yes);
    Schedule().CommandDuplication->click();
    EXPECT_EQ(MessageTexts().back(), "Duplication du conducteur musical terminée");
    EXPECT_EQ(DayRecords(35, 2, NovKey(25), 10), own);
    EXPECT_EQ(DayRecords(35, 2, NovKey(25), 11).size(), DayRecords(35, 1, NovKey(18), 11).size());
}

}  // namespace
}  // namespace toverin
