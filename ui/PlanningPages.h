// The plans of the Backup, Export and Import tabs of every base, and the scheduler they drive.
#pragma once

#include <QObject>
#include <memory>

#include "operations/Scheduler.h"

class QComboBox;
class QGroupBox;
class QLineEdit;
class QWidget;

namespace toverin::ui {

class Frm_Main;

class PlanningPages : public QObject {
    Q_OBJECT
  public:
    explicit PlanningPages(Frm_Main* main);
    void Build();
    Scheduler& scheduler() { return scheduler_; }
    // Saves from the controls the plans of the bases that were changed (Yes at shutdown).
    void SaveModified();
    // Saves one base's plan ("Enregistrer").
    void Save(int base);

  private:
    QGroupBox* BuildPlan(PlanKind kind, int base, QWidget* page);
    void ReadControls(int base);
    void MarkModified(int base);
    static void ShowNature(QComboBox* combo, int nature);

    void ShowNextDate(PlanKind kind, int base, const std::string& text);

    Frm_Main* main_;
    Scheduler scheduler_;
    // The next-date box of each kind of plan, per base.
    std::array<std::array<QLineEdit*, kMaxBases>, 3> next_{};
    bool loading_ = false;
};

}  // namespace toverin::ui
