#include "store/RecordCursor.h"

#include "app/Paths.h"
#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"

namespace toverin {

namespace {

constexpr size_t kKeyBuffer = 255;

}  // namespace

// The keys of a Stat answer, each as its segments.
std::vector<std::vector<btr::KeySpec>> KeysOfStructure(const btr::PbTBtrFileBuf& fileBuf) {
    std::vector<std::vector<btr::KeySpec>> keys;
    bool startNew = true;
    for (const btr::KeySpec& segment : fileBuf.Keys) {
        if (startNew) {
            if (keys.size() == fileBuf.IndxCnt) break;
            keys.emplace_back();
        }
        keys.back().push_back(segment);
        startNew = (segment.flags & btr::kKeySegmented) == 0;
    }
    return keys;
}

RecordCursor::RecordCursor(const std::string& client) : bank_(client) {
    bank_.setQuiet(true);
}

RecordCursor::~RecordCursor() {
    Close();
}

void RecordCursor::Close() {
    if (open_) bank_.FermetureFichierBTrieve(spec_.base, slotFile_, spec_.station);
    open_ = false;
}

CursorOpen RecordCursor::Open(const CursorSpec& query) {
    Close();
    spec_ = query;
    structure_ = {};
    started_ = pending_ = ended_ = false;
    status_ = 0;
    lastKey_.clear();
    duplicateRun_ = 0;
    const bool catalogued = CatalogueEntryFor(query.fileNumber).Exists();
    // The bank's slot: the file's own number when it has one (any slot does for a foreign file).
    slotFile_ = catalogued ? query.fileNumber : 0;
    if (!FileExists(query.path)) {
        status_ = btr::kFileNotFound;
        return CursorOpen::Missing;
    }
    // The record length the slot hands the engine: the catalogue's, then the file's own.
    uint32_t length = catalogued ? CatalogueEntryFor(query.fileNumber).recordLength : 1;
    for (int attempt = 0; attempt < 2; ++attempt) {
        status_ = bank_.OuvertureFichierBTrieve(query.base, slotFile_, query.path, length,
                                                query.station, btr::kOpenReadOnly);
        if (status_ == btr::kFileNotFound) return CursorOpen::Missing;
        if (status_ == btr::kNotARecordFile) return CursorOpen::NotRecordFile;
        if (status_ != btr::kSuccess) return CursorOpen::Failed;
        open_ = true;
        status_ = bank_.Stat(query.base, slotFile_, query.station, structure_);
        if (status_ != btr::kSuccess) return CursorOpen::Failed;
        if (structure_.RecLen == length) break;
        length = structure_.RecLen;
    }

    const auto keys = KeysOfStructure(structure_);
    if (query.keyNumber < 0 || query.keyNumber >= static_cast<int>(keys.size())) {
        Close();
        return CursorOpen::BadKey;
    }
    keyLength_ = 0;
    caseless_ = false;
    for (const btr::KeySpec& segment : keys[static_cast<size_t>(query.keyNumber)]) {
        keyLength_ += segment.length;
        caseless_ = caseless_ || (segment.flags & btr::kKeyCaseInsensitive) != 0;
    }
    // The bounds as key values: the low one padded with bytes 0, the high one with bytes 255.
    // A case-insensitive key compares upper-cased; the padding stays as it is (ÿ would become Ÿ).
    auto bound = [&](const std::string& utf8, char pad) {
        std::string value = Cp1252FromUtf8(utf8);
        return FixedWidth(caseless_ ? UpperCp1252(value) : value, keyLength_, pad);
    };
    low_ = bound(query.from, '\0');
    high_ = query.to.empty() ? "" : bound(query.to, '\xff');

    const RecordLayout& layout = LayoutFor(query.fileNumber);
    cut_ = catalogued && !layout.fields.empty() && layout.recordLength == structure_.RecLen;
    headings_ = cut_ ? VisuDataInitCol(query.fileNumber) : std::vector<std::string>{"Record"};
    return CursorOpen::Ok;
}

bool RecordCursor::Failed() const {
    return status_ != btr::kSuccess && status_ != btr::kEndOfFile && status_ != btr::kFileNotOpen;
}

bool RecordCursor::Read(uint16_t operation, const std::string& key) {
    record_.clear();
    key_ = key;
    bank_.BTRieve(spec_.base, operation, record_, key_, spec_.keyNumber, slotFile_, spec_.station,
                  "VisuData");
    status_ = bank_.LastStatus();
    return status_ == btr::kSuccess;
}

// Reads the next record of the range into record_ and key_; false at the end of the range.
bool RecordCursor::Advance() {
    if (!open_ || ended_) return false;
    bool read;
    if (pending_) {
        pending_ = false;
        read = true;
    } else if (!started_) {
        started_ = true;
        read = Read(btr::kGetGreaterOrEqual, FixedWidth(low_, kKeyBuffer, '\0'));
    } else {
        read = Read(btr::kGetNext, std::string(kKeyBuffer, '\0'));
    }
    std::string value = key_.substr(0, keyLength_);
    if (read && caseless_) value = UpperCp1252(value);
    if (!read || (!high_.empty() && value > high_)) {
        ended_ = true;
        return false;
    }
    duplicateRun_ = value == lastKey_ ? duplicateRun_ + 1 : 0;
    lastKey_ = std::move(value);
    return true;
}

bool RecordCursor::Skip() {
    return Advance();
}

bool RecordCursor::Next(CursorRow& row) {
    if (!Advance()) return false;
    row.headings = nullptr;
    if (!cut_) {
        row.cells.assign(1, TrimRight(Utf8FromCp1252(record_)));
        return true;
    }
    if (record_.size() != structure_.RecLen) record_.resize(structure_.RecLen, ' ');
    CutRecordInto(spec_.fileNumber, record_, row.cells);
    const RecordLayout& layout = LayoutForRecord(spec_.fileNumber, record_);
    if (!layout.form.empty()) {
        formHeadings_ = layout.Headings();
        row.headings = &formHeadings_;
    }
    return true;
}

bool RecordCursor::SeekTo(const CursorMark& mark) {
    if (!open_) return false;
    started_ = true;
    ended_ = pending_ = false;
    lastKey_.clear();
    duplicateRun_ = 0;
    if (!Read(btr::kGetGreaterOrEqual, FixedWidth(mark.key, kKeyBuffer, '\0'))) {
        ended_ = true;
        return false;
    }
    for (uint32_t i = 0; i < mark.duplicatesBefore; ++i) {
        std::string value = key_.substr(0, keyLength_);
        if (caseless_) value = UpperCp1252(value);
        if (value != mark.key) break;
        if (!Read(btr::kGetNext, std::string(kKeyBuffer, '\0'))) {
            ended_ = true;
            return false;
        }
    }
    std::string value = key_.substr(0, keyLength_);
    if (caseless_) value = UpperCp1252(value);
    pending_ = true;
    // Advance counts this record's duplicates again from the mark's.
    lastKey_ = value;
    duplicateRun_ = value == mark.key ? mark.duplicatesBefore - 1 : 0;
    if (value != mark.key || mark.duplicatesBefore == 0) lastKey_.clear();
    return value == mark.key;
}

}  // namespace toverin
