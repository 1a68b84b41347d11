// toverinctl import-xml on a demo site: the same summary as the log, and exit statuses a script
// can act on.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/DateTime.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "store/Catalogue.h"
#include "store/Pervasive.h"
#include "tests/ctl/CtlRun.h"
#include "tests/support/TestSupport.h"
#include "tools/DemoSite.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;
using testing::RunCaptured;
using testing::TempDir;

class ImportXmlCommand : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir = new TempDir;
        ASSERT_TRUE(
            CreateDemoSite(dir->folder(), DemoSize::Small, 3, MakeLocalTime(2026, 3, 2, 10, 0)).ok);
    }
    static void TearDownTestSuite() {
        ResetSite();
        ResetRecordAccess();
        delete dir;
    }
    void SetUp() override { env = std::make_unique<testing::ScopedLogAndRegistry>(*dir); }

    static std::string Deliveries() { return dir->folder() + "C/KV_Shared/Base1/Import_XML/"; }
    static long long Records(const std::string& name) {
        return RecordCountOfFile(dir->folder() + "C/KV_Data/Base1/" + name);
    }
    testing::CtlRun Run(std::vector<std::string> args) {
        args.insert(args.begin(), {"import-xml", "--root", dir->folder()});
        return RunCaptured(args);
    }

    static TempDir* dir;
    std::unique_ptr<testing::ScopedLogAndRegistry> env;
};

TempDir* ImportXmlCommand::dir = nullptr;

TEST_F(ImportXmlCommand, ChecksThenImportsTheDemosDeliveries) {
    const std::string commercial = Deliveries() + "Livraison_Commerciale.xml";
    const long long customers = Records("FRAD003.bt6");
    testing::CtlRun check = Run({commercial, "--base", "0", "--station", "1", "--check"});
    EXPECT_EQ(check.status, 0) << check.err << check.out;
    EXPECT_NE(check.out.find("import-xml check of " + commercial +
                             " into base 0 station 1: checked: 25, inserted: 23, updated: 2, "
                             "refused: 0, lines ignored: 0, keys not found: 0"),
              std::string::npos)
        << check.out;
    EXPECT_EQ(Records("FRAD003.bt6"), customers);

    testing::CtlRun import = Run({commercial, "--base", "0", "--station", "1"});
    EXPECT_EQ(import.status, 0) << import.err << import.out;
    EXPECT_NE(import.out.find("read: 25, inserted: 23, updated: 2, refused: 0"), std::string::npos)
        << import.out;
    EXPECT_EQ(Records("FRAD003.bt6"), customers + 2);
    testing::CtlRun songs =
        Run({Deliveries() + "Livraison_Programmes.xml", "--base=0", "--station=1"});
    EXPECT_EQ(songs.status, 0) << songs.err << songs.out;
    EXPECT_NE(songs.out.find("read: 43, inserted: 33, updated: 10, refused: 0"), std::string::npos)
        << songs.out;
    EXPECT_NE(env->LogText().find("Import XML: read: 25, inserted: 23, updated: 2, refused: 0"),
              std::string::npos);
}

TEST_F(ImportXmlCommand, ExitStatusesTellWhatHappened) {
    // A record refused: the run goes to its end and says so.
    testing::WriteFile(dir->file("refused.xml"),
                       "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n"
                       "<KV3_Contract>\r\n<Contract N=\"9\" Id=\"NOBODY\"></Contract>\r\n"
                       "</KV3_Contract>\r\n</KV3>\r\n");
    testing::CtlRun refused = Run({dir->file("refused.xml"), "--base", "0", "--station", "2"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_NE(refused.out.find("Ligne 4 (Contrats 9 / NOBODY): Clé non trouvée: NOBODY"),
              std::string::npos)
        << refused.out;
    // A file that is not a delivery: refused whole, nothing written.
    testing::WriteFile(dir->file("bad.xml"), "<KV3>\r\n");
    testing::CtlRun bad = Run({dir->file("bad.xml"), "--base", "0", "--station", "1"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("bad.xml: Le fichier n'est pas au format XML de Kavella"),
              std::string::npos)
        << bad.err;
    EXPECT_EQ(Run({dir->file("absent.xml"), "--base", "0", "--station", "1"}).status, 3);
    EXPECT_EQ(Run({dir->file("bad.xml"), "--base", "0"}).status, 2);
    EXPECT_EQ(Run({dir->file("bad.xml"), "--base", "0", "--station", "4"}).status, 2);
    EXPECT_EQ(Run({dir->file("bad.xml"), "--station", "1"}).status, 2);
    EXPECT_EQ(Run({"--base", "0", "--station", "1"}).status, 2);
}

}  // namespace
}  // namespace toverin
