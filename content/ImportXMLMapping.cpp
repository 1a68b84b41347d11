#include "content/ImportXMLMapping.h"

#include <functional>
#include <optional>

#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

// An attribute of the item's opening tag, or an element of its content, decoded.
std::string ValueIn(const XmlSectionInfo& section, std::string_view line, std::string_view content,
                    const std::string& element) {
    if (!element.empty() && element[0] == '@')
        return FiltreChaine(ImportXMLAttribut(line, section.item, element.substr(1)).value_or(""));
    long long unused = 0;
    return FiltreChaine(ImportXMLExtraitBalise(content, element, kExtraitElement, unused));
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

std::vector<std::string> SplitParts(const std::string& value) {
    std::vector<std::string> parts;
    size_t from = 0;
    while (true) {
        size_t bar = value.find('|', from);
        parts.push_back(
            value.substr(from, bar == std::string::npos ? std::string::npos : bar - from));
        if (bar == std::string::npos) return parts;
        from = bar + 1;
    }
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

// One record being built from its line.
class Builder {
  public:
    Builder(const XmlSectionInfo& section, std::string_view line, ImportXMLContexte& context,
            XmlRecordBuild& out)
        : section_(section),
          rules_(ImportXMLRegles(section.section)),
          line_(line),
          content_(ImportXMLContenu(line, section.item)),
          context_(context),
          out_(out),
          view_(LayoutFor(section.fileNumber), out.record) {}

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
        const std::string value = ValueIn(section_, line_, content_, rule.element);
        if (Trim(value).empty()) {
            if (rule.required) return Refuse("Valeur manquante: " + Shown(rule.element));
            return true;
        }
        std::vector<std::string> parts =
            rule.targets.size() > 1 ? SplitParts(value) : std::vector<std::string>{value};
        if (parts.size() == 1 && rule.spread) parts.resize(rule.targets.size(), parts[0]);
        if (parts.size() > rule.targets.size()) {
            out_.warnings.push_back(std::to_string(parts.size() - rule.targets.size()) +
                                    " valeur(s) de trop ignorée(s) pour " + Shown(rule.element) +
                                    ": " + U(value));
            parts.resize(rule.targets.size());
        }
        for (size_t i = 0; i < parts.size(); ++i)
            if (!Set(rule, rule.targets[i], parts[i])) return false;
        return true;
    }

    static std::string Shown(const std::string& element) {
        return element[0] == '@' ? element.substr(1) + "=" : "<" + element + ">";
    }

    // One value into one field.
    bool Set(const XmlElementRule& rule, const XmlTarget& target, const std::string& raw) {
        const Field* field = view_.layout().Find(target.field, target.occurrence);
        const std::string value = rule.conv == XmlConv::Text ? raw : Trim(raw);
        if (value.empty()) return true;
        switch (rule.conv) {
            case XmlConv::Text:
                if (TrimRight(value).size() > field->width)
                    out_.warnings.push_back("Texte coupé à " + std::to_string(field->width) +
                                            " caractères pour " + Shown(rule.element) + ": " +
                                            U(value));
                view_.SetRaw(target.field, value, target.occurrence);
                return true;
            case XmlConv::Number:
                return SetNumber(rule, target, *field, value);
            case XmlConv::Date: {
                std::string date = ParseDate(value);
                if (date.empty())
                    return Refuse("Date invalide pour " + Shown(rule.element) + ": " + U(value));
                view_.SetRaw(target.field, date, target.occurrence);
                return true;
            }
            case XmlConv::Time: {
                std::string time = ParseTime(value);
                if (time.empty())
                    return Refuse("Heure invalide pour " + Shown(rule.element) + ": " + U(value));
                if (time.find_first_not_of('0', field->width) != std::string::npos)
                    out_.warnings.push_back("Heure coupée à " + std::to_string(field->width) +
                                            " chiffres pour " + Shown(rule.element) + ": " +
                                            U(value));
                view_.SetRaw(target.field, time.substr(0, field->width), target.occurrence);
                return true;
            }
            case XmlConv::Label:
            case XmlConv::Cpstt: {
                CodeResult code =
                    ImportXMLVerificationCode(context_.records, context_.music, rule.kind, value);
                if (!code.ok) return Refuse(code.refusal);
                if (!code.skip) view_.SetRaw(target.field, code.code, target.occurrence);
                return true;
            }
        }
        return true;
    }

    bool SetNumber(const XmlElementRule& rule, const XmlTarget& target, const Field& field,
                   const std::string& value) {
        const bool negative = value[0] == '-';
        const std::string digits = negative ? value.substr(1) : value;
        if (!Digits(digits) || digits.size() > 18)
            return Refuse("Valeur numérique invalide pour " + Shown(rule.element) + ": " +
                          U(value));
        const long long number = std::stoll(digits) * (negative ? -1 : 1);
        bool fits;
        if (target.part >= 0) {
            const int width = field.parts[static_cast<size_t>(target.part)];
            const std::string text = ZeroPad(number, width);
            fits = static_cast<int>(text.size()) == width;
            if (fits) view_.SetPart(target.field, target.part, text, target.occurrence);
        } else {
            fits = view_.SetNumber(target.field, number, target.occurrence);
        }
        if (!fits)
            return Refuse(
                "Valeur trop grande pour " + Shown(rule.element) + " (" +
                std::to_string(target.part >= 0 ? field.parts[target.part] : field.width) +
                " chiffres): " + U(value));
        return true;
    }

    // The record of `file` that key `keyNumber` of a probe finds; a refusal naming the key when
    // there is none.
    std::optional<std::string> Refer(int file, int keyNumber,
                                     const std::function<void(RecordView&)>& fill) {
        std::string probe = BlankRecord(file);
        RecordView v(LayoutFor(file), probe);
        fill(v);
        const std::string key = KeyOf(file, keyNumber, probe);
        std::vector<std::string> found = context_.records.Equal(file, keyNumber, key, 1);
        if (found.empty()) {
            Refuse("Clé non trouvée: " + U(TrimRight(key)));
            return std::nullopt;
        }
        return found.front();
    }

    bool ReferIfSet(int file, int keyNumber, const char* field, const char* theirs) {
        if (view_.Text(field).empty()) return true;
        return Refer(file, keyNumber, [&](RecordView& v) { v.SetRaw(theirs, view_.Raw(field)); })
            .has_value();
    }

    // The song a line names by its Id= or, failing that, by its <Title>.
    bool FindSong(const char* songField, std::string& song) {
        if (view_.Text(songField).empty()) {
            const std::string title = Trim(ValueIn(section_, line_, content_, "Title"));
            if (title.empty()) return Refuse("Valeur manquante: Id=");
            std::optional<std::string> id = DetermineIDTitre(context_.records, title);
            if (!id) return Refuse("Clé non trouvée: " + U(title));
            for (int k = 0; view_.Has(songField, k); ++k) view_.SetRaw(songField, *id, k);
        }
        std::optional<std::string> found =
            Refer(22, 0, [&](RecordView& v) { v.SetRaw("SongId", view_.Raw(songField)); });
        if (!found) return false;
        song = *found;
        return true;
    }

    bool Complete();
    bool CompleteSchedule();
    bool CompleteWorkshopSound();

    const XmlSectionInfo& section_;
    const XmlSectionRules& rules_;
    std::string_view line_;
    std::string_view content_;
    ImportXMLContexte& context_;
    XmlRecordBuild& out_;
    RecordView view_;
};

// Derived fields and the records a record refers to.
bool Builder::Complete() {
    switch (section_.section) {
        case XmlSection::Customer:
            return ReferIfSet(2, 0, "Sector", "Code") && ReferIfSet(1, 0, "Commercial", "Code");
        case XmlSection::Contract:
            return ReferIfSet(3, 1, "Customer", "Code") && ReferIfSet(4, 0, "Product", "Code") &&
                   ReferIfSet(1, 0, "Commercial", "Code");
        case XmlSection::CtrSpot: {
            if (!Refer(5, 2,
                       [&](RecordView& v) { v.SetRaw("No_Contract", view_.Raw("No_Contract")); }))
                return false;
            if (view_.Text("Product").empty()) return true;
            std::optional<std::string> product =
                Refer(4, 0, [&](RecordView& v) { v.SetRaw("Code", view_.Raw("Product")); });
            if (!product) return false;
            view_.SetRaw("Label_Pro", RecordView(4, *product).Text("Label"));
            return true;
        }
        case XmlSection::CtrSpotSchedule:
            return CompleteSchedule();
        case XmlSection::Artist: {
            const std::string label = view_.Text("Label");
            if (view_.Text("Name Code").empty()) view_.SetRaw("Name Code", UpperCp1252(label));
            if (view_.Text("Key").empty()) view_.SetRaw("Key", UpperCp1252(label.substr(0, 1)));
            return true;
        }
        case XmlSection::Workshop:
            if (view_.Text("Category").empty() && !context_.categorie.empty())
                view_.SetRaw("Category", context_.categorie);
            return ReferIfSet(20, 0, "Artist_1", "Code") && ReferIfSet(20, 0, "Artist_2", "Code");
        case XmlSection::Strategy:
            if (view_.Text("Header").empty()) view_.SetRaw("Header", "PRIOR");
            return true;
        case XmlSection::WorkshopSound:
            return CompleteWorkshopSound();
        case XmlSection::Sound: {
            std::string song;
            return FindSong("SongId", song);
        }
        default:
            return true;
    }
}

// A planned date takes its product and duration from its spot, its customer from the contract;
// the second date group repeats the first.
bool Builder::CompleteSchedule() {
    std::optional<std::string> spot = Refer(6, 1, [&](RecordView& v) {
        v.SetRaw("No_Contract", view_.Raw("No_Contract"));
        v.SetRaw("No_Commercial", view_.Raw("No_Spot"));
    });
    if (!spot) return false;
    std::optional<std::string> contract =
        Refer(5, 2, [&](RecordView& v) { v.SetRaw("No_Contract", view_.Raw("No_Contract")); });
    if (!contract) return false;
    RecordView s(6, *spot);
    view_.SetRaw("Product", s.Raw("Product"));
    view_.SetRaw("Duration", s.Raw("Duration"));
    view_.SetRaw("Customer", RecordView(5, *contract).Raw("Customer"));
    view_.SetRaw("Précision", view_.Raw("Precision"));
    return true;
}

// The recorder table's line of a sound repeats what the song's record says of it.
bool Builder::CompleteWorkshopSound() {
    std::string found;
    if (!FindSong("SongId", found)) return false;
    RecordView song(22, found);
    view_.SetRaw("Artist_Code", song.Raw("Artist_1"));
    view_.SetRaw("Category", song.Raw("Category"));
    view_.SetRaw("Title", song.Text("Title"));
    view_.SetRaw("Title2", song.Text("SecondText"));
    view_.SetRaw("Ext", song.Raw("Ext"));
    // Milliseconds of eight digits are always seconds of six.
    static_cast<void>(view_.SetNumber("Duration", song.Number("Duration") / 1000));
    if (view_.Text("Curve").empty()) view_.SetRaw("Curve", song.Raw("TypeDeCourbeFadeOut"));
    if (view_.Text("TypeOfPiece").empty()) {
        const std::string type = song.Text("Type");
        const std::string piece = type.empty() || type == "000" ? "M" : type.substr(0, 1);
        for (int k = 0; k < 3; ++k) view_.SetRaw("TypeOfPiece", piece, k);
    }
    if (!song.Text("Artist_1").empty()) {
        std::vector<std::string> artist =
            context_.records.Equal(20, 0, FixedWidth(song.Raw("Artist_1"), 5), 1);
        if (!artist.empty()) view_.SetRaw("Artist", RecordView(20, artist.front()).Text("Label"));
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

std::string ImportXMLInitStructureBTR(int fileNumber) {
    std::string record = BlankRecord(fileNumber);
    RecordView v(LayoutFor(fileNumber), record);
    for (const Percentage& p : kPercentages) {
        if (p.file != fileNumber) continue;
        for (int k = 0; v.Has(p.field, k); ++k) v.SetRaw(p.field, "100", k);
    }
    return record;
}

std::string ImportXMLValeur(const XmlSectionInfo& section, std::string_view line,
                            const std::string& element) {
    return ValueIn(section, line, ImportXMLContenu(line, section.item), element);
}

XmlRecordBuild ImportXMLConstruitEnregistrement(const XmlSectionInfo& section,
                                                std::string_view line, ImportXMLContexte& context) {
    XmlRecordBuild out;
    out.record = ImportXMLInitStructureBTR(section.fileNumber);
    out.identity = Identity(section, line);
    out.ok = Builder(section, line, context, out).Build();
    return out;
}

std::string ImportXMLCleIdentite(XmlSection section, const std::string& record) {
    const XmlSectionRules& rules = ImportXMLRegles(section);
    return KeyOf(rules.fileNumber, rules.identityKey, record);
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
    std::vector<std::string> data = {Identity(section, line)};
    const std::vector<std::string> columns = ImportXMLColonnes(section.section);
    const std::string_view content = ImportXMLContenu(line, section.item);
    for (size_t i = 1; i < columns.size(); ++i)
        data.push_back(U(ValueIn(section, line, content, columns[i])));
    return data;
}

}  // namespace toverin
