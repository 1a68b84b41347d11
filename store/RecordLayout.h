// Declarative layouts of the records of every catalogue file: each field's name (the heading the
// data viewer shows), offset, width and kind, in record order, covering the whole record.
//
// Naming: a field is addressed by its heading and, where a heading repeats (file 33 has three
// "Date"), by its occurrence counted from 0 in record order. Headings are matched ignoring
// trailing blanks ("Category " of file 34 answers to "Category"). Some layouts add aliases:
// names for a run of whole fields that the operations use under a meaning of their own, such
// as "Sequence" over "MM", "SS" and "NN" of file 35; an alias is never shown as a column.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace toverin {

enum class FieldKind {
    Text,       // blank-padded text, Windows-1252
    Number,     // decimal, zero-padded to the width ("-" first when negative)
    Date,       // "YYYYMMDD"
    Time,       // "HHMMSS", "HHMM", or a lone "HH" or "MM" on two digits
    DateParts,  // a date in parts of their own (year, month, day, hour, minute …), shown "a/b/c"
    List,       // consecutive items, shown "a,b,c"
};

struct Field {
    std::string name;
    uint16_t offset = 0;  // 0-based
    uint16_t width = 0;
    FieldKind kind = FieldKind::Text;
    std::vector<uint16_t> parts;  // widths of the parts of a DateParts or List field
    bool numeric = false;         // blank record holds zeros (Number, and lists of numbers)
    bool shown = true;            // a column of the data viewer

    bool IsComposite() const { return kind == FieldKind::DateParts || kind == FieldKind::List; }
    uint16_t End() const { return static_cast<uint16_t>(offset + width); }
};

struct RecordLayout {
    int fileNumber = -1;
    std::string form;  // "" for the file's records; "VER" or "VEE" for those forms of file 21
    uint32_t recordLength = 0;
    std::vector<Field> fields;   // record order, contiguous from offset 0 to recordLength
    std::vector<Field> aliases;  // named runs of whole fields, never shown

    // The field `name` (trailing blanks ignored), its `occurrence`-th in record order, else an
    // alias of that name (occurrence 0); nullptr when there is none.
    const Field* Find(std::string_view name, int occurrence = 0) const;
    // Headings of the shown fields, in record order.
    std::vector<std::string> Headings() const;
};

// The layout of file 0..49; an empty layout (no fields, length 0) for the empty entries and
// numbers outside the catalogue.
const RecordLayout& LayoutFor(int fileNumber);
// The layout a record of the file is cut by: file 21 records whose header reads "VER" or "VEE"
// have forms of their own; every other record uses LayoutFor.
const RecordLayout& LayoutForRecord(int fileNumber, std::string_view record);
// The forms of file 21 by header text ("VER", "VEE"); LayoutFor(21) for any other header.
const RecordLayout& Layout21Form(std::string_view header);

// Column headings of the data viewer for a file: 136 for 22 and 47, 78 for 25, 27 for 46, 49
// for 49, 34 for 3, the named fields (and the rest as "Filler") for the others. Files 0 and 9
// share one list; numbers above 49 have none. File 8, an empty entry, keeps its old list.
std::vector<std::string> VisuDataInitCol(int fileNumber);

// A record of the file with every field at its empty value: blanks, and zeros in numeric fields
// (numbers and numeric lists). Dates and times stay blank: a zero date would read as a real one.
std::string BlankRecord(int fileNumber);
std::string BlankRecord(const RecordLayout& layout);

}  // namespace toverin
