#include "exports/ZipWriter.h"

#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace toverin {

namespace {

constexpr uint32_t kLocalHeader = 0x04034b50;
constexpr uint32_t kCentralHeader = 0x02014b50;
constexpr uint32_t kEndOfCentral = 0x06054b50;
constexpr uint32_t kZip64EndOfCentral = 0x06064b50;
constexpr uint32_t kZip64Locator = 0x07064b50;
constexpr uint16_t kZip64Extra = 0x0001;
constexpr uint16_t kVersion = 45;  // 4.5: zip64
constexpr uint16_t kDeflated = 8;
constexpr uint16_t kDate1980 = 0x21;  // 1 January 1980, as every workbook writer dates its parts
constexpr uint32_t kOverflow = 0xFFFFFFFFu;

// Deflate's fastest level: on a sheet's XML the default level makes a workbook a quarter smaller
// in three times the time, and the time is what a user waits for.
constexpr int kLevel = 1;

bool WriteAll(std::FILE* f, const char* data, size_t size) {
    return std::fwrite(data, 1, size, f) == size;
}

}  // namespace

ZipWriter::ZipWriter(uint64_t zip64From) : zip64From_(zip64From) {
    pending_.reserve(kPiece + (64 << 10));
}

void ZipWriter::Abandon() {
    if (worker_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        worker_.join();
    }
    open_ = false;
    file_.reset();
}

bool ZipWriter::Fail(const std::string& message) {
    if (error_.empty()) error_ = message;
    return false;
}

bool ZipWriter::Open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "wb"));
    if (!file_) return Fail("cannot create " + path + ": " + std::strerror(errno));
    std::setvbuf(file_.get(), nullptr, _IOFBF, 1 << 20);
    return true;
}

bool ZipWriter::Begin(const std::string& name) {
    if (!file_ || open_ || !error_.empty()) return Fail("the archive cannot take " + name);
    Entry entry;
    entry.name = name;
    const off_t at = ftello(file_.get());
    if (at < 0) return Fail("cannot tell where " + name + " starts: " + std::strerror(errno));
    entry.offset = static_cast<uint64_t>(at);
    // The sizes and the checksum are not known yet: they are written in place by End. The
    // header always has room for them in its zip64 field, as a sheet may pass 4 GB.
    std::string header;
    Add32(header, kLocalHeader);
    Add16(header, kVersion);
    Add16(header, 0);  // flags
    Add16(header, kDeflated);
    Add16(header, 0);  // time
    Add16(header, kDate1980);
    Add32(header, 0);  // crc
    Add32(header, 0);  // compressed size
    Add32(header, 0);  // size
    Add16(header, name.size());
    Add16(header, 20);
    header += name;
    Add16(header, kZip64Extra);
    Add16(header, 16);
    Add64(header, 0);
    Add64(header, 0);
    if (!WriteAll(file_.get(), header.data(), header.size()))
        return Fail("cannot write " + name + ": " + std::strerror(errno));
    entries_.push_back(std::move(entry));
    pending_.clear();
    handed_.clear();
    handedOver_ = last_ = stop_ = false;
    failure_.clear();
    open_ = true;
    worker_ = std::thread([this] { Compress(); });
    return true;
}

bool ZipWriter::Pass() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !handedOver_ || !failure_.empty(); });
    if (!failure_.empty()) return Fail(failure_);
    handed_.swap(pending_);
    handedOver_ = true;
    lock.unlock();
    changed_.notify_all();
    pending_.clear();  // the buffer the compression has finished with
    return true;
}

void ZipWriter::Compress() {
    Entry& entry = entries_.back();  // Begin adds no other entry until End has joined us
    z_stream z{};
    std::string failure;
    if (deflateInit2(&z, kLevel, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        failure = "cannot start compressing " + entry.name;
    uLong crc = crc32(0, nullptr, 0);
    std::string piece, out(256 << 10, '\0');
    bool last = false;
    while (failure.empty() && !last) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return handedOver_ || stop_; });
            if (stop_) break;
            piece.swap(handed_);
            handedOver_ = false;
            last = last_;
        }
        changed_.notify_all();
        crc = crc32_z(crc, reinterpret_cast<const Bytef*>(piece.data()), piece.size());
        entry.size += piece.size();
        z.next_in = reinterpret_cast<Bytef*>(piece.data());
        z.avail_in = static_cast<uInt>(piece.size());
        int status = Z_OK;
        do {
            z.next_out = reinterpret_cast<Bytef*>(out.data());
            z.avail_out = static_cast<uInt>(out.size());
            status = deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
            const size_t made = out.size() - z.avail_out;
            if (!WriteAll(file_.get(), out.data(), made)) {
                failure = "cannot write " + entry.name + ": " + std::strerror(errno);
                break;
            }
            entry.compressed += made;
        } while (z.avail_out == 0 || (last && status != Z_STREAM_END));
    }
    deflateEnd(&z);
    entry.crc = static_cast<uint32_t>(crc);
    if (failure.empty()) return;
    {
        std::lock_guard lock(mutex_);
        failure_ = failure;
    }
    changed_.notify_all();
}

bool ZipWriter::End() {
    if (!open_) return Fail("no entry under way");
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !handedOver_ || !failure_.empty(); });
        handed_.swap(pending_);
        handedOver_ = last_ = true;
    }
    changed_.notify_all();
    worker_.join();
    open_ = false;
    if (!failure_.empty()) return Fail(failure_);

    const Entry& entry = entries_.back();
    const bool wide = entry.size >= zip64From_ || entry.compressed >= zip64From_;
    std::string sizes;
    Add32(sizes, entry.crc);
    Add32(sizes, wide ? kOverflow : entry.compressed);
    Add32(sizes, wide ? kOverflow : entry.size);
    std::string wideSizes;
    Add64(wideSizes, entry.size);
    Add64(wideSizes, entry.compressed);
    return WriteAt(entry.offset + 14, sizes) &&
           WriteAt(entry.offset + 30 + entry.name.size() + 4, wideSizes);
}

bool ZipWriter::WriteAt(uint64_t offset, const std::string& bytes) {
    std::FILE* f = file_.get();
    const off_t end = ftello(f);
    if (end < 0 || fseeko(f, static_cast<off_t>(offset), SEEK_SET) != 0 ||
        !WriteAll(f, bytes.data(), bytes.size()) || fseeko(f, end, SEEK_SET) != 0)
        return Fail("cannot complete the header of " + entries_.back().name + ": " +
                    std::strerror(errno));
    return true;
}

bool ZipWriter::Add(const std::string& name, const std::string& content) {
    if (!Begin(name)) return false;
    pending_ = content;
    return End();
}

bool ZipWriter::Close() {
    if (!file_ || open_ || !error_.empty())
        return Fail(error_.empty() ? "archive not complete" : error_);
    std::FILE* f = file_.get();
    const off_t at = ftello(f);
    if (at < 0)
        return Fail(std::string("cannot tell where the directory starts: ") + std::strerror(errno));
    const uint64_t directoryAt = static_cast<uint64_t>(at);
    bool zip64 = directoryAt >= zip64From_ || entries_.size() >= 0xFFFF;
    std::string directory;
    // [Content_Types].xml is written last, when the sheets are known, but listed first.
    std::vector<const Entry*> order;
    for (const Entry& e : entries_) {
        if (e.name == "[Content_Types].xml")
            order.insert(order.begin(), &e);
        else
            order.push_back(&e);
    }
    for (const Entry* e : order) {
        // Only the fields that overflow go to the zip64 field, in this order.
        std::string extra;
        const bool wideSize = e->size >= zip64From_, wideCompressed = e->compressed >= zip64From_,
                   wideOffset = e->offset >= zip64From_;
        if (wideSize) Add64(extra, e->size);
        if (wideCompressed) Add64(extra, e->compressed);
        if (wideOffset) Add64(extra, e->offset);
        zip64 = zip64 || !extra.empty();
        Add32(directory, kCentralHeader);
        Add16(directory, kVersion);  // made by: 4.5, MS-DOS attributes
        Add16(directory, kVersion);
        Add16(directory, 0);
        Add16(directory, kDeflated);
        Add16(directory, 0);
        Add16(directory, kDate1980);
        Add32(directory, e->crc);
        Add32(directory, wideCompressed ? kOverflow : e->compressed);
        Add32(directory, wideSize ? kOverflow : e->size);
        Add16(directory, e->name.size());
        Add16(directory, extra.empty() ? 0 : extra.size() + 4);
        Add16(directory, 0);  // comment
        Add16(directory, 0);  // disk
        Add16(directory, 0);  // internal attributes
        Add32(directory, 0);  // external attributes
        Add32(directory, wideOffset ? kOverflow : e->offset);
        directory += e->name;
        if (!extra.empty()) {
            Add16(directory, kZip64Extra);
            Add16(directory, extra.size());
            directory += extra;
        }
    }
    const uint64_t count = entries_.size();
    std::string end;
    if (zip64) {
        const uint64_t recordAt = directoryAt + directory.size();
        Add32(end, kZip64EndOfCentral);
        Add64(end, 44);  // the record's size after this field
        Add16(end, kVersion);
        Add16(end, kVersion);
        Add32(end, 0);
        Add32(end, 0);
        Add64(end, count);
        Add64(end, count);
        Add64(end, directory.size());
        Add64(end, directoryAt);
        Add32(end, kZip64Locator);
        Add32(end, 0);
        Add64(end, recordAt);
        Add32(end, 1);
    }
    Add32(end, kEndOfCentral);
    Add16(end, 0);
    Add16(end, 0);
    Add16(end, zip64 ? 0xFFFF : count);
    Add16(end, zip64 ? 0xFFFF : count);
    Add32(end, directory.size());
    Add32(end, zip64 ? kOverflow : directoryAt);
    Add16(end, 0);
    if (!WriteAll(f, directory.data(), directory.size()) || !WriteAll(f, end.data(), end.size()) ||
        std::fflush(f) != 0)
        return Fail(std::string("cannot write the archive's directory: ") + std::strerror(errno));
    if (std::fclose(file_.release()) != 0)
        return Fail(std::string("cannot close the archive: ") + std::strerror(errno));
    return true;
}

}  // namespace toverin
