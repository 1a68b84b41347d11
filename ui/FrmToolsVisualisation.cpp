#include "ui/FrmToolsVisualisation.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTabBar>
#include <QTableView>
#include <QVBoxLayout>

#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Registry.h"
#include "app/Site.h"
#include "app/Text.h"
#include "operations/DataExport.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "store/RecordLayout.h"
#include "ui/FrmExport.h"
#include "ui/RecordTableModel.h"
#include "ui/Widgets.h"

namespace toverin::ui {

namespace {

const char* kOptionKey = "Software\\Brennick\\KV3_Toverin\\Option_";
const char* kLockValue = "VerrouillageVisualisation";
constexpr int kMaxKeyNumber = 8;

// "Clé 5: Title (20) avec doublons, majuscules et minuscules confondues", from the catalogue.
std::string KeyDescription(int fileNumber, int keyNumber) {
    auto keys = KeysOf(fileNumber);
    if (keyNumber < 0 || keyNumber >= static_cast<int>(keys.size()))
        return "Clé " + std::to_string(keyNumber) + ": inexistante";
    const RecordLayout& layout = LayoutFor(fileNumber);
    std::string text = "Clé " + std::to_string(keyNumber) + ": ";
    bool duplicates = false, caseless = false;
    for (size_t i = 0; i < keys[keyNumber].size(); ++i) {
        const KeySegment& s = keys[keyNumber][i];
        std::string name = "position " + std::to_string(s.position);
        for (const Field& f : layout.fields)
            if (f.offset + 1 == s.position) name = Trim(f.name);
        text += (i ? " + " : "") + name + " (" + std::to_string(s.length) + ")";
        duplicates = duplicates || (s.flags & btr::kKeyDuplicates) != 0;
        caseless = caseless || (s.flags & btr::kKeyCaseInsensitive) != 0;
    }
    text += duplicates ? ", avec doublons" : ", unique";
    if (caseless) text += ", majuscules et minuscules confondues";
    return text;
}

}  // namespace

bool VisualisationLocked() {
    return Trim(GetRegValue(kHkeyCurrentUser, kOptionKey, kLockValue, "0")) == "1";
}

void SetVisualisationLocked(bool locked) {
    SetRegValue(kHkeyCurrentUser, kOptionKey, kLockValue, locked ? "1" : "0");
}

FrmToolsVisualisation* OpenVisualisation(QWidget* parent) {
    if (VisualisationLocked()) {
        AffMsg("L'utilitaire Visualisation est verrouillé.", MsgButtons::Ok, MsgIcon::Critical);
        return nullptr;
    }
    auto* window = new FrmToolsVisualisation(parent);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->Form_Load();
    window->show();
    return window;
}

FrmToolsVisualisation::FrmToolsVisualisation(QWidget* parent)
    : QWidget(parent, Qt::Window), model_(new RecordTableModel(this)) {
    setObjectName("FrmToolsVisualisation");
    setWindowTitle(QString::fromUtf8("Visualisation des données"));
    resize(1100, 700);
    auto* layout = new QVBoxLayout(this);

    SftTabsBases = new QTabBar(this);
    SftTabsBases->setObjectName("SftTabsBases");
    layout->addWidget(SftTabsBases);

    auto* splitter = new QSplitter(Qt::Horizontal, this);
    auto* left = new QWidget(splitter);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    ListeDesFichiers = new QListWidget(left);
    ListeDesFichiers->setObjectName("ListeDesFichiers");
    leftLayout->addWidget(ListeDesFichiers);
    auto* stationRow = new QFormLayout();
    ComboVisualisationStation = new QComboBox(left);
    ComboVisualisationStation->setObjectName("ComboVisualisationStation");
    stationRow->addRow("Station", ComboVisualisationStation);
    leftLayout->addLayout(stationRow);

    auto* right = new QWidget(splitter);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    auto* form = new QFormLayout();
    ComboVisualisationNoCle = new QComboBox(right);
    ComboVisualisationNoCle->setObjectName("ComboVisualisationNoCle");
    for (int k = 0; k <= kMaxKeyNumber; ++k) ComboVisualisationNoCle->addItem(QString::number(k));
    LabelCleVisualisation = new QLabel(right);
    LabelCleVisualisation->setObjectName("LabelCleVisualisation");
    auto* keyRow = new QHBoxLayout();
    keyRow->addWidget(ComboVisualisationNoCle);
    keyRow->addWidget(LabelCleVisualisation, 1);
    form->addRow(QString::fromUtf8("N° de clé"), keyRow);
    const char* labels[] = {"Valeur de départ", "Valeur limite"};
    const char* tips[] = {"Clé de départ", "Clé limite"};
    for (int i = 0; i < 2; ++i) {
        TextCle[i] = new QLineEdit(right);
        TextCle[i]->setObjectName("TextCle_" + QString::number(i));
        TextCle[i]->setToolTip(QString::fromUtf8(tips[i]));
        form->addRow(QString::fromUtf8(labels[i]), TextCle[i]);
    }
    rightLayout->addLayout(form);

    auto* buttons = new QHBoxLayout();
    CommandVisualiser = new QPushButton("Visualiser", right);
    CommandVisualiser->setObjectName("CommandVisualiser");
    CommandVisualisationExporter = new QPushButton("Exporter...", right);
    CommandVisualisationExporter->setObjectName("CommandVisualisationExporter");
    CheckExportExcel = new QCheckBox("Excel", right);
    CheckExportExcel->setObjectName("CheckExportExcel");
    CheckExportExcel->setChecked(true);
    LabelNbEnregistrements = new QLabel(right);
    LabelNbEnregistrements->setObjectName("LabelNbEnregistrements");
    buttons->addWidget(CommandVisualiser);
    buttons->addWidget(CommandVisualisationExporter);
    buttons->addWidget(CheckExportExcel);
    buttons->addStretch();
    buttons->addWidget(LabelNbEnregistrements);
    rightLayout->addLayout(buttons);

    TexteStructure = new QPlainTextEdit(right);
    TexteStructure->setObjectName("TexteStructure");
    TexteStructure->setReadOnly(true);
    TexteStructure->setMaximumHeight(90);
    TexteStructure->setFont(QFont("DejaVu Sans Mono", 8));
    rightLayout->addWidget(TexteStructure);

    fpSpreadVisualisation = new QTableView(right);
    fpSpreadVisualisation->setObjectName("fpSpreadVisualisation_0");
    fpSpreadVisualisation->setModel(model_);
    // Fixed section sizes: sizing to the contents would read every record.
    fpSpreadVisualisation->verticalHeader()->setDefaultSectionSize(20);
    fpSpreadVisualisation->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    fpSpreadVisualisation->horizontalHeader()->setDefaultSectionSize(110);
    fpSpreadVisualisation->setEditTriggers(QAbstractItemView::NoEditTriggers);
    fpSpreadVisualisation->setContextMenuPolicy(Qt::CustomContextMenu);
    rightLayout->addWidget(fpSpreadVisualisation, 1);
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({300, 800});
    layout->addWidget(splitter, 1);

    connect(SftTabsBases, &QTabBar::currentChanged, this,
            &FrmToolsVisualisation::SftTabsBases_Switched);
    connect(ListeDesFichiers, &QListWidget::currentRowChanged, this, [this] {
        FillStations();
        ShowKeyDescription();
    });
    connect(ComboVisualisationNoCle, &QComboBox::currentIndexChanged, this,
            &FrmToolsVisualisation::ShowKeyDescription);
    connect(CommandVisualiser, &QPushButton::clicked, this,
            &FrmToolsVisualisation::CommandVisualiser_Click);
    connect(CommandVisualisationExporter, &QPushButton::clicked, this,
            &FrmToolsVisualisation::CommandVisualisationExporter_Click);
    connect(model_, &RecordTableModel::countChanged, this, &FrmToolsVisualisation::ShowCount);
    connect(fpSpreadVisualisation, &QWidget::customContextMenuRequested, this,
            [this](const QPoint& at) {
                QMenu menu(this);
                QAction* excel = menu.addAction("Export Excel...");
                menu.addAction("Export XML...");
                QAction* chosen = menu.exec(fpSpreadVisualisation->viewport()->mapToGlobal(at));
                if (chosen) OpenExportWindow(chosen == excel);
            });
}

FrmToolsVisualisation::~FrmToolsVisualisation() = default;

void FrmToolsVisualisation::Form_Load() {
    TraceLog("Visualisation: Form_Load");
    const int current = std::clamp(Site().currentBase - 1, 0, std::max(0, Site().baseCount - 1));
    {
        QSignalBlocker block(SftTabsBases);
        while (SftTabsBases->count() > 0) SftTabsBases->removeTab(0);
        for (int b = 0; b < Site().baseCount && b < static_cast<int>(Site().bases.size()); ++b)
            SftTabsBases->addTab(Q(Site().bases[b].label));
        SftTabsBases->setCurrentIndex(current);
    }
    {
        QSignalBlocker block(ListeDesFichiers);
        ListeDesFichiers->clear();
        for (int f = 0; f < kCatalogueSize; ++f) {
            if (!CatalogueEntryFor(f).Exists()) continue;
            auto* item = new QListWidgetItem(Q(FileListLine(f)));
            item->setData(Qt::UserRole, f);
            ListeDesFichiers->addItem(item);
        }
        ListeDesFichiers->setCurrentRow(0);
    }
    SftTabsBases_Switched(SftTabsBases->currentIndex());
    ShowKeyDescription();
}

void FrmToolsVisualisation::SftTabsBases_Switched(int base) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return;
    setWindowTitle(Q("Visualisation: " + Site().bases[base].label));
    FillStations();
}

void FrmToolsVisualisation::FillStations() {
    const int base = SftTabsBases->currentIndex();
    const int keep = std::max(0, ComboVisualisationStation->currentIndex());
    QSignalBlocker block(ComboVisualisationStation);
    ComboVisualisationStation->clear();
    if (base >= 0 && base < static_cast<int>(Site().bases.size())) {
        const BaseConfig& config = Site().bases[base];
        for (int s = 1; s <= config.stationCount; ++s) {
            std::string label = s <= static_cast<int>(config.stations.size())
                                    ? config.stations[s - 1].label
                                    : DefaultStationLabel(s);
            ComboVisualisationStation->addItem(QString("%1 - %2").arg(s).arg(Q(label)));
        }
    }
    ComboVisualisationStation->setCurrentIndex(
        std::min(keep, ComboVisualisationStation->count() - 1));
    const int file = SelectedFile();
    ComboVisualisationStation->setEnabled(file >= 0 && CatalogueEntryFor(file).perStation == 'O');
}

int FrmToolsVisualisation::SelectedFile() const {
    QListWidgetItem* item = ListeDesFichiers->currentItem();
    return item ? item->data(Qt::UserRole).toInt() : -1;
}

void FrmToolsVisualisation::ShowKeyDescription() {
    const int file = SelectedFile();
    LabelCleVisualisation->setText(
        file < 0 ? QString() : Q(KeyDescription(file, ComboVisualisationNoCle->currentIndex())));
}

CursorSpec FrmToolsVisualisation::SpecFromControls() const {
    CursorSpec query;
    query.base = std::max(0, SftTabsBases->currentIndex());
    query.fileNumber = SelectedFile();
    query.station = CatalogueEntryFor(query.fileNumber).perStation == 'O'
                        ? ComboVisualisationStation->currentIndex() + 1
                        : 1;
    query.keyNumber = ComboVisualisationNoCle->currentIndex();
    query.from = TextCle[0]->text().toStdString();
    query.to = TextCle[1]->text().toStdString();
    query.path = DataFilePath(query.base, query.fileNumber, query.station);
    return query;
}

void FrmToolsVisualisation::Choose(int base, int fileNumber, int station, int keyNumber,
                                   const QString& from, const QString& to) {
    SftTabsBases->setCurrentIndex(base);
    for (int i = 0; i < ListeDesFichiers->count(); ++i)
        if (ListeDesFichiers->item(i)->data(Qt::UserRole).toInt() == fileNumber)
            ListeDesFichiers->setCurrentRow(i);
    ComboVisualisationStation->setCurrentIndex(station - 1);
    ComboVisualisationNoCle->setCurrentIndex(keyNumber);
    TextCle[0]->setText(from);
    TextCle[1]->setText(to);
}

void FrmToolsVisualisation::CommandVisualiser_Click() {
    const CursorSpec query = SpecFromControls();
    if (query.fileNumber < 0) return;
    if (!FileExists(query.path)) {
        model_->Clear();
        TexteStructure->clear();
        AffMsg("Fichier: " + query.path + " non trouvé", MsgButtons::Ok, MsgIcon::Critical);
        return;
    }
    TexteStructure->setPlainText(Q(LectureStructureFichier(query.fileNumber, query.path)));
    setWindowTitle(Q("Visualisation: " + query.path));
    TraceLog("Visualisation: " + query.path + " key " + std::to_string(query.keyNumber));
    switch (model_->Start(query)) {
        case CursorOpen::Ok:
            shown_ = query;
            break;
        case CursorOpen::BadKey:
            AffMsg("N° de clé invalide (Clé max: " + std::to_string(model_->KeyCount() - 1) + ")",
                   MsgButtons::Ok, MsgIcon::Critical);
            break;
        case CursorOpen::Missing:
            AffMsg("Fichier: " + query.path + " non trouvé", MsgButtons::Ok, MsgIcon::Critical);
            break;
        case CursorOpen::NotRecordFile:
        case CursorOpen::Failed:
            AffMsg(ErreurBTrieveLibelle(model_->OpenStatus(), query.path), MsgButtons::Ok,
                   MsgIcon::Critical);
            break;
    }
}

void FrmToolsVisualisation::ShowCount(qint64 rows, bool complete) {
    QString text = QString::number(rows) + QString::fromUtf8(" enregistrement(s)");
    if (!complete) text += QString::fromUtf8(" (lecture en cours...)");
    LabelNbEnregistrements->setText(text);
}

void FrmToolsVisualisation::CommandVisualisationExporter_Click() {
    const CursorSpec query = SpecFromControls();
    if (query.fileNumber < 0) return;
    RunExport(this, query, CheckExportExcel->isChecked(),
              model_->CountComplete() && query.path == shown_.path ? model_->CountedRows()
                                                                   : RecordCountOfFile(query.path));
}

void FrmToolsVisualisation::OpenExportWindow(bool excel) {
    auto* window = new FrmExport(SpecFromControls(), excel, this);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->show();
}

}  // namespace toverin::ui
