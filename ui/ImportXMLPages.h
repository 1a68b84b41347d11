// The "Import XML" page of the Import tab of every base (module Lib_ImportXML): the source folder
// and its "*.xml" files, the records of a delivery shown section by section in a list view
// sortable by any column, and the import into a chosen base and station, or its validation.
#pragma once

#include <QAbstractTableModel>
#include <QObject>
#include <memory>
#include <string>
#include <vector>

#include "content/ImportXMLFormat.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTimer;
class QTreeView;

namespace toverin::ui {

class Frm_Main;

// The records of one section of a delivery, kept as their lines and cut into columns when shown,
// so that a file of a hundred thousand records costs its lines and no more.
class ImportXMLModel : public QAbstractTableModel {
    Q_OBJECT
  public:
    explicit ImportXMLModel(QObject* parent = nullptr);
    void Reset(const XmlSectionInfo* section, std::vector<std::string> lines);
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    // TriColonneListView: the rows in the order of a column's texts.
    void sort(int column, Qt::SortOrder order) override;
    // The texts of a row as shown (UTF-8), for the tests.
    std::vector<std::string> Row(int row) const;

  private:
    const std::vector<std::string>& Cells(int row) const;

    const XmlSectionInfo* section_ = nullptr;
    std::vector<std::string> columns_;
    std::vector<std::string> lines_;
    std::vector<int> order_;  // shown row -> line
    mutable int cachedLine_ = -1;
    mutable std::vector<std::string> cached_;
};

class ImportXMLPages : public QObject {
    Q_OBJECT
  public:
    explicit ImportXMLPages(Frm_Main* main);
    void Build();

  private:
    struct Page {
        int base = 0;
        QLineEdit* dossier = nullptr;  // TexteImportXMLDossierSource
        QListWidget* fichiers = nullptr;
        QComboBox* type = nullptr;  // ComboTypeImportXML
        QTreeView* liste = nullptr;
        ImportXMLModel* model = nullptr;
        QComboBox* cible = nullptr;      // ComboImportXMLBase
        QComboBox* station = nullptr;    // ComboImportXMLStation
        QComboBox* categorie = nullptr;  // ComboImportXMLCategorie
        QCheckBox* validation = nullptr;
        QPushButton* importer = nullptr;
        QProgressBar* progression = nullptr;
        QLabel* etat = nullptr;
        QListWidget* refus = nullptr;
        QTimer* largeurs = nullptr;  // saves the column widths once a resize is over
        std::string fichier;         // the file loaded
        bool loading = false;        // the settings are being shown: nothing to save
    };

    void BuildPage(Page& page, QWidget* parent);
    void ImportXMLInitGeneral(Page& page);
    void CommandImportXMLDossier_Click(Page& page);
    void ListeFichiers(Page& page);
    void CommandImportXMLCharger_Click(Page& page);
    // ImportXMLInitListView and ImportXMLAjoutLigneListView: the records of the section chosen.
    void ImportXMLInitListView(Page& page, bool newFile);
    void ImportXMLInitListViewPosLargeur(Page& page);
    void SaveColumnWidths(Page& page);
    void FillStations(Page& page);
    void FillCategories(Page& page);
    void CommandImportXML_Click(Page& page);
    void SaveSettings(Page& page);
    std::string ShownSection(const Page& page) const;

    Frm_Main* main_;
    std::vector<std::unique_ptr<Page>> pages_;
};

}  // namespace toverin::ui
