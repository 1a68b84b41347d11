// Text helpers shared by every layer. In memory, text is UTF-8; record files and ini files hold
// Windows-1252, converted at the boundary with the two functions below.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace toverin {

std::string Utf8FromCp1252(std::string_view bytes);
// Characters with no Windows-1252 form become '?'.
std::string Cp1252FromUtf8(std::string_view text);

// White space as the C locale's isspace has it: blank, tab, line feed, vertical tab, form feed,
// carriage return.
inline bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
// The lines of `text`, each without its "\n" or "\r\n"; no empty line after a final newline.
std::vector<std::string_view> SplitLines(std::string_view text);
std::string Trim(std::string_view text);
inline std::string_view TrimView(std::string_view text) {
    size_t b = 0, e = text.size();
    while (b < e && IsBlank(text[b])) ++b;
    while (e > b && IsBlank(text[e - 1])) --e;
    return text.substr(b, e - b);
}
std::string TrimRight(std::string_view text);
std::string UpperAscii(std::string_view text);
std::string UpperCp1252(std::string_view bytes);
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
// Position of `needle` in `haystack` ignoring ASCII case, or npos.
size_t FindIgnoreCase(std::string_view haystack, std::string_view needle);
std::string ReplaceAllIgnoreCase(std::string_view text, std::string_view from, std::string_view to);
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
// `text` fit for XML content or an attribute value: & < > " ' as entities.
std::string XmlEscaped(std::string_view text);
bool StartsWith(std::string_view text, std::string_view prefix);
bool EndsWith(std::string_view text, std::string_view suffix);
// Cut or pad with `fill` to exactly `width` characters.
std::string FixedWidth(std::string_view text, size_t width, char fill = ' ');
// Zero-padded decimal of at least `width` digits.
std::string ZeroPad(long long value, int width);
// Number of UTF-8 characters (code points).
size_t Utf8Length(std::string_view text);
// Well-formed UTF-8: no stray continuation bytes, no overlong forms, no surrogates.
bool IsValidUtf8(std::string_view bytes);
// The first `count` characters of UTF-8 text.
std::string Utf8Prefix(std::string_view text, size_t count);
// The same letters whatever their case, ASCII and Latin-1 accented letters alike ("Données",
// "DONNÉES"), for names of files and folders written on Windows.
bool EqualsIgnoreCaseUtf8(std::string_view a, std::string_view b);

}  // namespace toverin
