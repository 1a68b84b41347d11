// Ini files with the semantics of the Windows private-profile functions that the suite's files
// were written with: sections and keys match without regard to case, blanks and surrounding
// quotes are trimmed, the first of duplicate sections or keys wins, CR, LF and CRLF are read.
// Writes change only what they must, as the Windows writer does: a rewritten key keeps its
// spelling and its line end, a new key goes after its section's last key, a new section is
// appended at the end with no blank line before it, and new lines end with CRLF.
//
// The suite's files hold Windows-1252. A file edited on Linux may hold UTF-8 instead: a file that
// is well-formed UTF-8 and holds more than ASCII, or starts with a byte-order mark, is read as
// UTF-8 and written back as UTF-8 (with its mark when it had one). Text crosses this interface as
// UTF-8 either way.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace toverin {

// Longest value a read returns: the private-profile reader's 255-character buffer less its
// terminator.
constexpr size_t kIniValueMax = 254;

// Reads one key. A missing file gives `defaultValue` without touching the disk.
std::string LectureIni(const std::string& file, const std::string& section, const std::string& key,
                       const std::string& defaultValue);
// Writes one key (creating file, section and key as needed). The file is replaced atomically, so a
// crash never leaves half a file.
bool EcritureIni(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value);

enum class IniEncoding { Cp1252, Utf8, Utf8WithBom };
// The encoding a file's bytes are read in (see above).
IniEncoding DetectIniEncoding(std::string_view bytes);

// An ini document in memory, for callers that read or write many keys at once. Names and values
// are UTF-8 text; the document keeps the bytes of its file in the file's own encoding.
class IniDocument {
  public:
    static IniDocument Parse(std::string_view bytes);
    // Loads `file`; a missing file is an empty Windows-1252 document. Returns false on a read
    // error.
    static bool Load(const std::string& file, IniDocument& out);

    bool Get(std::string_view section, std::string_view key, std::string& value) const;
    void Set(std::string_view section, std::string_view key, std::string_view value);
    bool HasSection(std::string_view section) const;
    void EnsureSection(std::string_view section);
    std::vector<std::string> Keys(std::string_view section) const;
    std::vector<std::string> Sections() const;
    std::string Serialize() const;
    bool Save(const std::string& file) const;
    IniEncoding encoding() const { return encoding_; }

  private:
    struct Line {
        std::string text;  // in the file's encoding
        std::string end;   // "\r\n", "\n", "\r", or "" for a last line without one
    };
    std::string ToFile(std::string_view text) const;
    std::string FromFile(std::string_view bytes) const;
    void Insert(size_t at, std::string text);

    std::vector<Line> lines_;
    IniEncoding encoding_ = IniEncoding::Cp1252;
};

// Writes `bytes` to `file` through a temporary file and a rename in the same folder.
bool WriteFileAtomically(const std::string& file, std::string_view bytes);

}  // namespace toverin
