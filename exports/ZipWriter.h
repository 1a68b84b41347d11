// A zip archive written front to back, its entries deflated as they come: the ".xlsx" workbook's
// container. An entry's text is handed over in pieces and compressed by a second thread while
// the next piece is put together, so that a sheet of a million rows is never held whole, on disk
// or in memory. Each entry's header is completed in place once its sizes are known; sizes and
// offsets past 4 GB take the zip64 extensions.
//
//   ZipWriter zip;
//   zip.Open(path);
//   zip.Begin("xl/worksheets/sheet1.xml");
//   while (...) zip.Text() += row; if (!zip.Written()) ...;
//   zip.End();
//   zip.Close();   // the central directory; false, with Error(), on any failure on the way
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "exports/Writers.h"

namespace toverin {

class ZipWriter {
  public:
    // Sizes and offsets from `zip64From` bytes on take the zip64 extensions (tests lower it).
    explicit ZipWriter(uint64_t zip64From = 0xFFFFFFFFu);
    ~ZipWriter() { Abandon(); }
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    bool Open(const std::string& path);
    bool Begin(const std::string& name);
    // The entry's text not yet compressed: append to it, then call Written.
    std::string& Text() { return pending_; }
    // Hands the text over to the compression once a piece has gathered.
    bool Written() { return pending_.size() < kPiece || Pass(); }
    bool End();
    // A whole entry at once.
    bool Add(const std::string& name, const std::string& content);
    bool Close();
    // Stops a compression under way and closes the file as it is; the caller removes it.
    void Abandon();

    const std::string& Error() const { return error_; }

  private:
    static constexpr size_t kPiece = 1 << 20;

    struct Entry {
        std::string name;
        uint64_t offset = 0;
        uint64_t size = 0;        // uncompressed
        uint64_t compressed = 0;  // deflated
        uint32_t crc = 0;
    };

    bool Fail(const std::string& message);
    bool Pass();
    void Compress();  // the compression thread's work, for one entry
    bool WriteAt(uint64_t offset, const std::string& bytes);

    uint64_t zip64From_;
    OwnedFile file_;
    std::vector<Entry> entries_;
    std::string error_;
    bool open_ = false;  // an entry is under way

    // Between this thread and the compression's: one piece waits while the other is deflated.
    std::string pending_;  // being put together, this thread's
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string handed_;  // waiting for the compression
    bool handedOver_ = false;
    bool last_ = false;    // no more pieces for this entry
    bool stop_ = false;    // abandon the entry
    std::string failure_;  // the compression's first failure
    std::thread worker_;
};

}  // namespace toverin
