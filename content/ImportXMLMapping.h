// Where every element of a delivery lands (module Lib_ImportXML): for each section, its record
// file, the key a record is found again by, and one rule per attribute or child element naming
// the fields it fills through the record layouts. docs/xml-import.md lists the rules as a table.
//
// The suite's list of workshop elements serves three sections, split where its subjects change:
// its first six (Protection, URL, Talent, SACEM, ForbiddenArtistActive, ForbiddenArtist) are the
// artist's programming rules and are read with <KV3_Artist> into file 20, together with Quota,
// Voice, Sonority and Group, which artists and songs both carry; <KV3_Workshop> reads the song's
// own elements from Quota to DiverseId, plus Drive and Recorded, into file 22 ("Morceaux");
// <KV3_Strategy> reads Strategy and Priority into file 25 ("Priorités"), the strategies and
// priorities of a category; <KV3_Workshop_Sound> reads the sound elements CodeType,
// ExternalSound, Drive, Recorded, Stereo and AdvCtrSpot into file 26 ("Table des morceaux pour
// le magnétophone"), completing the line from the song's record in file 22.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "content/ImportXMLCodes.h"
#include "content/ImportXMLFormat.h"
#include "store/RecordLayout.h"

namespace toverin {

enum class XmlConv {
    Text,    // Windows-1252 as it stands, cut to the field
    Number,  // a whole number, zero-padded
    Date,    // "YYYYMMDD", "YYYY-MM-DD" or "DD/MM/YYYY", stored "YYYYMMDD"
    Time,    // "HHMMSS", "HH:MM:SS", "HHMM" or "HH:MM", stored to the field's width
    Label,   // a label text of file 21, stored as its code (kind: the file-21 kind)
    Cpstt,   // a label of one of the five music classifications (kind: its BK_MUS.ini section)
};

struct XmlTarget {
    std::string field;
    int occurrence = 0;
    int part = -1;                    // a part of a list field
    const Field* resolved = nullptr;  // the field in its file's layout, found once by its name
};

struct XmlElementRule {
    std::string element;  // the child element, or "@N" and "@Id" for the item's attributes
    XmlConv conv = XmlConv::Text;
    // One field, or several that take the "|"-separated parts of the value in turn (with
    // `spread`, a value of one part goes to every one of them).
    std::vector<XmlTarget> targets;
    std::string kind;
    bool spread = false;
    bool required = false;  // an empty value refuses the record
    bool listed = true;     // false: an element this program reads beyond the suite's list
    int kindSlot = -1;      // Label and Cpstt: the kind's place among ImportXMLContexte::codes
    size_t nameHash = 0;    // XmlElements::NameHash of the element
};

struct XmlSectionRules {
    XmlSection section;
    int fileNumber = 0;
    int identityKey = 0;  // the unique key (or, in files 7 and 26, the key) a record is found by
    std::vector<XmlElementRule> rules;
    bool identityDuplicates = false;  // the identity key allows duplicates (files 7 and 26)
};

const XmlSectionRules& ImportXMLRegles(XmlSection section);

// A record of `fileNumber` ready for its elements: numeric fields zeros of their width, the
// percentage-like ones (quotas, priorities) "100", text blanks.
std::string ImportXMLInitStructureBTR(int fileNumber);

// Texts found by a view of them, without making a string of it first.
struct XmlTextHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};
using XmlCodes = std::unordered_map<std::string, CodeResult, XmlTextHash, std::equal_to<>>;

// The songs a run has written, by code, with what the lines of their sounds take from them
// (files 26 and 31): a delivery's sounds follow its songs, and reading each song back from its
// file would cost a look-up per sound. At most kCapacity songs are kept, a few megabytes; the
// others are read from the file.
class ImportXMLSongs {
  public:
    static constexpr size_t kCapacity = 32768;
    // A record of file 22 that was written.
    void Remember(std::string_view song);
    // Fills `song` with the song's record as far as the sounds read it (code, artist, category,
    // title, second text, extension, duration, fade-out curve, type; the rest blank); false when
    // this run did not write it.
    bool Find(std::string_view songId, std::string& song) const;

  private:
    // Open addressing on the eight bytes of the code, never more than half full.
    static constexpr size_t kSlots = 2 * kCapacity;
    size_t Slot(uint64_t key) const;
    std::vector<uint64_t> keys_;  // 0: an empty slot (a song code is text, never eight NULs)
    std::vector<char> facts_;     // each slot's fields, one after the other
    size_t count_ = 0;
};

struct ImportXMLContexte {
    ImportXMLRecords& records;  // what the look-ups see
    MusicSettings music;
    std::string categorie;  // the category code given to songs delivered without one
    // Label texts already turned into codes (or refused) by kind: a delivery names the same few
    // labels on every line. Whoever writes labels (file 21) clears it.
    std::vector<XmlCodes> codes;            // by the rules' kindSlot
    const ImportXMLSongs* songs = nullptr;  // the songs written so far, when the caller keeps them
};

struct XmlRecordBuild {
    bool ok = false;
    std::string record;    // the record, Windows-1252
    std::string identity;  // the item's N= and Id= as written, when there is a message (UTF-8)
    std::string refusal;   // why the record is not written (UTF-8)
    std::vector<std::string> warnings;  // what was written differently from the file (UTF-8)
};

// The record a line describes: initialised, each rule applied in order, derived fields
// completed and the records it refers to looked up. A label or a referenced record that cannot
// be found refuses the record with "Clé non trouvée: " and the key.
XmlRecordBuild ImportXMLConstruitEnregistrement(const XmlSectionInfo& section,
                                                std::string_view line, ImportXMLContexte& context);
// The same with the line's elements already read (XmlElements of the line and its item).
XmlRecordBuild ImportXMLConstruitEnregistrement(const XmlSectionInfo& section,
                                                std::string_view line, const XmlElements& elements,
                                                ImportXMLContexte& context);

// The key a record is found again by (`identityKey`), as the engine is given it.
std::string ImportXMLCleIdentite(XmlSection section, const std::string& record);

// The columns of the list view for a section: "ID KV", then its elements in order.
std::vector<std::string> ImportXMLColonnes(XmlSection section);
// A record line cut into those columns, decoded, in UTF-8.
std::vector<std::string> ImportXMLExtraireData(const XmlSectionInfo& section,
                                               std::string_view line);
std::vector<std::string> ImportXMLExtraireData(const XmlSectionInfo& section, std::string_view line,
                                               const XmlElements& elements);
// The value of one element (or "@N", "@Id") of a line, decoded, Windows-1252.
std::string ImportXMLValeur(const XmlSectionInfo& section, std::string_view line,
                            const std::string& element);

}  // namespace toverin
