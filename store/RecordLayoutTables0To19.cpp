// Record layouts of the parameter and advertising files (0..19).
//
// Where a key starts on a field, the field starts there; where one key field follows another,
// the distance between their positions is the first one's width. A name or label that a key
// covers only in part (file 3's name, key 9/10) is wider than its key: the index sorts on the
// first characters, which is all a search by name needs.
#include "store/LayoutBuilder.h"

namespace toverin::layout {

namespace {

RecordLayout Parameters(int file) {
    // Key 1/10: header + code.
    return LayoutBuilder(file, 1000).Text("Header", 5).Text("Code", 5).Text("Name", 80).Build();
}

RecordLayout Commercials() {
    return LayoutBuilder(1, 300)
        .Text("Code", 8)
        .Text("Name", 40)  // key 9/10 on its first characters
        .Text("Adress_1", 40)
        .Text("Adress_2", 40)
        .Text("Zip Code", 10)
        .Text("Town", 40)
        .Text("Email", 80)
        .Text("Telephone", 20)  // delivered by the XML import; not a column of the viewer
        .Hidden()
        .Build();
}

RecordLayout CodeAndLabel(int file) {
    return LayoutBuilder(file, 100).Text("Code", 10).Text("Label", 30).Build();
}

RecordLayout Customers() {
    // The customer and its invoicing address repeat the same block of fields.
    return LayoutBuilder(3, 900)
        .Text("Code", 8)
        .Text("Name", 40)  // key 0 on its first ten characters
        .Text("Adress_1", 40)
        .Text("Adress_2", 40)
        .Text("Zip Code", 10)
        .Text("Town", 40)
        .Text("Responsible", 40)
        .Text("Name", 40)
        .Text("Adress_1", 40)
        .Text("Adress_2", 40)
        .Text("Zip Code", 10)
        .Text("Town", 40)
        .Text("Responsible", 40)
        .Text("Telephone", 20)
        .Text("Fax", 20)
        .Text("Director", 40)
        .Text("Adv_Manag.", 40)
        .Text("Bank", 40)
        .Text("Ticket_Off.", 40)
        .Text("Acc.", 20)
        .Text("RIB", 30)
        .Text("Sector", 10)
        .Text("Commercial", 8)
        .Date("Date Creat.")
        .Text("Studio", 1)
        .Text("Sect_Geo.", 10)
        .Text("Annonceur", 1)
        .Text("Email", 80)
        .Num("NbMaxSpot", 3)
        .Text("GIEKeyWord", 20)
        .Text("No_Tel", 20)
        .Text("Maya_Import", 1)
        .Text("Id_Maya", 10)
        .Build();
}

RecordLayout Products() {
    return LayoutBuilder(4, 100)
        .Text("Code", 10)
        .Text("Label", 30)  // key 11/10 on its first characters
        .Text("Exclu.", 1)
        .Num("Max./Break", 2)
        .Text("Colour", 6)
        .Text("CC Gestion", 5)
        .Text("CC Fam", 5)
        .Text("CC Cla", 5)
        .Text("CC Sec", 5)
        .Text("CC Var", 5)
        .Text("ProdNonAdj", 1)
        .Text("MayaImport", 1)
        .Text("Maya_Id", 10)
        .Build();
}

RecordLayout Contracts() {
    // Keys: label 40/40; customer + contract 3/14; contract 11/6; Maya campaign 145/6.
    return LayoutBuilder(5, 150)
        .Text("State", 2)
        .Text("Customer", 8)
        .Num("No_Contract", 6)
        .Text("Product", 10)
        .Text("Commercial", 8)
        .Text("Exclusion", 5)
        .Text("Label", 40)
        .Date("Start_Date")
        .Text("Récurring", 1)
        .Num("Nb_Week", 2)
        .Num("Nb_Commercial", 3)
        .Text("Promotion", 1)
        .Text("Stations", 10)  // one mark per station
        .Date("End_Date")
        .Time("Start_Hour", 4)
        .Time("End_Hour", 4)
        .Text("Inactive_Prom.", 1)
        .Text("Export", 1)
        .Text("GIE_Import", 1)
        .Text("GIE_NoCamp.", 10)
        .Date("Create_Date")
        .Text("Pos_Lock", 1)
        .Text("Promo_Gpe", 1)
        .Text("MayaImport", 1)
        .Text("Maya_IdCamp", 6)
        .Build();
}

RecordLayout Spots() {
    // A reactivation date is kept in five parts: year, month, day, hour, minute.
    LayoutBuilder b(6, 400);
    b.Num("No_Contract", 6)
        .Num("No_Commercial", 2)
        .Text("Label", 40)  // key 9/10 on its first characters
        .Text("Product", 10)
        .Text("Label_Pro", 30)
        .Num("Nb_Msg", 2)
        .Num("Nb_Seg", 2)
        .Text("Teasing", 1)
        .Num("Nb_Réact.", 1);
    for (const char* name :
         {"React1_Date", "React2_Date", "React3_Date", "React4_Date", "React5_Date"}) {
        b.DateParts(name, {4, 2, 2, 2, 2});
    }
    return b.Num("Nb_Rot.", 2)
        .List("Pos_Segment", 5, 2, true)
        .Text("Start_Voice", 5)
        .Text("End_Voice", 5)
        .Text("Cust_Type", 1)
        .Text("Act_Sect.", 10)
        .Num("Duration", 6)
        .Text("Duration_Code", 5)
        .Text("Rot_Lettre", 1)
        .Num("NbSpotProg", 4)
        .Text("GIE_Import", 1)
        .Text("GIE_NoMsg", 15)
        .Num("Amount", 10)
        .Text("Comment", 80)
        .Text("PromoInsertAuto", 1)
        .Num("PromoNbMaxInser", 2)
        .Text("Maya_Import", 1)
        .Text("Maya_Id_Msg", 10)
        .Build();
}

RecordLayout SpotDates() {
    // Two date groups (date, precision, start hour): keys 9/13 and 48/13 lead with the date.
    return LayoutBuilder(7, 100)
        .Num("No_Contract", 6)
        .Num("No_Spot", 2)
        .Date("Date_Passage")
        .Text("Precision", 1)
        .Time("Start_Hour", 4)
        .Num("Start_Screen", 2)
        .Time("End_Hour", 4)
        .Num("End_Screen", 2)
        .Text("Product", 10)
        .Text("Customer", 8)
        .Date("Date_Passage")
        .Text("Précision", 1)
        .Time("Start_Hour", 4)
        .Num("Start_Screen", 2)
        .Num("Nb_Commercials", 3)
        .Num("Duration", 6)
        .List("Seg_Pos.", 5, 2, true)
        .Text("GIE", 1)
        .Text("GIE_Doubloon", 1)
        .Text("Maya_Import", 1)
        .Text("Maya_Id Spot", 10)
        .Build();
}

RecordLayout ProgrammedAdvertising() {
    return LayoutBuilder(10, 400)
        .Date("Date")
        .Time("Hour", 6)
        .Num("No_Screen", 2)
        .Num("No_Pos_Scr", 2)
        .Text("Data", 382)
        .Build();
}

RecordLayout UserRights() {
    // Key 1/83 runs from the user to the second number.
    return LayoutBuilder(11, 350)
        .Text("User", 20)
        .Num("Station", 2)
        .Text("Module", 20)
        .Text("CodeForme", 20)
        .Num("N°", 3)
        .Text("Action", 15)
        .Num("N°", 3)
        .Text("LibForm", 80)
        .Text("LibAction", 80)
        .Text("Active", 1)
        .Text("Temporary", 1)
        .Date("Start_Date")
        .Date("End_Date")
        .Build();
}

RecordLayout ThirdCampaigns() {
    // The third system's identifier is three characters in files 12 to 16.
    return LayoutBuilder(12, 300)
        .Text("IDThirdSystem", 3)
        .Text("IDCampaign", 20)
        .Text("Label", 60)
        .Date("Start_Date")
        .Date("End_Date")
        .Text("Sector", 30)
        .Text("CampaignDeleted", 1)
        .Num("KVCampaignCompl.Int", 5)
        .Text("KVContract", 7)  // key 136/7
        .Text("IDF_Product", 20)
        .Text("Sector_Code", 10)
        .Text("Id_Camp.Jum.", 20)
        .Text("Annonceur", 50)
        .Date("Start_Date_Spot")
        .Date("End_Date_Spot")
        .Build();
}

RecordLayout ThirdSpots() {
    return LayoutBuilder(13, 300)
        .Text("IDThirdSystem", 3)
        .Text("IDCampaign", 20)
        .Text("IDSpot", 25)
        .Date("Comm_Date")  // key 49/12: date + start hour
        .Time("Start_Hour", 4)
        .Time("End_Hour", 4)
        .Num("Comm_Duration", 6)
        .Text("Doubloon", 1)
        .Num("Position", 3)
        .Text("IDMessage", 15)
        .Text("CompetitionCod1", 40)
        .Text("CompetitionCod2", 40)
        .Text("ID_Msg2", 15)  // key 170/15
        .Text("KVCtr", 7)
        .Num("KVSpot", 2)
        .Text("KVSound", 8)
        .Text("Label", 40)
        .Num("DemiHeure", 2)
        .Num("Ordre_Diff.", 2)
        .Text("Jumele", 1)
        .Num("Pos_Pref.", 2)
        .Text("Dbl_Mm_Ecr", 1)
        .Text("Regle_Diff", 2)
        .Text("Ecrin", 1)
        .Text("Multi-Ville", 1)
        .Text("MV: Stations", 10)
        .Build();
}

RecordLayout ThirdMessages() {
    return LayoutBuilder(14, 300)
        .Text("IDThirdSystem", 3)
        .Text("IDMessage", 15)
        .Text("MessageToTreat", 1)
        .Text("KVContract", 7)  // key 20/9: contract + spot
        .Num("KVCommercial", 2)
        .Text("Label", 40)
        .Text("Comment", 80)
        .Num("Comm_Duration", 6)
        .Text("Studio", 1)
        .Text("ValidityCode", 5)
        .DateParts("Modif.DateSoundFile", {4, 2, 2, 2, 2, 2})
        .Num("TailleDuFichierIntegre", 10)
        .Text("KVSound", 8)
        .Text("KVLabel", 10)
        .Build();
}

RecordLayout ThirdLink(int file, const char* name, const char* ours, uint16_t oursWidth) {
    return LayoutBuilder(file, 100)
        .Text("IDThirdSystem", 3)
        .Text(name, 50)
        .Text(ours, oursWidth)
        .Build();
}

RecordLayout Planning() {
    LayoutBuilder b(17, 1000);
    b.Date("DateProg")  // key 1/14: date + hour
        .Time("Hour", 6)
        .Text("Screen", 8)  // key 15/8
        .Num("Pos", 2)
        .Num("PosReelle", 2)
        .Num("PosEffective", 2)
        .Num("PosSouhaitee", 2)
        .Text("LibCampagne", 40)
        .Text("LibMessage", 40)
        .Num("NoRotation", 2)
        .Num("NbMaxRotation", 2)
        .Text("LibClient", 40)
        .Text("CouleurProduit", 6)
        .Text("LibProduit", 40)
        .Num("KVNoContrat", 6)
        .Num("KVNoSpot", 2)
        .Text("KVCodeMorceau", 8)
        .Text("KVCodeClient", 8)
        .Text("KVCodeProduit", 10)
        .Text("KVProduitExclusif", 1)
        .Num("KVNbMaxProduitExclusif", 2)
        .Text("KVProduitNonAdjacent", 1)
        .Text("KVCodeConcurrenceGIE", 10)
        .Text("KVLibClientGIE", 40)
        .Text("KVLibProduitGIE", 40)
        .Text("KVCodeVoixDeb", 5)
        .Text("KVCodeVoixFin", 5)
        .Num("KVClientNbMaxSpot", 3)
        .Text("KVCodeExclusion", 5)
        .Text("IdNature", 3)
        .Text("IdOrigine", 3)
        .Time("TrancheSouhaiteeDeb", 4)
        .Time("TrancheSouhaiteeFin", 4)
        .Text("PositionLockee", 1)
        .Text("Floating", 1)
        .Text("IdRecord", 10)
        .Num("DureeSeconde", 6)
        .Num("SoundDuration", 8)
        .Num("PlayDuration", 8)
        .Num("DemiHeure", 2)
        .Num("DemiHeureReelle", 2)
        .Num("DemiHeureSouhaitee", 2)
        .Text("GIEIDCampagne", 20)
        .Text("GIEIDMessage", 15)
        .Text("GIEIDSpot", 25)
        .Text("GIECampagneJumelee", 1)
        .Text("GIECampagneJumeleeIDCampagne", 20)
        .Text("GIERegleDiffusion", 2)
        .Num("GIEOrdreDiffusion", 2)
        .Text("GIEDoublon", 1)
        .Text("GIEDoublonMemeEcran", 1)
        .Num("GIEPositionPreferentielle", 2)
        .Text("GIECodeConcurrence1", 40)
        .Text("GIELibConcurrence1", 40)
        .Text("GIECodeConcurrence2", 40)
        .Text("GIELibConcurrence2", 40)
        .Time("GIEHHDeb", 2)
        .Time("GIEMMDeb", 2)
        .Time("GIEHHFin", 2)
        .Time("GIEMMFin", 2)
        .Text("GIEEcranEcrin", 1);
    for (const char* flag :
         {"ErrEcran", "ErrPosition", "ErrDemiHeure", "ErrTrancheHoraire", "ErrCodeMorceau",
          "ErrNonEnregistre", "ErrAutre", "ErrFill08", "ErrFill09", "ErrFill10"}) {
        b.Text(flag, 1);
    }
    return b.Text("FichierSon", 250).Build();
}

RecordLayout AdvertisingLog() {
    // Keys: customer + date 31/16; song + date 15/16; date + time 1/14.
    return LayoutBuilder(18, 250)
        .Date("Date")
        .Time("HH", 2)
        .Time("MM", 2)
        .Time("SS", 2)
        .Text("IdMorceau", 8)
        .Date("Date")
        .Text("IdClient", 8)
        .Date("Date")
        .Text("Libellé", 60)
        .Num("NoContrat", 6)
        .Num("NoSpot", 2)
        .Text("GIE_Id_Campagne", 20)
        .Text("GIE_Id_Message", 15)
        .Text("GIE_Id_Spot", 25)
        .Num("Duration", 6)
        .Build();
}

RecordLayout NinSight() {
    // Keys: Spark product 19/50; server 9/10; our song code 1/8.
    return LayoutBuilder(19, 1000)
        .Text("KVId", 8)
        .Text("ServeurId", 10)
        .Text("ProduitSparkId", 50)
        .Text("NomServeur", 50)
        .Text("NomFichier", 100)
        .Text("URL", 250)
        .Text("ProduitCTSId", 20)
        .Text("K7SourceId", 20)
        .Text("TCIn", 11)  // "HH:MM:SS:FF"
        .Text("TCOut", 11)
        .Text("TCDuree", 11)
        .Text("PAD", 1)
        .Date("DatePAD")
        .Text("ArtistId", 20)
        .Text("CategId", 20)
        .Text("SonorId", 20)
        .Text("VoiceId", 20)
        .Text("CustomerId", 20)
        .Build();
}

}  // namespace

std::vector<RecordLayout> FileLayouts0To19() {
    return {
        Parameters(0),
        Commercials(),
        CodeAndLabel(2),
        Customers(),
        Products(),
        Contracts(),
        Spots(),
        SpotDates(),
        Parameters(9),
        ProgrammedAdvertising(),
        UserRights(),
        ThirdCampaigns(),
        ThirdSpots(),
        ThirdMessages(),
        ThirdLink(15, "Sector", "KVProduct", 10),
        ThirdLink(16, "Customer", "KVCustomer", 8),
        Planning(),
        AdvertisingLog(),
        NinSight(),
    };
}

std::vector<std::string> File8Headings() {
    // File 8 is no longer part of a base; the viewer keeps the headings of its old form.
    return {"Code",        "Name",      "Adress_1", "Adress_2", "Zip_Code",   "Town",
            "Responsible", "Telephone", "Fax",      "Director", "Adv_Manag.", "Bank",
            "Ticket_Off.", "Acc.",      "RIB",      "Email"};
}

}  // namespace toverin::layout
