#include "content/DuplicationSupport.h"

#include <cstring>
#include <stdexcept>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Text.h"
#include "store/RecordLayout.h"

namespace toverin::duplication {

using namespace btr;

std::vector<int> SelectedStations(int base, const std::array<bool, kMaxStations>& targets) {
    std::vector<int> stations;
    const int count = base >= 0 && base < static_cast<int>(Site().bases.size())
                          ? Site().bases[static_cast<size_t>(base)].stationCount
                          : 0;
    for (int s = 1; s <= count && s <= kMaxStations; ++s)
        if (targets[static_cast<size_t>(s - 1)]) stations.push_back(s);
    return stations;
}

FieldRef::FieldRef(int fileNumber, std::string_view name, int occurrence) {
    const Field* field = LayoutFor(fileNumber).Find(name, occurrence);
    if (!field)
        throw std::invalid_argument("file " + std::to_string(fileNumber) + " has no field " +
                                    std::string(name));
    offset_ = field->offset;
    width_ = field->width;
}

std::string FieldRef::Trimmed(const std::string& record) const {
    return Trim(In(record));
}

void FieldRef::Set(std::string& record, std::string_view bytes) const {
    const size_t n = std::min<size_t>(bytes.size(), width_);
    std::memcpy(record.data() + offset_, bytes.data(), n);
    std::memset(record.data() + offset_ + n, ' ', width_ - n);
}

bool FieldRef::CopyFrom(const std::string& from, std::string& to) const {
    if (std::memcmp(from.data() + offset_, to.data() + offset_, width_) == 0) return false;
    std::memcpy(to.data() + offset_, from.data() + offset_, width_);
    return true;
}

long long FieldRef::Number(const std::string& record) const {
    long long value = 0;
    for (char c : In(record))
        if (c >= '0' && c <= '9') value = value * 10 + (c - '0');
    return value;
}

void FieldRef::SetNumber(std::string& record, long long value) const {
    char* at = record.data() + offset_;
    for (int i = width_ - 1; i >= 0; --i) {
        at[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

std::string KeyBound(std::string_view head, size_t length, char fill) {
    std::string key(head.substr(0, std::min(head.size(), length)));
    key.resize(length, fill);
    return key;
}

int16_t Calls::operator()(uint16_t operation, std::string& data, std::string& key, int keyNumber,
                          int fileNumber, int station, const std::string& caller) {
    bank_.BTRieve(base_, operation, data, key, keyNumber, fileNumber, station, caller);
    const int16_t status = bank_.LastStatus();
    if (status != kSuccess && status != kKeyNotFound && status != kDuplicateKey &&
        status != kEndOfFile)
        ++errors_;
    return status;
}

void Calls::Report(int fileNumber, int station, const std::string& caller, int operation) {
    ++errors_;
    bank_.ErreurBTrieve(base_, fileNumber, station, "", caller, false, operation);
}

bool OpenStationFile(SlotBank& bank, int base, int station, int fileNumber, int8_t openMode,
                     const std::string& procedure) {
    {
        ScopedQuiet quiet(bank);
        if (bank.FichierPervasiveOuvrir(base, station, station, fileNumber, openMode)) return true;
    }
    const std::string path = DataFilePath(base, fileNumber, station);
    TraceLog("Err: " + procedure + ": Unable to open: " + path +
             " |Status: " + std::to_string(bank.LastStatus()));
    AffMsg(FileNameOf(path) + ": Impossible d'ouvrir: " + path, MsgButtons::Ok, MsgIcon::Critical);
    return false;
}

RunFrame::RunFrame(ProgressObserver& observer, std::string logName, const std::string& activity,
                   int base)
    : observer_(observer),
      logName_(std::move(logName)),
      activity_(activity + Site().bases[static_cast<size_t>(base)].label),
      base_(base),
      start_(AppClock().Now()) {}

bool RunFrame::Begin(const std::function<bool()>& validate) {
    run_.emplace(activity_);
    if (!run_->ok()) {
        AffMsg(run_->Refusal(), MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }
    if (!validate()) {
        TraceLog(logName_ + ": Not started");
        return false;
    }
    start_ = AppClock().Now();
    observer_.OnProgress(
        progress::Started{start_, OperationCaption(" - Duplication en cours de la base ", base_)});
    TraceLogEncadre(logName_ + ": Started", '=');
    return true;
}

progress::Outcome RunFrame::Finish(const std::string& done, long long errors) const {
    TraceLogEncadre(
        logName_ + ": Ended. Duration: " + FormatDuration(SecondsBetween(start_, AppClock().Now())),
        '=');
    TraceLogForce();
    if (errors == 0) {
        AffMsg(done, MsgButtons::Ok, MsgIcon::Information);
        return progress::Outcome::Finished;
    }
    AffMsg(done + " avec des erreurs (" + std::to_string(errors) + ") : voir le journal du jour.",
           MsgButtons::Ok, MsgIcon::Exclamation);
    return progress::Outcome::Incomplete;
}

void RunFrame::End(progress::Outcome outcome, const std::string& summary) const {
    const LocalTime now = AppClock().Now();
    observer_.OnProgress(progress::Ended{now, SecondsBetween(start_, now), outcome, summary});
}

}  // namespace toverin::duplication
