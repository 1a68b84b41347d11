// toverinctl file: one record file from the command line, through the same engine the program
// uses: its structure (stat), its records cut into the viewer's fields (dump), an empty file of
// the catalogue (create), a record-by-record copy (copy) and an integrity check (check).
#include <cctype>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>

#include "app/FileOps.h"
#include "app/Paths.h"
#include "app/Site.h"
#include "app/Text.h"
#include "ctl/Ctl.h"
#include "exports/Export.h"
#include "operations/DataExport.h"
#include "store/Catalogue.h"
#include "store/RecordCursor.h"
#include "store/engine/EngineFile.h"

namespace toverin::ctl {

namespace {

namespace fs = std::filesystem;
using engine::EngineFile;

const char* kFileUsage =
    "usage: toverinctl file stat PATH\n"
    "       toverinctl file dump PATH [--key N] [--from V] [--to V] "
    "[--format csv|xml|xls|xlsx] [--output FILE] [--catalogue N]\n"
    "       toverinctl file create PATH [--catalogue N]\n"
    "       toverinctl file copy SRC DST\n"
    "       toverinctl file check PATH";

int Usage(const std::string& message) {
    return Fail("file: " + message + "\n" + kFileUsage, kExitUsage);
}

bool ParseSmallNumber(const std::string& text, int& value) {
    if (text.empty() || text.size() > 3) return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    value = std::stoi(text);
    return true;
}

// The catalogue number a base's file name carries: "FRAD" and three digits for a common file
// ("FRAD003.bt6"), "FRAD", the station letter and two digits for a station's ("FRADC22.btr").
// -1 for any other name.
int CatalogueNumberOfName(const std::string& path) {
    std::string name = UpperAscii(FileNameOf(path));
    size_t dot = name.rfind('.');
    std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
    if (stem.size() != 7 || stem.compare(0, 4, "FRAD") != 0) return -1;
    auto digit = [&](size_t i) { return std::isdigit(static_cast<unsigned char>(stem[i])) != 0; };
    if (!digit(5) || !digit(6)) return -1;
    int number = -1;
    if (digit(4)) {
        number = std::stoi(stem.substr(4, 3));
    } else if (stem[4] >= 'A' && stem[4] <= 'J') {
        number = std::stoi(stem.substr(5, 2));
    }
    return CatalogueEntryFor(number).Exists() ? number : -1;
}

// Opens `path` read-only; 0, or the exit status after the message.
int OpenExisting(EngineFile& file, const std::string& path, int8_t mode = btr::kOpenReadOnly) {
    if (!FileExists(path)) return Fail("file: no such file: " + path, kExitMissingFile);
    int16_t status = file.Open(path, mode);
    if (status == btr::kSuccess) return 0;
    if (status == btr::kFileNotFound) return Fail("file: no such file: " + path, kExitMissingFile);
    if (status == btr::kNotARecordFile)
        return Fail("file: not a record file (status 30): " + path, kExitNotRecordFile);
    return Fail("file: status " + std::to_string(status) + " opening " + path, kExitFailed);
}

std::string FlagNames(uint16_t flags) {
    static const std::pair<uint16_t, const char*> names[] = {
        {btr::kKeyDuplicates, "duplicates"},
        {btr::kKeyModifiable, "modifiable"},
        {btr::kKeyBinary, "binary"},
        {btr::kKeyNullKey, "null"},
        {btr::kKeySegmented, "segmented"},
        {btr::kKeyAlternate, "alternate"},
        {btr::kKeyDescending, "descending"},
        {btr::kKeySupplemental, "supplemental"},
        {btr::kKeyExtendedType, "extended-type"},
        {btr::kKeyManual, "manual"},
        {btr::kKeyCaseInsensitive, "case-insensitive"},
    };
    std::string text;
    for (const auto& [bit, name] : names) {
        if ((flags & bit) == 0) continue;
        if (!text.empty()) text += ",";
        text += name;
    }
    return text.empty() ? "unique" : text;
}

int StatCommand(const Args& args) {
    if (args.size() != 1) return Usage("stat takes one file");
    EngineFile file;
    if (int status = OpenExisting(file, args[0])) return status;
    btr::PbTBtrFileBuf fileBuf;
    int16_t status = file.Stat(fileBuf);
    if (status != btr::kSuccess)
        return Fail(
            "file: status " + std::to_string(status) + " reading the structure of " + args[0],
            kExitFailed);
    std::cout << "F record-length " << fileBuf.RecLen << " page-size " << fileBuf.PageSize
              << " keys " << fileBuf.IndxCnt << " records " << fileBuf.RecordCount << "\n";
    auto keys = KeysOfStructure(fileBuf);
    for (size_t k = 0; k < keys.size(); ++k) {
        for (size_t s = 0; s < keys[k].size(); ++s) {
            const btr::KeySpec& segment = keys[k][s];
            std::cout << "K " << k << "." << s << " position " << segment.position << " length "
                      << segment.length << " flags " << segment.flags << " "
                      << FlagNames(segment.flags) << "\n";
        }
    }
    std::cout << "Records: " << fileBuf.RecordCount << "\n";
    return 0;
}

// ---- dump

int DumpCommand(Args args) {
    CursorSpec query;
    ExportFormat format = ExportFormat::Csv;
    std::string output, text;
    if (TakeOption(args, "--key", text) && !ParseSmallNumber(text, query.keyNumber))
        return Usage("--key takes a key number, not '" + text + "'");
    TakeOption(args, "--from", query.from);
    TakeOption(args, "--to", query.to);
    if (TakeOption(args, "--format", text)) {
        std::optional<ExportFormat> named = ExportFormatNamed(text);
        if (!named) return Usage("unknown format '" + text + "'");
        format = *named;
    }
    TakeOption(args, "--output", output);
    if (output.empty() && (format == ExportFormat::Xls || format == ExportFormat::Xlsx))
        return Usage("a workbook is written to a file: give it with --output");
    if (TakeOption(args, "--catalogue", text) && (!ParseSmallNumber(text, query.fileNumber) ||
                                                  !CatalogueEntryFor(query.fileNumber).Exists()))
        return Usage("no file " + text + " in the catalogue");
    for (const auto& a : args)
        if (a.rfind("--", 0) == 0) return Usage("unknown option '" + a + "'");
    if (args.size() != 1) return Usage("dump takes one file");
    query.path = args[0];
    if (query.fileNumber < 0) query.fileNumber = CatalogueNumberOfName(query.path);

    RecordCursor cursor("toverinctl");
    switch (cursor.Open(query)) {
        case CursorOpen::Ok:
            break;
        case CursorOpen::Missing:
            return Fail("file: no such file: " + query.path, kExitMissingFile);
        case CursorOpen::NotRecordFile:
            return Fail("file: not a record file (status 30): " + query.path, kExitNotRecordFile);
        case CursorOpen::BadKey:
            return Usage("key " + std::to_string(query.keyNumber) +
                         " does not exist: the file has " + std::to_string(cursor.KeyCount()) +
                         " keys");
        case CursorOpen::Failed:
            return Fail(
                "file: status " + std::to_string(cursor.Status()) + " opening " + query.path,
                kExitFailed);
    }

    ExportOptions exportOptions;
    exportOptions.logFolder = Site().appSettingsFolder;
    std::unique_ptr<ExportWriter> writer = output.empty()
                                               ? OpenExportStream(format, std::cout)
                                               : OpenExport(format, output, exportOptions);
    ExportOutcome outcome = ExportRecords(cursor, *writer);
    if (outcome == ExportOutcome::ReadFailed)
        return Fail("file: status " + std::to_string(cursor.Status()) + " reading " + query.path +
                        " after " + std::to_string(writer->Rows()) + " records",
                    kExitFailed);
    if (outcome != ExportOutcome::Done)
        return Fail("file: export to " + (output.empty() ? "the output" : output) +
                        " failed: " + writer->Message(),
                    kExitFailed);
    if (!output.empty())
        std::cout << "Exported " << writer->Rows() << " records to " << output << "\n";
    return 0;
}

// ---- create, copy

// A target must be a new file, or nothing; a device or a folder is never replaced. 0, or the exit
// status after the message.
int CheckNewTarget(const std::string& target) {
    if (FileExists(target)) return Fail("file: " + target + " exists already", kExitFailed);
    if (PathExists(target))
        return Fail("file: " + target + " is not a regular file; nothing was written", kExitFailed);
    return 0;
}

// Why a file could not be written in its folder, in the system's words when the folder is the
// cause (read-only file system, permission denied, no space left).
std::string WriteFailure(int16_t status, const std::string& path) {
    const int error = FolderWriteError(FolderOf(path));
    if (IsFolderWriteFault(error))
        return FolderOf(path) + ": " + SystemReason(error) + " (status " + std::to_string(status) +
               ")";
    return "status " + std::to_string(status);
}

int CreateCommand(Args args) {
    std::string text;
    int catalogue = -1;
    if (TakeOption(args, "--catalogue", text) && !ParseSmallNumber(text, catalogue))
        return Usage("--catalogue takes a file number, not '" + text + "'");
    if (args.size() != 1) return Usage("create takes one file");
    const std::string& path = args[0];
    if (catalogue < 0) catalogue = CatalogueNumberOfName(path);
    if (!CatalogueEntryFor(catalogue).Exists())
        return Usage("give the catalogue number of " + path + " with --catalogue");
    if (int status = CheckNewTarget(path)) return status;
    int16_t status = EngineFile::Create(path, CreationRecord(catalogue));
    if (status != btr::kSuccess)
        return Fail("file: " + WriteFailure(status, path) + " creating " + path, kExitFailed);
    std::cout << "Created " << path << ": file " << catalogue << " \"" << FileDescription(catalogue)
              << "\"\n";
    return 0;
}

int CopyCommand(const Args& args) {
    if (args.size() != 2) return Usage("copy takes a source and a target");
    const std::string& source = args[0];
    const std::string& target = args[1];
    EngineFile in;
    if (int status = OpenExisting(in, source)) return status;
    btr::PbTBtrFileBuf fileBuf;
    if (in.Stat(fileBuf) != btr::kSuccess)
        return Fail("file: cannot read the structure of " + source, kExitFailed);
    if (int status = CheckNewTarget(target)) return status;
    fileBuf.RecordCount = 0;
    int16_t status = EngineFile::Create(target, fileBuf);
    if (status != btr::kSuccess)
        return Fail("file: " + WriteFailure(status, target) + " creating " + target, kExitFailed);
    EngineFile out;
    status = out.Open(target, btr::kOpenAccelerated);
    long long copied = 0;
    std::string record(fileBuf.RecLen, '\0');
    std::string key(255, '\0');
    std::string outKey(255, '\0');
    int16_t read = btr::kEndOfFile;
    if (status == btr::kSuccess) read = in.Call(btr::kGetFirst, record, key, 0);
    while (status == btr::kSuccess && read == btr::kSuccess) {
        status = out.Call(btr::kInsert, record, outKey, 0);
        if (status != btr::kSuccess) break;
        ++copied;
        record.assign(fileBuf.RecLen, '\0');
        read = in.Call(btr::kGetNext, record, key, 0);
    }
    int16_t closed = out.Close();
    if (status == btr::kSuccess && read != btr::kEndOfFile) status = read;
    if (status == btr::kSuccess) status = closed;
    if (status != btr::kSuccess) {
        // A half-made copy would pass for a good one.
        std::error_code ec;
        fs::remove(target, ec);
        return Fail("file: status " + std::to_string(status) + " copying " + source + " after " +
                        std::to_string(copied) + " records; " + target + " removed",
                    kExitFailed);
    }
    std::cout << "Copied " << copied << " records from " << source << " to " << target << "\n";
    return 0;
}

// ---- check

// Counts the records of key `k` from one end to the other; the status that ended the walk is
// kept in `status` (9 when the walk reached the end).
long long Walk(EngineFile& file, uint16_t reclen, int k, bool forward, int16_t& status) {
    std::string record(reclen, '\0');
    std::string key(255, '\0');
    long long count = 0;
    status =
        file.Call(forward ? btr::kGetFirst : btr::kGetLast, record, key, static_cast<int8_t>(k));
    while (status == btr::kSuccess) {
        ++count;
        record.assign(reclen, '\0');
        status = file.Call(forward ? btr::kGetNext : btr::kGetPrevious, record, key,
                           static_cast<int8_t>(k));
    }
    return count;
}

int CheckCommand(const Args& args) {
    if (args.size() != 1) return Usage("check takes one file");
    const std::string& path = args[0];
    EngineFile file;
    if (int status = OpenExisting(file, path)) return status;
    btr::PbTBtrFileBuf fileBuf;
    if (int16_t status = file.Stat(fileBuf); status != btr::kSuccess) {
        // Its records cannot even be counted (a damaged file whose indexes were never built
        // is counted by reading them all): the verdict all the same.
        file.Close();
        std::cout << "Records: cannot be counted (status " << status << ")\n";
        std::cout << "SQLite integrity: " << engine::IntegrityReport(path) << "\n";
        std::cout << path << ": FAILED\n";
        return kExitFailed;
    }
    bool ok = true;
    for (int k = 0; k < fileBuf.IndxCnt; ++k) {
        int16_t forwardStatus = 0, backwardStatus = 0;
        long long forward = Walk(file, fileBuf.RecLen, k, true, forwardStatus);
        long long backward = Walk(file, fileBuf.RecLen, k, false, backwardStatus);
        std::cout << "Key " << k << ": " << forward << " forward, " << backward << " backward";
        if (forwardStatus != btr::kEndOfFile || backwardStatus != btr::kEndOfFile) {
            std::cout << " (stopped by status "
                      << (forwardStatus != btr::kEndOfFile ? forwardStatus : backwardStatus) << ")";
            ok = false;
        }
        if (forward != fileBuf.RecordCount || backward != fileBuf.RecordCount) {
            std::cout << " (the file holds " << fileBuf.RecordCount << ")";
            ok = false;
        }
        std::cout << "\n";
    }
    file.Close();
    std::string integrity = engine::IntegrityReport(path);
    std::cout << "SQLite integrity: " << integrity << "\n";
    ok = ok && integrity == "ok";
    std::cout << path << ": " << (ok ? "OK" : "FAILED") << " (" << fileBuf.RecordCount
              << " records, " << fileBuf.IndxCnt << " keys)\n";
    return ok ? 0 : kExitFailed;
}

}  // namespace

int RunFileCommand(const Args& given) {
    if (given.empty()) return Usage("an action is expected");
    const std::string action = given[0];
    Args args(given.begin() + 1, given.end());
    if (action == "stat") return StatCommand(args);
    if (action == "dump") return DumpCommand(args);
    if (action == "create") return CreateCommand(args);
    if (action == "copy") return CopyCommand(args);
    if (action == "check") return CheckCommand(args);
    return Usage("unknown action '" + action + "'");
}

}  // namespace toverin::ctl
