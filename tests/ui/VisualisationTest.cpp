// The data viewer with real widgets offscreen on a demo site: listing by key range, the messages
// of a missing file and a bad key, exports read back by real readers, the overwrite question,
// the lazy grid on a large file, and the tools lock.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <filesystem>

#include "app/LongRun.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "operations/DataExport.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"
#include "tests/operations/SiteFixture.h"
#include "tests/support/ExportReadBack.h"
#include "tests/ui/UiTestSupport.h"
#include "tools/DemoSite.h"
#include "ui/FrmExport.h"
#include "ui/FrmToolsVisualisation.h"
#include "ui/RecordTableModel.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using ui::FrmToolsVisualisation;
using ui::RecordTableModel;

std::string Cell(const QAbstractItemModel* model, int row, int column) {
    return model->data(model->index(row, column)).toString().toStdString();
}

std::vector<std::string> GridRow(const QAbstractItemModel* model, int row) {
    std::vector<std::string> cells;
    for (int c = 0; c < model->columnCount(); ++c) cells.push_back(Cell(model, row, c));
    return cells;
}

// A demo site of two bases of three stations, read as the program reads it at start.
class Visualisation : public testing::SiteFixture {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetRecordAccess();
        demo = CreateDemoSite(dir.folder(), DemoSize::Small, 7, AppClock().Now());
        ASSERT_TRUE(demo.ok) << demo.error;
        DetermineDossierSettings();
        DetermineDossierSettingsApplication();
        DetermineFichierConfig();
        ASSERT_EQ(InitGeneralSite(), SiteInitResult::Ok);
        window = ui::OpenVisualisation(nullptr);
        ASSERT_NE(window, nullptr);
        window->setAttribute(Qt::WA_DeleteOnClose, false);
    }
    void TearDown() override {
        delete window;
        ResetRecordAccess();
    }

    // Song codes of station 1, in key order.
    std::vector<std::string> SongIds() {
        RecordCursor cursor;
        EXPECT_EQ(cursor.Open({DataFilePath(0, 22, 1), 22, 0, "", ""}), CursorOpen::Ok);
        std::vector<std::string> ids;
        CursorRow row;
        while (cursor.Next(row)) ids.push_back(row.cells[0]);
        return ids;
    }

    void Show(int file, int station, int key, const QString& from = {}, const QString& to = {}) {
        window->Choose(0, file, station, key, from, to);
        window->CommandVisualiser->click();
        window->model()->CountAll();
        testing::Pump(50);
    }

    DemoSiteResult demo;
    FrmToolsVisualisation* window = nullptr;
};

TEST_F(Visualisation, ListsADemoFileByKeyRangeAndExportsItToExcelAndXml) {
    EXPECT_TRUE(window->windowTitle().startsWith("Visualisation: "));
    EXPECT_EQ(window->TextCle[0]->toolTip(), QString::fromUtf8("Clé de départ"));
    EXPECT_EQ(window->TextCle[1]->toolTip(), QString::fromUtf8("Clé limite"));
    EXPECT_EQ(window->ListeDesFichiers->count(), 48);  // 0..49 but 8 and 36

    const std::vector<std::string> ids = SongIds();
    ASSERT_GT(ids.size(), 20u);
    Show(22, 1, 0, QString::fromStdString(ids[3]), QString::fromStdString(ids[12]));
    const QAbstractItemModel* grid = window->grid()->model();
    ASSERT_EQ(grid->rowCount(), 10);
    ASSERT_EQ(grid->columnCount(), 136);
    for (int r = 0; r < 10; ++r) EXPECT_EQ(Cell(grid, r, 0), ids[3 + r]);
    EXPECT_EQ(grid->headerData(4, Qt::Horizontal).toString(), "Title");
    EXPECT_TRUE(
        window->TexteStructure->toPlainText().startsWith("F RecLen:900 PageSize:2048 Keys:6"))
        << window->TexteStructure->toPlainText().toStdString();
    EXPECT_EQ(window->LabelCleVisualisation->text(),
              QString::fromUtf8("Clé 0: SongId (8), unique"));
    EXPECT_EQ(window->LabelNbEnregistrements->text(), "10 enregistrement(s)");
    testing::SaveScreenshot(window, "visualisation-morceaux");
    EXPECT_TRUE(dialogs.messages.empty());

    // Excel: the name gets ".xls"; the file is reported and not opened (No). No progress window
    // stands over the save dialog or the closing question (it would hold them, being modal).
    testing::Rows expected = {VisuDataInitCol(22)};
    for (int r = 0; r < 10; ++r) expected.push_back(GridRow(grid, r));
    dialogs.QueueSaveFile(dir.file("Morceaux"));
    dialogs.QueueAnswer(MsgAnswer::No);
    int progressOverADialog = 0;
    dialogs.onShow = [&] {
        progressOverADialog += static_cast<int>(window->findChildren<QProgressDialog*>().size());
    };
    window->CommandVisualisationExporter->click();
    dialogs.onShow = nullptr;
    EXPECT_EQ(progressOverADialog, 0);
    ASSERT_EQ(dialogs.saveFilters.back(), "Fichiers xls|*.xls|Fichiers xlsx|*.xlsx");
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Fichier " + dir.file("Morceaux.xls") + " créé\n\nVoulez-vous l'ouvrir ?");
    EXPECT_EQ(testing::ReadBack("xls", dir.file("Morceaux.xls"),
                                testing::WorkbookJson({{"Feuil1", expected}}), dir),
              "same cells");
    EXPECT_NE(testing::ReadFile(Site().appSettingsFolder + "ExportExcel.Log").find("10 rows"),
              std::string::npos);

    // XML with the box unchecked.
    window->CheckExportExcel->setChecked(false);
    dialogs.QueueSaveFile(dir.file("Morceaux"));
    dialogs.QueueAnswer(MsgAnswer::No);
    window->CommandVisualisationExporter->click();
    EXPECT_EQ(dialogs.saveFilters.back(), "Fichiers xml|*.xml");
    std::string xml = testing::ReadFile(dir.file("Morceaux.xml"));
    EXPECT_NE(xml.find("<SongId>" + ids[12] + "</SongId>"), std::string::npos);
    EXPECT_EQ(xml.find("<SongId>" + ids[13] + "</SongId>"), std::string::npos);
    EXPECT_TRUE(fs::exists(Site().appSettingsFolder + "ExportXML.Log"));

    // Not while another long operation runs: refused with its name, nothing asked or written.
    {
        LongRun backup("Backup de la base Radio Test");
        window->CheckExportExcel->setChecked(true);
        window->CommandVisualisationExporter->click();
    }
    ASSERT_EQ(dialogs.messages.size(), 3u);
    EXPECT_EQ(dialogs.messages[2].text,
              "Une autre opération est en cours : Backup de la base Radio Test.\r\n\r\n"
              "Attendez la fin de cette opération avant d'en lancer une autre.");
    EXPECT_EQ(dialogs.saveFilters.size(), 2u);

    // The history of broadcast events, whole.
    Show(35, 1, 0);
    EXPECT_GT(grid->rowCount(), 100);
    EXPECT_EQ(grid->headerData(0, Qt::Horizontal).toString(), "Date");
    testing::SaveScreenshot(window, "visualisation-historique");
}

TEST_F(Visualisation, EmptyRangesMissingFilesBadKeysAndTheOverwriteQuestion) {
    const QAbstractItemModel* grid = window->grid()->model();
    const std::vector<std::string> ids = SongIds();
    // A start above every key: an empty grid and no message. An empty limit: to the end.
    Show(22, 1, 0, QString::fromUtf8("ÿ"));
    EXPECT_EQ(grid->rowCount(), 0);
    Show(22, 1, 0, QString::fromStdString(ids[5]));
    EXPECT_EQ(grid->rowCount(), static_cast<int>(ids.size() - 5));
    EXPECT_TRUE(dialogs.messages.empty());

    // A key past the file's keys: the box with the highest key; the grid stays empty.
    Show(22, 1, 7);
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text, "N° de clé invalide (Clé max: 5)");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);
    EXPECT_EQ(grid->rowCount(), 0);

    // A missing file: its box, nothing opened, nothing exported.
    const std::string missing = DataFilePath(0, 35, 2);
    fs::remove(missing);
    Show(35, 2, 0);
    ASSERT_EQ(dialogs.messages.size(), 2u);
    EXPECT_EQ(dialogs.messages[1].text, "Fichier: " + missing + " non trouvé");
    EXPECT_EQ(grid->rowCount(), 0);
    EXPECT_FALSE(fs::exists(missing));
    window->CommandVisualisationExporter->click();
    EXPECT_EQ(dialogs.messages.size(), 3u);
    EXPECT_TRUE(dialogs.saveFilters.empty());

    // Exporting onto an existing file asks first; No leaves it byte for byte as it was.
    window->Choose(0, 22, 1, 0);
    const std::string target = dir.file("export.xls");
    const std::string before = std::string("not a workbook\0\x01\xff", 17);
    testing::WriteFile(target, before);
    dialogs.QueueSaveFile(target);
    dialogs.QueueAnswer(MsgAnswer::No);
    window->CommandVisualisationExporter->click();
    ASSERT_EQ(dialogs.messages.size(), 4u);
    EXPECT_EQ(dialogs.messages[3].text, "Le fichier '" + target + "' existe déjà. Ecraser ?");
    EXPECT_EQ(dialogs.messages[3].buttons, MsgButtons::YesNo);
    EXPECT_TRUE(testing::ReadFile(target) == before);

    // A cancelled export leaves it too, and says nothing more.
    dialogs.QueueSaveFile(target);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    VisualisationExportRequest request;
    request.query = window->SpecFromControls();
    request.progress = [](uint64_t) { return false; };
    EXPECT_EQ(ExportVisualisation(request), "");
    EXPECT_EQ(dialogs.messages.size(), 5u);
    EXPECT_TRUE(testing::ReadFile(target) == before);

    // Yes replaces it.
    dialogs.QueueSaveFile(target);
    dialogs.QueueAnswer(MsgAnswer::Yes);
    dialogs.QueueAnswer(MsgAnswer::No);
    window->CommandVisualisationExporter->click();
    EXPECT_EQ(dialogs.messages.back().text,
              "Fichier " + target + " créé\n\nVoulez-vous l'ouvrir ?");
    EXPECT_NE(testing::ReadFile(target), before);
}

TEST_F(Visualisation, TheStandaloneExportWindowAndTheToolsLock) {
    window->Choose(0, 20, 1, 0);
    ui::FrmExport exportWindow(window->SpecFromControls(), false, window);
    EXPECT_EQ(exportWindow.TexteNature->text(), "Export XML");
    dialogs.QueueSaveFile(dir.file("Artistes.xml"));
    dialogs.QueueAnswer(MsgAnswer::No);
    exportWindow.Mnu01Export->trigger();
    EXPECT_EQ(dialogs.messages.back().text,
              "Fichier " + dir.file("Artistes.xml") + " créé\n\nVoulez-vous l'ouvrir ?");
    EXPECT_EQ(ui::FrmExport(window->SpecFromControls(), true).TexteNature->text(), "Export Excel");
    // Its button runs the same export as the menu entry.
    dialogs.QueueSaveFile(dir.file("Artistes-2.xml"));
    dialogs.QueueAnswer(MsgAnswer::No);
    exportWindow.CommandExporter->click();
    EXPECT_TRUE(fs::exists(dir.file("Artistes-2.xml")));
    // The listing's file went away meanwhile: said at once, and no target asked for.
    const size_t asked = dialogs.saveFilters.size();
    fs::remove(window->SpecFromControls().path);
    exportWindow.CommandExporter->click();
    EXPECT_EQ(dialogs.messages.back().text,
              "Fichier: " + window->SpecFromControls().path + " non trouvé");
    EXPECT_EQ(dialogs.saveFilters.size(), asked);

    ui::SetVisualisationLocked(true);
    EXPECT_EQ(ui::OpenVisualisation(nullptr), nullptr);
    EXPECT_EQ(dialogs.messages.back().text, "L'utilitaire Visualisation est verrouillé.");
    ui::SetVisualisationLocked(false);
}

// The grid of a file far larger than a screen reads only the blocks it shows, on the title key
// whose duplicates the blocks must find again.
TEST(VisualisationGrid, ReadsOnlyTheRowsItShowsAndFindsThemAgain) {
    testing::QtApp();
    testing::TempDir dir;
    ResetRecordAccess();
    const std::string path = dir.file("FRADA22.bt6");
    ASSERT_EQ(CreationFichierBTrieve(path, 22), btr::kSuccess);
    {
        engine::SetSyncedWrites(false);
        SlotBank writer("Test");
        ASSERT_EQ(writer.OuvertureFichierBTrieve(0, 22, path, 900, 1, btr::kOpenAccelerated),
                  btr::kSuccess);
        for (int i = 0; i < 6000; ++i) {
            std::string record = BlankRecord(22);
            RecordView song(22, record);
            song.SetText("SongId", ZeroPad(i, 8));
            song.SetText("Title", "Titre " + std::to_string(i % 37));
            std::string key;
            writer.BTRieve(0, btr::kInsert, record, key, 0, 22, 1, "Test");
            ASSERT_EQ(writer.LastStatus(), btr::kSuccess);
        }
        writer.CloseAll();
        engine::SetSyncedWrites(true);
    }
    // What the title key lists, in order.
    std::vector<std::string> ids;
    {
        RecordCursor cursor;
        ASSERT_EQ(cursor.Open({path, 22, 5, "", ""}), CursorOpen::Ok);
        CursorRow row;
        while (cursor.Next(row)) ids.push_back(row.cells[0]);
    }
    ASSERT_EQ(ids.size(), 6000u);

    RecordTableModel model;
    QTableView view;
    view.setModel(&model);
    view.resize(800, 400);
    view.show();
    ASSERT_EQ(model.Start({path, 22, 5, "", ""}), CursorOpen::Ok);
    testing::Pump(20);
    EXPECT_LE(model.RecordsCut(), RecordTableModel::kBlockRows);  // the first screen only
    model.CountAll();
    EXPECT_EQ(model.rowCount(), 6000);
    view.scrollToBottom();
    testing::Pump(20);
    EXPECT_LE(model.RecordsCut(), 3 * RecordTableModel::kBlockRows);
    for (int row : {5999, 5900, 3000, 2999, 128, 127, 0, 4500})
        EXPECT_EQ(Cell(&model, row, 0), ids[static_cast<size_t>(row)]) << row;
    EXPECT_LE(model.RecordsCut(), 12 * RecordTableModel::kBlockRows);
    ResetRecordAccess();
}

}  // namespace
}  // namespace toverin
