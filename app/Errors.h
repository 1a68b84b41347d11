// The error hook every procedure calls from its error trap, and the program's own error texts.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "app/Clock.h"

namespace toverin {

// An error with the number the suite's error reports show.
class AppError : public std::runtime_error {
  public:
    AppError(long number, const std::string& description)
        : std::runtime_error(description), number_(number) {}
    long number() const { return number_; }

  private:
    long number_;
};

// The automation error on which the program asks for a reboot (the invoked object has
// disconnected from its clients), as a 32-bit value.
inline constexpr uint32_t kAutomationError = 0x80010108u;

// Reports a run-time error of `procedure` ("Name:Module", with a step mark in long procedures).
// The same error of the same procedure repeated within a few seconds is reported once.
void GestionDesErreurs(long number, const std::string& description, const std::string& procedure,
                       const std::string& source = "Toverin");
// Reports the exception being handled (call from a catch block).
void GestionDesErreurs(const std::exception& error, const std::string& procedure);

// Runs `body`; an exception is reported through GestionDesErreurs and `neutral` is returned.
template <class T, class Body>
T Guarded(const std::string& procedure, T neutral, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        GestionDesErreurs(e, procedure);
    } catch (...) {
        GestionDesErreurs(-1, "Unknown error", procedure);
    }
    return neutral;
}

// The program-wide switch that forbids the reboot on the automation error (on by default, so a
// workstation is never restarted unless the site asked for it: the options' "Redémarrer
// l'ordinateur sur une erreur d'automation", registry value "RebootErreurAutomation" of
// "Option_"), and the action that reboots.
bool& RebootForbidden();
void SetRebootAction(std::function<void()> action);

// Interval within which a repeated error is reported only once.
inline constexpr Milliseconds kRepeatedErrorInterval{10000};

enum class OwnError {
    SystemInfoUnavailable = 1,
    StillLoaded = 2,
    BadSettingsFile = 3,
    WrongPassword = 4,
    UnknownUser = 5,
    FolderNotFound = 6,
    CannotStopNow = 7,
    CannotWrite = 8,
    EngineNotLoaded = 9,
    NotConnected = 10,
    DatabaseOpenProblem = 11,
};

// The French text of one of the program's own errors; `name` completes the texts that name a
// folder or file.
std::string GestErr_Fra(OwnError code, const std::string& name = "");

// The program's message catalogue: texts named by item ("Divers00", the help line added to the
// record engine's reports of a file in trouble). "" for an item it does not hold.
std::string MessageCatalogue(std::string_view item);

}  // namespace toverin
