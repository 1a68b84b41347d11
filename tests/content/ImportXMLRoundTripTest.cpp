// The demo site's sample deliveries imported into an empty base: every value of every record of
// the files is found again in the record files, read through the layouts.
#include <gtest/gtest.h>

#include "app/Text.h"
#include "content/ImportXML.h"
#include "content/ImportXMLMapping.h"
#include "content/ImportXMLReader.h"
#include "store/Catalogue.h"
#include "store/RecordView.h"
#include "tests/content/ImportSite.h"
#include "tools/DemoSite.h"

namespace toverin {
namespace {

using testing::ImportSite;

// Reads every record line of a delivery and checks it against the base.
class Compare final : public XmlDeliveryVisitor {
  public:
    explicit Compare(const ImportSite& site) : site_(site) {}

    bool Record(const XmlSectionInfo& section, long lineNumber, std::string_view line,
                const XmlElements&) override {
        SCOPED_TRACE(std::string(section.element) + " line " + std::to_string(lineNumber));
        const XmlSectionRules& rules = ImportXMLRegles(section.section);
        const std::string record = Stored(section, rules, line);
        if (record.empty()) {
            ADD_FAILURE() << "not in the base: " << line;
            return true;
        }
        ++checked;
        const RecordView v(rules.fileNumber, record);
        for (const XmlElementRule& rule : rules.rules) {
            const std::string value = ImportXMLValeur(section, line, rule.element);
            if (Trim(value).empty()) continue;
            std::vector<std::string> parts = {value};
            if (rule.targets.size() > 1) {
                parts.clear();
                for (size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
                    bar = value.find('|', from);
                    parts.push_back(
                        value.substr(from, bar == std::string::npos ? bar : bar - from));
                }
                if (parts.size() == 1 && rule.spread) parts.resize(rule.targets.size(), parts[0]);
            }
            for (size_t i = 0; i < parts.size(); ++i) Check(v, rule, rule.targets[i], parts[i]);
            ++values;
        }
        return true;
    }
    int checked = 0;
    int values = 0;

  private:
    // The record the line became, found by its identity key (a sound named by its title, by
    // the song's code).
    std::string Stored(const XmlSectionInfo& section, const XmlSectionRules& rules,
                       std::string_view line) {
        std::string probe = BlankRecord(rules.fileNumber);
        RecordView p(rules.fileNumber, probe);
        for (const XmlElementRule& rule : rules.rules) {
            if (rule.element[0] != '@') continue;
            std::string value = Trim(ImportXMLValeur(section, line, rule.element));
            if (value.empty() && rule.element == "@Id" &&
                (section.section == XmlSection::WorkshopSound ||
                 section.section == XmlSection::Sound))
                value = SongByTitle(ImportXMLValeur(section, line, "Title"));
            if (value.empty()) {
                if (rule.element == "@Id" && section.section == XmlSection::Strategy)
                    value = "PRIOR";
                else
                    continue;
            }
            for (const XmlTarget& t : rule.targets) {
                if (rule.conv == XmlConv::Number)
                    EXPECT_TRUE(p.SetNumber(t.field, std::stoll(value), t.occurrence));
                else
                    p.SetRaw(t.field, value, t.occurrence);
            }
        }
        if (section.section == XmlSection::Strategy)  // keyed by the category's code
            p.SetRaw("Category", Code("CATEG", ImportXMLValeur(section, line, "Category")));
        if (section.section == XmlSection::Clock)  // keyed by clock and order
            p.SetRaw("Clock", ImportXMLValeur(section, line, "Clock"));
        if (section.section == XmlSection::Sound)  // keyed by song and pointer
            p.SetRaw("Code", ImportXMLValeur(section, line, "Ptx"));
        if (section.section == XmlSection::Diverse)  // keyed by kind and code
            p.SetRaw("Header", ImportXMLValeur(section, line, "Kind"));
        if (section.section == XmlSection::CtrSpotSchedule) {
            p.SetRaw("Date_Passage", ImportXMLValeur(section, line, "CtrSpotDatePre"));
            p.SetRaw("Start_Hour", ReplaceAll(ImportXMLValeur(section, line, "HourEcr"), ":", ""));
        }
        return site_.Find(rules.fileNumber, 1, rules.identityKey,
                          KeyOf(rules.fileNumber, rules.identityKey, probe));
    }

    std::string SongByTitle(const std::string& title) const {
        for (const std::string& r : site_.ReadAll(22))
            if (RecordView(22, r).Text("Title") == title) return RecordView(22, r).Text("SongId");
        return "";
    }

    // The code of a label, from file 21 as the import left it.
    std::string Code(const std::string& kind, const std::string& label) const {
        for (const std::string& r : site_.ReadAll(21)) {
            RecordView v(21, r);
            if (v.Text("Header") == TrimRight(FixedWidth(kind, 5)) &&
                UpperCp1252(v.Text("Label")) == UpperCp1252(label))
                return v.Text("Code");
        }
        return "?";
    }
    std::string Label(const std::string& kind, const std::string& code) const {
        for (const std::string& r : site_.ReadAll(21)) {
            RecordView v(21, r);
            if (v.Text("Header") == TrimRight(FixedWidth(kind, 5)) && v.Text("Code") == code)
                return v.Text("Label");
        }
        return "?";
    }

    void Check(const RecordView& v, const XmlElementRule& rule, const XmlTarget& t,
               const std::string& value) {
        SCOPED_TRACE(rule.element + " -> " + t.field);
        const std::string stored = t.part >= 0 ? Trim(v.Part(t.field, t.part, t.occurrence))
                                               : v.Text(t.field, t.occurrence);
        switch (rule.conv) {
            case XmlConv::Text:
                EXPECT_EQ(stored, TrimRight(value));
                break;
            case XmlConv::Number:
                EXPECT_EQ(std::stoll(stored.empty() ? "0" : stored), std::stoll(Trim(value)));
                break;
            case XmlConv::Date:
                EXPECT_EQ(stored, value);  // the demo writes "YYYYMMDD"
                break;
            case XmlConv::Time: {
                std::string digits = ReplaceAll(value, ":", "");
                digits.resize(6, '0');
                EXPECT_EQ(stored, digits.substr(0, stored.size()));
                break;
            }
            case XmlConv::Label:
            case XmlConv::Cpstt: {
                const MusicClassification* c = MusicSettings().Find(rule.kind);
                EXPECT_EQ(UpperCp1252(Label(c ? c->kind : rule.kind, stored)),
                          UpperCp1252(Trim(value)));
                break;
            }
        }
    }

    const ImportSite& site_;
};

class ImportXMLRoundTrip : public ImportSite {};

TEST_F(ImportXMLRoundTrip, TheDemosDeliveriesLandValueForValueInAnEmptyBase) {
    std::vector<std::string> files = WriteDemoDeliveries(dir.folder(), MakeLocalTime(2026, 3, 2));
    ASSERT_EQ(files.size(), 2u);
    ImportXMLOptions options;
    options.base = 0;
    options.station = 1;
    long read = 0;
    for (const std::string& f : files) {
        SlotBank bank("Import XML");
        RecordingProgress progress;
        ImportXMLResultat r = ImportXMLImporter(f, options, bank, progress);
        EXPECT_TRUE(r.ended) << r.message;
        EXPECT_EQ(r.refused, 0) << (r.refusals.empty() ? "" : r.refusals[0].Text());
        EXPECT_EQ(r.missing, 0);
        EXPECT_TRUE(r.warnings.empty());
        read += r.read;
    }
    Compare compare(*this);
    for (const std::string& f : files) EXPECT_TRUE(ImportXMLLireFichier(f, compare).ok);
    EXPECT_EQ(compare.checked, read);
    EXPECT_GT(compare.values, 300);

    // A few values by hand, as a user would look them up.
    const std::string found = Find(3, 1, 1, "CLI00101");
    RecordView customer(3, found);
    EXPECT_EQ(customer.Utf8("Name"), "Café de l'Étoile");
    EXPECT_EQ(customer.Utf8("Name", 1), "Comptabilité de l'étoile");  // sent as UTF-8, repaired
    EXPECT_EQ(customer.Utf8("Director"), "M. Paul Dubois <direction>");
    EXPECT_EQ(customer.Text("Date Creat."), "20260131");
    const std::string song = Find(22, 1, 0, "00100003");
    ASSERT_FALSE(song.empty());
    EXPECT_EQ(RecordView(22, song).Utf8("Title"), "Les \"Grands\" Soirs");
    EXPECT_EQ(RecordView(22, song).Text("Voice"), "FEM");
    EXPECT_EQ(ReadAll(7).size(), 9u);
    const std::string sound = Find(26, 1, 0, "00100002");
    ASSERT_FALSE(sound.empty());
    EXPECT_EQ(RecordView(26, sound).Text("Drive"), "D");
    EXPECT_EQ(RecordView(26, sound).Text("Title"), "Sous la pluie de Roubaix");
    EXPECT_EQ(ReadAll(31).size(), 2u);
}

}  // namespace
}  // namespace toverin
