#include "ui/Frm_Main.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QVBoxLayout>
#include <algorithm>
#include <stdexcept>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Initialisation.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "app/Text.h"
#include "operations/Backup.h"
#include "operations/BackupHealth.h"
#include "operations/OperationState.h"
#include "store/Pervasive.h"
#include "ui/ClickOnlyMenu.h"
#include "ui/DuplicationPages.h"
#include "ui/EquivalencePages.h"
#include "ui/FrmSetup.h"
#include "ui/FrmSplash.h"
#include "ui/FrmSysTray.h"
#include "ui/FrmToolsVisualisation.h"
#include "ui/ImportXMLPages.h"
#include "ui/OperationPages.h"
#include "ui/PlanningPages.h"
#include "ui/SingleInstance.h"
#include "ui/Widgets.h"

namespace toverin::ui {

namespace {

const char* kOptionKey = "Software\\Brennick\\KV3_Toverin\\Option_";
const char* kToolsKey = "Software\\Brennick\\KV3_Toverin\\Tools_";

// At a close during a run, the dialog the run waits on (a question, a file dialog, an export's
// progress) gets its cancel answer: otherwise a shutdown, or a second start asking this one to
// quit, would wait for somebody to answer it.
void DismissWaitingDialog() {
    QWidget* modal = QApplication::activeModalWidget();
    if (auto* progress = qobject_cast<QProgressDialog*>(modal)) {
        progress->cancel();
    } else if (auto* dialog = qobject_cast<QDialog*>(modal)) {
        dialog->reject();
    } else if (modal) {
        modal->close();
    }
}

}  // namespace

const char* MainTabTitle(MainTab tab) {
    static const char* titles[] = {"Backup", "Restauration", "Création",    "Export",
                                   "Import", "Equivalence",  "Duplication", "Incidents"};
    return titles[static_cast<int>(tab)];
}

std::string CloseReason(int mode) {
    switch (mode) {
        case 0:
            return "Form closed by system Menu";
        case 1:
            return "Form closed by code action";
        case 2:
            return "Form closed because Windows is shutting down";
        case 3:
            return "Form closed by the Taskmanager";
        case 4:
            return "Form closed because MDI Form closed";
        case 5:
            return "Form closed by the owner";
        default:
            return "Form closed: Unknow mode: " + std::to_string(mode);
    }
}

Frm_Main::Frm_Main(SingleInstance* instance, QWidget* parent)
    : QMainWindow(parent), instance_(instance) {
    setObjectName("Frm_Main");
    TimerMain = new QTimer(this);
    TimerMain->setObjectName("TimerMain");
    TimerMain->setInterval(30000);
    TimerVeille = new QTimer(this);
    TimerVeille->setObjectName("TimerVeille");
    TimerVeille->setInterval(100);
    TimerIncidents = new QTimer(this);
    TimerIncidents->setObjectName("TimerIncidents");
    TimerIncidents->setInterval(500);
    // The log is written at least every second, so a crash loses almost nothing.
    timerLog_ = new QTimer(this);
    timerLog_->setObjectName("TimerLog");
    timerLog_->setInterval(1000);
    connect(timerLog_, &QTimer::timeout, this, [] { TraceLogForce(); });
    connect(TimerMain, &QTimer::timeout, this, &Frm_Main::TimerMain_Timer);
    connect(TimerVeille, &QTimer::timeout, this, &Frm_Main::TimerVeille_Timer);
    timerLog_->start();
}

Frm_Main::~Frm_Main() = default;

std::string Frm_Main::versionText() const {
    return std::string("V ") + TOVERIN_VERSION;
}

void Frm_Main::Announce(const std::string& step, bool logged) {
    if (!splash_ || !Startup().splashVisible) return;
    splash_->Announce(Q(step));
    if (logged) TraceLog("----- " + step + " -----");
}

void Frm_Main::RunStep(const std::string& announcement, bool logged,
                       const std::function<void()>& step) {
    // Guarded on its own: a step that fails is reported and the next one still runs.
    Guarded("Form_Load:Frm_Main:" + announcement, 0, [&] {
        Announce(announcement, logged);
        step();
        return 0;
    });
}

bool Frm_Main::Form_Load() {
    StartupState& st = Startup();
    bool abort = false;
    if (st.componentsMissing) abort = true;

    if (!abort) {
        CreateSuiteMarker();
        st.startTick = GetTickCount64();
        st.startTime = AppClock().Now();
        SetAppCaption(versionText() + " - Kavella: Toverin");
        setWindowTitle(Q(AppCaption()));
        if (!TesterPrevInstance(*instance_, false, 15000)) abort = true;
    }

    if (!abort) {
        splash_ = new FrmSplash();
        splash_->show();
        st.splashVisible = true;
        InitResult init = InitApplication([this](const std::string& s) { Announce(s, false); },
                                          st.ChaineDeCommande);
        if (init != InitResult::Ok) {
            // The user chose to end the program, or the system asked it to stop during a wait:
            // no shutdown sequence, and nothing of what the command line asked for.
            TraceLog(init == InitResult::Cancelled
                         ? "InitGeneralSite: Cancelled by the user"
                         : "Init: Stop requested by the system: the program ends");
            TraceLogForce();
            delete splash_;
            unloaded_ = true;
            return false;
        }
        instance_->Listen([this](const QByteArray& request) {
            if (request == "quit") CloseWithMode(kFormCode);
        });
        RunStep("Toverin: Init: General", false, [this] { InitGeneral(); });
        RunStep("Toverin: Init: Create Object", true, [this] { BuildWindow(); });
        RunStep("Toverin: Init: Data", true, [this] {
            operationPages_ = new OperationPages(this);
            operationPages_->Build();
            planning_ = new PlanningPages(this);
            planning_->Build();
            planning_->scheduler().standbyCheck = [this] { TimerVeille_Timer(); };
            planning_->scheduler().afterTick = [this] { UpdateTrayStatus(); };
            operationPages_->afterBackup = [this](int base) {
                planning_->scheduler().DetermineDateProchainBackup(base);
            };
            importXml_ = new ImportXMLPages(this);
            importXml_->Build();
            if (!timerMainTick)
                timerMainTick = [this] { planning_->scheduler().TimerMain_Timer(); };
            if (!savePlanning) savePlanning = [this] { planning_->SaveModified(); };
            equivalence_ = new EquivalencePages(this);
            equivalence_->Build();
            if (!saveEquivalence) saveEquivalence = [this] { equivalence_->SaveAll(); };
            duplication_ = new DuplicationPages(this);
            duplication_->Build();
            // The schedule duplication uses the table as the Equivalence tab holds it.
            duplication_->equivalence = [this](int base) -> const EquivalenceTable* {
                if (base < 0 || base >= equivalence_->pageCount()) return nullptr;
                const EquivalencePage& page = equivalence_->page(base);
                return page.loaded ? &page.table : nullptr;
            };
            tray_ = new FrmSysTray([this] { ShowFromStandby(); }, [this] { ShowAbout(); }, this);
            if (initOperations) initOperations();
        });
        // The steps after it need what the data step made; each says so when it is missing.
        auto equivalence = [this]() -> EquivalencePages& {
            if (!equivalence_) throw std::logic_error("the equivalence pages were not made");
            return *equivalence_;
        };
        RunStep("Toverin: Init: TreeView", true, [&] { equivalence().InitGeneralTreeView(); });
        RunStep("Toverin: Init: Grid", true, [&] { equivalence().InitGeneralGrid(); });
        RunStep("Toverin: Init: Display", true, [this] { PositionFeuille(); });
        RunStep("Toverin: Init: Equivalence", true,
                [&] { equivalence().InitGeneralDonneesEquivalence(); });
        splash_->close();
        delete splash_;
        st.splashVisible = false;
        st.mainWindowLoaded = true;
        TraceLogEncadre(
            "----- Init: Duration: " + std::to_string(GetTickCount64() - st.startTick) + " ms",
            '=');

        bool forceStandby =
            Trim(GetRegValue(kHkeyCurrentUser, kOptionKey, "ForcerVeille", "0")) == "1";
        if (CommandLineAsksStandby(st.ChaineDeCommande) || forceStandby) {
            st.standby = true;
            enterStandby_ = true;
            TimerVeille->start();
        }
        const bool commandLineRun = CommandLineAsksBackup(st.ChaineDeCommande);
        CheckBackupsAtStartup(!commandLineRun && !st.standby && !st.unattended);
        if (TerminationRequested()) {
            abort = true;  // stopped meanwhile: the one-shot backup does not start
        } else if (commandLineRun) {
            RunCommandLineBackup(st.BackupBase);
            abort = true;
        }
    }

    if (abort) {
        if (st.mainWindowLoaded) {
            CloseWithMode(TerminationRequested() ? kAppWindows : kFormCode);
        } else {
            unloaded_ = true;  // nothing was loaded: end without touching any file
        }
        return false;
    }

    const BaseConfig& base = Site().bases[Site().currentBase - 1];
    SetAppCaption(base.radioIdentity + " - " + versionText() + " - Kavella: Toverin");
    setWindowTitle(Q(AppCaption()));
    TraceLogEncadre("Id Radio: " + base.radioIdentity, '=');
    UpdateTrayStatus();
    TimerMain->start();
    TraceLogForce();
    return true;
}

// The one-shot backup of "/Backup_Base=": nobody watches it, and its outcome is the program's exit
// status, so that a cron job or a service manager sees a failed night.
void Frm_Main::RunCommandLineBackup(int base) {
    if (commandLineBackup) {
        commandLineBackup(base);
        return;
    }
    if (base >= Site().baseCount) {
        TraceLog("Backup Base: " + std::to_string(base) + ": no such base");
        exitStatus_ = kExitNoSuchBase;
        return;
    }
    UnattendedScope unattended;
    const BackupOutcome outcome = BackupData(base, false, PageObserver(MainTab::Backup, base));
    exitStatus_ = outcome.Good() ? 0 : kExitBackupFailed;
    TraceLog("Backup Base: " + std::to_string(base) + ": exit status " +
             std::to_string(exitStatus_));
}

// A backup a crash interrupted, and the bases whose backups are too old or were missed: set
// right, recorded as incidents, and said once when somebody is there to read it.
void Frm_Main::CheckBackupsAtStartup(bool warn) {
    std::string warnings;
    const LocalTime now = AppClock().Now();
    for (int b = 0; b < Site().baseCount && b < static_cast<int>(Site().bases.size()); ++b) {
        const std::string text = CheckBackupAtStartup(b, planning_->scheduler().Plan(b).backup,
                                                      LoadBackupOptions(b).staleDays, now);
        if (!text.empty()) warnings += "- " + text + "\r\n";
        operationPages_->ShowBackupState(b);
    }
    if (warn && !warnings.empty())
        AffMsg("Attention, les backups suivants sont à vérifier :\r\n\r\n" + warnings,
               MsgButtons::Ok, MsgIcon::Exclamation);
}

void Frm_Main::InitGeneral() {
    TraceLog("FrmMain: Init General: Start");
    GetRegValue(kHkeyCurrentUser, kToolsKey, "Visualisation", "");
    locked = Trim(GetRegValue(kHkeyCurrentUser, kOptionKey, "Verrouillage", "0")) == "1";
    // A workstation is restarted on an automation error only when the site asked for it.
    RebootForbidden() =
        Trim(GetRegValue(kHkeyCurrentUser, kOptionKey, "RebootErreurAutomation", "0")) != "1";
    TraceLog("FrmMain: Init General: End");
}

void Frm_Main::BuildWindow() {
    auto* menu = menuBar()->addMenu("Fichier");
    menu->setObjectName("Mnu01");
    QAction* veille = menu->addAction("Mise en veille");
    veille->setObjectName("Mnu01Veille");
    connect(veille, &QAction::triggered, this, &Frm_Main::CommandMiseEnVeille_Click);
    QAction* journal = menu->addAction("Journal du jour");
    journal->setObjectName("MnuLectureLog");
    connect(journal, &QAction::triggered, this, &Frm_Main::MnuLectureLog_Click);
    QAction* options = menu->addAction("Options...");
    options->setObjectName("Mnu01Options");
    connect(options, &QAction::triggered, this, &Frm_Main::ShowSetup);
    menu->addSeparator();
    QAction* quit = menu->addAction("Quitter");
    quit->setObjectName("MnuQuitter");
    connect(quit, &QAction::triggered, this, &Frm_Main::MnuQuitter_Click);
    auto* tools = menuBar()->addMenu("Outils");
    tools->setObjectName("MnuOutils");
    QAction* visualisation = tools->addAction("Visualisation...");
    visualisation->setObjectName("MnuVisualisation");
    connect(visualisation, &QAction::triggered, this, [this] { OpenVisualisation(this); });
    auto* help = menuBar()->addMenu("?");
    help->setObjectName("Mnu02");
    QAction* about = help->addAction(QString::fromUtf8("A propos de Toverin..."));
    about->setObjectName("MnuAbout");
    connect(about, &QAction::triggered, this, &Frm_Main::ShowAbout);
    for (QMenu* m : {menu, help}) ClickOnlyMenu::Install(m);

    tabs_ = new QTabWidget(this);
    tabs_->setObjectName("SftTabsMain");
    for (int t = 0; t < kMainTabCount; ++t) {
        auto* bases = new QTabWidget(tabs_);
        baseTabs_[t] = bases;
        bases->setObjectName(QString("SftTabsBases_%1").arg(t));
        for (int b = 0; b < Site().baseCount; ++b) {
            auto* page = new QWidget(bases);
            page->setObjectName(
                QString("Page%1_%2").arg(MainTabTitle(static_cast<MainTab>(t))).arg(b));
            auto* layout = new QVBoxLayout(page);
            layout->setObjectName(QString("Layout%1").arg(b));
            bases->addTab(page, Q(Site().bases[b].label));
            pages_[t].push_back(page);
        }
        tabs_->addTab(bases, QString::fromUtf8(MainTabTitle(static_cast<MainTab>(t))));
    }
    setCentralWidget(tabs_);
    // A widget of its own, not a status message: the menus' tips would wipe a message away.
    statusBar()->addWidget(new QLabel(Q(Site().name), this));
    auto* standby = new QPushButton("Mise en veille", this);
    standby->setObjectName("CommandMiseEnVeille");
    connect(standby, &QPushButton::clicked, this, &Frm_Main::CommandMiseEnVeille_Click);
    statusBar()->addPermanentWidget(standby);
    resize(1000, 700);
}

QWidget* Frm_Main::BasePage(MainTab tab, int base) const {
    const auto& pages = pages_[static_cast<int>(tab)];
    return base >= 0 && base < static_cast<int>(pages.size()) ? pages[base] : nullptr;
}

void Frm_Main::SetPageObserver(MainTab tab, int base, ProgressObserver* observer) {
    auto& observers = observers_[static_cast<int>(tab)];
    if (base < 0 || base >= kMaxBases) return;
    if (static_cast<int>(observers.size()) <= base) observers.resize(static_cast<size_t>(base) + 1);
    observers[static_cast<size_t>(base)] = observer;
}

ProgressObserver& Frm_Main::PageObserver(MainTab tab, int base) {
    const auto& observers = observers_[static_cast<int>(tab)];
    if (base >= 0 && base < static_cast<int>(observers.size()) && observers[base])
        return *observers[base];
    return nobody_;
}

QVBoxLayout* Frm_Main::BasePageLayout(MainTab tab, int base) const {
    QWidget* page = BasePage(tab, base);
    return page ? qobject_cast<QVBoxLayout*>(page->layout()) : nullptr;
}

void Frm_Main::PositionFeuille() {
    std::string pos = GetRegValue(kHkeyCurrentUser, kOptionKey, "FrmPos", "");
    int x, y, w, h;
    if (std::sscanf(pos.c_str(), "%d;%d;%d;%d", &x, &y, &w, &h) == 4 && w > 200 && h > 150) {
        // Keep the window on a screen that exists now.
        QRect screen = QApplication::primaryScreen()
                           ? QApplication::primaryScreen()->availableGeometry()
                           : QRect(0, 0, 1920, 1080);
        w = std::min(w, screen.width());
        h = std::min(h, screen.height());
        x = std::clamp(x, screen.left(), std::max(screen.left(), screen.right() - w));
        y = std::clamp(y, screen.top(), std::max(screen.top(), screen.bottom() - h));
        setGeometry(x, y, w, h);
    }
}

void Frm_Main::PositionFeuilleSauvegarde() {
    QRect g = geometry();
    SetRegValue(kHkeyCurrentUser, kOptionKey, "FrmPos",
                std::to_string(g.x()) + ";" + std::to_string(g.y()) + ";" +
                    std::to_string(g.width()) + ";" + std::to_string(g.height()));
}

bool Frm_Main::ConfirmQuit() {
    if (locked) {
        AffMsg("Le programme est verrouillé. Impossible de le quitter.", MsgButtons::Ok,
               MsgIcon::Critical);
        return false;
    }
    return AffMsg("Voulez-vous quitter le programme ?", MsgButtons::YesNo, MsgIcon::Question) ==
           MsgAnswer::Yes;
}

void Frm_Main::MnuQuitter_Click() {
    if (!ConfirmQuit()) return;
    TraceLog("Application closed by human action (Menu action)");
    CloseWithMode(kFormCode);
}

void Frm_Main::CloseWithMode(int unloadMode) {
    if (unloaded_) return;
    // A close already waiting for a run to stop keeps its reason.
    if (!closeAfterRun_) pendingUnloadMode_ = unloadMode;
    closeByCode_ = true;
    close();
}

void Frm_Main::closeEvent(QCloseEvent* event) {
    if (unloaded_) {
        event->accept();
        return;
    }
    const int mode = closeByCode_ ? pendingUnloadMode_ : kFormControlMenu;
    const bool byUser = !closeByCode_;
    closeByCode_ = false;
    // The window's own close button ends the program, and with it the planned backups: the same
    // lock and question as "Quitter".
    if (byUser && !ConfirmQuit()) {
        event->ignore();
        return;
    }
    if (LongRunUnderWay()) {
        // The run is further down this very stack: ask it to stop (no question), and unload
        // once it has returned.
        if (!closeAfterRun_) {
            closeAfterRun_ = true;
            pendingUnloadMode_ = mode;
            TraceLog("Close asked while a run is under way (" + LongRunActivity() +
                     "): the run is asked to stop");
            RequestShutdownStop();
        }
        DismissWaitingDialog();
        event->ignore();
        QTimer::singleShot(50, this, [this] { CloseWithMode(pendingUnloadMode_); });
        return;
    }
    TraceLog(CloseReason(mode));
    Form_Unload();
    event->accept();
}

void Frm_Main::Form_Unload() {
    Guarded("Form_Unload:Frm_Main", 0, [this] {
        StartupState& st = Startup();
        if (st.equivalenceModified &&
            AffMsg("Voulez-vous enregistrer les changements apportés à la table d'équivalence ?",
                   MsgButtons::YesNo, MsgIcon::Question, "", MsgAnswer::Yes) == MsgAnswer::Yes &&
            saveEquivalence)
            saveEquivalence();
        if (PlanningModified() &&
            AffMsg("Voulez-vous enregistrer les changements apportés au planning des Backups ?",
                   MsgButtons::YesNo, MsgIcon::Question, "", MsgAnswer::Yes) == MsgAnswer::Yes &&
            savePlanning)
            savePlanning();
        for (QTimer* timer : findChildren<QTimer*>())
            if (timer != timerLog_) timer->stop();
        TraceLog("---------- Form_Unload: Start");
        for (int b = 0; b < Site().baseCount && b < static_cast<int>(Site().bases.size()); ++b)
            EcritureIni(Site().bases[b].BkPrgIni(), "Data_Backup", "Start", "0FF");
        TimerMain->stop();
        WaitOnDuration(500);  // a tick already under way can finish
        PositionFeuilleSauvegarde();
        TraceLog("Unload: FrmSetup: Start");
        delete setup_;  // unsaved options are dropped: nobody is asked while the program ends
        unloaded_ = true;
        TraceLogForce();
        return 0;
    });
    unloaded_ = true;
    emit Unloaded();
}

void Frm_Main::TimerVeille_Timer() {
    if (Startup().mainWindowLoaded && enterStandby_) {
        enterStandby_ = false;
        EnterStandby();
    }
    TimerVeille->stop();
}

void Frm_Main::TimerMain_Timer() {
    Guarded("TimerMain_Timer:Frm_Main", 0, [this] {
        if (timerMainTick) timerMainTick();
        return 0;
    });
}

void Frm_Main::CommandMiseEnVeille_Click() {
    EnterStandby();
}

void Frm_Main::EnterStandby() {
    Startup().standby = true;
    UpdateTrayStatus();
    if (tray_ && tray_->Show()) {
        hide();
        TraceLog("Standby: Start");
    } else {
        // Without a tray (GNOME by default) a hidden window could not be brought back: it goes
        // to the task bar instead.
        showMinimized();
        TraceLog("Standby: Start (no tray on this desktop: the window is minimised)");
    }
}

void Frm_Main::ShowFromStandby() {
    Startup().standby = false;
    if (tray_) tray_->Hide();
    showNormal();
    raise();
    activateWindow();
    TraceLog("Standby: End");
}

void Frm_Main::UpdateTrayStatus() {
    if (!tray_ || !planning_) return;
    std::vector<TrayBaseStatus> bases;
    for (int b = 0; b < Site().baseCount && b < static_cast<int>(Site().bases.size()); ++b) {
        const BaseConfig& cfg = Site().bases[b];
        TrayBaseStatus status;
        status.label = cfg.label;
        LocalTime last;
        if (ParseDateTime(LectureIni(cfg.BkSysIni(), "Sauvegarde", "Date", ""), last))
            status.lastBackup = last;
        const ScheduledRun& run = planning_->scheduler().LastBackup(b);
        status.lastRunFailed = run.ran && run.failed;
        if (run.ran) status.lastRunAt = run.at;
        if (planning_->scheduler().Backup(b).armed)
            status.nextBackup = planning_->scheduler().Backup(b).next;
        bases.push_back(status);
    }
    tray_->SetStatus(TrayToolTip(bases), std::any_of(bases.begin(), bases.end(),
                                                     [](auto& s) { return s.lastRunFailed; }));
}

void Frm_Main::MnuLectureLog_Click() {
    TraceLogForce();
    if (ShellEx(LogFilePath(AppClock().Now())) >= 33) return;
    // No editor on this machine (a bare server): the log page shows the same lines.
    ShowSetup();
    setup_->ShowLogPage();
}

FrmSetup* Frm_Main::setupWindow() const {
    return setup_;
}

void Frm_Main::ShowSetup() {
    if (!setup_) setup_ = new FrmSetup(this);
    setup_->show();
    setup_->raise();
}

void Frm_Main::ShowAbout() {
    QMessageBox::about(this, "A propos de Toverin",
                       Q("Kavella: Toverin\n" + versionText() +
                         "\n\nAdministration des données de la suite Kavella."));
}

}  // namespace toverin::ui
