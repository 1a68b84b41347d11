// What the Equivalence tab's tree offers for one station: its songs by group (music, jingles,
// liners, rubrics, information; a song's type heads its code) and its categories. Tree nodes are
// keyed by kind: "Son" + song code, "Cat" + category code, and the group kinds "Mus", "Jin",
// "Lin", "Rub", "Inf". Dropping a node on the grid goes through DropNodeOnCell.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "content/EquivalenceTable.h"
#include "store/Pervasive.h"

namespace toverin {

struct CatalogueSong {
    std::string code;      // 8 bytes as stored (Windows-1252)
    std::string title;     // UTF-8, trimmed
    std::string second;    // UTF-8, trimmed
    std::string category;  // 5 bytes as stored
};

struct CatalogueCategory {
    std::string code;   // 5 bytes as stored
    std::string label;  // UTF-8, trimmed
};

struct SongGroupKind {
    const char* kind;     // node key: "Mus", "Jin", "Lin", "Rub", "Inf"
    const char* type;     // the code's head: "000", "JIN", "LIN", "RUB", "INF"
    const char* caption;  // shown in the tree
};
// The five groups, in the tree's order.
const std::vector<SongGroupKind>& SongGroupKinds();

struct SongGroup {
    SongGroupKind kind;
    std::vector<CatalogueSong> songs;  // by title
};

struct StationCatalogue {
    int base = 0;
    int station = 0;  // 0: nothing loaded
    std::vector<SongGroup> groups;
    std::vector<CatalogueCategory> categories;  // by label
    bool complete = true;                       // every read succeeded

    const CatalogueSong* FindSong(std::string_view code) const;
    const CatalogueCategory* FindCategory(std::string_view code) const;
};

// Reads the songs of the five groups from file 22 and the categories from file 21 of `station`
// (each group a key range of its head), through `bank`.
StationCatalogue LoadStationCatalogue(SlotBank& bank, int base, int station);

// What a cell shows: the title, " - " and the second text; "Catégorie: " and the label.
std::string SongCellText(std::string_view title, std::string_view second);
std::string CategoryCellText(std::string_view label);
EquivalenceTable::Cell SongCell(const CatalogueSong& song);
EquivalenceTable::Cell CategoryCell(const CatalogueCategory& category);

enum class NodeKind { Song, Category, Group, Unknown };
std::string SongNodeKey(std::string_view code);      // "Son" + code
std::string CategoryNodeKey(std::string_view code);  // "Cat" + code
NodeKind KindOfNodeKey(std::string_view key);

enum class DropResult {
    Written,      // the cell now holds the song or category
    WrongColumn,  // refused with the message; nothing changed
    Group,        // a group node: nothing is dropped
    Unknown,      // a key of no known kind (logged) or a code the catalogue does not hold
};
// Drops the node `key` of `catalogue`'s tree on the cell of row `rowNumber` and station
// `station`. Only the column of the catalogue's own station takes it: any other gives
// "Vous devez respecter les colonnes pour le Drag & Drop des titres" (critical icon).
DropResult DropNodeOnCell(EquivalenceTable& table, const StationCatalogue& catalogue,
                          std::string_view key, int rowNumber, int station);

// The cell menu: each asks first ("Voulez-vous vider la cellule '...' ?", "Voulez-vous vider la
// ligne " + row) and empties on Yes. True when something was emptied.
bool MnuEquiViderCellule(EquivalenceTable& table, int rowNumber, int station);
bool MnuEquiViderLigne(EquivalenceTable& table, int rowNumber);

}  // namespace toverin
