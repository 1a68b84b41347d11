// Ini files with the semantics of the Windows private-profile functions that the suite's files
// were written with: sections and keys match without regard to case, blanks and surrounding
// quotes are trimmed, the first of duplicate sections or keys wins, CR, LF and CRLF are read and
// CRLF is written. Files hold Windows-1252; values cross this interface as UTF-8.
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

// An ini document in memory, for callers that read or write many keys at once.
class IniDocument {
  public:
    static IniDocument Parse(std::string_view bytes);
    // Loads `file`; a missing file is an empty document. Returns false on a read error.
    static bool Load(const std::string& file, IniDocument& out);

    // Raw (Windows-1252) value, or nullptr-like false when absent.
    bool Get(std::string_view section, std::string_view key, std::string& value) const;
    void Set(std::string_view section, std::string_view key, std::string_view value);
    bool HasSection(std::string_view section) const;
    void EnsureSection(std::string_view section);
    std::vector<std::string> Keys(std::string_view section) const;
    std::vector<std::string> Sections() const;
    std::string Serialize() const;  // CRLF line ends
    bool Save(const std::string& file) const;

  private:
    std::vector<std::string> lines_;
};

// Writes `bytes` to `file` through a temporary file and a rename in the same folder.
bool WriteFileAtomically(const std::string& file, std::string_view bytes);

}  // namespace toverin
