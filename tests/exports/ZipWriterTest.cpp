// The ".xlsx" container: read back by Python's zipfile, the zip64 form included, and an export
// that meets a full disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "exports/Export.h"
#include "exports/ZipWriter.h"
#include "tests/support/Mounts.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

// Text that does not compress to nothing: a dump of pseudo-random hexadecimal codes.
std::string Codes(size_t bytes, unsigned seed) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < bytes) {
        char code[24];
        std::snprintf(code, sizeof code, "<c>%08x</c>\n", static_cast<unsigned>(random()));
        text += code;
    }
    return text;
}

// Python's zipfile checks every entry's checksum and compares its content with the file of the
// same name in `expected`; "same" when all agree.
std::string ZipReadBack(const std::string& zip, const std::string& expected) {
    const std::string command =
        "/usr/bin/python3 -c 'import sys, zipfile, os\n"
        "z = zipfile.ZipFile(sys.argv[1])\n"
        "bad = z.testzip()\n"
        "if bad: sys.exit(\"bad checksum: \" + bad)\n"
        "for i in z.infolist():\n"
        "    want = open(os.path.join(sys.argv[2], i.filename.replace(\"/\", \"_\")), "
        "\"rb\").read()\n"
        "    if z.read(i) != want: sys.exit(\"differs: \" + i.filename)\n"
        "print(\"same\", len(z.infolist()))' '" +
        zip + "' '" + expected + "' 2>&1";
    return testing::CommandOutput(command);
}

TEST(ZipWriterTest, EntriesReadBackWholeInBothFormsOfTheDirectory) {
    testing::TempDir dir;
    fs::create_directories(dir.file("expected"));
    // Several pieces of a megabyte pass between the threads; an empty entry; a small one.
    const std::vector<std::pair<std::string, std::string>> entries = {
        {"xl/worksheets/sheet1.xml", Codes(5'300'000, 1)},
        {"empty.xml", ""},
        {"[Content_Types].xml", "<Types/>"},
    };
    for (const auto& [name, content] : entries) {
        std::string file = name;
        std::replace(file.begin(), file.end(), '/', '_');
        testing::WriteFile(dir.file("expected/" + file), content);
    }
    // The plain form, and the zip64 form that a sheet past 4 GB takes, forced from 1 kB on.
    for (uint64_t zip64From : {uint64_t{0xFFFFFFFFu}, uint64_t{1000}}) {
        SCOPED_TRACE(zip64From);
        const std::string path = dir.file("test.zip");
        ZipWriter zip(zip64From);
        ASSERT_TRUE(zip.Open(path));
        for (const auto& [name, content] : entries) {
            ASSERT_TRUE(zip.Begin(name));
            for (size_t at = 0; at < content.size(); at += 4096) {
                zip.Text().append(content, at, 4096);
                ASSERT_TRUE(zip.Written()) << zip.Error();
            }
            ASSERT_TRUE(zip.End()) << zip.Error();
        }
        ASSERT_TRUE(zip.Close()) << zip.Error();
        EXPECT_EQ(ZipReadBack(path, dir.file("expected")), "same 3");
        const bool zip64 = testing::ReadFile(path).find("PK\x06\x06") != std::string::npos;
        EXPECT_EQ(zip64, zip64From == 1000);
    }
}

TEST(ZipWriterTest, AFullDiskFailsTheExportAndLeavesTheTargetAsItWas) {
    testing::TempDir dir;
    fs::create_directories(dir.file("disk"));
    auto disk = testing::ScopedMount::Tmpfs(dir.file("disk"), "2m");
    if (!disk.ok()) GTEST_SKIP() << "mounting a tmpfs is not permitted here";
    const std::string target = dir.file("disk/Historique.xlsx");
    testing::WriteFile(target, "the workbook of yesterday");

    ExportOptions options;
    options.logFolder = dir.folder();
    auto out = OpenExport(ExportFormat::Xlsx, target, options);
    out->Headings({"Code", "Titre", "Artiste"});
    std::mt19937 random(7);
    bool refused = false;
    for (int row = 0; row < 2'000'000 && !refused; ++row) {
        refused = !out->AddRow(
            {std::to_string(random()), std::to_string(random()), std::to_string(random())});
    }
    EXPECT_TRUE(refused) << "the rows went on after the disk was full";
    EXPECT_FALSE(out->Finish());
    EXPECT_NE(out->Message().find("No space left on device"), std::string::npos) << out->Message();
    out.reset();
    EXPECT_EQ(testing::ReadFile(target), "the workbook of yesterday");
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(dir.file("disk"))) left.push_back(e.path());
    EXPECT_EQ(left, std::vector<std::string>{target});
    EXPECT_NE(testing::ReadFile(dir.file("ExportExcel.Log")).find("Err: cannot write"),
              std::string::npos);
}

}  // namespace
}  // namespace toverin
