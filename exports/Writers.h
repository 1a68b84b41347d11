// The concrete writers behind OpenExport, one per format.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "exports/Export.h"

namespace toverin {

// CSV or XML to `path`, or to `out` when it is given.
std::unique_ptr<ExportWriter> MakeTextWriter(ExportFormat format, const std::string& path,
                                             std::ostream* out, const ExportOptions& options);
std::unique_ptr<ExportWriter> MakeXlsWriter(const std::string& path, const ExportOptions& options);
std::unique_ptr<ExportWriter> MakeXlsxWriter(const std::string& path, const ExportOptions& options);

}  // namespace toverin
