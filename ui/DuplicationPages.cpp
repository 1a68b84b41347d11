#include "ui/DuplicationPages.h"

#include <QApplication>
#include <QCalendarWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Progress.h"
#include "app/Text.h"
#include "content/Duplication.h"
#include "content/DuplicationGrid.h"
#include "ui/ControlName.h"
#include "ui/Frm_Main.h"
#include "ui/Widgets.h"

namespace toverin::ui {
namespace {

QDate ToQDate(LocalTime t) {
    const std::string key = DateKey(t);
    return QDate(std::stoi(key.substr(0, 4)), std::stoi(key.substr(4, 2)),
                 std::stoi(key.substr(6, 2)));
}

LocalTime FromQDate(const QDate& d) {
    return MakeLocalTime(d.year(), d.month(), d.day());
}

// A date picker with the French calendar: the drop-down month starts on Monday and names the
// days and months in French.
QDateEdit* DatePicker(QWidget* parent, const char* control, int base) {
    auto* picker = Named(new QDateEdit(ToQDate(AppClock().Now()), parent), control, base);
    const QLocale french(QLocale::French, QLocale::France);
    picker->setLocale(french);
    picker->setDisplayFormat("dd/MM/yyyy");
    picker->setCalendarPopup(true);
    picker->calendarWidget()->setLocale(french);
    picker->calendarWidget()->setFirstDayOfWeek(Qt::Monday);
    return picker;
}

// Hours "00" .. "23": the list index is the hour.
QComboBox* HourCombo(QWidget* parent, const char* control, int base, int hour) {
    auto* combo = Named(new QComboBox(parent), control, base);
    for (int h = 0; h < 24; ++h) combo->addItem(Q(ZeroPad(h, 2)));
    combo->setCurrentIndex(hour);
    return combo;
}

// The base's stations: the list index + 1 is the station number.
QComboBox* StationCombo(QWidget* parent, const char* control, int base) {
    auto* combo = Named(new QComboBox(parent), control, base);
    for (const auto& station : Site().bases[static_cast<size_t>(base)].stations)
        combo->addItem(Q(station.label));
    return combo;
}

QListWidget* StationList(QWidget* parent, const char* control, int base) {
    auto* list = Named(new QListWidget(parent), control, base);
    list->setSelectionMode(QAbstractItemView::MultiSelection);
    for (const auto& station : Site().bases[static_cast<size_t>(base)].stations)
        list->addItem(Q(station.label));
    list->setMaximumHeight(150);
    list->setMinimumWidth(220);
    return list;
}

std::array<bool, kMaxStations> Selected(QListWidget* list) {
    std::array<bool, kMaxStations> selected{};
    for (int i = 0; i < list->count() && i < kMaxStations; ++i)
        selected[static_cast<size_t>(i)] = list->item(i)->isSelected();
    return selected;
}

// A run's events on its page: the caption while it lasts, the button, the hourglass, the
// progress texts and the phase.
class DuplicationProgress final : public ProgressObserver {
  public:
    DuplicationProgress(Frm_Main* main, QPushButton* button, std::vector<QLineEdit*> texts,
                        QLabel* phase)
        : main_(main), button_(button), texts_(std::move(texts)), phase_(phase) {}
    ~DuplicationProgress() override { Restore(); }

    void OnProgress(const progress::Event& event) override {
        if (const auto* e = std::get_if<progress::Started>(&event)) {
            caption_ = AppCaption();
            SetAppCaption(e->caption);
            main_->setWindowTitle(Q(e->caption));
            button_->setEnabled(false);
            QApplication::setOverrideCursor(Qt::WaitCursor);
            hourglass_ = true;
        } else if (std::get_if<progress::Ended>(&event)) {
            Restore();
        } else if (const auto* e = std::get_if<progress::DayReached>(&event)) {
            Show(0, e->day);
        } else if (const auto* e = std::get_if<progress::KeyReached>(&event)) {
            Show(1, e->key);
        } else if (const auto* e = std::get_if<progress::ItemReached>(&event)) {
            Show(2, e->text);
        } else if (const auto* e = std::get_if<progress::PhaseChanged>(&event)) {
            phase_->setText(Q(e->phase));
        }
    }

  private:
    void Show(size_t item, const std::string& text) {
        // A page with a single text shows the latest of them.
        QLineEdit* box = texts_.size() > item ? texts_[item] : texts_.back();
        box->setText(Q(text));
    }
    void Restore() {
        if (!caption_.empty()) {
            SetAppCaption(caption_);
            main_->setWindowTitle(Q(caption_));
            caption_.clear();
        }
        if (hourglass_) QApplication::restoreOverrideCursor();
        hourglass_ = false;
        button_->setEnabled(true);
    }

    Frm_Main* main_;
    QPushButton* button_;
    std::vector<QLineEdit*> texts_;
    QLabel* phase_;
    std::string caption_;
    bool hourglass_ = false;
};

}  // namespace

DuplicationPages::DuplicationPages(Frm_Main* main) : QObject(main), main_(main) {}

DuplicationPages::~DuplicationPages() = default;

void DuplicationPages::Build() {
    const int bases = Site().baseCount;
    schedule_.resize(static_cast<size_t>(bases));
    labels_.resize(static_cast<size_t>(bases));
    for (int b = 0; b < bases; ++b) {
        QWidget* page = main_->BasePage(MainTab::Duplication, b);
        auto* tabs = Named(new QTabWidget(page), "SftTabsDuplication", b);
        auto* schedulePage = new QWidget(tabs);
        auto* labelPage = new QWidget(tabs);
        BuildSchedulePage(b, schedulePage);
        BuildLabelPage(b, labelPage);
        tabs->addTab(schedulePage, "Conducteur musical");
        tabs->addTab(labelPage, QString::fromUtf8("Libellés"));
        main_->BasePageLayout(MainTab::Duplication, b)->addWidget(tabs);
        tabs_.push_back(tabs);
    }
}

void DuplicationPages::BuildSchedulePage(int b, QWidget* page) {
    ScheduleDuplicationPage& p = schedule_[static_cast<size_t>(b)];
    auto* layout = new QVBoxLayout(page);
    auto* row = new QHBoxLayout();

    auto* source = new QGroupBox("Source", page);
    auto* sf = new QFormLayout(source);
    sf->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    p.ComboDuplicationStationSource = StationCombo(source, "ComboDuplicationStationSource", b);
    p.DTPickerDuplicationDateDeb = DatePicker(source, "DTPickerDuplicationDateDeb", b);
    p.DTPickerDuplicationDateFin = DatePicker(source, "DTPickerDuplicationDateFin", b);
    p.ComboDuplicationHHDeb = HourCombo(source, "ComboDuplicationHHDeb", b, 0);
    p.ComboDuplicationHHFin = HourCombo(source, "ComboDuplicationHHFin", b, 23);
    p.CheckDuplication = Named(new QCheckBox(QString::fromUtf8("Dupliquer l'historique"), source),
                               "CheckDuplication", b);
    sf->addRow("Station", p.ComboDuplicationStationSource);
    sf->addRow(QString::fromUtf8("Date de départ"), p.DTPickerDuplicationDateDeb);
    sf->addRow("Date de fin", p.DTPickerDuplicationDateFin);
    sf->addRow(QString::fromUtf8("Heure de début"), p.ComboDuplicationHHDeb);
    sf->addRow("Heure de fin", p.ComboDuplicationHHFin);
    sf->addRow(p.CheckDuplication);
    row->addWidget(source);

    auto* target = new QGroupBox("Cible", page);
    auto* tf = new QFormLayout(target);
    tf->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    p.ListeDuplicationStationsCibles = StationList(target, "ListeDuplicationStationsCibles", b);
    p.DTPickerDuplicationDateCible = DatePicker(target, "DTPickerDuplicationDateCible", b);
    p.ComboDuplicationHHDebCible = HourCombo(target, "ComboDuplicationHHDebCible", b, 0);
    tf->addRow("Stations", p.ListeDuplicationStationsCibles);
    tf->addRow("Date cible", p.DTPickerDuplicationDateCible);
    tf->addRow(QString::fromUtf8("Heure de début"), p.ComboDuplicationHHDebCible);
    row->addWidget(target);
    row->addStretch();
    layout->addLayout(row);

    p.CommandDuplication = Named(new QPushButton("Dupliquer", page), "CommandDuplication", b);
    layout->addWidget(p.CommandDuplication, 0, Qt::AlignLeft);

    auto* progress = new QGroupBox("Progression", page);
    auto* pl = new QVBoxLayout(progress);
    for (int i = 0; i < 3; ++i) {
        QLineEdit* text = ReadOnlyBox(progress, "TexteDuplication", b);
        text->setObjectName(QString("TexteDuplication_%1_%2").arg(b).arg(i + 1));  // items 1..3
        p.TexteDuplication[static_cast<size_t>(i)] = text;
        pl->addWidget(text);
    }
    p.LabelDuplication = Named(new QLabel(progress), "LabelDuplication", b);
    pl->addWidget(p.LabelDuplication);
    layout->addWidget(progress);
    layout->addStretch();

    // Choosing the source's first hour makes it the target's too (no shift by default);
    // changing the first source day makes it the last one as well.
    connect(p.ComboDuplicationHHDeb, &QComboBox::activated, this,
            [&p](int hour) { p.ComboDuplicationHHDebCible->setCurrentIndex(hour); });
    connect(p.DTPickerDuplicationDateDeb, &QDateEdit::dateChanged, this,
            [&p](QDate day) { p.DTPickerDuplicationDateFin->setDate(day); });
    connect(p.CommandDuplication, &QPushButton::clicked, this,
            [this, b] { CommandDuplication_Click(b); });
}

void DuplicationPages::BuildLabelPage(int b, QWidget* page) {
    LabelDuplicationPage& p = labels_[static_cast<size_t>(b)];
    auto* layout = new QVBoxLayout(page);
    auto* row = new QHBoxLayout();

    auto* stations = new QGroupBox("Stations", page);
    auto* sf = new QFormLayout(stations);
    sf->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    p.ComboDuplicationStationSourceLibelle =
        StationCombo(stations, "ComboDuplicationStationSourceLibelle", b);
    p.ListeDuplicationStationsCiblesLibelles =
        StationList(stations, "ListeDuplicationStationsCiblesLibelles", b);
    sf->addRow("Station", p.ComboDuplicationStationSourceLibelle);
    sf->addRow("Stations", p.ListeDuplicationStationsCiblesLibelles);
    row->addWidget(stations);

    auto* groups = new QGroupBox(QString::fromUtf8("Libellés à dupliquer"), page);
    auto* gl = new QVBoxLayout(groups);
    auto check = [&](const char* caption, const char* control) {
        auto* box = Named(new QCheckBox(QString::fromUtf8(caption), groups), control, b);
        gl->addWidget(box);
        return box;
    };
    p.CheckDupliquerCategorie = check("Catégories", "CheckDupliquerCategorie");
    p.CheckDupliquerSujet = check("Sujets", "CheckDupliquerSujet");
    p.CheckDupliquerHorloge = check("Horloges", "CheckDupliquerHorloge");
    p.CheckDupliquerMorceauMus = check("Morceaux: Musique", "CheckDupliquerMorceauMus");
    p.CheckDupliquerMorceauJin = check("Morceaux: Jingle", "CheckDupliquerMorceauJin");
    p.CheckDupliquerMorceauLin = check("Morceaux: Liner", "CheckDupliquerMorceauLin");
    p.CheckDupliquerMorceauRub = check("Morceaux: Rubrique", "CheckDupliquerMorceauRub");
    p.CheckDupliquerMorceauInf = check("Morceaux: Information", "CheckDupliquerMorceauInf");
    gl->addSpacing(8);
    p.CheckChangerCategorie = check("Changer Catégorie", "CheckChangerCategorie");
    p.CheckZonesActives = check("Toutes zones actives", "CheckZonesActives");
    row->addWidget(groups);
    row->addStretch();
    layout->addLayout(row);

    p.CommandDuplicationLibelle =
        Named(new QPushButton("Dupliquer", page), "CommandDuplicationLibelle", b);
    layout->addWidget(p.CommandDuplicationLibelle, 0, Qt::AlignLeft);
    auto* progress = new QGroupBox("Progression", page);
    auto* pl = new QVBoxLayout(progress);
    p.TexteDuplicationLibelle = ReadOnlyBox(progress, "TexteDuplicationLibelle", b);
    p.LabelDuplicationLibelle = Named(new QLabel(progress), "LabelDuplicationLibelle", b);
    pl->addWidget(p.TexteDuplicationLibelle);
    pl->addWidget(p.LabelDuplicationLibelle);
    layout->addWidget(progress);
    layout->addStretch();
    connect(p.CommandDuplicationLibelle, &QPushButton::clicked, this,
            [this, b] { CommandDuplicationLibelle_Click(b); });
}

void DuplicationPages::CommandDuplication_Click(int base) {
    const ScheduleDuplicationPage& p = schedule(base);
    ScheduleDuplicationRequest request;
    request.base = base;
    request.sourceStation = p.ComboDuplicationStationSource->currentIndex() + 1;
    request.targets = Selected(p.ListeDuplicationStationsCibles);
    request.dateDeb = FromQDate(p.DTPickerDuplicationDateDeb->date());
    request.dateFin = FromQDate(p.DTPickerDuplicationDateFin->date());
    request.dateCible = FromQDate(p.DTPickerDuplicationDateCible->date());
    request.hourDeb = p.ComboDuplicationHHDeb->currentIndex();
    request.hourFin = p.ComboDuplicationHHFin->currentIndex();
    request.hourDebCible = p.ComboDuplicationHHDebCible->currentIndex();
    request.history = p.CheckDuplication->isChecked();
    // The grid as the options window last saved it.
    InitSettingsDuplication(request.grid);
    request.equivalence = equivalence ? equivalence(base) : nullptr;
    DuplicationProgress progress(
        main_, p.CommandDuplication,
        {p.TexteDuplication[0], p.TexteDuplication[1], p.TexteDuplication[2]}, p.LabelDuplication);
    DuplicationScheduler(request, progress);
}

void DuplicationPages::CommandDuplicationLibelle_Click(int base) {
    const LabelDuplicationPage& p = labels(base);
    LabelDuplicationRequest request;
    request.base = base;
    request.sourceStation = p.ComboDuplicationStationSourceLibelle->currentIndex() + 1;
    request.targets = Selected(p.ListeDuplicationStationsCiblesLibelles);
    const std::array<QCheckBox*, kLabelGroups> groups = {
        p.CheckDupliquerCategorie,  p.CheckDupliquerSujet,      p.CheckDupliquerHorloge,
        p.CheckDupliquerMorceauMus, p.CheckDupliquerMorceauJin, p.CheckDupliquerMorceauLin,
        p.CheckDupliquerMorceauRub, p.CheckDupliquerMorceauInf};
    for (size_t g = 0; g < groups.size(); ++g) request.groups[g] = groups[g]->isChecked();
    request.changeCategory = p.CheckChangerCategorie->isChecked();
    request.allZones = p.CheckZonesActives->isChecked();
    DuplicationProgress progress(main_, p.CommandDuplicationLibelle, {p.TexteDuplicationLibelle},
                                 p.LabelDuplicationLibelle);
    DuplicationLibelle(request, progress);
}

}  // namespace toverin::ui
