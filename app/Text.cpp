#include "app/Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>

namespace toverin {
namespace {

// Code points of bytes 0x80..0x9F in Windows-1252; 0 marks the five unassigned bytes.
constexpr std::array<char32_t, 32> kHigh = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

char ByteFor(char32_t cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<char>(cp);
    for (size_t i = 0; i < kHigh.size(); ++i) {
        if (kHigh[i] == cp && cp != 0) return static_cast<char>(0x80 + i);
    }
    return '?';
}

}  // namespace

std::string Utf8FromCp1252(std::string_view bytes) {
    // Most of a record's text is ASCII, which is the same in both.
    size_t ascii = 0;
    while (ascii < bytes.size() && static_cast<unsigned char>(bytes[ascii]) < 0x80) ++ascii;
    if (ascii == bytes.size()) return std::string(bytes);
    std::string out;
    out.reserve(bytes.size());
    for (unsigned char c : bytes) {
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0xA0) {
            char32_t cp = kHigh[c - 0x80];
            AppendUtf8(out, cp ? cp : c);
        } else {
            AppendUtf8(out, c);
        }
    }
    return out;
}

std::string Cp1252FromUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        char32_t cp;
        size_t len;
        if (c < 0x80) {
            cp = c;
            len = 1;
        } else if ((c & 0xE0) == 0xC0) {
            cp = c & 0x1F;
            len = 2;
        } else if ((c & 0xF0) == 0xE0) {
            cp = c & 0x0F;
            len = 3;
        } else if ((c & 0xF8) == 0xF0) {
            cp = c & 0x07;
            len = 4;
        } else {
            // Not UTF-8 at all: keep the byte, it is most likely already Windows-1252.
            out.push_back(static_cast<char>(c));
            ++i;
            continue;
        }
        if (i + len > text.size()) {
            out.push_back('?');
            break;
        }
        bool valid = true;
        for (size_t k = 1; k < len; ++k) {
            auto cc = static_cast<unsigned char>(text[i + k]);
            if ((cc & 0xC0) != 0x80) valid = false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (!valid) {
            out.push_back(static_cast<char>(c));
            ++i;
            continue;
        }
        out.push_back(ByteFor(cp));
        i += len;
    }
    return out;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::string Trim(std::string_view text) {
    return std::string(TrimView(text));
}

std::string TrimRight(std::string_view text) {
    size_t e = text.size();
    while (e > 0 && IsBlank(text[e - 1])) --e;
    return std::string(text.substr(0, e));
}

std::string UpperAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

std::string UpperCp1252(std::string_view bytes) {
    std::string out(bytes);
    for (char& ch : out) {
        auto c = static_cast<unsigned char>(ch);
        if (c >= 'a' && c <= 'z') {
            ch = static_cast<char>(c - 32);
        } else if (c >= 0xE0 && c <= 0xFE && c != 0xF7) {
            ch = static_cast<char>(c - 32);
        } else if (c == 0x9A || c == 0x9C || c == 0x9E) {  // š œ ž
            ch = static_cast<char>(c - 16);
        } else if (c == 0xFF) {  // ÿ
            ch = static_cast<char>(0x9F);
        }
    }
    return out;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::toupper(static_cast<unsigned char>(a[i])) !=
            std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

size_t FindIgnoreCase(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) return 0;
    if (needle.size() > haystack.size()) return std::string_view::npos;
    for (size_t i = 0; i + needle.size() <= haystack.size(); ++i) {
        if (EqualsIgnoreCase(haystack.substr(i, needle.size()), needle)) return i;
    }
    return std::string_view::npos;
}

std::string ReplaceAllIgnoreCase(std::string_view text, std::string_view from,
                                 std::string_view to) {
    if (from.empty()) return std::string(text);
    std::string out;
    size_t pos = 0;
    while (true) {
        size_t hit = FindIgnoreCase(text.substr(pos), from);
        if (hit == std::string_view::npos) break;
        out.append(text.substr(pos, hit));
        out.append(to);
        pos += hit + from.size();
    }
    out.append(text.substr(pos));
    return out;
}

std::string XmlEscaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
    if (from.empty()) return std::string(text);
    std::string out;
    size_t pos = 0;
    while (true) {
        size_t hit = text.find(from, pos);
        if (hit == std::string_view::npos) break;
        out.append(text.substr(pos, hit - pos));
        out.append(to);
        pos = hit + from.size();
    }
    out.append(text.substr(pos));
    return out;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool EndsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::string FixedWidth(std::string_view text, size_t width, char fill) {
    std::string out(text.substr(0, std::min(width, text.size())));
    out.resize(width, fill);
    return out;
}

std::string ZeroPad(long long value, int width) {
    std::string digits = std::to_string(value < 0 ? -value : value);
    if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
    return value < 0 ? "-" + digits : digits;
}

size_t Utf8Length(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

bool IsValidUtf8(std::string_view bytes) {
    for (size_t i = 0; i < bytes.size();) {
        auto c = static_cast<unsigned char>(bytes[i]);
        size_t len;
        char32_t cp, min;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            len = 2, cp = c & 0x1F, min = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            len = 3, cp = c & 0x0F, min = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            len = 4, cp = c & 0x07, min = 0x10000;
        } else {
            return false;
        }
        if (i + len > bytes.size()) return false;
        for (size_t k = 1; k < len; ++k) {
            auto cc = static_cast<unsigned char>(bytes[i + k]);
            if ((cc & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        i += len;
    }
    return true;
}

std::string Utf8Prefix(std::string_view text, size_t count) {
    size_t seen = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) continue;
        if (seen++ == count) return std::string(text.substr(0, i));
    }
    return std::string(text);
}

bool EqualsIgnoreCaseUtf8(std::string_view a, std::string_view b) {
    if (EqualsIgnoreCase(a, b)) return true;
    // Characters outside Windows-1252 turn into '?' here, so they are compared as they are.
    if (!IsValidUtf8(a) || !IsValidUtf8(b) || Utf8Length(a) != Utf8Length(b)) return false;
    std::string ca = Cp1252FromUtf8(a), cb = Cp1252FromUtf8(b);
    if (Utf8FromCp1252(ca) != a || Utf8FromCp1252(cb) != b) return false;
    return UpperCp1252(ca) == UpperCp1252(cb);
}

}  // namespace toverin
