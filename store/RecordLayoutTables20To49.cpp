// Record layouts of the music, history and V 3.4 files (20..49).
//
// Titles and labels that a key covers only in part: the index sorts on the first characters,
// the record keeps the whole text. So the song's title (file 22) is 40 characters at position
// 24, of which key 5 takes the first 20; the same holds for the titles of files 23, 24 and 29,
// the label of file 21 (key 1 takes 10 of 30) and the artist's label (file 20, key 20 of 30).
#include "store/LayoutBuilder.h"

namespace toverin::layout {

namespace {

RecordLayout Artists() {
    LayoutBuilder b(20, 300);
    b.Text("Code", 5)
        .Text("Name Code", 10)
        .Text("Label", 30)  // keys on its first 20 characters; the key letter sits at 46
        .Text("Key", 1)
        .Num("Nb_Disks", 4)
        .Num("Duration cum.", 8)
        .Text("Protection", 1)
        .Num("Sep_Day", 2)
        .Num("Sep_Hour", 2)
        .Num("Sep_Minute", 2)
        .Text("URL", 58)
        .Text("Talent", 1)
        .Text("LibelleExport", 30)
        .Num("NbMaxPassageParJour", 2)
        .Text("IdGoogle", 20)
        .Text("NombreDeDiffusionGestion", 1)
        .Num("NombreDeDiffusion", 6)
        .Text("Filler", 5)
        .Text("ExcluReleveSACEM", 1)
        .Text("Exlusion", 1)
        .Text("Act_Art_Int", 1)
        .Num("Sep_Day", 2)
        .Num("Sep_Hour", 2)
        .Num("SeP_Minute", 2);
    for (const char* name : {"Art_Int1", "Art_Int2", "Art_Int3", "Art_Int4", "Art_Int5"}) {
        b.Text(name, 5);
    }
    b.Num("Quota", 3);
    for (const char* name : {"Voice1", "Voice2", "Voice3", "Voice4", "Voice5", "Sonority_1",
                             "Sonority_2", "Sonority_3", "Sonority_4", "Sonority_5", "Group_1",
                             "Group_2", "Group_3", "Group_4", "Group_5"}) {
        b.Text(name, 5);
    }
    return b.Build();
}

RecordLayout Labels() {
    // The small code tables: a five-character kind ("CATEG", "THEME", "VOIX " …), the code,
    // the label, and data of the kind's own.
    return LayoutBuilder(21, 980)
        .Text("Header", 5)
        .Text("Code", 5)
        .Text("Label", 30)
        .Text("Data", 940)
        .Build();
}

RecordLayout Songs() {
    LayoutBuilder b(22, 900);
    b.Text("SongId", 8)
        .Text("Artist_1", 5)
        .Text("Artist_2", 5)
        .Text("Album", 5)
        .Text("Title", 40)
        .Text("Lot", 5)
        .Text("Category", 5)
        .Text("Group", 5)
        .Text("Voice", 5)
        .Text("Sonority", 5)
        .Text("Coefficient", 5)
        .Text("Colour", 5)
        .Text("Power_Start", 5)
        .Text("Power_Mid", 5)
        .Text("Power_End", 5)
        .Text("Style", 5)
        .Text("Type", 5)
        .Text("Tempo_Start", 5)
        .Text("Tempo_Mid", 5)
        .Text("Tempo_End", 5)
        .Num("BPM", 3)
        .Num("Duration", 8)  // milliseconds
        .Num("Quota", 3)
        .Text("Exclusion", 5)
        .Num("Year", 4)
        .Num("Intro_Duration", 8)
        .Text("Code_In", 5)
        .Text("Code_Out", 5)
        .Text("Loop", 1)
        .Text("Drive", 1)
        .Text("Code_Rec.", 10)
        .Num("File_Size", 10)
        .Text("Label", 5)
        .Text("Distrib.", 5)
        .Text("CD_Ident.", 20)
        .Text("Base_Exchange", 1)
        .Num("Week", 2)
        .Text("Theo_Dur_Act", 1)
        .Num("Theo_Dur.", 8)
        .Text("Header", 8)
        .Text("Footer", 8)
        .Text("DataInternetPresent", 1)
        .Text("ValiditeParDate", 1)
        .Text("ValiditeParSemaine", 1)
        .Text("PitcherSurDureeTheorique", 1)
        .Text("OptLineProtected", 1)
        .Date("DateMsgNouvelleProduction")
        .Date("DateModificationSon")
        .Text("ZonesDiffusion_5_5", 5)  // one mark per zone, "2" = active
        .Text("PodCastActif", 1)
        .Time("HHMMSSModificationSon", 6)
        .Text("Filler1", 20)  // the second text shown after the title: see the alias below
        .Date("Validity_Date")
        .Text("Ext", 3)
        .Date("Export_Date")
        .Text("Perma_Val.", 1)
        .Date("Start_Val.")
        .Date("End_Val.")
        .Date("Creation_Date")
        .Text("TypeOfEnd", 1)
        .Text("Export_Site", 5)
        .Date("Export_Date")
        .Date("DateMessage ")
        .Text("Label1", 5)
        .Text("Label2", 5)
        .Text("Label3", 5)
        .Text("Bracket", 2)
        .Text("Live", 1)
        .Text("For_Pie_Act.", 1)
        .Num("For_Pie_Day", 1)
        .Time("For_Pie_Hour", 2)
        .Time("For_Pie_Min", 2)
        .Text("OpenAir", 1)
        .Num("Ass_#", 2)
        .Text("Ass_Code", 8)
        .Text("TypeDeCourbeFadeOut", 1)
        .Text("IdSysTiers:_0", 10)
        .Date("DateFirstBroad")
        .Num("#Broad", 6)
        .Text("NewProd", 1)
        .Text("NewProdModeAvertissement", 1)
        .Num("NewProdNbMax", 3)
        .Text("NewProdAvertissementDone", 1)
        .Text("ClassificationsDiverses", 10)
        .Date("DateModificationFiche")
        .Text("SubCat", 5);
    // Ten groups of composer, author, forbidden song, interpreter and subject, each a column of
    // its own: the viewer's 136 columns of a song.
    for (int i = 0; i < 10; ++i) {
        b.Text("Compo.", 5).Text("Author", 5).Text("Forbid_Piece", 8).Text("Interpreter", 5);
        b.Text("Subject", 5);
    }
    // Whether the song may fill a gap in the schedule, as the XML deliveries say it.
    b.Text("BoucheTrou", 1).Hidden();
    // The 20 bytes after the modification time, left unnamed by the viewer, carry the song's
    // second text (its version), which lists show after the title: "Title - SecondText".
    return b.Alias("SecondText", "Filler1")
        .Alias("Zones", "ZonesDiffusion_5_5")
        .Build("Filler", false);
}

RecordLayout SongStack(int file, const char* group) {
    // Key 2 joins the subject or category with the first 20 characters of the title at 51.
    return LayoutBuilder(file, 100)
        .Text("SongId", 8)
        .Text(group, 5)
        .Num("Order_#", 6)
        .Num("Old_#", 6)
        .Text("Artist", 25)
        .Text("Title", 30)
        .Num("Duration", 6)
        .Date("Old Date")
        .Time("Old Hour", 6)
        .Build();
}

RecordLayout Priorities() {
    // Header and category (key 1/10), then 38 strategy/property pairs: the viewer's 78 columns.
    LayoutBuilder b(25, 250);
    b.Text("Header", 5).Text("Category", 5);
    for (int i = 0; i < 38; ++i) b.Num("Strat_#", 2).Num("Property", 3);
    return b.Build("Filler", false);
}

RecordLayout RecorderSongs() {
    // Keys: song 1/8; kind + artist + song 9/19; kind + category + song 28/14; kind + title +
    // song 42/39. The kind of piece is one character.
    return LayoutBuilder(26, 150)
        .Text("SongId", 8)
        .Text("TypeOfPiece", 1)
        .Text("Artist_Code", 10)
        .Text("SongId", 8)
        .Text("TypeOfPiece", 1)
        .Text("Category", 5)
        .Text("SongId", 8)
        .Text("TypeOfPiece", 1)
        .Text("Title", 30)
        .Text("SongId", 8)
        .Text("Artist", 10)
        .Text("Filler", 4)
        .Text("Drive", 1)
        .Text("Record", 10)
        .Num("Duration", 6)
        .Text("Mono/Stereo", 1)
        .Text("Ext", 3)
        .Text("Title2", 25)
        .Text("Adver_Contract", 9)
        .Text("Curve", 1)
        // The XML deliveries mark a sound kept outside the base's sound folders here.
        .Alias("ExternalSound", "Filler")
        .Build();
}

RecordLayout AdvertisingOrder() {
    return LayoutBuilder(27, 50)
        .Date("Date")
        .Time("HH", 2)
        .Num("EE", 2)
        .Num("PP", 2)
        .Text("SongId", 8)
        .Time("Theo Hour", 6)
        .Num("Theo Duration", 6)
        .Text("Drive", 1)
        .Num("Duration_Mill", 8)
        .Text("To_Fill", 1)
        .Num("Real_Dur_S.", 5)
        .Build();
}

RecordLayout Broadcast() {
    // Keys: real date and time + position 1/16; song 97/8; theoretical date and time 109/14.
    return LayoutBuilder(28, 150)
        .Date("Real Date")
        .Time("HH", 2)
        .Time("MM", 2)
        .Time("SS", 2)
        .Num("PP", 2)
        .Text("Command", 80)
        .Text("SongId", 8)
        .Text("Origin", 1)
        .Text("Status", 1)
        .Text("CodeUser", 2)
        .Date("Theo_Date")
        .Time("Theo_Hour", 2)
        .Time("Theo_Min", 2)
        .Time("Theo_Sec", 2)
        .Num("Broadcasted_Duration", 8)
        .Build();
}

RecordLayout SongKeys() {
    // Header ("SITES" marks site records, which the backup leaves out) + code + song is key 0.
    return LayoutBuilder(29, 100)
        .Text("Header", 5)
        .Text("Code", 5)
        .Text("SongId", 8)
        .Text("Title", 40)
        .Build();
}

RecordLayout Clocks() {
    return LayoutBuilder(30, 250)
        .Text("Clock", 5)
        .Num("Order_#", 3)
        .Num("Duration", 6)
        .Text("Key_1", 5)
        .Text("Key_2", 5)
        .Text("Key_3", 5)
        .Text("Key_4", 5)
        .Text("Key_5", 5)
        .Num("Periph_#", 2)
        .Num("Algo_#", 2)
        .Time("Timing", 6)
        .Text("Filling", 1)
        .Text("Code", 13)  // a song code, or "CATEG" and a category code
        .Text("Subject", 5)
        .Text("Sonority", 5)
        .Text("Voice", 5)
        .Text("Colour", 5)
        .Text("Power", 5)
        .Text("Style", 5)
        .Text("Type", 5)
        .Text("Tempo", 5)
        .Num("BPM", 3)
        .Text("Cat_Fill", 5)
        .Text("Callage", 1)
        .Text("Label_1", 5)
        .Text("Label_2", 5)
        .Text("Label_3", 5)
        .Text("Open_Air", 1)
        .Text("Live", 1)
        .Text("Artist", 5)
        .Text("Loop", 1)
        .Text("ImportWeb", 1)
        .Text("Recycling", 1)
        .Text("ImportSelector", 1)
        .Text("Bed", 8)
        .Text("CheckDur.", 1)
        .Num("Dur_to_Play", 6)
        .Num("DureeWhised", 6)
        .Num("Dur.Min.", 6)
        .Num("Dur.Max.", 6)
        .Num("Icon_#", 3)
        .Build();
}

RecordLayout Pointers() {
    return LayoutBuilder(31, 50)
        .Text("SongId", 8)
        .Text("Code", 3)
        .Num("Order", 2)
        .Num("Position", 10)
        .Num("Duration", 10)
        .Num("Periph", 2)
        .Num("FadeIn", 6)
        .Build();
}

RecordLayout SongInfo() {
    return LayoutBuilder(32, 250).Text("SongId", 8).Text("Code", 2).Build();
}

RecordLayout ArtistHistory() {
    // Key 0: date + sequence + artist and group numbers; keys 1 and 2: artist (group) + its
    // date and time. The sequence ties the record to its event in file 35.
    return LayoutBuilder(33, 100)
        .Date("Date")
        .Num("Order_#", 6)
        .Num("Artist_#", 1)
        .Num("Group_#", 1)
        .Text("Artist", 5)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("Group", 5)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("SongId", 8)
        .Alias("Sequence", "Order_#", 1, FieldKind::Number)
        .Build();
}

RecordLayout SongHistory() {
    // Each search field carries its own copy of the date and time so that one key sorts it.
    return LayoutBuilder(34, 200)
        .Text("SongId", 8)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("Title", 40)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("Album", 5)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("Category ", 5)
        .Date("Date")
        .Time("hhmmss", 6)
        .Date("Date")
        .Num("Order_#", 6)
        .Num("Old_Stack_Pos.", 6)
        .Alias("Sequence", "Order_#", 1, FieldKind::Number)
        .Build();
}

RecordLayout EventHistory() {
    // Key 0: date, hour, break and the six-digit sequence "MM" "SS" "NN"; key 2 joins the
    // date and hour to that sequence; key 1 is the event's line in its clock (253/6).
    //
    // What the operations read and write, by field:
    //   event kind ("Son") ............ Nature       sub-kind ("Bre") ... Key_0
    //   song code (or "JIN", "LIN" …).. Piece_broadcasted
    //   second code .................... CodeLiner
    //   title, artist .................. Label, Artist
    //   break titles (13 and 10) ....... Label1, Label2
    // and the aliases below give them those names.
    return LayoutBuilder(35, 400)
        .Date("Date")
        .Time("HH", 2)
        .Text("Rup", 3)
        .Num("MM", 2)
        .Num("SS", 2)
        .Num("NN", 2)
        .Text("Clock", 5)
        .Text("Strategy", 3)
        .Num("Duration", 6)
        .Text("Key_0", 3)
        .Text("Key_1", 5)
        .Text("Key_2", 5)
        .Text("Key_3", 5)
        .Text("Key_4", 5)
        .Num("Peripheral", 2)
        .Num("Algo", 2)
        .Time("Timing", 6)
        .Text("Filling", 1)
        .Text("Nature", 3)
        .Text("Label", 40)
        .Num("BPM", 3)
        .Text("Subject", 5)
        .Text("Sonority", 5)
        .Text("Voice", 5)
        .Text("Colour", 5)
        .Text("Power", 5)
        .Text("Style", 5)
        .Text("Type", 5)
        .Text("Tempo", 5)
        .Text("Filling_Cat.", 5)
        .Num("Order_#", 3)
        .Num("Stack_Pos.", 3)
        .Text("Piece_broadcasted", 8)
        .Text("Curve", 1)
        .Num("Attenuation", 3)
        .Num("Att_Curve_Start", 3)
        .Num("Att_Curve_End", 3)
        .Num("Wished_Duration", 6)
        .Num("Min_Duration", 6)
        .Num("Max_Duration", 6)
        .Text("Loop", 1)
        .Text("NewProd", 1)
        .Text("ImportWeb", 1)
        .Text("Recycling", 1)
        .Text("ImpSelector", 1)
        .Text("Bed_Code", 8)
        .Num("BedStartPos", 6)
        .Num("BedDuration", 6)
        .Text("Check_Dur.", 1)
        .Num("Theo_Dur.", 6)
        .Num("Bed Dur_Pre", 6)
        .Text("Replace_Enable", 1)
        .Text("Jin_PrePostAdv", 1)
        .Text("Dupl_Lck", 1)
        .Text("Combl_Opt", 1)
        .Num("PeriphIdx", 2)
        .Text("CodeLiner", 8)
        .Num("NoLig_Hor", 6)
        .Text("En_Dur", 1)
        .Text("Filler", 31)
        .Num("Quota", 3)
        .Num("Screen_#", 2)
        .Text("TypeOfBroadcasting", 1)
        .Text("LinkIn", 1)
        .Num("FadeInPos", 6)
        .Num("FadeInDur", 6)
        .Num("Intro", 6)
        .Text("LinkOut", 1)
        .Num("FadeOutPos", 6)
        .Num("FadeOutDur", 6)
        .Num("Next", 6)
        .Num("Link_Duration", 6)
        .Text("Label1", 13)
        .Text("Label2", 10)
        .Text("Label3", 5)
        .Text("OpenAir", 1)
        .Text("Live", 1)
        .Text("Artist", 30)
        .Alias("Sequence", "MM", 3, FieldKind::Number)
        .Alias("EventKind", "Nature")
        .Alias("EventSubKind", "Key_0")
        .Alias("SongCode", "Piece_broadcasted")
        .Alias("SecondCode", "CodeLiner")
        .Alias("Title", "Label")
        .Alias("BreakTitle1", "Label1")
        .Alias("BreakTitle2", "Label2")
        .Build();
}

RecordLayout SoundInfo() {
    // Creation and modification dates in five parts: year, month, day, hour, minute.
    return LayoutBuilder(37, 500)
        .Text("Song Id", 8)
        .DateParts("Date Creation", {4, 2, 2, 2, 2})
        .DateParts("Date Modification", {4, 2, 2, 2, 2})
        .Num("Taille", 10)
        .Num("Duration", 10)
        .Text("UsePtx", 1)
        .Num("PtxFadeInPos", 10)
        .Num("PtxFadeInDur", 10)
        .Num("PtxIntroPos", 10)
        .Num("PtxStartNextPos", 10)
        .Num("PtxFadeOutPos", 10)
        .Num("PtxFadeOutDur", 10)
        .Num("PtxHookPosition", 10)
        .Num("PtxHookDuration", 10)
        .Num("PtxLoopPosition", 10)
        .Num("PtxLoopDuration", 10)
        .Num("PtxSendPosition", 10)
        .Num("PtxSendNoPeripherique", 2)
        .Num("PtxVolumeCorrection", 4)
        .Text("PtxSens", 1)
        .Num("PtxPitch", 4)
        .Text("Reserve1", 20)
        .Text("Reserve2", 20)
        .Text("Reserve3", 20)
        .Text("Reserve4", 20)
        .Text("Reserve5", 20)
        .Build();
}

RecordLayout FtpTools() {
    return LayoutBuilder(38, 900)
        .Text("Entete", 3)
        .Text("Id", 5)
        .Text("Lib", 40)
        .Text("Actif", 1)
        .Text("ActifPermanent", 1)
        .Date("ActifDateDebutInv")
        .Date("ActifDateFinInv")
        .Text("NomDuPoste", 30)
        .Num("Frequence", 2)
        .Num("Annee", 4)
        .Num("Mois", 2)
        .Num("Semaine", 2)
        .Num("Jour", 2)
        .Time("Heure", 2)
        .Time("Minute", 2)
        .Num("Priorite", 2)
        .Text("ExclusionId", 8)
        .Date("DateMinimaleInv")
        .Num("DateMinimalePortee", 4)
        .Text("FTPServeur", 80)
        .Num("FTPNoPort", 5)
        .Text("FTPUser", 40)
        .Text("FTPPW", 40)
        .Text("FTPCnxActive", 1)
        .Num("FTPRetry", 2)
        .Num("FTPTimeOut", 4)
        .Text("FTPSecureCnx", 1)
        .Text("FTPConvert", 1)
        .Text("ConvertFormat", 10)
        .Text("ConvertParam1", 20)
        .Text("ConvertParam2", 20)
        .Text("ConvertParam3", 20)
        .Text("ConvertParam4", 20)
        .Text("FTPDossier", 128)
        .Text("FTPFichier", 128)
        .Text("EcraserMorceau", 1)
        .Text("CodeMorceauAEcraser", 8)
        .Text("CodeMorceauADupliquer", 8)
        .Text("Normaliser", 1)
        .Text("NormalisationAutomatique", 1)
        .Num("ValeurNormalisation", 4)
        .Build("Filler1");
}

RecordLayout FtpDetail() {
    return LayoutBuilder(39, 300)
        .Text("DL", 1)
        .Num("Id", 7)
        .Text("File", 60)
        .Date("DateInv")
        .Time("HHMMSS", 6)
        .Num("Duration", 8)
        .Date("FTP DateInv")
        .Time("FTP HHMMSS", 6)
        .Num("Size", 10)
        .Text("Auto", 1)
        .Num("Status", 3)
        .Text("Comment", 100)
        .Text("SongId", 8)
        .Build();
}

RecordLayout NotBroadcast() {
    return LayoutBuilder(40, 900)
        .Text("SongId", 8)
        .Date("Date_Del")
        .Time("HHMMSS_Del", 6)
        .Text("Code", 5)
        .Text("Comment", 200)
        .Date("DateTheo")
        .Time("HHMMSSTheo", 6)
        .Build();
}

RecordLayout ConvertHeader() {
    return LayoutBuilder(41, 900)
        .Num("IdFichier", 10)
        .Text("SourceFile", 50)
        .DateParts("ConvertDate", {4, 2, 2, 2, 2, 2})
        .DateParts("ModifDateFile", {4, 2, 2, 2, 2, 2})
        .Num("FileSize", 10)
        .Text("ToDo", 1)
        .Text("TargetFile", 200)
        .Text("SourceFolder", 250)
        .Text("TargetFolder", 250)
        .Num("Result", 4)
        .Build();
}

RecordLayout ConvertDetail() {
    return LayoutBuilder(42, 900)
        .Num("IdFichier", 10)
        .Num("IdConvert", 10)
        .DateParts("ModifDateFile", {4, 2, 2, 2, 2, 2})
        .Num("FileSize", 10)
        .DateParts("StartConvert", {4, 2, 2, 2, 2, 2})
        .DateParts("EndConvert", {4, 2, 2, 2, 2, 2})
        .Num("Result", 4)
        .Text("LibErr", 500)
        .Build();
}

RecordLayout PodcastShow() {
    return LayoutBuilder(43, 4000)
        .Num("IdEmission", 8)
        .Text("Title", 60)
        .Text("Subject", 60)
        .Text("Publier", 1)
        .Text("Description", 1000)
        .Text("Link", 250)
        .DateParts("PubDate", {4, 2, 2, 2, 2, 2})
        .Text("FTPServer", 80)
        .Text("FTPUser", 40)
        .Text("FTPPW", 40)
        .Text("FTPFolder", 250)
        .Text("FTPCnx", 1)
        .Text("Webmaster", 80)
        .Text("Copyright", 80)
        .Text("Editor", 80)
        .Text("Category", 80)
        .Text("Domain", 80)
        .Text("Language", 10)
        .Text("Encodage", 20)
        .Text("Journalist", 80)
        .Text("FluxStd", 1)
        .Text("FluxSpecific", 1)
        .Text("OnlySound", 1)
        .Text("FormatFileName", 50)
        .Build();
}

RecordLayout PodcastArticle() {
    // Key 1: show + order + song (9/21).
    return LayoutBuilder(44, 4000)
        .Num("IdArticle", 8)
        .Num("IdEmission", 8)
        .Num("NoOrdre", 5)
        .Text("SongId", 8)
        .Text("Title", 60)
        .Text("Subject", 60)
        .Text("Description", 1000)
        .Text("Link", 250)
        .DateParts("PubDate", {4, 2, 2, 2, 2, 2})
        .Text("LocalFile", 250)
        .Text("URLName", 250)
        .Num("IdType", 2)
        .Text("SndFormat", 10)
        .Num("SndFreq", 6)
        .Num("SndBitRate", 6)
        .Text("Auteur", 80)
        .Text("URL", 250)
        .Text("URLComment", 250)
        .Text("Source", 80)
        .Text("Category", 80)
        .Text("Domain", 80)
        .Text("DomainLink", 250)
        .Text("GUID", 80)
        .Text("Journalist", 80)
        .Text("Publier", 1)
        .Num("SoundFileSize", 10)
        .Text("FluxStd", 1)
        .Text("FluxSpecific", 1)
        .Text("ModePublication", 1)
        .Date("DateInvPublication")
        .Time("HHMMSSPublication", 6)
        .DateParts("DateCreationHHMMSS", {4, 2, 2, 2, 2, 2})
        .DateParts("DateModificationHHMMSS", {4, 2, 2, 2, 2, 2})
        .Build();
}

RecordLayout PodcastImage() {
    return LayoutBuilder(45, 4000)
        .Num("IdEmiArt", 8)
        .Text("Title", 60)
        .Text("Description", 1000)
        .Text("Link", 250)
        .Text("LocalFile", 250)
        .Text("URLName", 250)
        .Text("DimType", 1)
        .Text("LockRation", 1)
        .Num("VValue", 6)
        .Num("HValue", 6)
        .Build();
}

RecordLayout Equivalence() {
    // One row of the equivalence grid: the row number, then one slot per station column, each
    // a category code (5) and a song code (8) of which at most one is set, then a counter and
    // five flags always written as zeros. The viewer shows the row number and the 26 slots.
    LayoutBuilder b(46, 512);
    b.Num("NoLig", 5);
    for (int i = 0; i < 26; ++i) b.Parts("SongId", {5, 8});
    return b.Num("Counter", 4).Hidden().List("Flags", 5, 1, true).Hidden().Build("Filler", false);
}

RecordLayout BroadcastCodes() {
    // Kind and code (key 1/11), grouping, then the broadcast count of each vintage: 66 pairs,
    // so that with the rest shown as "Filler" the viewer has its 136 columns.
    LayoutBuilder b(47, 4082);
    b.Text("Ent.", 3).Text("Code", 8).Text("Regp", 8);
    for (int i = 0; i < 66; ++i) b.Num("Millesime", 4).Num("Nb", 6);
    return b.Build();
}

RecordLayout Titles() {
    return LayoutBuilder(48, 100).Text("Code", 8).Text("Lib", 43).Build();
}

RecordLayout Gaps() {
    // The day, then per hour 0..23 the count of unprogrammed events and the gap in seconds
    // (signed): the viewer's 49 columns.
    LayoutBuilder b(49, 450);
    b.Date("Date");
    for (int hour = 0; hour < 24; ++hour) b.Num("NonPrg", 4).Num("Ecarts", 8);
    return b.Build("Filler", false);
}

RecordLayout Empty(int file) {
    RecordLayout l;
    l.fileNumber = file;
    return l;
}

}  // namespace

std::vector<RecordLayout> FileLayouts20To49() {
    return {
        Artists(),
        Labels(),
        Songs(),
        SongStack(23, "Subject"),
        SongStack(24, "Category"),
        Priorities(),
        RecorderSongs(),
        AdvertisingOrder(),
        Broadcast(),
        SongKeys(),
        Clocks(),
        Pointers(),
        SongInfo(),
        ArtistHistory(),
        SongHistory(),
        EventHistory(),
        Empty(36),
        SoundInfo(),
        FtpTools(),
        FtpDetail(),
        NotBroadcast(),
        ConvertHeader(),
        ConvertDetail(),
        PodcastShow(),
        PodcastArticle(),
        PodcastImage(),
        Equivalence(),
        BroadcastCodes(),
        Titles(),
        Gaps(),
    };
}

// Two forms of file 21 records that are not code tables. "VER" records the version of the
// base's structure, written by the program that last converted it; "VEE" the version of the
// data last exchanged with another station or site.
RecordLayout Layout21Ver() {
    return LayoutBuilder(21, 980, "VER")
        .Text("Header", 5)
        .Text("Code", 5)
        .Text("Label", 30)
        .Text("Version", 10)
        .Date("Date")
        .Time("hhmmss", 6)
        .Text("Program", 30)
        .Text("Computer", 30)
        .Build();
}

RecordLayout Layout21Vee() {
    return LayoutBuilder(21, 980, "VEE")
        .Text("Header", 5)
        .Text("Code", 5)
        .Text("Label", 30)
        .Text("Version", 10)
        .Date("Date")
        .Time("hhmmss", 6)
        .Num("Station", 2)
        .Text("Site", 30)
        .Text("Direction", 1)  // "E" exported, "I" imported
        .Build();
}

}  // namespace toverin::layout
