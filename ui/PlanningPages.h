// The plans of the Backup, Export and Import tabs of every base, and the scheduler they drive.
#pragma once

#include <QObject>
#include <memory>

#include "operations/Scheduler.h"

class QComboBox;
class QGroupBox;
class QWidget;

namespace toverin::ui {

class Frm_Main;
class QtOperationView;

class PlanningPages : public QObject {
    Q_OBJECT
  public:
    PlanningPages(Frm_Main* main, QtOperationView& view);
    void Build();
    Scheduler& scheduler() { return scheduler_; }
    // Saves from the controls the plans of the bases that were changed (Yes at shutdown).
    void SaveModified();
    // Saves one base's plan ("Enregistrer").
    void Save(int base);

  private:
    enum class Kind { Backup, Export, Import };
    QGroupBox* BuildPlan(Kind kind, int base, QWidget* page);
    void ReadControls(int base);
    void MarkModified(int base);
    static void ShowNature(QComboBox* combo, int nature);

    Frm_Main* main_;
    Scheduler scheduler_;
    bool loading_ = false;
};

}  // namespace toverin::ui
