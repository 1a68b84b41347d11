#include "store/RecordLayout.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>

#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/LayoutBuilder.h"

namespace toverin {

namespace layout {

LayoutBuilder::LayoutBuilder(int fileNumber, uint32_t recordLength, std::string form) {
    layout_.fileNumber = fileNumber;
    layout_.recordLength = recordLength;
    layout_.form = std::move(form);
}

LayoutBuilder& LayoutBuilder::Add(Field field) {
    field.offset = static_cast<uint16_t>(offset_);
    offset_ += field.width;
    layout_.fields.push_back(std::move(field));
    return *this;
}

LayoutBuilder& LayoutBuilder::Text(const std::string& name, uint16_t width) {
    return Add(Field{name, 0, width, FieldKind::Text, {}, false, true});
}

LayoutBuilder& LayoutBuilder::Num(const std::string& name, uint16_t width) {
    return Add(Field{name, 0, width, FieldKind::Number, {}, true, true});
}

LayoutBuilder& LayoutBuilder::Date(const std::string& name) {
    return Add(Field{name, 0, 8, FieldKind::Date, {}, false, true});
}

LayoutBuilder& LayoutBuilder::Time(const std::string& name, uint16_t width) {
    return Add(Field{name, 0, width, FieldKind::Time, {}, false, true});
}

LayoutBuilder& LayoutBuilder::DateParts(const std::string& name,
                                        std::initializer_list<uint16_t> parts) {
    uint16_t width = 0;
    for (uint16_t p : parts) width = static_cast<uint16_t>(width + p);
    return Add(Field{name, 0, width, FieldKind::DateParts, parts, false, true});
}

LayoutBuilder& LayoutBuilder::List(const std::string& name, int count, uint16_t itemWidth,
                                   bool numeric) {
    std::vector<uint16_t> parts(count, itemWidth);
    return Add(Field{name, 0, static_cast<uint16_t>(count * itemWidth), FieldKind::List, parts,
                     numeric, true});
}

LayoutBuilder& LayoutBuilder::Parts(const std::string& name,
                                    std::initializer_list<uint16_t> parts) {
    uint16_t width = 0;
    for (uint16_t p : parts) width = static_cast<uint16_t>(width + p);
    return Add(Field{name, 0, width, FieldKind::List, parts, false, true});
}

LayoutBuilder& LayoutBuilder::Hidden() {
    layout_.fields.back().shown = false;
    return *this;
}

LayoutBuilder& LayoutBuilder::Alias(const std::string& name, const std::string& first, int count,
                                    FieldKind kind) {
    const std::vector<Field>& fields = layout_.fields;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].name != first) continue;
        size_t last = std::min(fields.size(), i + count) - 1;
        uint16_t width = static_cast<uint16_t>(fields[last].End() - fields[i].offset);
        layout_.aliases.push_back(
            Field{name, fields[i].offset, width, kind, {}, kind == FieldKind::Number, false});
        return *this;
    }
    throw std::logic_error("layout alias " + name + ": no field " + first);
}

RecordLayout LayoutBuilder::Build(const std::string& fillerName, bool showFiller) {
    if (offset_ < layout_.recordLength) {
        Add(Field{fillerName,
                  0,
                  static_cast<uint16_t>(layout_.recordLength - offset_),
                  FieldKind::Text,
                  {},
                  false,
                  showFiller});
    }
    return std::move(layout_);
}

}  // namespace layout

namespace {

struct Layouts {
    std::array<RecordLayout, kCatalogueSize> files;
    RecordLayout ver;
    RecordLayout vee;
};

const Layouts& AllLayouts() {
    static const Layouts all = [] {
        Layouts l;
        for (auto* part : {layout::FileLayouts0To19, layout::FileLayouts20To49}) {
            for (RecordLayout& r : part()) {
                if (r.fileNumber >= 0 && r.fileNumber < kCatalogueSize) {
                    l.files[r.fileNumber] = std::move(r);
                }
            }
        }
        l.ver = layout::Layout21Ver();
        l.vee = layout::Layout21Vee();
        return l;
    }();
    return all;
}

std::string_view WithoutTrailingBlanks(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

// Called for every field access of every record built in bulk, so it compares in place.
bool SameName(std::string_view heading, std::string_view name) {
    return WithoutTrailingBlanks(heading) == WithoutTrailingBlanks(name);
}

}  // namespace

const Field* RecordLayout::Find(std::string_view name, int occurrence) const {
    int seen = 0;
    for (const Field& f : fields) {
        if (SameName(f.name, name) && seen++ == occurrence) return &f;
    }
    if (occurrence == 0) {
        for (const Field& f : aliases) {
            if (SameName(f.name, name)) return &f;
        }
    }
    return nullptr;
}

std::vector<std::string> RecordLayout::Headings() const {
    std::vector<std::string> headings;
    for (const Field& f : fields) {
        if (f.shown) headings.push_back(f.name);
    }
    return headings;
}

const RecordLayout& LayoutFor(int fileNumber) {
    static const RecordLayout empty{};
    if (fileNumber < 0 || fileNumber >= kCatalogueSize) return empty;
    return AllLayouts().files[fileNumber];
}

const RecordLayout& Layout21Form(std::string_view header) {
    std::string h = Trim(header);
    if (h == "VER") return AllLayouts().ver;
    if (h == "VEE") return AllLayouts().vee;
    return LayoutFor(21);
}

const RecordLayout& LayoutForRecord(int fileNumber, std::string_view record) {
    if (fileNumber == 21) return Layout21Form(record.substr(0, 5));
    return LayoutFor(fileNumber);
}

std::vector<std::string> VisuDataInitCol(int fileNumber) {
    if (fileNumber == 8) return layout::File8Headings();
    if (fileNumber == 9) fileNumber = 0;
    if (fileNumber < 0 || fileNumber > 49) return {};
    return LayoutFor(fileNumber).Headings();
}

std::string BlankRecord(const RecordLayout& layout) {
    std::string record(layout.recordLength, ' ');
    for (const Field& f : layout.fields) {
        if (f.numeric && f.End() <= record.size()) record.replace(f.offset, f.width, f.width, '0');
    }
    return record;
}

std::string BlankRecord(int fileNumber) {
    return BlankRecord(LayoutFor(fileNumber));
}

}  // namespace toverin
