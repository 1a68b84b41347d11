#include "content/EquivalenceCatalogue.h"

#include <algorithm>

#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/Log.h"
#include "app/Text.h"
#include "content/RecordWalk.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

constexpr int kLabels = 21;
constexpr int kSongs = 22;
constexpr std::string_view kSongKind = "Son";
constexpr std::string_view kCategoryKind = "Cat";
constexpr std::string_view kCategoryHead = "CATEG";
const char* const kCaller = "TreeViewChargerDonnees:Frm_Main:";

// A group of records is a key range: its head, then five bytes 0 up to five bytes 255.
std::string Low(std::string_view head) {
    return std::string(head) + std::string(5, '\0');
}
std::string High(std::string_view head) {
    return std::string(head) + std::string(5, '\xff');
}

bool ByTitle(const CatalogueSong& a, const CatalogueSong& b) {
    std::string ua = UpperAscii(a.title), ub = UpperAscii(b.title);
    return ua != ub ? ua < ub : a.code < b.code;
}

}  // namespace

const std::vector<SongGroupKind>& SongGroupKinds() {
    static const std::vector<SongGroupKind> kinds = {{"Mus", "000", "Musique"},
                                                     {"Jin", "JIN", "Jingles"},
                                                     {"Lin", "LIN", "Liners"},
                                                     {"Rub", "RUB", "Rubriques"},
                                                     {"Inf", "INF", "Informations"}};
    return kinds;
}

const CatalogueSong* StationCatalogue::FindSong(std::string_view code) const {
    const std::string wanted = FixedWidth(code, 8);
    for (const SongGroup& group : groups)
        for (const CatalogueSong& song : group.songs)
            if (song.code == wanted) return &song;
    return nullptr;
}

const CatalogueCategory* StationCatalogue::FindCategory(std::string_view code) const {
    const std::string wanted = FixedWidth(code, 5);
    for (const CatalogueCategory& category : categories)
        if (category.code == wanted) return &category;
    return nullptr;
}

StationCatalogue LoadStationCatalogue(SlotBank& bank, int base, int station) {
    StationCatalogue catalogue;
    catalogue.base = base;
    catalogue.station = station;
    Guarded<int>(std::string(kCaller) + "A", 0, [&] {
        OpenedFiles files(bank, base);
        RecordWalkResult read;
        if (files.Open(kSongs, station)) {
            for (const SongGroupKind& kind : SongGroupKinds()) {
                SongGroup group{kind, {}};
                const RecordWalk walk{.bank = &bank,
                                      .base = base,
                                      .fileNumber = kSongs,
                                      .station = station,
                                      .keyNumber = 0,
                                      .low = Low(kind.type),
                                      .high = High(kind.type),
                                      .caller = std::string(kCaller) + "A"};
                read.failedReads += WalkRecords(walk, [&](const std::string& data) {
                                        const RecordView song(LayoutFor(kSongs), data);
                                        group.songs.push_back(
                                            {song.Raw("SongId"), Trim(song.Utf8("Title")),
                                             Trim(song.Utf8("SecondText")), song.Raw("Category")});
                                    }).failedReads;
                std::sort(group.songs.begin(), group.songs.end(), ByTitle);
                catalogue.groups.push_back(std::move(group));
            }
        } else {
            catalogue.complete = false;
        }
        if (files.Open(kLabels, station)) {
            const RecordWalk walk{.bank = &bank,
                                  .base = base,
                                  .fileNumber = kLabels,
                                  .station = station,
                                  .keyNumber = 0,
                                  .low = Low(kCategoryHead),
                                  .high = High(kCategoryHead),
                                  .caller = std::string(kCaller) + "B"};
            read.failedReads +=
                WalkRecords(walk, [&](const std::string& data) {
                    const RecordView label(LayoutFor(kLabels), data);
                    catalogue.categories.push_back({label.Raw("Code"), Trim(label.Utf8("Label"))});
                }).failedReads;
            std::sort(catalogue.categories.begin(), catalogue.categories.end(),
                      [](const CatalogueCategory& a, const CatalogueCategory& b) {
                          return UpperAscii(a.label) < UpperAscii(b.label);
                      });
        } else {
            catalogue.complete = false;
        }
        if (read.failedReads > 0) catalogue.complete = false;
        return 0;
    });
    return catalogue;
}

std::string SongCellText(std::string_view title, std::string_view second) {
    return std::string(title) + " - " + std::string(second);
}

std::string CategoryCellText(std::string_view label) {
    return "Catégorie: " + std::string(label);
}

EquivalenceTable::Cell SongCell(const CatalogueSong& song) {
    return {song.code, SongCellText(song.title, song.second)};
}

EquivalenceTable::Cell CategoryCell(const CatalogueCategory& category) {
    return {std::string(kCategoryHead) + category.code, CategoryCellText(category.label)};
}

std::string SongNodeKey(std::string_view code) {
    return std::string(kSongKind) + std::string(code);
}

std::string CategoryNodeKey(std::string_view code) {
    return std::string(kCategoryKind) + std::string(code);
}

NodeKind KindOfNodeKey(std::string_view key) {
    const std::string_view kind = key.substr(0, 3);
    if (kind == kSongKind) return NodeKind::Song;
    if (kind == kCategoryKind) return NodeKind::Category;
    for (const SongGroupKind& group : SongGroupKinds())
        if (kind == group.kind) return NodeKind::Group;
    return NodeKind::Unknown;
}

DropResult DropNodeOnCell(EquivalenceTable& table, const StationCatalogue& catalogue,
                          std::string_view key, int rowNumber, int station) {
    if (station != catalogue.station) {
        AffMsg("Vous devez respecter les colonnes pour le Drag & Drop des titres", MsgButtons::Ok,
               MsgIcon::Critical);
        return DropResult::WrongColumn;
    }
    const NodeKind kind = KindOfNodeKey(key);
    if (kind == NodeKind::Group) return DropResult::Group;
    if (kind == NodeKind::Unknown) {
        TraceLog("Key unknow: " + Utf8FromCp1252(key));
        return DropResult::Unknown;
    }
    const std::string_view code = key.substr(3);
    if (kind == NodeKind::Song) {
        const CatalogueSong* song = catalogue.FindSong(code);
        if (!song) {
            TraceLog("Equivalence: song " + Utf8FromCp1252(code) + " not in the tree's station");
            return DropResult::Unknown;
        }
        table.SetCell(rowNumber, station, SongCell(*song));
    } else {
        const CatalogueCategory* category = catalogue.FindCategory(code);
        if (!category) {
            TraceLog("Equivalence: category " + Utf8FromCp1252(code) +
                     " not in the tree's station");
            return DropResult::Unknown;
        }
        table.SetCell(rowNumber, station, CategoryCell(*category));
    }
    return DropResult::Written;
}

bool MnuEquiViderCellule(EquivalenceTable& table, int rowNumber, int station) {
    const EquivalenceTable::Cell& cell = table.CellAt(rowNumber, station);
    if (AffMsg("Voulez-vous vider la cellule '" + cell.shown + "' ?", MsgButtons::YesNo,
               MsgIcon::Question) != MsgAnswer::Yes)
        return false;
    table.ClearCell(rowNumber, station);
    return true;
}

bool MnuEquiViderLigne(EquivalenceTable& table, int rowNumber) {
    if (AffMsg("Voulez-vous vider la ligne " + std::to_string(rowNumber), MsgButtons::YesNo,
               MsgIcon::Question) != MsgAnswer::Yes)
        return false;
    table.ClearRow(rowNumber);
    return true;
}

}  // namespace toverin
