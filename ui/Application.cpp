#include "ui/Application.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QLibraryInfo>
#include <QLocale>
#include <QSocketNotifier>
#include <QTranslator>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "app/Dialogs.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Ini.h"
#include "app/Initialisation.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Startup.h"
#include "app/Text.h"
#include "store/Pervasive.h"
#include "ui/Frm_Main.h"
#include "ui/QtDialogs.h"
#include "ui/SingleInstance.h"

namespace toverin::ui {
namespace {

int gSignalPipe[2] = {-1, -1};

void OnTerminate(int) {
    RequestTermination();  // a wait under way ends at once
    char c = 't';
    ssize_t n = ::write(gSignalPipe[1], &c, 1);
    (void)n;
}

// Qt's own warnings go to the day log rather than to a console nobody reads.
void QtMessages(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtDebugMsg || type == QtInfoMsg) return;
    // The offscreen platform's remarks on window-manager hints mean nothing to a technician.
    if (message.startsWith("This plugin does not support")) return;
    TraceLog("Qt: " + message.toStdString());
}

bool HasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        const char* v = std::getenv(name);
        if (v && *v) return true;
    }
    return false;
}

bool Asks(const std::vector<std::string>& args, std::initializer_list<const char*> names) {
    for (const auto& a : args)
        for (const char* n : names)
            if (a == n) return true;
    return false;
}

}  // namespace

std::string UsageText() {
    return std::string("Kavella: Toverin ") + TOVERIN_VERSION +
           " - administration des données de la suite Kavella\n"
           "\n"
           "Usage: toverin [--root DOSSIER] [/Wait=ms] [/Backup_Base=N] [/IP=a.b.c.d] [/Port=n]\n"
           "               [/Veille=True]\n"
           "\n"
           "  --root DOSSIER   dossier racine du site (sinon TOVERIN_ROOT, le dossier du\n"
           "                   programme s'il contient Settings/, ou ~/Kavella/)\n"
           "  /Wait=ms         attendre ms millisecondes avant de démarrer\n"
           "  /Backup_Base=N   faire le backup de la base N (0 = la première) puis quitter\n"
           "  /IP=a.b.c.d      adresse IP cible\n"
           "  /Port=n          port IP cible\n"
           "  /Veille=True     démarrer en veille\n"
           "  --help           afficher cette aide\n"
           "  --version        afficher la version\n"
           "\n"
           "Les options de la suite s'écrivent en majuscules ou en minuscules, dans n'importe "
           "quel ordre.\n";
}

std::string MissingComponents() {
    std::string missing;
    std::error_code ec;
    std::filesystem::create_directories(SuiteRoot() + "Settings", ec);
    if (::access((SuiteRoot() + "Settings").c_str(), W_OK) != 0)
        missing += "- dossier du site non accessible en écriture: " + SuiteRoot() + "\r\n";
    if (VersionsMoteur().empty()) missing += "- moteur de fichiers (BTRCALL) sans réponse\r\n";
    if (QFontDatabase::families().isEmpty())
        missing += "- aucune police de caractères (paquet fonts-dejavu-core)\r\n";
    return missing;
}

std::string InstallerAddress() {
    const std::string file = ExistingCase(SuiteRoot() + "Settings/_Local/KV3_Toverin_Local.ini");
    return Trim(LectureIni(file, "Composants", "Adresse_Installation", ""));
}

void ReportMissingComponents(const std::string& missing, const std::string& installerAddress) {
    TraceLog("Err: Components missing: " + ReplaceAll(Trim(missing), "\r\n", " "));
    const std::string address =
        installerAddress.empty()
            ? std::string(
                  "(adresse à indiquer dans Settings\\_Local\\KV3_Toverin_Local.ini, "
                  "[Composants], Adresse_Installation)")
            : installerAddress;
    AffMsg(
        "Cette mise-à-jour nécessite l'installation de la version 3.47.030 des composants "
        "Kavella\r\n\r\n" +
            missing +
            "\r\nVeuillez faire d'abord cette installation et relancer ensuite le "
            "programme\r\n\r\nFichier pour faire cette installation:\r\n" +
            address,
        MsgButtons::Ok, MsgIcon::Critical);
    if (installerAddress.empty()) return;  // nothing to download
    if (AffMsg("Voulez-vous télécharger le fichier et faire l'installation ?", MsgButtons::YesNo,
               MsgIcon::Question, "Installation des composants Kavella") == MsgAnswer::Yes)
        OpenForUser(installerAddress);
}

QTranslator* InstallFrenchTranslations(QCoreApplication& app) {
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    auto* translator = new QTranslator(&app);
    if (!translator->load(QLocale(QLocale::French), "qtbase", "_",
                          QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        TraceLog("Qt translations (qtbase_fr) not found: Qt's own texts stay in English");
        delete translator;
        return nullptr;
    }
    QCoreApplication::installTranslator(translator);
    return translator;
}

int RunToverin(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (Asks(args, {"--help", "-h", "/?"})) {
        std::cout << UsageText();
        return 0;
    }
    if (Asks(args, {"--version", "-V"})) {
        std::cout << "Kavella: Toverin " << TOVERIN_VERSION << "\n";
        return 0;
    }
    std::string rootArg;
    std::string commandLine = JoinArguments(args, rootArg);

    if (!HasDisplay()) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); !runtime || !*runtime) {
        // Started by a service manager outside any session: a private runtime folder of our own.
        std::string dir = "/tmp/toverin-runtime-" + std::to_string(::getuid());
        ::mkdir(dir.c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);
    }
    qInstallMessageHandler(QtMessages);
    QApplication app(argc, argv);
    app.setApplicationName("Toverin");
    app.setQuitOnLastWindowClosed(false);  // standby hides every window and keeps running
    InstallFrenchTranslations(app);

    QtDialogs qtDialogs;
    if (QApplication::platformName() == "offscreen") {
        // Nobody can answer: every question gets the answer that destroys nothing.
        Startup().unattended = true;
        SetAppDialogs(nullptr);
    } else {
        SetAppDialogs(&qtDialogs);
    }
    // Work loops call the pump every few records: serving the window at each call had a backup
    // spend nearly all its time repainting progress. The window is served at most every 100 ms,
    // which keeps Pause, Stop and the progress as quick to answer as the eye can tell.
    SetEventPump([served = QElapsedTimer()]() mutable {
        if (served.isValid() && !served.hasExpired(100)) return;
        QApplication::processEvents(QEventLoop::AllEvents, 50);
        served.start();
    });
    Startup().ChaineDeCommande = Trim(commandLine);

    SetSuiteRoot(DetermineSuiteRoot(rootArg, QApplication::applicationDirPath().toStdString()));
    SingleInstance instance(QString::fromStdString(SuiteRoot() + "Settings/_Local/Toverin.lock"));
    Frm_Main frm(&instance);
    QObject::connect(&frm, &Frm_Main::Unloaded, &app, &QCoreApplication::quit,
                     Qt::QueuedConnection);

    // SIGTERM from a service manager or a shutdown: the ordinary unload sequence.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, gSignalPipe) == 0) {
        auto* notifier = new QSocketNotifier(gSignalPipe[0], QSocketNotifier::Read, &app);
        QObject::connect(notifier, &QSocketNotifier::activated, &frm, [&frm, notifier] {
            char c;
            ssize_t n = ::read(gSignalPipe[0], &c, 1);
            (void)n;
            notifier->setEnabled(false);
            // During the start-up the load itself stops at the next step (see Form_Load).
            if (Startup().mainWindowLoaded) frm.CloseWithMode(kAppWindows);
        });
        struct sigaction sa {};
        sa.sa_handler = OnTerminate;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &sa, nullptr);
        sigaction(SIGINT, &sa, nullptr);
        sigaction(SIGHUP, &sa, nullptr);
    }

    // What the program needs at run time: a site folder it can write, and a record engine that
    // answers. Without them it says what is missing and does nothing else.
    std::string missing = MissingComponents();
    if (!missing.empty()) {
        Startup().componentsMissing = true;
        if (Startup().unattended)
            std::cerr << "Toverin: composants manquants:\n" << ReplaceAll(missing, "\r\n", "\n");
        ReportMissingComponents(missing, InstallerAddress());
    }
    if (!frm.Form_Load()) {
        TraceLogForce();
        return frm.exitStatus();
    }
    if (!Startup().standby) frm.show();
    int rc = app.exec();
    TraceLogForce();
    return rc;
}

}  // namespace toverin::ui
