// The Equivalence tab on the demo site, with real widgets: loaded at start-up, a title dragged
// from the tree onto the grid, the cell menu, the save button and the shutdown question.
#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QTreeWidgetItemIterator>
#include <memory>

#include "app/EventPump.h"
#include "app/LongRun.h"
#include "app/Startup.h"
#include "app/Text.h"
#include "content/EquivalenceTable.h"
#include "store/Pervasive.h"
#include "tests/operations/SiteFixture.h"
#include "tests/ui/UiTestSupport.h"
#include "tools/DemoSite.h"
#include "ui/EquivalencePages.h"
#include "ui/Frm_Main.h"
#include "ui/SingleInstance.h"

namespace toverin {
namespace {

using ui::EquivalencePage;
using ui::Frm_Main;
using ui::MainTab;

class EquivalenceTab : public testing::SiteFixture {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetStartup();
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        DemoSiteResult demo = CreateDemoSite(dir.folder(), DemoSize::Small, 2, AppClock().Now());
        ASSERT_TRUE(demo.ok) << demo.error;
        instance = std::make_unique<ui::SingleInstance>(
            QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
        frm = std::make_unique<Frm_Main>(instance.get());
        ASSERT_TRUE(frm->Form_Load());
        frm->resize(1200, 760);
        frm->SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Equivalence));
        frm->show();
        testing::Pump(50);
    }
    void TearDown() override {
        if (frm && !frm->unloaded()) Close();
        frm.reset();
        SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
        unsetenv("XDG_DATA_HOME");
    }
    // Closing waits half a second on the tick: let the fake clock move meanwhile.
    void Close() {
        clock->SetAutoAdvance(Milliseconds(50));
        frm->CloseWithMode(ui::kFormControlMenu);
    }
    EquivalencePage& Page(int base = 0) { return frm->equivalence()->page(base); }
    QTreeWidgetItem* TreeNode(const std::string& key) {
        for (QTreeWidgetItemIterator it(Page().TreeViewEquivalence); *it; ++it)
            if (ui::EquivalenceTree::KeyOf(*it).toStdString() == key) return *it;
        return nullptr;
    }
    QString Shown(int row, int station) {
        return Page().MSFlexGridEquivalence->model()->index(row - 1, station - 1).data().toString();
    }
    QString Code(int row, int station) {
        return Page()
            .MSFlexGridEquivalenceCode->model()
            ->index(row - 1, station - 1)
            .data()
            .toString();
    }
    QPoint CellCentre(int row, int station) {
        auto* grid = Page().MSFlexGridEquivalence;
        QModelIndex index = grid->model()->index(row - 1, station - 1);
        grid->scrollTo(index);
        return grid->visualRect(index).center();
    }
    // A real drag's data, from the tree, dropped on a cell of the grid as Qt delivers it.
    bool Drop(const std::string& key, int row, int station) {
        QTreeWidgetItem* node = TreeNode(key);
        EXPECT_NE(node, nullptr) << key;
        if (!node) return false;
        std::unique_ptr<QMimeData> data(Page().TreeViewEquivalence->NodeMimeData(node));
        QWidget* viewport = Page().MSFlexGridEquivalence->viewport();
        const QPoint at = CellCentre(row, station);
        QDragEnterEvent enter(at, Qt::CopyAction | Qt::MoveAction, data.get(), Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(viewport, &enter);
        QDragMoveEvent move(at, Qt::CopyAction | Qt::MoveAction, data.get(), Qt::LeftButton,
                            Qt::NoModifier);
        QApplication::sendEvent(viewport, &move);
        if (!move.isAccepted()) return false;
        QDropEvent drop(QPointF(at), Qt::CopyAction | Qt::MoveAction, data.get(), Qt::LeftButton,
                        Qt::NoModifier);
        QApplication::sendEvent(viewport, &drop);
        return drop.isAccepted();
    }
    void Click(QWidget* widget, QPoint at, Qt::MouseButton button) {
        const QPoint global = widget->mapToGlobal(at);
        QMouseEvent press(QEvent::MouseButtonPress, QPointF(at), QPointF(global), button, button,
                          Qt::NoModifier);
        QApplication::sendEvent(widget, &press);
        QMouseEvent release(QEvent::MouseButtonRelease, QPointF(at), QPointF(global), button,
                            Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(widget, &release);
    }
    // Opens the cell menu with the right button and picks `action` in it, both by mouse.
    void PickInCellMenu(int row, int station, QAction* action) {
        Click(Page().MSFlexGridEquivalence->viewport(), CellCentre(row, station), Qt::RightButton);
        QMenu* menu = frm->equivalence()->FrmMenu();
        testing::Pump(30);
        ASSERT_TRUE(menu->isVisible());
        ASSERT_TRUE(action->isEnabled());
        Click(menu, menu->actionGeometry(action).center(), Qt::LeftButton);
        testing::Pump(30);
    }
    std::vector<std::string> File46() { return ReadAll(DataFilePath(0, 46, 1)); }

    std::unique_ptr<ui::SingleInstance> instance;
    std::unique_ptr<Frm_Main> frm;
};

TEST_F(EquivalenceTab, StartUpFillsEveryBasesTreeAndGridsAndNoChangeAsksNothing) {
    ASSERT_EQ(frm->equivalence()->pageCount(), 2);
    EquivalencePage& p = Page();
    EXPECT_EQ(p.ComboEquivalenceStation->count(), 3);
    EXPECT_EQ(p.table.rows().size(), 6u);
    EXPECT_EQ(p.MSFlexGridEquivalence->model()->columnCount(), 3);
    EXPECT_GE(p.MSFlexGridEquivalence->model()->rowCount(), 100);
    EXPECT_EQ(Code(1, 2), "00092001");
    EXPECT_EQ(Shown(1, 2).toStdString(), p.table.CellAt(1, 2).shown);
    EXPECT_FALSE(Shown(1, 2).isEmpty());
    EXPECT_EQ(Shown(6, 3), QString::fromUtf8("Catégorie: Hits actuels"));
    EXPECT_EQ(Code(6, 3), "CATEGHITS ");
    EXPECT_FALSE(p.MSFlexGridEquivalenceCode->isVisible());
    EXPECT_TRUE(p.MSFlexGridEquivalence->isVisible());
    EXPECT_EQ(p.LabelEquivalence->text(), "6 lignes");

    // The tree: the five groups, music by category.
    QTreeWidget* tree = p.TreeViewEquivalence;
    ASSERT_EQ(tree->topLevelItemCount(), 5);
    EXPECT_EQ(tree->topLevelItem(0)->text(0), "Musique");
    EXPECT_EQ(ui::EquivalenceTree::KeyOf(tree->topLevelItem(1)), "Jin");
    EXPECT_EQ(tree->topLevelItem(1)->childCount(), 6);
    QTreeWidgetItem* hits = TreeNode("CatHITS ");
    ASSERT_NE(hits, nullptr);
    EXPECT_EQ(hits->parent(), tree->topLevelItem(0));
    EXPECT_GT(hits->childCount(), 0);
    EXPECT_FALSE(tree->topLevelItem(0)->flags() & Qt::ItemIsDragEnabled);
    EXPECT_TRUE(hits->flags() & Qt::ItemIsDragEnabled);
    EXPECT_EQ(Page(1).table.rows().size(), 6u) << "the second base has its own table";
    testing::SaveScreenshot(frm.get(), "equivalence_tab");

    std::string log = Log();
    size_t step = log.find("----- Toverin: Init: Equivalence -----");
    ASSERT_NE(step, std::string::npos);
    EXPECT_NE(log.find("Equivalence: base 1: 6 row(s) loaded", step), std::string::npos);
    EXPECT_FALSE(Startup().equivalenceModified);
    Close();
    for (const auto& m : dialogs.messages)
        EXPECT_EQ(m.text.find("table d'équivalence"), std::string::npos);
}

TEST_F(EquivalenceTab, ATitleDraggedFromTheTreeLandsOnlyInItsStationsColumn) {
    EquivalencePage& p = Page();
    p.ComboEquivalenceStation->setCurrentIndex(1);  // station 2's catalogue
    ASSERT_EQ(p.catalogue.station, 2);
    ASSERT_NE(TreeNode("Son00092004"), nullptr);
    const std::vector<std::string> before = File46();

    // Station 3's column refuses it.
    EXPECT_TRUE(Drop("Son00092004", 7, 3));
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Vous devez respecter les colonnes pour le Drag & Drop des titres");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_TRUE(Shown(7, 3).isEmpty());
    EXPECT_TRUE(Code(7, 3).isEmpty());
    EXPECT_FALSE(Startup().equivalenceModified);

    // Its own column takes it: text in the grid, code in the twin.
    EXPECT_TRUE(Drop("Son00092004", 7, 2));
    EXPECT_EQ(Code(7, 2), "00092004");
    EXPECT_EQ(Shown(7, 2).toStdString(), p.table.CellAt(7, 2).shown);
    EXPECT_TRUE(Shown(7, 2).endsWith(
        QString::fromStdString(" - " + p.catalogue.FindSong("00092004")->second)));
    EXPECT_TRUE(Startup().equivalenceModified);
    EXPECT_TRUE(p.LabelEquivalence->text().contains("non enregistrée"));
    // A category onto another row; a group node changes nothing.
    EXPECT_TRUE(Drop("CatGOL80", 8, 2));
    EXPECT_EQ(Code(8, 2), "CATEGGOL80");
    EXPECT_EQ(Shown(8, 2), QString::fromUtf8("Catégorie: GOLD 80"));
    EXPECT_TRUE(Drop("Jin", 9, 2));
    EXPECT_TRUE(Code(9, 2).isEmpty());
    EXPECT_EQ(dialogs.messages.size(), 1u);
    testing::SaveScreenshot(frm.get(), "equivalence_tab_after_drop");

    // Refused while another run holds the program: nothing written, the changes kept.
    {
        LongRun backup("Backup de la base Base 01");
        Click(p.CommandEnregistrerEquivalence, p.CommandEnregistrerEquivalence->rect().center(),
              Qt::LeftButton);
    }
    ASSERT_EQ(dialogs.messages.size(), 2u);
    EXPECT_NE(dialogs.messages[1].text.find("Backup de la base Base 01"), std::string::npos);
    EXPECT_EQ(File46(), before);
    EXPECT_TRUE(Startup().equivalenceModified);

    // Saved by the button: two more records, the rest as it was.
    Click(p.CommandEnregistrerEquivalence, p.CommandEnregistrerEquivalence->rect().center(),
          Qt::LeftButton);
    EXPECT_FALSE(Startup().equivalenceModified);
    std::vector<std::string> after = File46();
    ASSERT_EQ(after.size(), before.size() + 2);
    EXPECT_EQ(after[6].substr(0, 5), "00007");
    EXPECT_EQ(after[6].substr(18, 13), "     00092004");
    EXPECT_EQ(after[7].substr(18, 13), "GOL80        ");
    for (size_t i = 0; i < before.size(); ++i) EXPECT_EQ(after[i], before[i]);
}

TEST_F(EquivalenceTab, TheCellMenuAsksAndEmptiesBothGrids) {
    EquivalencePage& p = Page();
    const QString shown = Shown(2, 1);
    ASSERT_FALSE(shown.isEmpty());

    dialogs.QueueAnswer(MsgAnswer::No);
    PickInCellMenu(2, 1, frm->equivalence()->MnuEquiViderCellule());
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Voulez-vous vider la cellule '" + shown.toStdString() + "' ?");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Question);
    EXPECT_EQ(Shown(2, 1), shown);
    EXPECT_FALSE(Startup().equivalenceModified);

    dialogs.QueueAnswer(MsgAnswer::Yes);
    PickInCellMenu(2, 1, frm->equivalence()->MnuEquiViderCellule());
    EXPECT_TRUE(Shown(2, 1).isEmpty());
    EXPECT_TRUE(Code(2, 1).isEmpty());
    EXPECT_EQ(Code(2, 2), "00092002");
    EXPECT_TRUE(Startup().equivalenceModified);

    dialogs.QueueAnswer(MsgAnswer::Yes);
    PickInCellMenu(6, 2, frm->equivalence()->MnuEquiViderLigne());
    EXPECT_EQ(dialogs.messages.back().text, "Voulez-vous vider la ligne 6");
    for (int s = 1; s <= 3; ++s) EXPECT_TRUE(Code(6, s).isEmpty()) << s;
    EXPECT_EQ(p.table.FindRow(6), nullptr);
    EXPECT_EQ(File46().size(), 6u) << "nothing written before the save";

    // An empty cell offers nothing to empty.
    Click(p.MSFlexGridEquivalence->viewport(), CellCentre(50, 1), Qt::RightButton);
    testing::Pump(30);
    EXPECT_FALSE(frm->equivalence()->MnuEquiViderCellule()->isEnabled());
    EXPECT_FALSE(frm->equivalence()->MnuEquiViderLigne()->isEnabled());
    frm->equivalence()->FrmMenu()->hide();
}

TEST_F(EquivalenceTab, UnsavedChangesAreSavedByTheShutdownQuestionsYes) {
    Page().ComboEquivalenceStation->setCurrentIndex(2);
    ASSERT_TRUE(Drop("Son00093005", 12, 3));
    ASSERT_TRUE(Startup().equivalenceModified);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    Close();
    ASSERT_TRUE(frm->unloaded());
    ASSERT_FALSE(dialogs.messages.empty());
    EXPECT_EQ(dialogs.messages[0].text,
              "Voulez-vous enregistrer les changements apportés à la table d'équivalence ?");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Question);
    std::vector<std::string> records = File46();
    ASSERT_EQ(records.size(), 7u);
    EXPECT_EQ(records.back().substr(0, 5), "00012");
    EXPECT_EQ(records.back().substr(31, 13), "     00093005");
    EXPECT_FALSE(Startup().equivalenceModified);
}

}  // namespace
}  // namespace toverin
