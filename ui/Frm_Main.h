// The main window: one tab per activity, each with one page per configured base; the start-up
// sequence that runs while the splash shows, the timers, closing and the unload sequence.
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QTabWidget>
#include <QTimer>
#include <array>
#include <functional>
#include <vector>

#include "app/Progress.h"

class QAction;
class QVBoxLayout;

namespace toverin::ui {

class FrmSplash;
class EquivalencePages;
class DuplicationPages;
class ImportXMLPages;
class OperationPages;
class PlanningPages;
class FrmSysTray;
class FrmSetup;
class SingleInstance;

enum class MainTab {
    Backup,
    Restauration,
    Creation,
    Export,
    Import,
    Equivalence,
    Duplication,
    Incidents
};
inline constexpr int kMainTabCount = 8;
const char* MainTabTitle(MainTab tab);

// Close reasons, by unload mode.
enum UnloadMode {
    kFormControlMenu = 0,
    kFormCode = 1,
    kAppWindows = 2,
    kAppTaskManager = 3,
    kFormMdiForm = 4,
    kFormOwner = 5
};
std::string CloseReason(int unloadMode);

class Frm_Main : public QMainWindow {
    Q_OBJECT
  public:
    explicit Frm_Main(SingleInstance* instance, QWidget* parent = nullptr);
    ~Frm_Main() override;

    // The load sequence. False when the program must end (second instance, cancelled start,
    // one-shot backup done); the window has then already been unloaded.
    bool Form_Load();
    // Closes the window as `unloadMode` says (logs the reason, runs the unload sequence).
    void CloseWithMode(int unloadMode);
    // The menu command "Quitter".
    void MnuQuitter_Click();
    // The lock and the question of "Quitter", also asked by the window's close button.
    bool ConfirmQuit();
    // Standby: hides the window (the tray shows it again).
    void EnterStandby();
    // The standby button and menu entry.
    void CommandMiseEnVeille_Click();
    // "Journal du jour": the day's log in the desktop's editor, or on the options window's log
    // page when no program opens it.
    void MnuLectureLog_Click();
    // The options window, once it has been shown.
    FrmSetup* setupWindow() const;
    void ShowFromStandby();
    // The tray's tooltip: the last and next backups, a warning after a failed planned run.
    void UpdateTrayStatus();

    // The page of `tab` for base `base` (0-based); later operations put their controls there.
    QWidget* BasePage(MainTab tab, int base) const;
    QVBoxLayout* BasePageLayout(MainTab tab, int base) const;
    QTabWidget* SftTabsMain() const { return tabs_; }
    QTabWidget* BaseTabs(MainTab tab) const { return baseTabs_[static_cast<int>(tab)]; }
    // The observer of the runs of `tab`'s page for base `base`: the page sets it when it builds
    // its widgets, and whoever starts an operation of that page (its buttons, the scheduler)
    // hands it this one. A page without one gets an observer that shows nothing.
    void SetPageObserver(MainTab tab, int base, ProgressObserver* observer);
    ProgressObserver& PageObserver(MainTab tab, int base);

    QTimer* TimerMain;
    QTimer* TimerVeille;
    QTimer* TimerIncidents;

    // Hooks the operations fill in: the one-shot backup of "/Backup_Base=", the scheduler tick and
    // the save of the equivalence table and of the planning at shutdown.
    std::function<void(int base)> commandLineBackup;
    std::function<void()> timerMainTick;
    std::function<void()> saveEquivalence;
    std::function<void()> savePlanning;
    std::function<void()> initOperations;

    bool unloaded() const { return unloaded_; }
    // The process's exit status once the window is unloaded: the outcome of a "/Backup_Base="
    // run (0 only for a good one), else 0.
    int exitStatus() const { return exitStatus_; }
    static constexpr int kExitBackupFailed = 1;  // failed, incomplete or stopped
    static constexpr int kExitNoSuchBase = 2;
    OperationPages* pages() const { return operationPages_; }
    PlanningPages* planning() const { return planning_; }
    EquivalencePages* equivalence() const { return equivalence_; }
    DuplicationPages* duplication() const { return duplication_; }
    FrmSysTray* tray() const { return tray_; }
    // The program is locked by the user-rights lock (quitting is refused).
    bool locked = false;
    std::string versionText() const;

  signals:
    // The unload sequence has run: the program can end.
    void Unloaded();

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void BuildWindow();
    void InitGeneral();
    void Announce(const std::string& step, bool logged);
    void RunStep(const std::string& announcement, bool logged, const std::function<void()>& step);
    void Form_Unload();
    void PositionFeuille();
    void PositionFeuilleSauvegarde();
    void TimerVeille_Timer();
    void RunCommandLineBackup(int base);
    void CheckBackupsAtStartup(bool warn);
    void TimerMain_Timer();
    void ShowSetup();
    void ShowAbout();

    SingleInstance* instance_;
    QTabWidget* tabs_ = nullptr;
    std::array<QTabWidget*, kMainTabCount> baseTabs_{};
    std::array<std::vector<QWidget*>, kMainTabCount> pages_;
    std::array<std::vector<ProgressObserver*>, kMainTabCount> observers_;
    NullProgress nobody_;
    QPointer<FrmSplash> splash_;
    OperationPages* operationPages_ = nullptr;
    PlanningPages* planning_ = nullptr;
    EquivalencePages* equivalence_ = nullptr;
    DuplicationPages* duplication_ = nullptr;
    ImportXMLPages* importXml_ = nullptr;
    FrmSysTray* tray_ = nullptr;
    QPointer<FrmSetup> setup_;
    QTimer* timerLog_;
    int pendingUnloadMode_ = kFormControlMenu;
    bool closeByCode_ = false;  // false: the window's close button
    bool unloaded_ = false;
    bool enterStandby_ = false;
    bool closeAfterRun_ = false;  // a close waits for the run under way to stop
    int exitStatus_ = 0;
};

}  // namespace toverin::ui
