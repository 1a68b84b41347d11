#include "content/ImportXMLMapping.h"

#include <array>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <unordered_map>

#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

// An attribute of the item's opening tag, or one of its elements, decoded.
std::string ValueOf(const XmlSectionInfo&, std::string_view, const XmlElements& elements,
                    const std::string& element) {
    if (!element.empty() && element[0] == '@')
        return FiltreChaine(
            elements.Attribute(std::string_view(element).substr(1)).value_or(std::string_view()));
    return FiltreChaine(elements.Value(element));
}

// Fields that hold a percentage and are full (100) unless a delivery says otherwise.
struct Percentage {
    int file;
    const char* field;
};
constexpr Percentage kPercentages[] = {{20, "Quota"}, {22, "Quota"}, {25, "Property"}};

std::string U(std::string_view cp1252) {
    return Utf8FromCp1252(cp1252);
}

std::string_view TrimView(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

bool Digits(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

bool LeapYear(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// "YYYYMMDD" from the forms a delivery may use, "" when it is none of them or no real date.
std::string ParseDate(const std::string& text) {
    std::string ymd;
    if (text.size() == 8 && Digits(text)) {
        ymd = text;
    } else if (text.size() == 10 && text[4] == '-' && text[7] == '-') {
        ymd = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
    } else if (text.size() == 10 && text[2] == '/' && text[5] == '/') {
        ymd = text.substr(6, 4) + text.substr(3, 2) + text.substr(0, 2);
    }
    if (!Digits(ymd)) return "";
    const int y = std::stoi(ymd.substr(0, 4)), m = std::stoi(ymd.substr(4, 2)),
              d = std::stoi(ymd.substr(6, 2));
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (m < 1 || m > 12 || d < 1) return "";
    if (d > days[m - 1] + (m == 2 && LeapYear(y) ? 1 : 0)) return "";
    return ymd;
}

// "HHMMSS" from "HH", "HHMM", "HHMMSS", with or without colons; "" when it is no time of day.
std::string ParseTime(const std::string& text) {
    std::string digits = ReplaceAll(text, ":", "");
    if (!Digits(digits) || (digits.size() != 2 && digits.size() != 4 && digits.size() != 6))
        return "";
    digits.resize(6, '0');
    if (std::stoi(digits.substr(0, 2)) > 23 || std::stoi(digits.substr(2, 2)) > 59 ||
        std::stoi(digits.substr(4, 2)) > 59)
        return "";
    return digits;
}

// A field of a file's layout by its name, looked up in the layout once per call site: the
// names are literals, whose addresses do not change.
const Field& Fld(int file, const char* name, int occurrence = 0) {
    struct Site {
        int file;
        const char* name;
        int occurrence;
        bool operator==(const Site&) const = default;
    };
    struct SiteHash {
        size_t operator()(const Site& s) const noexcept {
            return std::hash<const void*>()(s.name) ^
                   static_cast<size_t>(s.file * 131 + s.occurrence);
        }
    };
    static std::unordered_map<Site, const Field*, SiteHash> known;
    const Site site{file, name, occurrence};
    auto it = known.find(site);
    if (it == known.end()) {
        const Field* f = LayoutFor(file).Find(name, occurrence);
        if (!f) throw std::logic_error("XML import: no field " + std::string(name));
        it = known.emplace(site, f).first;
    }
    return *it->second;
}
std::string Raw(const std::string& record, const Field& f) {
    return record.substr(f.offset, f.width);
}
std::string Text(const std::string& record, const Field& f) {
    return TrimRight(std::string_view(record).substr(f.offset, f.width));
}

// One record being built from its line.
class Builder {
  public:
    Builder(const XmlSectionInfo& section, std::string_view line, const XmlElements& elements,
            ImportXMLContexte& context, XmlRecordBuild& out)
        : section_(section),
          rules_(ImportXMLRegles(section.section)),
          line_(line),
          elements_(elements),
          context_(context),
          out_(out) {}

    bool Build() {
        for (const XmlElementRule& rule : rules_.rules)
            if (!Apply(rule)) return false;
        return Complete();
    }

  private:
    bool Refuse(std::string why) {
        out_.refusal = std::move(why);
        return false;
    }

    bool Apply(const XmlElementRule& rule) {
        // The value as it stands in the line unless it has something to decode.
        std::string decoded;
        std::string_view value;
        if (rule.element[0] == '@') {
            decoded = Value(rule.element);
            value = decoded;
        } else {
            value = elements_.Value(rule.element, rule.nameHash);
            if (FiltreChaineUtile(value)) {
                decoded = FiltreChaine(value);
                value = decoded;
            }
        }
        if (TrimView(value).empty()) {
            if (rule.required) return Refuse("Valeur manquante: " + Shown(rule.element));
            return true;
        }
        // The parts of a value that fills several fields, separated by "|".
        std::array<std::string_view, 40> parts;
        size_t count = 0;
        if (rule.targets.size() == 1) {
            parts[count++] = value;
        } else {
            std::string_view rest = value;
            for (size_t bar = 0; bar != std::string_view::npos;) {
                bar = rest.find('|');
                if (count < parts.size()) parts[count] = rest.substr(0, bar);
                ++count;
                rest = bar == std::string_view::npos ? rest : rest.substr(bar + 1);
            }
        }
        if (count == 1 && rule.spread) {
            for (size_t i = 1; i < rule.targets.size(); ++i) parts[i] = parts[0];
            count = rule.targets.size();
        }
        if (count > rule.targets.size()) {
            out_.warnings.push_back(std::to_string(count - rule.targets.size()) +
                                    " valeur(s) de trop ignorée(s) pour " + Shown(rule.element) +
                                    ": " + U(value));
            count = rule.targets.size();
        }
        for (size_t i = 0; i < count; ++i)
            if (!Set(rule, rule.targets[i], parts[i])) return false;
        return true;
    }

    std::string Value(const std::string& element) const {
        return ValueOf(section_, line_, elements_, element);
    }

    static std::string Shown(const std::string& element) {
        return element[0] == '@' ? element.substr(1) + "=" : "<" + element + ">";
    }

    // One value into one field.
    bool Set(const XmlElementRule& rule, const XmlTarget& target, std::string_view raw) {
        const Field& field = *target.resolved;
        const std::string_view value = rule.conv == XmlConv::Text ? raw : TrimView(raw);
        if (value.empty()) return true;
        switch (rule.conv) {
            case XmlConv::Text:
                if (TrimView(value).size() > field.width)
                    out_.warnings.push_back("Texte coupé à " + std::to_string(field.width) +
                                            " caractères pour " + Shown(rule.element) + ": " +
                                            U(value));
                Put(field, value);
                return true;
            case XmlConv::Number:
                return SetNumber(rule, target, value);
            case XmlConv::Date: {
                std::string date = ParseDate(std::string(value));
                if (date.empty())
                    return Refuse("Date invalide pour " + Shown(rule.element) + ": " + U(value));
                Put(field, date);
                return true;
            }
            case XmlConv::Time: {
                std::string time = ParseTime(std::string(value));
                if (time.empty())
                    return Refuse("Heure invalide pour " + Shown(rule.element) + ": " + U(value));
                if (time.find_first_not_of('0', field.width) != std::string::npos)
                    out_.warnings.push_back("Heure coupée à " + std::to_string(field.width) +
                                            " chiffres pour " + Shown(rule.element) + ": " +
                                            U(value));
                Put(field, time);
                return true;
            }
            case XmlConv::Label:
            case XmlConv::Cpstt: {
                const CodeResult& code = Code(rule, value);
                if (!code.ok) return Refuse(code.refusal);
                if (!code.skip) Put(field, code.code);
                return true;
            }
        }
        return true;
    }

    // A label text's code, looked up once per run and kind.
    const CodeResult& Code(const XmlElementRule& rule, std::string_view text) {
        const size_t slot = static_cast<size_t>(rule.kindSlot);
        if (context_.codes.size() <= slot) context_.codes.resize(slot + 1);
        XmlCodes& codes = context_.codes[slot];
        auto known = codes.find(text);
        if (known == codes.end()) {
            if (codes.size() >= 4096) codes.clear();
            known = codes
                        .emplace(std::string(text),
                                 ImportXMLVerificationCode(context_.records, context_.music,
                                                           rule.kind, std::string(text)))
                        .first;
        }
        return known->second;
    }

    // Bytes into a field (or one part of it), cut or padded with blanks to its width.
    void Put(const Field& field, std::string_view bytes, int part = -1) {
        size_t offset = field.offset, width = field.width;
        if (part >= 0) {
            for (int p = 0; p < part; ++p) offset += field.parts[static_cast<size_t>(p)];
            width = field.parts[static_cast<size_t>(part)];
        }
        const size_t n = std::min(width, bytes.size());
        char* at = out_.record.data() + offset;
        std::memcpy(at, bytes.data(), n);
        std::memset(at + n, ' ', width - n);
    }

    bool SetNumber(const XmlElementRule& rule, const XmlTarget& target, std::string_view value) {
        const Field& field = *target.resolved;
        const bool negative = value[0] == '-';
        const std::string_view digits = negative ? value.substr(1) : value;
        if (!Digits(digits) || digits.size() > 18)
            return Refuse("Valeur numérique invalide pour " + Shown(rule.element) + ": " +
                          U(value));
        long long number = 0;
        for (char c : digits) number = number * 10 + (c - '0');
        if (negative) number = -number;
        const int width =
            target.part >= 0 ? field.parts[static_cast<size_t>(target.part)] : field.width;
        // Zero-padded to the width, written in place ("-" first when negative).
        char text[24];
        unsigned long long rest = negative ? 0ULL - static_cast<unsigned long long>(number)
                                           : static_cast<unsigned long long>(number);
        int at = width;
        while (at > 0 && (rest > 0 || at == width)) {
            text[--at] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        }
        while (at > (negative ? 1 : 0)) text[--at] = '0';
        if (negative && at == 1) text[--at] = '-';
        if (rest > 0 || at != 0 || width > 23)
            return Refuse("Valeur trop grande pour " + Shown(rule.element) + " (" +
                          std::to_string(width) + " chiffres): " + U(value));
        Put(field, std::string_view(text, static_cast<size_t>(width)), target.part);
        return true;
    }

    // The record of `file` whose key `keyNumber` is `key`; a refusal naming the key when there
    // is none.
    std::optional<std::string> Refer(int file, int keyNumber, const std::string& key) {
        std::vector<std::string> found = context_.records.Equal(file, keyNumber, key, 1);
        if (found.empty()) {
            Refuse("Clé non trouvée: " + U(TrimRight(key)));
            return std::nullopt;
        }
        return std::move(found.front());
    }

    // A code of this record that must exist as the key of another file.
    bool ReferIfSet(int file, int keyNumber, const Field& field) {
        const std::string code = Raw(out_.record, field);
        return TrimRight(code).empty() || Refer(file, keyNumber, code).has_value();
    }

    // The song a line names by its Id= or, failing that, by its <Title>; every occurrence of
    // `songs` (the song code fields of the record) gets its code.
    bool FindSong(const std::vector<const Field*>& songs, std::string& song) {
        if (Text(out_.record, *songs.front()).empty()) {
            const std::string title = Trim(Value("Title"));
            if (title.empty()) return Refuse("Valeur manquante: Id=");
            std::optional<std::string> id = DetermineIDTitre(context_.records, title);
            if (!id) return Refuse("Clé non trouvée: " + U(title));
            for (const Field* f : songs) Put(*f, *id);
        }
        const std::string id = Raw(out_.record, *songs.front());
        if (context_.songs && context_.songs->Find(id, song)) return true;
        std::optional<std::string> found = Refer(22, 0, id);
        if (!found) return false;
        song = std::move(*found);
        return true;
    }

    bool Complete();
    bool CompleteSchedule();
    bool CompleteWorkshopSound();

    const XmlSectionInfo& section_;
    const XmlSectionRules& rules_;
    std::string_view line_;
    const XmlElements& elements_;
    ImportXMLContexte& context_;
    XmlRecordBuild& out_;
};

// Derived fields and the records a record refers to.
bool Builder::Complete() {
    std::string& r = out_.record;
    switch (section_.section) {
        case XmlSection::Customer:
            return ReferIfSet(2, 0, Fld(3, "Sector")) && ReferIfSet(1, 0, Fld(3, "Commercial"));
        case XmlSection::Contract:
            return ReferIfSet(3, 1, Fld(5, "Customer")) && ReferIfSet(4, 0, Fld(5, "Product")) &&
                   ReferIfSet(1, 0, Fld(5, "Commercial"));
        case XmlSection::CtrSpot: {
            if (!Refer(5, 2, Raw(r, Fld(6, "No_Contract")))) return false;
            static const Field& product = Fld(6, "Product");
            if (Text(r, product).empty()) return true;
            std::optional<std::string> found = Refer(4, 0, Raw(r, product));
            if (!found) return false;
            Put(Fld(6, "Label_Pro"), Text(*found, Fld(4, "Label")));
            return true;
        }
        case XmlSection::CtrSpotSchedule:
            return CompleteSchedule();
        case XmlSection::Artist: {
            const std::string label = Text(r, Fld(20, "Label"));
            if (Text(r, Fld(20, "Name Code")).empty())
                Put(Fld(20, "Name Code"), UpperCp1252(label));
            if (Text(r, Fld(20, "Key")).empty())
                Put(Fld(20, "Key"), UpperCp1252(label.substr(0, 1)));
            return true;
        }
        case XmlSection::Workshop: {
            static const Field& category = Fld(22, "Category");
            if (Text(r, category).empty() && !context_.categorie.empty())
                Put(category, context_.categorie);
            return ReferIfSet(20, 0, Fld(22, "Artist_1")) && ReferIfSet(20, 0, Fld(22, "Artist_2"));
        }
        case XmlSection::Strategy:
            if (Text(r, Fld(25, "Header")).empty()) Put(Fld(25, "Header"), "PRIOR");
            return true;
        case XmlSection::WorkshopSound:
            return CompleteWorkshopSound();
        case XmlSection::Sound: {
            static const std::vector<const Field*> songs = {&Fld(31, "SongId")};
            std::string song;
            return FindSong(songs, song);
        }
        default:
            return true;
    }
}

// A planned date takes its product and duration from its spot, its customer from the contract;
// the second date group repeats the first.
bool Builder::CompleteSchedule() {
    const std::string& r = out_.record;
    const std::string contract = Raw(r, Fld(7, "No_Contract"));
    std::optional<std::string> spot = Refer(6, 1, contract + Raw(r, Fld(7, "No_Spot")));
    if (!spot) return false;
    std::optional<std::string> header = Refer(5, 2, contract);
    if (!header) return false;
    Put(Fld(7, "Product"), Raw(*spot, Fld(6, "Product")));
    Put(Fld(7, "Duration"), Raw(*spot, Fld(6, "Duration")));
    Put(Fld(7, "Customer"), Raw(*header, Fld(5, "Customer")));
    Put(Fld(7, "Précision"), Raw(r, Fld(7, "Precision")));
    return true;
}

// The recorder table's line of a sound repeats what the song's record says of it.
bool Builder::CompleteWorkshopSound() {
    static const std::vector<const Field*> songs = {&Fld(26, "SongId", 0), &Fld(26, "SongId", 1),
                                                    &Fld(26, "SongId", 2), &Fld(26, "SongId", 3)};
    std::string song;
    if (!FindSong(songs, song)) return false;
    const std::string& r = out_.record;
    Put(Fld(26, "Artist_Code"), Raw(song, Fld(22, "Artist_1")));
    Put(Fld(26, "Category"), Raw(song, Fld(22, "Category")));
    Put(Fld(26, "Title"), Text(song, Fld(22, "Title")));
    Put(Fld(26, "Title2"), Text(song, Fld(22, "SecondText")));
    Put(Fld(26, "Ext"), Raw(song, Fld(22, "Ext")));
    // Milliseconds of eight digits are always seconds of six.
    const std::string ms = Text(song, Fld(22, "Duration"));
    Put(Fld(26, "Duration"), ZeroPad(ms.empty() ? 0 : std::stoll(ms) / 1000, 6));
    if (Text(r, Fld(26, "Curve")).empty())
        Put(Fld(26, "Curve"), Raw(song, Fld(22, "TypeDeCourbeFadeOut")));
    if (Text(r, Fld(26, "TypeOfPiece")).empty()) {
        const std::string type = Text(song, Fld(22, "Type"));
        const std::string piece = type.empty() || type == "000" ? "M" : type.substr(0, 1);
        for (int k = 0; k < 3; ++k) Put(Fld(26, "TypeOfPiece", k), piece);
    }
    const std::string artist = Raw(song, Fld(22, "Artist_1"));
    if (!TrimRight(artist).empty()) {
        std::vector<std::string> found = context_.records.Equal(20, 0, artist, 1);
        if (!found.empty()) Put(Fld(26, "Artist"), Text(found.front(), Fld(20, "Label")));
    }
    return true;
}

// What the "ID KV" column shows: the item's N= and Id= as written.
std::string Identity(const XmlSectionInfo& section, std::string_view line) {
    const std::string id = Trim(ImportXMLValeur(section, line, "@Id"));
    const std::string n = Trim(ImportXMLValeur(section, line, "@N"));
    return U(n.empty() ? id : id.empty() ? n : n + " / " + id);
}

}  // namespace

namespace {

// What a sound's lines take from its song, in this order.
const std::vector<const Field*>& SongFactFields() {
    static const std::vector<const Field*> fields = {&Fld(22, "Artist_1"),
                                                     &Fld(22, "Category"),
                                                     &Fld(22, "Title"),
                                                     &Fld(22, "SecondText"),
                                                     &Fld(22, "Ext"),
                                                     &Fld(22, "Duration"),
                                                     &Fld(22, "TypeDeCourbeFadeOut"),
                                                     &Fld(22, "Type")};
    return fields;
}

}  // namespace

namespace {

size_t FactsWidth() {
    static const size_t width = [] {
        size_t w = 0;
        for (const Field* f : SongFactFields()) w += f->width;
        return w;
    }();
    return width;
}

uint64_t SongKey(std::string_view songId) {
    char bytes[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
    std::memcpy(bytes, songId.data(), std::min<size_t>(8, songId.size()));
    uint64_t key;
    std::memcpy(&key, bytes, 8);
    return key;
}

}  // namespace

size_t ImportXMLSongs::Slot(uint64_t key) const {
    size_t at = static_cast<size_t>((key * 0x9E3779B97F4A7C15ULL) >> 48) & (kSlots - 1);
    while (keys_[at] != 0 && keys_[at] != key) at = (at + 1) & (kSlots - 1);
    return at;
}

void ImportXMLSongs::Remember(std::string_view song) {
    static const Field& id = Fld(22, "SongId");
    if (keys_.empty()) {
        keys_.assign(kSlots, 0);
        facts_.resize(kSlots * FactsWidth());
    }
    const uint64_t key = SongKey(song.substr(id.offset, id.width));
    const size_t at = Slot(key);
    if (keys_[at] == 0) {
        if (count_ >= kCapacity) return;  // the others are read from the file
        keys_[at] = key;
        ++count_;
    }
    char* out = facts_.data() + at * FactsWidth();
    for (const Field* f : SongFactFields()) {
        std::memcpy(out, song.data() + f->offset, f->width);
        out += f->width;
    }
}

bool ImportXMLSongs::Find(std::string_view songId, std::string& song) const {
    if (keys_.empty()) return false;
    const uint64_t key = SongKey(songId);
    const size_t at = Slot(key);
    if (keys_[at] != key) return false;
    static const std::string blank = BlankRecord(22);
    static const Field& id = Fld(22, "SongId");
    song = blank;
    std::memcpy(song.data() + id.offset, &key, 8);
    const char* in = facts_.data() + at * FactsWidth();
    for (const Field* f : SongFactFields()) {
        std::memcpy(song.data() + f->offset, in, f->width);
        in += f->width;
    }
    return true;
}

std::string ImportXMLInitStructureBTR(int fileNumber) {
    // Built once per file: every record of a delivery starts from it.
    static std::array<std::string, kCatalogueSize> ready;
    if (fileNumber >= 0 && fileNumber < kCatalogueSize &&
        !ready[static_cast<size_t>(fileNumber)].empty())
        return ready[static_cast<size_t>(fileNumber)];
    std::string record = BlankRecord(fileNumber);
    RecordView v(LayoutFor(fileNumber), record);
    for (const Percentage& p : kPercentages) {
        if (p.file != fileNumber) continue;
        for (int k = 0; v.Has(p.field, k); ++k) v.SetRaw(p.field, "100", k);
    }
    if (fileNumber >= 0 && fileNumber < kCatalogueSize)
        ready[static_cast<size_t>(fileNumber)] = record;
    return record;
}

std::string ImportXMLValeur(const XmlSectionInfo& section, std::string_view line,
                            const std::string& element) {
    if (!element.empty() && element[0] == '@')
        return FiltreChaine(ImportXMLAttribut(line, section.item, element.substr(1)).value_or(""));
    return ValueOf(section, line, XmlElements(line, section.item), element);
}

XmlRecordBuild ImportXMLConstruitEnregistrement(const XmlSectionInfo& section,
                                                std::string_view line, ImportXMLContexte& context) {
    return ImportXMLConstruitEnregistrement(section, line, XmlElements(line, section.item),
                                            context);
}

XmlRecordBuild ImportXMLConstruitEnregistrement(const XmlSectionInfo& section,
                                                std::string_view line, const XmlElements& elements,
                                                ImportXMLContexte& context) {
    XmlRecordBuild out;
    out.record = ImportXMLInitStructureBTR(section.fileNumber);
    out.ok = Builder(section, line, elements, context, out).Build();
    if (!out.ok || !out.warnings.empty()) out.identity = Identity(section, line);  // for messages
    return out;
}

std::string ImportXMLCleIdentite(XmlSection section, const std::string& record) {
    const XmlSectionRules& rules = ImportXMLRegles(section);
    return ImportXMLCle(rules.fileNumber, rules.identityKey, record);
}

std::vector<std::string> ImportXMLColonnes(XmlSection section) {
    std::vector<std::string> columns = {"ID KV"};
    for (const XmlElementRule& rule : ImportXMLRegles(section).rules) {
        if (rule.element[0] == '@') continue;
        bool seen = false;
        for (const std::string& c : columns) seen |= c == rule.element;
        if (!seen) columns.push_back(rule.element);
    }
    return columns;
}

std::vector<std::string> ImportXMLExtraireData(const XmlSectionInfo& section,
                                               std::string_view line) {
    return ImportXMLExtraireData(section, line, XmlElements(line, section.item));
}

std::vector<std::string> ImportXMLExtraireData(const XmlSectionInfo& section, std::string_view line,
                                               const XmlElements& elements) {
    std::vector<std::string> data = {Identity(section, line)};
    const std::vector<std::string> columns = ImportXMLColonnes(section.section);
    for (size_t i = 1; i < columns.size(); ++i)
        data.push_back(U(ValueOf(section, line, elements, columns[i])));
    return data;
}

}  // namespace toverin
