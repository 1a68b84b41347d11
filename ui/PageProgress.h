// A page's own observer of the runs it starts: the typed progress events of an operation shown on
// the widgets that page built. A page fills in the widgets it has (the others stay null and their
// events are simply not shown) and hands the observer to the operations it starts; the window
// keeps each page's observer so that the scheduler and other callers can find it too.
#pragma once

#include <QPointer>
#include <array>

#include "app/Progress.h"

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QWidget;

namespace toverin::ui {

struct PageWidgets {
    QWidget* window = nullptr;  // whose title shows the run's caption
    QLabel* file = nullptr;     // the file or phase worked on
    QLabel* key = nullptr;      // the key reached
    QProgressBar* files = nullptr;
    QProgressBar* stations = nullptr;
    QProgressBar* records = nullptr;
    QLineEdit* start = nullptr;
    QLineEdit* end = nullptr;
    QLineEdit* duration = nullptr;
    QLabel* result = nullptr;  // how the last run ended
    QPushButton* pause = nullptr;
    QPushButton* stop = nullptr;
    QLineEdit* lastBackup = nullptr;   // the last good backup
    QLabel* age = nullptr;             // how old the last good backup is
    std::array<QLineEdit*, 7> days{};  // the last backup of each weekday, Monday first
};

class PageProgress final : public ProgressObserver {
  public:
    explicit PageProgress(const PageWidgets& widgets) : w_(widgets) {}
    void OnProgress(const progress::Event& event) override;
    const PageWidgets& widgets() const { return w_; }

    // The text a page shows for a run that ended as `ended` says.
    static QString OutcomeText(const progress::Ended& ended);
    // A backup's date as the tab shows it: its long date and time, and whether files failed.
    static QString BackupDateText(LocalTime time, bool complete);

  private:
    void Clear();
    PageWidgets w_;
};

}  // namespace toverin::ui
