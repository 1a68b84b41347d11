// toverinctl: the program's operations from the command line, for administrators' scripts,
// service managers, the tests and the benchmarks.
#pragma once

#include <string>
#include <vector>

namespace toverin::ctl {

using Args = std::vector<std::string>;

// Runs one command line (without the program name) and returns the process exit status.
int RunCtl(const Args& args);

// Exit statuses shared by the commands.
inline constexpr int kExitFailed = 1;         // the operation or the check failed
inline constexpr int kExitUsage = 2;          // bad command line (unknown option, bad key number)
inline constexpr int kExitMissingFile = 3;    // a file to read does not exist
inline constexpr int kExitNotRecordFile = 4;  // the file is not a record file (status 30)
inline constexpr int kExitRefused = 5;        // import-xml ran to its end, but records were refused

// The commands; each gets the words after its own name.
int RunFtpCommand(const Args& args);
int RunBackupCommand(const Args& args);
int RunRestoreCommand(const Args& args);
int RunCreateCommand(const Args& args);
int RunDemoCommand(const Args& args);
int RunFileCommand(const Args& args);
int RunImportXmlCommand(const Args& args);
int RunEquivalenceCommand(const Args& args);
int RunDuplicateCommand(const Args& args);

// Small helpers shared by the commands.
// Value of "--name VALUE" or "--name=VALUE"; removes it from `args`. False when absent.
bool TakeOption(Args& args, const std::string& name, std::string& value);
// Presence of the flag "--name"; removes it from `args`.
bool TakeFlag(Args& args, const std::string& name);
// Prints "toverinctl: " + message to standard error and returns `status`.
int Fail(const std::string& message, int status = 2);

}  // namespace toverin::ctl
