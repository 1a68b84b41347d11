// The import on real record files: what lands, what is refused and listed, what a bad delivery
// leaves (nothing), what a validation writes (nothing).
#include "content/ImportXML.h"

#include <gtest/gtest.h>

#include "app/Text.h"
#include "content/ImportXMLFormat.h"
#include "content/ImportXMLMapping.h"
#include "store/Catalogue.h"
#include "store/RecordView.h"
#include "store/engine/Btrieve.h"
#include "tests/content/ImportSite.h"

namespace toverin {
namespace {

using testing::ImportSite;

std::string Cp(std::string_view utf8) {
    return Cp1252FromUtf8(utf8);
}

class ImportXML : public ImportSite {
  protected:
    ImportXMLResultat Run(const std::string& file, bool validation = false, int station = 1) {
        ImportXMLOptions options;
        options.base = 0;
        options.station = station;
        options.validation = validation;
        SlotBank bank("Import XML");
        return ImportXMLImporter(file, options, bank, progress);
    }
    std::string LastBox() const {
        return dialogs.messages.empty() ? "" : dialogs.messages.back().text;
    }
    RecordingProgress progress;
};

const std::string kVoices =
    "<KV3_Diverse>\r\n"
    "<Diverse Id=\"FEM\"><Kind>VOIX</Kind><Label>Féminine</Label></Diverse>\r\n"
    "</KV3_Diverse>\r\n";

TEST_F(ImportXML, AMissingLabelStopsItsRecordAndNotTheNext) {
    const std::string file = Delivery(
        "songs.xml",
        Cp(kVoices +
           "<KV3_Workshop>\r\n"
           "<Workshop Id=\"00100001\"><Title>Un</Title><Voice>Inconnue</Voice></Workshop>\r\n"
           "<Workshop Id=\"00100002\"><Title>Deux</Title><Voice>féminine</Voice></Workshop>\r\n"
           "</KV3_Workshop>\r\n"));
    ImportXMLResultat r = Run(file);
    EXPECT_TRUE(r.ended) << r.message;
    EXPECT_EQ(r.read, 3);
    EXPECT_EQ(r.inserted, 2);
    EXPECT_EQ(r.refused, 1);
    ASSERT_EQ(r.refusals.size(), 1u);
    EXPECT_EQ(r.refusals[0].Text(), "Ligne 7 (Morceaux 00100001): Clé non trouvée: VOIX Inconnue");
    std::vector<std::string> songs = ReadAll(22);
    ASSERT_EQ(songs.size(), 1u);
    EXPECT_EQ(RecordView(22, songs[0]).Text("SongId"), "00100002");
    EXPECT_EQ(RecordView(22, songs[0]).Text("Voice"), "FEM");
    EXPECT_EQ(LastBox(),
              "Fin de l'import\n\n3 enregistrements lus, 2 insérés, 0 mis à jour, 1 refusés, 0 "
              "lignes ignorées");
    EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Information);
    const std::string log = env.LogText();
    EXPECT_NE(log.find("Err: Line 7 (KV3_Workshop 00100001): Clé non trouvée: VOIX Inconnue"),
              std::string::npos);
    EXPECT_NE(
        log.find("Import XML: read: 3, inserted: 2, updated: 0, refused: 1, lines ignored: 0"),
        std::string::npos);
    // The page's progress: phases, the lines done, the end with the summary.
    ASSERT_NE(progress.Last<progress::Ended>(), nullptr);
    EXPECT_EQ(progress.Last<progress::Ended>()->outcome, progress::Outcome::Incomplete);
    EXPECT_EQ(progress.Last<progress::RecordsDone>()->done, 10);
}

TEST_F(ImportXML, AnExistingKeyIsUpdatedAndARepeatedDeliveryAddsNothing) {
    std::string existing = BlankRecord(1);
    RecordView(1, existing).SetText("Code", "COM00010");
    RecordView(1, existing).SetText("Name", "Ancien nom");
    Insert(1, 1, {existing});
    const std::string file = Delivery(
        "commercial.xml",
        Cp("<KV3_Commercial>\r\n"
           "<Commercial Id=\"COM00010\"><Name>Élodie "
           "Caron</Name><Town>Lille</Town></Commercial>\r\n"
           "<Commercial Id=\"COM00011\"><Name>Jérôme</Name></Commercial>\r\n"
           "</KV3_Commercial>\r\n"
           "<KV3_Customer>\r\n"
           "<Customer Id=\"CLI1\"><Name10>Café</Name10><Agent>COM00010</Agent></Customer>\r\n"
           "</KV3_Customer>\r\n"
           "<KV3_Contract>\r\n"
           "<Contract N=\"501\" Id=\"CLI1\"><Label>Été</Label></Contract>\r\n"
           "</KV3_Contract>\r\n"
           "<KV3_CtrSpot>\r\n"
           "<CtrSpot N=\"501\" Id=\"1\"><Label>Spot</Label><Duration>30</Duration></CtrSpot>\r\n"
           "</KV3_CtrSpot>\r\n"
           "<KV3_CtrSpotSchedule>\r\n"
           "<CtrSpotSchedule N=\"501\" Id=\"1\"><CtrSpotDatePre>20260303</CtrSpotDatePre>"
           "<HourEcr>07:15</HourEcr></CtrSpotSchedule>\r\n"
           "</KV3_CtrSpotSchedule>\r\n"));
    ImportXMLResultat first = Run(file);
    ASSERT_TRUE(first.ended) << first.message;
    EXPECT_EQ(first.inserted, 5);
    EXPECT_EQ(first.updated, 1);
    std::vector<std::string> commercials = ReadAll(1);
    ASSERT_EQ(commercials.size(), 2u);
    EXPECT_EQ(RecordView(1, commercials[0]).Utf8("Name"), "Élodie Caron");
    EXPECT_EQ(RecordView(1, commercials[0]).Text("Town"), "Lille");

    ImportXMLResultat again = Run(file);
    ASSERT_TRUE(again.ended) << again.message;
    EXPECT_EQ(again.inserted, 0);
    EXPECT_EQ(again.updated, 6);
    EXPECT_EQ(ReadAll(1).size(), 2u);
    EXPECT_EQ(ReadAll(7).size(), 1u);  // a planned date, whose key allows duplicates, too
    EXPECT_EQ(RecordView(7, ReadAll(7)[0]).Number("Duration"), 30);
}

// An engine that acknowledges one insert without writing it: what another program deleting the
// record meanwhile, or a lost write, would leave.
BtrCallFunction gRealEngine = nullptr;
int16_t LosingEngine(uint16_t op, void* pos, void* data, uint32_t* length, void* key,
                     uint8_t keyLength, int8_t keyNumber) {
    if (op == btr::kInsert && data &&
        std::string_view(static_cast<const char*>(data), 8) == "00100002")
        return btr::kSuccess;
    return gRealEngine(op, pos, data, length, key, keyLength, keyNumber);
}

TEST_F(ImportXML, TheSecondPassReportsAKeyThatDidNotLand) {
    gRealEngine = RecordEngine();
    SetRecordEngine(&LosingEngine);
    const std::string file = Delivery("songs.xml",
                                      "<KV3_Workshop>\r\n"
                                      "<Workshop Id=\"00100001\"><Title>Un</Title></Workshop>\r\n"
                                      "<Workshop Id=\"00100002\"><Title>Deux</Title></Workshop>\r\n"
                                      "</KV3_Workshop>\r\n");
    ImportXMLResultat r = Run(file);
    SetRecordEngine(gRealEngine);
    EXPECT_EQ(r.inserted, 2);
    EXPECT_EQ(r.missing, 1);
    ASSERT_EQ(r.refusals.size(), 1u);
    EXPECT_EQ(r.refusals[0].Text(), "(Morceaux 00100002): Clé non trouvée: 00100002");
    EXPECT_NE(env.LogText().find("Err: FRADA22.bt6: Clé non trouvée: 00100002"), std::string::npos);
    EXPECT_NE(LastBox().find("1 clés non trouvées"), std::string::npos);
}

TEST_F(ImportXML, Iso88591AccentsLandAsWindows1252) {
    // "é" is the byte 0xE9 in the file and in the record; "œ" (0x9C) is a Windows-1252 letter
    // that Windows programs write in such files; "Ã©" is UTF-8 sent by mistake, repaired.
    const std::string file = Delivery("artists.xml",
                                      "<KV3_Artist>\r\n"
                                      "<Artist Id=\"A0001\"><Label>Zo\xE9 &amp; l'\x9C"
                                      "uvre Caf\xC3\xA9</Label></Artist>\r\n"
                                      "</KV3_Artist>\r\n");
    ImportXMLResultat r = Run(file, false, 2);
    ASSERT_TRUE(r.ended) << r.message;
    std::vector<std::string> artists = ReadAll(20, 2);
    ASSERT_EQ(artists.size(), 1u);
    RecordView v(20, artists[0]);
    EXPECT_EQ(v.Text("Label"), "Zo\xE9 & l'\x9Cuvre Caf\xE9");
    EXPECT_EQ(v.Utf8("Label"), "Zoé & l'œuvre Café");
    EXPECT_EQ(v.Text("Key"), "Z");
    EXPECT_TRUE(ReadAll(20, 1).empty());  // station 2 only
}

TEST_F(ImportXML, ValidationListsEveryRefusalAndWritesNothing) {
    const std::string file = Delivery(
        "songs.xml",
        Cp(kVoices + "<KV3_Workshop>\r\n"
                     "<Workshop Id=\"00100001\"><Voice>Féminine</Voice></Workshop>\r\n"
                     "<Workshop Id=\"00100002\"><Voice>Inconnue</Voice></Workshop>\r\n"
                     "<Workshop Id=\"00100003\"><BPM>vite</BPM></Workshop>\r\n"
                     "</KV3_Workshop>\r\n"
                     "<KV3_Workshop_Sound>\r\n"
                     "<Workshop_Sound Id=\"00100001\"><Drive>C</Drive></Workshop_Sound>\r\n"
                     "<Workshop_Sound Id=\"00100009\"><Drive>C</Drive></Workshop_Sound>\r\n"
                     "</KV3_Workshop_Sound>\r\n"));
    const auto before = Snapshot();
    ImportXMLResultat r = Run(file, true);
    EXPECT_TRUE(r.ended) << r.message;
    EXPECT_EQ(r.read, 6);
    // What the delivery brings itself counts: the label and the song 00100001 are found.
    EXPECT_EQ(r.inserted, 3);
    EXPECT_EQ(r.refused, 3);
    ASSERT_EQ(r.refusals.size(), 3u);
    EXPECT_EQ(r.refusals[0].message, "Clé non trouvée: VOIX Inconnue");
    EXPECT_EQ(r.refusals[1].message, "Valeur numérique invalide pour <BPM>: vite");
    EXPECT_EQ(r.refusals[2].message, "Clé non trouvée: 00100009");
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(LastBox().rfind("Fin de la vérification (rien n'a été écrit)", 0), 0u);
    EXPECT_NE(LastBox().find("3 à insérer"), std::string::npos);
}

TEST_F(ImportXML, BadDeliveriesAreRefusedWithTheirMessageAndTheBaseUntouched) {
    const std::string record = "<Commercial Id=\"C1\"><Name>x</Name></Commercial>\r\n";
    struct Case {
        const char* what;
        std::string bytes;
        const char* message;
    } cases[] = {
        {"not the format", "<html>\r\n<body></body>\r\n</html>\r\n",
         "n'est pas au format XML de Kavella"},
        {"truncated",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n<KV3_Commercial>\r\n" +
             record + "<Commercial Id=\"C2\"><Na",
         "Le fichier est incomplet (tronqué ?)"},
        {"invalid bytes",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n<KV3_Commercial>\r\n" +
             record + "<Commercial Id=\"C2\">\x01</Commercial>\r\n</KV3_Commercial>\r\n</KV3>\r\n",
         "Caractère invalide (code 0x01) à la ligne 5"},
        {"100,000-character line",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n<KV3_Commercial>\r\n" +
             record + "<Commercial Id=\"C2\"><Name>" + std::string(100000, 'x') +
             "</Name></Commercial>\r\n</KV3_Commercial>\r\n</KV3>\r\n",
         "La ligne 5 dépasse 65536 caractères"},
        {"unknown section",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n<KV3_Commercial>\r\n" +
             record + "</KV3_Commercial>\r\n<KV3_Planning>\r\n</KV3_Planning>\r\n</KV3>\r\n",
         "Section inconnue <KV3_Planning> à la ligne 6."},
        {"element without its closing tag",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n<KV3>\r\n<KV3_Commercial>\r\n" +
             record +
             "<Commercial Id=\"C2\"><Name>x<Town>y</Town></Commercial>\r\n"
             "</KV3_Commercial>\r\n</KV3>\r\n",
         "La balise <Name> n'est pas fermée à la ligne 5."},
    };
    const auto before = Snapshot();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        testing::WriteFile(dir.file("bad.xml"), c.bytes);
        const size_t boxes = dialogs.messages.size();
        ImportXMLResultat r = Run(dir.file("bad.xml"));
        EXPECT_FALSE(r.started);
        EXPECT_FALSE(r.ended);
        EXPECT_NE(r.message.find(c.message), std::string::npos) << r.message;
        ASSERT_EQ(dialogs.messages.size(), boxes + 1);
        EXPECT_EQ(dialogs.messages.back().icon, MsgIcon::Critical);
        EXPECT_EQ(LastBox().rfind("Le fichier n'est pas importé, la base n'a pas été modifiée.\n\n"
                                  "bad.xml: ",
                                  0),
                  0u)
            << LastBox();
        EXPECT_EQ(Snapshot(), before);
    }
    EXPECT_EQ(progress.Last<progress::Ended>()->outcome, progress::Outcome::Refused);
}

TEST_F(ImportXML, ABaseAndAStationMustBeChosen) {
    const std::string file = Delivery("empty.xml", "");
    ImportXMLOptions options;
    SlotBank bank;
    EXPECT_EQ(ImportXMLImporter(file, options, bank, progress).message, "Sélectionnez une Base");
    EXPECT_EQ(LastBox(), "Sélectionnez une Base");
    options.base = 0;
    EXPECT_EQ(ImportXMLImporter(file, options, bank, progress).message, "Sélectionnez une Station");
    options.station = 3;  // the base has two
    EXPECT_EQ(ImportXMLImporter(file, options, bank, progress).message, "Sélectionnez une Station");
    EXPECT_EQ(dialogs.messages.size(), 3u);
    options.station = 1;
    ImportXMLResultat empty = ImportXMLImporter(file, options, bank, progress);
    EXPECT_TRUE(empty.ended) << empty.message;
    EXPECT_EQ(empty.read, 0);
}

}  // namespace
}  // namespace toverin
