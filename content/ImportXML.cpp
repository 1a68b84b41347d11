#include "content/ImportXML.h"

#include "app/Paths.h"
#include "app/Site.h"

namespace toverin {

std::string ImportXMLDossierSourceParDefaut(int base) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return "";
    const std::string& shared = Site().bases[static_cast<size_t>(base)].sharedFolder;
    if (shared.empty()) return "";
    return NormaliseFolder(JoinPath(shared, kImportXMLDossier));
}

}  // namespace toverin
