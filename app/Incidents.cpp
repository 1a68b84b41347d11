#include "app/Incidents.h"

#include "app/Log.h"

namespace toverin {
namespace {
std::vector<Incident>& List() {
    static std::vector<Incident> list;
    return list;
}
}  // namespace

void RecordIncident(const std::string& text) {
    List().push_back({AppClock().Now(), text});
    TraceLog("Incident: " + text);
}

std::vector<Incident> Incidents() { return List(); }
void ClearIncidents() { List().clear(); }

}  // namespace toverin
