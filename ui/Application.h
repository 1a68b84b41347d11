// The program: the suite's command line, the display (offscreen when there is none, and then
// nobody is asked anything), the main window and the ordinary unload on SIGTERM.
#pragma once

#include <string>

class QCoreApplication;
class QTranslator;

namespace toverin::ui {

int RunToverin(int argc, char** argv);

// Qt's own texts (file dialogs, standard buttons, edit menus) in French like the program's, and
// French dates and numbers in its widgets. Returns the translator installed (owned by `app`), or
// nullptr when Qt's translations are not on this machine (the texts then stay in English).
QTranslator* InstallFrenchTranslations(QCoreApplication& app);

// What "toverin --help" prints.
std::string UsageText();
// What the program needs at run time and lacks, one "- ..." line each; empty when nothing is
// missing.
std::string MissingComponents();
// The address of the components' installer: "Adresse_Installation" of section "Composants" of
// the machine's "KV3_Toverin_Local.ini" (settings folder "_Local").
std::string InstallerAddress();
// The components-missing message and the question that offers the installer.
void ReportMissingComponents(const std::string& missing, const std::string& installerAddress);

}  // namespace toverin::ui
