#include "app/Errors.h"

#include <cstdlib>
#include <map>
#include <utility>

#include "app/Log.h"

namespace toverin {
namespace {

std::map<std::pair<long, std::string>, uint64_t>& LastReports() {
    static std::map<std::pair<long, std::string>, uint64_t> reports;
    return reports;
}

std::function<void()>& RebootAction() {
    static std::function<void()> action = [] {
        // The nearest thing to a forced reboot: ask the service manager, without waiting.
        int rc = std::system("systemctl reboot --force >/dev/null 2>&1 &");
        (void)rc;
    };
    return action;
}

}  // namespace

bool& RebootForbidden() {
    static bool forbidden = true;
    return forbidden;
}

void SetRebootAction(std::function<void()> action) {
    RebootAction() = std::move(action);
}

void GestionDesErreurs(long number, const std::string& description, const std::string& procedure,
                       const std::string& source) {
    try {
        uint64_t now = GetTickCount64();
        auto key = std::make_pair(number, procedure);
        auto& last = LastReports();
        auto it = last.find(key);
        if (it != last.end() &&
            now - it->second < static_cast<uint64_t>(kRepeatedErrorInterval.count()))
            return;
        last[key] = now;

        TraceLog("Err: " + std::to_string(number) + " |" + description);
        TraceLog("Source: " + source);
        TraceLog("Sub: " + procedure + " (Source: " + source + ")");
        // Known by its 32-bit value, read signed (-2147417848) or unsigned (2147549448).
        if (number == static_cast<int32_t>(kAutomationError) ||
            number == static_cast<long>(kAutomationError)) {
            TraceLogEncadre(std::string("Reboot the Computer because of Automation Error, ") +
                                (RebootForbidden() ? "True" : "False"),
                            '=');
            TraceLogForce();
            if (!RebootForbidden() && RebootAction()) RebootAction()();
        }
    } catch (...) {
    }
}

void GestionDesErreurs(const std::exception& error, const std::string& procedure) {
    long number = -1;
    if (auto* app = dynamic_cast<const AppError*>(&error)) number = app->number();
    GestionDesErreurs(number, error.what(), procedure);
}

std::string GestErr_Fra(OwnError code, const std::string& name) {
    switch (code) {
        case OwnError::SystemInfoUnavailable:
            return "Les informations système ne sont pas disponibles actuellement";
        case OwnError::StillLoaded:
            return "Application encore chargée en mémoire";
        case OwnError::BadSettingsFile:
            return "Fichier de paramètres défectueux";
        case OwnError::WrongPassword:
            return "Mot de passe erroné";
        case OwnError::UnknownUser:
            return "Utilisateur inconnu";
        case OwnError::FolderNotFound:
            return "Dossier '" + name + "' non trouvé";
        case OwnError::CannotStopNow:
            return "Arrêt impossible pour l'instant";
        case OwnError::CannotWrite:
            return "Ecriture impossible dans " + name + ". Données non sauvegardées";
        case OwnError::EngineNotLoaded:
            return "Chargement de BTrieve impossible";
        case OwnError::NotConnected:
            return "Vous n'êtes pas connecté au serveur";
        case OwnError::DatabaseOpenProblem:
            return "Problème à l'ouverture des fichiers de la base de données";
    }
    return {};
}

std::string MessageCatalogue(std::string_view item) {
    struct Item {
        std::string_view name;
        const char* text;
    };
    static constexpr Item kItems[] = {
        {"Divers00",
         "Conseil : le fichier semble endommagé ou inaccessible. Vérifiez que le serveur de "
         "données est en marche et que son disque n'est pas plein ; si le problème persiste, "
         "restaurez la dernière sauvegarde de la base (onglet Restauration) ou contactez "
         "l'assistance technique."},
    };
    for (const Item& entry : kItems)
        if (entry.name == item) return entry.text;
    return {};
}

}  // namespace toverin
