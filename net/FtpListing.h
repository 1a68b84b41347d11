// Directory listings as FTP servers write them: MLSD facts (RFC 3659), and the LIST lines of
// servers without MLSD, in the Unix form ("-rw-r--r-- 1 user group 24577 Mar 15 12:30 name") and
// the DOS form ("03-15-26  12:30PM  24577 name"); the times of MLSD and MDTM, in UTC; and the
// Windows-style name patterns the program lists with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"

namespace toverin {

// One entry of a remote directory listing.
struct FtpDirEntry {
    std::string name;
    int64_t size = 0;
    LocalTime date{};  // last modification, in the machine's local time
    bool isDirectory = false;
};

// "YYYYMMDDHHMMSS[.sss]" in UTC (an MLSD "modify" fact, an MDTM reply) to local time.
bool ParseFtpTime(std::string_view text, LocalTime& out);
// MLSD lines ("fact=value;...; name") to entries; the current and parent directory entries are
// left out, times are turned from UTC into local time.
std::vector<FtpDirEntry> ParseMlsdListing(std::string_view listing);
// LIST lines in the Unix or the DOS form to entries. Their times are the server's clock as it
// writes them, to the minute; a Unix line without a year is dated in the twelve months up to
// `now`. "total" lines, "." and ".." and lines of neither form are left out; a link is listed by
// its own name.
std::vector<FtpDirEntry> ParseListListing(std::string_view listing, LocalTime now);
// Windows-style name matching: '*' any run, '?' one character, ASCII case ignored.
bool FtpNameMatches(std::string_view pattern, std::string_view name);

}  // namespace toverin
