#include "store/RecordCopy.h"

#include <algorithm>

#include "app/EventPump.h"
#include "app/Text.h"
#include "store/Catalogue.h"

namespace toverin {
namespace {

using namespace btr;

// Reads report nothing themselves: the copy says what a failure means through its hooks, so that
// a damaged file is read around instead of ending an unattended night.
int16_t QuietRead(const RecordCopyJob& job, uint16_t op, std::string& data, std::string& key) {
    ScopedQuiet quiet(*job.source);
    job.source->BTRieve(job.base, op, data, key, job.keyNumber, job.fileNumber, job.station,
                        job.caller);
    return job.source->LastStatus();
}

// Inserts the record; a caller with its own report of failures keeps the layer quiet.
int16_t Insert(const RecordCopyJob& job, std::string& record, std::string& keyBuffer) {
    ScopedQuiet quiet(*job.target, static_cast<bool>(job.onInsertError));
    keyBuffer.assign(100, ' ');
    job.target->BTRieve(job.targetBase, kInsert, record, keyBuffer, 0, job.fileNumber,
                        job.targetStation, job.caller);
    return job.target->LastStatus();
}

// Puts the source slot back on the record just copied after an insert into the same slot moved
// it: Get Equal on the record's key finds the first record of that value, and the records of
// the same value read before it in this copy (duplicates come back in insertion order) are
// stepped over again. Returns the status of the last read.
int16_t ReadAgain(const RecordCopyJob& job, const std::string& current, long long sameKeyBefore,
                  std::string& data, std::string& key) {
    key = current;
    int16_t status = QuietRead(job, job.descending ? kGetLessOrEqual : kGetEqual, data, key);
    const uint16_t step = job.descending ? kGetPrevious : kGetNext;
    for (long long i = 0; i < sameKeyBefore && status == kSuccess; ++i)
        status = QuietRead(job, step, data, key);
    return status;
}

}  // namespace

std::string PrintableKey(const std::string& key) {
    std::string out;
    for (char c : key) {
        auto u = static_cast<unsigned char>(c);
        out.push_back(u < 32 || u == 255 ? ' ' : c);
    }
    return Utf8FromCp1252(TrimRight(out));
}

RecordCopyResult CopyRecords(const RecordCopyJob& job) {
    RecordCopyResult result;
    const size_t keyLength =
        static_cast<size_t>(std::max(1, KeyLength(job.fileNumber, job.keyNumber)));
    const std::string lower = job.lower.substr(0, std::min(job.lower.size(), keyLength));
    const std::string upper = job.upper.substr(0, std::min(job.upper.size(), keyLength));
    const uint32_t recordLength = CatalogueEntryFor(job.fileNumber).recordLength;
    const uint16_t next = job.descending ? kGetPrevious : kGetNext;
    const bool sameSlot =
        job.source == job.target && job.base == job.targetBase && job.station == job.targetStation;

    long long seen = 0;
    long long sameKeyBefore = 0;  // records of the current key value read before this one
    std::string previous;
    std::string data(recordLength, ' ');
    // Kept across records so that the loop allocates nothing per record.
    std::string current, record, keyBuffer;
    std::string key = job.descending ? upper : lower;
    int16_t status =
        QuietRead(job, job.descending ? kGetLessOrEqual : kGetGreaterOrEqual, data, key);
    while (true) {
        if (status == kEndOfFile) break;
        if (status != kSuccess) {
            result.readError = true;
            result.readStatus = status;
            std::optional<std::string> resume;
            if (job.onReadError) resume = job.onReadError(status, key);
            if (!resume) break;
            key = *resume;
            key.resize(std::max(key.size(), keyLength), ' ');
            status = QuietRead(job, job.descending ? kGetLessThan : kGetGreater, data, key);
            continue;
        }
        current.assign(key, 0, std::min(key.size(), keyLength));
        if (current > upper || current < lower) break;
        if (sameSlot) {
            sameKeyBefore = seen > 0 && current == previous ? sameKeyBefore + 1 : 0;
            previous = current;
        }
        record.assign(data);
        RecordAction action = job.rewrite ? job.rewrite(record) : RecordAction::Copy;
        if (action == RecordAction::Stop) {
            result.stopped = true;
            break;
        }
        bool inserted = false;
        if (action == RecordAction::Copy) {
            inserted = true;
            int16_t insert = Insert(job, record, keyBuffer);
            while (insert == kDuplicateKey && job.onDuplicate && job.onDuplicate(record))
                insert = Insert(job, record, keyBuffer);
            if (insert == kSuccess) {
                ++result.copied;
            } else if (insert == kDuplicateKey) {
                ++result.duplicates;
            } else {
                result.writeError = true;
                result.writeStatus = insert;
                if (job.onInsertError && !job.onInsertError(insert, current)) break;
            }
        }
        // Every 20 records the interface is served: key, progress, Pause and Stop.
        if (++seen % 20 == 0) {
            if (job.progress) job.progress(result.copied, current);
            ServeEvents();
        }
        if (job.afterRecord && !job.afterRecord()) {
            result.stopped = true;
            break;
        }
        if (inserted && sameSlot) {
            status = ReadAgain(job, current, sameKeyBefore, data, key);
            if (status != kSuccess) {
                // The record read a moment ago cannot be found again: say so as a read error
                // and go on from its key.
                if (status == kKeyNotFound || status == kEndOfFile) status = kInvalidPositioning;
                key = current;
                continue;
            }
        }
        status = QuietRead(job, next, data, key);
    }
    return result;
}

}  // namespace toverin
