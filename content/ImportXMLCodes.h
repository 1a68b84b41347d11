// Looking things up while importing (module Lib_ImportXML): label texts turned into codes through
// file 21, songs found by their title, the colour, power, style, type and tempo classifications
// the site declares in its music settings "BK_MUS.ini" (docs/xml-import.md), and the records a
// delivery refers to. The look-ups go through ImportXMLRecords, which the importer implements on
// its record files and the validation on those files plus what the delivery would have written.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "store/Pervasive.h"

namespace toverin {

// Records found by key, as the engine finds them.
class ImportXMLRecords {
  public:
    virtual ~ImportXMLRecords() = default;
    // The records of `file` whose key `keyNumber` equals `key` (Windows-1252, the key's whole
    // length; case-insensitive segments compare without regard to case), in key order, at most
    // `max`.
    virtual std::vector<std::string> Equal(int file, int keyNumber, const std::string& key,
                                           size_t max) = 0;
};

// The key of `keyNumber` as the engine stores it: case-insensitive segments upper-cased.
std::string StoredKeyOf(int file, int keyNumber, const std::string& record);
// The key of `keyNumber` in a record, its segments' bytes joined (KeyOf of the record views,
// with the catalogue's keys read once rather than at every call).
std::string ImportXMLCle(int file, int keyNumber, std::string_view record);

// Records kept in memory, indexed on every key of their file: the records a validation would
// have written, and the tests' base.
class ImportXMLMemoire final : public ImportXMLRecords {
  public:
    // Adds or replaces (same key 0 for unique key 0 files... same identity) the record.
    void Put(int file, int identityKey, const std::string& record);
    std::vector<std::string> Equal(int file, int keyNumber, const std::string& key,
                                   size_t max) override;
    size_t Size(int file) const;
    void Clear() { files_.clear(); }

  private:
    struct File {
        std::vector<std::string> records;
        std::vector<std::multimap<std::string, size_t>> keys;  // stored key -> record index
    };
    std::map<int, File> files_;
};

// Looks in `first`, then in `second` (what the delivery would have written, then the base).
class ImportXMLChained final : public ImportXMLRecords {
  public:
    ImportXMLChained(ImportXMLRecords& first, ImportXMLRecords& second)
        : first_(first), second_(second) {}
    std::vector<std::string> Equal(int file, int keyNumber, const std::string& key,
                                   size_t max) override;

  private:
    ImportXMLRecords& first_;
    ImportXMLRecords& second_;
};

// The record files of one station of a base, open in a bank: Get Equal, then Get Next while
// the key stays the same.
class ImportXMLBanque final : public ImportXMLRecords {
  public:
    ImportXMLBanque(SlotBank& bank, int base, int station)
        : bank_(bank), base_(base), station_(station) {}
    std::vector<std::string> Equal(int file, int keyNumber, const std::string& key,
                                   size_t max) override;

  private:
    SlotBank& bank_;
    int base_;
    int station_;
};

// Remembers what another source answered, per file, until the run writes into that file: a
// delivery names the same few labels, artists and contracts over and over. Each file keeps at
// most `limit` answers, so memory stays flat over any delivery. Songs (file 22) are not kept:
// a delivery names thousands of them, each once or twice.
class ImportXMLCache final : public ImportXMLRecords {
  public:
    explicit ImportXMLCache(ImportXMLRecords& source, size_t limit = 4096)
        : source_(source), limit_(limit) {}
    std::vector<std::string> Equal(int file, int keyNumber, const std::string& key,
                                   size_t max) override;
    // `file` was written: what was remembered of it may be wrong now.
    void Forget(int file);

  private:
    ImportXMLRecords& source_;
    size_t limit_;
    std::array<std::unordered_map<std::string, std::vector<std::string>>, 51> files_;
};

// One of the five music classifications of the suite: colour coefficient, power, style, type
// and tempo. BK_MUS.ini holds one section per classification ("[COULEUR]"), whose key named
// after it ("Mus_Couleur") says whether the site uses it (1) or not (0), "Entete" the kind its
// labels have in file 21 and "Codes" the codes allowed (comma-separated, empty: all).
struct MusicClassification {
    const char* section;  // "COULEUR"
    const char* key;      // "Mus_Couleur"
    bool active = true;
    std::string kind;                // five characters, "COULE" unless the site says otherwise
    std::vector<std::string> codes;  // empty: every code of the kind
};

struct MusicSettings {
    std::array<MusicClassification, 5> classes = {{
        {"COULEUR", "Mus_Couleur", true, "COULE", {}},
        {"PUISSANCE", "Mus_Puissance", true, "PUISS", {}},
        {"STYLE", "Mus_Style", true, "STYLE", {}},
        {"TYPE", "Mus_Type", true, "TYPE ", {}},
        {"TEMPO", "Mus_Tempo", true, "TEMPO", {}},
    }};
    const MusicClassification* Find(const std::string& section) const;
};

// The base's music settings, "BK_MUS.ini" in its configuration folder; a missing file or key
// keeps the defaults.
MusicSettings LectureBkMus(const std::string& iniFile);
// Writes them (the demo site, the tests).
bool EcritureBkMus(const std::string& iniFile, const MusicSettings& settings);

// The code of the label `label` (Windows-1252) of kind `kind` (five characters) in file 21:
// its second key covers the kind and the label's first ten characters, and the whole label
// decides between the records it finds. Nothing when there is none.
std::optional<std::string> CodeDuLibelle(ImportXMLRecords& records, const std::string& kind,
                                         const std::string& label);
// A song's identifier from its title (file 22, by the title key; the whole title decides).
std::optional<std::string> DetermineIDTitre(ImportXMLRecords& records, const std::string& title);

enum class CodeCheck { Ok, NotUsed, NotAllowed };
// Whether `code` of classification `section` may be written at this site.
CodeCheck VerificationCodeCPSTT(const MusicSettings& settings, const std::string& section,
                                const std::string& code);

// A label text turned into its code: `kind` is a file-21 kind ("VOIX ") or, for the five
// classifications, the BK_MUS.ini section ("COULEUR"), whose kind the site settles.
struct CodeResult {
    bool ok = false;
    bool skip = false;    // the site does not use the classification: the field stays empty
    std::string code;     // Windows-1252, trimmed
    std::string refusal;  // "Clé non trouvée: " + the key, or why the code is refused
};
CodeResult ImportXMLVerificationCode(ImportXMLRecords& records, const MusicSettings& settings,
                                     const std::string& kind, const std::string& label);

}  // namespace toverin
