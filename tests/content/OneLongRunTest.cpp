// The content tools and the backup hold the same program-wide run: whichever starts first, the
// other is refused with a message naming it, and the first one still ends as it would have.
#include <functional>

#include "app/LongRun.h"
#include "content/ImportXML.h"
#include "operations/Backup.h"
#include "tests/content/DuplicationFixture.h"

namespace toverin {
namespace {

using testing::DuplicationFixture;

// Runs `inside` once, at the first event of `kind` the run under way reports.
template <class Kind>
class StartInside final : public ProgressObserver {
  public:
    explicit StartInside(std::function<void()> inside) : inside_(std::move(inside)) {}
    void OnProgress(const progress::Event& event) override {
        if (std::holds_alternative<Kind>(event) && inside_) std::exchange(inside_, nullptr)();
    }

  private:
    std::function<void()> inside_;
};

class OneLongRun : public DuplicationFixture {
  protected:
    static LabelDuplicationRequest Labels() {
        LabelDuplicationRequest r;
        r.sourceStation = 1;
        r.targets[1] = true;
        r.groups.fill(true);
        return r;
    }
    static std::string Refusal(const std::string& activity) {
        return "Une autre opération est en cours : " + activity +
               ".\r\n\r\nAttendez la fin de cette opération avant d'en lancer une autre.";
    }
    bool Shown(const std::string& text) const {
        for (const auto& m : dialogs.messages)
            if (m.text == text) return true;
        return false;
    }
};

TEST_F(OneLongRun, NoBackupStartsInsideADuplicationAndNoToolInsideABackup) {
    const std::string label = Site().bases[0].label;
    NullProgress nobody;

    // A backup asked for while the label duplication works (the scheduler's tick, a button).
    BackupOutcome inside;
    StartInside<progress::ItemReached> duringDuplication(
        [&] { inside = BackupData(0, false, nobody); });
    dialogs.QueueAnswer(MsgAnswer::Yes);  // "Voulez-vous dupliquer les libellés ?"
    const LabelDuplicationOutcome duplication = DuplicationLibelle(Labels(), duringDuplication);
    EXPECT_FALSE(inside.started);
    EXPECT_FALSE(inside.Good());
    EXPECT_TRUE(Shown(Refusal("Duplication des libellés de la base " + label)));
    EXPECT_EQ(duplication.outcome, progress::Outcome::Finished);
    EXPECT_FALSE(LongRunUnderWay());

    // The tools asked for while a backup copies its files.
    LabelDuplicationOutcome labels;
    ImportXMLResultat import;
    SlotBank bank("Import");
    StartInside<progress::FileReached> duringBackup([&] {
        labels = DuplicationLibelle(Labels(), nobody);
        ImportXMLOptions options;
        options.base = 0;
        options.station = 1;
        options.boxes = false;
        import = ImportXMLImporter(dir.file("delivery.xml"), options, bank, nobody);
    });
    const BackupOutcome backup = BackupData(0, false, duringBackup);
    EXPECT_EQ(labels.outcome, progress::Outcome::Refused);
    EXPECT_TRUE(Shown(Refusal("Backup de la base " + label)));
    EXPECT_FALSE(import.started);
    EXPECT_EQ(import.message, Refusal("Backup de la base " + label));
    EXPECT_TRUE(backup.Good()) << backup.error;
    EXPECT_FALSE(LongRunUnderWay());
}

}  // namespace
}  // namespace toverin
