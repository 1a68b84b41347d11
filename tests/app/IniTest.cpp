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

TEST(Ini, ValuesOfAnyLengthAreCutAt254Characters) {
    TempDir dir;
    std::string f = dir.file("long.ini");
    std::string value(100000, 'v');
    value[253] = 'E';
    ASSERT_TRUE(EcritureIni(f, "S", "K", value));
    std::string read = LectureIni(f, "S", "K", "");
    EXPECT_EQ(read.size(), 254u);
    EXPECT_EQ(read.back(), 'E');

    // Characters, not bytes: in a UTF-8 file no character is cut in half.
    std::string accents;
    for (int i = 0; i < 300; ++i) accents += "\xC3\xA9";  // é
    WriteFile(dir.file("utf8.ini"), "[S]\nK=" + accents + "\n");
    read = LectureIni(dir.file("utf8.ini"), "S", "K", "");
    EXPECT_EQ(read, accents.substr(0, 508));
}

// What the Windows private-profile writer does to a file it did not write itself: only the lines
// it must change, the key's own spelling kept, new lines with CRLF, no blank line before a new
// section, the line ends of the other lines left alone.
TEST(Ini, WritesChangeOnlyWhatTheWindowsWriterChanges) {
    TempDir dir;
    std::string f = dir.file("w.ini");
    WriteFile(f, "[A]\r\nKey1=1\r\nk2=2\r\n\r\n[B]\n  Mixed = x \nlast=y");
    ASSERT_TRUE(EcritureIni(f, "a", "KEY1", "one"));  // replaced where it stands
    ASSERT_TRUE(EcritureIni(f, "A", "k3", "3"));      // after the section's last key
    ASSERT_TRUE(EcritureIni(f, "b", "MIXED", "z"));   // its spelling, its LF
    ASSERT_TRUE(EcritureIni(f, "B", "new", "n"));     // after a last line that had no line end
    ASSERT_TRUE(EcritureIni(f, "C", "z", "Vidéo"));   // a new section, at the very end
    ASSERT_TRUE(EcritureIni(f, "C", "Key1", "again"));
    EXPECT_EQ(ReadFile(f),
              "[A]\r\nKey1=one\r\nk2=2\r\nk3=3\r\n\r\n[B]\nMixed=z\nlast=y\r\nnew=n\r\n"
              "[C]\r\nz=Vid\xE9o\r\nKey1=again\r\n");
    EXPECT_EQ(LectureIni(f, "C", "Z", ""), "Vidéo") << "Windows-1252 on disk, UTF-8 in memory";
    // No temporary file is left behind.
    size_t files = 0;
    for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir.path())) ++files;
    EXPECT_EQ(files, 1u);
}

// A file edited on Linux in UTF-8 is read as UTF-8 and stays UTF-8; every other file is the
// suite's Windows-1252, read and written as such.
TEST(Ini, Utf8FilesAreReadAndWrittenBackAsUtf8) {
    TempDir dir;
    std::string bom = dir.file("bom.ini"), plain = dir.file("plain.ini");
    WriteFile(bom,
              "\xEF\xBB\xBF[Base_01]\r\nDossier_Data=/srv/Donn\xC3\xA9"
              "es/\r\n");
    WriteFile(plain, "[Base_01]\nLib=Radio \xC3\x89t\xC3\xA9\n");
    EXPECT_EQ(LectureIni(bom, "Base_01", "Dossier_Data", ""), "/srv/Données/");
    EXPECT_EQ(LectureIni(plain, "Base_01", "Lib", ""), "Radio Été");
    ASSERT_TRUE(EcritureIni(bom, "Base_01", "Lib", "Chérie"));
    ASSERT_TRUE(EcritureIni(plain, "Base_01", "Lib", "Fréquence"));
    EXPECT_EQ(ReadFile(bom),
              "\xEF\xBB\xBF[Base_01]\r\nDossier_Data=/srv/Donn\xC3\xA9"
              "es/\r\nLib=Ch\xC3\xA9rie\r\n");
    EXPECT_EQ(ReadFile(plain), "[Base_01]\nLib=Fr\xC3\xA9quence\n");

    // ASCII alone, or bytes that are not UTF-8: Windows-1252.
    std::string ascii = dir.file("ascii.ini"), cp1252 = dir.file("cp1252.ini");
    WriteFile(ascii, "[S]\r\nK=v\r\n");
    WriteFile(cp1252, "[S]\r\nK=Donn\xE9\x65s\r\n");
    EXPECT_EQ(LectureIni(cp1252, "S", "K", ""), "Données");
    ASSERT_TRUE(EcritureIni(ascii, "S", "L", "é"));
    ASSERT_TRUE(EcritureIni(cp1252, "S", "L", "€"));
    EXPECT_EQ(ReadFile(ascii), "[S]\r\nK=v\r\nL=\xE9\r\n");
    EXPECT_EQ(ReadFile(cp1252), "[S]\r\nK=Donn\xE9\x65s\r\nL=\x80\r\n");
}

TEST(Ini, FileNamesInAnotherCaseAreTheSameFile) {
    TempDir dir;
    WriteFile(dir.file("KV3_CONFIG.INI"), "[Site]\r\nLib=Nord\r\n");
    EXPECT_EQ(LectureIni(dir.file("KV3_Config.ini"), "Site", "Lib", ""), "Nord");
    ASSERT_TRUE(EcritureIni(dir.file("kv3_config.ini"), "Site", "NbBase", "2"));
    EXPECT_EQ(ReadFile(dir.file("KV3_CONFIG.INI")), "[Site]\r\nLib=Nord\r\nNbBase=2\r\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("kv3_config.ini")));
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
