// The plans of the Backup, Export and Import tabs of every base, and the scheduler they drive.
#pragma once

#include <QObject>
#include <memory>

#include "operations/Scheduler.h"

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
    // Saves every base's plan from the controls ("Enregistrer", or Yes at shutdown).
    void SaveAll();
    void Save(int base);

  private:
    QGroupBox* BuildPlan(PlanKind kind, int base, QWidget* page);
    void ReadControls(int base);
    void MarkModified();

    void ShowNextDate(PlanKind kind, int base, const std::optional<LocalTime>& due);

    Frm_Main* main_;
    Scheduler scheduler_;
    // The next-date box of each kind of plan, per base.
    std::array<std::array<QLineEdit*, kMaxBases>, 3> next_{};
    bool loading_ = false;
};

}  // namespace toverin::ui
