// The suite's XML delivery format for commercial and programme data (module Lib_ImportXML): the
// declaration, the "<KV3>" root, the thirteen sections and their items, and the primitives that
// read a value out of a record line. The format is line-based: every section tag and every record
// stands on a line of its own, a record being one line that holds both its item's opening and
// closing tag, so a line reader is all it needs (and all the suite's own writer guarantees).
//
//   <?xml version="1.0" encoding="ISO-8859-1" ?>
//   <KV3>
//   <KV3_Customer>
//   <Customer Id="CLI00001"><Name10>Caf&#233;</Name10><Town10>Lille</Town10>...</Customer>
//   </KV3_Customer>
//   </KV3>
//
// Files are ISO-8859-1 as Windows programs write it (bytes 0x80..0x9F carry the Windows-1252
// letters), so a value's bytes, once decoded, are already the Windows-1252 text of a record.
#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace toverin {

inline constexpr const char* kModuleImportXML = "Lib_ImportXML";

// "<?xml version="1.0" encoding="ISO-8859-1" ?>", the first line of every file.
std::string EnteteFichierXML();
inline constexpr const char* kRootOpen = "<KV3>";
inline constexpr const char* kRootClose = "</KV3>";

enum class XmlSection {
    Commercial,
    ActivitySector,
    Customer,
    Product,
    Contract,
    CtrSpot,
    CtrSpotSchedule,
    Artist,
    Diverse,
    Workshop,
    Strategy,
    WorkshopSound,
    Clock,
    Sound,
};
// Thirteen kinds of data in fourteen section elements: songs come as Workshop, their
// priorities as Strategy.
inline constexpr int kXmlSectionCount = 14;

struct XmlSectionInfo {
    XmlSection section;
    const char* element;  // "KV3_Customer"
    const char* item;     // "Customer": the element of one record
    int fileNumber;       // the record file it writes
    const char* label;    // French name, for ComboTypeImportXML
};

// Every section, in the order the suite writes them.
const std::vector<XmlSectionInfo>& ImportXMLSections();
const XmlSectionInfo& SectionInfo(XmlSection section);
// The section whose element is `element` ("KV3_Customer"), nullptr for none.
const XmlSectionInfo* SectionByElement(std::string_view element);

// ImportXMLExtraitBalise modes.
inline constexpr int kExtraitElement = 1;
inline constexpr int kExtraitAttribut = 2;

// The value of element `tag` of a record line (mode 1): the text after "<tag>" up to "</tag>",
// or failing that up to the next "<", without its CDATA wrapper; "" when the element is absent.
// Mode 2 reads the attributes of the opening tag of item `tag`: the number after " N=" into
// `number` (0 when there is none) and the text after " Id=" as the result. Values come back
// raw: FiltreChaine decodes them.
std::string ImportXMLExtraitBalise(std::string_view line, std::string_view tag, int mode,
                                   long long& number);
// One attribute of the opening tag of item `item` (" N=", " Id="), raw; nothing when absent.
std::optional<std::string> ImportXMLAttribut(std::string_view line, std::string_view item,
                                             std::string_view name);
// The position just after the name in the opening tag of item `item` ("<Customer" followed by
// a blank or ">"), npos when the line has none: "<Workshop" does not open "<Workshop_Sound".
size_t ImportXMLOuvertureItem(std::string_view line, std::string_view item);
// What lies between the opening tag of item `item` and its last closing tag: where its child
// elements are looked for (an item may hold an element of its own name: <Strategy> does). The
// whole line when the item's tags are not there.
std::string_view ImportXMLContenu(std::string_view line, std::string_view item);
// Whether the line holds element `tag` at all (an empty element counts).
bool ImportXMLHasElement(std::string_view line, std::string_view tag);

// The child elements of a record line, found in one pass over it: each with its value as
// ImportXMLExtraitBalise gives it (raw, without its CDATA wrapper), the first of a name winning.
// Reading a record of eighty elements this way costs one pass instead of eighty searches. The
// same pass checks that every element is closed where it should be.
class XmlElements {
  public:
    // With `collect` off the line is only checked: Value then finds nothing.
    XmlElements(std::string_view line, std::string_view item, bool collect = true);
    // The value of element `name`, "" when the line has none.
    std::string_view Value(std::string_view name) const { return Value(name, NameHash(name)); }
    // The same with the name's hash known (NameHash).
    std::string_view Value(std::string_view name, size_t hash) const;
    static size_t NameHash(std::string_view name);
    // An attribute of the item's opening tag (ImportXMLAttribut of the line), raw.
    std::optional<std::string_view> Attribute(std::string_view name) const;
    size_t size() const { return elements_.size(); }
    // What is wrong with the elements of the line ("La balise <Town> n'est pas fermée"), "" when
    // nothing is.
    const std::string& Probleme() const { return problem_; }

  private:
    static constexpr size_t kHashes = 4096;
    void Add(std::string_view name, std::string_view value);

    std::vector<std::pair<std::string_view, std::string_view>> elements_;
    std::bitset<4096> seen_;  // hashes of the names added
    std::string problem_;
    std::string_view opening_;  // the item's opening tag after its name
    bool collect_;
    mutable size_t cursor_ = 0;  // values are mostly asked for in the line's order
};

// Strips a "<![CDATA[" ... "]]>" wrapper.
std::string ImportXMLNettoieCDATA(std::string_view text);

// Decodes the entities the suite writes, each rule on the whole text in this order: "&amp;" and
// "&amp" to "&"; "&apos;", "&apos" and "&#39" to "'"; "&quot" and "&#34" to '"'; "&gt" and
// "&#62" to ">"; "&#38" to "&"; "&lt" and "&#60" to "<" (each bare form preceded by its form
// with a semicolon, so that "&lt;" gives "<" and not "<;"). Then repairs the accented letters
// that arrive as UTF-8 read byte by byte (kAccentRepairs). An "&amp;" followed by "lt" thus
// gives "<": the "&lt" rule sees what the "&amp;" rule made.
std::string FiltreChaine(std::string_view text);

// Whether FiltreChaine could change `text` (it holds an "&" or a byte that starts a repair):
// most values of a delivery need no decoding at all.
bool FiltreChaineUtile(std::string_view text);

// A letter written as UTF-8 and read as ISO-8859-1 (two or three bytes), and the one byte it
// stands for in Windows-1252.
struct AccentRepair {
    const char* sequence;
    const char* letter;
};
const std::vector<AccentRepair>& AccentRepairs();

// ---- Writing, for the demo site, the tests and the benchmarks

// The escaped form of a Windows-1252 text as the suite writes it: "&amp;", "&lt;", "&gt;",
// "&quot;", "&apos;".
std::string ImportXMLEchappe(std::string_view text);

// One record line: the item's opening tag with its attributes, the child elements, the closing
// tag. Values are UTF-8 and are written in Windows-1252 (ISO-8859-1), escaped or in CDATA.
class XmlItemLine {
  public:
    explicit XmlItemLine(std::string item);
    XmlItemLine& Attribute(std::string_view name, std::string_view utf8);
    XmlItemLine& Element(std::string_view name, std::string_view utf8);
    XmlItemLine& Cdata(std::string_view name, std::string_view utf8);
    // Bytes written as they are (already Windows-1252 and escaped), for files that must carry
    // something the writer would not produce.
    XmlItemLine& RawElement(std::string_view name, std::string_view bytes);
    std::string Line() const;  // without a line end

  private:
    std::string item_;
    std::string attributes_;
    std::string body_;
};

}  // namespace toverin
