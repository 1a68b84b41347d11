#include "ui/FrmExport.h"

#include <QApplication>
#include <QDir>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QVBoxLayout>
#include <memory>

#include "app/Dialogs.h"
#include "app/LongRun.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "operations/DataExport.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"

namespace toverin::ui {

std::string RunExport(QWidget* parent, const CursorSpec& query, bool excel, long long totalRows) {
    // Said before the target is asked for: afterwards it would read as a fault of the target.
    if (!FileExists(query.path)) {
        AffMsg("Fichier: " + query.path + " non trouvé", MsgButtons::Ok, MsgIcon::Critical);
        return "";
    }
    // The export serves the interface while it writes: a backup started meanwhile would run
    // inside it, and it inside a backup. One long operation at a time.
    LongRun run("Export de la visualisation");
    if (!run.ok()) {
        AffMsg(run.Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        return "";
    }
    std::unique_ptr<QProgressDialog> progress;
    VisualisationExportRequest request;
    request.query = query;
    request.excel = excel;
    request.startFolder = QDir::homePath().toStdString();
    request.logFolder = Site().appSettingsFolder;
    request.writing = [&progress, parent, totalRows] {
        progress =
            std::make_unique<QProgressDialog>(QString::fromUtf8("Export en cours..."), "Annuler", 0,
                                              static_cast<int>(std::max(0LL, totalRows)), parent);
        progress->setObjectName("ProgressExport");
        progress->setWindowModality(Qt::WindowModal);
        progress->setMinimumDuration(500);
        progress->setAutoClose(false);
        progress->setAutoReset(false);
    };
    request.written = [&progress] { progress.reset(); };
    request.progress = [&progress, totalRows](uint64_t rows) {
        if (progress && totalRows > 0)
            progress->setValue(static_cast<int>(std::min<uint64_t>(rows, totalRows)));
        QApplication::processEvents();
        return !progress || !progress->wasCanceled();
    };
    return ExportVisualisation(request);
}

FrmExport::FrmExport(const CursorSpec& query, bool excel, QWidget* parent)
    : QDialog(parent), spec_(query), excel_(excel) {
    setObjectName("FrmExport");
    setWindowTitle("Export");
    auto* layout = new QVBoxLayout(this);
    auto* menu = new QMenuBar(this);
    auto* file = menu->addMenu("Fichier");
    Mnu01Export = file->addAction("Exporter...");
    Mnu01Export->setObjectName("Mnu01Export");
    layout->setMenuBar(menu);
    auto* form = new QFormLayout();
    TexteNature = new QLineEdit(QString::fromUtf8(excel ? kNatureExcel : kNatureXml), this);
    TexteNature->setObjectName("TexteNature");
    TexteNature->setReadOnly(true);
    form->addRow("Nature", TexteNature);
    form->addRow("Fichier", new QLabel(QString::fromStdString(FileListLine(query.fileNumber) +
                                                              " (" + query.path + ")")));
    std::string range = query.from.empty() ? "début" : "'" + query.from + "'";
    range += " à " + (query.to.empty() ? std::string("fin") : "'" + query.to + "'");
    form->addRow(QString::fromUtf8("Clé"), new QLabel(QString::number(query.keyNumber) + ": " +
                                                      QString::fromStdString(range)));
    layout->addLayout(form);
    // The menu entry alone is easily missed in so small a window.
    CommandExporter = new QPushButton(QString::fromUtf8("Exporter..."), this);
    CommandExporter->setObjectName("CommandExporter");
    layout->addWidget(CommandExporter, 0, Qt::AlignRight);
    connect(Mnu01Export, &QAction::triggered, this, &FrmExport::Mnu01Export_Click);
    connect(CommandExporter, &QPushButton::clicked, this, &FrmExport::Mnu01Export_Click);
}

void FrmExport::Mnu01Export_Click() {
    RunExport(this, spec_, excel_, RecordCountOfFile(spec_.path));
}

}  // namespace toverin::ui
