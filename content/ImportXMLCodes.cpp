#include "content/ImportXMLCodes.h"

#include <algorithm>

#include "app/Ini.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

// How many records with the same first characters of a label or a title are looked through
// before giving up: far more than any site has.
constexpr size_t kSameStart = 1000;

std::string Upper(std::string_view bytes) {
    return UpperCp1252(bytes);
}

std::vector<std::string> SplitCodes(const std::string& text) {
    std::vector<std::string> codes;
    size_t from = 0;
    while (from <= text.size()) {
        size_t comma = text.find(',', from);
        if (comma == std::string::npos) comma = text.size();
        std::string code = Trim(text.substr(from, comma - from));
        if (!code.empty()) codes.push_back(code);
        from = comma + 1;
    }
    return codes;
}

// The keys of every catalogue file, read once.
const std::vector<std::vector<KeySegment>>& Keys(int file) {
    static const std::array<std::vector<std::vector<KeySegment>>, kCatalogueSize> all = [] {
        std::array<std::vector<std::vector<KeySegment>>, kCatalogueSize> keys;
        for (int f = 0; f < kCatalogueSize; ++f) keys[static_cast<size_t>(f)] = KeysOf(f);
        return keys;
    }();
    static const std::vector<std::vector<KeySegment>> none;
    return file >= 0 && file < kCatalogueSize ? all[static_cast<size_t>(file)] : none;
}

// A key as the engine compares it: case-insensitive segments upper-cased.
std::string Normalised(int file, int keyNumber, std::string_view key) {
    std::string probe;
    size_t at = 0;
    for (const KeySegment& s : Keys(file)[static_cast<size_t>(keyNumber)]) {
        std::string part = FixedWidth(key.substr(std::min(at, key.size())), s.length);
        probe += (s.flags & btr::kKeyCaseInsensitive) ? Upper(part) : part;
        at += s.length;
    }
    return probe;
}

}  // namespace

std::string ImportXMLCle(int file, int keyNumber, std::string_view record) {
    const std::vector<std::vector<KeySegment>>& keys = Keys(file);
    if (keyNumber < 0 || keyNumber >= static_cast<int>(keys.size())) return "";
    std::string key;
    for (const KeySegment& s : keys[static_cast<size_t>(keyNumber)])
        key.append(record.substr(std::min<size_t>(s.position - 1, record.size()), s.length));
    return key;
}

std::string StoredKeyOf(int file, int keyNumber, const std::string& record) {
    const std::vector<std::vector<KeySegment>>& keys = Keys(file);
    if (keyNumber < 0 || keyNumber >= static_cast<int>(keys.size())) return "";
    std::string key;
    for (const KeySegment& s : keys[keyNumber]) {
        std::string part = record.substr(s.position - 1, s.length);
        key += (s.flags & btr::kKeyCaseInsensitive) ? Upper(part) : part;
    }
    return key;
}

void ImportXMLMemoire::Put(int file, int identityKey, const std::string& record) {
    File& f = files_[file];
    const int keyCount = static_cast<int>(Keys(file).size());
    if (f.keys.empty()) f.keys.resize(keyCount);
    const std::string identity = StoredKeyOf(file, identityKey, record);
    auto range = f.keys[identityKey].equal_range(identity);
    for (auto it = range.first; it != range.second; ++it) {
        std::string& old = f.records[it->second];
        if (old.empty()) continue;
        for (int k = 0; k < keyCount; ++k) {
            auto same = f.keys[k].equal_range(StoredKeyOf(file, k, old));
            for (auto e = same.first; e != same.second; ++e) {
                if (e->second == it->second) {
                    f.keys[k].erase(e);
                    break;
                }
            }
        }
        old.clear();
        break;
    }
    f.records.push_back(record);
    for (int k = 0; k < keyCount; ++k)
        f.keys[k].emplace(StoredKeyOf(file, k, record), f.records.size() - 1);
}

std::vector<std::string> ImportXMLMemoire::Equal(int file, int keyNumber, const std::string& key,
                                                 size_t max) {
    std::vector<std::string> found;
    auto it = files_.find(file);
    if (it == files_.end() || keyNumber < 0 ||
        keyNumber >= static_cast<int>(it->second.keys.size()))
        return found;
    auto range = it->second.keys[keyNumber].equal_range(Normalised(file, keyNumber, key));
    for (auto e = range.first; e != range.second && found.size() < max; ++e)
        found.push_back(it->second.records[e->second]);
    return found;
}

size_t ImportXMLMemoire::Size(int file) const {
    auto it = files_.find(file);
    if (it == files_.end()) return 0;
    return static_cast<size_t>(std::count_if(it->second.records.begin(), it->second.records.end(),
                                             [](const std::string& r) { return !r.empty(); }));
}

std::vector<std::string> ImportXMLChained::Equal(int file, int keyNumber, const std::string& key,
                                                 size_t max) {
    std::vector<std::string> found = first_.Equal(file, keyNumber, key, max);
    if (found.size() < max) {
        for (std::string& r : second_.Equal(file, keyNumber, key, max - found.size()))
            found.push_back(std::move(r));
    }
    return found;
}

std::vector<std::string> ImportXMLBanque::Equal(int file, int keyNumber, const std::string& key,
                                                size_t max) {
    std::vector<std::string> found;
    if (max == 0 || !bank_.IsFileOpen(base_, file, station_) || keyNumber < 0 ||
        keyNumber >= static_cast<int>(Keys(file).size()))
        return found;
    static const std::string caller = "ImportXMLRecherche:" + std::string("Lib_ImportXML");
    const std::string wanted = Normalised(file, keyNumber, key);
    ScopedQuiet quiet(bank_);
    std::string data;
    std::string buffer = key;
    bank_.BTRieve(base_, btr::kGetEqual, data, buffer, keyNumber, file, station_, caller);
    while (bank_.LastStatus() == btr::kSuccess) {
        found.push_back(data);
        if (found.size() >= max) break;
        bank_.BTRieve(base_, btr::kGetNext, data, buffer, keyNumber, file, station_, caller);
        if (bank_.LastStatus() == btr::kSuccess && StoredKeyOf(file, keyNumber, data) != wanted)
            break;
    }
    return found;
}

std::vector<std::string> ImportXMLCache::Equal(int file, int keyNumber, const std::string& key,
                                               size_t max) {
    if (file < 0 || file >= static_cast<int>(files_.size()) || file == 22)
        return source_.Equal(file, keyNumber, key, max);
    auto& known = files_[static_cast<size_t>(file)];
    std::string id = std::to_string(keyNumber) + ":" + std::to_string(max) + ":" + key;
    if (auto it = known.find(id); it != known.end()) return it->second;
    std::vector<std::string> found = source_.Equal(file, keyNumber, key, max);
    if (known.size() >= limit_) known.clear();
    known.emplace(std::move(id), found);
    return found;
}

void ImportXMLCache::Forget(int file) {
    if (file >= 0 && file < static_cast<int>(files_.size()))
        files_[static_cast<size_t>(file)].clear();
}

const MusicClassification* MusicSettings::Find(const std::string& section) const {
    for (const MusicClassification& c : classes)
        if (section == c.section) return &c;
    return nullptr;
}

MusicSettings LectureBkMus(const std::string& iniFile) {
    MusicSettings settings;
    IniDocument doc;
    if (!IniDocument::Load(iniFile, doc)) return settings;
    for (MusicClassification& c : settings.classes) {
        std::string value;
        if (doc.Get(c.section, c.key, value)) c.active = Trim(value) != "0";
        if (doc.Get(c.section, "Entete", value) && !Trim(value).empty())
            c.kind = FixedWidth(Trim(value), 5);
        if (doc.Get(c.section, "Codes", value)) c.codes = SplitCodes(value);
    }
    return settings;
}

bool EcritureBkMus(const std::string& iniFile, const MusicSettings& settings) {
    IniDocument doc;
    IniDocument::Load(iniFile, doc);
    for (const MusicClassification& c : settings.classes) {
        doc.Set(c.section, c.key, c.active ? "1" : "0");
        doc.Set(c.section, "Entete", TrimRight(c.kind));
        std::string codes;
        for (const std::string& code : c.codes) codes += (codes.empty() ? "" : ",") + code;
        doc.Set(c.section, "Codes", codes);
    }
    return doc.Save(iniFile);
}

std::optional<std::string> CodeDuLibelle(ImportXMLRecords& records, const std::string& kind,
                                         const std::string& label) {
    const std::string wanted = Upper(TrimRight(label));
    for (const std::string& r :
         records.Equal(21, 1, FixedWidth(kind, 5) + FixedWidth(label, 10), kSameStart)) {
        RecordView v(21, r);
        if (Upper(v.Text("Label")) == wanted) return v.Text("Code");
    }
    return std::nullopt;
}

std::optional<std::string> DetermineIDTitre(ImportXMLRecords& records, const std::string& title) {
    const std::string wanted = Upper(TrimRight(title));
    for (const std::string& r : records.Equal(22, 5, FixedWidth(title, 20), kSameStart)) {
        RecordView v(22, r);
        if (Upper(v.Text("Title")) == wanted) return v.Text("SongId");
    }
    return std::nullopt;
}

CodeCheck VerificationCodeCPSTT(const MusicSettings& settings, const std::string& section,
                                const std::string& code) {
    const MusicClassification* c = settings.Find(section);
    if (!c) return CodeCheck::Ok;
    if (!c->active) return CodeCheck::NotUsed;
    if (c->codes.empty()) return CodeCheck::Ok;
    const std::string wanted = Upper(Trim(code));
    for (const std::string& allowed : c->codes)
        if (Upper(allowed) == wanted) return CodeCheck::Ok;
    return CodeCheck::NotAllowed;
}

CodeResult ImportXMLVerificationCode(ImportXMLRecords& records, const MusicSettings& settings,
                                     const std::string& kind, const std::string& label) {
    CodeResult result;
    std::string header = kind;
    const MusicClassification* classification = settings.Find(kind);
    if (classification) {
        if (!classification->active) {
            result.ok = true;
            result.skip = true;
            return result;
        }
        header = classification->kind;
    }
    std::optional<std::string> code = CodeDuLibelle(records, header, label);
    if (!code) {
        result.refusal =
            "Clé non trouvée: " + Utf8FromCp1252(FixedWidth(header, 5) + TrimRight(label));
        return result;
    }
    if (classification && VerificationCodeCPSTT(settings, kind, *code) == CodeCheck::NotAllowed) {
        result.refusal =
            "Code non autorisé par BK_MUS.ini: " + std::string(kind) + " " + Utf8FromCp1252(*code);
        return result;
    }
    result.ok = true;
    result.code = *code;
    return result;
}

}  // namespace toverin
