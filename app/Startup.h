// Start-up state and the suite's command line ("/Wait=", "/Backup_Base=", "/IP=", "/Port=",
// "/Veille=True"). Each option is found anywhere in the line without regard to case; a missing or
// malformed value reads as 0 or as an empty text, so the analysis never fails.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "app/Clock.h"

namespace toverin {

struct StartupState {
    std::string ChaineDeCommande;
    int16_t BackupBase = 0;
    std::string TargetIPAddress;
    int32_t TargetIPPort = 0;
    LocalTime startTime{};
    uint64_t startTick = 0;
    bool componentsMissing = false;
    bool splashVisible = false;
    bool mainWindowLoaded = false;
    bool standby = false;
    bool equivalenceModified = false;
    // Per base, so that saving one base's plan never hides another's unsaved changes.
    std::array<bool, 8> planningModified{};
    // The program runs with nobody to answer (no display, service manager, one-shot backup).
    bool unattended = false;
};

StartupState& Startup();
void ResetStartup();
bool PlanningModified();  // any base's

// Trims the command line into ChaineDeCommande and analyses it when it is not empty.
void DetermineChaineDeCommande(const std::string& commandLine);
void AnalyseChaineDeCommande(const std::string& text);

// The run of characters after `option` (blanks trimmed) for as long as each is a digit, or a digit
// or "." when `allowDot`; "" when the option is absent.
std::string OptionValueText(const std::string& text, const std::string& option, bool allowDot);
bool HasOption(const std::string& text, const std::string& option);
bool CommandLineAsksStandby(const std::string& text);  // "/Veille=True", any case
bool CommandLineAsksBackup(const std::string& text);   // "/Backup_Base="
// The locale-free decimal reader: the leading number of `text` ("" reads as 0; "10.0.0.1" as 10).
double Val(const std::string& text);
// Nearest integer, halves to even as the suite's integer conversions do.
long long RoundHalfEven(double value);

// Splits the program's arguments into the suite's command line and the Linux options
// ("--root DIR", "--root=DIR"); the root, when given, is stored in `root`.
std::string JoinArguments(const std::vector<std::string>& args, std::string& root);

}  // namespace toverin
