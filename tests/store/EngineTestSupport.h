// Record files for the engine tests: a small layout that exercises every kind of key, and
// helpers that build its records and call the engine.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "store/engine/Btrieve.h"
#include "store/engine/EngineFile.h"

namespace toverin::testing {

struct SegmentDef {
    uint16_t position;
    uint16_t length;
    uint16_t flags;
};

inline btr::PbTBtrFileBuf MakeFileBuf(uint16_t recordLength, uint16_t keyCount,
                                      std::initializer_list<SegmentDef> segments) {
    btr::PbTBtrFileBuf fileBuf{};
    fileBuf.RecLen = recordLength;
    fileBuf.PageSize = 4096;
    fileBuf.IndxCnt = keyCount;
    int i = 0;
    for (const SegmentDef& s : segments) {
        fileBuf.Keys[i].position = s.position;
        fileBuf.Keys[i].length = s.length;
        fileBuf.Keys[i].flags = s.flags;
        ++i;
    }
    return fileBuf;
}

// Songs: 64-byte records.
//   key 0: number, bytes 1-6, unique, not modifiable
//   key 1: title, bytes 7-26, duplicates, modifiable, case-insensitive (1027)
//   key 2: station (27-28) + date (29-36), segmented, duplicates, modifiable (19 + 3)
inline constexpr uint16_t kSongLength = 64;
inline btr::PbTBtrFileBuf SongFileBuf() {
    return MakeFileBuf(kSongLength, 3, {{1, 6, 0}, {7, 20, 1027}, {27, 2, 19}, {29, 8, 3}});
}

inline std::string Padded(std::string text, size_t length, char fill = ' ') {
    text.resize(length, fill);
    return text;
}

inline std::string SongNumber(int number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%06d", number);
    return digits;
}

inline std::string Song(int number, const std::string& title, const std::string& station = "01",
                        const std::string& date = "20260101", const std::string& note = "") {
    return Padded(
        SongNumber(number) + Padded(title, 20) + Padded(station, 2) + Padded(date, 8) + note,
        kSongLength);
}

// The names of a file's indexes, as SQLite holds them. Opened read-write, so that SQLite removes
// the log it makes on closing.
inline std::string IndexNames(const std::string& path) {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(raw,
                       "SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                       "WHERE type = 'index' ORDER BY name)",
                       -1, &stmt, nullptr);
    std::string names;
    if (sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_text(stmt, 0) != nullptr)
        names = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    sqlite3_finalize(stmt);
    sqlite3_close(raw);
    return names;
}

inline int NumberOf(const std::string& record) {
    return std::stoi(record.substr(0, 6));
}

// Calls on one open file with record-sized buffers.
struct SongFile {
    engine::EngineFile file;
    std::string record = std::string(kSongLength, '\0');
    std::string key = std::string(255, '\0');

    int16_t Open(const std::string& path, int8_t mode = btr::kOpenNormal) {
        return file.Open(path, mode);
    }
    int16_t Insert(const std::string& song, int8_t keyNumber = 0) {
        record = song;
        return file.Call(btr::kInsert, record, key, keyNumber);
    }
    int16_t Update(const std::string& song, int8_t keyNumber = 0) {
        record = song;
        return file.Call(btr::kUpdate, record, key, keyNumber);
    }
    int16_t Delete(int8_t keyNumber = 0) {
        record.assign(kSongLength, '\0');
        return file.Call(btr::kDelete, record, key, keyNumber);
    }
    // A read; `search` (if given) fills the key buffer, padded with `fill`.
    int16_t Get(uint16_t operation, int8_t keyNumber, const std::string& search = "",
                char fill = '\0') {
        record.assign(kSongLength, '\0');
        key = Padded(search, 255, fill);
        return file.Call(operation, record, key, keyNumber);
    }
    int number() const { return NumberOf(record); }
};

// Another process on the same files: a child forked when the object is made, which runs
// `script(step)` each time the parent asks and answers with its result. The child starts with
// the engine as this process had it then, so make it before opening any file here: the child
// opens its own.
class OtherProcess {
  public:
    explicit OtherProcess(std::function<int(int step)> script) {
        signal(SIGPIPE, SIG_IGN);  // a child that ended is told by the reads, not by a signal
        int down[2], up[2];
        if (pipe(down) != 0 || pipe(up) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            close(down[1]);
            close(up[0]);
            int step = 0;
            while (read(down[0], &step, sizeof step) == sizeof step && step >= 0) {
                int result = script(step);
                if (write(up[1], &result, sizeof result) != sizeof result) break;
            }
            _exit(0);
        }
        close(down[0]);
        close(up[1]);
        toChild_ = down[1];
        fromChild_ = up[0];
    }
    ~OtherProcess() {
        int end = -1;
        if (toChild_ >= 0) {
            [[maybe_unused]] ssize_t sent = write(toChild_, &end, sizeof end);
            close(toChild_);
        }
        if (fromChild_ >= 0) close(fromChild_);
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    // Runs step `step` in the child and returns its result; -1000 if the child is gone.
    int Run(int step) {
        int result = -1000;
        if (write(toChild_, &step, sizeof step) != sizeof step) return -1000;
        if (read(fromChild_, &result, sizeof result) != sizeof result) return -1000;
        return result;
    }

  private:
    pid_t pid_ = -1;
    int toChild_ = -1, fromChild_ = -1;
};

// The names in a folder, sorted.
inline std::vector<std::string> Listing(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace toverin::testing
