// The program's incident list: dated lines the Incidents tab shows (and the incident mail sends).
#pragma once

#include <string>
#include <vector>

#include "app/Clock.h"

namespace toverin {

struct Incident {
    LocalTime time;
    std::string text;
};

void RecordIncident(const std::string& text);
std::vector<Incident> Incidents();
void ClearIncidents();

}  // namespace toverin
