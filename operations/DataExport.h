// Records to export files: the data viewer's "Exporter..." (and the standalone export window's),
// toverinctl's dump. The rows come from a RecordCursor and go to an ExportWriter, streamed, so
// that a file of a million records exports in flat memory; the loop serves the window every few
// hundred rows and stops when the progress observer says so.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "exports/Export.h"
#include "store/RecordCursor.h"

namespace toverin {

enum class ExportOutcome { Done, Cancelled, ReadFailed, WriteFailed };

// Told the rows written so far (every 256 rows, and at the end); returning false cancels.
using ExportProgress = std::function<bool(uint64_t rows)>;

// Writes the cursor's headings and its rows from where it stands to the end of its range, then
// finishes the writer. A cancelled export or a failed read abandons the writer: the target is
// left as it was.
ExportOutcome ExportRecords(RecordCursor& cursor, ExportWriter& writer,
                            const ExportProgress& progress = {});

// The export of the viewer's listing, as CommandVisualisationExporter_Click does it:
//  1. asks for the target in a save dialog filtered "Fichiers xls|*.xls" (and ".xlsx") or
//     "Fichiers xml|*.xml", starting in `startFolder`, and appends ".xls" or ".xml" when the name
//     has no such extension; a cancelled dialog stops;
//  2. asks "Le fichier '<name>' existe déjà. Ecraser ?" when it exists; No stops;
//  3. exports (the logs "ExportExcel.Log" and "ExportXML.Log" go to the program's settings
//     folder);
//  4. reports "Fichier <name> créé" and offers to open it, or "Erreur lors de l'export du
//     fichier <name>".
// Returns the target written, "" when nothing was written.
struct VisualisationExportRequest {
    CursorSpec query;
    bool excel = true;  // CheckExportExcel checked: a workbook; else XML
    std::string startFolder;
    std::string logFolder;
    ExportProgress progress;
    // Told once the target is settled, when the writing starts, and when it is over, before the
    // outcome is reported: a progress window lives between the two, never over the questions.
    std::function<void()> writing;
    std::function<void()> written;
};
std::string ExportVisualisation(const VisualisationExportRequest& request);

// The texts of the export's nature (TexteNature of the export window).
inline constexpr const char* kNatureExcel = "Export Excel";
inline constexpr const char* kNatureXml = "Export XML";

}  // namespace toverin
