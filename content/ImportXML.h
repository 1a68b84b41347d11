// XML import of commercial and programme data (module Lib_ImportXML): a delivery written into
// the record files of a base and station. The format is in ImportXMLFormat.h, the reading in
// ImportXMLReader.h, where each element lands in ImportXMLMapping.h.
//
// A run reads the file three times, never holding more than a line of it:
//   1. the whole envelope is checked; a file the import cannot read entirely is refused before
//      anything is written, so a bad delivery leaves the base as it was;
//   2. each record is built (labels turned into codes, the records it names looked up) and
//      written: inserted, or updated when its key exists; a record that cannot be built is
//      refused and listed, the next one goes on;
//   3. every key written is read back with Get Equal, and each one that did not land is listed.
// In validation mode, step 2 builds and checks every record against the base and what the
// delivery itself would have written before it, lists every refusal, and writes nothing.
//
// The files written are opened in accelerated mode, as bulk copies are: writes are grouped in
// large transactions made durable when the run closes its files. A run killed midway leaves the
// files as its last committed group did; importing the same delivery again completes it, since
// existing keys are updated.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "app/Progress.h"
#include "store/Pervasive.h"

namespace toverin {

// The folder under a base's shared folder where deliveries arrive unless the Import tab says
// otherwise ("Import_XML").
inline constexpr const char* kImportXMLDossier = "Import_XML";
// The default of TexteImportXMLDossierSource for base `base` (0-based): the shared folder's
// "Import_XML" folder, with a trailing separator; "" for a base the site does not have.
std::string ImportXMLDossierSourceParDefaut(int base);

// The Import tab's XML settings of a base, kept with its other import settings in its
// "KV3_Toverin_Serveur.ini" (section "Base_" and the base's index, keys "ImportXML_...").
struct ImportXMLReglages {
    std::string dossier;    // TexteImportXMLDossierSource; "" takes ImportXMLDossierSourceParDefaut
    int base = -1;          // ComboImportXMLBase; -1: the page's own base
    int station = 1;        // ComboImportXMLStation
    std::string categorie;  // ComboImportXMLCategorie: a category code (UTF-8), "" for none
    bool validation = false;  // CheckImportXMLValidation
    std::string section;      // ComboTypeImportXML: the section element shown ("KV3_Customer")
};
ImportXMLReglages LectureReglagesImportXML(int base);
void EcritureReglagesImportXML(int base, const ImportXMLReglages& reglages);
// The list view's column widths for a section, as saved ("" when none were).
std::string LectureLargeursImportXML(int base, const std::string& sectionElement);
void EcritureLargeursImportXML(int base, const std::string& sectionElement,
                               const std::string& widths);

// The categories of a station ("CATEG" labels of file 21), code and label in UTF-8, in label
// order, for ComboImportXMLCategorie; none when the file cannot be read.
std::vector<std::pair<std::string, std::string>> ImportXMLCategories(SlotBank& bank, int base,
                                                                     int station);

struct ImportXMLOptions {
    int base = -1;          // 0-based; -1: none chosen
    int station = 0;        // 1..10; 0: none chosen
    std::string categorie;  // the category code given to songs delivered without one, or ""
    bool validation = false;
    // Messages to the user (the choices missing, the file refused, the end) through the
    // dialogs port; off for callers that show the result themselves.
    bool boxes = true;
};

// One record that was not written, or one key that did not land.
struct ImportXMLRefus {
    long line = 0;         // 0 for a key of the second pass
    std::string section;   // "Clients" ...
    std::string identity;  // the record's N= and Id=, or the key
    std::string message;   // "Clé non trouvée: ..." (UTF-8)
    std::string Text() const;
};

struct ImportXMLResultat {
    bool started = false;  // the file was accepted and read through
    bool ended = false;    // every record was written or refused and every key checked
    bool validation = false;
    std::string message;  // why the run was refused or stopped (French), "" when it ended
    long read = 0;        // records read
    long inserted = 0;    // in validation: would be inserted
    long updated = 0;     // in validation: would update an existing record
    long refused = 0;
    long ignored = 0;                      // lines left aside (split records, text outside records)
    long missing = 0;                      // keys the second pass did not find
    std::vector<ImportXMLRefus> refusals;  // the refused records, then the missing keys
    std::vector<std::string> warnings;     // values written otherwise than delivered

    // "1200 enregistrements lus, 1150 insérés, 40 mis à jour, 10 refusés, 2 lignes ignorées"
    std::string Resume() const;
    // The same in the log's English.
    std::string LogSummary() const;
};

// Imports `file` into station `options.station` of base `options.base` through `bank`: shows
// "Sélectionnez une Base" or "Sélectionnez une Station" when one is missing, a refused file's
// message, and "Fin de l'import" with the summary at the end; logs the run, each refusal and
// the summary. Progress goes to `observer` (phases, records done of the lines of the file).
ImportXMLResultat ImportXMLImporter(const std::string& file, const ImportXMLOptions& options,
                                    SlotBank& bank, ProgressObserver& observer);

}  // namespace toverin
