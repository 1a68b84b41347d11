#include "operations/DataExport.h"

#include <cctype>

#include "app/Dialogs.h"
#include "app/EventPump.h"
#include "app/FileOps.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Text.h"

namespace toverin {

namespace {

constexpr uint64_t kRowsBetweenEvents = 256;

// The target with the extension the format asks for.
std::string WithExtension(const std::string& chosen, bool excel) {
    std::string lower = chosen;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (excel && (EndsWith(lower, ".xls") || EndsWith(lower, ".xlsx"))) return chosen;
    if (!excel && EndsWith(lower, ".xml")) return chosen;
    return chosen + (excel ? ".xls" : ".xml");
}

ExportFormat FormatOf(const std::string& target, bool excel) {
    if (!excel) return ExportFormat::Xml;
    std::string lower = target;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return EndsWith(lower, ".xlsx") ? ExportFormat::Xlsx : ExportFormat::Xls;
}

}  // namespace

ExportOutcome ExportRecords(RecordCursor& cursor, ExportWriter& writer,
                            const ExportProgress& progress) {
    writer.Headings(cursor.Headings());
    if (progress && !progress(0)) {
        writer.Abandon();
        return ExportOutcome::Cancelled;
    }
    CursorRow row;
    while (cursor.Next(row)) {
        if (!writer.AddRow(row.cells, row.headings)) return ExportOutcome::WriteFailed;
        if (writer.Rows() % kRowsBetweenEvents == 0) {
            ServeEvents();
            if (progress && !progress(writer.Rows())) {
                writer.Abandon();
                return ExportOutcome::Cancelled;
            }
        }
    }
    if (cursor.Failed()) {
        writer.Abandon("stopped by status " + std::to_string(cursor.Status()));
        return ExportOutcome::ReadFailed;
    }
    if (!writer.Finish()) return ExportOutcome::WriteFailed;
    if (progress) progress(writer.Rows());
    return ExportOutcome::Done;
}

std::string ExportVisualisation(const VisualisationExportRequest& request) {
    const std::string filter =
        request.excel ? "Fichiers xls|*.xls|Fichiers xlsx|*.xlsx" : "Fichiers xml|*.xml";
    std::string chosen = AppDialogs().SaveFileName("Exporter", filter, request.startFolder);
    if (chosen.empty()) return "";
    const std::string target = WithExtension(chosen, request.excel);
    if (PathExists(target) &&
        AffMsg("Le fichier '" + target + "' existe déjà. Ecraser ?", MsgButtons::YesNo,
               MsgIcon::Question, "", MsgAnswer::No) != MsgAnswer::Yes)
        return "";

    if (request.writing) request.writing();
    ExportOutcome outcome = ExportOutcome::ReadFailed;
    {
        RecordCursor cursor("Visualisation");
        if (cursor.Open(request.query) == CursorOpen::Ok) {
            ExportOptions options;
            options.logFolder = request.logFolder;
            auto writer = OpenExport(FormatOf(target, request.excel), target, options);
            outcome = ExportRecords(cursor, *writer, request.progress);
            if (outcome != ExportOutcome::Done && outcome != ExportOutcome::Cancelled)
                TraceLog("Err: Export " + target + ": " + writer->Message());
        }
    }
    if (request.written) request.written();
    if (outcome == ExportOutcome::Cancelled) {
        TraceLog("Export cancelled: " + target);
        return "";
    }
    if (outcome != ExportOutcome::Done) {
        AffMsg("Erreur lors de l'export du fichier " + target, MsgButtons::Ok, MsgIcon::Critical);
        return "";
    }
    TraceLog("Export: " + target);
    if (AffMsg("Fichier " + target + " créé\n\nVoulez-vous l'ouvrir ?", MsgButtons::YesNo,
               MsgIcon::Question, "", MsgAnswer::No) == MsgAnswer::Yes)
        OpenForUser(target);
    return target;
}

}  // namespace toverin
