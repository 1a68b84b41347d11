// The shared record copy on real files: a copy into the very slot it reads from.
#include <gtest/gtest.h>

#include "store/RecordCopy.h"
#include "store/RecordView.h"
#include "tests/store/PervasiveTestSupport.h"

namespace toverin::testing {
namespace {

using namespace btr;

// File 34 (song history) has duplicates on key 0 (its date and time): several songs played in
// the same second read back in the order they were written.
std::string History(const std::string& song, const std::string& date, const std::string& time) {
    std::string r = BlankRecord(34);
    RecordView v(34, r);
    v.SetText("SongId", song);
    v.SetText("Date", date);
    v.SetText("hhmmss", time);
    return r;
}

class RecordCopy : public AccessLayerTest {};

TEST_F(RecordCopy, ACopyIntoItsOwnSlotReadsItsSourceAgainAfterEachInsert) {
    ASSERT_EQ(CreationFichierBTrieve(DataFilePath(0, 34, 1), 34), kSuccess);
    ASSERT_TRUE(bank.FichierPervasiveOuvrir(0, 1, 1, 34, kOpenAccelerated));
    const std::vector<std::string> source = {
        History("S1", "20260316", "100000"), History("S2", "20260316", "100000"),
        History("S3", "20260316", "100000"), History("S4", "20260316", "100500"),
        History("S5", "20260316", "110000")};
    for (std::string r : source) {
        std::string key;
        bank.BTRieve(0, kInsert, r, key, 0, 34, 1, "Test");
        ASSERT_EQ(bank.LastStatus(), kSuccess);
    }
    RecordCopyJob job;
    job.source = job.target = &bank;
    job.fileNumber = 34;
    job.lower = "2026031610" + std::string(4, '\0');
    job.upper = "2026031610" + std::string(4, '\xFF');
    // Each copy goes to the next day, outside the bounds being read.
    job.rewrite = [](std::string& r) {
        RecordView(34, r).SetText("Date", "20260317");
        return RecordAction::Copy;
    };
    RecordCopyResult result = CopyRecords(job);
    EXPECT_EQ(result.copied, 4);
    EXPECT_FALSE(result.readError);

    std::vector<std::string> copies;
    std::string data, key = "20260317";
    bank.BTRieve(0, kGetGreaterOrEqual, data, key, 0, 34, 1, "Test");
    while (bank.LastStatus() == kSuccess) {
        copies.push_back(RecordView(34, data).Text("SongId"));
        bank.BTRieve(0, kGetNext, data, key, 0, 34, 1, "Test");
    }
    EXPECT_EQ(copies, (std::vector<std::string>{"S1", "S2", "S3", "S4"}));
    EXPECT_EQ(bank.RecordCount(0, 34, 1), 9);
}

}  // namespace
}  // namespace toverin::testing
