#include "app/Ini.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/Paths.h"
#include "app/Text.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBom = "\xEF\xBB\xBF";

// Section name of a "[Name]" line, or false.
bool SectionName(std::string_view line, std::string& name) {
    std::string t = Trim(line);
    if (t.size() < 2 || t.front() != '[') return false;
    size_t close = t.find(']');
    if (close == std::string::npos) return false;
    name = Trim(std::string_view(t).substr(1, close - 1));
    return true;
}

// Key and value of a "key=value" line, or false.
bool KeyValue(std::string_view line, std::string& key, std::string& value) {
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) return false;
    key = Trim(line.substr(0, eq));
    if (key.empty() || key[0] == ';') return false;
    value = Trim(line.substr(eq + 1));
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front())
        value = value.substr(1, value.size() - 2);
    return true;
}

}  // namespace

IniEncoding DetectIniEncoding(std::string_view bytes) {
    if (StartsWith(bytes, kBom)) return IniEncoding::Utf8WithBom;
    bool ascii = std::all_of(bytes.begin(), bytes.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    // An ASCII file reads the same either way; it stays the suite's Windows-1252.
    return !ascii && IsValidUtf8(bytes) ? IniEncoding::Utf8 : IniEncoding::Cp1252;
}

IniDocument IniDocument::Parse(std::string_view bytes) {
    IniDocument doc;
    doc.encoding_ = DetectIniEncoding(bytes);
    if (doc.encoding_ == IniEncoding::Utf8WithBom) bytes.remove_prefix(kBom.size());
    Line current;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char c = bytes[i];
        if (c != '\r' && c != '\n') {
            current.text.push_back(c);
            continue;
        }
        current.end = c;
        if (c == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') {
            current.end = "\r\n";
            ++i;
        }
        doc.lines_.push_back(std::move(current));
        current = Line{};
    }
    if (!current.text.empty()) doc.lines_.push_back(std::move(current));
    return doc;
}

bool IniDocument::Load(const std::string& file, IniDocument& out) {
    std::error_code ec;
    if (!fs::exists(file, ec)) {
        out = IniDocument{};
        return true;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    std::ostringstream ss;
    ss << in.rdbuf();
    out = Parse(ss.str());
    return true;
}

std::string IniDocument::ToFile(std::string_view text) const {
    return encoding_ == IniEncoding::Cp1252 ? Cp1252FromUtf8(text) : std::string(text);
}

std::string IniDocument::FromFile(std::string_view bytes) const {
    return encoding_ == IniEncoding::Cp1252 ? Utf8FromCp1252(bytes) : std::string(bytes);
}

void IniDocument::Insert(size_t at, std::string text) {
    // The line before gets the line end it lacked when it was the file's last.
    if (at > 0 && lines_[at - 1].end.empty()) lines_[at - 1].end = "\r\n";
    lines_.insert(lines_.begin() + static_cast<long>(at), Line{std::move(text), "\r\n"});
}

bool IniDocument::Get(std::string_view section, std::string_view key, std::string& value) const {
    const std::string s = ToFile(section), k = ToFile(key);
    bool inSection = false, seenSection = false;
    std::string name, lineKey, v;
    for (const auto& line : lines_) {
        if (SectionName(line.text, name)) {
            // The first of duplicate sections wins.
            if (inSection) return false;
            inSection = !seenSection && EqualsIgnoreCase(name, s);
            seenSection = seenSection || inSection;
            continue;
        }
        if (inSection && KeyValue(line.text, lineKey, v) && EqualsIgnoreCase(lineKey, k)) {
            value = FromFile(v);
            return true;
        }
    }
    return false;
}

void IniDocument::Set(std::string_view section, std::string_view key, std::string_view value) {
    const std::string s = ToFile(section), k = ToFile(key), v = ToFile(value);
    std::string name, lineKey, lineValue;
    bool inSection = false;
    long lastKeyLine = -1, sectionLine = -1;
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (SectionName(lines_[i].text, name)) {
            if (inSection) break;
            if (sectionLine < 0 && EqualsIgnoreCase(name, s)) {
                inSection = true;
                sectionLine = static_cast<long>(i);
                lastKeyLine = static_cast<long>(i);
            }
            continue;
        }
        if (!inSection) continue;
        if (KeyValue(lines_[i].text, lineKey, lineValue)) {
            if (EqualsIgnoreCase(lineKey, k)) {
                // The key keeps the spelling it has in the file; only its value changes.
                lines_[i].text = lineKey + "=" + v;
                return;
            }
            lastKeyLine = static_cast<long>(i);
        } else if (!Trim(lines_[i].text).empty()) {
            lastKeyLine = static_cast<long>(i);
        }
    }
    if (sectionLine >= 0) {
        // A new key goes after the section's last key, before the blank lines that follow it.
        Insert(static_cast<size_t>(lastKeyLine + 1), k + "=" + v);
        return;
    }
    Insert(lines_.size(), "[" + s + "]");
    Insert(lines_.size(), k + "=" + v);
}

bool IniDocument::HasSection(std::string_view section) const {
    const std::string s = ToFile(section);
    std::string name;
    for (const auto& line : lines_)
        if (SectionName(line.text, name) && EqualsIgnoreCase(name, s)) return true;
    return false;
}

void IniDocument::EnsureSection(std::string_view section) {
    if (!HasSection(section)) Insert(lines_.size(), "[" + ToFile(section) + "]");
}

std::vector<std::string> IniDocument::Keys(std::string_view section) const {
    const std::string s = ToFile(section);
    std::vector<std::string> keys;
    bool inSection = false, seen = false;
    std::string name, k, v;
    for (const auto& line : lines_) {
        if (SectionName(line.text, name)) {
            if (inSection) break;
            inSection = !seen && EqualsIgnoreCase(name, s);
            seen = seen || inSection;
        } else if (inSection && KeyValue(line.text, k, v)) {
            keys.push_back(FromFile(k));
        }
    }
    return keys;
}

std::vector<std::string> IniDocument::Sections() const {
    std::vector<std::string> out;
    std::string name;
    for (const auto& line : lines_)
        if (SectionName(line.text, name)) out.push_back(FromFile(name));
    return out;
}

std::string IniDocument::Serialize() const {
    std::string out = encoding_ == IniEncoding::Utf8WithBom ? std::string(kBom) : std::string();
    for (const auto& line : lines_) {
        out += line.text;
        out += line.end;
    }
    return out;
}

bool IniDocument::Save(const std::string& file) const {
    return WriteFileAtomically(file, Serialize());
}

bool WriteFileAtomically(const std::string& file, std::string_view bytes) {
    std::error_code ec;
    fs::path target(file);
    if (target.has_parent_path()) fs::create_directories(target.parent_path(), ec);
    fs::path temp = target;
    temp += ".tmp" + std::to_string(::getpid());
    {
        std::FILE* f = std::fopen(temp.c_str(), "wb");
        if (!f) return false;
        bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        ok = std::fflush(f) == 0 && ok;
        ok = ::fsync(::fileno(f)) == 0 && ok;
        ok = std::fclose(f) == 0 && ok;
        if (!ok) {
            fs::remove(temp, ec);
            return false;
        }
    }
    fs::rename(temp, target, ec);
    if (ec) {
        fs::remove(temp, ec);
        return false;
    }
    return true;
}

std::string LectureIni(const std::string& file, const std::string& section, const std::string& key,
                       const std::string& defaultValue) {
    // A site copied from Windows may spell the file's name in another case.
    const std::string path = ExistingCase(file);
    if (!FileExists(path)) return defaultValue;
    IniDocument doc;
    if (!IniDocument::Load(path, doc)) return defaultValue;
    std::string value;
    if (!doc.Get(section, key, value)) return defaultValue;
    return Utf8Prefix(value, kIniValueMax);
}

bool EcritureIni(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value) {
    const std::string path = ExistingCase(file);
    IniDocument doc;
    if (!IniDocument::Load(path, doc)) return false;
    doc.Set(section, key, value);
    return doc.Save(path);
}

}  // namespace toverin
