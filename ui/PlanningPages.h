// The plans of the Backup, Export and Import tabs of every base, and the scheduler they drive.
#pragma once

#include <QObject>
#include <memory>

#include "operations/Scheduler.h"

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
    // Saves every base's plan from the controls ("Enregistrer", or Yes at shutdown).
    void SaveAll();
    void Save(int base);

  private:
    enum class Kind { Backup, Export, Import };
    QGroupBox* BuildPlan(Kind kind, int base, QWidget* page);
    void ReadControls(int base);
    void MarkModified();

    Frm_Main* main_;
    Scheduler scheduler_;
    bool loading_ = false;
};

}  // namespace toverin::ui
