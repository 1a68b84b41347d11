// The demo site's sample XML deliveries: what a sales house and a music supplier would send, in
// the suite's format, so that a new user has something to preview and import. They use every
// section, accented letters, entities, CDATA, both attributes, and one name written as UTF-8 that
// the import repairs. They depend on nothing in the base but what they deliver themselves, in
// the order the import needs it (labels before the songs that name them, customers before their
// contracts), so they import as well into an empty base as into the demo's own.
#include <fstream>

#include "app/DateTime.h"
#include "app/Text.h"
#include "content/ImportXMLFormat.h"
#include "tools/DemoSite.h"

namespace toverin {

namespace {

class Delivery {
  public:
    void Open(const XmlSection section) { lines_.push_back(Tag(section, "<")); }
    void Close(const XmlSection section) { lines_.push_back(Tag(section, "</")); }
    void Add(const XmlItemLine& line) { lines_.push_back(line.Line()); }

    bool Write(const std::string& path) const {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << EnteteFichierXML() << "\r\n" << kRootOpen << "\r\n";
        for (const std::string& line : lines_) out << line << "\r\n";
        out << kRootClose << "\r\n";
        out.close();
        return static_cast<bool>(out);
    }

  private:
    static std::string Tag(XmlSection section, const char* start) {
        return start + std::string(SectionInfo(section).element) + ">";
    }
    std::vector<std::string> lines_;
};

struct Label {
    const char* kind;
    const char* code;
    const char* label;
};

// The labels the deliveries name, by kind, as the importer looks them up.
const Label kMusicLabels[] = {
    {"CATEG", "HITS", "Hits actuels"},
    {"CATEG", "NOUV", "Nouveautés"},
    {"VOIX", "FEM", "Féminine"},
    {"VOIX", "MASC", "Masculine"},
    {"SONOR", "ACOUS", "Acoustique"},
    {"GROUP", "SOLO", "Solo"},
    {"GROUP", "DUO", "Duo"},
    {"ALBUM", "ALB01", "Lumières du Nord"},
    {"PAQUE", "PAQ25", "Été 2025"},
    {"PUISS", "FORT", "Fort"},
    {"PUISS", "DOUX", "Doux"},
    {"STYLE", "POP", "Pop"},
    {"TYPE", "000", "Musique"},
    {"TEMPO", "RAPID", "Rapide"},
    {"TEMPO", "LENT", "Lent"},
    {"THEME", "AMOUR", "Amour"},
    {"THEME", "ETE", "Été"},
    {"CODEI", "FADE", "Fondu"},
    {"CODEO", "CUT", "Coupé"},
    {"LABEL", "KAVEL", "Kavella Records"},
    {"DISTR", "NORD", "Distribution du Nord"},
    {"INTER", "LM", "Léa Martin"},
    {"LIB01", "RADIO", "Édition radio"},
    {"LIB02", "LONG", "Version longue"},
    {"LIB03", "INEDI", "Inédit"},
    {"AUTEU", "JD", "Jean Dupré"},
    {"COMPO", "MR", "Marie Roussel"},
};

XmlItemLine LabelLine(const Label& l) {
    XmlItemLine line("Diverse");
    line.Attribute("Id", l.code).Element("Kind", l.kind).Element("Label", l.label);
    return line;
}

std::string Day(LocalTime today, int days) {
    return DateKey(AddDays(today, days));
}

void Commercials(Delivery& d) {
    d.Open(XmlSection::Commercial);
    d.Add(XmlItemLine("Commercial")
              .Attribute("Id", "COM00010")
              .Element("Name", "Élodie Caron")
              .Element("Adr1", "12, rue de l'Épeautre")
              .Element("Adr2", "Bâtiment B")
              .Element("Cdp", "59800")
              .Element("Town", "Lille")
              .Element("Tel", "03 20 12 34 56")
              .Element("Email", "elodie.caron@kavella.example"));
    d.Add(XmlItemLine("Commercial")
              .Attribute("Id", "COM00011")
              .Element("Name", "Jérôme Lefèvre")
              .Element("Adr1", "4, place du Théâtre")
              .Element("Cdp", "62000")
              .Element("Town", "Arras")
              .Element("Tel", "03 21 98 76 54"));
    d.Close(XmlSection::Commercial);
    d.Open(XmlSection::ActivitySector);
    d.Add(XmlItemLine("ActivitySector")
              .Attribute("Id", "CULT")
              .Element("Label", "Culture & Loisirs"));
    d.Add(XmlItemLine("ActivitySector").Attribute("Id", "SANTE").Element("Label", "Santé"));
    d.Close(XmlSection::ActivitySector);
}

void Customers(Delivery& d, LocalTime today) {
    d.Open(XmlSection::Customer);
    d.Add(XmlItemLine("Customer")
              .Attribute("Id", "CLI00101")
              .Element("Name10", "Café de l'Étoile")
              .Element("Adr11", "3, rue Esquermoise")
              .Element("Cdp10", "59000")
              .Element("Town10", "Lille")
              .Element("Resp10", "Hélène Dubois")
              // Written by a program that sent UTF-8: the import repairs it.
              .RawElement("Name20", "Comptabilit\xC3\xA9 de l'\xC3\xA9toile")
              .Element("Adr21", "BP 120")
              .Element("Cdp20", "59001")
              .Element("Town20", "Lille Cedex")
              .Element("Fax", "03 20 00 00 01")
              .Cdata("Director", "M. Paul Dubois <direction>")
              .Element("Chief", "Hélène Dubois")
              .Element("Bank", "Crédit du Nord")
              .Element("Sector", "CULT")
              .Element("CreateDate", Day(today, -30))
              .Element("GeoSector", "MEL")
              .Element("Agent", "COM00010")
              .Element("Email", "contact@cafe-etoile.example")
              .Element("NbMaxSpot", "4")
              .Element("Tel", "03 20 55 44 33"));
    d.Add(XmlItemLine("Customer")
              .Attribute("Id", "CLI00102")
              .Element("Name10", "Fleurs & Jardins du Nord")
              .Element("Adr11", "18, avenue \"Les Tilleuls\"")
              .Element("Cdp10", "62300")
              .Element("Town10", "Lens")
              .Element("Sector", "SANTE")
              .Element("Agent", "COM00011")
              .Element("CreateDate", Day(today, -12))
              .Element("NbMaxSpot", "2"));
    d.Close(XmlSection::Customer);
    d.Open(XmlSection::Product);
    d.Add(XmlItemLine("Product")
              .Attribute("Id", "PRD0000101")
              .Element("Label", "Menu du midi")
              .Element("Exclusive", "O")
              .Element("MaxInScreen", "1")
              .Element("Color", "FF8800"));
    d.Add(XmlItemLine("Product")
              .Attribute("Id", "PRD0000102")
              .Element("Label", "Bouquets de saison")
              .Element("Exclusive", "N")
              .Element("MaxInScreen", "2")
              .Element("Color", "33AA33"));
    d.Close(XmlSection::Product);
}

void Contracts(Delivery& d, LocalTime today) {
    d.Open(XmlSection::Diverse);
    d.Add(LabelLine({"EXCLU", "RESTO", "Restauration"}));
    d.Add(LabelLine({"VOIX", "FEM", "Féminine"}));
    d.Add(LabelLine({"VOIX", "MASC", "Masculine"}));
    d.Close(XmlSection::Diverse);
    d.Open(XmlSection::Contract);
    const char* customers[] = {"CLI00101", "CLI00102"};
    const char* products[] = {"PRD0000101", "PRD0000102"};
    const char* labels[] = {"Campagne « Été gourmand »", "Campagne Fête des mères"};
    for (int i = 0; i < 2; ++i) {
        d.Add(XmlItemLine("Contract")
                  .Attribute("N", std::to_string(501 + i))
                  .Attribute("Id", customers[i])
                  .Element("Label", labels[i])
                  .Element("Product", products[i])
                  .Element("Agent", i == 0 ? "COM00010" : "COM00011")
                  .Element("State", "AC")
                  .Element("Exclusion", i == 0 ? "Restauration" : "")
                  .Element("StartDate", Day(today, -7))
                  .Element("Recurrent", "N")
                  .Element("NbWeek", "8")
                  .Element("NbSpot", "2")
                  .Element("Promotion", i == 0 ? "O" : "N")
                  .Element("Station", "XXX")
                  .Element("EndDate", Day(today, 60))
                  .Element("StartHour", "06:00")
                  .Element("EndHour", "21:00")
                  .Element("ActivePromotion", "N")
                  .Element("DistantSite", "N")
                  .Element("GIE", "N"));
    }
    d.Close(XmlSection::Contract);
}

void Spots(Delivery& d, LocalTime today) {
    d.Open(XmlSection::CtrSpot);
    d.Add(XmlItemLine("CtrSpot")
              .Attribute("N", "501")
              .Attribute("Id", "1")
              .Element("Label", "Été gourmand - 30 s")
              .Element("Product", "PRD0000101")
              .Element("Teasing", "N")
              .Element("SegReaRot", "1|0|2")
              .Element("PosSeg", "1|3")
              .Element("Voice", "Féminine|Masculine")
              .Element("Duration", "30")
              .Element("RotationLetter", "A")
              .Element("NbSpotScheduled", "12")
              .Element("Amount", "125000")
              .Cdata("Comment", "Texte lu par Léa : « -20 % sur le menu <b>du midi</b> »"));
    d.Add(XmlItemLine("CtrSpot")
              .Attribute("N", "501")
              .Attribute("Id", "2")
              .Element("Label", "Été gourmand - 20 s")
              .Element("Product", "PRD0000101")
              .Element("Teasing", "O")
              .Element("Voice", "Masculine")
              .Element("Duration", "20")
              .Element("Comment", "Accroche & rappel de l'adresse"));
    d.Add(XmlItemLine("CtrSpot")
              .Attribute("N", "502")
              .Attribute("Id", "1")
              .Element("Label", "Bouquets - 30 s")
              .Element("Product", "PRD0000102")
              .Element("Duration", "30"));
    d.Close(XmlSection::CtrSpot);
    d.Open(XmlSection::CtrSpotSchedule);
    const char* hours[] = {"07:15", "12:20", "18:45"};
    for (int day = 1; day <= 3; ++day) {
        for (int h = 0; h < 3; ++h) {
            const bool second = (day + h) % 3 == 0;
            d.Add(XmlItemLine("CtrSpotSchedule")
                      .Attribute("N", second ? "502" : "501")
                      .Attribute("Id", second ? "1" : std::to_string(h % 2 + 1))
                      .Element("CtrSpotDatePre", Day(today, day))
                      .Element("HourEcr", hours[h])
                      .Element("Screen", std::to_string(h + 1)));
        }
    }
    d.Close(XmlSection::CtrSpotSchedule);
}

void Artists(Delivery& d) {
    d.Open(XmlSection::Artist);
    d.Add(XmlItemLine("Artist")
              .Attribute("Id", "A0101")
              .Element("Label", "Zoé & les Étoiles")
              .Element("LabelExport", "Zoe et les Etoiles")
              .Element("NbMaxDay", "3")
              .Element("idGoogle", "kg:/m/zoe-etoiles")
              .Element("NbBroad", "0")
              .Element("Protection", "O")
              .Element("URL", "https://kavella.example/artistes/zoe")
              .Element("Talent", "O")
              .Element("SACEM", "N")
              .Element("ForbiddenArtistActive", "O")
              .Element("ForbiddenArtist", "A0102")
              .Element("Quota", "80")
              .Element("Voice", "Féminine")
              .Element("Sonority", "Acoustique")
              .Element("Group", "Solo|Duo"));
    d.Add(XmlItemLine("Artist")
              .Attribute("Id", "A0102")
              .Element("Label", "Les Marins d'Iroise")
              .Element("NameCode", "MARINS")
              .Element("NbMaxDay", "2")
              .Element("Voice", "Masculine")
              .Element("Group", "Duo"));
    d.Close(XmlSection::Artist);
}

XmlItemLine Song(const char* id, const char* title, const char* artist, int ms, LocalTime today) {
    XmlItemLine s("Workshop");
    s.Attribute("Id", id)
        .Element("Title", title)
        .Element("Artist1", artist)
        .Element("Duration", std::to_string(ms))
        .Element("Quota", "90")
        .Element("Voice", "Féminine")
        .Element("Sonority", "Acoustique")
        .Element("Group", "Solo")
        .Element("Code", "CD-KAV-0001")
        .Element("Filler", "N")
        .Element("Album", "Lumières du Nord")
        .Element("Lot", "Été 2025")
        .Element("Category", "Nouveautés")
        .Element("Coef", "Rouge vif")
        .Element("Power", "Fort|Doux|Fort")
        .Element("Style", "Pop")
        .Element("Type", "Musique")
        .Element("Tempo", "Rapide")
        .Element("BPM", "118")
        .Element("Subject", "Été|Amour")
        .Element("Year", "2025")
        .Element("Intro_Duration", "12000")
        .Element("CodeIn", "Fondu")
        .Element("CodeOut", "Coupé")
        .Element("Loop", "N")
        .Element("Label", "Kavella Records")
        .Element("Distributor", "Distribution du Nord")
        .Element("Week", "27")
        .Element("TheoritecalDurationActive", "N")
        .Element("TheoritecalDuration", "0")
        .Element("TheoritecalDurationPitch", "N")
        .Element("Interpreter", "Léa Martin")
        .Element("ValidityDate", Day(today, 365))
        .Element("Extension", "wav")
        .Element("ExportDate", Day(today, -1))
        .Element("PermanenteValidity", "O")
        .Element("ValidityDateStart", Day(today, -1))
        .Element("ValidityPerDate", "N")
        .Element("ValidityPerWeek", "N")
        .Element("ValidityDateEnd", Day(today, 365))
        .Element("ModificationDate", Day(today, -2))
        .Element("SubCategory", "ETE")
        .Element("PodCastActive", "N")
        .Element("Zones", "22222")
        .Element("HHMMSSModification", "10:15:00")
        .Element("TypeEnd", "F")
        .Element("MsgDate", Day(today, 14))
        .Element("Label1", "Édition radio")
        .Element("Label2", "Version longue")
        .Element("Label3", "Inédit")
        .Element("Tranche", "AM")
        .Element("Live", "N")
        .Element("ForbiddenWorkshopActive", "O")
        .Element("ForbiddenWorkshop", "00100002")
        .Element("OpenAir", "N")
        .Element("Author", "Jean Dupré")
        .Element("Composer", "Marie Roussel")
        .Element("Association", "ASSO01")
        .Element("TitleVersion", "Version radio")
        .Element("FadeOutCurve", "L")
        .Element("OtherSystemId", "EXT-0001")
        .Element("FirstBroadcastingDate", Day(today, 1))
        .Element("BroadcastingNumber", "0")
        .Element("NewProd", "O")
        .Element("NewProdMsg", "1")
        .Element("BroadcastingNumberMax", "20")
        .Element("NewProdMsgSend", "N")
        .Element("DiverseId", "DIV01")
        .Element("Drive", "C")
        .Element("Recorded", id);
    return s;
}

void Songs(Delivery& d, LocalTime today) {
    d.Open(XmlSection::Diverse);
    for (const Label& l : kMusicLabels) d.Add(LabelLine(l));
    d.Add(XmlItemLine("Diverse")
              .Attribute("Id", "ROUGE")
              .Element("Kind", "COULE")
              .Element("Label", "Rouge vif")
              .Cdata("Data", "Couleur affichée <#FF0000>"));
    d.Close(XmlSection::Diverse);
    Artists(d);
    d.Open(XmlSection::Workshop);
    d.Add(Song("00100001", "L'été à Lille", "A0101", 215000, today));
    d.Add(Song("00100002", "Sous la pluie de Roubaix", "A0102", 187500, today));
    d.Add(Song("00100003", "Les \"Grands\" Soirs", "A0101", 242000, today));
    d.Close(XmlSection::Workshop);
    d.Open(XmlSection::Strategy);
    d.Add(XmlItemLine("Strategy")
              .Attribute("Id", "PRIOR")
              .Element("Category", "Nouveautés")
              .Element("Strategy", "1|2|3")
              .Element("Priority", "60|30|10"));
    d.Add(XmlItemLine("Strategy")
              .Attribute("Id", "PRIOR")
              .Element("Category", "Hits actuels")
              .Element("Strategy", "1|2")
              .Element("Priority", "80|20"));
    d.Close(XmlSection::Strategy);
    d.Open(XmlSection::WorkshopSound);
    d.Add(XmlItemLine("Workshop_Sound")
              .Attribute("Id", "00100001")
              .Element("CodeType", "M")
              .Element("ExternalSound", "N")
              .Element("Drive", "C")
              .Element("Recorded", "00100001")
              .Element("Stereo", "S")
              .Element("AdvCtrSpot", ""));
    // Named by its title: the import finds the song's code.
    d.Add(XmlItemLine("Workshop_Sound")
              .Element("Title", "Sous la pluie de Roubaix")
              .Element("CodeType", "M")
              .Element("Drive", "D")
              .Element("Recorded", "00100002")
              .Element("Stereo", "S"));
    d.Close(XmlSection::WorkshopSound);
}

void Clocks(Delivery& d) {
    d.Open(XmlSection::Clock);
    struct Event {
        const char* code;
        const char* type;
        int duration;
    } events[] = {{"JIN", "JIN", 10},
                  {"CATEGNOUV", "000", 210},
                  {"CATEGHITS", "000", 210},
                  {"PUB", "PUB", 90}};
    for (int i = 0; i < 4; ++i) {
        d.Add(XmlItemLine("Clock_Event")
                  .Attribute("N", std::to_string(i + 1))
                  .Element("Clock", "DEMO")
                  .Element("Icons", std::to_string(i + 1))
                  .Element("Key1", i == 1 ? "NOUV" : "")
                  .Element("NoPeriph", "1")
                  .Element("NoAlgo", "2")
                  .Element("Time", "00:" + ZeroPad(i * 15, 2) + ":00")
                  .Element("Filling", "A")
                  .Element("Bpm", "0")
                  .Element("CategoryFilling", i == 1 ? "NOUV" : "")
                  .Element("AdvBreakPosTheo", i == 3 ? "O" : "N")
                  .Element("ImportWeb", "N")
                  .Element("Recycling", "N")
                  .Element("CheckDuration", "O")
                  .Element("CheckDurationToBroadcast", std::to_string(events[i].duration))
                  .Element("WishedDuration", std::to_string(events[i].duration))
                  .Element("MinDuration", std::to_string(events[i].duration - 5))
                  .Element("MaxDuration", std::to_string(events[i].duration + 30))
                  .Element("Code", events[i].code)
                  .Element("Duration", std::to_string(events[i].duration))
                  .Element("Type", events[i].type));
    }
    d.Close(XmlSection::Clock);
    d.Open(XmlSection::Sound);
    d.Add(XmlItemLine("Ptx_Event")
              .Attribute("Id", "00100001")
              .Attribute("N", "1")
              .Element("Ptx", "INT")
              .Element("Position", "12000")
              .Element("Duration", "215000")
              .Element("Periph", "1")
              .Element("FadeIn", "500"));
    d.Add(XmlItemLine("Ptx_Event")
              .Element("Title", "Sous la pluie de Roubaix")
              .Attribute("N", "2")
              .Element("Ptx", "OUT")
              .Element("Position", "180000")
              .Element("Duration", "7500"));
    d.Close(XmlSection::Sound);
}

}  // namespace

std::vector<std::string> WriteDemoDeliveries(const std::string& folder, LocalTime today) {
    std::vector<std::string> written;
    Delivery commercial;
    Commercials(commercial);
    Customers(commercial, today);
    Contracts(commercial, today);
    Spots(commercial, today);
    Delivery programmes;
    Songs(programmes, today);
    Clocks(programmes);
    for (auto [name, delivery] : {std::pair{"Livraison_Commerciale.xml", &commercial},
                                  std::pair{"Livraison_Programmes.xml", &programmes}}) {
        const std::string path = folder + name;
        if (!delivery->Write(path)) return {};
        written.push_back(path);
    }
    return written;
}

}  // namespace toverin
