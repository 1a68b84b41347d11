// File and folder operations. Each logs its failures in one fixed shape and returns false instead
// of throwing, so that a batch of copies goes on after one failure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace toverin {

// The shell result codes the failure lines show.
inline constexpr int kResultInUse = 32;
inline constexpr int kResultSourceMissing = 1026;
inline constexpr int kResultCancelled = 1223;
inline constexpr int kResultAccessDenied = 5;
inline constexpr int kResultAlreadyExists = 183;
inline constexpr int kResultPathNotFound = 3;  // the target's folder could not be made

// Shell-execute results of the failures that have no row of their own.
inline constexpr int kShellNoAssociation = 31;
inline constexpr int kShellOtherFailure = 1;

// Shell operation flags the callers pass along (kept for the callers' sake; the copy never asks).
inline constexpr unsigned kFofSilent = 0x4, kFofNoConfirmation = 0x10, kFofNoErrorUi = 0x400;

// Copy and move make the target's folder when it is not there yet, as the shell's do.
bool File_Copy(const std::string& source, const std::string& target, bool quiet = false,
               unsigned flags = kFofSilent | kFofNoConfirmation | kFofNoErrorUi);
bool File_Move(const std::string& source, const std::string& target);
bool File_Rename(const std::string& source, const std::string& target);
bool File_Delete(const std::string& file);

// Free bytes on the disk holding `path` (its nearest existing folder).
uint64_t CheckFreeSpace(const std::string& path);
// "1 234,56 Mo": the size in the largest unit that keeps it at 1 or more (Ko at least).
std::string LibSize(uint64_t bytes);
// Creates the folder when missing; tells the user when it cannot be created.
bool VerificationEtCreationRepertoire(const std::string& folder);

// Whether `folder` takes writes: writes a small file there, makes it reach the disk and removes
// it. 0 when it does, else the system's error number (no space, read-only, permission refused,
// missing folder ...).
int FolderWriteError(const std::string& folder);
// An error that every write into the same folder would meet as well (no space left, a read-only
// file system, a permission refused, a folder or disk that went away), as opposed to a fault of
// one file.
bool IsFolderWriteFault(int error);
// The system's reason for an error number: in English for the log, in French for the user.
std::string SystemReason(int error);
std::string SystemReasonFr(int error);

// An advisory lock on `path` (created when missing), held for the object's lifetime and
// released by the system when the process ends, however it ends. Not held when another process
// (or another FileLock of this one) holds it.
class FileLock {
  public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool held() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

// The whole content of a file ("" when it cannot be read).
std::string ReadWholeFile(const std::string& path);

// Another process holds a lock on the file (the platform's way of telling a file in use).
bool IsFileInUse(const std::string& path);

// Opens a document with the desktop's opener, or starts a program (an executable file, or any
// file given parameters) with its parameters; returns the shell result (33 or more is success)
// and reports failures with their French texts.
int ShellEx(const std::string& file, const std::string& parameters = "");
// Opens a document or an address that the user asked to see; when nothing opens it, the user is
// told why (the log alone would leave a click that does nothing). True when it was opened.
bool OpenForUser(const std::string& file);
// A parameter line cut into arguments as Windows cuts a command line (blanks, double quotes).
std::vector<std::string> SplitParameters(const std::string& parameters);
// The text and error number a shell result is reported with.
struct ShellError {
    long number;
    std::string text;
};
ShellError ShellExError(int result);

// Starts a program with its parameters (cut as SplitParameters does) and returns its process id
// (0 on failure).
long ExecuterProgrammeExterne(const std::string& program, const std::string& parameters = "");
// Waits, running the event pump, until the process has ended; returns its exit code (-1 if
// unknown).
int AttenteFinProcessusExterne(long processId);

}  // namespace toverin
