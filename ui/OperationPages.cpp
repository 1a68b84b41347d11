#include "ui/OperationPages.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include "app/DateTime.h"
#include "app/Incidents.h"
#include "app/Ini.h"
#include "app/Site.h"
#include "operations/Backup.h"
#include "operations/BackupHealth.h"
#include "operations/BackupSettings.h"
#include "operations/OperationState.h"
#include "operations/Restore.h"
#include "store/Catalogue.h"
#include "ui/Frm_Main.h"
#include "ui/Widgets.h"

namespace toverin::ui {
namespace {

QProgressBar* Bar(QWidget* parent, const char* control, int index) {
    auto* bar = Named(new QProgressBar(parent), control, index);
    bar->setRange(0, 1);
    bar->setValue(0);
    return bar;
}

QListWidget* StationList(QWidget* parent, const char* control, int base) {
    auto* list = Named(new QListWidget(parent), control, base);
    list->setSelectionMode(QAbstractItemView::MultiSelection);
    for (const auto& station : Site().bases[base].stations) list->addItem(Q(station.label));
    list->setMaximumHeight(160);
    return list;
}

template <class Array>
Array Selection(QListWidget* list) {
    Array out{};
    for (int i = 0; list && i < list->count() && i < static_cast<int>(out.size()); ++i)
        out[i] = list->item(i)->isSelected();
    return out;
}

}  // namespace

OperationPages::OperationPages(Frm_Main* main) : QObject(main), main_(main) {}

void OperationPages::Build() {
    for (int b = 0; b < Site().baseCount; ++b) {
        // The restore page first: the backup shows its dates there.
        BuildRestorePage(b);
        BuildBackupPage(b);
        BuildCreationPage(b);
        BuildIncidentsPage(b);
        main_->SetPageObserver(MainTab::Backup, b, backup_[b].get());
        main_->SetPageObserver(MainTab::Restauration, b, restore_[b].get());
        main_->SetPageObserver(MainTab::Creation, b, creation_[b].get());
    }
    ShowRestoreDates();
    auto* timer = new QTimer(this);
    timer->setObjectName("TimerIncidentsList");
    connect(timer, &QTimer::timeout, this, &OperationPages::RefreshIncidents);
    timer->start(1000);
    // The age of the last good backup moves on with the clock.
    auto* ages = new QTimer(this);
    ages->setObjectName("TimerBackupAge");
    connect(ages, &QTimer::timeout, this, [this] {
        for (int b = 0; b < Site().baseCount; ++b)
            backup_[b]->widgets().age->setText(
                Q(BackupAgeText(LastGoodBackup(b), AppClock().Now())));
    });
    ages->start(60000);
}

QListWidget* OperationPages::FileList(QWidget* parent, int base, bool selectFromSettings) {
    auto* list = Named(new QListWidget(parent), "ListeDesFichiers", base);
    list->setSelectionMode(QAbstractItemView::MultiSelection);
    BackupOptions options = LoadBackupOptions(base);
    for (int f = 0; f < kCatalogueSize; ++f) {
        auto* item = new QListWidgetItem(Q(FileListLine(f)), list);
        if (!CatalogueEntryFor(f).Exists()) item->setFlags(Qt::NoItemFlags);
        item->setSelected(selectFromSettings && options.files[f]);
    }
    return list;
}

void OperationPages::SaveFileSelection(int base, QListWidget* list) {
    BackupOptions options = LoadBackupOptions(base);
    options.files = Selection<std::array<bool, kCatalogueSize>>(list);
    SaveBackupOptions(base, options);
}

void OperationPages::BuildBackupPage(int b) {
    QWidget* page = main_->BasePage(MainTab::Backup, b);
    auto* row = new QHBoxLayout();
    QListWidget* files = FileList(page, b, true);
    connect(files, &QListWidget::itemSelectionChanged, this,
            [this, b, files] { SaveFileSelection(b, files); });
    row->addWidget(files, 2);

    auto* right = new QVBoxLayout();
    auto* buttons = new QHBoxLayout();
    auto* now =
        Named(new QPushButton(QString::fromUtf8("Backup immédiat"), page), "CommandBkpNow", b);
    auto* pause = Named(new QPushButton("Pause", page), "CommandBkpPause", b);
    auto* stop = Named(new QPushButton("Stop", page), "CommandBkpStop", b);
    pause->setEnabled(false);
    stop->setEnabled(false);
    connect(now, &QPushButton::clicked, this, [this, b] { CommandBkpNow(b); });
    connect(pause, &QPushButton::clicked, this, [this, b] { CommandBkpPause(b); });
    connect(stop, &QPushButton::clicked, this, [this, b] { CommandBkpStop(b); });
    buttons->addWidget(now);
    buttons->addWidget(pause);
    buttons->addWidget(stop);
    right->addLayout(buttons);

    auto* progress = new QGroupBox("Progression", page);
    auto* form = new QFormLayout(progress);
    PageWidgets w = restore_[b]->widgets();  // the weekday dates of the restore page
    w.window = main_;
    w.pause = pause;
    w.stop = stop;
    w.file = Named(new QLabel(progress), "LabelBkpFichier", b);
    w.key = Named(new QLabel(progress), "LabelBkpKey", b);
    w.files = Bar(progress, "ProgressBarBkpFichiers", b);
    w.stations = Bar(progress, "ProgressBarBkpStations", b);
    w.records = Bar(progress, "ProgressBarBkpRecords", b);
    w.start = ReadOnlyBox(progress, "TexteTimingDebutBkp", b);
    w.end = ReadOnlyBox(progress, "TexteTimingFinBkp", b);
    w.duration = ReadOnlyBox(progress, "TexteDureeBkp", b);
    w.lastBackup = ReadOnlyBox(progress, "TexteDatePrevBkp", b);
    w.age = Named(new QLabel(progress), "LabelBkpAge", b);
    w.result = Named(new QLabel(progress), "LabelBkpResultat", b);
    w.result->setWordWrap(true);
    form->addRow("Fichier:", w.file);
    form->addRow(QString::fromUtf8("Clé:"), w.key);
    form->addRow("Fichiers:", w.files);
    form->addRow("Stations:", w.stations);
    form->addRow("Enregistrements:", w.records);
    form->addRow("Début:", w.start);
    form->addRow("Fin:", w.end);
    form->addRow(QString::fromUtf8("Durée:"), w.duration);
    form->addRow("Dernier backup:", w.lastBackup);
    form->addRow("", w.age);
    form->addRow(QString::fromUtf8("Résultat:"), w.result);
    right->addWidget(progress);
    right->addStretch();
    row->addLayout(right, 3);
    main_->BasePageLayout(MainTab::Backup, b)->addLayout(row);
    backup_[b] = std::make_unique<PageProgress>(w);
    ShowBackupState(b);
}

// The last good backup, its age and how the last run ended, as the files record them: what the
// tab shows when the program starts, before any run.
void OperationPages::ShowBackupState(int b) {
    const PageWidgets& w = backup_[b]->widgets();
    const LastRun last = LoadLastRun(b);
    const std::optional<LocalTime> good = LastGoodBackup(b);
    if (good) {
        // A good run whose files did not all make it is said beside its date.
        const bool incomplete = last.result == "Incomplete" && last.start && *last.start <= *good;
        w.lastBackup->setText(PageProgress::BackupDateText(*good, !incomplete));
    }
    w.age->setText(Q(BackupAgeText(good, AppClock().Now())));
    w.result->setText(Q(LastRunText(last)));
}

void OperationPages::BuildRestorePage(int b) {
    QWidget* page = main_->BasePage(MainTab::Restauration, b);
    auto* row = new QHBoxLayout();
    auto* left = new QVBoxLayout();
    left->addWidget(new QLabel("Stations:", page));
    left->addWidget(StationList(page, "ListeRestaurationStation", b));
    left->addWidget(new QLabel("Fichiers:", page));
    left->addWidget(FileList(page, b, false));
    row->addLayout(left, 2);

    auto* right = new QVBoxLayout();
    auto* days = new QGroupBox("Backups disponibles", page);
    auto* grid = new QGridLayout(days);
    auto* combo = Named(new QComboBox(days), "ComboRestaurationJour", b);
    PageWidgets w;
    w.window = main_;
    for (int d = 1; d <= 7; ++d) {
        combo->addItem(Q(DayName(d)));
        grid->addWidget(new QLabel(Q(DayName(d)), days), d - 1, 0);
        w.days[d - 1] = ReadOnlyBox(days, "TexteRestaurationDate", b * 7 + d - 1);
        grid->addWidget(w.days[d - 1], d - 1, 1);
    }
    combo->setCurrentIndex(WeekdayMondayFirst(AppClock().Now()) - 1);
    right->addWidget(days);
    auto* form = new QFormLayout();
    form->addRow("Jour du backup:", combo);
    auto* check =
        Named(new QCheckBox(QString::fromUtf8("Création d'une structure cible vide"), page),
              "CheckRestoreCreateEmptyStructure", b);
    form->addRow(check);
    right->addLayout(form);
    auto* restore = Named(new QPushButton("Restaurer", page), "CommandRestoreNow", b);
    connect(restore, &QPushButton::clicked, this, [this, b] { CommandRestoreNow(b); });
    right->addWidget(restore);
    auto* progress = new QGroupBox("Progression", page);
    auto* pf = new QFormLayout(progress);
    w.file = Named(new QLabel(progress), "LabelRestaurationFichier", b);
    w.key = Named(new QLabel(progress), "LabelRestaurationKey", b);
    w.files = Bar(progress, "ProgressBarRestaurationFichiers", b);
    w.stations = Bar(progress, "ProgressBarRestaurationStations", b);
    w.records = Bar(progress, "ProgressBarRestaurationRecords", b);
    w.start = ReadOnlyBox(progress, "TexteTimingDebutRestauration", b);
    w.end = ReadOnlyBox(progress, "TexteTimingFinRestauration", b);
    w.duration = ReadOnlyBox(progress, "TexteDureeRestauration", b);
    w.result = Named(new QLabel(progress), "LabelRestaurationResultat", b);
    w.result->setWordWrap(true);
    pf->addRow("Fichier:", w.file);
    pf->addRow(QString::fromUtf8("Clé:"), w.key);
    pf->addRow("Fichiers:", w.files);
    pf->addRow("Stations:", w.stations);
    pf->addRow("Enregistrements:", w.records);
    pf->addRow("Début:", w.start);
    pf->addRow("Fin:", w.end);
    pf->addRow(QString::fromUtf8("Durée:"), w.duration);
    pf->addRow(QString::fromUtf8("Résultat:"), w.result);
    right->addWidget(progress);
    right->addStretch();
    row->addLayout(right, 3);
    main_->BasePageLayout(MainTab::Restauration, b)->addLayout(row);
    restore_[b] = std::make_unique<PageProgress>(w);
    // Creation shows its times in the restore page's boxes, as the suite always did.
    PageWidgets times;
    times.window = main_;
    times.start = w.start;
    times.end = w.end;
    times.duration = w.duration;
    creation_[b] = std::make_unique<PageProgress>(times);
}

void OperationPages::BuildCreationPage(int b) {
    QWidget* page = main_->BasePage(MainTab::Creation, b);
    auto* row = new QHBoxLayout();
    auto* left = new QVBoxLayout();
    left->addWidget(new QLabel("Stations:", page));
    left->addWidget(StationList(page, "ListeCreationStation", b));
    left->addStretch();
    row->addLayout(left, 1);
    auto* right = new QVBoxLayout();
    right->addWidget(new QLabel(QString::fromUtf8("Fichiers à créer à vide:"), page));
    right->addWidget(FileList(page, b, false));
    auto* create =
        Named(new QPushButton(QString::fromUtf8("Créer"), page), "CommandCreationNow", b);
    connect(create, &QPushButton::clicked, this, [this, b] { CommandCreationNow(b); });
    right->addWidget(create);
    row->addLayout(right, 2);
    main_->BasePageLayout(MainTab::Creation, b)->addLayout(row);
}

void OperationPages::BuildIncidentsPage(int b) {
    QWidget* page = main_->BasePage(MainTab::Incidents, b);
    main_->BasePageLayout(MainTab::Incidents, b)->addWidget(new QLabel("Incidents:", page));
    incidents_[b] = Named(new QListWidget(page), "ListeIncidents", b);
    main_->BasePageLayout(MainTab::Incidents, b)->addWidget(incidents_[b]);
}

// The program's incidents (network trouble with the record files ...), newest last.
void OperationPages::RefreshIncidents() {
    std::vector<Incident> incidents = Incidents();
    if (incidents.size() == incidentsShown_) return;
    for (int b = 0; b < Site().baseCount; ++b) {
        QListWidget* list = incidents_[b];
        if (!list) continue;
        list->clear();
        for (const Incident& i : incidents)
            list->addItem(Q(FormatDateTime(i.time) + "  " + i.text));
    }
    incidentsShown_ = incidents.size();
}

void OperationPages::ShowRestoreDates() {
    for (int b = 0; b < Site().baseCount; ++b) {
        for (int d = 1; d <= 7; ++d) {
            std::string value =
                LectureIni(Site().bases[b].BkSysIni(), "Sauvegarde", DayName(d), "");
            LocalTime t;
            if (QLineEdit* box = restore_[b]->widgets().days[d - 1])
                box->setText(Q(ParseDateTime(value, t) ? FormatLongDateTime(t) : value));
        }
    }
}

void OperationPages::CommandBkpNow(int base) {
    CommandBkpNow_Click(base, *backup_[base]);
    if (afterBackup) afterBackup(base);
}

void OperationPages::CommandBkpPause(int base) {
    CommandBkpPause_Click(base, *backup_[base]);
}
void OperationPages::CommandBkpStop(int base) {
    CommandBkpStop_Click(base);
}

void OperationPages::CommandRestoreNow(int base) {
    QWidget* page = main_->BasePage(MainTab::Restauration, base);
    RestoreRequest request;
    request.stations = Selection<std::array<bool, kMaxStations>>(
        page->findChild<QListWidget*>(ControlName("ListeRestaurationStation", base)));
    request.files = Selection<std::array<bool, kCatalogueSize>>(
        page->findChild<QListWidget*>(ControlName("ListeDesFichiers", base)));
    auto* combo = page->findChild<QComboBox*>(ControlName("ComboRestaurationJour", base));
    request.dayName = combo ? combo->currentText().toStdString() : DayName(AppClock().Now());
    auto* check =
        page->findChild<QCheckBox*>(ControlName("CheckRestoreCreateEmptyStructure", base));
    request.createEmptyStructure = check && check->isChecked();
    RestoreData(base, request, *restore_[base]);
}

void OperationPages::CommandCreationNow(int base) {
    QWidget* page = main_->BasePage(MainTab::Creation, base);
    CreationRequest request;
    request.stations = Selection<std::array<bool, kMaxStations>>(
        page->findChild<QListWidget*>(ControlName("ListeCreationStation", base)));
    request.files = Selection<std::array<bool, kCatalogueSize>>(
        page->findChild<QListWidget*>(ControlName("ListeDesFichiers", base)));
    CreateData(base, request, *creation_[base]);
}

}  // namespace toverin::ui
