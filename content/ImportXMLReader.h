// Reading a delivery line by line (module Lib_ImportXML). The reader checks the whole envelope as
// it goes — the declaration, the "<KV3>" root, known sections opened and closed on lines of their
// own, every element of a record closed on its line, no control character, no endless line — and
// hands each record line to a visitor. Anything it cannot accept ends the reading with a French
// message naming the line, so the importer reads a file once through before writing anything and
// a bad file leaves the base as it was.
#pragma once

#include <string>
#include <string_view>

#include "content/ImportXMLFormat.h"

namespace toverin {

// Longest line the reader accepts: a record of every workshop element runs to a few kilobytes.
inline constexpr size_t kImportXMLMaxLine = 65536;

struct XmlReadResult {
    bool ok = false;       // the file was read to its end and is in the suite's format
    bool stopped = false;  // the visitor asked to stop
    std::string message;   // why the file was refused (French)
    long errorLine = 0;    // the line the message is about, 0 for the file as a whole
    long lines = 0;        // lines read
    long records = 0;      // record lines handed to the visitor
    long ignored = 0;      // lines that are neither structure nor a record (split records ...)
};

class XmlDeliveryVisitor {
  public:
    virtual ~XmlDeliveryVisitor() = default;
    // One record, with its elements read; false stops the reading.
    virtual bool Record(const XmlSectionInfo& section, long lineNumber, std::string_view line,
                        const XmlElements& elements) = 0;
    // A line left aside, with the reason (French).
    virtual void Ignored(long /*lineNumber*/, const std::string& /*reason*/) {}
    // Whether Record reads the elements; a visitor that does not gets them checked only.
    virtual bool WantsElements() const { return true; }
};

// Checks the file only.
class XmlNullVisitor final : public XmlDeliveryVisitor {
  public:
    bool Record(const XmlSectionInfo&, long, std::string_view, const XmlElements&) override {
        return true;
    }
    bool WantsElements() const override { return false; }
};

// Reads `path` (ISO-8859-1) through the visitor. Memory stays within one line and one buffer.
// `checkBytes` off skips the search for control characters, for a file read through once
// already and unchanged since.
XmlReadResult ImportXMLLireFichier(const std::string& path, XmlDeliveryVisitor& visitor,
                                   bool checkBytes = true);

// The reason a record line cannot be read, "" when every element on it is closed.
std::string ImportXMLVerifieLigne(std::string_view line, std::string_view item, long lineNumber);

}  // namespace toverin
