// Typed access to one record buffer through its layout: every operation reads and writes fields
// by name, never by offset. The buffer is a std::string of exactly the record length holding
// Windows-1252 bytes, as the engine returns it.
//
//   std::string record = BlankRecord(35);
//   RecordView event(35, record);
//   event.SetText("Date", "20260302");
//   event.SetNumber("Sequence", event.Number("Sequence") + 10000);
//   std::string title = event.Utf8("Title");
//
// Repeated headings take an occurrence counted from 0 (file 33: Text("Date", 2) is the third
// date). Unknown names and a buffer of the wrong length are programming errors and throw
// std::invalid_argument, so that a misspelt field fails the first test that uses it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/RecordLayout.h"

namespace toverin {

class RecordView {
  public:
    // A view that reads and writes `record`.
    RecordView(const RecordLayout& layout, std::string& record);
    // A read-only view; the setters throw std::logic_error.
    RecordView(const RecordLayout& layout, const std::string& record);
    // The layout is chosen by the record (LayoutForRecord): file 21's VER and VEE forms.
    RecordView(int fileNumber, std::string& record);
    RecordView(int fileNumber, const std::string& record);

    const RecordLayout& layout() const { return *layout_; }
    bool Has(std::string_view name, int occurrence = 0) const;

    // The field's bytes as stored (Windows-1252, padded).
    std::string Raw(std::string_view name, int occurrence = 0) const;
    // The bytes without trailing blanks (Windows-1252), for comparisons and keys.
    std::string Text(std::string_view name, int occurrence = 0) const;
    // The text without trailing blanks, in UTF-8, for the screen and the log.
    std::string Utf8(std::string_view name, int occurrence = 0) const;
    // Windows-1252 bytes, cut to the width or padded with blanks.
    void SetRaw(std::string_view name, std::string_view bytes, int occurrence = 0);
    // UTF-8 text, converted to Windows-1252, cut to the width or padded with blanks.
    void SetText(std::string_view name, std::string_view utf8, int occurrence = 0);

    // The field read as a decimal number; 0 when it holds no digits (a blank field).
    long long Number(std::string_view name, int occurrence = 0) const;
    // Writes the number zero-padded to the width ("-" first when negative). A number too wide
    // for the field is refused: the field is left unchanged and the result is false.
    [[nodiscard]] bool SetNumber(std::string_view name, long long value, int occurrence = 0);

    // One part of a composite field (a date in parts, a list), raw; SetPart takes UTF-8 and
    // pads or cuts to the part's width.
    std::string Part(std::string_view name, int part, int occurrence = 0) const;
    void SetPart(std::string_view name, int part, std::string_view utf8, int occurrence = 0);

    // The record cut into the data viewer's columns (the shown fields), in UTF-8: each field
    // trimmed, the parts of a date joined by "/", list items by ",".
    std::vector<std::string> Columns() const;
    // The same into `columns`, reusing its strings (a reader that cuts record after record).
    void ColumnsInto(std::vector<std::string>& columns) const;

  private:
    const Field& Resolve(std::string_view name, int occurrence) const;
    std::string& Writable();

    const RecordLayout* layout_;
    const std::string* record_;
    std::string* writable_;
};

// The viewer's and the dump's cut of a record of a file (layout chosen by the record).
std::vector<std::string> CutRecord(int fileNumber, const std::string& record);
void CutRecordInto(int fileNumber, const std::string& record, std::vector<std::string>& cells);
// The value of key `keyNumber` in a record: its segments' bytes joined, as the engine builds it
// (before any upper-casing of case-insensitive segments). Used to read a record again by its
// own key. Empty when the file has no such key.
std::string KeyOf(int fileNumber, int keyNumber, std::string_view record);
// Headings matching CutRecord for this record.
std::vector<std::string> HeadingsForRecord(int fileNumber, const std::string& record);

}  // namespace toverin
