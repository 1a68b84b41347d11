#include "store/RecordView.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "app/Text.h"
#include "store/Catalogue.h"

namespace toverin {

namespace {

void CheckLength(const RecordLayout& layout, const std::string& record) {
    if (layout.fields.empty() || record.size() != layout.recordLength) {
        throw std::invalid_argument("record of file " + std::to_string(layout.fileNumber) + ": " +
                                    std::to_string(record.size()) + " bytes for a layout of " +
                                    std::to_string(layout.recordLength));
    }
}

std::string JoinParts(const Field& field, std::string_view bytes) {
    std::string joined;
    size_t at = 0;
    for (size_t i = 0; i < field.parts.size(); ++i) {
        if (i > 0) joined += field.kind == FieldKind::DateParts ? "/" : ",";
        joined += Utf8FromCp1252(TrimView(bytes.substr(at, field.parts[i])));
        at += field.parts[i];
    }
    return joined;
}

}  // namespace

RecordView::RecordView(const RecordLayout& layout, std::string& record)
    : layout_(&layout), record_(&record), writable_(&record) {
    CheckLength(layout, record);
}

RecordView::RecordView(const RecordLayout& layout, const std::string& record)
    : layout_(&layout), record_(&record), writable_(nullptr) {
    CheckLength(layout, record);
}

RecordView::RecordView(int fileNumber, std::string& record)
    : RecordView(LayoutForRecord(fileNumber, record), record) {}

RecordView::RecordView(int fileNumber, const std::string& record)
    : RecordView(LayoutForRecord(fileNumber, record), record) {}

const Field& RecordView::Resolve(std::string_view name, int occurrence) const {
    const Field* field = layout_->Find(name, occurrence);
    if (!field) {
        throw std::invalid_argument("file " + std::to_string(layout_->fileNumber) + layout_->form +
                                    " has no field " + std::string(name) + " #" +
                                    std::to_string(occurrence));
    }
    return *field;
}

std::string& RecordView::Writable() {
    if (!writable_) throw std::logic_error("write through a read-only record view");
    return *writable_;
}

bool RecordView::Has(std::string_view name, int occurrence) const {
    return layout_->Find(name, occurrence) != nullptr;
}

std::string RecordView::Raw(std::string_view name, int occurrence) const {
    const Field& f = Resolve(name, occurrence);
    return record_->substr(f.offset, f.width);
}

std::string RecordView::Text(std::string_view name, int occurrence) const {
    return TrimRight(Raw(name, occurrence));
}

std::string RecordView::Utf8(std::string_view name, int occurrence) const {
    return Utf8FromCp1252(Text(name, occurrence));
}

void RecordView::SetRaw(std::string_view name, std::string_view bytes, int occurrence) {
    const Field& f = Resolve(name, occurrence);
    Writable().replace(f.offset, f.width, FixedWidth(bytes, f.width));
}

void RecordView::SetText(std::string_view name, std::string_view utf8, int occurrence) {
    SetRaw(name, Cp1252FromUtf8(utf8), occurrence);
}

long long RecordView::Number(std::string_view name, int occurrence) const {
    std::string text = Trim(Raw(name, occurrence));
    bool negative = !text.empty() && text[0] == '-';
    long long value = 0;
    for (size_t i = negative ? 1 : 0; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) break;
        value = value * 10 + (text[i] - '0');
    }
    return negative ? -value : value;
}

bool RecordView::SetNumber(std::string_view name, long long value, int occurrence) {
    const Field& f = Resolve(name, occurrence);
    std::string digits = ZeroPad(value, value < 0 ? f.width - 1 : f.width);
    if (digits.size() > f.width) return false;
    Writable().replace(f.offset, f.width, digits);
    return true;
}

std::string RecordView::Part(std::string_view name, int part, int occurrence) const {
    const Field& f = Resolve(name, occurrence);
    if (part < 0 || part >= static_cast<int>(f.parts.size())) {
        throw std::invalid_argument("field " + f.name + " has no part " + std::to_string(part));
    }
    size_t at = f.offset;
    for (int i = 0; i < part; ++i) at += f.parts[i];
    return record_->substr(at, f.parts[part]);
}

void RecordView::SetPart(std::string_view name, int part, std::string_view utf8, int occurrence) {
    const Field& f = Resolve(name, occurrence);
    if (part < 0 || part >= static_cast<int>(f.parts.size())) {
        throw std::invalid_argument("field " + f.name + " has no part " + std::to_string(part));
    }
    size_t at = f.offset;
    for (int i = 0; i < part; ++i) at += f.parts[i];
    Writable().replace(at, f.parts[part], FixedWidth(Cp1252FromUtf8(utf8), f.parts[part]));
}

std::vector<std::string> RecordView::Columns() const {
    std::vector<std::string> columns;
    ColumnsInto(columns);
    return columns;
}

void RecordView::ColumnsInto(std::vector<std::string>& columns) const {
    size_t n = 0;
    for (const Field& f : layout_->fields) {
        if (!f.shown) continue;
        if (n == columns.size()) columns.emplace_back();
        std::string& cell = columns[n++];
        std::string_view bytes = std::string_view(*record_).substr(f.offset, f.width);
        // Blanks are ASCII: trimmed before the conversion, they come off the same.
        std::string_view trimmed = TrimView(bytes);
        if (f.IsComposite()) {
            cell = JoinParts(f, bytes);
        } else if (std::all_of(trimmed.begin(), trimmed.end(),
                               [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
            cell.clear();  // keeps the cell's storage from the previous record
            cell.append(trimmed);
        } else {
            cell = Utf8FromCp1252(trimmed);
        }
    }
    columns.resize(n);
}

std::vector<std::string> CutRecord(int fileNumber, const std::string& record) {
    return RecordView(fileNumber, record).Columns();
}

void CutRecordInto(int fileNumber, const std::string& record, std::vector<std::string>& cells) {
    RecordView(fileNumber, record).ColumnsInto(cells);
}

std::string KeyOf(int fileNumber, int keyNumber, std::string_view record) {
    std::vector<std::vector<KeySegment>> keys = KeysOf(fileNumber);
    if (keyNumber < 0 || keyNumber >= static_cast<int>(keys.size())) return "";
    std::string key;
    for (const KeySegment& segment : keys[keyNumber]) {
        key += record.substr(std::min<size_t>(segment.position - 1, record.size()), segment.length);
    }
    return key;
}

std::vector<std::string> HeadingsForRecord(int fileNumber, const std::string& record) {
    return LayoutForRecord(fileNumber, record).Headings();
}

}  // namespace toverin
