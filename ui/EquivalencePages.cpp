#include "ui/EquivalencePages.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>
#include <map>

#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Site.h"
#include "app/Startup.h"
#include "app/Text.h"
#include "ui/ControlName.h"
#include "ui/Frm_Main.h"
#include "ui/Widgets.h"

namespace toverin::ui {

namespace {

// Rows shown below the last used one, and at least this many rows in all.
constexpr int kSpareRows = 20;
constexpr int kMinRows = 100;
constexpr int kColumnWidth = 230;

std::string StationLabel(int base, int station) {
    const auto& stations = Site().bases[static_cast<size_t>(base)].stations;
    if (station >= 1 && station <= static_cast<int>(stations.size()) &&
        !stations[static_cast<size_t>(station) - 1].label.empty())
        return stations[static_cast<size_t>(station) - 1].label;
    return DefaultStationLabel(station);
}

int StationCount(int base) {
    return std::clamp(Site().bases[static_cast<size_t>(base)].stationCount, 1,
                      EquivalenceTable::kSlots);
}

// The hourglass for the time of a load or a save.
struct BusyCursor {
    BusyCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~BusyCursor() { QApplication::restoreOverrideCursor(); }
};

QTreeWidgetItem* Node(QTreeWidgetItem* parent, const std::string& key, const std::string& text,
                      bool draggable) {
    auto* item = new QTreeWidgetItem(parent, {Q(text)});
    item->setData(0, Qt::UserRole, QByteArray::fromStdString(key));
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (draggable) flags |= Qt::ItemIsDragEnabled;
    item->setFlags(flags);
    return item;
}

QTreeWidgetItem* SongNode(QTreeWidgetItem* parent, const CatalogueSong& song) {
    auto* item = Node(parent, SongNodeKey(song.code), SongCellText(song.title, song.second), true);
    item->setToolTip(0, Q(Utf8FromCp1252(Trim(song.code))));
    return item;
}

}  // namespace

// ---- The grids -------------------------------------------------------------------------------

EquivalenceGridModel::EquivalenceGridModel(const EquivalenceTable& table, Shows shows, int base,
                                           QObject* parent)
    : QAbstractTableModel(parent), table_(table), shows_(shows), base_(base) {}

int EquivalenceGridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : rows_;
}

int EquivalenceGridModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : StationCount(base_);
}

QVariant EquivalenceGridModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const EquivalenceTable::Cell& cell = table_.CellAt(index.row() + 1, index.column() + 1);
    const bool lost = !cell.empty() && cell.shown.empty();
    switch (role) {
        case Qt::DisplayRole:
            return shows_ == Shows::Texts ? Q(cell.shown) : Q(Utf8FromCp1252(cell.code));
        case Qt::ToolTipRole:
            if (cell.empty()) return {};
            if (lost)
                return Q("Code " + Utf8FromCp1252(Trim(cell.code)) +
                         " introuvable dans les fichiers de la station");
            return Q(Utf8FromCp1252(Trim(cell.code)));
        case Qt::BackgroundRole:
            if (lost) return QColor(255, 222, 222);
            if (index.column() + 1 == shownStation_) return QColor(255, 249, 222);
            return {};
        default:
            return {};
    }
}

QVariant EquivalenceGridModel::headerData(int section, Qt::Orientation orientation,
                                          int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Horizontal) return Q(StationLabel(base_, section + 1));
    return QString::number(section + 1);
}

Qt::ItemFlags EquivalenceGridModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDropEnabled;
}

void EquivalenceGridModel::Refresh() {
    beginResetModel();
    rows_ = std::min(std::max(table_.LastRowNumber() + kSpareRows, kMinRows),
                     EquivalenceTable::kMaxRowNumber);
    endResetModel();
}

void EquivalenceGridModel::CellChanged(int rowNumber, int station) {
    // Room below the last used row, so that the next drop has somewhere to go.
    const int wanted = std::min(rowNumber + kSpareRows, EquivalenceTable::kMaxRowNumber);
    if (wanted > rows_) {
        beginInsertRows({}, rows_, wanted - 1);
        rows_ = wanted;
        endInsertRows();
    }
    const int first = station >= 1 ? station - 1 : 0;
    const int last = station >= 1 ? station - 1 : columnCount() - 1;
    emit dataChanged(index(rowNumber - 1, first), index(rowNumber - 1, last));
}

void EquivalenceGridModel::setShownStation(int station) {
    shownStation_ = station;
    if (rows_ > 0) emit dataChanged(index(0, 0), index(rows_ - 1, columnCount() - 1));
}

QByteArray EquivalenceTree::KeyOf(const QTreeWidgetItem* item) {
    return item ? item->data(0, Qt::UserRole).toByteArray() : QByteArray();
}

QMimeData* EquivalenceTree::NodeMimeData(QTreeWidgetItem* item) const {
    auto* data = new QMimeData;
    data->setData(kEquivalenceNodeMime, KeyOf(item));
    data->setText(item->text(0));
    return data;
}

QStringList EquivalenceTree::mimeTypes() const {
    return {kEquivalenceNodeMime};
}

QMimeData* EquivalenceTree::mimeData(const QList<QTreeWidgetItem*>& items) const {
    return items.isEmpty() ? nullptr : NodeMimeData(items.first());
}

void EquivalenceGrid::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasFormat(kEquivalenceNodeMime))
        event->acceptProposedAction();
    else
        event->ignore();
}

void EquivalenceGrid::dragMoveEvent(QDragMoveEvent* event) {
    if (event->mimeData()->hasFormat(kEquivalenceNodeMime))
        event->acceptProposedAction();
    else
        event->ignore();
}

void EquivalenceGrid::dropEvent(QDropEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!event->mimeData()->hasFormat(kEquivalenceNodeMime) || !index.isValid()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    if (dropped)
        dropped(event->mimeData()->data(kEquivalenceNodeMime), index.row() + 1, index.column() + 1);
}

void EquivalenceGrid::mousePressEvent(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (event->button() == Qt::RightButton && index.isValid()) {
        setCurrentIndex(index);
        if (cellMenu)
            cellMenu(index.row() + 1, index.column() + 1, event->globalPosition().toPoint());
        event->accept();
        return;
    }
    QTableView::mousePressEvent(event);
}

// ---- The pages -------------------------------------------------------------------------------

EquivalencePages::EquivalencePages(Frm_Main* main) : QObject(main), main_(main) {}

EquivalencePages::~EquivalencePages() = default;

void EquivalencePages::Build() {
    menu_ = new QMenu(main_);
    menu_->setObjectName("FrmMenu");
    viderCellule_ = menu_->addAction("Vider la cellule");
    viderCellule_->setObjectName("MnuEquiViderCellule");
    viderLigne_ = menu_->addAction("Vider la ligne");
    viderLigne_->setObjectName("MnuEquiViderLigne");
    connect(viderCellule_, &QAction::triggered, this, &EquivalencePages::MnuEquiViderCellule_Click);
    connect(viderLigne_, &QAction::triggered, this, &EquivalencePages::MnuEquiViderLigne_Click);
    for (int b = 0; b < Site().baseCount && b < static_cast<int>(Site().bases.size()); ++b)
        BuildPage(b);
}

void EquivalencePages::BuildPage(int b) {
    QWidget* parent = main_->BasePage(MainTab::Equivalence, b);
    QVBoxLayout* layout = main_->BasePageLayout(MainTab::Equivalence, b);
    if (!parent || !layout) return;
    auto owned = std::make_unique<EquivalencePage>();
    EquivalencePage& p = *owned;
    p.base = b;

    auto* top = new QHBoxLayout();
    top->addWidget(new QLabel("Station", parent));
    p.ComboEquivalenceStation = new QComboBox(parent);
    p.ComboEquivalenceStation->setObjectName(ControlName("ComboEquivalenceStation", b));
    for (int s = 1; s <= StationCount(b); ++s)
        p.ComboEquivalenceStation->addItem(Q(StationLabel(b, s)));
    top->addWidget(p.ComboEquivalenceStation);
    top->addWidget(new QLabel(
        QString::fromUtf8("Glissez un titre ou une catégorie dans la colonne de sa station."),
        parent));
    top->addStretch();
    layout->addLayout(top);

    auto* splitter = new QSplitter(Qt::Horizontal, parent);
    p.TreeViewEquivalence = new EquivalenceTree(splitter);
    p.TreeViewEquivalence->setObjectName(ControlName("TreeViewEquivalence", b));
    p.TreeViewEquivalence->setHeaderHidden(true);
    p.TreeViewEquivalence->setSelectionMode(QAbstractItemView::SingleSelection);
    p.TreeViewEquivalence->setDragEnabled(true);
    p.TreeViewEquivalence->setDragDropMode(QAbstractItemView::DragOnly);

    p.texts = new EquivalenceGridModel(p.table, EquivalenceGridModel::Shows::Texts, b, this);
    p.codes = new EquivalenceGridModel(p.table, EquivalenceGridModel::Shows::Codes, b, this);
    p.MSFlexGridEquivalence = new EquivalenceGrid(splitter);
    p.MSFlexGridEquivalence->setObjectName(ControlName("MSFlexGridEquivalence", b));
    p.MSFlexGridEquivalence->setModel(p.texts);
    p.MSFlexGridEquivalence->setSelectionMode(QAbstractItemView::SingleSelection);
    p.MSFlexGridEquivalence->setAcceptDrops(true);
    p.MSFlexGridEquivalence->viewport()->setAcceptDrops(true);
    p.MSFlexGridEquivalence->setDragDropMode(QAbstractItemView::DropOnly);
    p.MSFlexGridEquivalence->setWordWrap(false);
    splitter->addWidget(p.TreeViewEquivalence);
    splitter->addWidget(p.MSFlexGridEquivalence);
    splitter->setStretchFactor(1, 3);
    layout->addWidget(splitter, 1);

    // The codes' twin is never shown; it scrolls with the grid all the same.
    p.MSFlexGridEquivalenceCode = new QTableView(parent);
    p.MSFlexGridEquivalenceCode->setObjectName(ControlName("MSFlexGridEquivalenceCode", b));
    p.MSFlexGridEquivalenceCode->setModel(p.codes);
    p.MSFlexGridEquivalenceCode->setVisible(false);
    layout->addWidget(p.MSFlexGridEquivalenceCode);
    connect(p.MSFlexGridEquivalence->verticalScrollBar(), &QScrollBar::valueChanged,
            p.MSFlexGridEquivalenceCode->verticalScrollBar(), &QScrollBar::setValue);

    auto* bottom = new QHBoxLayout();
    p.LabelEquivalence = new QLabel(parent);
    p.LabelEquivalence->setObjectName(ControlName("LabelEquivalence", b));
    bottom->addWidget(p.LabelEquivalence, 1);
    p.CommandEnregistrerEquivalence = new QPushButton("Enregistrer", parent);
    p.CommandEnregistrerEquivalence->setObjectName(ControlName("CommandEnregistrerEquivalence", b));
    bottom->addWidget(p.CommandEnregistrerEquivalence);
    layout->addLayout(bottom);

    p.MSFlexGridEquivalence->dropped = [this, b](const QByteArray& key, int row, int station) {
        MSFlexGridEquivalence_MouseUp(b, key, row, station);
    };
    p.MSFlexGridEquivalence->cellMenu = [this, b](int row, int station, const QPoint& at) {
        MSFlexGridEquivalence_MouseDown(b, row, station, at);
    };
    connect(p.ComboEquivalenceStation, &QComboBox::currentIndexChanged, this,
            [this, b] { TreeViewChargerDonnees(b); });
    connect(p.CommandEnregistrerEquivalence, &QPushButton::clicked, this,
            [this, b] { CommandEnregistrerEquivalence_Click(b); });
    pages_.push_back(std::move(owned));
}

void EquivalencePages::InitGeneralTreeView() {
    for (auto& p : pages_) TreeViewChargerDonnees(p->base);
}

void EquivalencePages::InitGeneralGrid() {
    for (auto& p : pages_) {
        p->texts->Refresh();
        p->codes->Refresh();
        p->MSFlexGridEquivalence->horizontalHeader()->setDefaultSectionSize(kColumnWidth);
        p->MSFlexGridEquivalence->verticalHeader()->setDefaultSectionSize(
            p->MSFlexGridEquivalence->fontMetrics().height() + 6);
        ShowState(*p);
    }
}

void EquivalencePages::InitGeneralDonneesEquivalence() {
    BusyCursor busy;
    for (auto& p : pages_) {
        // A base whose database is missing gets no table: loading would make its file.
        p->loaded = Site().bases[static_cast<size_t>(p->base)].databasePresent &&
                    p->table.Load(bank_, p->base);
        p->texts->Refresh();
        p->codes->Refresh();
        ShowState(*p);
    }
    NoteModified();
}

void EquivalencePages::TreeViewChargerDonnees(int b) {
    EquivalencePage& p = page(b);
    const int station = p.ComboEquivalenceStation->currentIndex() + 1;
    {
        BusyCursor busy;
        p.catalogue = Site().bases[static_cast<size_t>(b)].databasePresent
                          ? LoadStationCatalogue(bank_, b, station)
                          : StationCatalogue{b, station, {}, {}, false};
    }
    p.texts->setShownStation(station);
    p.codes->setShownStation(station);
    TreeViewPopulate(b);
}

void EquivalencePages::TreeViewPopulate(int b) {
    EquivalencePage& p = page(b);
    QTreeWidget* tree = p.TreeViewEquivalence;
    tree->setUpdatesEnabled(false);
    tree->clear();
    for (const SongGroup& group : p.catalogue.groups) {
        auto* root = new QTreeWidgetItem(tree, {Q(group.kind.caption)});
        root->setData(0, Qt::UserRole, QByteArray(group.kind.kind));
        root->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        if (std::string_view(group.kind.kind) != "Mus") {
            for (const CatalogueSong& song : group.songs) SongNode(root, song);
            continue;
        }
        // Music by category: each category with its songs, then the songs of none.
        std::map<std::string, QTreeWidgetItem*> byCategory;
        for (const CatalogueCategory& c : p.catalogue.categories)
            byCategory[c.code] = Node(root, CategoryNodeKey(c.code), c.label, true);
        for (const CatalogueSong& song : group.songs) {
            auto it = byCategory.find(song.category);
            SongNode(it != byCategory.end() ? it->second : root, song);
        }
    }
    tree->expandToDepth(0);
    tree->setUpdatesEnabled(true);
}

void EquivalencePages::MSFlexGridEquivalence_MouseUp(int b, const QByteArray& key, int rowNumber,
                                                     int station) {
    EquivalencePage& p = page(b);
    if (rowNumber < 1) return;  // the fixed row
    if (DropNodeOnCell(p.table, p.catalogue, key.toStdString(), rowNumber, station) ==
        DropResult::Written)
        Changed(p, rowNumber, station);
}

void EquivalencePages::MSFlexGridEquivalence_MouseDown(int b, int rowNumber, int station,
                                                       const QPoint& globalPos) {
    EquivalencePage& p = page(b);
    menuBase_ = b;
    menuRow_ = rowNumber;
    menuStation_ = station;
    viderCellule_->setEnabled(!p.table.CellAt(rowNumber, station).empty());
    viderLigne_->setEnabled(p.table.FindRow(rowNumber) != nullptr);
    menu_->popup(globalPos);
}

void EquivalencePages::MnuEquiViderCellule_Click() {
    if (menuBase_ < 0 || menuBase_ >= pageCount()) return;
    EquivalencePage& p = page(menuBase_);
    if (toverin::MnuEquiViderCellule(p.table, menuRow_, menuStation_))
        Changed(p, menuRow_, menuStation_);
}

void EquivalencePages::MnuEquiViderLigne_Click() {
    if (menuBase_ < 0 || menuBase_ >= pageCount()) return;
    EquivalencePage& p = page(menuBase_);
    if (toverin::MnuEquiViderLigne(p.table, menuRow_)) Changed(p, menuRow_, 0);
}

void EquivalencePages::Changed(EquivalencePage& p, int rowNumber, int station) {
    p.texts->CellChanged(rowNumber, station);
    p.codes->CellChanged(rowNumber, station);
    ShowState(p);
    NoteModified();
}

bool EquivalencePages::SaveSettingsEquivalence(int b) {
    EquivalencePage& p = page(b);
    // The file is emptied and written again; a box about a record error would serve the
    // interface meanwhile, and a scheduled backup must not copy the table half written.
    LongRun run("Enregistrement de la table d'équivalence");
    if (!run.ok()) {
        AffMsg(run.Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }
    bool saved;
    {
        BusyCursor busy;
        saved = p.table.Save(bank_, b);
    }
    if (saved) {
        p.loaded = true;
    } else {
        AffMsg("La table d'équivalence n'a pas pu être enregistrée: voir le journal du jour.",
               MsgButtons::Ok, MsgIcon::Critical);
    }
    ShowState(p);
    NoteModified();
    return saved;
}

void EquivalencePages::CommandEnregistrerEquivalence_Click(int b) {
    EquivalencePage& p = page(b);
    if ((!p.loaded || !p.table.complete()) &&
        AffMsg("La table d'équivalence n'a pas pu être lue entièrement: l'enregistrer "
               "remplacerait les lignes qui n'ont pas été lues.\r\n\r\nVoulez-vous "
               "l'enregistrer quand même ?",
               MsgButtons::YesNo, MsgIcon::Exclamation) != MsgAnswer::Yes)
        return;
    SaveSettingsEquivalence(b);
}

void EquivalencePages::SaveAll() {
    for (auto& p : pages_)
        if (p->table.modified()) CommandEnregistrerEquivalence_Click(p->base);
}

void EquivalencePages::ShowState(EquivalencePage& p) {
    QString text;
    QString style;
    if (!p.loaded) {
        text = QString::fromUtf8("Table d'équivalence illisible: voir le journal du jour.");
        style = "color: #b00000;";
    } else if (!p.table.complete()) {
        text = QString::fromUtf8("Table d'équivalence lue en partie: voir le journal du jour.");
        style = "color: #b00000;";
    } else {
        const size_t rows = p.table.rows().size();
        text = QString::number(rows) + (rows > 1 ? " lignes" : " ligne");
        if (p.table.modified()) text += QString::fromUtf8(" - modifiée, non enregistrée");
    }
    p.LabelEquivalence->setText(text);
    p.LabelEquivalence->setStyleSheet(style);
}

void EquivalencePages::NoteModified() {
    Startup().equivalenceModified = std::any_of(pages_.begin(), pages_.end(),
                                                [](const auto& p) { return p->table.modified(); });
}

}  // namespace toverin::ui
