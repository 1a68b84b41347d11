#include "ui/PlanningPages.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/DateTime.h"
#include "app/Log.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "app/Text.h"
#include "ui/ControlName.h"
#include "ui/Frm_Main.h"
#include "ui/Widgets.h"

namespace toverin::ui {
namespace {

struct KindNames {
    const char* prefix;   // "Bkp", "Export", "Import"
    const char* activer;  // the base's planning switch
    const char* next;     // the next-date box
    MainTab tab;
};

}  // namespace

PlanningPages::PlanningPages(Frm_Main* main) : QObject(main), main_(main) {
    scheduler_.showNextDate = [this](PlanKind kind, int base, const std::string& text) {
        ShowNextDate(kind, base, text);
    };
    // A scheduled backup shows its progress on its base's Backup page.
    scheduler_.backupProgress = [this](int base) -> ProgressObserver& {
        return main_->PageObserver(MainTab::Backup, base);
    };
}

void PlanningPages::ShowNextDate(PlanKind kind, int base, const std::string& text) {
    if (base < 0 || base >= kMaxBases) return;
    if (QLineEdit* box = next_[static_cast<size_t>(kind)][static_cast<size_t>(base)]) {
        box->setText(Q(text));
        box->setCursorPosition(0);
    }
}

void PlanningPages::Build() {
    loading_ = true;
    for (int b = 0; b < Site().baseCount; ++b) {
        for (PlanKind kind : {PlanKind::Backup, PlanKind::Export, PlanKind::Import}) {
            MainTab tab = kind == PlanKind::Backup   ? MainTab::Backup
                          : kind == PlanKind::Export ? MainTab::Export
                                                     : MainTab::Import;
            main_->BasePageLayout(tab, b)->addWidget(BuildPlan(kind, b, main_->BasePage(tab, b)));
            if (kind != PlanKind::Backup) main_->BasePageLayout(tab, b)->addStretch();
        }
    }
    scheduler_.Load();
    // Show the plans as loaded.
    for (int b = 0; b < Site().baseCount; ++b) {
        const BasePlan& plan = scheduler_.Plan(b);
        auto fill = [&](const std::string& prefix, const OperationPlan& op, const char* activer) {
            for (int r = 0; r < kPlanRows; ++r) {
                int i = b * 10 + r;
                if (auto* c =
                        main_->findChild<QCheckBox*>(ControlName("Check" + prefix + "Active", i)))
                    c->setChecked(op.rows[r].active);
                if (auto* c =
                        main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Jour", i)))
                    c->setCurrentIndex(op.rows[r].weekday);
                if (auto* c =
                        main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Heure", i)))
                    c->setCurrentIndex(op.rows[r].hour);
                if (auto* c =
                        main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Minute", i)))
                    c->setCurrentIndex(op.rows[r].minute);
            }
            if (auto* c = main_->findChild<QCheckBox*>(ControlName(activer, b)))
                c->setChecked(op.active);
        };
        fill("Bkp", plan.backup, "CheckBackupActiver");
        fill("Export", plan.exportPlan, "CheckExportActiver");
        fill("Import", plan.importPlan, "CheckImportActiver");
        if (auto* c = main_->findChild<QCheckBox*>(ControlName("CheckBkpAll", b)))
            c->setChecked(plan.backupAll);
        ShowNature(main_->findChild<QComboBox*>(ControlName("ComboExportNature", b)),
                   plan.exportPlan.nature);
        ShowNature(main_->findChild<QComboBox*>(ControlName("ComboImportNature", b)),
                   plan.importPlan.nature);
        for (int s = 0; s < kMaxStations; ++s)
            if (auto* c =
                    main_->findChild<QCheckBox*>(ControlName("CheckExportStation", b * 10 + s)))
                c->setChecked(s < static_cast<int>(plan.stationsExport.size()) &&
                              plan.stationsExport[s] == '1');
        for (int k = 0; k < 8; ++k) {
            std::string name =
                std::string(k < 4 ? "ComboImportStationSource0" : "ComboImportStationCible0") +
                std::to_string(k % 4 + 1);
            int station =
                k * 2 + 1 < static_cast<int>(plan.stationsImport.size())
                    ? std::stoi("0" + plan.stationsImport.substr(static_cast<size_t>(k) * 2, 2))
                    : 0;
            if (auto* c = main_->findChild<QComboBox*>(ControlName(name, b)))
                c->setCurrentIndex(std::clamp(station, 0, kMaxStations));
        }
        scheduler_.DetermineDateProchainBackup(b);
        scheduler_.DetermineDateProchainExport(b);
        scheduler_.DetermineDateProchainImport(b);
    }
    loading_ = false;
}

QGroupBox* PlanningPages::BuildPlan(PlanKind kind, int b, QWidget* page) {
    static const KindNames names[] = {
        {"Bkp", "CheckBackupActiver", "TexteDateProchainBackup", MainTab::Backup},
        {"Export", "CheckExportActiver", "TexteDateProchainExport", MainTab::Export},
        {"Import", "CheckImportActiver", "TexteDateProchainImport", MainTab::Import}};
    const KindNames& n = names[static_cast<int>(kind)];
    const std::string prefix = n.prefix;
    auto* box = new QGroupBox(QString::fromUtf8("Planification"), page);
    auto* layout = new QVBoxLayout(box);
    auto* top = new QHBoxLayout();
    auto modified = [this, b] { MarkModified(b); };
    auto* activer = Named(new QCheckBox("Activer la planification", box), n.activer, b);
    connect(activer, &QCheckBox::toggled, this, modified);
    top->addWidget(activer);
    if (kind == PlanKind::Backup) {
        auto* all = Named(new QCheckBox(QString::fromUtf8("Sauvegarder tout l'historique"), box),
                          "CheckBkpAll", b);
        connect(all, &QCheckBox::toggled, this, modified);
        top->addWidget(all);
    }
    top->addStretch();
    layout->addLayout(top);

    auto* grid = new QGridLayout();
    for (int r = 0; r < kPlanRows; ++r) {
        const int i = b * 10 + r;
        auto* active =
            Named(new QCheckBox(QString::number(r + 1), box), "Check" + prefix + "Active", i);
        auto* day = Named(new QComboBox(box), "Combo" + prefix + "Jour", i);
        for (int d = 1; d <= 7; ++d) day->addItem(Q(DayName(d)));
        auto* hour = Named(new QComboBox(box), "Combo" + prefix + "Heure", i);
        for (int h = 0; h < 24; ++h) hour->addItem(Q(ZeroPad(h, 2)));
        auto* minute = Named(new QComboBox(box), "Combo" + prefix + "Minute", i);
        for (int m = 0; m < 60; ++m) minute->addItem(Q(ZeroPad(m, 2)));
        connect(active, &QCheckBox::toggled, this, modified);
        for (QComboBox* c : {day, hour, minute})
            connect(c, &QComboBox::currentIndexChanged, this, modified);
        int row = r % 5, col = (r / 5) * 5;
        grid->addWidget(active, row, col);
        grid->addWidget(day, row, col + 1);
        grid->addWidget(hour, row, col + 2);
        grid->addWidget(new QLabel("h", box), row, col + 3);
        grid->addWidget(minute, row, col + 4);
    }
    grid->setColumnStretch(10, 1);  // the rows keep their natural width, on the left
    grid->setColumnMinimumWidth(5, 24);
    layout->addLayout(grid);

    if (kind == PlanKind::Export) {
        auto* row = new QHBoxLayout();
        row->addWidget(new QLabel("Nature:", box));
        auto* nature = Named(new QComboBox(box), "ComboExportNature", b);
        // The list index is the nature stored in the settings: every nature keeps its place.
        for (int k = 0; k < static_cast<int>(kExportNatures.size()); ++k)
            nature->addItem(QString::fromUtf8(kExportNatures[k]), k);
        connect(nature, &QComboBox::currentIndexChanged, this, modified);
        row->addWidget(nature);
        row->addWidget(new QLabel("Stations:", box));
        for (int s = 0; s < Site().bases[b].stationCount; ++s) {
            auto* st = Named(new QCheckBox(Q(Site().bases[b].stations[s].label), box),
                             "CheckExportStation", b * 10 + s);
            connect(st, &QCheckBox::toggled, this, modified);
            row->addWidget(st);
        }
        row->addStretch();
        layout->addLayout(row);
    } else if (kind == PlanKind::Import) {
        auto* row = new QGridLayout();
        row->addWidget(new QLabel("Nature:", box), 0, 0);
        auto* nature = Named(new QComboBox(box), "ComboImportNature", b);
        for (int k = 0; k < static_cast<int>(kImportNatures.size()); ++k)
            nature->addItem(QString::fromUtf8(kImportNatures[k]), k);
        connect(nature, &QComboBox::currentIndexChanged, this, modified);
        row->addWidget(nature, 0, 1, 1, 4);
        for (int k = 0; k < 8; ++k) {
            std::string name =
                std::string(k < 4 ? "ComboImportStationSource0" : "ComboImportStationCible0") +
                std::to_string(k % 4 + 1);
            auto* combo = Named(new QComboBox(box), name, b);
            combo->addItem("-");
            for (int s = 1; s <= kMaxStations; ++s) combo->addItem(Q(DefaultStationLabel(s)));
            connect(combo, &QComboBox::currentIndexChanged, this, modified);
            if (k % 4 == 0)
                row->addWidget(new QLabel(k < 4 ? "Sources:" : "Cibles:", box), 1 + k / 4, 0);
            row->addWidget(combo, 1 + k / 4, 1 + k % 4);
        }
        layout->addLayout(row);
    }

    auto* bottom = new QHBoxLayout();
    bottom->addWidget(
        new QLabel(kind == PlanKind::Backup ? "Prochain backup:" : "Prochaine date:", box));
    auto* next = Named(new QLineEdit(box), n.next, b);
    next->setReadOnly(true);
    next_[static_cast<size_t>(kind)][static_cast<size_t>(b)] = next;
    bottom->addWidget(next, 1);
    auto* save = Named(new QPushButton("Enregistrer", box), "Command" + prefix + "Enregistrer", b);
    connect(save, &QPushButton::clicked, this, [this, b] { Save(b); });
    bottom->addWidget(save);
    layout->addLayout(bottom);
    return box;
}

void PlanningPages::MarkModified(int base) {
    if (!loading_ && base >= 0 && base < static_cast<int>(Startup().planningModified.size()))
        Startup().planningModified[base] = true;
}

void PlanningPages::ShowNature(QComboBox* combo, int nature) {
    if (!combo) return;
    int index = combo->findData(nature);
    if (index < 0) {
        // A nature this program does not know (a newer program wrote it): shown by its number
        // and saved back as it was.
        combo->addItem(Q("Nature " + std::to_string(nature)), nature);
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
}

void PlanningPages::ReadControls(int b) {
    BasePlan& plan = scheduler_.Plan(b);
    auto read = [&](const std::string& prefix, OperationPlan& op, const char* activer) {
        for (int r = 0; r < kPlanRows; ++r) {
            int i = b * 10 + r;
            if (auto* c = main_->findChild<QCheckBox*>(ControlName("Check" + prefix + "Active", i)))
                op.rows[r].active = c->isChecked();
            if (auto* c = main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Jour", i)))
                op.rows[r].weekday = c->currentIndex();
            if (auto* c = main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Heure", i)))
                op.rows[r].hour = c->currentIndex();
            if (auto* c = main_->findChild<QComboBox*>(ControlName("Combo" + prefix + "Minute", i)))
                op.rows[r].minute = c->currentIndex();
        }
        if (auto* c = main_->findChild<QCheckBox*>(ControlName(activer, b)))
            op.active = c->isChecked();
    };
    read("Bkp", plan.backup, "CheckBackupActiver");
    read("Export", plan.exportPlan, "CheckExportActiver");
    read("Import", plan.importPlan, "CheckImportActiver");
    if (auto* c = main_->findChild<QCheckBox*>(ControlName("CheckBkpAll", b)))
        plan.backupAll = c->isChecked();
    if (auto* c = main_->findChild<QComboBox*>(ControlName("ComboExportNature", b)))
        plan.exportPlan.nature = c->currentData().toInt();
    if (auto* c = main_->findChild<QComboBox*>(ControlName("ComboImportNature", b)))
        plan.importPlan.nature = c->currentData().toInt();
    std::string stations(kMaxStations, '0');
    for (int s = 0; s < kMaxStations; ++s)
        if (auto* c = main_->findChild<QCheckBox*>(ControlName("CheckExportStation", b * 10 + s)))
            stations[s] = c->isChecked() ? '1' : '0';
    plan.stationsExport = stations;
    std::string import;
    for (int k = 0; k < 8; ++k) {
        std::string name =
            std::string(k < 4 ? "ComboImportStationSource0" : "ComboImportStationCible0") +
            std::to_string(k % 4 + 1);
        auto* c = main_->findChild<QComboBox*>(ControlName(name, b));
        import += ZeroPad(c ? c->currentIndex() : 0, 2);
    }
    plan.stationsImport = import;
}

void PlanningPages::Save(int b) {
    ReadControls(b);
    scheduler_.Save(b);
    TraceLog("Planning saved: base " + std::to_string(b));
    if (b >= 0 && b < static_cast<int>(Startup().planningModified.size()))
        Startup().planningModified[b] = false;
}

void PlanningPages::SaveModified() {
    for (int b = 0; b < Site().baseCount && b < static_cast<int>(Startup().planningModified.size());
         ++b)
        if (Startup().planningModified[b]) Save(b);
}

}  // namespace toverin::ui
