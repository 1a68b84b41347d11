#include "content/ImportXMLReader.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

using testing::TempDir;
using testing::WriteFile;

struct Seen {
    std::string section;
    long line;
    std::string text;
};

class Recorder final : public XmlDeliveryVisitor {
  public:
    bool Record(const XmlSectionInfo& section, long lineNumber, std::string_view line,
                const XmlElements&) override {
        records.push_back({section.element, lineNumber, std::string(line)});
        return stopAfter == 0 || static_cast<long>(records.size()) < stopAfter;
    }
    void Ignored(long lineNumber, const std::string& reason) override {
        ignored.push_back({"", lineNumber, reason});
    }
    std::vector<Seen> records;
    std::vector<Seen> ignored;
    long stopAfter = 0;
};

const std::string kHead = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n";
const std::string kCustomer = "<Customer Id=\"C1\"><Name10>Caf\xE9</Name10></Customer>";

XmlReadResult Read(const TempDir& dir, const std::string& bytes, Recorder& recorder) {
    WriteFile(dir.file("delivery.xml"), bytes);
    return ImportXMLLireFichier(dir.file("delivery.xml"), recorder);
}

TEST(ImportXMLReader, HandsEveryRecordLineOfEverySectionToTheVisitor) {
    TempDir dir;
    Recorder r;
    XmlReadResult result =
        Read(dir,
             "\xEF\xBB\xBF" + kHead + "<KV3_Customer>\r\n" + kCustomer + "\r\n\r\n  " + kCustomer +
                 "  \r\n</KV3_Customer>\n"
                 "<KV3_Workshop>\n"
                 "<Workshop Id=\"S1\"><Title>A</Title></Workshop>\n"
                 "<Workshop_Sound Id=\"S1\"></Workshop_Sound>\n"  // another section's item
                 "</KV3_Workshop>\n"
                 "<KV3_Workshop_Sound>\n"
                 "\t<Workshop_Sound Id=\"S1\"><Drive>C</Drive></Workshop_Sound>\n"
                 "</KV3_Workshop_Sound>\n"
                 "<KV3_Clock>\n</KV3_Clock>\n"
                 "</KV3>\n",
             r);
    ASSERT_TRUE(result.ok) << result.message;
    ASSERT_EQ(r.records.size(), 4u);
    EXPECT_EQ(r.records[0].section, "KV3_Customer");
    EXPECT_EQ(r.records[0].line, 4);
    EXPECT_EQ(r.records[0].text, kCustomer);  // bytes as in the file, without the CR
    EXPECT_EQ(r.records[1].line, 6);
    EXPECT_EQ(r.records[2].section, "KV3_Workshop");
    EXPECT_EQ(r.records[3].section, "KV3_Workshop_Sound");
    EXPECT_EQ(result.records, 4);
    EXPECT_EQ(result.ignored, 1);
    EXPECT_EQ(r.ignored[0].line, 10);
    EXPECT_EQ(result.lines, 17);
}

TEST(ImportXMLReader, ARecordSplitOverTwoLinesIsNotOne) {
    TempDir dir;
    Recorder r;
    XmlReadResult result = Read(dir,
                                kHead +
                                    "<KV3_Customer>\n"
                                    "<Customer Id=\"C1\"><Name10>Caf\xE9</Name10>\n"
                                    "<Town10>Lille</Town10></Customer>\n" +
                                    kCustomer +
                                    "\n"
                                    "</KV3_Customer>\n"
                                    "</KV3>\n",
                                r);
    ASSERT_TRUE(result.ok) << result.message;
    ASSERT_EQ(r.records.size(), 1u);
    EXPECT_EQ(r.records[0].line, 6);
    ASSERT_EQ(r.ignored.size(), 2u);
    EXPECT_EQ(r.ignored[0].line, 4);
    EXPECT_EQ(r.ignored[1].line, 5);
    EXPECT_EQ(r.ignored[0].text, "enregistrement coupé sur plusieurs lignes");
    EXPECT_EQ(result.ignored, 2);
}

TEST(ImportXMLReader, StopsWhenTheVisitorSaysSo) {
    TempDir dir;
    Recorder r;
    r.stopAfter = 1;
    XmlReadResult result = Read(
        dir,
        kHead + "<KV3_Customer>\n" + kCustomer + "\n" + kCustomer + "\n</KV3_Customer>\n</KV3>\n",
        r);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(result.stopped);
    EXPECT_EQ(r.records.size(), 1u);
}

// Every kind of bad file is refused with a message naming what is wrong and where, before the
// visitor hears of any record after the fault.
TEST(ImportXMLReader, RefusesWhatIsNotADeliveryInTheSuitesFormat) {
    const std::string body = "<KV3_Customer>\n" + kCustomer + "\n</KV3_Customer>\n";
    struct Case {
        const char* what;
        std::string bytes;
        std::string message;
        long line;
    } cases[] = {
        {"empty", "", "Le fichier est vide.", 0},
        {"no declaration", "<KV3>\n" + body + "</KV3>\n",
         "Le fichier n'est pas au format XML de Kavella: la première ligne doit être <?xml "
         "version=\"1.0\" encoding=\"ISO-8859-1\" ?>.",
         1},
        {"UTF-8", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<KV3>\n" + body + "</KV3>\n",
         "Le fichier n'est pas au format XML de Kavella: il est déclaré en UTF-8 et non en "
         "ISO-8859-1.",
         1},
        {"UTF-16", std::string("<\0?\0x\0m\0l\0", 10) + "\n", "la première ligne doit être", 1},
        {"no root", kHead.substr(0, kHead.find('\n') + 1) + body + "</KV3>\n",
         "Le fichier n'est pas au format XML de Kavella: la balise <KV3> manque à la ligne 2.", 2},
        {"truncated after a section", kHead + body,
         "Le fichier est incomplet (tronqué ?): la balise </KV3> manque à la fin.", 0},
        {"truncated in a record", kHead + "<KV3_Customer>\n" + kCustomer + "\n<Customer Id=\"C2",
         "Le fichier est incomplet (tronqué ?): la section <KV3_Customer> ouverte à la ligne 3 "
         "n'est pas fermée.",
         0},
        {"NUL byte",
         kHead + "<KV3_Customer>\n<Customer Id=\"C1\"><Name10>A" + std::string(1, '\0') +
             "</Name10></Customer>\n</KV3_Customer>\n</KV3>\n",
         "Caractère invalide (code 0x00) à la ligne 4, colonne 28.", 4},
        {"control character", kHead + "\x01\n</KV3>\n",
         "Caractère invalide (code 0x01) à la ligne 3", 3},
        {"100,000-character line",
         kHead + "<KV3_Customer>\n<Customer Id=\"C1\"><Name10>" + std::string(100000, 'x') +
             "</Name10></Customer>\n</KV3_Customer>\n</KV3>\n",
         "La ligne 4 dépasse 65536 caractères: ce n'est pas une ligne d'un fichier XML de "
         "Kavella.",
         4},
        {"unknown section", kHead + body + "<KV3_Planning>\n</KV3_Planning>\n</KV3>\n",
         "Section inconnue <KV3_Planning> à la ligne 6.", 6},
        {"unknown section inside one", kHead + "<KV3_Customer>\n<KV3_Planning>\n",
         "Section inconnue <KV3_Planning> à la ligne 4.", 4},
        {"section in a section", kHead + "<KV3_Customer>\n<KV3_Product>\n</KV3>\n",
         "La section <KV3_Customer> ouverte à la ligne 3 n'est pas fermée: la ligne 4 porte "
         "<KV3_Product>.",
         4},
        {"root closed in a section", kHead + "<KV3_Customer>\n</KV3>\n",
         "La section <KV3_Customer> ouverte à la ligne 3 n'est pas fermée: la ligne 4 porte "
         "</KV3>.",
         4},
        {"element without its closing tag",
         kHead + "<KV3_Customer>\n<Customer Id=\"C1\"><Town10>Lille<Fax>1</Fax></Customer>\n",
         "La balise <Town10> n'est pas fermée à la ligne 4.", 4},
        {"closing tag of nothing",
         kHead + "<KV3_Customer>\n<Customer Id=\"C1\">Lille</Town10></Customer>\n",
         "Balise </Town10> inattendue à la ligne 4.", 4},
        {"CDATA without its end",
         kHead + "<KV3_Customer>\n<Customer Id=\"C1\"><Fax><![CDATA[1</Fax></Customer>\n",
         "Section CDATA non fermée à la ligne 4.", 4},
        {"content after the root", kHead + "</KV3>\n<KV3>\n", "Contenu après </KV3> à la ligne 4.",
         4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        Recorder r;
        XmlReadResult result = Read(dir, c.bytes, r);
        EXPECT_FALSE(result.ok);
        EXPECT_NE(result.message.find(c.message), std::string::npos) << result.message;
        EXPECT_EQ(result.errorLine, c.line);
        if (c.line > 0) {
            for (const Seen& seen : r.records) EXPECT_LT(seen.line, c.line);
        }
    }
    TempDir dir;
    Recorder r;
    XmlReadResult missing = ImportXMLLireFichier(dir.file("absent.xml"), r);
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.message, "Lecture impossible du fichier " + dir.file("absent.xml") + ".");
}

TEST(ImportXMLReader, ElementCheckAcceptsWhatTheSuiteWrites) {
    EXPECT_EQ(ImportXMLVerifieLigne("<Customer Id=\"1\"><A>x</A><B/><C><![CDATA[<D>]]></C>"
                                    "<E>a < b</E></Customer>",
                                    "Customer", 9),
              "");
    EXPECT_EQ(
        ImportXMLVerifieLigne("<Ptx_Event><Ptx><Code>INT</Code></Ptx></Ptx_Event>", "Ptx_Event", 2),
        "");
    EXPECT_EQ(ImportXMLVerifieLigne("<Ptx_Event><Ptx><Code>INT</Ptx></Ptx_Event>", "Ptx_Event", 2),
              "La balise <Code> n'est pas fermée à la ligne 2.");
}

}  // namespace
}  // namespace toverin
