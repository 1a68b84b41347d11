// The options window: the program's log and, per base, the settings the operations read.
#pragma once

#include <QDialog>
#include <array>

#include "content/DuplicationGrid.h"

class QListWidget;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;

namespace toverin::ui {

class FrmSetup : public QDialog {
    Q_OBJECT
  public:
    explicit FrmSetup(QWidget* parent = nullptr);
    void RefreshLog();
    // Brings the log page to the front, with the latest lines.
    void ShowLogPage();
    // Writes every base's backup settings from the controls, once they are all sound; false
    // when the user was told why nothing was written.
    bool SaveBaseSettings();
    // "Enregistrer": the bases' settings, then the duplication grid; says when it is done.
    void CommandEnregistrer_Click();
    // Closing with changes not saved asks whether to save them; No puts back the saved ones.
    void reject() override;
    bool modified() const { return modified_; }
    QLabel* LabelEnregistrement = nullptr;
    QCheckBox* CheckForcerVeille;

    // The duplication grid page: the station, one box per weekday and hour (Monday first, in
    // the grid's order), and the buttons that check (0) or clear (1) them all.
    QWidget* SftTabsDuplication = nullptr;
    QComboBox* ComboDuplicationStation = nullptr;
    std::array<QCheckBox*, kGridCells> CheckDuplication{};
    std::array<QPushButton*, 2> CommandDuplication{};
    void CheckDuplication_Click(int index);
    void CommandDuplication_Click(int index);
    // Writes the grid to its settings file, where the duplication reads it at each run.
    bool SaveDuplicationGrid();
    const DuplicationGrid& duplicationGrid() const { return duplicationGrid_; }

    // The FTP page: a connection test with the program's own client (server, account, folder,
    // mode kept for the next time; the password never).
    QLineEdit* TexteFtpServeur = nullptr;
    QLineEdit* TexteFtpUtilisateur = nullptr;
    QLineEdit* TexteFtpMotDePasse = nullptr;
    QLineEdit* TexteFtpDossier = nullptr;
    QCheckBox* CheckFtpPassif = nullptr;
    QLabel* LabelFtpResultat = nullptr;
    QListWidget* ListeFtp = nullptr;
    void CommandFtpTester_Click();

  private:
    QWidget* BuildBasePage(int base, QWidget* parent);
    QWidget* BuildDuplicationPage(QWidget* parent);
    QWidget* BuildFtpPage(QWidget* parent);
    void ShowDuplicationStation();
    // The controls from the settings as saved.
    void ShowSavedSettings();
    void MarkModified();
    int DuplicationStation() const;
    QTabWidget* tabs_;
    QWidget* logPage_;
    QListWidget* log_;
    DuplicationGrid duplicationGrid_;
    bool showingSaved_ = false;  // the boxes are being set from the settings, not by the user
    bool modified_ = false;      // a change the user made is not saved yet
};

}  // namespace toverin::ui
