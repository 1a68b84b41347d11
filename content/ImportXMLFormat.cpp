#include "content/ImportXMLFormat.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "app/Text.h"

namespace toverin {

namespace {

const std::vector<XmlSectionInfo> kSections = {
    {XmlSection::Commercial, "KV3_Commercial", "Commercial", 1, "Commerciaux"},
    {XmlSection::ActivitySector, "KV3_ActivitySector", "ActivitySector", 2, "Secteurs d'activité"},
    {XmlSection::Customer, "KV3_Customer", "Customer", 3, "Clients"},
    {XmlSection::Product, "KV3_Product", "Product", 4, "Produits"},
    {XmlSection::Contract, "KV3_Contract", "Contract", 5, "Contrats"},
    {XmlSection::CtrSpot, "KV3_CtrSpot", "CtrSpot", 6, "Spots des contrats"},
    {XmlSection::CtrSpotSchedule, "KV3_CtrSpotSchedule", "CtrSpotSchedule", 7,
     "Dates de passage des spots"},
    {XmlSection::Artist, "KV3_Artist", "Artist", 20, "Artistes"},
    {XmlSection::Diverse, "KV3_Diverse", "Diverse", 21, "Libellés"},
    {XmlSection::Workshop, "KV3_Workshop", "Workshop", 22, "Morceaux"},
    {XmlSection::Strategy, "KV3_Strategy", "Strategy", 25, "Priorités"},
    {XmlSection::WorkshopSound, "KV3_Workshop_Sound", "Workshop_Sound", 26, "Sons des morceaux"},
    {XmlSection::Clock, "KV3_Clock", "Clock_Event", 30, "Horloges"},
    {XmlSection::Sound, "KV3_Sound", "Ptx_Event", 31, "Pointeurs des sons"},
};

// The entity rules in the suite's order; each bare form follows its form with a semicolon.
constexpr std::array<std::pair<std::string_view, std::string_view>, 20> kEntities = {{
    {"&amp;", "&"}, {"&amp", "&"},    {"&apos;", "'"}, {"&apos", "'"},  {"&#39;", "'"},
    {"&#39", "'"},  {"&quot;", "\""}, {"&quot", "\""}, {"&#34;", "\""}, {"&#34", "\""},
    {"&gt;", ">"},  {"&gt", ">"},     {"&#62;", ">"},  {"&#62", ">"},   {"&#38;", "&"},
    {"&#38", "&"},  {"&lt;", "<"},    {"&lt", "<"},    {"&#60;", "<"},  {"&#60", "<"},
}};

// UTF-8 read byte by byte: the letters the suite repairs, in its order (°, ’, à, â, ç, è, é,
// ê, ë, î, ï, ô, ö, ù, ‘), then a few more that French deliveries carry.
const std::vector<AccentRepair> kRepairs = {
    {"\xC2\xB0", "\xB0"}, {"\xE2\x80\x99", "'"}, {"\xC3\xA0", "\xE0"},     {"\xC3\xA2", "\xE2"},
    {"\xC3\xA7", "\xE7"}, {"\xC3\xA8", "\xE8"},  {"\xC3\xA9", "\xE9"},     {"\xC3\xAA", "\xEA"},
    {"\xC3\xAB", "\xEB"}, {"\xC3\xAE", "\xEE"},  {"\xC3\xAF", "\xEF"},     {"\xC3\xB4", "\xF4"},
    {"\xC3\xB6", "\xF6"}, {"\xC3\xB9", "\xF9"},  {"\xE2\x80\x98", "'"},    {"\xC3\xBB", "\xFB"},
    {"\xC3\xBC", "\xFC"}, {"\xC3\x89", "\xC9"},  {"\xC3\x88", "\xC8"},     {"\xC3\x8A", "\xCA"},
    {"\xC3\x80", "\xC0"}, {"\xC3\x87", "\xC7"},  {"\xC3\x94", "\xD4"},     {"\xC5\x93", "\x9C"},
    {"\xC2\xAB", "\xAB"}, {"\xC2\xBB", "\xBB"},  {"\xE2\x82\xAC", "\x80"},
};

bool HasLeadByte(std::string_view text) {
    for (char c : text) {
        auto b = static_cast<unsigned char>(c);
        if (b == 0xC2 || b == 0xC3 || b == 0xC5 || b == 0xE2) return true;
    }
    return false;
}

}  // namespace

size_t ImportXMLOuvertureItem(std::string_view line, std::string_view item) {
    size_t from = 0;
    while (true) {
        size_t at = line.find('<', from);
        if (at == std::string_view::npos) return at;
        size_t end = at + 1 + item.size();
        if (line.compare(at + 1, item.size(), item) == 0 && end < line.size() &&
            (line[end] == ' ' || line[end] == '>' || line[end] == '\t'))
            return end;
        from = at + 1;
    }
}

std::string EnteteFichierXML() {
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>";
}

const std::vector<XmlSectionInfo>& ImportXMLSections() {
    return kSections;
}

const XmlSectionInfo& SectionInfo(XmlSection section) {
    for (const XmlSectionInfo& s : kSections)
        if (s.section == section) return s;
    throw std::logic_error("unknown XML section");
}

const XmlSectionInfo* SectionByElement(std::string_view element) {
    for (const XmlSectionInfo& s : kSections)
        if (element == s.element) return &s;
    return nullptr;
}

namespace {

// An attribute in an opening tag's text (from the blank after the item's name to the ">").
std::optional<std::string_view> AttributeIn(std::string_view tag, std::string_view name) {
    for (size_t at = tag.find(name); at != std::string_view::npos; at = tag.find(name, at + 1)) {
        const size_t after = at + name.size();
        if (at == 0 || (tag[at - 1] != ' ' && tag[at - 1] != '\t') || after + 1 >= tag.size() ||
            tag[after] != '=' || tag[after + 1] != '"')
            continue;
        const size_t valueStart = after + 2;
        size_t close = tag.find('"', valueStart);
        if (close == std::string_view::npos) close = tag.size();
        return tag.substr(valueStart, close - valueStart);
    }
    return std::nullopt;
}

// The text of item `item`'s opening tag after its name, and where the tag ends (npos when the
// line has no such tag).
std::string_view OpeningTag(std::string_view line, std::string_view item, size_t& end) {
    end = std::string_view::npos;
    const size_t start = ImportXMLOuvertureItem(line, item);
    if (start == std::string_view::npos) return {};
    end = line.find('>', start);
    return line.substr(start, (end == std::string_view::npos ? line.size() : end) - start);
}

}  // namespace

std::optional<std::string> ImportXMLAttribut(std::string_view line, std::string_view item,
                                             std::string_view name) {
    size_t end;
    const std::string_view tag = OpeningTag(line, item, end);
    if (tag.data() == nullptr) return std::nullopt;
    std::optional<std::string_view> value = AttributeIn(tag, name);
    if (!value) return std::nullopt;
    return std::string(*value);
}

std::string ImportXMLExtraitBalise(std::string_view line, std::string_view tag, int mode,
                                   long long& number) {
    if (mode == kExtraitAttribut) {
        number = 0;
        if (auto n = ImportXMLAttribut(line, tag, "N")) {
            std::string digits = Trim(*n);
            size_t i = digits.empty() || digits[0] != '-' ? 0 : 1;
            for (; i < digits.size() && digits[i] >= '0' && digits[i] <= '9'; ++i)
                number = number * 10 + (digits[i] - '0');
            if (!digits.empty() && digits[0] == '-') number = -number;
        }
        return ImportXMLAttribut(line, tag, "Id").value_or("");
    }
    std::string open;
    open.reserve(tag.size() + 3);
    open.append("<").append(tag).append(">");
    size_t at = line.find(open);
    if (at == std::string_view::npos) return "";
    size_t start = at + open.size();
    open.insert(1, "/");  // now the closing tag
    size_t close = line.find(open, start);
    if (close == std::string_view::npos) close = line.find('<', start);
    if (close == std::string_view::npos) close = line.size();
    return ImportXMLNettoieCDATA(line.substr(start, close - start));
}

namespace {

// What follows the item's opening tag (which ends at `start`) up to its last closing tag.
std::string_view ContentAfter(std::string_view line, std::string_view item, size_t start) {
    if (start == std::string_view::npos) return line;
    // The last "</item>": the record's closing tag usually ends the line.
    size_t end = line.size();
    for (size_t at = line.rfind("</"); at != std::string_view::npos && at > start;
         at = at == 0 ? std::string_view::npos : line.rfind("</", at - 1)) {
        if (line.compare(at + 2, item.size(), item) == 0 && at + 2 + item.size() < line.size() &&
            line[at + 2 + item.size()] == '>') {
            end = at;
            break;
        }
    }
    return line.substr(start + 1, end - start - 1);
}

}  // namespace

std::string_view ImportXMLContenu(std::string_view line, std::string_view item) {
    const size_t start = ImportXMLOuvertureItem(line, item);
    return ContentAfter(line, item,
                        start == std::string_view::npos ? start : line.find('>', start));
}

namespace {

std::string_view WithoutCdata(std::string_view text) {
    constexpr std::string_view kOpen = "<![CDATA[";
    constexpr std::string_view kClose = "]]>";
    if (StartsWith(text, kOpen)) text.remove_prefix(kOpen.size());
    if (EndsWith(text, kClose)) text.remove_suffix(kClose.size());
    return text;
}

bool NameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

}  // namespace

XmlElements::XmlElements(std::string_view line, std::string_view item, bool collect)
    : collect_(collect) {
    size_t tagEnd;
    opening_ = OpeningTag(line, item, tagEnd);
    const std::string_view content = ContentAfter(line, item, tagEnd);
    if (collect_) elements_.reserve(64);
    std::array<std::string_view, 16> open;  // the elements open, outermost first
    size_t depth = 0;
    size_t valueStart = 0;
    size_t pos = 0;
    while (problem_.empty() && (pos = content.find('<', pos)) != std::string_view::npos) {
        std::string_view rest = content.substr(pos);
        if (rest.size() > 1 && rest[1] == '!' && StartsWith(rest, "<![CDATA[")) {
            size_t end = content.find("]]>", pos);
            if (end == std::string_view::npos) problem_ = "Section CDATA non fermée";
            pos = end + 3;
            continue;
        }
        const bool closing = rest.size() > 1 && rest[1] == '/';
        const size_t at = closing ? 2 : 1;
        if (rest.size() <= at || !NameStart(rest[at])) {  // a "<" in the text
            ++pos;
            continue;
        }
        size_t nameEnd = at;
        while (nameEnd < rest.size() && rest[nameEnd] != '>' && rest[nameEnd] != ' ' &&
               rest[nameEnd] != '/')
            ++nameEnd;
        const std::string_view tag = rest.substr(at, nameEnd - at);
        const size_t tagEnd = rest.find('>');
        if (tagEnd == std::string_view::npos) {
            problem_ = "La balise <" + std::string(tag) + "> n'est pas terminée";
        } else if (closing) {
            if (depth == 0) {
                problem_ = "Balise </" + std::string(tag) + "> inattendue";
            } else if (open[depth - 1] != tag) {
                problem_ = "La balise <" + std::string(open[depth - 1]) + "> n'est pas fermée";
            } else if (--depth == 0) {
                Add(tag, WithoutCdata(content.substr(valueStart, pos - valueStart)));
            }
        } else if (rest[tagEnd - 1] == '/') {
            if (depth == 0) Add(tag, std::string_view());
        } else if (depth == open.size()) {
            problem_ = "La balise <" + std::string(tag) + "> est imbriquée trop profondément";
        } else {
            if (depth == 0) valueStart = pos + tagEnd + 1;
            open[depth++] = tag;
        }
        pos += tagEnd + 1;
    }
    if (depth > 0) {
        if (problem_.empty())
            problem_ = "La balise <" + std::string(open[depth - 1]) + "> n'est pas fermée";
        // What ImportXMLExtraitBalise reads of it: up to the next "<".
        size_t end = content.find('<', valueStart);
        Add(open[0], WithoutCdata(content.substr(valueStart, end == std::string_view::npos
                                                                 ? std::string_view::npos
                                                                 : end - valueStart)));
    }
}

std::string_view XmlElements::Value(std::string_view name, size_t hash) const {
    // Most of the elements a section may hold are absent from a given line: the names' hashes
    // tell so without a search.
    if (!seen_[hash]) return {};
    const size_t n = elements_.size();
    for (size_t i = 0; i < n; ++i) {
        const size_t at = cursor_ + i < n ? cursor_ + i : cursor_ + i - n;
        if (elements_[at].first == name) {
            cursor_ = at + 1 < n ? at + 1 : 0;
            return elements_[at].second;
        }
    }
    return {};
}

std::optional<std::string_view> XmlElements::Attribute(std::string_view name) const {
    return AttributeIn(opening_, name);
}

size_t XmlElements::NameHash(std::string_view name) {
    uint32_t h = 2166136261u;
    for (char c : name) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
    return h & (kHashes - 1);
}

void XmlElements::Add(std::string_view name, std::string_view value) {
    if (!collect_) return;
    // The first of a name wins. A later one is looked for among the earlier names only when
    // its hash was seen before, which a line of distinct names seldom meets.
    const size_t h = NameHash(name);
    if (seen_[h]) {
        for (const auto& e : elements_)
            if (e.first == name) return;
    }
    seen_.set(h);
    elements_.emplace_back(name, value);
}

bool ImportXMLHasElement(std::string_view line, std::string_view tag) {
    std::string open = "<" + std::string(tag);
    for (size_t at = line.find(open); at != std::string_view::npos; at = line.find(open, at + 1)) {
        size_t end = at + open.size();
        if (end < line.size() && (line[end] == '>' || line[end] == '/' || line[end] == ' '))
            return true;
    }
    return false;
}

std::string ImportXMLNettoieCDATA(std::string_view text) {
    constexpr std::string_view kOpen = "<![CDATA[";
    constexpr std::string_view kClose = "]]>";
    if (StartsWith(text, kOpen)) text.remove_prefix(kOpen.size());
    if (EndsWith(text, kClose)) text.remove_suffix(kClose.size());
    return std::string(text);
}

std::string FiltreChaine(std::string_view text) {
    std::string out(text);
    if (out.find('&') != std::string::npos) {
        for (const auto& [from, to] : kEntities) {
            if (out.find(from) != std::string::npos) out = ReplaceAll(out, from, to);
        }
    }
    if (HasLeadByte(out)) {
        for (const AccentRepair& r : kRepairs) {
            if (out.find(r.sequence) != std::string::npos)
                out = ReplaceAll(out, r.sequence, r.letter);
        }
    }
    return out;
}

bool FiltreChaineUtile(std::string_view text) {
    return text.find('&') != std::string_view::npos || HasLeadByte(text);
}

const std::vector<AccentRepair>& AccentRepairs() {
    return kRepairs;
}

std::string ImportXMLEchappe(std::string_view text) {
    return XmlEscaped(text);
}

XmlItemLine::XmlItemLine(std::string item) : item_(std::move(item)) {}

XmlItemLine& XmlItemLine::Attribute(std::string_view name, std::string_view utf8) {
    attributes_.append(" ").append(name).append("=\"");
    attributes_.append(ImportXMLEchappe(Cp1252FromUtf8(utf8))).append("\"");
    return *this;
}

XmlItemLine& XmlItemLine::Element(std::string_view name, std::string_view utf8) {
    return RawElement(name, ImportXMLEchappe(Cp1252FromUtf8(utf8)));
}

XmlItemLine& XmlItemLine::Cdata(std::string_view name, std::string_view utf8) {
    return RawElement(name, "<![CDATA[" + Cp1252FromUtf8(utf8) + "]]>");
}

XmlItemLine& XmlItemLine::RawElement(std::string_view name, std::string_view bytes) {
    body_.append("<").append(name).append(">").append(bytes);
    body_.append("</").append(name).append(">");
    return *this;
}

std::string XmlItemLine::Line() const {
    return "<" + item_ + attributes_ + ">" + body_ + "</" + item_ + ">";
}

}  // namespace toverin
