// The "Import XML" page with real widgets: a delivery loaded, its sections switched, a column
// sorted by a click on its heading, widths kept, then imported.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTreeView>
#include <filesystem>

#include "app/EventPump.h"
#include "app/Startup.h"
#include "content/ImportXML.h"
#include "store/RecordView.h"
#include "tests/operations/SiteFixture.h"
#include "tests/ui/UiTestSupport.h"
#include "tools/DemoSite.h"
#include "ui/Frm_Main.h"
#include "ui/ImportXMLPages.h"
#include "ui/QtOperationView.h"
#include "ui/SingleInstance.h"

namespace toverin {
namespace {

using ui::ControlName;
using ui::Frm_Main;
using ui::MainTab;

class ImportXMLPage : public testing::SiteFixture {
  protected:
    void SetUp() override {
        testing::QtApp();
        ResetStartup();
        setenv("XDG_DATA_HOME", dir.file("xdg").c_str(), 1);
        MakeSite(2);
        for (int f : {1, 2, 3, 4, 5, 6, 7, 20, 21, 22, 25, 26, 30, 31})
            for (int s = 1; s <= 2; ++s)
                if (s == 1 || CatalogueEntryFor(f).perStation == 'O') WriteFile(f, s, {});
        source = ImportXMLDossierSourceParDefaut(0);
        std::filesystem::create_directories(source);
        ASSERT_EQ(WriteDemoDeliveries(source, Today()).size(), 2u);
        instance = std::make_unique<ui::SingleInstance>(
            QString::fromStdString(dir.file("Settings/_Local/Toverin.lock")));
    }
    void TearDown() override { unsetenv("XDG_DATA_HOME"); }
    template <class W>
    W* Control(Frm_Main& frm, const char* name, int index = 0) {
        W* w = frm.findChild<W*>(ControlName(name, index));
        EXPECT_NE(w, nullptr) << name;
        return w;
    }
    static void Click(QWidget* target, QPoint at) {
        QMouseEvent press(QEvent::MouseButtonPress, at, target->mapToGlobal(at), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QMouseEvent release(QEvent::MouseButtonRelease, at, target->mapToGlobal(at), Qt::LeftButton,
                            Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(target, &press);
        QApplication::sendEvent(target, &release);
    }
    void Close(Frm_Main& frm) {
        clock->SetAutoAdvance(Milliseconds(50));
        frm.CloseWithMode(ui::kFormCode);
    }
    std::string source;
    std::unique_ptr<ui::SingleInstance> instance;
};

TEST_F(ImportXMLPage, LoadSwitchSortAndImportADelivery) {
    Frm_Main frm(instance.get());
    ASSERT_TRUE(frm.Form_Load());
    frm.resize(1100, 760);
    frm.show();
    frm.SftTabsMain()->setCurrentIndex(static_cast<int>(MainTab::Import));
    auto* tabs = Control<QTabWidget>(frm, "TabsImport");
    ASSERT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->tabText(1).toStdString(), "Import XML");
    tabs->setCurrentIndex(1);
    // The plan is still there, on its own tab.
    EXPECT_NE(frm.findChild<QCheckBox*>(ControlName("CheckImportActiver", 0)), nullptr);

    // The default source folder holds the demo's deliveries.
    EXPECT_EQ(Control<QLineEdit>(frm, "TexteImportXMLDossierSource")->text().toStdString(), source);
    auto* files = Control<QListWidget>(frm, "FileImportXML");
    ASSERT_EQ(files->count(), 2);
    files->setCurrentRow(1);
    EXPECT_EQ(files->currentItem()->text().toStdString(), "Livraison_Programmes.xml");
    Control<QPushButton>(frm, "CommandImportXMLCharger")->click();

    auto* type = Control<QComboBox>(frm, "ComboTypeImportXML");
    auto* list = Control<QTreeView>(frm, "ListViewImportXML");
    auto* model = static_cast<ui::ImportXMLModel*>(list->model());
    // The file's first section is shown, each section's count beside its name.
    EXPECT_EQ(type->currentData().toString().toStdString(), "KV3_Diverse");
    EXPECT_EQ(type->currentText().toStdString(), "Libellés (28)");
    EXPECT_EQ(model->rowCount(), 28);
    EXPECT_EQ(model->headerData(0, Qt::Horizontal, Qt::DisplayRole).toString().toStdString(),
              "ID KV");

    type->setCurrentIndex(type->findData("KV3_Workshop"));
    EXPECT_EQ(type->currentText().toStdString(), "Morceaux (3)");
    ASSERT_EQ(model->rowCount(), 3);
    const int title = 1;  // the song's own elements come first: Title
    EXPECT_EQ(model->headerData(title, Qt::Horizontal, Qt::DisplayRole).toString().toStdString(),
              "Title");
    EXPECT_EQ(model->Row(0)[0], "00100001");
    EXPECT_EQ(model->Row(0)[title], "L'été à Lille");  // ISO-8859-1 in the file, UTF-8 here
    EXPECT_EQ(model->Row(2)[title], "Les \"Grands\" Soirs");

    // A click on the Title heading sorts by title, another the other way.
    QHeaderView* header = list->header();
    const QPoint onTitle(header->sectionViewportPosition(title) + 5, header->height() / 2);
    Click(header->viewport(), onTitle);
    testing::Pump(50);
    EXPECT_EQ(model->Row(0)[title], "L'été à Lille");
    EXPECT_EQ(model->Row(1)[title], "Les \"Grands\" Soirs");
    EXPECT_EQ(model->Row(2)[title], "Sous la pluie de Roubaix");
    Click(header->viewport(), onTitle);
    testing::Pump(50);
    EXPECT_EQ(model->Row(0)[title], "Sous la pluie de Roubaix");

    // A width set by hand is kept for the section and comes back with it.
    header->resizeSection(title, 233);
    testing::Pump(600);
    EXPECT_NE(LectureLargeursImportXML(0, "KV3_Workshop").find(",233,"), std::string::npos);
    type->setCurrentIndex(type->findData("KV3_Sound"));
    EXPECT_EQ(model->rowCount(), 2);
    type->setCurrentIndex(type->findData("KV3_Workshop"));
    EXPECT_EQ(header->sectionSize(title), 233);
    testing::SaveScreenshot(&frm, "import_xml_page_loaded");

    // Import into station 1 of the first base.
    EXPECT_EQ(Control<QComboBox>(frm, "ComboImportXMLBase")->currentIndex(), 0);
    Control<QComboBox>(frm, "ComboImportXMLStation")->setCurrentIndex(0);
    EXPECT_EQ(Control<QComboBox>(frm, "ComboImportXMLCategorie")->currentText().toStdString(),
              "(aucune)");
    Control<QPushButton>(frm, "CommandImportXML")->click();
    ASSERT_FALSE(dialogs.messages.empty());
    EXPECT_EQ(dialogs.messages.back().text.rfind("Fin de l'import\n\n43 enregistrements lus, 43 "
                                                 "insérés",
                                                 0),
              0u)
        << dialogs.messages.back().text;
    EXPECT_EQ(ReadAll(DataPath(22, 1)).size(), 3u);
    auto* bar = Control<QProgressBar>(frm, "ProgressBarImportXML");
    EXPECT_EQ(bar->value(), bar->maximum());
    EXPECT_TRUE(
        Control<QLabel>(frm, "LabelImportXMLEtat")->text().startsWith("43 enregistrements"));
    EXPECT_EQ(Control<QListWidget>(frm, "ListImportXMLRefus")->count(), 0);
    // The categories the delivery brought can now be chosen.
    EXPECT_GT(Control<QComboBox>(frm, "ComboImportXMLCategorie")->count(), 1);
    testing::SaveScreenshot(&frm, "import_xml_page_after_import");
    tabs->setCurrentIndex(0);
    testing::SaveScreenshot(&frm, "import_tab_planning");
    tabs->setCurrentIndex(1);

    // The settings are kept with the base's other import settings.
    Control<QCheckBox>(frm, "CheckImportXMLValidation")->setChecked(true);
    const ImportXMLReglages saved = LectureReglagesImportXML(0);
    EXPECT_TRUE(saved.validation);
    EXPECT_EQ(saved.section, "KV3_Workshop");
    EXPECT_EQ(saved.station, 1);
    Close(frm);
}

}  // namespace
}  // namespace toverin
