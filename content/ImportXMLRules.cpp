// The element rules of every section (see ImportXMLMapping.h and docs/xml-import.md).
#include <algorithm>
#include <stdexcept>

#include "content/ImportXMLMapping.h"
#include "store/Catalogue.h"

namespace toverin {

namespace {

using Targets = std::vector<XmlTarget>;

XmlElementRule Rule(std::string element, XmlConv conv, Targets targets, std::string kind = "") {
    XmlElementRule r;
    r.element = std::move(element);
    r.conv = conv;
    r.targets = std::move(targets);
    r.kind = std::move(kind);
    return r;
}
XmlElementRule Text(std::string element, std::string field, int occurrence = 0) {
    return Rule(std::move(element), XmlConv::Text, {{std::move(field), occurrence}});
}
XmlElementRule Num(std::string element, std::string field) {
    return Rule(std::move(element), XmlConv::Number, {{std::move(field)}});
}
XmlElementRule Date(std::string element, std::string field, int occurrence = 0) {
    return Rule(std::move(element), XmlConv::Date, {{std::move(field), occurrence}});
}
XmlElementRule Time(std::string element, std::string field) {
    return Rule(std::move(element), XmlConv::Time, {{std::move(field)}});
}
XmlElementRule Label(std::string element, std::string kind, std::string field) {
    return Rule(std::move(element), XmlConv::Label, {{std::move(field)}}, std::move(kind));
}
XmlElementRule Cpstt(std::string element, std::string section, Targets targets) {
    XmlElementRule r =
        Rule(std::move(element), XmlConv::Cpstt, std::move(targets), std::move(section));
    r.spread = true;
    return r;
}
XmlElementRule Required(XmlElementRule r) {
    r.required = true;
    return r;
}
XmlElementRule Own(XmlElementRule r) {
    r.listed = false;
    return r;
}
XmlElementRule Spread(XmlElementRule r) {
    r.spread = true;
    return r;
}
// The `count` occurrences of a repeated field, and the fields of a numbered run.
Targets Occurrences(const std::string& field, int count) {
    Targets t;
    for (int i = 0; i < count; ++i) t.push_back({field, i});
    return t;
}
Targets Parts(const std::string& field, int count) {
    Targets t;
    for (int i = 0; i < count; ++i) t.push_back({field, 0, i});
    return t;
}
Targets Fields(std::initializer_list<const char*> names) {
    Targets t;
    for (const char* n : names) t.push_back({n});
    return t;
}

// The song, in the order of the suite's list.
std::vector<XmlElementRule> WorkshopRules() {
    using C = XmlConv;
    return {
        Required(Text("@Id", "SongId")),
        Own(Text("Title", "Title")),
        Own(Text("Artist1", "Artist_1")),
        Own(Text("Artist2", "Artist_2")),
        Own(Num("Duration", "Duration")),
        Num("Quota", "Quota"),
        Label("Voice", "VOIX ", "Voice"),
        Label("Sonority", "SONOR", "Sonority"),
        Label("Group", "GROUP", "Group"),
        Text("Code", "CD_Ident."),
        Text("Filler", "BoucheTrou"),
        Label("Album", "ALBUM", "Album"),
        Label("Lot", "PAQUE", "Lot"),
        Label("Category", "CATEG", "Category"),
        Cpstt("Coef", "COULEUR", {{"Coefficient"}}),
        Cpstt("Power", "PUISSANCE", Fields({"Power_Start", "Power_Mid", "Power_End"})),
        Cpstt("Style", "STYLE", {{"Style"}}),
        Cpstt("Type", "TYPE", {{"Type"}}),
        Cpstt("Tempo", "TEMPO", Fields({"Tempo_Start", "Tempo_Mid", "Tempo_End"})),
        Num("BPM", "BPM"),
        Rule("Subject", C::Label, Occurrences("Subject", 10), "THEME"),
        Num("Year", "Year"),
        Num("Intro_Duration", "Intro_Duration"),
        Label("CodeIn", "CODEI", "Code_In"),
        Label("CodeOut", "CODEO", "Code_Out"),
        Text("Loop", "Loop"),
        Label("Label", "LABEL", "Label"),
        Label("Distributor", "DISTR", "Distrib."),
        Num("Week", "Week"),
        Text("TheoritecalDurationActive", "Theo_Dur_Act"),
        Num("TheoritecalDuration", "Theo_Dur."),
        Text("TheoritecalDurationPitch", "PitcherSurDureeTheorique"),
        Rule("Interpreter", C::Label, Occurrences("Interpreter", 10), "INTER"),
        Text("Header", "Header"),
        Text("Footer", "Footer"),
        Date("ValidityDate", "Validity_Date"),
        Text("Extension", "Ext"),
        Date("ExportDate", "Export_Date"),
        Text("PermanenteValidity", "Perma_Val."),
        Date("ValidityDateStart", "Start_Val."),
        Text("ValidityPerDate", "ValiditeParDate"),
        Text("ValidityPerWeek", "ValiditeParSemaine"),
        Date("ValidityDateEnd", "End_Val."),
        Date("ModificationDate", "DateModificationSon"),
        Text("SubCategory", "SubCat"),
        Text("PodCastActive", "PodCastActif"),
        Text("Zones", "Zones"),
        Text("PodCastACtif", "PodCastActif"),  // the older spelling, same flag
        Time("HHMMSSModification", "HHMMSSModificationSon"),
        Text("TypeEnd", "TypeOfEnd"),
        Date("MsgDate", "DateMessage"),
        Label("Label1", "LIB01", "Label1"),
        Label("Label2", "LIB02", "Label2"),
        Label("Label3", "LIB03", "Label3"),
        Text("Tranche", "Bracket"),
        Text("Live", "Live"),
        Text("ForbiddenWorkshopActive", "For_Pie_Act."),
        Rule("ForbiddenWorkshop", C::Text, Occurrences("Forbid_Piece", 10)),
        Text("OpenAir", "OpenAir"),
        Rule("Author", C::Label, Occurrences("Author", 10), "AUTEU"),
        Rule("Composer", C::Label, Occurrences("Compo.", 10), "COMPO"),
        Text("Association", "Ass_Code"),
        Text("TitleVersion", "SecondText"),
        Text("FadeOutCurve", "TypeDeCourbeFadeOut"),
        Text("OtherSystemId", "IdSysTiers:_0"),
        Date("FirstBroadcastingDate", "DateFirstBroad"),
        Num("BroadcastingNumber", "#Broad"),
        Text("NewProd", "NewProd"),
        Text("NewProdMsg", "NewProdModeAvertissement"),
        Num("BroadcastingNumberMax", "NewProdNbMax"),
        Text("NewProdMsgSend", "NewProdAvertissementDone"),
        Text("DiverseId", "ClassificationsDiverses"),
        Text("Drive", "Drive"),
        Text("Recorded", "Code_Rec."),
    };
}

std::vector<XmlSectionRules> BuildRules() {
    using S = XmlSection;
    using C = XmlConv;
    std::vector<XmlSectionRules> all;
    all.push_back({S::Commercial,
                   1,
                   0,
                   {Required(Text("@Id", "Code")), Own(Text("Name", "Name")),
                    Text("Adr1", "Adress_1"), Text("Adr2", "Adress_2"), Text("Cdp", "Zip Code"),
                    Text("Town", "Town"), Text("Tel", "Telephone"), Own(Text("Email", "Email"))}});
    all.push_back(
        {S::ActivitySector, 2, 0, {Required(Text("@Id", "Code")), Own(Text("Label", "Label"))}});
    all.push_back({S::Customer,
                   3,
                   1,
                   {Required(Text("@Id", "Code")),
                    Own(Text("Name10", "Name")),
                    Text("Adr11", "Adress_1"),
                    Text("Adr12", "Adress_2"),
                    Text("Cdp10", "Zip Code"),
                    Text("Town10", "Town"),
                    Text("Resp10", "Responsible"),
                    Text("Name20", "Name", 1),
                    Text("Adr21", "Adress_1", 1),
                    Text("Adr22", "Adress_2", 1),
                    Text("Cdp20", "Zip Code", 1),
                    Text("Town20", "Town", 1),
                    Text("Resp20", "Responsible", 1),
                    Text("Fax", "Fax"),
                    Text("Director", "Director"),
                    Text("Chief", "Adv_Manag."),
                    Text("Bank", "Bank"),
                    Text("Sector", "Sector"),
                    Date("CreateDate", "Date Creat."),
                    Text("GeoSector", "Sect_Geo."),
                    Text("Agent", "Commercial"),
                    Text("Email", "Email"),
                    Num("NbMaxSpot", "NbMaxSpot"),
                    Own(Text("Tel", "Telephone"))}});
    all.push_back(
        {S::Product,
         4,
         0,
         {Required(Text("@Id", "Code")), Own(Text("Label", "Label")), Text("Exclusive", "Exclu."),
          Num("MaxInScreen", "Max./Break"), Text("Color", "Colour")}});
    all.push_back(
        {S::Contract,
         5,
         1,
         {Required(Num("@N", "No_Contract")), Required(Text("@Id", "Customer")),
          Own(Text("Label", "Label")), Own(Text("Product", "Product")),
          Own(Text("Agent", "Commercial")), Text("State", "State"),
          Label("Exclusion", "EXCLU", "Exclusion"), Date("StartDate", "Start_Date"),
          Text("Recurrent", "Récurring"), Num("NbWeek", "Nb_Week"), Num("NbSpot", "Nb_Commercial"),
          Text("Promotion", "Promotion"), Text("Station", "Stations"), Date("EndDate", "End_Date"),
          Time("StartHour", "Start_Hour"), Time("EndHour", "End_Hour"),
          Text("ActivePromotion", "Inactive_Prom."), Text("DistantSite", "Export"),
          Text("GIE", "GIE_Import")}});
    all.push_back(
        {S::CtrSpot,
         6,
         1,
         {Required(Num("@N", "No_Contract")), Required(Num("@Id", "No_Commercial")),
          Own(Text("Label", "Label")), Own(Text("Product", "Product")), Text("Teasing", "Teasing"),
          Rule("SegReaRot", C::Number, Fields({"Nb_Seg", "Nb_Réact.", "Nb_Rot."})),
          Rule("PosSeg", C::Number, Parts("Pos_Segment", 5)),
          Rule("Voice", C::Label, Fields({"Start_Voice", "End_Voice"}), "VOIX "),
          Num("Duration", "Duration"), Text("RotationLetter", "Rot_Lettre"),
          Num("NbSpotScheduled", "NbSpotProg"), Num("Amount", "Amount"),
          Text("Comment", "Comment")}});
    all.push_back(
        {S::CtrSpotSchedule,
         7,
         2,
         {Required(Num("@N", "No_Contract")), Required(Num("@Id", "No_Spot")),
          Required(Spread(Rule("CtrSpotDatePre", C::Date, Occurrences("Date_Passage", 2)))),
          Spread(Rule("HourEcr", C::Time, Occurrences("Start_Hour", 2))),
          Own(Spread(Rule("Screen", C::Number, Occurrences("Start_Screen", 2))))}});
    all.push_back(
        {S::Artist,
         20,
         0,
         {Required(Text("@Id", "Code")), Own(Text("Label", "Label")), Text("NameCode", "Name Code"),
          Text("LabelExport", "LibelleExport"), Num("NbMaxDay", "NbMaxPassageParJour"),
          Text("idGoogle", "IdGoogle"), Num("NbBroad", "NombreDeDiffusion"),
          Text("Protection", "Protection"), Text("URL", "URL"), Text("Talent", "Talent"),
          Text("SACEM", "ExcluReleveSACEM"), Text("ForbiddenArtistActive", "Act_Art_Int"),
          Rule("ForbiddenArtist", C::Text,
               Fields({"Art_Int1", "Art_Int2", "Art_Int3", "Art_Int4", "Art_Int5"})),
          Num("Quota", "Quota"),
          Rule("Voice", C::Label, Fields({"Voice1", "Voice2", "Voice3", "Voice4", "Voice5"}),
               "VOIX "),
          Rule("Sonority", C::Label,
               Fields({"Sonority_1", "Sonority_2", "Sonority_3", "Sonority_4", "Sonority_5"}),
               "SONOR"),
          Rule("Group", C::Label, Fields({"Group_1", "Group_2", "Group_3", "Group_4", "Group_5"}),
               "GROUP")}});
    all.push_back({S::Diverse,
                   21,
                   0,
                   {Required(Text("@Id", "Code")), Own(Required(Text("Kind", "Header"))),
                    Own(Text("Label", "Label")), Own(Text("Data", "Data"))}});
    all.push_back({S::Workshop, 22, 0, WorkshopRules()});
    all.push_back(
        {S::Strategy,
         25,
         0,
         {Own(Text("@Id", "Header")), Own(Required(Label("Category", "CATEG", "Category"))),
          Rule("Strategy", C::Number, Occurrences("Strat_#", 38)),
          Rule("Priority", C::Number, Occurrences("Property", 38))}});
    all.push_back({S::WorkshopSound,
                   26,
                   0,
                   {Own(Spread(Rule("@Id", C::Text, Occurrences("SongId", 4)))),
                    Spread(Rule("CodeType", C::Text, Occurrences("TypeOfPiece", 3))),
                    Text("ExternalSound", "ExternalSound"), Text("Drive", "Drive"),
                    Text("Recorded", "Record"), Text("Stereo", "Mono/Stereo"),
                    Text("AdvCtrSpot", "Adver_Contract")}});
    all.push_back({S::Clock,
                   30,
                   0,
                   {Required(Num("@N", "Order_#")),
                    Required(Text("Clock", "Clock")),
                    Num("Icons", "Icon_#"),
                    Text("Key1", "Key_1"),
                    Text("Key2", "Key_2"),
                    Text("Key3", "Key_3"),
                    Text("Key4", "Key_4"),
                    Text("Key5", "Key_5"),
                    Num("NoPeriph", "Periph_#"),
                    Num("NoAlgo", "Algo_#"),
                    Time("Time", "Timing"),
                    Text("Filling", "Filling"),
                    Num("Bpm", "BPM"),
                    Text("CategoryFilling", "Cat_Fill"),
                    Text("AdvBreakPosTheo", "Callage"),
                    Text("ImportWeb", "ImportWeb"),
                    Text("Recycling", "Recycling"),
                    Text("CheckDuration", "CheckDur."),
                    Num("CheckDurationToBroadcast", "Dur_to_Play"),
                    Num("WishedDuration", "DureeWhised"),
                    Num("MinDuration", "Dur.Min."),
                    Num("MaxDuration", "Dur.Max."),
                    Own(Text("Code", "Code")),
                    Own(Num("Duration", "Duration")),
                    Own(Text("Type", "Type"))}});
    all.push_back(
        {S::Sound,
         31,
         0,
         {Own(Text("@Id", "SongId")), Own(Num("@N", "Order")), Required(Text("Ptx", "Code")),
          Own(Num("Position", "Position")), Own(Num("Duration", "Duration")),
          Own(Num("Periph", "Periph")), Own(Num("FadeIn", "FadeIn"))}});

    return all;
}

// Every target found by its name in its file's layout once: a misspelt name stops the program at
// its first import (and the tests), rather than writing somewhere.
std::vector<XmlSectionRules> ResolvedRules() {
    std::vector<XmlSectionRules> all = BuildRules();
    std::vector<std::string> kinds;  // each kind of label gets one place for its codes
    for (XmlSectionRules& section : all) {
        for (XmlElementRule& rule : section.rules) {
            if (rule.conv != XmlConv::Label && rule.conv != XmlConv::Cpstt) continue;
            auto at = std::find(kinds.begin(), kinds.end(), rule.kind);
            if (at == kinds.end()) at = kinds.insert(kinds.end(), rule.kind);
            rule.kindSlot = static_cast<int>(at - kinds.begin());
        }
    }
    for (XmlSectionRules& section : all) {
        section.identityDuplicates =
            (KeysOf(section.fileNumber)[static_cast<size_t>(section.identityKey)].front().flags &
             btr::kKeyDuplicates) != 0;
        const RecordLayout& layout = LayoutFor(section.fileNumber);
        for (XmlElementRule& rule : section.rules) {
            rule.nameHash = XmlElements::NameHash(rule.element);
            for (XmlTarget& t : rule.targets) {
                t.resolved = layout.Find(t.field, t.occurrence);
                if (!t.resolved ||
                    (t.part >= 0 && static_cast<size_t>(t.part) >= t.resolved->parts.size()))
                    throw std::logic_error("XML import: no field " + t.field + " in file " +
                                           std::to_string(section.fileNumber));
            }
        }
    }
    return all;
}

const std::vector<XmlSectionRules>& AllRules() {
    static const std::vector<XmlSectionRules> rules = ResolvedRules();
    return rules;
}

}  // namespace

const XmlSectionRules& ImportXMLRegles(XmlSection section) {
    for (const XmlSectionRules& r : AllRules())
        if (r.section == section) return r;
    throw std::logic_error("no rules for an XML section");
}

}  // namespace toverin
