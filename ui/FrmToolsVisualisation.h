// The data viewer ("Visualisation des données"): the records of any file of any base and station
// over a key range, one record per row and one field per column, and their export to Excel or
// XML. Read-only: it positions and reads through a slot bank of its own.
#pragma once

#include <QWidget>
#include <array>

#include "store/RecordCursor.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QTabBar;
class QTableView;

namespace toverin::ui {

class RecordTableModel;

class FrmToolsVisualisation : public QWidget {
    Q_OBJECT
  public:
    explicit FrmToolsVisualisation(QWidget* parent = nullptr);
    ~FrmToolsVisualisation() override;

    void Form_Load();
    void SftTabsBases_Switched(int base);
    // VisuData on the controls' choice: fills the grid.
    void CommandVisualiser_Click();
    void CommandVisualisationExporter_Click();

    // The listing the controls describe (base, station, file, key, start and limit values).
    CursorSpec SpecFromControls() const;
    // Chooses a file, a station and a key as a user would (tests, the benchmark).
    void Choose(int base, int fileNumber, int station, int keyNumber, const QString& from = {},
                const QString& to = {});

    RecordTableModel* model() const { return model_; }
    QTableView* grid() const { return fpSpreadVisualisation; }

    QTabBar* SftTabsBases;
    QListWidget* ListeDesFichiers;
    QComboBox* ComboVisualisationStation;
    QComboBox* ComboVisualisationNoCle;
    std::array<QLineEdit*, 2> TextCle;
    QPushButton* CommandVisualiser;
    QPushButton* CommandVisualisationExporter;
    QCheckBox* CheckExportExcel;
    QLabel* LabelCleVisualisation;
    QPlainTextEdit* TexteStructure;
    QTableView* fpSpreadVisualisation;
    QLabel* LabelNbEnregistrements;

  private:
    void FillStations();
    void ShowKeyDescription();
    void ShowCount(qint64 rows, bool complete);
    void OpenExportWindow(bool excel);
    int SelectedFile() const;

    RecordTableModel* model_;
    CursorSpec shown_;  // the listing in the grid
};

// The menu entry "Visualisation...": opens the viewer unless the options lock the tool.
// Returns the window, or nullptr when the tool is locked.
FrmToolsVisualisation* OpenVisualisation(QWidget* parent);
// The tools lock "(Dé)verrouiller utilitaires: Visualisation" of the options.
bool VisualisationLocked();
void SetVisualisationLocked(bool locked);

}  // namespace toverin::ui
