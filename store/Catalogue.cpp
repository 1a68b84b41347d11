#include "store/Catalogue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <iterator>

#include "app/Text.h"

namespace toverin {

namespace {

// Key flag combinations the catalogue uses.
constexpr uint16_t kUnique = 2;           // modifiable, unique
constexpr uint16_t kDup = 3;              // modifiable, duplicates
constexpr uint16_t kDupNoCase = 1027;     // modifiable, duplicates, case-insensitive
constexpr uint16_t kDupSeg = 19;          // modifiable, duplicates, continued by the next segment
constexpr uint16_t kDupSegNoCase = 1043;  // the same, case-insensitive

struct Row {
    int number;
    const char* description;
    char perStation;
    uint32_t recordLength;
    uint32_t pageSize;
    uint32_t keyCount;
    std::vector<KeySegment> segments;
};

std::vector<Row> Rows() {
    using S = KeySegment;
    return {
        {0, "Paramétrage", 'N', 1000, 1024, 1, {S{1, 10, kUnique}}},
        {1, "Commerciaux", 'N', 300, 1024, 2, {S{1, 8, kUnique}, S{9, 10, kDupNoCase}}},
        {2, "Secteurs d'activité", 'N', 100, 512, 2, {S{1, 10, kUnique}, S{11, 10, kDupNoCase}}},
        // Customers: by name first; the code key is the one the imports look customers up by.
        {3, "Clients", 'N', 900, 1024, 2, {S{9, 10, kDupNoCase}, S{1, 8, kUnique}}},
        {4, "Produits", 'N', 100, 512, 2, {S{1, 10, kUnique}, S{11, 10, kDupNoCase}}},
        // Contracts: label; customer + contract number; the contract number alone (the imports'
        // "N=" identifier); the Maya campaign identifier of the RMB import.
        {5,
         "Entêtes des contrats",
         'O',
         150,
         512,
         4,
         {S{40, 40, kDupNoCase}, S{3, 14, kUnique}, S{11, 6, kDup}, S{145, 6, kDup}}},
        // Spots: label; contract + spot number.
        {6, "Entêtes des spots", 'O', 400, 512, 2, {S{9, 10, kDupNoCase}, S{1, 8, kUnique}}},
        // Planned broadcast dates: the first and the second date group (each date, precision,
        // start hour); contract + spot + date, as the schedule import looks them up; product +
        // customer + second date group, for exclusivity checks.
        {7,
         "Dates de programmation des passages des spots",
         'O',
         100,
         512,
         4,
         {S{9, 13, kDup}, S{48, 13, kDup}, S{1, 21, kDup}, S{30, 31, kDup}}},
        {8, "", 'N', 0, 0, 0, {}},
        {9, "Paramétrage (Backup)", 'N', 1000, 1024, 1, {S{1, 10, kUnique}}},
        {10, "Publicité: Données programmées", 'O', 400, 512, 1, {S{1, 14, kUnique}}},
        {11, "Gestion des droits des utilisateurs", 'N', 350, 1536, 1, {S{1, 83, kUnique}}},
        // Third-system campaigns: our contract; system + campaign id; start and end dates;
        // product id, sector code and twin campaign, which the import resolves.
        {12,
         "Publicité: Système Tiers: Campagnes",
         'N',
         300,
         1536,
         7,
         {S{136, 7, kDup}, S{1, 23, kUnique}, S{84, 8, kDup}, S{92, 8, kDup}, S{143, 20, kDup},
          S{163, 10, kDup}, S{173, 20, kDup}}},
        // Third-system spots: second message id; date + start hour; system + campaign + spot;
        // message id; our contract + spot.
        {13,
         "Publicité: Système Tiers: Spots",
         'N',
         300,
         1536,
         5,
         {S{170, 15, kDup}, S{49, 12, kDup}, S{1, 48, kUnique}, S{75, 15, kDup}, S{185, 9, kDup}}},
        // Third-system messages: our contract + spot; system + message id; our sound.
        {14,
         "Publicité: Système Tiers: Messages",
         'N',
         300,
         1536,
         3,
         {S{20, 9, kDup}, S{1, 18, kUnique}, S{185, 8, kDup}}},
        {15,
         "Publicité: Système Tiers: Produits",
         'N',
         100,
         1536,
         2,
         {S{1, 53, kUnique}, S{54, 10, kDup}}},
        {16,
         "Publicité: Système Tiers: Clients",
         'N',
         100,
         1536,
         2,
         {S{1, 53, kUnique}, S{54, 8, kDup}}},
        // Planning: screen; date + hour (the history key).
        {17, "V 3.4 Planification", 'O', 1000, 2048, 2, {S{15, 8, kDup}, S{1, 14, kDup}}},
        // Advertising log: customer + date; song + date; date + time (the history key).
        {18, "V 3.4 Log Pub", 'O', 250, 512, 3, {S{31, 16, kDup}, S{15, 16, kDup}, S{1, 14, kDup}}},
        // NinSight: Spark product; server id; our song code.
        {19,
         "Télé: Système Tiers: NinSight",
         'N',
         1000,
         4096,
         3,
         {S{19, 50, kDup}, S{9, 10, kDup}, S{1, 8, kUnique}}},
        {20,
         "Artistes",
         'O',
         300,
         1024,
         4,
         {S{1, 5, kUnique}, S{6, 10, kDup}, S{16, 20, kDupNoCase}, S{46, 1, kDupSeg},
          S{16, 20, kDup}}},
        {21,
         "Voix, Groupe, Sonorité, Catégorie, ...",
         'O',
         980,
         1024,
         2,
         {S{1, 10, kUnique}, S{1, 5, kDupSegNoCase}, S{11, 10, kDupNoCase}}},
        {22,
         "Morceaux",
         'O',
         900,
         2048,
         6,
         {S{1, 8, kUnique}, S{9, 5, kDup}, S{19, 5, kDup}, S{64, 5, kDup}, S{69, 5, kDup},
          S{24, 20, kDupNoCase}}},
        {23,
         "Piles de morceaux par sujet",
         'O',
         100,
         512,
         3,
         {S{1, 8, kDup}, S{9, 11, kDup}, S{9, 5, kDupSeg}, S{51, 20, kDupNoCase}}},
        {24,
         "Piles de morceaux par catégorie",
         'O',
         100,
         512,
         3,
         {S{1, 8, kDup}, S{9, 11, kDup}, S{9, 5, kDupSeg}, S{51, 20, kDupNoCase}}},
        {25, "Priorités", 'O', 250, 512, 1, {S{1, 10, kUnique}}},
        {26,
         "Table des morceaux pour le magnétophone",
         'O',
         150,
         512,
         4,
         {S{1, 8, kDup}, S{9, 19, kDup}, S{28, 14, kDup}, S{42, 39, kDupNoCase}}},
        {27, "Conducteur publicité", 'O', 50, 512, 2, {S{1, 14, kUnique}, S{15, 8, kDup}}},
        {28,
         "Evénements musicaux réellement diffusés",
         'O',
         150,
         512,
         3,
         {S{1, 16, kUnique}, S{97, 8, kDup}, S{109, 14, kDup}}},
        {29,
         "Morceaux (Clés complémentaires)",
         'O',
         100,
         512,
         3,
         {S{1, 18, kDup}, S{1, 10, kDupSegNoCase}, S{19, 20, kDupNoCase}, S{11, 8, kDup}}},
        {30, "Squelette des horloges", 'O', 250, 512, 1, {S{1, 8, kUnique}}},
        {31, "Pointeurs de start, stop, loop, ...", 'O', 50, 512, 1, {S{1, 11, kUnique}}},
        {32,
         "Renseignements complémentaires sur les morceaux",
         'O',
         250,
         1024,
         1,
         {S{1, 10, kUnique}}},
        {33,
         "Historique des artistes et groupes programmés",
         'O',
         100,
         512,
         3,
         {S{1, 16, kUnique}, S{17, 19, kDup}, S{36, 19, kDup}}},
        {34,
         "Historique des morceaux programmés",
         'O',
         200,
         1024,
         6,
         {S{9, 14, kDup}, S{1, 22, kDup}, S{23, 54, kDupNoCase}, S{77, 19, kDup}, S{96, 19, kDup},
          S{115, 14, kDup}}},
        {35,
         "Historique des événements programmés",
         'O',
         400,
         1024,
         3,
         {S{1, 19, kUnique}, S{253, 6, kDup}, S{1, 10, kDupSeg}, S{14, 6, kDup}}},
        {36, "", 'N', 0, 0, 0, {}},
        {37,
         "V 3.4 Informations sur les sons",
         'N',
         500,
         1024,
         3,
         {S{1, 8, kUnique}, S{9, 12, kDup}, S{21, 12, kDup}}},
        {38, "V 3.4 Tools FTP", 'N', 900, 1024, 2, {S{1, 8, kUnique}, S{9, 40, kDup}}},
        {39, "V 3.4 Tools FTP: Détail des imports/exports", 'N', 300, 2048, 1, {S{1, 68, kUnique}}},
        {40, "V 3.4 Morceaux non diffusés", 'O', 900, 1024, 2, {S{1, 8, kDup}, S{9, 14, kDup}}},
        {41,
         "V 3.4 Convert Entête",
         'N',
         900,
         2048,
         3,
         {S{1, 10, kUnique}, S{11, 50, kDupNoCase}, S{61, 14, kDupNoCase}}},
        {42, "V 3.4 Convert Détail", 'N', 900, 2048, 1, {S{1, 20, kUnique}}},
        {43,
         "V 3.4 Podcast: Emission",
         'O',
         4000,
         4096,
         2,
         {S{1, 8, kUnique}, S{9, 60, kDupNoCase}}},
        {44,
         "V 3.4 Podcast: Articles des Emissions",
         'O',
         4000,
         4096,
         3,
         {S{1, 8, kUnique}, S{9, 21, kDup}, S{30, 60, kDupNoCase}}},
        {45,
         "V 3.4 Podcast: Images des Emissions ou des Articles",
         'O',
         4000,
         4096,
         1,
         {S{1, 8, kUnique}}},
        {46, "V 3.4 Equivalence entre les morceaux", 'N', 512, 1024, 1, {S{1, 5, kUnique}}},
        {47,
         "V 3.4 Historique de Diffusion: Codes et Libellés",
         'O',
         4082,
         4096,
         1,
         {S{1, 11, kUnique}}},
        {48, "V 3.4 Table des titres", 'O', 100, 512, 2, {S{1, 8, kUnique}, S{9, 43, kDup}}},
        {49, "V 3.4 Historique de Diffusion: Ecarts", 'O', 450, 512, 1, {S{1, 8, kUnique}}},
        {50, "", 'N', 0, 0, 0, {}},
    };
}

std::array<CatalogueEntry, kCatalogueSize> BuildCatalogue() {
    std::array<CatalogueEntry, kCatalogueSize> entries;
    for (Row& row : Rows()) {
        CatalogueEntry& e = entries.at(row.number);
        e.number = row.number;
        e.description = row.description;
        e.perStation = row.perStation;
        e.secondMark = row.number == 47 ? 'O' : 'N';
        e.recordLength = row.recordLength;
        e.pageSize = row.pageSize;
        e.keyCount = row.keyCount;
        e.segments = std::move(row.segments);
        e.name = e.Exists() ? "FRAD" + ZeroPad(row.number, 3) + " " : std::string(8, ' ');
    }
    return entries;
}

const std::array<CatalogueEntry, kCatalogueSize>& Catalogue() {
    static const std::array<CatalogueEntry, kCatalogueSize> entries = BuildCatalogue();
    return entries;
}

struct HistoryRow {
    int number;
    int keyLength;
    int filler;
    int keyNumber;
};

// The bounds of the limited backup sort as strings, so every history key must begin with its
// "YYYYMMDD" date; the keys chosen below do.
constexpr std::array<HistoryRow, 9> kHistory = {{
    {7, 13, 5, 0},
    {10, 14, 6, 0},
    {17, 14, 6, 1},
    {18, 14, 6, 2},
    {27, 100, 100, 0},
    {28, 16, 8, 0},
    {33, 100, 100, 0},
    {34, 100, 100, 0},
    {35, 100, 100, 0},
}};

const HistoryRow* FindHistory(int fileNumber) {
    for (const HistoryRow& row : kHistory) {
        if (row.number == fileNumber) return &row;
    }
    return nullptr;
}

}  // namespace

const CatalogueEntry& CatalogueEntryFor(int fileNumber) {
    static const CatalogueEntry empty{};
    if (fileNumber < 0 || fileNumber >= kCatalogueSize) return empty;
    return Catalogue()[fileNumber];
}

std::string FileDescription(int fileNumber) {
    return CatalogueEntryFor(fileNumber).description;
}

std::string FileListLine(int fileNumber) {
    return ZeroPad(fileNumber, 2) + " " + FileDescription(fileNumber);
}

std::string StationFileName(int fileNumber, int station) {
    const CatalogueEntry& entry = CatalogueEntryFor(fileNumber);
    if (!entry.Exists()) return "";
    std::string name = Trim(entry.name);
    if (entry.perStation == 'O' && name.size() > 4) name[4] = static_cast<char>(64 + station);
    return name + ".bt6";
}

bool IsCommonFileName(const std::string& name) {
    return name.size() > 4 && std::isdigit(static_cast<unsigned char>(name[4])) != 0;
}

btr::PbTBtrFileBuf CreationRecord(int fileNumber) {
    btr::PbTBtrFileBuf creation;
    std::memset(&creation, 0, sizeof creation);
    const CatalogueEntry& entry = CatalogueEntryFor(fileNumber);
    creation.RecLen = static_cast<uint16_t>(entry.recordLength);
    creation.PageSize = static_cast<uint16_t>(entry.pageSize);
    creation.IndxCnt = static_cast<uint16_t>(entry.keyCount);
    size_t count = std::min(entry.segments.size(), std::size(creation.Keys));
    for (size_t i = 0; i < count; ++i) {
        creation.Keys[i].position = entry.segments[i].position;
        creation.Keys[i].length = entry.segments[i].length;
        creation.Keys[i].flags = entry.segments[i].flags;
    }
    return creation;
}

std::vector<std::vector<KeySegment>> KeysOf(int fileNumber) {
    std::vector<std::vector<KeySegment>> keys;
    bool startNew = true;
    for (const KeySegment& segment : CatalogueEntryFor(fileNumber).segments) {
        if (startNew) keys.emplace_back();
        keys.back().push_back(segment);
        startNew = !segment.Continues();
    }
    return keys;
}

int KeyLength(int fileNumber, int keyNumber) {
    std::vector<std::vector<KeySegment>> keys = KeysOf(fileNumber);
    if (keyNumber < 0 || keyNumber >= static_cast<int>(keys.size())) return 0;
    int length = 0;
    for (const KeySegment& segment : keys[keyNumber]) length += segment.length;
    return length;
}

bool IsHistoryFile(int fileNumber) {
    return FindHistory(fileNumber) != nullptr;
}

int HistoryKeyLength(int fileNumber) {
    const HistoryRow* row = FindHistory(fileNumber);
    return row ? row->keyLength : 0;
}

int HistoryFiller(int fileNumber) {
    const HistoryRow* row = FindHistory(fileNumber);
    return row ? row->filler : 0;
}

int HistoryKeyNumber(int fileNumber) {
    const HistoryRow* row = FindHistory(fileNumber);
    return row ? row->keyNumber : -1;
}

}  // namespace toverin
