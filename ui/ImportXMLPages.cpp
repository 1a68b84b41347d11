#include "ui/ImportXMLPages.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>
#include <map>

#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/ImportXML.h"
#include "content/ImportXMLMapping.h"
#include "content/ImportXMLReader.h"
#include "ui/ControlName.h"
#include "ui/Frm_Main.h"
#include "ui/Widgets.h"

namespace toverin::ui {

namespace {

// The lines of one section of a file, and how many records each section holds.
class SectionLines final : public XmlDeliveryVisitor {
  public:
    explicit SectionLines(std::string wanted) : wanted_(std::move(wanted)) {}
    bool Record(const XmlSectionInfo& section, long, std::string_view line,
                const XmlElements&) override {
        ++counts[section.element];
        if (first.empty()) first = section.element;
        if (wanted_ == section.element) lines.emplace_back(line);
        return true;
    }
    bool WantsElements() const override { return false; }
    const std::string& wanted() const { return wanted_; }

    std::map<std::string, long> counts;
    std::vector<std::string> lines;
    std::string first;  // the file's first section

  private:
    std::string wanted_;
};

// The page's progress bar, state line and the window's caption while an import runs.
class PageProgress final : public ProgressObserver {
  public:
    PageProgress(QProgressBar* bar, QLabel* state, QWidget* window)
        : bar_(bar), state_(state), window_(window), caption_(window->windowTitle()) {}
    void OnProgress(const progress::Event& event) override {
        if (const auto* s = std::get_if<progress::Started>(&event)) {
            window_->setWindowTitle(Q(s->caption));
        } else if (const auto* p = std::get_if<progress::PhaseChanged>(&event)) {
            state_->setText(Q(p->phase));
            bar_->setRange(0, 1);
            bar_->setValue(0);
        } else if (const auto* r = std::get_if<progress::RecordsDone>(&event)) {
            // A progress bar holds an int: large counts are shown in thousandths.
            const long long max = std::max<long long>(r->expected, 1);
            bar_->setRange(0, 1000);
            bar_->setValue(static_cast<int>(std::min<long long>(r->done, max) * 1000 / max));
        } else if (const auto* e = std::get_if<progress::Ended>(&event)) {
            window_->setWindowTitle(caption_);
            state_->setText(Q(e->summary));
            bar_->setRange(0, 1);
            bar_->setValue(e->outcome == progress::Outcome::Refused ? 0 : 1);
        }
    }

  private:
    QProgressBar* bar_;
    QLabel* state_;
    QWidget* window_;
    QString caption_;
};

}  // namespace

// ---- The list view's model -------------------------------------------------------------

ImportXMLModel::ImportXMLModel(QObject* parent) : QAbstractTableModel(parent) {}

void ImportXMLModel::Reset(const XmlSectionInfo* section, std::vector<std::string> lines) {
    beginResetModel();
    section_ = section;
    columns_ = section ? ImportXMLColonnes(section->section) : std::vector<std::string>{};
    lines_ = std::move(lines);
    order_.resize(lines_.size());
    for (size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<int>(i);
    cachedLine_ = -1;
    endResetModel();
}

int ImportXMLModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(order_.size());
}

int ImportXMLModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(columns_.size());
}

const std::vector<std::string>& ImportXMLModel::Cells(int line) const {
    if (line != cachedLine_) {
        cached_ = ImportXMLExtraireData(*section_, lines_[static_cast<size_t>(line)]);
        cachedLine_ = line;
    }
    return cached_;
}

QVariant ImportXMLModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || role != Qt::DisplayRole || !section_) return {};
    const std::vector<std::string>& cells = Cells(order_[static_cast<size_t>(index.row())]);
    return index.column() < static_cast<int>(cells.size())
               ? Q(cells[static_cast<size_t>(index.column())])
               : QVariant();
}

QVariant ImportXMLModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole ||
        section >= static_cast<int>(columns_.size()))
        return {};
    return Q(columns_[static_cast<size_t>(section)]);
}

void ImportXMLModel::sort(int column, Qt::SortOrder order) {
    if (!section_ || column < 0 || column >= static_cast<int>(columns_.size())) return;
    emit layoutAboutToBeChanged();
    // The one column's texts, not every cell of every row.
    std::vector<QString> keys(lines_.size());
    for (size_t i = 0; i < lines_.size(); ++i) {
        keys[i] = column == 0 ? Q(ImportXMLExtraireData(*section_, lines_[i]).front())
                              : Q(Utf8FromCp1252(ImportXMLValeur(
                                    *section_, lines_[i], columns_[static_cast<size_t>(column)])));
    }
    std::stable_sort(order_.begin(), order_.end(), [&](int a, int b) {
        const int c =
            QString::localeAwareCompare(keys[static_cast<size_t>(a)], keys[static_cast<size_t>(b)]);
        return order == Qt::AscendingOrder ? c < 0 : c > 0;
    });
    emit layoutChanged();
}

std::vector<std::string> ImportXMLModel::Row(int row) const {
    if (!section_ || row < 0 || row >= rowCount()) return {};
    return Cells(order_[static_cast<size_t>(row)]);
}

// ---- The pages -------------------------------------------------------------------------

ImportXMLPages::ImportXMLPages(Frm_Main* main) : QObject(main), main_(main) {}

void ImportXMLPages::Build() {
    for (int b = 0; b < Site().baseCount; ++b) {
        QWidget* basePage = main_->BasePage(MainTab::Import, b);
        QVBoxLayout* layout = main_->BasePageLayout(MainTab::Import, b);
        if (!basePage || !layout) continue;
        // The page keeps what it holds (the plan) on a first tab, the XML import on a second.
        auto* tabs = Named(new QTabWidget(basePage), "TabsImport", b);
        auto* planning = new QWidget(tabs);
        auto* planningLayout = new QVBoxLayout(planning);
        while (QLayoutItem* item = layout->takeAt(0)) {
            if (QWidget* w = item->widget())
                planningLayout->addWidget(w);
            else
                planningLayout->addItem(item);
            if (item->widget()) delete item;
        }
        tabs->addTab(planning, "Planification");
        auto* xml = new QWidget(tabs);
        tabs->addTab(xml, "Import XML");
        layout->addWidget(tabs);
        pages_.push_back(std::make_unique<Page>());
        pages_.back()->base = b;
        BuildPage(*pages_.back(), xml);
        ImportXMLInitGeneral(*pages_.back());
    }
}

void ImportXMLPages::BuildPage(Page& p, QWidget* parent) {
    const int b = p.base;
    auto* layout = new QVBoxLayout(parent);

    auto* source = new QHBoxLayout();
    source->addWidget(new QLabel("Dossier source:", parent));
    p.dossier = Named(new QLineEdit(parent), "TexteImportXMLDossierSource", b);
    source->addWidget(p.dossier, 1);
    auto* choose = Named(new QPushButton("...", parent), "CommandImportXMLDossier", b);
    choose->setToolTip("Choisir le dossier des fichiers xml");
    choose->setFixedWidth(40);
    source->addWidget(choose);
    layout->addLayout(source);

    auto* split = new QSplitter(Qt::Horizontal, parent);
    auto* left = new QWidget(split);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(new QLabel("Fichiers xml:", left));
    p.fichiers = Named(new QListWidget(left), "FileImportXML", b);
    leftLayout->addWidget(p.fichiers, 1);
    auto* load = Named(new QPushButton("Charger", left), "CommandImportXMLCharger", b);
    leftLayout->addWidget(load);
    auto* right = new QWidget(split);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    auto* typeRow = new QHBoxLayout();
    typeRow->addWidget(new QLabel("Type:", right));
    p.type = Named(new QComboBox(right), "ComboTypeImportXML", b);
    for (const XmlSectionInfo& s : ImportXMLSections()) p.type->addItem(Q(s.label), Q(s.element));
    typeRow->addWidget(p.type, 1);
    rightLayout->addLayout(typeRow);
    p.liste = Named(new QTreeView(right), "ListViewImportXML", b);
    p.model = new ImportXMLModel(p.liste);
    p.liste->setModel(p.model);
    p.liste->setRootIsDecorated(false);
    p.liste->setUniformRowHeights(true);
    p.liste->setAlternatingRowColors(true);
    p.liste->setSortingEnabled(true);
    p.liste->header()->setSortIndicatorShown(true);
    p.liste->header()->setSortIndicator(-1, Qt::AscendingOrder);  // file order until a click
    rightLayout->addWidget(p.liste, 1);
    split->addWidget(left);
    split->addWidget(right);
    split->setStretchFactor(1, 4);
    layout->addWidget(split, 1);

    auto* target = new QGridLayout();
    target->addWidget(new QLabel("Base:", parent), 0, 0);
    p.cible = Named(new QComboBox(parent), "ComboImportXMLBase", b);
    for (int i = 0; i < Site().baseCount; ++i)
        p.cible->addItem(Q(Site().bases[static_cast<size_t>(i)].label));
    target->addWidget(p.cible, 0, 1);
    target->addWidget(new QLabel("Station:", parent), 0, 2);
    p.station = Named(new QComboBox(parent), "ComboImportXMLStation", b);
    target->addWidget(p.station, 0, 3);
    target->addWidget(new QLabel("Catégorie des morceaux sans catégorie:", parent), 0, 4);
    p.categorie = Named(new QComboBox(parent), "ComboImportXMLCategorie", b);
    target->addWidget(p.categorie, 0, 5);
    p.validation =
        Named(new QCheckBox("Validation: vérifier chaque enregistrement sans rien écrire", parent),
              "CheckImportXMLValidation", b);
    target->addWidget(p.validation, 1, 0, 1, 4);
    p.importer = Named(new QPushButton("Importer", parent), "CommandImportXML", b);
    target->addWidget(p.importer, 1, 5);
    target->setColumnStretch(5, 1);
    layout->addLayout(target);

    p.progression = Named(new QProgressBar(parent), "ProgressBarImportXML", b);
    p.progression->setRange(0, 1);
    p.progression->setValue(0);
    layout->addWidget(p.progression);
    p.etat = Named(new QLabel(parent), "LabelImportXMLEtat", b);
    p.etat->setWordWrap(true);
    layout->addWidget(p.etat);
    layout->addWidget(
        new QLabel("Enregistrements refusés, clés non trouvées, valeurs modifiées:", parent));
    p.refus = Named(new QListWidget(parent), "ListImportXMLRefus", b);
    p.refus->setMaximumHeight(110);
    layout->addWidget(p.refus);
    p.largeurs = new QTimer(this);
    p.largeurs->setSingleShot(true);
    p.largeurs->setInterval(400);

    connect(choose, &QPushButton::clicked, this, [this, &p] { CommandImportXMLDossier_Click(p); });
    connect(p.dossier, &QLineEdit::editingFinished, this, [this, &p] {
        ListeFichiers(p);
        SaveSettings(p);
    });
    connect(load, &QPushButton::clicked, this, [this, &p] { CommandImportXMLCharger_Click(p); });
    connect(p.fichiers, &QListWidget::itemDoubleClicked, this,
            [this, &p] { CommandImportXMLCharger_Click(p); });
    connect(p.type, &QComboBox::currentIndexChanged, this, [this, &p] {
        if (p.loading) return;
        ImportXMLInitListView(p, false);
        SaveSettings(p);
    });
    connect(p.cible, &QComboBox::currentIndexChanged, this, [this, &p] {
        if (p.loading) return;
        FillStations(p);
        FillCategories(p);
        SaveSettings(p);
    });
    connect(p.station, &QComboBox::currentIndexChanged, this, [this, &p] {
        if (p.loading) return;
        FillCategories(p);
        SaveSettings(p);
    });
    connect(p.categorie, &QComboBox::currentIndexChanged, this, [this, &p] {
        if (!p.loading) SaveSettings(p);
    });
    connect(p.validation, &QCheckBox::toggled, this, [this, &p] {
        if (!p.loading) SaveSettings(p);
    });
    connect(p.importer, &QPushButton::clicked, this, [this, &p] { CommandImportXML_Click(p); });
    connect(p.liste->header(), &QHeaderView::sectionResized, this, [&p] {
        if (!p.loading) p.largeurs->start();
    });
    connect(p.largeurs, &QTimer::timeout, this, [this, &p] { SaveColumnWidths(p); });
}

void ImportXMLPages::ImportXMLInitGeneral(Page& p) {
    p.loading = true;
    const ImportXMLReglages r = LectureReglagesImportXML(p.base);
    p.dossier->setText(Q(r.dossier.empty() ? ImportXMLDossierSourceParDefaut(p.base) : r.dossier));
    const int cible = r.base >= 0 && r.base < p.cible->count() ? r.base : p.base;
    p.cible->setCurrentIndex(cible);
    FillStations(p);
    p.station->setCurrentIndex(std::clamp(r.station - 1, 0, std::max(0, p.station->count() - 1)));
    FillCategories(p);
    const int categorie = p.categorie->findData(Q(r.categorie));
    p.categorie->setCurrentIndex(categorie < 0 ? 0 : categorie);
    p.validation->setChecked(r.validation);
    const int type = p.type->findData(Q(r.section));
    p.type->setCurrentIndex(type < 0 ? 0 : type);
    ListeFichiers(p);
    ImportXMLInitListViewPosLargeur(p);
    p.loading = false;
}

void ImportXMLPages::SaveSettings(Page& p) {
    ImportXMLReglages r;
    r.dossier = p.dossier->text().toStdString();
    r.base = p.cible->currentIndex();
    r.station = p.station->currentIndex() + 1;
    r.categorie = p.categorie->currentData().toString().toStdString();
    r.validation = p.validation->isChecked();
    r.section = ShownSection(p);
    EcritureReglagesImportXML(p.base, r);
}

std::string ImportXMLPages::ShownSection(const Page& p) const {
    return p.type->currentData().toString().toStdString();
}

void ImportXMLPages::CommandImportXMLDossier_Click(Page& p) {
    const std::string chosen =
        AppDialogs().SelectFolder("Dossier des fichiers xml", p.dossier->text().toStdString());
    if (chosen == "*" || chosen.empty()) return;
    p.dossier->setText(Q(NormaliseFolder(chosen)));
    ListeFichiers(p);
    SaveSettings(p);
}

// The "*.xml" files of the source folder, by name (the filter "Fichiers xml|*.xml").
void ImportXMLPages::ListeFichiers(Page& p) {
    p.fichiers->clear();
    const std::string folder = NativePath(p.dossier->text().toStdString());
    std::error_code ec;
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file(ec) && name.size() > 4 &&
            EqualsIgnoreCase(name.substr(name.size() - 4), ".xml"))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) p.fichiers->addItem(Q(name));
    if (p.fichiers->count() > 0) p.fichiers->setCurrentRow(0);
}

void ImportXMLPages::CommandImportXMLCharger_Click(Page& p) {
    if (!p.fichiers->currentItem()) {
        AffMsg("Sélectionnez un fichier xml", MsgButtons::Ok, MsgIcon::Exclamation);
        return;
    }
    p.fichier = JoinPath(NativePath(p.dossier->text().toStdString()),
                         p.fichiers->currentItem()->text().toStdString());
    TraceLog("Import XML: Load: " + p.fichier);
    ImportXMLInitListView(p, true);
}

// Reads the loaded file again for the section chosen: a delivery is never kept whole.
void ImportXMLPages::ImportXMLInitListView(Page& p, bool newFile) {
    p.refus->clear();
    if (p.fichier.empty()) {
        p.model->Reset(nullptr, {});
        return;
    }
    SectionLines lines(ShownSection(p));
    XmlReadResult read = ImportXMLLireFichier(p.fichier, lines);
    // A file just loaded opens on the section shown before when it has one, else on its first.
    if (newFile && read.ok && lines.lines.empty() && !lines.first.empty()) {
        SectionLines first(lines.first);
        read = ImportXMLLireFichier(p.fichier, first);
        lines = std::move(first);
    }
    const bool was = p.loading;
    p.loading = true;
    for (int i = 0; i < p.type->count(); ++i) {
        const std::string element = p.type->itemData(i).toString().toStdString();
        const long count = lines.counts.count(element) ? lines.counts.at(element) : 0;
        p.type->setItemText(i, Q(std::string(ImportXMLSections()[static_cast<size_t>(i)].label) +
                                 (count ? " (" + std::to_string(count) + ")" : "")));
    }
    p.type->setCurrentIndex(std::max(0, p.type->findData(Q(lines.wanted()))));
    p.liste->header()->setSortIndicator(-1, Qt::AscendingOrder);
    p.model->Reset(SectionByElement(lines.wanted()), std::move(lines.lines));
    ImportXMLInitListViewPosLargeur(p);
    p.loading = was;
    if (!read.ok) {
        p.etat->setText(Q(read.message));
        AffMsg(FileNameOf(p.fichier) + ": " + read.message, MsgButtons::Ok, MsgIcon::Critical);
    } else {
        p.etat->setText(Q(FileNameOf(p.fichier) + ": " + std::to_string(read.records) +
                          " enregistrements, " + std::to_string(read.ignored) +
                          " lignes ignorées"));
    }
}

// The columns' widths as saved for the section, else as wide as their headings ask.
void ImportXMLPages::ImportXMLInitListViewPosLargeur(Page& p) {
    const std::string saved = LectureLargeursImportXML(p.base, ShownSection(p));
    std::vector<int> widths;
    size_t from = 0;
    while (from < saved.size()) {
        size_t comma = saved.find(',', from);
        if (comma == std::string::npos) comma = saved.size();
        try {
            widths.push_back(std::stoi(saved.substr(from, comma - from)));
        } catch (...) {
            widths.push_back(0);
        }
        from = comma + 1;
    }
    QHeaderView* header = p.liste->header();
    const bool was = p.loading;
    p.loading = true;
    for (int c = 0; c < p.model->columnCount(); ++c) {
        const int width = c < static_cast<int>(widths.size()) && widths[static_cast<size_t>(c)] > 0
                              ? widths[static_cast<size_t>(c)]
                              : std::max(70, header->sectionSizeHint(c));
        header->resizeSection(c, width);
    }
    p.loading = was;
}

void ImportXMLPages::SaveColumnWidths(Page& p) {
    std::string widths;
    for (int c = 0; c < p.model->columnCount(); ++c)
        widths += (c ? "," : "") + std::to_string(p.liste->header()->sectionSize(c));
    EcritureLargeursImportXML(p.base, ShownSection(p), widths);
}

void ImportXMLPages::FillStations(Page& p) {
    const bool was = p.loading;
    p.loading = true;
    const int keep = p.station->currentIndex();
    p.station->clear();
    const int base = p.cible->currentIndex();
    if (base >= 0 && base < static_cast<int>(Site().bases.size())) {
        const BaseConfig& cfg = Site().bases[static_cast<size_t>(base)];
        for (int s = 0; s < cfg.stationCount; ++s)
            p.station->addItem(Q(s < static_cast<int>(cfg.stations.size())
                                     ? cfg.stations[static_cast<size_t>(s)].label
                                     : DefaultStationLabel(s + 1)));
    }
    p.station->setCurrentIndex(std::clamp(keep, 0, std::max(0, p.station->count() - 1)));
    p.loading = was;
}

void ImportXMLPages::FillCategories(Page& p) {
    const bool was = p.loading;
    p.loading = true;
    const QString keep = p.categorie->currentData().toString();
    p.categorie->clear();
    p.categorie->addItem("(aucune)", QString());
    if (p.cible->currentIndex() >= 0 && p.station->currentIndex() >= 0) {
        SlotBank bank("Import XML");
        for (const auto& [code, label] :
             ImportXMLCategories(bank, p.cible->currentIndex(), p.station->currentIndex() + 1))
            p.categorie->addItem(Q(label + " (" + code + ")"), Q(code));
    }
    const int at = p.categorie->findData(keep);
    p.categorie->setCurrentIndex(at < 0 ? 0 : at);
    p.loading = was;
}

void ImportXMLPages::CommandImportXML_Click(Page& p) {
    if (p.fichier.empty()) {
        if (!p.fichiers->currentItem()) {
            AffMsg("Sélectionnez un fichier xml", MsgButtons::Ok, MsgIcon::Exclamation);
            return;
        }
        CommandImportXMLCharger_Click(p);
    }
    ImportXMLOptions options;
    options.base = p.cible->currentIndex();
    options.station = p.station->count() > 0 ? p.station->currentIndex() + 1 : 0;
    options.categorie = p.categorie->currentData().toString().toStdString();
    options.validation = p.validation->isChecked();
    p.refus->clear();
    p.importer->setEnabled(false);
    ImportXMLResultat result;
    {
        SlotBank bank("Import XML");
        PageProgress progress(p.progression, p.etat, main_);
        result = ImportXMLImporter(p.fichier, options, bank, progress);
    }
    p.importer->setEnabled(true);
    for (const ImportXMLRefus& refus : result.refusals) p.refus->addItem(Q(refus.Text()));
    for (const std::string& warning : result.warnings) p.refus->addItem(Q(warning));
    if (!result.message.empty() && p.etat->text().isEmpty()) p.etat->setText(Q(result.message));
    // What the import added is now in the base: its categories may be new.
    FillCategories(p);
}

}  // namespace toverin::ui
