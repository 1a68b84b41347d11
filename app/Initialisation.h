// The general initialisation steps run while the start-up splash shows (module
// Lib_Initialisation), and the choice of the suite root.
#pragma once

#include <functional>
#include <string>

#include "app/Site.h"

namespace toverin {

// The suite root: `given` (command line) or TOVERIN_ROOT, else the program's own folder when it
// holds "Settings/" (a portable install), else "Kavella/" in the user's home.
std::string DetermineSuiteRoot(const std::string& given, const std::string& programFolder);

struct SystemInfo {
    std::string operatingSystem;
    bool themeActive = true;
};
SystemInfo& System();

void DetermineVersionWindows();
// Registers the suite's record files (".bt6" data, ".btr" backup) as document types of the
// desktop (shared MIME database of the user); written only when it changed.
void InitGeneralSysteme();
void InitGeneralLook();

enum class InitResult {
    Ok,
    Cancelled,   // the user chose to end the program at the missing-database question
    Terminated,  // the system asked the program to stop (SIGTERM, Ctrl-C) meanwhile
};
// Runs the steps in order, announcing each one (the splash shows the announcement); a step that
// fails is reported and the next one runs.
InitResult InitApplication(const std::function<void(const std::string&)>& announce,
                           const std::string& commandLine);

}  // namespace toverin
