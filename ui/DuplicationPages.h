// The Duplication tab: per base, the pages "Conducteur musical" (music-schedule duplication) and
// "Libellés" (label duplication), their controls and their progress texts.
#pragma once

#include <QObject>
#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "app/Site.h"

class QCheckBox;
class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTabWidget;
class QWidget;

namespace toverin {
class EquivalenceTable;
class ProgressObserver;
}  // namespace toverin

namespace toverin::ui {

class Frm_Main;

// The controls of one base's "Conducteur musical" page.
struct ScheduleDuplicationPage {
    QComboBox* ComboDuplicationStationSource = nullptr;
    QDateEdit* DTPickerDuplicationDateDeb = nullptr;
    QDateEdit* DTPickerDuplicationDateFin = nullptr;
    QComboBox* ComboDuplicationHHDeb = nullptr;
    QComboBox* ComboDuplicationHHFin = nullptr;
    QCheckBox* CheckDuplication = nullptr;
    QListWidget* ListeDuplicationStationsCibles = nullptr;
    QDateEdit* DTPickerDuplicationDateCible = nullptr;
    QComboBox* ComboDuplicationHHDebCible = nullptr;
    QPushButton* CommandDuplication = nullptr;
    // Item 1 the day worked on, items 2 and 3 the key and the record being copied.
    std::array<QLineEdit*, 3> TexteDuplication{};
    QLabel* LabelDuplication = nullptr;  // the phase
};

// The controls of one base's "Libellés" page.
struct LabelDuplicationPage {
    QComboBox* ComboDuplicationStationSourceLibelle = nullptr;
    QListWidget* ListeDuplicationStationsCiblesLibelles = nullptr;
    QCheckBox* CheckDupliquerCategorie = nullptr;
    QCheckBox* CheckDupliquerSujet = nullptr;
    QCheckBox* CheckDupliquerHorloge = nullptr;
    QCheckBox* CheckDupliquerMorceauMus = nullptr;
    QCheckBox* CheckDupliquerMorceauJin = nullptr;
    QCheckBox* CheckDupliquerMorceauLin = nullptr;
    QCheckBox* CheckDupliquerMorceauRub = nullptr;
    QCheckBox* CheckDupliquerMorceauInf = nullptr;
    QCheckBox* CheckChangerCategorie = nullptr;
    QCheckBox* CheckZonesActives = nullptr;
    QPushButton* CommandDuplicationLibelle = nullptr;
    QLineEdit* TexteDuplicationLibelle = nullptr;  // the label being copied
    QLabel* LabelDuplicationLibelle = nullptr;     // the group being copied
};

class DuplicationPages : public QObject {
    Q_OBJECT
  public:
    explicit DuplicationPages(Frm_Main* main);
    ~DuplicationPages() override;
    void Build();

    ScheduleDuplicationPage& schedule(int base) { return schedule_.at(static_cast<size_t>(base)); }
    LabelDuplicationPage& labels(int base) { return labels_.at(static_cast<size_t>(base)); }
    QTabWidget* tabs(int base) const { return tabs_.at(static_cast<size_t>(base)); }

    // The base's equivalence table as the Equivalence tab holds it (unsaved changes included);
    // without one, a run reads the table from its file.
    std::function<const EquivalenceTable*(int base)> equivalence;

    void CommandDuplication_Click(int base);
    void CommandDuplicationLibelle_Click(int base);

  private:
    void BuildSchedulePage(int base, QWidget* page);
    void BuildLabelPage(int base, QWidget* page);

    Frm_Main* main_;
    std::vector<QTabWidget*> tabs_;
    std::vector<ScheduleDuplicationPage> schedule_;
    std::vector<LabelDuplicationPage> labels_;
};

}  // namespace toverin::ui
