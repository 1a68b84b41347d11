// Builds a RecordLayout field by field: offsets follow from the widths, and the rest of the
// record becomes one "Filler" field. Used only by the layout tables.
#pragma once

#include <initializer_list>
#include <string>

#include "store/RecordLayout.h"

namespace toverin::layout {

class LayoutBuilder {
  public:
    LayoutBuilder(int fileNumber, uint32_t recordLength, std::string form = "");

    LayoutBuilder& Text(const std::string& name, uint16_t width);
    LayoutBuilder& Num(const std::string& name, uint16_t width);
    LayoutBuilder& Date(const std::string& name);
    LayoutBuilder& Time(const std::string& name, uint16_t width = 6);
    LayoutBuilder& DateParts(const std::string& name, std::initializer_list<uint16_t> parts);
    LayoutBuilder& List(const std::string& name, int count, uint16_t itemWidth, bool numeric);
    LayoutBuilder& Parts(const std::string& name, std::initializer_list<uint16_t> parts);
    // The last field added is kept out of the viewer's columns.
    LayoutBuilder& Hidden();
    // A name for the run of `count` fields that starts at the first field named `first`
    // (already added).
    LayoutBuilder& Alias(const std::string& name, const std::string& first, int count = 1,
                         FieldKind kind = FieldKind::Text);

    // Ends the layout; the bytes left become `fillerName`, shown or not.
    RecordLayout Build(const std::string& fillerName = "Filler", bool showFiller = true);

  private:
    LayoutBuilder& Add(Field field);
    RecordLayout layout_;
    uint32_t offset_ = 0;
};

}  // namespace toverin::layout

namespace toverin::layout {

// The tables (RecordLayoutTables*.cpp): one layout per file number 0..50, empty where the
// catalogue has no file; the "VER" and "VEE" forms of file 21; file 8's headings.
std::vector<RecordLayout> FileLayouts0To19();
std::vector<RecordLayout> FileLayouts20To49();
RecordLayout Layout21Ver();
RecordLayout Layout21Vee();
std::vector<std::string> File8Headings();

}  // namespace toverin::layout
