// The program: the suite's command line, the display (offscreen when there is none, and then
// nobody is asked anything), the main window and the ordinary unload on SIGTERM.
#pragma once

#include <string>

namespace toverin::ui {

int RunToverin(int argc, char** argv);

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
