#include "content/ImportXML.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <set>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/Ini.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "content/ImportXMLCodes.h"
#include "content/ImportXMLMapping.h"
#include "content/ImportXMLReader.h"
#include "store/Catalogue.h"
#include "store/RecordCopy.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

const std::string kProcedure = "ImportXMLImporter:" + std::string(kModuleImportXML);
constexpr int kEvery = 20;  // records between two progress events and two turns of the pump

// The files a section reads besides the one it writes: the records it refers to and the labels.
std::vector<int> FilesRead(XmlSection section) {
    switch (section) {
        case XmlSection::Customer:
            return {1, 2};
        case XmlSection::Contract:
            return {1, 3, 4, 21};
        case XmlSection::CtrSpot:
            return {4, 5, 21};
        case XmlSection::CtrSpotSchedule:
            return {5, 6};
        case XmlSection::Artist:
        case XmlSection::Strategy:
            return {21};
        case XmlSection::Workshop:
            return {20, 21};
        case XmlSection::WorkshopSound:
            return {20, 22};
        case XmlSection::Sound:
            return {22};
        default:
            return {};
    }
}

std::string N(long n) {
    return std::to_string(n);
}

// Which sections a file holds and how many lines it has: the first reading.
class Survey final : public XmlDeliveryVisitor {
  public:
    bool Record(const XmlSectionInfo& section, long, std::string_view,
                const XmlElements&) override {
        sections.insert(section.section);
        return true;
    }
    bool WantsElements() const override { return false; }
    std::set<XmlSection> sections;
};

// The keys a run wrote, per file, for the second pass: one string of fixed-length keys per file,
// so a delivery of any size costs a few bytes per record.
class WrittenKeys {
  public:
    void Add(int file, const std::string& key) {
        Keys& k = files_[static_cast<size_t>(file)];
        k.length = key.size();
        k.bytes += key;
    }
    // Each file's keys, sorted and without repeats (a record updated twice is checked once).
    template <class F>
    void ForEach(F&& f) const {
        for (int file = 0; file < kCatalogueSize; ++file) {
            const Keys& k = files_[static_cast<size_t>(file)];
            if (k.bytes.empty()) continue;
            std::vector<std::string_view> keys;
            for (size_t at = 0; at < k.bytes.size(); at += k.length)
                keys.push_back(std::string_view(k.bytes).substr(at, k.length));
            std::sort(keys.begin(), keys.end());
            keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
            f(file, keys);
        }
    }
    long long Count() const {
        long long n = 0;
        for (const Keys& k : files_)
            n += k.length ? static_cast<long long>(k.bytes.size() / k.length) : 0;
        return n;
    }

  private:
    struct Keys {
        size_t length = 0;
        std::string bytes;
    };
    std::array<Keys, kCatalogueSize> files_;
};

// The second reading: each record built, then written or, in validation, kept in memory.
class ImportPass final : public XmlDeliveryVisitor {
  public:
    ImportPass(const ImportXMLOptions& options, SlotBank& bank, ProgressObserver& observer,
               long lines, ImportXMLResultat& result)
        : options_(options),
          bank_(bank),
          observer_(observer),
          lines_(lines),
          result_(result),
          base_(bank, options.base, options.station),
          cache_(base_),
          chained_(pending_, cache_),
          context_{options.validation ? static_cast<ImportXMLRecords&>(chained_)
                                      : static_cast<ImportXMLRecords&>(cache_),
                   LectureBkMus(Site().bases[static_cast<size_t>(options.base)].configFolder +
                                "BK_MUS.ini"),
                   Cp1252FromUtf8(options.categorie),
                   {},
                   &songs_} {}

    bool Record(const XmlSectionInfo& section, long lineNumber, std::string_view line,
                const XmlElements& elements) override {
        ++result_.read;
        if (result_.read % kEvery == 0) {
            observer_.OnProgress(progress::RecordsDone{lineNumber, lines_});
            ServeEvents();
        }
        XmlRecordBuild built = ImportXMLConstruitEnregistrement(section, line, elements, context_);
        for (const std::string& w : built.warnings) {
            result_.warnings.push_back("Ligne " + N(lineNumber) + " (" + section.label + " " +
                                       built.identity + "): " + w);
            TraceLog("Warning: Line " + N(lineNumber) + " (" + section.element + " " +
                     built.identity + "): " + w);
        }
        if (!built.ok) {
            ++result_.refused;
            result_.refusals.push_back({lineNumber, section.label, built.identity, built.refusal});
            TraceLog("Err: Line " + N(lineNumber) + " (" + section.element + " " + built.identity +
                     "): " + built.refusal);
            return true;
        }
        const XmlSectionRules& rules = ImportXMLRegles(section.section);
        if (rules.fileNumber == 21) context_.codes.clear();  // a label the codes may name
        if (options_.validation) {
            const std::string key = ImportXMLCleIdentite(section.section, built.record);
            const bool exists =
                !context_.records.Equal(rules.fileNumber, rules.identityKey, key, 1).empty();
            ++(exists ? result_.updated : result_.inserted);
            pending_.Put(rules.fileNumber, rules.identityKey, built.record);
            return true;
        }
        return Write(rules, lineNumber, built.record);
    }

    void Ignored(long lineNumber, const std::string& reason) override {
        TraceLog("Line " + N(lineNumber) + " ignored: " + reason);
    }

    const WrittenKeys& written() const { return written_; }

  private:
    // Insert; on a key that exists, read that record and update it. Files whose identity key
    // allows duplicates (7, 26) are looked up first, since an insert would never be refused.
    bool Write(const XmlSectionRules& rules, long lineNumber, const std::string& record) {
        const int file = rules.fileNumber;
        const int k = rules.identityKey;
        const std::string identity = ImportXMLCle(file, k, record);
        const int station = options_.station;
        std::string data = record;
        std::string key = identity;
        int16_t status = btr::kDuplicateKey;
        if (!rules.identityDuplicates || NewInFreshFile(file, identity)) {
            bank_.BTRieve(options_.base, btr::kInsert, data, key, k, file, station, kProcedure);
            status = bank_.LastStatus();
            if (status == btr::kSuccess) ++result_.inserted;
        }
        if (status == btr::kDuplicateKey) {
            std::string current;
            key = identity;
            {
                ScopedQuiet quiet(bank_);
                bank_.BTRieve(options_.base, btr::kGetEqual, current, key, k, file, station,
                              kProcedure);
            }
            status = bank_.LastStatus();
            data = record;
            if (status == btr::kSuccess) {
                bank_.BTRieve(options_.base, btr::kUpdate, data, key, k, file, station, kProcedure);
                status = bank_.LastStatus();
                if (status == btr::kSuccess) ++result_.updated;
            } else if (status == btr::kKeyNotFound && rules.identityDuplicates) {
                key = identity;
                bank_.BTRieve(options_.base, btr::kInsert, data, key, k, file, station, kProcedure);
                status = bank_.LastStatus();
                if (status == btr::kSuccess) ++result_.inserted;
            }
        }
        cache_.Forget(file);
        if (status != btr::kSuccess) {
            result_.message = "Erreur " + std::to_string(status) + " en écrivant la ligne " +
                              N(lineNumber) + " dans " +
                              FileNameOf(bank_.OpenFilePath(options_.base, file, station)) +
                              ": l'import est arrêté. Les enregistrements déjà écrits sont "
                              "gardés; importez de nouveau le fichier pour le compléter.";
            return false;
        }
        written_.Add(file, identity);
        if (file == 22) songs_.Remember(record);
        return true;
    }

    // Whether a key of a file whose identity key allows duplicates (7, 26) is surely new: the
    // file was empty when the run began and the run has not written that key. An insert then
    // needs no read before it, and the reads would stop the bulk load from grouping its rows.
    // The keys written are kept as bits of a fixed table (a Bloom filter): one that seems seen
    // already is looked up in the file, so a false alarm costs a read and memory stays flat.
    bool NewInFreshFile(int file, const std::string& identity) {
        Fresh& f = fresh_[static_cast<size_t>(file)];
        if (f.state == Fresh::Unknown) {
            f.state = bank_.RecordCount(options_.base, file, options_.station) == 0 ? Fresh::Yes
                                                                                    : Fresh::No;
            if (f.state == Fresh::Yes) f.bits.assign(Fresh::kBits / 64, 0);
        }
        if (f.state == Fresh::No) return false;
        const uint64_t h = std::hash<std::string>()(identity) * 0x9E3779B97F4A7C15ULL;
        const size_t a = static_cast<size_t>(h >> 44) & (Fresh::kBits - 1);
        const size_t b = static_cast<size_t>(h >> 24) & (Fresh::kBits - 1);
        const bool seen = (f.bits[a / 64] >> (a % 64) & 1) && (f.bits[b / 64] >> (b % 64) & 1);
        f.bits[a / 64] |= uint64_t{1} << (a % 64);
        f.bits[b / 64] |= uint64_t{1} << (b % 64);
        return !seen;
    }

    struct Fresh {
        static constexpr size_t kBits = size_t{1} << 20;  // 128 KiB
        enum { Unknown, Yes, No } state = Unknown;
        std::vector<uint64_t> bits;
    };
    std::array<Fresh, kCatalogueSize> fresh_;

    const ImportXMLOptions& options_;
    SlotBank& bank_;
    ProgressObserver& observer_;
    long lines_;
    ImportXMLResultat& result_;
    ImportXMLBanque base_;
    ImportXMLCache cache_;
    ImportXMLMemoire pending_;  // validation: what the delivery would have written so far
    ImportXMLChained chained_;
    ImportXMLContexte context_;
    ImportXMLSongs songs_;
    WrittenKeys written_;
};

// Opens what the sections need: the files they write (accelerated, or read-only for a
// validation) and those they read. "" when all are open, else the message.
std::string OpenFiles(SlotBank& bank, const ImportXMLOptions& options,
                      const std::set<XmlSection>& sections) {
    std::set<int> written, read;
    for (XmlSection s : sections) {
        written.insert(SectionInfo(s).fileNumber);
        for (int f : FilesRead(s)) read.insert(f);
    }
    ScopedQuiet quiet(bank);
    auto open = [&](int f, int8_t mode) -> std::string {
        const std::string path = DataFilePath(options.base, f, options.station);
        const int16_t status = bank.OuvertureFichierBTrieve(
            options.base, f, path, CatalogueEntryFor(f).recordLength, options.station, mode);
        if (status == btr::kSuccess) return "";
        if (!FileExists(path))
            return "Le fichier " + FileNameOf(path) + " (" + FileDescription(f) +
                   ") est introuvable dans la base: l'import n'a rien écrit.";
        return "Le fichier " + FileNameOf(path) + " ne peut pas être ouvert (erreur " +
               std::to_string(status) + "): l'import n'a rien écrit.";
    };
    const int8_t writeMode = options.validation ? btr::kOpenReadOnly : btr::kOpenAccelerated;
    for (int f : written)
        if (std::string failed = open(f, writeMode); !failed.empty()) return failed;
    for (int f : read) {
        if (written.count(f)) continue;
        if (std::string failed = open(f, btr::kOpenReadOnly); !failed.empty()) return failed;
    }
    return "";
}

// The second pass: every key written read back. The keys go in key order, so a record's
// successor read by Get Next is often the next key written; any other key is looked up by Get
// Equal, whose status decides that a key did not land.
void CheckWrittenKeys(SlotBank& bank, const ImportXMLOptions& options, const WrittenKeys& written,
                      ProgressObserver& observer, ImportXMLResultat& result) {
    observer.OnProgress(progress::PhaseChanged{"Contrôle des clés écrites"});
    const long long total = written.Count();
    long long done = 0;
    written.ForEach([&](int file, const std::vector<std::string_view>& keys) {
        int keyNumber = 0;
        for (const XmlSectionInfo& s : ImportXMLSections())
            if (s.fileNumber == file) keyNumber = ImportXMLRegles(s.section).identityKey;
        ScopedQuiet quiet(bank);
        std::string data, key, next;  // `next`: the key of the record after the last one found
        for (std::string_view k : keys) {
            if (++done % kEvery == 0) {
                observer.OnProgress(progress::RecordsDone{done, total});
                ServeEvents();
            }
            if (!next.empty() && next == k) {
                key = next;
            } else {
                key.assign(k);
                bank.BTRieve(options.base, btr::kGetEqual, data, key, keyNumber, file,
                             options.station, kProcedure);
                if (bank.LastStatus() != btr::kSuccess) {
                    ++result.missing;
                    next.clear();
                    const std::string shown = PrintableKey(std::string(k));
                    std::string message = "Clé non trouvée: " + shown;
                    if (bank.LastStatus() != btr::kKeyNotFound)
                        message += " (erreur " + std::to_string(bank.LastStatus()) + ")";
                    result.refusals.push_back({0, FileDescription(file), shown, message});
                    TraceLog("Err: " +
                             FileNameOf(bank.OpenFilePath(options.base, file, options.station)) +
                             ": " + message);
                    continue;
                }
            }
            bank.BTRieve(options.base, btr::kGetNext, data, key, keyNumber, file, options.station,
                         kProcedure);
            next = bank.LastStatus() == btr::kSuccess ? ImportXMLCle(file, keyNumber, data) : "";
        }
    });
}

// A file's size and time of last change: whether it changed between two readings.
struct FileStamp {
    std::uintmax_t size = 0;
    std::filesystem::file_time_type time{};
    bool operator==(const FileStamp&) const = default;
};
FileStamp StampOf(const std::string& path) {
    std::error_code ec;
    FileStamp stamp;
    stamp.size = std::filesystem::file_size(path, ec);
    stamp.time = std::filesystem::last_write_time(path, ec);
    return stamp;
}

void Tell(const ImportXMLOptions& options, const std::string& text, MsgIcon icon) {
    if (options.boxes) AffMsg(text, MsgButtons::Ok, icon);
}

}  // namespace

std::string ImportXMLDossierSourceParDefaut(int base) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return "";
    const std::string& shared = Site().bases[static_cast<size_t>(base)].sharedFolder;
    if (shared.empty()) return "";
    return NormaliseFolder(JoinPath(shared, kImportXMLDossier));
}

namespace {

std::string ReglagesFile(int base) {
    return Site().bases.at(static_cast<size_t>(base)).ServeurIni();
}
std::string ReglagesSection(int base) {
    return "Base_" + std::to_string(base);
}
int Number(const std::string& text, int fallback) {
    try {
        size_t used = 0;
        const int value = std::stoi(text, &used);
        return used == text.size() ? value : fallback;
    } catch (...) {
        return fallback;
    }
}

}  // namespace

ImportXMLReglages LectureReglagesImportXML(int base) {
    ImportXMLReglages r;
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return r;
    const std::string file = ReglagesFile(base), section = ReglagesSection(base);
    r.dossier = LectureIni(file, section, "ImportXML_Dossier", "");
    r.base = Number(LectureIni(file, section, "ImportXML_Base", "-1"), -1);
    r.station = Number(LectureIni(file, section, "ImportXML_Station", "1"), 1);
    r.categorie = LectureIni(file, section, "ImportXML_Categorie", "");
    r.validation = LectureIni(file, section, "ImportXML_Validation", "0") == "1";
    r.section = LectureIni(file, section, "ImportXML_Type", "");
    return r;
}

void EcritureReglagesImportXML(int base, const ImportXMLReglages& r) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return;
    const std::string file = ReglagesFile(base), section = ReglagesSection(base);
    EcritureIni(file, section, "ImportXML_Dossier", r.dossier);
    EcritureIni(file, section, "ImportXML_Base", std::to_string(r.base));
    EcritureIni(file, section, "ImportXML_Station", std::to_string(r.station));
    EcritureIni(file, section, "ImportXML_Categorie", r.categorie);
    EcritureIni(file, section, "ImportXML_Validation", r.validation ? "1" : "0");
    EcritureIni(file, section, "ImportXML_Type", r.section);
}

std::string LectureLargeursImportXML(int base, const std::string& sectionElement) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return "";
    return LectureIni(ReglagesFile(base), ReglagesSection(base),
                      "ImportXML_Largeurs_" + sectionElement, "");
}

void EcritureLargeursImportXML(int base, const std::string& sectionElement,
                               const std::string& widths) {
    if (base < 0 || base >= static_cast<int>(Site().bases.size())) return;
    EcritureIni(ReglagesFile(base), ReglagesSection(base), "ImportXML_Largeurs_" + sectionElement,
                widths);
}

std::vector<std::pair<std::string, std::string>> ImportXMLCategories(SlotBank& bank, int base,
                                                                     int station) {
    std::vector<std::pair<std::string, std::string>> categories;
    const std::string path = DataFilePath(base, 21, station);
    ScopedQuiet quiet(bank);
    if (path.empty() || !FileExists(path) ||
        bank.OuvertureFichierBTrieve(base, 21, path, CatalogueEntryFor(21).recordLength, station,
                                     btr::kOpenReadOnly) != btr::kSuccess)
        return categories;
    // Key 1 is the kind then the label: the categories come in label order.
    std::string data, key = "CATEG";
    const std::string caller = "ImportXMLCategories:" + std::string(kModuleImportXML);
    bank.BTRieve(base, btr::kGetGreaterOrEqual, data, key, 1, 21, station, caller);
    while (bank.LastStatus() == btr::kSuccess && StartsWith(data, "CATEG")) {
        RecordView v(21, data);
        categories.emplace_back(v.Utf8("Code"), v.Utf8("Label"));
        bank.BTRieve(base, btr::kGetNext, data, key, 1, 21, station, caller);
    }
    bank.FermetureFichierBTrieve(base, 21, station);
    return categories;
}

std::string ImportXMLRefus::Text() const {
    std::string where = line > 0 ? "Ligne " + std::to_string(line) + " (" : "(";
    return where + section + (identity.empty() ? "" : " " + identity) + "): " + message;
}

std::string ImportXMLResultat::Resume() const {
    std::string text = N(read) + " enregistrements lus, " + N(inserted) +
                       (validation ? " à insérer, " : " insérés, ") + N(updated) +
                       (validation ? " à mettre à jour, " : " mis à jour, ") + N(refused) +
                       " refusés, " + N(ignored) + " lignes ignorées";
    if (missing > 0) text += ", " + N(missing) + " clés non trouvées";
    return text;
}

std::string ImportXMLResultat::LogSummary() const {
    return std::string(validation ? "checked" : "read") + ": " + N(read) +
           ", inserted: " + N(inserted) + ", updated: " + N(updated) + ", refused: " + N(refused) +
           ", lines ignored: " + N(ignored) + ", keys not found: " + N(missing);
}

ImportXMLResultat ImportXMLImporter(const std::string& file, const ImportXMLOptions& options,
                                    SlotBank& bank, ProgressObserver& observer) {
    ImportXMLResultat result;
    result.validation = options.validation;
    return Guarded(kProcedure, result, [&] {
        if (options.base < 0 || options.base >= Site().baseCount ||
            options.base >= static_cast<int>(Site().bases.size())) {
            result.message = "Sélectionnez une Base";
        } else if (options.station < 1 ||
                   options.station > Site().bases[static_cast<size_t>(options.base)].stationCount) {
            result.message = "Sélectionnez une Station";
        }
        if (!result.message.empty()) {
            Tell(options, result.message, MsgIcon::Critical);
            return result;
        }
        const BaseConfig& cfg = Site().bases[static_cast<size_t>(options.base)];
        LongRun run(
            (options.validation ? "Vérification XML de la base " : "Import XML de la base ") +
            cfg.label);
        if (!run.ok()) {
            result.message = run.Refusal();
            Tell(options, result.message, MsgIcon::Critical);
            return result;
        }
        const LocalTime start = AppClock().Now();
        observer.OnProgress(
            progress::Started{start, AppCaption() + " - Import XML de la base " + cfg.label});
        TraceLogEncadre(std::string(options.validation ? "Import XML: Check started: "
                                                       : "Import XML: Started: ") +
                        file + " |Station: " + std::to_string(options.station));
        auto finish = [&](progress::Outcome outcome, MsgIcon icon, const std::string& box) {
            TraceLog("Import XML: " + result.LogSummary());
            if (!result.message.empty()) TraceLog("Err: Import XML: " + result.message);
            TraceLogEncadre("Import XML: Ended. Duration: " +
                            FormatDuration(SecondsBetween(start, AppClock().Now())));
            observer.OnProgress(progress::Ended{AppClock().Now(),
                                                SecondsBetween(start, AppClock().Now()), outcome,
                                                result.Resume()});
            Tell(options, box, icon);
            return result;
        };

        observer.OnProgress(progress::PhaseChanged{"Vérification du fichier"});
        const FileStamp before = StampOf(file);
        Survey survey;
        XmlReadResult check = ImportXMLLireFichier(file, survey);
        if (!check.ok) {
            result.message = FileNameOf(file) + ": " + check.message;
            return finish(
                progress::Outcome::Refused, MsgIcon::Critical,
                "Le fichier n'est pas importé, la base n'a pas été modifiée.\n\n" + result.message);
        }
        if (std::string failed = OpenFiles(bank, options, survey.sections); !failed.empty()) {
            bank.CloseAll();
            result.message = failed;
            return finish(progress::Outcome::Refused, MsgIcon::Critical, failed);
        }
        if (StampOf(file) != before) {
            bank.CloseAll();
            result.message = FileNameOf(file) +
                             ": le fichier a changé pendant sa vérification; la base n'a pas été "
                             "modifiée, relancez l'import.";
            return finish(progress::Outcome::Refused, MsgIcon::Critical, result.message);
        }
        result.started = true;
        observer.OnProgress(progress::PhaseChanged{options.validation
                                                       ? "Vérification des enregistrements"
                                                       : "Import des enregistrements"});
        ImportPass pass(options, bank, observer, check.lines, result);
        // Read through once already: the control characters need no second search.
        XmlReadResult read = ImportXMLLireFichier(file, pass, false);
        result.ignored = read.ignored;
        observer.OnProgress(progress::RecordsDone{check.lines, check.lines});
        const bool stopped = !read.ok;
        if (stopped && result.message.empty()) result.message = read.message;
        if (!options.validation && !stopped)
            CheckWrittenKeys(bank, options, pass.written(), observer, result);
        // Closing makes the accelerated writes durable: a failure there loses the last group.
        for (int f = 0; f < kCatalogueSize; ++f) {
            if (!bank.IsFileOpen(options.base, f, options.station)) continue;
            bank.FermetureFichierBTrieve(options.base, f, options.station);
            if (bank.LastStatus() != btr::kSuccess && result.message.empty())
                result.message = "Erreur " + std::to_string(bank.LastStatus()) +
                                 " à la fermeture de " + FileDescription(f) +
                                 ": importez de nouveau le fichier.";
        }
        result.ended = result.message.empty();
        const std::string end =
            options.validation ? "Fin de la vérification (rien n'a été écrit)" : "Fin de l'import";
        if (!result.ended)
            return finish(progress::Outcome::Failed, MsgIcon::Critical,
                          result.message + "\n\n" + result.Resume());
        const bool clean = result.refused == 0 && result.missing == 0;
        return finish(clean ? progress::Outcome::Finished : progress::Outcome::Incomplete,
                      MsgIcon::Information, end + "\n\n" + result.Resume());
    });
}

}  // namespace toverin
