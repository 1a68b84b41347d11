// The backup's and the restore's use of the shared record copy: a station's file read from one
// slot bank into its copy held in another, with the tab's key label and record bar as progress
// and each operation's own failure lines and boxes.
#pragma once

#include <string>

#include "operations/OperationView.h"
#include "store/Pervasive.h"
#include "store/RecordCopy.h"

namespace toverin {

// The two banks of a copy: the files read and the copies written, so that a source and its copy
// each keep their own position block.
struct CopyBanks {
    SlotBank& sources;
    SlotBank& copies;
};

enum class CopyMessages {
    Backup,   // failures logged as the backup logs them; a damaged file may ask for a key
    Restore,  // a read failure ends the file; insert failures go to the access layer's report
};

struct CopyStepOptions {
    std::string sourcePath;
    std::string targetPath;
    std::string keyControl;  // progress controls of the tab (empty: not shown)
    std::string recordsControl;
    long long expected = 0;
    int keyNumber = 0;
    std::string lower;  // bounds of the key read
    std::string upper;
    bool descending = false;
    CopyMessages messages = CopyMessages::Backup;
    bool keyDialog = false;  // a damaged file: ask for a key to resume from
};

// The job copying station `station`'s file `fileNumber` of `base` from its slot in
// `banks.sources` into the same slot of `banks.copies`, between the options' bounds.
RecordCopyJob CopyJobFor(CopyBanks banks, int base, int fileNumber, int station,
                         const CopyStepOptions& options, OperationView& view);

// Closes the source and the copy of `job`. False (and a log line) when the copy's writes did not
// all reach the disk: such a copy is no backup and must not be spread or trusted.
bool CloseCopy(const RecordCopyJob& job, const RecordCopyResult& copy, const std::string& target);

}  // namespace toverin
