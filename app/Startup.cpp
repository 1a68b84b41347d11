#include "app/Startup.h"

#include <cctype>
#include <cmath>
#include <limits>

#include "app/Clock.h"
#include "app/Log.h"
#include "app/Text.h"

namespace toverin {
namespace {

StartupState gState;

// The option's value in its field of the start-up state. A value beyond the field's range is a
// malformed value, and a malformed value reads as 0: "/Wait=2147483648" does not wait 24 days.
template <class Field>
Field FieldValue(double value) {
    if (!(value <= static_cast<double>(std::numeric_limits<Field>::max()) + 0.5)) return 0;
    long long v = RoundHalfEven(value);
    if (v > std::numeric_limits<Field>::max() || v < std::numeric_limits<Field>::min()) return 0;
    return static_cast<Field>(v);
}

}  // namespace

StartupState& Startup() {
    return gState;
}
void ResetStartup() {
    gState = StartupState{};
}
bool PlanningModified() {
    for (bool modified : gState.planningModified)
        if (modified) return true;
    return false;
}

double Val(const std::string& text) {
    std::string t = Trim(text);
    size_t i = 0;
    std::string number;
    while (i < t.size() && std::isdigit(static_cast<unsigned char>(t[i]))) number += t[i++];
    if (i < t.size() && t[i] == '.') {
        number += t[i++];
        while (i < t.size() && std::isdigit(static_cast<unsigned char>(t[i]))) number += t[i++];
    }
    if (number.empty() || number == ".") return 0.0;
    return std::strtod(number.c_str(), nullptr);
}

long long RoundHalfEven(double value) {
    double floor = std::floor(value);
    double diff = value - floor;
    long long f = static_cast<long long>(floor);
    if (diff > 0.5) return f + 1;
    if (diff < 0.5) return f;
    return (f % 2 == 0) ? f : f + 1;
}

bool HasOption(const std::string& text, const std::string& option) {
    return FindIgnoreCase(text, option) != std::string::npos;
}

std::string OptionValueText(const std::string& text, const std::string& option, bool allowDot) {
    size_t at = FindIgnoreCase(text, option);
    if (at == std::string::npos) return {};
    std::string rest = Trim(std::string_view(text).substr(at + option.size()));
    std::string run;
    for (char c : rest) {
        if (std::isdigit(static_cast<unsigned char>(c)) || (allowDot && c == '.')) {
            run.push_back(c);
        } else {
            break;
        }
    }
    return run;
}

bool CommandLineAsksStandby(const std::string& text) {
    return HasOption(text, "/Veille=True");
}
bool CommandLineAsksBackup(const std::string& text) {
    return HasOption(text, "/Backup_Base=");
}

void DetermineChaineDeCommande(const std::string& commandLine) {
    gState.ChaineDeCommande = Trim(commandLine);
    if (!gState.ChaineDeCommande.empty()) AnalyseChaineDeCommande(gState.ChaineDeCommande);
}

void AnalyseChaineDeCommande(const std::string& text) {
    if (!text.empty()) TraceLogEncadre("Command Line: '" + text + "'", '=');

    if (HasOption(text, "/Wait=")) {
        int32_t waitDuration = FieldValue<int32_t>(Val(OptionValueText(text, "/Wait=", false)));
        TraceLog("WaitDuration: " + std::to_string(waitDuration));
        // Waits at once, before the other options are read, with the window kept alive.
        if (waitDuration > 0) WaitOnDuration(waitDuration);
    }
    if (HasOption(text, "/Backup_Base=")) {
        int16_t base = FieldValue<int16_t>(Val(OptionValueText(text, "/Backup_Base=", false)));
        gState.BackupBase = static_cast<int16_t>(base < 0 ? 0 : base > 7 ? 7 : base);
        TraceLog("Backup Base: " + std::to_string(gState.BackupBase));
    }
    if (HasOption(text, "/IP=")) {
        gState.TargetIPAddress = OptionValueText(text, "/IP=", true);
        TraceLog("Target IP Address: " + gState.TargetIPAddress);
    }
    if (HasOption(text, "/Port=")) {
        gState.TargetIPPort = FieldValue<int32_t>(Val(OptionValueText(text, "/Port=", true)));
        TraceLog("Target IP Port: " + std::to_string(gState.TargetIPPort));
    }
}

std::string JoinArguments(const std::vector<std::string>& args, std::string& root) {
    std::string line;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--root" && i + 1 < args.size()) {
            root = args[++i];
            continue;
        }
        if (StartsWith(a, "--root=")) {
            root = a.substr(7);
            continue;
        }
        if (!line.empty()) line.push_back(' ');
        line += a;
    }
    return line;
}

}  // namespace toverin
