// The demo site's sample deliveries: in the suite's format, using every section and every
// feature of it, and complete in themselves.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "app/DateTime.h"
#include "content/ImportXMLMapping.h"
#include "content/ImportXMLReader.h"
#include "tests/support/TestSupport.h"
#include "tools/DemoSite.h"

namespace toverin {
namespace {

// Builds every record as an import into an empty base would, keeping what it would write.
class EmptyBaseImport final : public XmlDeliveryVisitor {
  public:
    bool Record(const XmlSectionInfo& section, long lineNumber, std::string_view line,
                const XmlElements& elements) override {
        ++sections[section.element];
        XmlRecordBuild b = ImportXMLConstruitEnregistrement(section, line, elements, context);
        if (!b.ok) refusals.push_back(std::to_string(lineNumber) + ": " + b.refusal);
        for (const std::string& w : b.warnings)
            warnings.push_back(std::to_string(lineNumber) + ": " + w);
        if (b.ok)
            base.Put(section.fileNumber, ImportXMLRegles(section.section).identityKey, b.record);
        return true;
    }
    void Ignored(long lineNumber, const std::string& reason) override {
        ignored.push_back(std::to_string(lineNumber) + ": " + reason);
    }
    ImportXMLMemoire base;
    ImportXMLContexte context{base, MusicSettings(), "", {}};
    std::map<std::string, int> sections;
    std::vector<std::string> refusals, warnings, ignored;
};

TEST(DemoDeliveries, EverySectionAndFeatureOfTheFormatImportIntoAnEmptyBase) {
    testing::TempDir dir;
    std::vector<std::string> files = WriteDemoDeliveries(dir.folder(), MakeLocalTime(2026, 3, 2));
    ASSERT_EQ(files.size(), 2u);
    EmptyBaseImport import;
    std::string everything;
    for (const std::string& f : files) {
        XmlReadResult result = ImportXMLLireFichier(f, import);
        EXPECT_TRUE(result.ok) << f << ": " << result.message;
        everything += testing::ReadFile(f);
    }
    EXPECT_TRUE(import.refusals.empty()) << ::testing::PrintToString(import.refusals);
    EXPECT_TRUE(import.warnings.empty()) << ::testing::PrintToString(import.warnings);
    EXPECT_TRUE(import.ignored.empty()) << ::testing::PrintToString(import.ignored);
    for (const XmlSectionInfo& s : ImportXMLSections())
        EXPECT_GT(import.sections[s.element], 0) << s.element;
    // Written as the suite writes: CRLF, ISO-8859-1 accents, entities, CDATA, both attributes,
    // and a name sent as UTF-8 for the import to repair.
    EXPECT_EQ(everything.rfind("<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n", 0),
              0u);
    for (const char* feature : {"Caf\xE9", "&amp;", "&apos;", "&quot;", "<![CDATA[", " N=\"",
                                " Id=\"", "Comptabilit\xC3\xA9"})
        EXPECT_NE(everything.find(feature), std::string::npos) << feature;
    EXPECT_EQ(import.base.Size(22), 3u);
    EXPECT_EQ(import.base.Size(26), 2u);
}

}  // namespace
}  // namespace toverin
