// The Equivalence tab: one page per base with the station chooser, the tree of that station's
// songs and categories, the grid of the table (one column per station) and its hidden twin of
// codes, the cell menu and the save button. The table itself lives in content/: the two grids
// are two views of it, one showing the texts, the other the codes.
#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QObject>
#include <QTableView>
#include <QTreeWidget>
#include <functional>
#include <memory>
#include <vector>

#include "content/EquivalenceCatalogue.h"
#include "content/EquivalenceTable.h"
#include "store/Pervasive.h"

class QAction;
class QComboBox;
class QLabel;
class QMenu;
class QPushButton;

namespace toverin::ui {

class Frm_Main;

// The drag's data: the tree node's key (Windows-1252 bytes).
inline constexpr const char* kEquivalenceNodeMime = "application/x-kavella-equivalence-node";

// One grid of the table: the texts (MSFlexGridEquivalence) or the codes
// (MSFlexGridEquivalenceCode). Row i is grid row i + 1 (the row number), column j station j + 1;
// the headers are the fixed row and column.
class EquivalenceGridModel : public QAbstractTableModel {
    Q_OBJECT
  public:
    enum class Shows { Texts, Codes };
    EquivalenceGridModel(const EquivalenceTable& table, Shows shows, int base,
                         QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // The table changed: rows shown (the last used one and some room below it), every cell.
    void Refresh();
    void CellChanged(int rowNumber, int station);
    // The station whose tree is shown, whose column is marked.
    void setShownStation(int station);

  private:
    const EquivalenceTable& table_;
    Shows shows_;
    int base_;
    int rows_ = 0;
    int shownStation_ = 1;
};

// The tree of a station's catalogue; a drag carries the node's key.
class EquivalenceTree : public QTreeWidget {
    Q_OBJECT
  public:
    using QTreeWidget::QTreeWidget;
    static QByteArray KeyOf(const QTreeWidgetItem* item);
    // The data a drag of `item` carries.
    QMimeData* NodeMimeData(QTreeWidgetItem* item) const;

  protected:
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QList<QTreeWidgetItem*>& items) const override;
};

// The visible grid: takes the tree's drops and opens the cell menu.
class EquivalenceGrid : public QTableView {
    Q_OBJECT
  public:
    using QTableView::QTableView;
    // A node dropped on the cell of (row number, station).
    std::function<void(const QByteArray& key, int rowNumber, int station)> dropped;
    // The right button pressed on the cell of (row number, station).
    std::function<void(int rowNumber, int station, const QPoint& globalPos)> cellMenu;

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
};

struct EquivalencePage {
    int base = 0;
    QComboBox* ComboEquivalenceStation = nullptr;
    EquivalenceTree* TreeViewEquivalence = nullptr;
    EquivalenceGrid* MSFlexGridEquivalence = nullptr;
    QTableView* MSFlexGridEquivalenceCode = nullptr;
    QPushButton* CommandEnregistrerEquivalence = nullptr;
    QLabel* LabelEquivalence = nullptr;  // rows, and whether the table was read whole

    EquivalenceTable table;
    StationCatalogue catalogue;
    EquivalenceGridModel* texts = nullptr;
    EquivalenceGridModel* codes = nullptr;
    bool loaded = false;  // the last load could open the file
};

class EquivalencePages : public QObject {
    Q_OBJECT
  public:
    explicit EquivalencePages(Frm_Main* main);
    ~EquivalencePages() override;

    // The controls of every base's page (start-up step "Create Object" / "Data").
    void Build();
    // Start-up steps "TreeView", "Grid" and "Equivalence": every base's tree, grids and table.
    void InitGeneralTreeView();
    void InitGeneralGrid();
    void InitGeneralDonneesEquivalence();

    // The tree of the station chosen in the page's combo.
    void TreeViewChargerDonnees(int base);
    void TreeViewPopulate(int base);
    // Writes the page's table to its file; false (and a message) when it could not.
    bool SaveSettingsEquivalence(int base);
    void CommandEnregistrerEquivalence_Click(int base);
    // Saves every modified table (the shutdown question's Yes).
    void SaveAll();

    // A tree node dropped on a cell of the visible grid.
    void MSFlexGridEquivalence_MouseUp(int base, const QByteArray& key, int rowNumber, int station);
    // The cell menu of a cell (right button), and its two entries.
    void MSFlexGridEquivalence_MouseDown(int base, int rowNumber, int station,
                                         const QPoint& globalPos);
    void MnuEquiViderCellule_Click();
    void MnuEquiViderLigne_Click();

    EquivalencePage& page(int base) { return *pages_.at(static_cast<size_t>(base)); }
    int pageCount() const { return static_cast<int>(pages_.size()); }
    QMenu* FrmMenu() const { return menu_; }
    QAction* MnuEquiViderCellule() const { return viderCellule_; }
    QAction* MnuEquiViderLigne() const { return viderLigne_; }

  private:
    void BuildPage(int base);
    void Changed(EquivalencePage& page, int rowNumber, int station);
    void ShowState(EquivalencePage& page);
    void NoteModified();

    Frm_Main* main_;
    SlotBank bank_{"Equivalence"};
    std::vector<std::unique_ptr<EquivalencePage>> pages_;
    QMenu* menu_ = nullptr;
    QAction* viderCellule_ = nullptr;
    QAction* viderLigne_ = nullptr;
    // The cell the menu was opened on.
    int menuBase_ = -1;
    int menuRow_ = 0;
    int menuStation_ = 0;
};

}  // namespace toverin::ui
