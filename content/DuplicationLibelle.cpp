// DuplicationLibelle: the texts of one station's categories, subjects, clocks and songs copied
// onto other stations of the base, record by record under the same key. Nothing is created or
// deleted: a record missing on a target stays missing, and a record whose texts already match
// is not written at all.
#include <algorithm>
#include <functional>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "app/LongRun.h"
#include "app/Text.h"
#include "content/Duplication.h"
#include "content/DuplicationSupport.h"
#include "store/Catalogue.h"

namespace toverin {

using namespace btr;
using duplication::FieldRef;
using duplication::KeyBound;

const char* LabelGroupKey(LabelGroup group) {
    static const char* keys[] = {"CATEG", "THEME", "HORLO", "000", "JIN", "LIN", "RUB", "INF"};
    return keys[static_cast<int>(group)];
}

bool IsSongGroup(LabelGroup group) {
    return group >= LabelGroup::Mus;
}

namespace {

const std::string kCaller = std::string(duplication::kModule) + ":DuplicationLibelle";
const std::vector<int> kFiles = {21, 22, 23, 24, 26, 29};

// How one file's records are walked and which of their fields are copied.
struct LabelFile {
    int file = 0;
    int keyNumber = 0;  // the key whose value starts with the group's kind or type
    std::vector<FieldRef> fields;
    FieldRef label;  // what the progress text shows
    // Among the target's records of the same key, the twin of `source`.
    std::function<bool(const std::string& source, const std::string& target)> twin;
    // Records the walk passes over.
    std::function<bool(const std::string& record)> skip;
};

std::vector<LabelFile> SongFiles(bool changeCategory) {
    std::vector<LabelFile> files;
    LabelFile songs{22, 0, {{22, "Title"}, {22, "SecondText"}}, {22, "Title"}, {}, {}};
    if (changeCategory) songs.fields.emplace_back(22, "Category");
    files.push_back(songs);
    // A song stands once in each of the subjects it has: the twin is the one of the same subject.
    FieldRef subject(23, "Subject");
    files.push_back({23,
                     0,
                     {{23, "Title"}},
                     {23, "Title"},
                     [subject](const std::string& s, const std::string& t) {
                         return subject.In(s) == subject.In(t);
                     },
                     {}});
    files.push_back({24, 0, {{24, "Title"}, {24, "Category"}}, {24, "Title"}, {}, {}});
    files.push_back(
        {26, 0, {{26, "Title"}, {26, "Artist"}, {26, "Category"}}, {26, "Title"}, {}, {}});
    // File 29 also lists the sites that exchange songs with the station ("SITES"): not songs.
    FieldRef header(29, "Header");
    files.push_back({29,
                     2,
                     {{29, "Title"}},
                     {29, "Title"},
                     [header](const std::string& s, const std::string& t) {
                         return header.In(s) == header.In(t);
                     },
                     [header](const std::string& r) { return header.In(r) == "SITES"; }});
    return files;
}

class LabelRun {
  public:
    LabelRun(const LabelDuplicationRequest& request, ProgressObserver& observer)
        : r_(request), observer_(observer), calls_(bank_, request.base) {}
    LabelDuplicationOutcome Run();

  private:
    bool Validate();
    void Walk(const LabelFile& file, const std::string& kind);
    bool FindTwin(const LabelFile& file, int station, const std::string& key,
                  const std::string& source, std::string& target);
    void CopyOnto(const LabelFile& file, int station, const std::string& key,
                  const std::string& source);

    const LabelDuplicationRequest& r_;
    ProgressObserver& observer_;
    SlotBank bank_{"Duplication libelles"};
    duplication::Calls calls_;
    std::vector<int> targets_;
    FieldRef zones_{22, "Zones"};
    LabelDuplicationOutcome outcome_;
};

bool LabelRun::Validate() {
    if (AffMsg("Voulez-vous dupliquer les libellés ?", MsgButtons::YesNo, MsgIcon::Question) !=
        MsgAnswer::Yes)
        return false;
    targets_ = duplication::SelectedStations(r_.base, r_.targets);
    if (targets_.empty()) {
        AffMsg("Vous devez sélectionner au moins une station cible", MsgButtons::Ok,
               MsgIcon::Critical);
        return false;
    }
    // Labels cannot be copied onto their own station.
    if (std::find(targets_.begin(), targets_.end(), r_.sourceStation) != targets_.end()) {
        AffMsg("Impossible de dupliquer sur la station #" + std::to_string(r_.sourceStation),
               MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }
    return true;
}

bool LabelRun::FindTwin(const LabelFile& file, int station, const std::string& key,
                        const std::string& source, std::string& target) {
    std::string k = key;
    int16_t status = calls_(kGetEqual, target, k, file.keyNumber, file.file, station, kCaller);
    while (status == kSuccess && k.compare(0, key.size(), key) == 0) {
        if (!file.twin || file.twin(source, target)) return true;
        status = calls_(kGetNext, target, k, file.keyNumber, file.file, station, kCaller);
    }
    return false;
}

void LabelRun::CopyOnto(const LabelFile& file, int station, const std::string& key,
                        const std::string& source) {
    std::string target;
    if (!FindTwin(file, station, key, source, target)) {
        ++outcome_.missing;
        return;
    }
    bool changed = false;
    for (const FieldRef& field : file.fields) changed |= field.CopyFrom(source, target);
    if (file.file == 22 && r_.allZones && zones_.In(target) != "22222") {
        zones_.Set(target, "22222");
        changed = true;
    }
    if (!changed) return;
    std::string k = key;
    if (calls_(kUpdate, target, k, file.keyNumber, file.file, station, kCaller) == kSuccess)
        ++outcome_.rewritten;
}

void LabelRun::Walk(const LabelFile& file, const std::string& kind) {
    const size_t length = static_cast<size_t>(KeyLength(file.file, file.keyNumber));
    const std::string high = KeyBound(kind + std::string(5, '\xFF'), length, '\xFF');
    std::string source, key = KeyBound(kind + std::string(5, '\0'), length, '\0');
    int16_t status = calls_(kGetGreaterOrEqual, source, key, file.keyNumber, file.file,
                            r_.sourceStation, kCaller);
    long long seen = 0;
    while (status == kSuccess && key.compare(0, length, high) <= 0) {
        if (!file.skip || !file.skip(source)) {
            ++outcome_.read;
            observer_.OnProgress(progress::ItemReached{Utf8FromCp1252(file.label.Trimmed(source))});
            const std::string current = key.substr(0, length);
            for (int station : targets_) CopyOnto(file, station, current, source);
        }
        if (++seen % 20 == 0) ServeEvents();
        status =
            calls_(kGetNext, source, key, file.keyNumber, file.file, r_.sourceStation, kCaller);
    }
}

LabelDuplicationOutcome LabelRun::Run() {
    duplication::RunFrame frame(observer_, "Duplication Labels",
                                "Duplication des libellés de la base ", r_.base);
    if (!frame.Begin([this] { return Validate(); }))
        return frame.Ended(outcome_, progress::Outcome::Refused, "");
    std::vector<int> stations = targets_;
    stations.push_back(r_.sourceStation);
    for (int station : stations) {
        for (int file : kFiles) {
            if (!duplication::OpenStationFile(bank_, r_.base, station, file, kOpenNormal,
                                              "DuplicationLibelle")) {
                bank_.CloseAll();
                TraceLogEncadre("Duplication Labels: Ended: files could not be opened", '=');
                return frame.Ended(outcome_, progress::Outcome::Failed, "Fichiers non ouverts");
            }
        }
    }

    const FieldRef labelField(21, "Label");
    const std::vector<LabelFile> songFiles = SongFiles(r_.changeCategory);
    for (int g = 0; g < kLabelGroups; ++g) {
        if (!r_.groups[static_cast<size_t>(g)]) continue;
        const auto group = static_cast<LabelGroup>(g);
        const std::string kind = LabelGroupKey(group);
        TraceLog("Duplication Labels: Group " + kind);
        observer_.OnProgress(progress::PhaseChanged{kind});
        if (!IsSongGroup(group)) {
            Walk({21, 0, {labelField}, labelField, {}, {}}, kind);
            continue;
        }
        for (const LabelFile& file : songFiles) Walk(file, kind);
    }

    for (int station : stations)
        for (int file : kFiles) bank_.FichierPervasiveFermer(r_.base, station, station, file);
    observer_.OnProgress(progress::PhaseChanged{""});
    observer_.OnProgress(progress::ItemReached{""});
    outcome_.errors = calls_.errors();
    TraceLog("Duplication Labels: Read: " + std::to_string(outcome_.read) +
             " |Rewritten: " + std::to_string(outcome_.rewritten) + " |Missing on a target: " +
             std::to_string(outcome_.missing) + " |Errors: " + std::to_string(outcome_.errors));
    const std::string summary = std::to_string(outcome_.rewritten) + " libellés réécrits";
    return frame.Ended(outcome_, frame.Finish("Duplication des libellés terminée", outcome_.errors),
                       summary);
}

}  // namespace

LabelDuplicationOutcome DuplicationLibelle(const LabelDuplicationRequest& request,
                                           ProgressObserver& observer) {
    return duplication::Guarded<LabelDuplicationOutcome>(
        request.base, request.sourceStation, observer, "DuplicationLibelle:Lib_Duplication",
        [&] { return LabelRun(request, observer).Run(); });
}

}  // namespace toverin
