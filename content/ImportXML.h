// XML import of commercial and programme data (module Lib_ImportXML): where deliveries are looked
// for. The format is in ImportXMLFormat.h, the reading in ImportXMLReader.h, where each element
// lands in ImportXMLMapping.h.
#pragma once

#include <string>

namespace toverin {

// The folder under a base's shared folder where deliveries arrive unless the Import tab says
// otherwise ("Import_XML").
inline constexpr const char* kImportXMLDossier = "Import_XML";
// The default of TexteImportXMLDossierSource for base `base` (0-based): the shared folder's
// "Import_XML" folder, with a trailing separator; "" for a base the site does not have.
std::string ImportXMLDossierSourceParDefaut(int base);

}  // namespace toverin
