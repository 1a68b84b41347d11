#include "content/ImportXMLFormat.h"

#include <gtest/gtest.h>

#include <map>

#include "app/Text.h"

namespace toverin {
namespace {

std::string Cp(std::string_view utf8) {
    return Cp1252FromUtf8(utf8);
}

TEST(FiltreChaine, EntityRulesRunInTheSuitesOrderOnTheWholeText) {
    // "&amp;" first, so what it leaves is seen by the later rules.
    EXPECT_EQ(FiltreChaine("&amp;lt"), "<");
    EXPECT_EQ(FiltreChaine("&amp;gt;"), ">");
    EXPECT_EQ(FiltreChaine("&amp;quot"), "\"");
    // "&#38" comes after the "&gt" rule and before the "&lt" rule.
    EXPECT_EQ(FiltreChaine("&#38gt"), "&gt");
    EXPECT_EQ(FiltreChaine("&#38lt"), "<");
    // Bare forms and forms with their semicolon.
    EXPECT_EQ(FiltreChaine("a &lt; b &gt; c"), "a < b > c");
    EXPECT_EQ(FiltreChaine("a &lt b &gt c"), "a < b > c");
    EXPECT_EQ(FiltreChaine("l&apos;ete, l&apos.ete, l&#39;ete, l&#39ete"),
              "l'ete, l'.ete, l'ete, l'ete");
    EXPECT_EQ(FiltreChaine("&quot;Hits&quot; &#34;Gold&#34;"), "\"Hits\" \"Gold\"");
    EXPECT_EQ(FiltreChaine("&#62;&#60;"), "><");
    EXPECT_EQ(FiltreChaine("Fleurs &amp; Jardins"), "Fleurs & Jardins");
    // What is not an entity the suite writes stays as it is.
    EXPECT_EQ(FiltreChaine("R&B &copy; 5 & 6"), "R&B &copy; 5 & 6");
    EXPECT_EQ(FiltreChaine(""), "");
}

TEST(FiltreChaine, RepairsLettersThatArriveAsUtf8ReadByteByByte) {
    // Each listed letter: its UTF-8 bytes, read as ISO-8859-1, become its Windows-1252 byte.
    const std::vector<std::pair<const char*, const char*>> letters = {
        {"°", "°"}, {"’", "'"}, {"à", "à"}, {"â", "â"}, {"ç", "ç"}, {"è", "è"},
        {"é", "é"}, {"ê", "ê"}, {"ë", "ë"}, {"î", "î"}, {"ï", "ï"}, {"ô", "ô"},
        {"ö", "ö"}, {"ù", "ù"}, {"‘", "'"}, {"É", "É"}, {"œ", "œ"}};
    for (auto [utf8, expected] : letters) {
        SCOPED_TRACE(utf8);
        // The file's bytes are the UTF-8 bytes; the record gets the one letter.
        EXPECT_EQ(FiltreChaine("x" + std::string(utf8) + "y"), "x" + Cp(expected) + "y");
    }
    EXPECT_EQ(FiltreChaine("l\xE2\x80\x99\xC3\xA9t\xC3\xA9 \xC3\xA0 Lille"), Cp("l'été à Lille"));
    // Text already in Windows-1252 is left alone, entities and repairs together work.
    EXPECT_EQ(FiltreChaine(Cp("Café à l'Étoile")), Cp("Café à l'Étoile"));
    EXPECT_EQ(FiltreChaine("Caf\xC3\xA9 &amp; Th\xC3\xA9"), Cp("Café & Thé"));
    for (const AccentRepair& r : AccentRepairs()) EXPECT_EQ(std::string(r.letter).size(), 1u);
}

TEST(ImportXMLExtraitBalise, ElementsCdataAndAbsentElements) {
    const std::string line =
        "<Customer Id=\"CLI001\"><Name10>Caf&amp;Co</Name10><Town10>Lille</Town10>"
        "<Comment><![CDATA[Promo <b>-20 %</b> &amp; plus]]></Comment><Fax></Fax>"
        "<Bank>Crédit</Customer>";
    long long n = -1;
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Name10", kExtraitElement, n), "Caf&amp;Co");
    EXPECT_EQ(FiltreChaine(ImportXMLExtraitBalise(line, "Name10", 1, n)), "Caf&Co");
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Town10", 1, n), "Lille");
    // CDATA stripped, its "<" kept; the entities in it are still decoded, as the suite does.
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Comment", 1, n), "Promo <b>-20 %</b> &amp; plus");
    EXPECT_EQ(FiltreChaine(ImportXMLExtraitBalise(line, "Comment", 1, n)),
              "Promo <b>-20 %</b> & plus");
    // Empty and absent elements read as empty; a name is matched whole.
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Fax", 1, n), "");
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Email", 1, n), "");
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Name", 1, n), "");
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Town1", 1, n), "");
    // Without its closing tag, a value runs up to the next "<".
    EXPECT_EQ(ImportXMLExtraitBalise(line, "Bank", 1, n), "Crédit");
    EXPECT_EQ(ImportXMLExtraitBalise("<A><B>xyz", "B", 1, n), "xyz");
    EXPECT_TRUE(ImportXMLHasElement(line, "Fax"));
    EXPECT_FALSE(ImportXMLHasElement(line, "Name"));

    EXPECT_EQ(ImportXMLNettoieCDATA("<![CDATA[a]]>"), "a");
    EXPECT_EQ(ImportXMLNettoieCDATA("<![CDATA[]]>"), "");
    EXPECT_EQ(ImportXMLNettoieCDATA("plain"), "plain");
}

TEST(ImportXMLExtraitBalise, AttributesOfTheItemsOpeningTag) {
    long long n = -1;
    const std::string spot =
        "<CtrSpot N=\"501\" Id=\"A&amp;B\"><Label>Id=\"x\" N=\"9\"</Label></CtrSpot>";
    EXPECT_EQ(ImportXMLExtraitBalise(spot, "CtrSpot", kExtraitAttribut, n), "A&amp;B");
    EXPECT_EQ(n, 501);
    // Only the item's own tag is read, never the text of its elements.
    EXPECT_EQ(ImportXMLAttribut(spot, "Label", "N"), std::nullopt);
    // An item without the attribute: no number, empty text.
    EXPECT_EQ(ImportXMLExtraitBalise("<CtrSpot><Label>x</Label></CtrSpot>", "CtrSpot", 2, n), "");
    EXPECT_EQ(n, 0);
    EXPECT_EQ(ImportXMLExtraitBalise("<CtrSpot N=\"12a\">x</CtrSpot>", "CtrSpot", 2, n), "");
    EXPECT_EQ(n, 12);
    EXPECT_EQ(ImportXMLAttribut("<CtrSpot N=\"12a\">", "CtrSpot", "N"), "12a");
    // "<Workshop" is not the opening of "<Workshop_Sound".
    const std::string sound = "<Workshop_Sound Id=\"S1\"><Workshop>x</Workshop></Workshop_Sound>";
    EXPECT_EQ(ImportXMLAttribut(sound, "Workshop", "Id"), std::nullopt);
    EXPECT_EQ(ImportXMLAttribut(sound, "Workshop_Sound", "Id"), "S1");
    EXPECT_EQ(ImportXMLOuvertureItem("<Clock_Event>", "Clock_Event"), 12u);
    EXPECT_EQ(ImportXMLOuvertureItem("<Clock_Events>", "Clock_Event"), std::string::npos);
}

TEST(XmlItemLine, WritesWhatTheReaderReadsBack) {
    const std::string name = "Zoé & les \"Étoiles\" <live> d'Arras";
    XmlItemLine line("Artist");
    line.Attribute("Id", "A&1").Attribute("N", "7").Element("Label", name).Cdata("Data", "<x> é");
    const std::string text = line.Line();
    EXPECT_EQ(text.find('\xC3'), std::string::npos) << "written in Windows-1252, not UTF-8";
    long long n = 0;
    EXPECT_EQ(FiltreChaine(ImportXMLExtraitBalise(text, "Artist", 2, n)), "A&1");
    EXPECT_EQ(n, 7);
    EXPECT_EQ(FiltreChaine(ImportXMLExtraitBalise(text, "Label", 1, n)), Cp(name));
    EXPECT_EQ(FiltreChaine(ImportXMLExtraitBalise(text, "Data", 1, n)), Cp("<x> é"));
    EXPECT_EQ(EnteteFichierXML(), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>");
}

TEST(ImportXMLSections, ThirteenKindsInFourteenSectionsEachWithItsFile) {
    ASSERT_EQ(ImportXMLSections().size(), static_cast<size_t>(kXmlSectionCount));
    std::map<std::string, int> files;
    for (const XmlSectionInfo& s : ImportXMLSections()) {
        EXPECT_EQ(SectionByElement(s.element), &s);
        files[s.element] = s.fileNumber;
    }
    const std::map<std::string, int> expected = {
        {"KV3_Commercial", 1},      {"KV3_ActivitySector", 2}, {"KV3_Customer", 3},
        {"KV3_Product", 4},         {"KV3_Contract", 5},       {"KV3_CtrSpot", 6},
        {"KV3_CtrSpotSchedule", 7}, {"KV3_Artist", 20},        {"KV3_Diverse", 21},
        {"KV3_Workshop", 22},       {"KV3_Strategy", 25},      {"KV3_Workshop_Sound", 26},
        {"KV3_Clock", 30},          {"KV3_Sound", 31}};
    EXPECT_EQ(files, expected);
    EXPECT_STREQ(SectionInfo(XmlSection::Clock).item, "Clock_Event");
    EXPECT_STREQ(SectionInfo(XmlSection::Sound).item, "Ptx_Event");
    EXPECT_EQ(SectionByElement("KV3_Planning"), nullptr);
}

}  // namespace
}  // namespace toverin
