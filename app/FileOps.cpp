#include "app/FileOps.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/sendfile.h>
#endif

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <vector>

#include "app/Clock.h"
#include "app/Dialogs.h"
#include "app/Errors.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "app/Paths.h"
#include "app/Text.h"

extern char** environ;

namespace toverin {
namespace {

namespace fs = std::filesystem;

// The shell's result code for a failure; a missing path is the source's unless `atTarget`.
int ResultOf(const std::error_code& ec, bool atTarget = false) {
    switch (ec.value()) {
        case ENOENT:
        case ENOTDIR:
            return atTarget ? kResultPathNotFound : kResultSourceMissing;
        case EACCES:
        case EPERM:
            return kResultAccessDenied;
        case EBUSY:
        case ETXTBSY:
            return kResultInUse;
        case EEXIST:
            return kResultAlreadyExists;
        case ENOSPC:
            return 112;
        default:
            return ec.value();
    }
}

bool IsGpx(const std::string& name) {
    return FindIgnoreCase(name, ".gpx") != std::string::npos;
}

// Checks common to the family; false (with the warning logged) when the operation cannot start.
bool Precheck(const char* proc, const std::string& source) {
    if (Trim(source).empty()) {
        TraceLog(std::string("Warning: ") + proc + ": File name null");
        return false;
    }
    if (!FileExists(source)) {
        if (!IsGpx(source))
            TraceLog(std::string("Warning: ") + proc + ": File not found: " + source);
        return false;
    }
    return true;
}

// Closes a descriptor when it goes out of scope.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    // Closes now, for the error a delayed write may report there.
    int Close() {
        int r = ::close(fd_);
        fd_ = -1;
        return r;
    }

  private:
    int fd_;
};

// Copies the bytes of `source` into a new or emptied `target`, with the source's permissions.
// The target's whole size is reserved first: the file system places it in one piece, and
// renaming it over an older copy then need not write it out on the spot (ext4 does that for a
// file whose blocks are not yet placed, which cost a backup's second-root copy twice its
// time). Returns 0 or a shell result code.
int CopyContents(const std::string& source, const std::string& target) {
    auto failed = [](bool atTarget) {
        return ResultOf(std::error_code(errno, std::generic_category()), atTarget);
    };
    Descriptor in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (in.get() < 0 || ::fstat(in.get(), &st) != 0) return failed(false);
    Descriptor out(
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 07777));
    if (out.get() < 0) return failed(true);
#if defined(__linux__)
    // fallocate, not posix_fallocate: where the file system cannot reserve (some network
    // shares), the latter writes a byte into every block instead, which a copy can do without.
    if (st.st_size > 0 && ::fallocate(out.get(), 0, 0, st.st_size) != 0 && errno == ENOSPC)
        return failed(true);  // other refusals: the copy goes on without
#else
    std::vector<char> buffer(1 << 20);
#endif
    for (off_t done = 0; done < st.st_size;) {
#if defined(__linux__)
        ssize_t n =
            ::sendfile(out.get(), in.get(), nullptr, static_cast<size_t>(st.st_size - done));
#else
        ssize_t n = ::read(in.get(), buffer.data(), buffer.size());
        for (ssize_t written = 0, w = 0; n > 0 && written < n; written += w) {
            w = ::write(out.get(), buffer.data() + written, static_cast<size_t>(n - written));
            if (w < 0) return failed(true);
        }
#endif
        if (n < 0) {
            if (errno == EINTR) continue;
            return failed(true);
        }
        if (n == 0) break;  // the source shrank meanwhile: what it holds now is copied
        done += n;
    }
    return out.Close() == 0 ? 0 : failed(true);
}

// The shell's copy and move make the target's folder when it is not there yet.
int MakeTargetFolder(const std::string& target) {
    fs::path folder = fs::path(target).parent_path();
    std::error_code ec;
    if (folder.empty() || fs::is_directory(folder, ec)) return 0;
    fs::create_directories(folder, ec);
    return ec ? ResultOf(ec, true) : 0;
}

// Copies through a temporary file in the target's folder so that a target is never half written.
int CopyFile(const std::string& source, const std::string& target) {
    if (IsFileInUse(source) || IsFileInUse(target)) return kResultInUse;
    if (int r = MakeTargetFolder(target)) return r;
    std::error_code ec;
    fs::path temp = target + ".part";
    if (int r = CopyContents(source, temp.string())) {
        fs::remove(temp, ec);
        return r;
    }
    fs::rename(temp, target, ec);
    if (ec) {
        int r = ResultOf(ec, true);
        fs::remove(temp, ec);
        return r;
    }
    return 0;
}

std::string GroupThousands(uint64_t whole) {
    std::string digits = std::to_string(whole), out;
    int n = 0;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it, ++n) {
        if (n && n % 3 == 0) out.insert(out.begin(), ' ');
        out.insert(out.begin(), *it);
    }
    return out;
}

bool IsExecutableFile(const std::string& path) {
    std::error_code ec;
    return fs::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

// Starts `program` (searched in PATH) with `args`; its process id, or 0 with `error` set.
long SpawnProgram(const std::string& program, std::vector<std::string> args, int& error) {
    std::vector<std::string> words{program};
    words.insert(words.end(), std::make_move_iterator(args.begin()),
                 std::make_move_iterator(args.end()));
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    error = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? static_cast<long>(pid) : 0;
}

// The shell result of a program that could not be started.
int SpawnResult(int error) {
    switch (error) {
        case ENOENT:
            return 2;
        case ENOTDIR:
            return 3;
        case EACCES:
        case EPERM:
            return 5;
        case ENOEXEC:
            return 11;
        case ENOMEM:
            return 8;
        default:
            return kShellOtherFailure;
    }
}

}  // namespace

std::string ReadWholeFile(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    std::string out;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    std::fclose(f);
    return out;
}

int FolderWriteError(const std::string& folder) {
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) return ec && ec.value() != ENOENT ? ec.value() : ENOENT;
    std::string probe =
        (fs::path(folder) / (".toverin-write-test-" + std::to_string(::getpid()))).string();
    Descriptor fd(::open(probe.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (fd.get() < 0) return errno;
    // A few blocks, so that a disk with hardly any room left says so now.
    std::vector<char> block(16384, '\0');
    int error = 0;
    if (::write(fd.get(), block.data(), block.size()) != static_cast<ssize_t>(block.size()))
        error = errno != 0 ? errno : ENOSPC;
    if (error == 0 && ::fsync(fd.get()) != 0) error = errno;
    if (fd.Close() != 0 && error == 0) error = errno;
    ::unlink(probe.c_str());
    return error;
}

bool IsFolderWriteFault(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
        case EROFS:
        case EACCES:
        case EPERM:
        case ENOENT:
        case ENOTDIR:
        case EIO:
        case ENODEV:
        case ENXIO:
        case ESTALE:
            return true;
        default:
            return false;
    }
}

std::string SystemReason(int error) {
    return std::generic_category().message(error);
}

std::string SystemReasonFr(int error) {
    switch (error) {
        case ENOSPC:
            return "plus de place sur le disque";
        case EDQUOT:
            return "quota d'espace disque dépassé";
        case EROFS:
            return "système de fichiers en lecture seule";
        case EACCES:
        case EPERM:
            return "permission refusée";
        case ENOENT:
        case ENOTDIR:
            return "dossier introuvable";
        case EIO:
            return "erreur d'entrée-sortie du disque";
        case ENODEV:
        case ENXIO:
        case ESTALE:
            return "disque ou partage réseau inaccessible";
        default:
            return "erreur système " + std::to_string(error) + " (" + SystemReason(error) + ")";
    }
}

FileLock::FileLock(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    // flock, not fcntl: it belongs to this descriptor, so closing another descriptor of the same
    // file elsewhere in the process does not release it.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return;
    }
    fd_ = fd;
}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);
}

bool IsFileInUse(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    bool inUse = ::fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    ::close(fd);
    return inUse;
}

bool File_Copy(const std::string& source, const std::string& target, bool quiet, unsigned) {
    return Guarded("File_Copy:Lib_Public", false, [&] {
        if (!Precheck("File_Copy", source)) return false;
        int result = CopyFile(source, target);
        if (result == 0) {
            if (!quiet)
                TraceLog("Free space for " + target + ": " + LibSize(CheckFreeSpace(target)));
            return true;
        }
        std::string reason = result == kResultInUse           ? "File in use. "
                             : result == kResultSourceMissing ? "Source file missing. "
                             : result == kResultCancelled     ? "Cancelled. "
                                                              : "";
        TraceLog("File_Copy: Err: " + std::to_string(result) + " |" + reason + "Source: " + source +
                 "  Target: " + target);
        return false;
    });
}

bool File_Move(const std::string& source, const std::string& target) {
    return Guarded("File_Move:Lib_Public", false, [&] {
        if (!Precheck("File_Move", source)) return false;
        int result = 0;
        if (IsFileInUse(source) || IsFileInUse(target)) {
            result = kResultInUse;
        } else if ((result = MakeTargetFolder(target)) == 0) {
            std::error_code ec;
            fs::rename(source, target, ec);
            if (ec.value() == EXDEV) {  // another disk: copy, then delete the source
                result = CopyFile(source, target);
                if (result == 0) fs::remove(source, ec);
            } else if (ec) {
                result = ResultOf(ec, FileExists(source));
            }
        }
        if (result == 0) return true;
        std::string reason = result == kResultInUse           ? "File in use: "
                             : result == kResultSourceMissing ? "Source file missing: "
                             : result == kResultCancelled     ? "Cancelled. File: "
                                                              : "File: ";
        TraceLog("File_Move: Err: " + std::to_string(result) + " |" + reason + source +
                 "  Target: " + target);
        return false;
    });
}

bool File_Rename(const std::string& source, const std::string& target) {
    return Guarded("File_Rename:Lib_Public", false, [&] {
        if (!Precheck("File_Rename", source)) return false;
        int result = 0;
        std::error_code ec;
        if (fs::exists(target, ec) && !fs::equivalent(source, target, ec)) {
            result = kResultAlreadyExists;
        } else if (IsFileInUse(source)) {
            result = kResultInUse;
        } else {
            fs::rename(source, target, ec);
            if (ec) result = ResultOf(ec, FileExists(source));
        }
        if (result == 0) return true;
        std::string reason = result == kResultInUse           ? "File in use: Source: "
                             : result == kResultSourceMissing ? "Source file missing: "
                             : result == kResultCancelled     ? "Cancelled: Source: "
                             : result == kResultAlreadyExists
                                 ? "Target file already exists: Source: "
                                 : "Source: ";
        TraceLog("File_Rename: Err: " + std::to_string(result) + " |" + reason + source +
                 "  Target: " + target);
        return false;
    });
}

bool File_Delete(const std::string& file) {
    return Guarded("File_Delete:Lib_Public", false, [&] {
        if (!Precheck("File_Delete", file)) return false;
        int result = 0;
        if (IsFileInUse(file)) {
            result = kResultInUse;
        } else {
            std::error_code ec;
            fs::remove(file, ec);
            if (ec) result = ResultOf(ec);
        }
        if (result == 0) return true;
        if (result == kResultInUse || result == kResultSourceMissing ||
            result == kResultCancelled) {
            std::string reason = result == kResultInUse           ? "File in use: "
                                 : result == kResultSourceMissing ? "Source file missing: "
                                                                  : "Cancelled: File: ";
            TraceLog("File_Delete: Err: " + std::to_string(result) + " |" + reason + file);
        } else {
            TraceLog("File_Delete: pb: " + std::to_string(result) + " |" + file);
        }
        return false;
    });
}

uint64_t CheckFreeSpace(const std::string& path) {
    fs::path p = path.empty() ? fs::path(".") : fs::path(path);
    std::error_code ec;
    while (!p.empty() && !fs::exists(p, ec)) {
        if (p == p.parent_path()) break;
        p = p.parent_path();
    }
    struct statvfs st {};
    if (::statvfs(p.empty() ? "." : p.c_str(), &st) != 0) return 0;
    return static_cast<uint64_t>(st.f_bavail) * st.f_frsize;
}

std::string LibSize(uint64_t bytes) {
    static const char* units[] = {" Ko", " Mo", " Go", " To"};
    double value = static_cast<double>(bytes) / 1024.0;
    int unit = 0;
    while (value >= 1024.0 && unit < 3) {
        value /= 1024.0;
        ++unit;
    }
    auto hundredths = static_cast<uint64_t>(std::llround(value * 100.0));
    return GroupThousands(hundredths / 100) + "," +
           ZeroPad(static_cast<long long>(hundredths % 100), 2) + units[unit];
}

bool VerificationEtCreationRepertoire(const std::string& folder) {
    return Guarded("VerificationEtCreationRepertoire:Lib_Public", false, [&] {
        if (Trim(folder).empty()) return false;
        std::error_code ec;
        if (fs::is_directory(folder, ec)) return true;
        fs::create_directories(folder, ec);
        if (fs::is_directory(folder, ec)) return true;
        AffMsg(
            "Le dossier '" + folder + "' n'a pu être créé\r\n\r\n" +
                "Veuillez vérifier dans Windows que ce progamme a bien les droits de création de "
                "dossier.",
            MsgButtons::Ok, MsgIcon::Critical);
        return false;
    });
}

ShellError ShellExError(int result) {
    const long base = -2147221504L + 1048;  // the user-defined error base plus 1048
    switch (result) {
        case 0:
        case 8:
            return {7, "Dépassement de mémoire"};
        case 2:
            return {53, "Chemin d'accès non trouvé"};  // reported as a path error on purpose
        case 3:
            return {76, "Chemin d'accès non trouvé"};
        case 5:
            return {75, "Erreur d'accès au Dossier/Fichier"};
        case 11:
            return {base + 11, "Cet exécutable est invalide ou corrompu"};
        case 26:
            return {75, "Violation de partage"};
        case 27:
        case 31:
            return {base + result, "Il n'y a aucune application associée à ce type de fichier"};
        case 28:
            return {286,
                    "Le fichier ne peut être ouvert car le délai d'attente est dépassé. Réessayez "
                    "plus tard"};
        case 29:
            return {
                285,
                "Le fichier ne peut être ouvert car la transaction DDE a échoué. Réessayez plus "
                "tard"};
        case 30:
            return {285,
                    "Le fichier ne peut être ouvert car l'application est occupée. Réessayez plus "
                    "tard"};
        case 32:
            return {48, "Le fichier dll ne peut être trouvé"};
        default:
            return {base + result,
                    "Erreur lors de l'ouverture ou de l'impression du fichier sélectionné"};
    }
}

int ShellEx(const std::string& file, const std::string& parameters) {
    int result;
    const bool isUrl = file.find("://") != std::string::npos || StartsWith(file, "mailto:");
    if (!isUrl && !PathExists(file)) {
        // A file missing in a folder that is there, or a folder that is missing.
        const std::string folder = FolderOf(file);
        result = folder.empty() || FolderExists(folder) ? 2 : 3;
    } else if (!isUrl && (!parameters.empty() || IsExecutableFile(file))) {
        // A program: started with its parameters, each its own argument.
        int error = 0;
        result = SpawnProgram(file, SplitParameters(parameters), error) ? 42 : SpawnResult(error);
    } else {
        int error = 0;
        long pid = SpawnProgram("xdg-open", {file}, error);
        if (pid == 0) {
            // No opener at all: nothing can open the document.
            result = error == ENOENT ? kShellNoAssociation : SpawnResult(error);
        } else {
            // The opener answers at once with its own codes: 0 opened, 1 bad call, 2 file not
            // found, 3 no program that opens it, 4 the program failed, 5 no right to read.
            switch (AttenteFinProcessusExterne(pid)) {
                case 0:
                    result = 42;
                    break;
                case 2:
                    result = 2;
                    break;
                case 3:
                    result = kShellNoAssociation;
                    break;
                case 5:
                    result = 5;
                    break;
                default:
                    result = kShellOtherFailure;
                    break;
            }
        }
    }
    if (result < 33) {
        ShellError e = ShellExError(result);
        GestionDesErreurs(e.number, e.text, file, ".ShellEx");
    }
    return result;
}

bool OpenForUser(const std::string& file) {
    const int result = ShellEx(file);
    if (result >= 33) return true;
    AffMsg("Impossible d'ouvrir '" + file + "' :\r\n\r\n" + ShellExError(result).text,
           MsgButtons::Ok, MsgIcon::Exclamation);
    return false;
}

std::vector<std::string> SplitParameters(const std::string& parameters) {
    // As a Windows command line is cut: blanks separate, double quotes group, and "" inside
    // quotes is one quote.
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, any = false;
    for (size_t i = 0; i < parameters.size(); ++i) {
        char c = parameters[i];
        if (c == '"') {
            if (quoted && i + 1 < parameters.size() && parameters[i + 1] == '"') {
                word.push_back('"');
                ++i;
            } else {
                quoted = !quoted;
            }
            any = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (any) words.push_back(word);
            word.clear();
            any = false;
        } else {
            word.push_back(c);
            any = true;
        }
    }
    if (any) words.push_back(word);
    return words;
}

long ExecuterProgrammeExterne(const std::string& program, const std::string& parameters) {
    int error = 0;
    return SpawnProgram(program, SplitParameters(parameters), error);
}

int AttenteFinProcessusExterne(long processId) {
    if (processId <= 0) return -1;
    while (true) {
        int status = 0;
        pid_t r = ::waitpid(static_cast<pid_t>(processId), &status, WNOHANG);
        if (r == static_cast<pid_t>(processId)) {
            if (WIFEXITED(status)) return WEXITSTATUS(status);
            return -1;
        }
        if (r < 0) return -1;
        DoEvents();
        // A real process takes real time: this wait is not the program's clock.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace toverin
