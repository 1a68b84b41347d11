#include "app/Ini.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/Text.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

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

IniDocument IniDocument::Parse(std::string_view bytes) {
    IniDocument doc;
    std::string current;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char c = bytes[i];
        if (c == '\r' || c == '\n') {
            doc.lines_.push_back(current);
            current.clear();
            if (c == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') ++i;
        } else {
            current.push_back(c);
        }
    }
    if (!current.empty()) doc.lines_.push_back(current);
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

bool IniDocument::Get(std::string_view section, std::string_view key, std::string& value) const {
    bool inSection = false, seenSection = false;
    std::string name, k, v;
    for (const auto& line : lines_) {
        if (SectionName(line, name)) {
            // The first of duplicate sections wins.
            if (inSection) return false;
            inSection = !seenSection && EqualsIgnoreCase(name, section);
            seenSection = seenSection || inSection;
            continue;
        }
        if (inSection && KeyValue(line, k, v) && EqualsIgnoreCase(k, key)) {
            value = v;
            return true;
        }
    }
    return false;
}

void IniDocument::Set(std::string_view section, std::string_view key, std::string_view value) {
    std::string newLine = std::string(key) + "=" + std::string(value);
    std::string name, k, v;
    bool inSection = false;
    long lastKeyLine = -1, sectionLine = -1;
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (SectionName(lines_[i], name)) {
            if (inSection) break;
            if (sectionLine < 0 && EqualsIgnoreCase(name, section)) {
                inSection = true;
                sectionLine = static_cast<long>(i);
                lastKeyLine = static_cast<long>(i);
            }
            continue;
        }
        if (!inSection) continue;
        if (KeyValue(lines_[i], k, v)) {
            if (EqualsIgnoreCase(k, key)) {
                lines_[i] = newLine;
                return;
            }
            lastKeyLine = static_cast<long>(i);
        } else if (!Trim(lines_[i]).empty()) {
            lastKeyLine = static_cast<long>(i);
        }
    }
    if (sectionLine >= 0) {
        // A new key goes after the section's last key, before the blank lines that follow it.
        lines_.insert(lines_.begin() + lastKeyLine + 1, newLine);
        return;
    }
    if (!lines_.empty() && !Trim(lines_.back()).empty()) lines_.emplace_back();
    lines_.push_back("[" + std::string(section) + "]");
    lines_.push_back(newLine);
}

bool IniDocument::HasSection(std::string_view section) const {
    std::string name;
    for (const auto& line : lines_)
        if (SectionName(line, name) && EqualsIgnoreCase(name, section)) return true;
    return false;
}

void IniDocument::EnsureSection(std::string_view section) {
    if (HasSection(section)) return;
    if (!lines_.empty() && !Trim(lines_.back()).empty()) lines_.emplace_back();
    lines_.push_back("[" + std::string(section) + "]");
}

std::vector<std::string> IniDocument::Keys(std::string_view section) const {
    std::vector<std::string> keys;
    bool inSection = false, seen = false;
    std::string name, k, v;
    for (const auto& line : lines_) {
        if (SectionName(line, name)) {
            if (inSection) break;
            inSection = !seen && EqualsIgnoreCase(name, section);
            seen = seen || inSection;
        } else if (inSection && KeyValue(line, k, v)) {
            keys.push_back(k);
        }
    }
    return keys;
}

std::vector<std::string> IniDocument::Sections() const {
    std::vector<std::string> out;
    std::string name;
    for (const auto& line : lines_)
        if (SectionName(line, name)) out.push_back(name);
    return out;
}

std::string IniDocument::Serialize() const {
    std::string out;
    for (const auto& line : lines_) {
        out += line;
        out += "\r\n";
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
    std::error_code ec;
    if (!fs::exists(file, ec)) return defaultValue;
    IniDocument doc;
    if (!IniDocument::Load(file, doc)) return defaultValue;
    std::string raw;
    if (!doc.Get(Cp1252FromUtf8(section), Cp1252FromUtf8(key), raw)) return defaultValue;
    if (raw.size() > kIniValueMax) raw.resize(kIniValueMax);
    return Utf8FromCp1252(raw);
}

bool EcritureIni(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value) {
    IniDocument doc;
    if (!IniDocument::Load(file, doc)) return false;
    doc.Set(Cp1252FromUtf8(section), Cp1252FromUtf8(key), Cp1252FromUtf8(value));
    return doc.Save(file);
}

}  // namespace toverin
