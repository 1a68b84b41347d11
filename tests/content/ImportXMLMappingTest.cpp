#include "content/ImportXMLMapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "app/Text.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "tests/support/TestSupport.h"

namespace toverin {
namespace {

std::string Cp(std::string_view utf8) {
    return Cp1252FromUtf8(utf8);
}

std::string LabelRecord(const std::string& kind, const std::string& code,
                        const std::string& label) {
    std::string r = BlankRecord(21);
    RecordView v(21, r);
    v.SetText("Header", kind);
    v.SetText("Code", code);
    v.SetText("Label", label);
    return r;
}

// A base in memory holding what the records below refer to.
class Base {
  public:
    Base() {
        for (auto [kind, code, label] :
             std::vector<std::tuple<const char*, const char*, const char*>>{
                 {"VOIX ", "FEM", "Féminine"},
                 {"VOIX ", "MASC", "Masculine"},
                 {"SONOR", "ACOUS", "Acoustique"},
                 {"GROUP", "SOLO", "Solo"},
                 {"CATEG", "NOU24", "Nouveautés 2024"},
                 {"CATEG", "NOU25", "Nouveautés 2025"},
                 {"THEME", "ETE", "Été"},
                 {"THEME", "AMOUR", "Amour"},
                 {"COULE", "ROUGE", "Rouge vif"},
                 {"PUISS", "FORT", "Fort"},
                 {"PUISS", "DOUX", "Doux"},
                 {"STYLE", "POP", "Pop"},
                 {"TYPE ", "000", "Musique"},
                 {"TEMPO", "RAPID", "Rapide"},
                 {"AUTEU", "JD", "Jean Dupré"},
                 {"EXCLU", "RESTO", "Restauration"}})
            memory.Put(21, 0, LabelRecord(kind, code, label));
        Add(3, 1, {{"Code", "CLI00001"}, {"Name", "Café de l'Étoile"}});
        Add(4, 0, {{"Code", "PRD01"}, {"Label", "Menu du midi"}});
        Add(5, 1, {{"Customer", "CLI00001"}, {"No_Contract", "000501"}});
        Add(6, 1,
            {{"No_Contract", "000501"},
             {"No_Commercial", "01"},
             {"Product", "PRD01"},
             {"Duration", "000030"}});
        Add(20, 0, {{"Code", "A0001"}, {"Label", "Zoé & les Étoiles"}});
        Add(22, 0,
            {{"SongId", "00100001"},
             {"Title", "L'été à Lille"},
             {"Artist_1", "A0001"},
             {"Duration", "00215000"},
             {"Type", "000"},
             {"Ext", "wav"},
             {"Category", "NOU25"},
             {"SecondText", "Version radio"}});
    }
    void Add(int file, int key, std::vector<std::pair<const char*, const char*>> fields) {
        std::string r = BlankRecord(file);
        RecordView v(file, r);
        for (auto [name, value] : fields) v.SetText(name, value);
        memory.Put(file, key, r);
    }
    XmlRecordBuild Build(XmlSection section, const std::string& utf8Line) {
        ImportXMLContexte context{memory, music, categorie, {}};
        return ImportXMLConstruitEnregistrement(SectionInfo(section), Cp(utf8Line), context);
    }
    ImportXMLMemoire memory;
    MusicSettings music;
    std::string categorie;
};

// The suite's element lists, as they are written in its format.
const std::map<XmlSection, std::vector<std::string>> kListed = {
    {XmlSection::Commercial, {"Adr1", "Adr2", "Cdp", "Town", "Tel"}},
    {XmlSection::Customer,
     {"Adr11", "Adr12",  "Cdp10",      "Town10",    "Resp10", "Name20",   "Adr21",
      "Adr22", "Cdp20",  "Town20",     "Resp20",    "Fax",    "Director", "Chief",
      "Bank",  "Sector", "CreateDate", "GeoSector", "Agent",  "Email",    "NbMaxSpot"}},
    {XmlSection::Product, {"Exclusive", "MaxInScreen", "Color"}},
    {XmlSection::Contract,
     {"State", "Exclusion", "StartDate", "Recurrent", "NbWeek", "NbSpot", "Promotion", "Station",
      "EndDate", "StartHour", "EndHour", "ActivePromotion", "DistantSite", "GIE"}},
    {XmlSection::CtrSpot,
     {"Teasing", "SegReaRot", "PosSeg", "Voice", "Duration", "RotationLetter", "NbSpotScheduled",
      "Amount", "Comment"}},
    {XmlSection::CtrSpotSchedule, {"CtrSpotDatePre", "HourEcr"}},
    {XmlSection::Artist, {"NameCode", "LabelExport", "NbMaxDay", "idGoogle", "NbBroad"}},
    {XmlSection::Clock,
     {"Clock",
      "Icons",
      "Key1",
      "Key2",
      "Key3",
      "Key4",
      "Key5",
      "NoPeriph",
      "NoAlgo",
      "Time",
      "Filling",
      "Bpm",
      "CategoryFilling",
      "AdvBreakPosTheo",
      "ImportWeb",
      "Recycling",
      "CheckDuration",
      "CheckDurationToBroadcast",
      "WishedDuration",
      "MinDuration",
      "MaxDuration"}},
    {XmlSection::Sound, {"Ptx"}},
};
const std::vector<std::string> kWorkshopList = {"Protection",
                                                "URL",
                                                "Talent",
                                                "SACEM",
                                                "ForbiddenArtistActive",
                                                "ForbiddenArtist",
                                                "Quota",
                                                "Voice",
                                                "Sonority",
                                                "Group",
                                                "Code",
                                                "Filler",
                                                "Album",
                                                "Lot",
                                                "Category",
                                                "Coef",
                                                "Power",
                                                "Style",
                                                "Type",
                                                "Tempo",
                                                "BPM",
                                                "Subject",
                                                "Year",
                                                "Intro_Duration",
                                                "CodeIn",
                                                "CodeOut",
                                                "Loop",
                                                "Label",
                                                "Distributor",
                                                "Week",
                                                "TheoritecalDurationActive",
                                                "TheoritecalDuration",
                                                "TheoritecalDurationPitch",
                                                "Interpreter",
                                                "Header",
                                                "Footer",
                                                "ValidityDate",
                                                "Extension",
                                                "ExportDate",
                                                "PermanenteValidity",
                                                "ValidityDateStart",
                                                "ValidityPerDate",
                                                "ValidityPerWeek",
                                                "ValidityDateEnd",
                                                "ModificationDate",
                                                "SubCategory",
                                                "PodCastActive",
                                                "Zones",
                                                "PodCastACtif",
                                                "HHMMSSModification",
                                                "TypeEnd",
                                                "MsgDate",
                                                "Label1",
                                                "Label2",
                                                "Label3",
                                                "Tranche",
                                                "Live",
                                                "ForbiddenWorkshopActive",
                                                "ForbiddenWorkshop",
                                                "OpenAir",
                                                "Author",
                                                "Composer",
                                                "Association",
                                                "TitleVersion",
                                                "FadeOutCurve",
                                                "OtherSystemId",
                                                "FirstBroadcastingDate",
                                                "BroadcastingNumber",
                                                "NewProd",
                                                "NewProdMsg",
                                                "BroadcastingNumberMax",
                                                "NewProdMsgSend",
                                                "DiverseId",
                                                "Strategy",
                                                "Priority",
                                                "CodeType",
                                                "ExternalSound",
                                                "Drive",
                                                "Recorded",
                                                "Stereo",
                                                "AdvCtrSpot"};

std::vector<std::string> ListedElements(XmlSection section) {
    std::vector<std::string> listed;
    for (const XmlElementRule& r : ImportXMLRegles(section).rules)
        if (r.listed && r.element[0] != '@') listed.push_back(r.element);
    return listed;
}

TEST(ImportXMLRules, EveryListedElementLandsInARealFieldInTheSuitesOrder) {
    std::set<std::string> workshop;
    for (const XmlSectionInfo& s : ImportXMLSections()) {
        const XmlSectionRules& rules = ImportXMLRegles(s.section);
        SCOPED_TRACE(s.element);
        EXPECT_EQ(rules.fileNumber, s.fileNumber);
        const RecordLayout& layout = LayoutFor(s.fileNumber);
        for (const XmlElementRule& r : rules.rules) {
            ASSERT_FALSE(r.targets.empty()) << r.element;
            for (const XmlTarget& t : r.targets) {
                const Field* f = layout.Find(t.field, t.occurrence);
                ASSERT_NE(f, nullptr) << r.element << " -> " << t.field << " #" << t.occurrence;
                if (t.part >= 0) {
                    EXPECT_LT(static_cast<size_t>(t.part), f->parts.size());
                }
            }
            if (r.conv == XmlConv::Label) {
                EXPECT_EQ(r.kind.size(), 5u) << r.element;
            }
            if (r.conv == XmlConv::Cpstt) {
                EXPECT_NE(MusicSettings().Find(r.kind), nullptr);
            }
        }
        std::vector<std::string> listed = ListedElements(s.section);
        if (auto it = kListed.find(s.section); it != kListed.end()) {
            if (s.section == XmlSection::Artist) {
                // The artist's own five, then those of the workshop list that describe artists.
                EXPECT_TRUE(std::equal(it->second.begin(), it->second.end(), listed.begin()));
            } else {
                EXPECT_EQ(listed, it->second);
            }
        }
        const bool workshopSection =
            s.section == XmlSection::Workshop || s.section == XmlSection::Strategy ||
            s.section == XmlSection::WorkshopSound || s.section == XmlSection::Artist;
        if (!workshopSection) continue;
        size_t from = 0;  // each section reads its part of the list in the list's order
        for (const std::string& e : listed) {
            auto at =
                std::find(kWorkshopList.begin() + static_cast<long>(from), kWorkshopList.end(), e);
            if (s.section == XmlSection::Artist && at == kWorkshopList.end()) continue;
            ASSERT_NE(at, kWorkshopList.end()) << e << " out of order";
            from = static_cast<size_t>(at - kWorkshopList.begin());
            workshop.insert(e);
        }
    }
    for (const std::string& e : kWorkshopList) EXPECT_TRUE(workshop.count(e)) << e;
    // The identity keys are unique keys, except the two files that have none to offer.
    for (const XmlSectionInfo& s : ImportXMLSections()) {
        const XmlSectionRules& rules = ImportXMLRegles(s.section);
        const KeySegment first = KeysOf(s.fileNumber)[rules.identityKey].front();
        EXPECT_EQ((first.flags & btr::kKeyDuplicates) != 0, s.fileNumber == 7 || s.fileNumber == 26)
            << s.element;
    }
}

TEST(ImportXMLInitStructureBTR, NumbersZeroPercentagesFullTextBlank) {
    std::string song = ImportXMLInitStructureBTR(22);
    RecordView v(22, song);
    EXPECT_EQ(v.Raw("Quota"), "100");
    EXPECT_EQ(v.Raw("BPM"), "000");
    EXPECT_EQ(v.Raw("Duration"), "00000000");
    EXPECT_EQ(v.Raw("File_Size"), "0000000000");
    EXPECT_EQ(v.Raw("Title"), std::string(40, ' '));
    std::string priorities = ImportXMLInitStructureBTR(25);
    RecordView p(25, priorities);
    for (int k = 0; k < 38; ++k) {
        EXPECT_EQ(p.Raw("Property", k), "100");
        EXPECT_EQ(p.Raw("Strat_#", k), "00");
    }
    EXPECT_EQ(RecordView(20, ImportXMLInitStructureBTR(20)).Raw("Quota"), "100");
    EXPECT_EQ(ImportXMLInitStructureBTR(3), BlankRecord(3));
}

TEST(ImportXMLBuild, ACustomerLandsFieldByFieldWithItsAccentsInWindows1252) {
    Base base;
    // The file's bytes are ISO-8859-1: "é" is the one byte 0xE9.
    XmlRecordBuild b = base.Build(
        XmlSection::Customer,
        "<Customer Id=\"CLI00101\"><Name10>Café de l&apos;Étoile</Name10><Adr11>3, rue "
        "Esquermoise</Adr11><Town10>Lille</Town10><Name20>Comptabilité</Name20><Town20>Lille "
        "Cedex</Town20><Director><![CDATA[M. Dubois <direction>]]></Director><Sector></Sector>"
        "<CreateDate>15/01/2025</CreateDate><NbMaxSpot>4</NbMaxSpot><Tel>03 20</Tel></Customer>");
    ASSERT_TRUE(b.ok) << b.refusal;
    RecordView v(3, b.record);
    EXPECT_EQ(v.Text("Code"), "CLI00101");
    EXPECT_EQ(v.Text("Name"), "Caf\xE9 de l'\xC9toile");
    EXPECT_EQ(v.Utf8("Name"), "Café de l'Étoile");
    EXPECT_EQ(v.Text("Town", 0), "Lille");
    EXPECT_EQ(v.Text("Town", 1), "Lille Cedex");
    EXPECT_EQ(v.Text("Name", 1), "Comptabilit\xE9");
    EXPECT_EQ(v.Text("Director"), "M. Dubois <direction>");
    EXPECT_EQ(v.Text("Date Creat."), "20250115");
    EXPECT_EQ(v.Raw("NbMaxSpot"), "004");
    EXPECT_EQ(v.Text("Telephone"), "03 20");
    EXPECT_EQ(v.Text("Sector"), "");
    EXPECT_TRUE(b.warnings.empty());
    EXPECT_EQ(ImportXMLCleIdentite(XmlSection::Customer, b.record), "CLI00101");

    // The list view shows the same line in UTF-8, "ID KV" first.
    const std::string line =
        Cp("<Customer Id=\"CLI00101\"><Name10>Café &amp; Thé</Name10></Customer>");
    std::vector<std::string> row = ImportXMLExtraireData(SectionInfo(XmlSection::Customer), line);
    std::vector<std::string> columns = ImportXMLColonnes(XmlSection::Customer);
    ASSERT_EQ(row.size(), columns.size());
    EXPECT_EQ(columns[0], "ID KV");
    EXPECT_EQ(row[0], "CLI00101");
    EXPECT_EQ(row[1], "Café & Thé");
    EXPECT_EQ(columns[1], "Name10");
    EXPECT_EQ(ImportXMLExtraireData(SectionInfo(XmlSection::CtrSpot),
                                    "<CtrSpot N=\"501\" Id=\"2\"></CtrSpot>")[0],
              "501 / 2");
}

TEST(ImportXMLBuild, LabelTextsBecomeTheirCodes) {
    Base base;
    XmlRecordBuild b = base.Build(
        XmlSection::Workshop,
        "<Workshop Id=\"00100009\"><Title>Lumière</Title><Voice>FÉMININE</Voice>"
        "<Sonority>Acoustique</Sonority><Category>Nouveautés 2025</Category>"
        "<Coef>Rouge vif</Coef><Power>Fort</Power><Type>Musique</Type><Tempo>Rapide|Rapide</Tempo>"
        "<Subject>Été|Amour</Subject><Author>Jean Dupré</Author><Quota>80</Quota></Workshop>");
    ASSERT_TRUE(b.ok) << b.refusal;
    RecordView v(22, b.record);
    EXPECT_EQ(v.Text("Voice"), "FEM");  // labels match without regard to case
    EXPECT_EQ(v.Text("Sonority"), "ACOUS");
    EXPECT_EQ(v.Text("Category"), "NOU25");  // the whole label decides past the key's ten
    EXPECT_EQ(v.Text("Coefficient"), "ROUGE");
    for (const char* part : {"Power_Start", "Power_Mid", "Power_End"})
        EXPECT_EQ(v.Text(part), "FORT");
    EXPECT_EQ(v.Text("Type"), "000");
    EXPECT_EQ(v.Text("Tempo_Start"), "RAPID");
    EXPECT_EQ(v.Text("Tempo_End"), "");  // two parts given, the third left
    EXPECT_EQ(v.Text("Subject", 0), "ETE");
    EXPECT_EQ(v.Text("Subject", 1), "AMOUR");
    EXPECT_EQ(v.Text("Subject", 2), "");
    EXPECT_EQ(v.Text("Author", 0), "JD");
    EXPECT_EQ(v.Raw("Quota"), "080");
    EXPECT_EQ(v.Text("Style"), "");

    // A label that does not exist stops the record and says which.
    XmlRecordBuild missing = base.Build(
        XmlSection::Workshop, "<Workshop Id=\"00100010\"><Voice>Inconnue</Voice></Workshop>");
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.refusal, "Clé non trouvée: VOIX Inconnue");
    EXPECT_EQ(
        base.Build(XmlSection::Workshop,
                   "<Workshop Id=\"00100010\"><Category>Nouveautés 2026</Category></Workshop>")
            .refusal,
        "Clé non trouvée: CATEGNouveautés 2026");
    // A category option fills songs delivered without one.
    base.categorie = "NOU24";
    EXPECT_EQ(
        RecordView(22, base.Build(XmlSection::Workshop, "<Workshop Id=\"1\"></Workshop>").record)
            .Text("Category"),
        "NOU24");
}

TEST(ImportXMLBuild, MusicSettingsDecideTheFiveClassifications) {
    testing::TempDir dir;
    MusicSettings settings;
    settings.classes[2].active = false;             // STYLE not used at this site
    settings.classes[4].codes = {"LENT", "MOYEN"};  // TEMPO: only these
    settings.classes[0].kind = "COUL2";             // COULEUR labels under another kind
    ASSERT_TRUE(EcritureBkMus(dir.file("BK_MUS.ini"), settings));
    Base base;
    base.music = LectureBkMus(dir.file("BK_MUS.ini"));
    EXPECT_FALSE(base.music.Find("STYLE")->active);
    EXPECT_EQ(base.music.Find("COULEUR")->kind, "COUL2");
    EXPECT_EQ(LectureBkMus(dir.file("absent.ini")).Find("TYPE")->kind, "TYPE ");

    XmlRecordBuild style =
        base.Build(XmlSection::Workshop, "<Workshop Id=\"1\"><Style>Pop</Style></Workshop>");
    ASSERT_TRUE(style.ok) << style.refusal;
    EXPECT_EQ(RecordView(22, style.record).Text("Style"), "");
    EXPECT_EQ(
        base.Build(XmlSection::Workshop, "<Workshop Id=\"1\"><Tempo>Rapide</Tempo></Workshop>")
            .refusal,
        "Code non autorisé par BK_MUS.ini: TEMPO RAPID");
    EXPECT_EQ(
        base.Build(XmlSection::Workshop, "<Workshop Id=\"1\"><Coef>Rouge vif</Coef></Workshop>")
            .refusal,
        "Clé non trouvée: COUL2Rouge vif");
    EXPECT_EQ(VerificationCodeCPSTT(base.music, "TEMPO", "lent"), CodeCheck::Ok);
    EXPECT_EQ(VerificationCodeCPSTT(base.music, "STYLE", "POP"), CodeCheck::NotUsed);
}

TEST(ImportXMLBuild, BadValuesRefuseTheRecordOrAreReported) {
    Base base;
    auto refusal = [&](XmlSection section, const std::string& line) {
        XmlRecordBuild b = base.Build(section, line);
        EXPECT_FALSE(b.ok) << line;
        return b.refusal;
    };
    EXPECT_EQ(
        refusal(XmlSection::Customer, "<Customer Id=\"C1\"><NbMaxSpot>12a</NbMaxSpot></Customer>"),
        "Valeur numérique invalide pour <NbMaxSpot>: 12a");
    EXPECT_EQ(
        refusal(XmlSection::Customer, "<Customer Id=\"C1\"><NbMaxSpot>1234</NbMaxSpot></Customer>"),
        "Valeur trop grande pour <NbMaxSpot> (3 chiffres): 1234");
    EXPECT_EQ(refusal(XmlSection::CtrSpot,
                      "<CtrSpot N=\"501\" Id=\"1\"><PosSeg>1|123</PosSeg></CtrSpot>"),
              "Valeur trop grande pour <PosSeg> (2 chiffres): 123");
    EXPECT_EQ(refusal(XmlSection::Customer,
                      "<Customer Id=\"C1\"><CreateDate>31/02/2025</CreateDate></Customer>"),
              "Date invalide pour <CreateDate>: 31/02/2025");
    EXPECT_EQ(
        refusal(XmlSection::Contract,
                "<Contract N=\"501\" Id=\"CLI00001\"><StartHour>25:00</StartHour></Contract>"),
        "Heure invalide pour <StartHour>: 25:00");
    EXPECT_EQ(refusal(XmlSection::Customer, "<Customer><Name10>x</Name10></Customer>"),
              "Valeur manquante: Id=");
    EXPECT_EQ(refusal(XmlSection::Contract, "<Contract Id=\"CLI00001\"></Contract>"),
              "Valeur manquante: N=");
    EXPECT_EQ(refusal(XmlSection::Diverse, "<Diverse Id=\"X\"><Label>x</Label></Diverse>"),
              "Valeur manquante: <Kind>");

    // What can still be written is, and the differences are listed.
    XmlRecordBuild cut =
        base.Build(XmlSection::Customer,
                   "<Customer Id=\"C1\"><Cdp10>59000-LILLE-CEDEX</Cdp10><Tel>1</Tel></Customer>");
    ASSERT_TRUE(cut.ok);
    EXPECT_EQ(RecordView(3, cut.record).Text("Zip Code"), "59000-LILL");
    ASSERT_EQ(cut.warnings.size(), 1u);
    EXPECT_EQ(cut.warnings[0], "Texte coupé à 10 caractères pour <Cdp10>: 59000-LILLE-CEDEX");
    XmlRecordBuild extra =
        base.Build(XmlSection::Artist,
                   "<Artist Id=\"A9\"><Voice>Féminine|Masculine|Féminine|Masculine|Féminine|"
                   "Masculine</Voice></Artist>");
    ASSERT_TRUE(extra.ok) << extra.refusal;
    ASSERT_EQ(extra.warnings.size(), 1u);
    EXPECT_EQ(RecordView(20, extra.record).Text("Voice5"), "FEM");
}

TEST(ImportXMLBuild, RecordsReferredToMustExistAndCompleteTheRecord) {
    Base base;
    EXPECT_EQ(base.Build(XmlSection::Contract,
                         "<Contract N=\"502\" Id=\"CLI00099\"><Label>x</Label></Contract>")
                  .refusal,
              "Clé non trouvée: CLI00099");
    EXPECT_EQ(base.Build(XmlSection::CtrSpot, "<CtrSpot N=\"777\" Id=\"1\"></CtrSpot>").refusal,
              "Clé non trouvée: 000777");
    XmlRecordBuild contract = base.Build(
        XmlSection::Contract,
        "<Contract N=\"502\" Id=\"CLI00001\"><Product>PRD01</Product><Exclusion>Restauration"
        "</Exclusion><StartDate>2026-03-01</StartDate><StartHour>06:30</StartHour></Contract>");
    ASSERT_TRUE(contract.ok) << contract.refusal;
    RecordView c(5, contract.record);
    EXPECT_EQ(c.Text("Exclusion"), "RESTO");
    EXPECT_EQ(c.Text("Start_Hour"), "0630");
    EXPECT_EQ(ImportXMLCleIdentite(XmlSection::Contract, contract.record), "CLI00001000502");

    // A planned date takes its spot's product and duration and its contract's customer.
    XmlRecordBuild date =
        base.Build(XmlSection::CtrSpotSchedule,
                   "<CtrSpotSchedule N=\"501\" Id=\"1\"><CtrSpotDatePre>20260310</CtrSpotDatePre>"
                   "<HourEcr>07:15</HourEcr><Screen>2</Screen></CtrSpotSchedule>");
    ASSERT_TRUE(date.ok) << date.refusal;
    RecordView d(7, date.record);
    EXPECT_EQ(d.Text("Product"), "PRD01");
    EXPECT_EQ(d.Text("Customer"), "CLI00001");
    EXPECT_EQ(d.Number("Duration"), 30);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(d.Text("Date_Passage", k), "20260310");
        EXPECT_EQ(d.Text("Start_Hour", k), "0715");
        EXPECT_EQ(d.Number("Start_Screen", k), 2);
    }
    EXPECT_EQ(base.Build(XmlSection::CtrSpotSchedule,
                         "<CtrSpotSchedule N=\"501\" Id=\"3\"><CtrSpotDatePre>20260310"
                         "</CtrSpotDatePre></CtrSpotSchedule>")
                  .refusal,
              "Clé non trouvée: 00050103");

    // A sound named by its title: the song's code is found and its line completed from it.
    XmlRecordBuild sound =
        base.Build(XmlSection::WorkshopSound,
                   "<Workshop_Sound><Title>l'ÉTÉ à lille</Title><Drive>D</Drive><Stereo>S</Stereo>"
                   "</Workshop_Sound>");
    ASSERT_TRUE(sound.ok) << sound.refusal;
    RecordView s(26, sound.record);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(s.Text("SongId", k), "00100001");
    for (int k = 0; k < 3; ++k) EXPECT_EQ(s.Text("TypeOfPiece", k), "M");
    EXPECT_EQ(s.Utf8("Title"), "L'été à Lille");
    EXPECT_EQ(s.Utf8("Artist"), "Zoé & les");  // the first ten characters of the label
    EXPECT_EQ(s.Text("Category"), "NOU25");
    EXPECT_EQ(s.Number("Duration"), 215);
    EXPECT_EQ(s.Text("Title2"), "Version radio");
    EXPECT_EQ(s.Text("Drive"), "D");
    EXPECT_EQ(base.Build(XmlSection::Sound,
                         "<Ptx_Event N=\"1\"><Title>Inconnu</Title><Ptx>INT</Ptx></Ptx_Event>")
                  .refusal,
              "Clé non trouvée: Inconnu");
    EXPECT_EQ(base.Build(XmlSection::Sound,
                         "<Ptx_Event Id=\"00999999\" N=\"1\"><Ptx>INT</Ptx></Ptx_Event>")
                  .refusal,
              "Clé non trouvée: 00999999");
}

}  // namespace
}  // namespace toverin
