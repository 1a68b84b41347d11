#include <gtest/gtest.h>

#include <filesystem>

#include "app/Ini.h"
#include "app/Registry.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

TEST(Ini, ReadsLikeThePrivateProfileFunctions) {
    TempDir dir;
    std::string f = dir.file("a.ini");
    // CR, LF and CRLF line ends in one file; case, blanks, quotes and duplicates.
    WriteFile(f,
              "[Site]\r\n  Lib = \"Radio Kavella\" \r\nNbBase=2\n[site]\nLib=second\r"
              "[Base_01]\r\nlib=first\r\nLIB=dup\r\nEmpty=\r\nQuote='x'\r\n");
    EXPECT_EQ(LectureIni(f, "SITE", "lib", "d"), "Radio Kavella");
    EXPECT_EQ(LectureIni(f, "site", "NBBASE", "d"), "2");
    EXPECT_EQ(LectureIni(f, "Base_01", "Lib", "d"), "first");
    EXPECT_EQ(LectureIni(f, "Base_01", "Empty", "d"), "");
    EXPECT_EQ(LectureIni(f, "Base_01", "Quote", "d"), "x");
    EXPECT_EQ(LectureIni(f, "Base_01", "Missing", "d"), "d");
    EXPECT_EQ(LectureIni(f, "Nowhere", "Lib", "d"), "d");
}

TEST(Ini, MissingFileGivesDefaultsWithoutTouchingTheDisk) {
    TempDir dir;
    std::string f = dir.file("sub/none.ini");
    EXPECT_EQ(LectureIni(f, "S", "K", "def"), "def");
    EXPECT_FALSE(std::filesystem::exists(dir.file("sub")));
}

TEST(Ini, LongValuesAreCutAt254Characters) {
    TempDir dir;
    std::string f = dir.file("long.ini");
    std::string value(300, 'v');
    value[253] = 'E';
    ASSERT_TRUE(EcritureIni(f, "S", "K", value));
    std::string read = LectureIni(f, "S", "K", "");
    EXPECT_EQ(read.size(), 254u);
    EXPECT_EQ(read.back(), 'E');
}

TEST(Ini, WritesInPlaceAfterLastKeyOrAsNewSectionWithCrlf) {
    TempDir dir;
    std::string f = dir.file("w.ini");
    WriteFile(f, "[A]\nk1=1\nk2=2\n\n[B]\nx=y\n");
    ASSERT_TRUE(EcritureIni(f, "a", "K1", "one"));   // replaced where it stands
    ASSERT_TRUE(EcritureIni(f, "A", "k3", "3"));     // after the section's last key
    ASSERT_TRUE(EcritureIni(f, "C", "z", "Vidéo"));  // new section at the end
    EXPECT_EQ(ReadFile(f),
              "[A]\r\nK1=one\r\nk2=2\r\nk3=3\r\n\r\n[B]\r\nx=y\r\n\r\n[C]\r\nz=Vid\xE9o\r\n");
    EXPECT_EQ(LectureIni(f, "C", "Z", ""), "Vidéo") << "Windows-1252 on disk, UTF-8 in memory";
    // No temporary file is left behind.
    size_t files = 0;
    for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir.path())) ++files;
    EXPECT_EQ(files, 1u);
}

TEST(Ini, WriteCreatesFileAndFolders) {
    TempDir dir;
    std::string f = dir.file("new/folder/BK_PRG.ini");
    ASSERT_TRUE(EcritureIni(f, "Data_Backup", "Start", "0FF"));
    EXPECT_EQ(ReadFile(f), "[Data_Backup]\r\nStart=0FF\r\n");
}

TEST(Registry, KeysCreatedWhenMissingAndValuesKept) {
    TempDir dir;
    SetRegistryFile(dir.file("reg.ini"));
    EXPECT_EQ(GetRegValue(kHkeyCurrentUser, "Software\\Brennick\\KV3_Toverin\\Option_", "X", "def"),
              "def");
    EXPECT_NE(ReadFile(dir.file("reg.ini"))
                  .find("[HKEY_CURRENT_USER\\Software\\Brennick\\KV3_Toverin\\Option_]"),
              std::string::npos);
    ASSERT_TRUE(
        SetRegValue(kHkeyCurrentUser, "Software\\Brennick\\KV3_Toverin\\Option_", "X", "1"));
    EXPECT_EQ(GetRegValue(kHkeyCurrentUser, "Software/Brennick/KV3_Toverin/Option_/", "x", "def"),
              "1");
    SetRegistryFile("");
}

}  // namespace
}  // namespace toverin
