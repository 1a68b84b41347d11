// The options window: the program's log and, per base, the settings the operations read.
#pragma once

#include <QDialog>
#include <array>

#include "content/DuplicationGrid.h"

class QListWidget;
class QCheckBox;
class QComboBox;
class QPushButton;

namespace toverin::ui {

class FrmSetup : public QDialog {
    Q_OBJECT
  public:
    explicit FrmSetup(QWidget* parent = nullptr);
    void RefreshLog();
    // Writes every base's backup settings from the controls.
    void SaveBaseSettings();
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

  private:
    QWidget* BuildBasePage(int base, QWidget* parent);
    QWidget* BuildDuplicationPage(QWidget* parent);
    void ShowDuplicationStation();
    int DuplicationStation() const;
    QListWidget* log_;
    DuplicationGrid duplicationGrid_;
    bool showingGrid_ = false;  // the boxes are being set from the grid, not by the user
};

}  // namespace toverin::ui
