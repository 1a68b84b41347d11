// The messages of the start-up as the user sees them: real message boxes, offscreen, with
// screenshots in build/screenshots.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QTranslator>
#include <functional>

#include "app/DateTime.h"
#include "app/Paths.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/UiTestSupport.h"
#include "ui/Application.h"
#include "ui/FrmSysTray.h"
#include "ui/QtDialogs.h"

namespace toverin {
namespace {

using testing::ScopedLogAndRegistry;
using testing::TempDir;

// Each box the program shows next: its title, text and icon are kept, a screenshot is saved, and
// the button of the given caption is clicked.
struct BoxAnswerer {
    struct Seen {
        std::string title, text, shot;
        QMessageBox::Icon icon;
    };
    std::vector<std::string> answers;
    std::vector<Seen> seen;
    std::string shotPrefix;
    QTimer timer;

    BoxAnswerer(std::vector<std::string> captions, std::string prefix)
        : answers(std::move(captions)), shotPrefix(std::move(prefix)) {
        timer.setInterval(20);
        QObject::connect(&timer, &QTimer::timeout, [this] { Look(); });
        timer.start();
    }
    void Look() {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || answers.empty() || !box->isVisible()) return;
        std::string shot =
            testing::SaveScreenshot(box, shotPrefix + "_" + std::to_string(seen.size() + 1));
        seen.push_back(
            {box->windowTitle().toStdString(), box->text().toStdString(), shot, box->icon()});
        std::string caption = answers.front();
        answers.erase(answers.begin());
        for (QAbstractButton* b : box->buttons())
            if (b->text().toStdString() == caption) b->click();
    }
};

class StartupMessages : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::QtApp();
        SetAppDialogs(&qt);
        SetSuiteRoot(dir.folder());
    }
    void TearDown() override { SetAppDialogs(nullptr); }
    TempDir dir;
    ScopedLogAndRegistry env{dir};
    ui::QtDialogs qt;
};

TEST_F(StartupMessages, ComponentsMissingSaysWhatAndOffersTheInstaller) {
    testing::WriteFile(
        dir.file("Settings/_Local/KV3_Toverin_Local.ini"),
        "[Composants]\r\nAdresse_Installation=" + dir.file("Kavella_3.47.030.run") + "\r\n");
    const std::string missing = "- moteur de fichiers (BTRCALL) sans réponse\r\n";
    BoxAnswerer answerer({"OK", "Oui", "OK"}, "components_missing");
    ui::ReportMissingComponents(missing, ui::InstallerAddress());
    ASSERT_EQ(answerer.seen.size(), 3u);
    const auto& message = answerer.seen[0];
    EXPECT_EQ(message.text,
              "Cette mise-à-jour nécessite l'installation de la version 3.47.030 des composants "
              "Kavella\r\n\r\n- moteur de fichiers (BTRCALL) sans réponse\r\n\r\nVeuillez faire "
              "d'abord cette installation et relancer ensuite le programme\r\n\r\nFichier pour "
              "faire cette installation:\r\n" +
                  dir.file("Kavella_3.47.030.run"));
    EXPECT_EQ(message.icon, QMessageBox::Critical);
    const auto& question = answerer.seen[1];
    EXPECT_EQ(question.title, "Installation des composants Kavella");
    EXPECT_EQ(question.text, "Voulez-vous télécharger le fichier et faire l'installation ?");
    EXPECT_EQ(question.icon, QMessageBox::Question);
    // Yes opens the address: here a file that is not there, which is said and logged.
    EXPECT_EQ(answerer.seen[2].text, "Impossible d'ouvrir '" + dir.file("Kavella_3.47.030.run") +
                                         "' :\r\n\r\nChemin d'accès non trouvé");
    std::string log = env.LogText();
    EXPECT_NE(log.find("Err: Components missing: - moteur de fichiers (BTRCALL) sans réponse"),
              std::string::npos);
    EXPECT_NE(log.find("Sub: " + dir.file("Kavella_3.47.030.run") + " (Source: .ShellEx)"),
              std::string::npos)
        << log;
}

TEST_F(StartupMessages, WithoutAnAddressTheMessageSaysWhereToGiveIt) {
    BoxAnswerer answerer({"OK"}, "components_missing_no_address");
    ui::ReportMissingComponents("- aucune police de caractères (paquet fonts-dejavu-core)\r\n",
                                ui::InstallerAddress());
    ASSERT_EQ(answerer.seen.size(), 1u) << "nothing to download: no question";
    EXPECT_NE(answerer.seen[0].text.find(
                  "Fichier pour faire cette installation:\r\n(adresse à indiquer dans "
                  "Settings\\_Local\\KV3_Toverin_Local.ini, [Composants], Adresse_Installation)"),
              std::string::npos);
    EXPECT_EQ(ui::MissingComponents(), "") << "this machine has all it needs";
}

TEST(TrayToolTip, LastAndNextBackupOfEachBaseAndAWarningAfterAFailedRun) {
    ui::TrayBaseStatus nord{"Radio Nord", MakeLocalTime(2026, 11, 23, 2, 2, 0),
                            MakeLocalTime(2026, 11, 24, 2, 2, 0), false, std::nullopt};
    ui::TrayBaseStatus sud{"Radio Sud", MakeLocalTime(2026, 11, 22, 2, 2, 0),
                           MakeLocalTime(2026, 11, 24, 2, 2, 0), true,
                           MakeLocalTime(2026, 11, 23, 2, 2, 0)};
    ui::TrayBaseStatus neuf{"Radio Neuve", std::nullopt, std::nullopt, false, std::nullopt};
    EXPECT_EQ(ui::TrayToolTip({nord, sud, neuf}),
              "Kavella: Toverin\n"
              "Radio Nord: dernier backup lundi 23 novembre 2026 02:02, prochain mardi 24 "
              "novembre 2026 02:02\n"
              "Radio Sud: Attention: le backup planifié du lundi 23 novembre 2026 02:02 a échoué, "
              "prochain mardi 24 novembre 2026 02:02\n"
              "Radio Neuve: dernier backup aucun, prochain non planifié");
    testing::QtApp();
    ui::FrmSysTray tray([] {}, [] {});
    tray.SetStatus(ui::TrayToolTip({sud}), true);
    EXPECT_TRUE(tray.warning());
    EXPECT_TRUE(tray.toolTip().startsWith("Kavella: Toverin\nRadio Sud: Attention"));
}

// Qt's own texts (standard buttons, the file dialog of the exports) speak French like the rest of
// the program.
TEST_F(StartupMessages, QtsOwnTextsAreInFrench) {
    const QLocale before;
    QTranslator* translator = ui::InstallFrenchTranslations(*QApplication::instance());
    ASSERT_NE(translator, nullptr) << "Qt's translations (scripts/setup) are missing";
    QDialogButtonBox box(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    EXPECT_EQ(box.button(QDialogButtonBox::Cancel)->text().remove('&'), "Annuler");
    EXPECT_EQ(box.button(QDialogButtonBox::Save)->text().remove('&'), "Enregistrer");
    QFileDialog dialog(nullptr, "Exporter");
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    auto* name = dialog.findChild<QLabel*>("fileNameLabel");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(name->text().remove('&').toStdString(), "Nom de fichier :");
    testing::SaveScreenshot(&dialog, "export_file_dialog");
    QApplication::removeTranslator(translator);
    QLocale::setDefault(before);
}

}  // namespace
}  // namespace toverin
