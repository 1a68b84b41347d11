#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "app/DateTime.h"
#include "app/Errors.h"
#include "app/FileOps.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::ReadFile;
using testing::ScopedLogAndRegistry;
using testing::ScriptedDialogs;
using testing::TempDir;
using testing::WriteFile;

// Another process holding a write lock on a file, as a running station's engine would.
class LockHolder {
  public:
    explicit LockHolder(const std::string& path) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            int fd = open(path.c_str(), O_RDWR);
            struct flock lock {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            fcntl(fd, F_SETLK, &lock);
            char c = 'r';
            (void)!write(ready[1], &c, 1);
            pause();
            _exit(0);
        }
        char c;
        (void)!read(ready[0], &c, 1);
        close(ready[0]);
        close(ready[1]);
    }
    ~LockHolder() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

  private:
    pid_t pid_;
};

class FileOps : public ::testing::Test {
  protected:
    TempDir dir;
    ScopedLogAndRegistry env{dir};
    ScriptedDialogs dialogs;
};

TEST_F(FileOps, CopyAndItsWarnings) {
    WriteFile(dir.file("a.bt6"), "data");
    EXPECT_TRUE(File_Copy(dir.file("a.bt6"), dir.file("b.btr")));
    EXPECT_EQ(ReadFile(dir.file("b.btr")), "data");
    // Over a longer older copy, from an empty file, and a file of several megabytes with its
    // permissions; no temporary file is left behind.
    std::string big(5'000'000, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 % 251);
    WriteFile(dir.file("big.bt6"), big);
    std::filesystem::permissions(dir.file("big.bt6"), std::filesystem::perms::owner_read |
                                                          std::filesystem::perms::owner_write |
                                                          std::filesystem::perms::group_read);
    WriteFile(dir.file("empty.bt6"), "");
    WriteFile(dir.file("old.btr"), std::string(6'000'000, 'x'));
    EXPECT_TRUE(File_Copy(dir.file("big.bt6"), dir.file("old.btr")));
    EXPECT_EQ(ReadFile(dir.file("old.btr")), big);
    EXPECT_EQ(std::filesystem::status(dir.file("old.btr")).permissions(),
              std::filesystem::status(dir.file("big.bt6")).permissions());
    EXPECT_TRUE(File_Copy(dir.file("empty.bt6"), dir.file("b.btr")));
    EXPECT_EQ(ReadFile(dir.file("b.btr")), "");
    EXPECT_FALSE(std::filesystem::exists(dir.file("old.btr.part")));
    EXPECT_TRUE(File_Copy(dir.file("a.bt6"), dir.file("c.btr"), true));
    EXPECT_FALSE(File_Copy("   ", dir.file("x")));
    EXPECT_FALSE(File_Copy(dir.file("missing.bt6"), dir.file("x")));
    EXPECT_FALSE(File_Copy(dir.file("song.gpx"), dir.file("x")));
    std::string log = env.LogText();
    EXPECT_NE(log.find(":Free space for " + dir.file("b.btr") + ": "), std::string::npos);
    EXPECT_EQ(log.find("Free space for " + dir.file("c.btr")), std::string::npos) << "quiet";
    EXPECT_NE(log.find(":Warning: File_Copy: File name null\r\n"), std::string::npos);
    EXPECT_NE(log.find(":Warning: File_Copy: File not found: " + dir.file("missing.bt6")),
              std::string::npos);
    EXPECT_EQ(log.find("song.gpx"), std::string::npos) << "missing .gpx files are not reported";
}

TEST_F(FileOps, FileInUseAndOtherFailuresGiveTheirLines) {
    WriteFile(dir.file("src.bt6"), "new");
    WriteFile(dir.file("held.btr"), "old");
    {
        LockHolder holder(dir.file("held.btr"));
        EXPECT_FALSE(File_Copy(dir.file("src.bt6"), dir.file("held.btr")));
        EXPECT_FALSE(File_Delete(dir.file("held.btr")));
        EXPECT_FALSE(File_Move(dir.file("held.btr"), dir.file("moved")));
    }
    EXPECT_EQ(ReadFile(dir.file("held.btr")), "old");
    // The shell's copy makes a missing target folder; one that cannot be made is the target's
    // fault, never a missing source.
    EXPECT_TRUE(File_Copy(dir.file("src.bt6"), dir.file("no/such/folder/x")));
    EXPECT_EQ(ReadFile(dir.file("no/such/folder/x")), "new");
    WriteFile(dir.file("afile"), "");
    EXPECT_FALSE(File_Copy(dir.file("src.bt6"), dir.file("afile/sub/x")));
    EXPECT_TRUE(File_Move(dir.file("no/such/folder/x"), dir.file("moved/into/new/x")));
    EXPECT_EQ(ReadFile(dir.file("moved/into/new/x")), "new");
    WriteFile(dir.file("other"), "o");
    EXPECT_FALSE(File_Rename(dir.file("src.bt6"), dir.file("other")));
    EXPECT_FALSE(File_Delete(dir.file("gone.bt6")));
    std::string log = env.LogText();
    EXPECT_NE(log.find(":File_Copy: Err: 32 |File in use. Source: " + dir.file("src.bt6") +
                       "  Target: " + dir.file("held.btr")),
              std::string::npos);
    EXPECT_NE(log.find(":File_Delete: Err: 32 |File in use: " + dir.file("held.btr")),
              std::string::npos);
    EXPECT_NE(log.find(":File_Move: Err: 32 |File in use: " + dir.file("held.btr")),
              std::string::npos);
    EXPECT_EQ(log.find("Source file missing"), std::string::npos);
    EXPECT_NE(log.find(":File_Copy: Err: 3 |Source: " + dir.file("src.bt6") +
                       "  Target: " + dir.file("afile/sub/x")),
              std::string::npos);
    EXPECT_NE(log.find(":File_Rename: Err: 183 |Target file already exists: Source: " +
                       dir.file("src.bt6") + "  Target: " + dir.file("other")),
              std::string::npos);
    EXPECT_NE(log.find(":Warning: File_Delete: File not found: " + dir.file("gone.bt6")),
              std::string::npos);
}

TEST_F(FileOps, MoveRenameDeleteSucceed) {
    WriteFile(dir.file("a"), "1");
    EXPECT_TRUE(File_Move(dir.file("a"), dir.file("b")));
    EXPECT_TRUE(File_Rename(dir.file("b"), dir.file("c")));
    EXPECT_EQ(ReadFile(dir.file("c")), "1");
    EXPECT_TRUE(File_Delete(dir.file("c")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("c")));
}

TEST_F(FileOps, SizesFoldersAndShellErrors) {
    EXPECT_EQ(LibSize(512), "0,50 Ko");
    EXPECT_EQ(LibSize(1536ull * 1024), "1,50 Mo");
    EXPECT_EQ(LibSize(1234567ull * 1024), "1,18 Go");
    EXPECT_EQ(LibSize(1000ull << 20), "1 000,00 Mo");
    EXPECT_EQ(LibSize(3ull << 40), "3,00 To");
    EXPECT_GT(CheckFreeSpace(dir.file("not/yet/there")), 0u);

    EXPECT_TRUE(VerificationEtCreationRepertoire(dir.file("x/y/z")));
    WriteFile(dir.file("plain"), "");
    EXPECT_FALSE(VerificationEtCreationRepertoire(dir.file("plain/sub")));
    ASSERT_EQ(dialogs.messages.size(), 1u);
    EXPECT_EQ(dialogs.messages[0].text,
              "Le dossier '" + dir.file("plain/sub") +
                  "' n'a pu être créé\r\n\r\nVeuillez vérifier dans Windows que ce progamme a bien "
                  "les droits de création de dossier.");
    EXPECT_EQ(dialogs.messages[0].icon, MsgIcon::Critical);

    EXPECT_EQ(ShellExError(2).number, 53);
    EXPECT_EQ(ShellExError(2).text, ShellExError(3).text);
    EXPECT_EQ(ShellExError(31).number, -2147220456L + 31);
    EXPECT_EQ(ShellExError(0).number, 7);
    EXPECT_EQ(ShellExError(28).number, 286);
}

// The desktop's opener is a program of its own: a stand-in on the PATH answers with each of its
// exit codes, and each lands on its row of the table.
TEST_F(FileOps, ShellExStartsProgramsWithTheirArgumentsAndMapsTheOpenersFailures) {
    const std::string bin = dir.file("bin");
    WriteFile(bin + "/xdg-open",
              "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$OPENED\"\nexit $OPENER_EXIT\n");
    std::filesystem::permissions(bin + "/xdg-open", std::filesystem::perms::owner_all);
    const std::string path = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", (bin + ":" + path).c_str(), 1);
    setenv("OPENED", dir.file("opened").c_str(), 1);
    WriteFile(dir.file("doc.txt"), "x");
    struct Case {
        const char* exit;
        int result;
        const char* text;
    };
    const Case cases[] = {
        {"0", 42, nullptr},
        {"1", kShellOtherFailure, "Erreur lors de l'ouverture ou de l'impression du fichier"},
        {"2", 2, "Chemin d'accès non trouvé"},
        {"3", 31, "Il n'y a aucune application associée à ce type de fichier"},
        {"4", kShellOtherFailure, "Erreur lors de l'ouverture ou de l'impression du fichier"},
        {"5", 5, "Erreur d'accès au Dossier/Fichier"},
    };
    testing::ScopedFakeClock clock(MakeLocalTime(2026, 11, 22, 9, 0, 0));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.exit);
        clock->Advance(std::chrono::seconds(20));  // past the repeated-error interval
        setenv("OPENER_EXIT", c.exit, 1);
        EXPECT_EQ(ShellEx(dir.file("doc.txt")), c.result);
        EXPECT_EQ(ReadFile(dir.file("opened")), dir.file("doc.txt") + "\n");
        std::string log = env.LogText();
        if (c.text) {
            EXPECT_NE(log.rfind(c.text), std::string::npos);
        }
    }
    setenv("OPENER_EXIT", "0", 1);
    EXPECT_EQ(ShellEx("https://kavella.example/composants"), 42) << "addresses go to the opener";

    // A program with parameters: each parameter its own argument, quotes grouping.
    WriteFile(bin + "/show-args", "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$OPENED\"\n");
    std::filesystem::permissions(bin + "/show-args", std::filesystem::perms::owner_all);
    EXPECT_EQ(ShellEx(bin + "/show-args", "/Veille=True \"C:\\Mes Sons\\\" \"a \"\"b\"\"\""), 42);
    for (int i = 0; i < 100 && ReadFile(dir.file("opened")).find("Sons") == std::string::npos; ++i)
        usleep(20000);
    EXPECT_EQ(ReadFile(dir.file("opened")), "/Veille=True\nC:\\Mes Sons\\\na \"b\"\n");

    // Missing files and folders; no opener at all.
    EXPECT_EQ(ShellEx(dir.file("no-such-document.txt")), 2);
    EXPECT_EQ(ShellEx(dir.file("no-folder/doc.txt")), 3);
    setenv("PATH", "/nonexistent", 1);
    EXPECT_EQ(ShellEx(dir.file("doc.txt")), 31);
    // What the user asked to see and nothing opens is said on screen, not only in the log.
    const size_t shown = dialogs.messages.size();
    EXPECT_FALSE(OpenForUser(dir.file("doc.txt")));
    ASSERT_EQ(dialogs.messages.size(), shown + 1);
    EXPECT_EQ(dialogs.messages.back().text,
              "Impossible d'ouvrir '" + dir.file("doc.txt") +
                  "' :\r\n\r\nIl n'y a aucune application associée à ce type de fichier");
    setenv("PATH", (bin + ":" + path).c_str(), 1);
    EXPECT_TRUE(OpenForUser(dir.file("doc.txt")));
    EXPECT_EQ(dialogs.messages.size(), shown + 1);
    setenv("PATH", path.c_str(), 1);
    unsetenv("OPENED");
    unsetenv("OPENER_EXIT");
    std::string log = env.LogText();
    EXPECT_NE(log.find("Err: 53 |Chemin d'accès non trouvé"), std::string::npos);
    EXPECT_NE(log.find("Err: 76 |Chemin d'accès non trouvé"), std::string::npos);
    EXPECT_EQ(log.find("Dépassement de mémoire"), std::string::npos);
    EXPECT_EQ(SplitParameters(" a  \"b c\" \"\" d"),
              (std::vector<std::string>{"a", "b c", "", "d"}));
}

TEST_F(FileOps, ExternalProgramIsWaitedFor) {
    long pid = ExecuterProgrammeExterne("sh", "-c");  // "sh -c" with no script fails: exit 2
    ASSERT_GT(pid, 0);
    EXPECT_EQ(AttenteFinProcessusExterne(pid), 2);
    EXPECT_EQ(ExecuterProgrammeExterne("/no/such/program"), 0);
}

TEST(ErrorHook, RepeatsAreSuppressedAndAutomationErrorRebootsOnlyWhenAllowed) {
    TempDir dir;
    ScopedLogAndRegistry env(dir);
    testing::ScopedFakeClock clock(MakeLocalTime(2026, 11, 22, 9, 0, 0));
    int reboots = 0;
    SetRebootAction([&] { ++reboots; });
    GestionDesErreurs(53, "File not found", "InitApplication:Lib_Initialisation");
    GestionDesErreurs(53, "File not found", "InitApplication:Lib_Initialisation");
    clock->Advance(std::chrono::seconds(11));
    GestionDesErreurs(53, "File not found", "InitApplication:Lib_Initialisation");
    std::string log = env.LogText();
    size_t first = log.find("Sub: InitApplication:Lib_Initialisation");
    ASSERT_NE(first, std::string::npos);
    size_t second = log.find("Sub: InitApplication:Lib_Initialisation", first + 1);
    ASSERT_NE(second, std::string::npos);
    EXPECT_EQ(log.find("Sub: InitApplication:Lib_Initialisation", second + 1), std::string::npos);

    EXPECT_TRUE(RebootForbidden()) << "forbidden unless the site asked for it";
    GestionDesErreurs(kAutomationError, "Automation error", "TimerMain_Timer:Frm_Main");
    EXPECT_EQ(reboots, 0);
    RebootForbidden() = false;
    // The error as its 32 bits, whichever way the caller's type holds them.
    GestionDesErreurs(-2147417848L, "Automation error", "Other:Frm_Main");
    EXPECT_EQ(reboots, 1);
    GestionDesErreurs(2147549448L, "Automation error", "Third:Frm_Main");
    EXPECT_EQ(reboots, 2);
    GestionDesErreurs(0x180010108L, "Not a 32-bit error number", "Fourth:Frm_Main");
    GestionDesErreurs(0x80010109L, "Another error", "Fifth:Frm_Main");
    EXPECT_EQ(reboots, 2);
    RebootForbidden() = true;
    EXPECT_NE(env.LogText().find("Reboot the Computer because of Automation Error, False"),
              std::string::npos);
    SetRebootAction(nullptr);
    EXPECT_EQ(GestErr_Fra(OwnError::FolderNotFound, "X"), "Dossier 'X' non trouvé");
}

}  // namespace
}  // namespace toverin
