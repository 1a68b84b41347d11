#include "tools/DemoSite.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "app/DateTime.h"
#include "app/Ini.h"
#include "app/Text.h"
#include "content/ImportXML.h"
#include "content/ImportXMLCodes.h"
#include "store/Catalogue.h"
#include "store/RecordLayout.h"
#include "store/RecordView.h"
#include "store/engine/EngineFile.h"

namespace toverin {

namespace {

namespace fs = std::filesystem;

// ---- Sizes -------------------------------------------------------------------------------

struct Profile {
    int historyDays;
    int musicSongs;       // common to the stations; each station has a few of its own besides
    int songsPerHour;     // music events of an hour of schedule
    int adBreaksPerHour;  // in the hours 06..21
    int spotsPerBreak;
    int customers;
};

Profile ProfileOf(DemoSize size) {
    switch (size) {
        case DemoSize::Small:
            return {7, 40, 4, 1, 2, 4};
        case DemoSize::Medium:
            return {28, 200, 12, 1, 3, 12};
        case DemoSize::Large:
            break;
    }
    // About a million records in the first base, most of them schedule and histories.
    return {160, 600, 14, 2, 3, 30};
}

DemoSize Smaller(DemoSize size) {
    return size == DemoSize::Large ? DemoSize::Medium : DemoSize::Small;
}

// ---- Deterministic choices ---------------------------------------------------------------

// splitmix64: the same sequence on every platform and library, unlike the standard
// distributions, so a site is the same wherever it is made.
class Rng {
  public:
    explicit Rng(uint64_t seed) : state_(seed) {}
    uint64_t Next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    int Below(int n) { return n <= 0 ? 0 : static_cast<int>(Next() % static_cast<uint64_t>(n)); }
    int Between(int lo, int hi) { return lo + Below(hi - lo + 1); }
    template <class T>
    const T& Pick(const std::vector<T>& items) {
        return items[static_cast<size_t>(Below(static_cast<int>(items.size())))];
    }

  private:
    uint64_t state_;
};

constexpr uint64_t kSeed = 0x4B4156454C4C41ULL;  // "KAVELLA"

// ---- Names -------------------------------------------------------------------------------

const std::vector<std::string> kArtistNames = {
    "Léa Martin",           "Les Voyageurs",       "Camille Dubois",      "Hugo Lefèvre",
    "Clara Fontaine",       "Les Marins d'Iroise", "Julien Moreau",       "Manon Girard",
    "Orchestre de Kavella", "Antoine Roux",        "Inès Garnier",        "Trio Lumière",
    "Théo Lambert",         "Chloé Bonnet",        "Les Étoiles du Nord", "Maxime Fabre",
    "Sarah Mercier",        "Quatuor Ravel",       "Lucas Chevalier",     "Zoé Perrin"};

const std::vector<std::string> kTitleStarts = {"Sous",  "Loin de", "Vers",       "Avec", "Sans",
                                               "Après", "Pour",    "Au bord de", "Dans", "Contre"};
const std::vector<std::string> kTitleEnds = {"la nuit",     "l'océan",    "la ville",   "ton cœur",
                                             "les étoiles", "la pluie",   "l'hiver",    "l'été",
                                             "nos rêves",   "la lumière", "le silence", "la route",
                                             "la mer",      "Paris",      "Marseille",  "toi"};
const std::vector<std::string> kVersions = {"Version radio", "Live", "Acoustique", "Remix",
                                            "Version album"};
const std::vector<std::string> kTowns = {"Lille", "Roubaix",      "Arras",   "Amiens",
                                         "Lens",  "Valenciennes", "Béthune", "Douai"};
const std::vector<std::string> kStreets = {"rue Nationale",         "place du Général de Gaulle",
                                           "boulevard Victor Hugo", "rue de la Gare",
                                           "avenue Jean Jaurès",    "rue des Écoles"};
const std::vector<std::string> kCustomerNames = {
    "Boulangerie Martin", "Garage du Centre",         "Optique Lumière",
    "Meubles Dupont",     "Pharmacie des Halles",     "Auto-École Victor",
    "Fleurs & Jardins",   "Banque Régionale du Nord", "Supermarché Le Panier",
    "Agence Horizon",     "Restaurant La Table",      "Cinéma Le Rex",
    "Librairie Le Chêne", "Brasserie du Beffroi",     "Cuisines Lefort",
    "Piscines Azur",      "Transports Leroy",         "Salon Élégance"};
const std::vector<std::string> kCommercials = {"Sophie Marchand", "Nicolas Petit",
                                               "Aurélie Lemaire", "Karim Benali"};

struct Code {
    std::string code;
    std::string label;
};

// Code tables of file 21, by kind.
const std::vector<Code> kCategories = {
    {"HITS ", "Hits actuels"}, {"GOL80", "Gold 80"},           {"GOL90", "Gold 90"},
    {"NOUV ", "Nouveautés"},   {"CHANS", "Chanson française"}, {"ROCK ", "Rock"},
    {"JAZZ ", "Jazz"},         {"CLASS", "Classique"}};
const std::vector<Code> kThemes = {{"AMOUR", "Amour"}, {"VOYAG", "Voyage"}, {"ETE  ", "Été"},
                                   {"NUIT ", "Nuit"},  {"VILLE", "Ville"},  {"MER  ", "Mer"}};
const std::vector<Code> kClocks = {{"MATIN", "Horloge matin"},
                                   {"JOUR ", "Horloge journée"},
                                   {"SOIR ", "Horloge soirée"},
                                   {"NUIT ", "Horloge nuit"}};
const std::vector<Code> kVoices = {
    {"MASC ", "Masculine"}, {"FEM  ", "Féminine"}, {"DUO  ", "Duo"}, {"CHOEU", "Chœur"}};
const std::vector<Code> kSonorities = {{"ACOUS", "Acoustique"},
                                       {"ELEC ", "Électrique"},
                                       {"ELECT", "Électronique"},
                                       {"ORCH ", "Orchestrale"}};
const std::vector<Code> kGroups = {{"SOLO ", "Solo"}, {"GROUP", "Groupe"}, {"ORCH ", "Orchestre"}};
const std::vector<Code> kSectors = {{"AUTO", "Automobile"},    {"ALIM", "Alimentation"},
                                    {"BANQ", "Banque"},        {"IMMO", "Immobilier"},
                                    {"DISTR", "Distribution"}, {"LOISIR", "Loisirs"}};

// Song types other than music, with the titles of their sounds.
struct OtherType {
    const char* type;
    const char* title;
};
const std::vector<OtherType> kOtherTypes = {{"JIN", "Jingle Kavella"},
                                            {"LIN", "Liner antenne"},
                                            {"RUB", "Rubrique météo"},
                                            {"INF", "Flash info"}};
constexpr int kOtherSongsPerType = 6;
constexpr int kOwnSongsPerStation = 5;

// ---- Writing records ---------------------------------------------------------------------

[[noreturn]] void Failed(const std::string& what) {
    throw std::runtime_error(what);
}

void SetNum(RecordView& r, std::string_view field, long long value, int occurrence = 0) {
    if (!r.SetNumber(field, value, occurrence))
        Failed("value " + std::to_string(value) + " too wide for " + std::string(field));
}

// "HHMMSS" of a time of day in seconds; a time past midnight stays on the last second.
std::string Hhmmss(int seconds) {
    seconds = std::clamp(seconds, 0, 86399);
    return ZeroPad(seconds / 3600, 2) + ZeroPad(seconds / 60 % 60, 2) + ZeroPad(seconds % 60, 2);
}

// One record file being filled: created empty with the catalogue's layout and opened in
// accelerated mode, so that the whole load is a few large transactions made durable at Close.
class Sink {
  public:
    Sink(const std::string& path, int fileNumber, DemoFile& account)
        : fileNumber_(fileNumber), account_(account), key_(255, '\0') {
        int16_t status = engine::EngineFile::Create(path, CreationRecord(fileNumber));
        if (status != btr::kSuccess)
            Failed("status " + std::to_string(status) + " creating " + path);
        status = file_.Open(path, btr::kOpenAccelerated);
        if (status != btr::kSuccess)
            Failed("status " + std::to_string(status) + " opening " + path);
    }
    ~Sink() { file_.Close(); }

    std::string Blank() const { return BlankRecord(fileNumber_); }
    void Add(std::string& record) {
        int16_t status = file_.Call(btr::kInsert, record, key_, 0);
        if (status != btr::kSuccess)
            Failed("status " + std::to_string(status) + " inserting into " + account_.path +
                   " the record " + KeyOf(fileNumber_, 0, record));
        ++account_.records;
    }
    void Finish() {
        int16_t status = file_.Close();
        if (status != btr::kSuccess)
            Failed("status " + std::to_string(status) + " closing " + account_.path);
    }

  private:
    int fileNumber_;
    DemoFile& account_;
    engine::EngineFile file_;
    std::string key_;
};

// ---- The data of one base ----------------------------------------------------------------

struct Artist {
    std::string code;
    std::string name;
    std::string group;  // GROUP code
};

struct Song {
    std::string id;  // type + five digits: songs are grouped by type at the head of the key
    std::string type;
    std::string title;
    std::string second;
    int artist = 0;
    std::string category;
    std::string theme;
    std::string voice;
    std::string sonority;
    int durationMs = 0;
    int year = 0;
    int bpm = 0;
};

struct Customer {
    std::string code;
    std::string name;
    std::string product;
    std::string productLabel;
    std::string sector;
    std::string commercial;
    std::string town;
};

struct SpotInfo {
    int customer = 0;
    int contract = 0;  // contract number
    int number = 0;    // spot number within the contract
    std::string label;
    std::string campaign;
    std::string sound;  // song code of type PUB
    int seconds = 0;
};

// An event of an hour of schedule, as its clock lays it out.
struct ClockLine {
    enum Kind { Music, Break, Advertising } kind;
    std::string category;   // music: the category the clock asks for
    std::string breakType;  // break: "JIN", "LIN", "RUB" or "INF"
    int screen = 0;         // advertising: screen number within the hour
};

class BaseMaker {
  public:
    BaseMaker(int base, DemoSize size, int historyDays, LocalTime today, std::string dataFolder,
              DemoSiteResult& result)
        : base_(base),
          profile_(ProfileOf(size)),
          today_(StartOfDay(today)),
          data_(std::move(dataFolder)),
          result_(result),
          rng_(kSeed + static_cast<uint64_t>(base) * 7919) {
        if (historyDays >= 0) profile_.historyDays = historyDays;
    }

    void Make() {
        MakeCatalogueData();
        MakeCommonFiles();
        for (int s = 1; s <= kDemoStations; ++s) MakeStation(s);
        CreateMissingFiles();
    }

  private:
    // ---- Files and accounts

    // Creates the file (once per station, or once for the base) and opens it for loading.
    std::unique_ptr<Sink> Open(int fileNumber, int station = 1) {
        const bool perStation = CatalogueEntryFor(fileNumber).perStation == 'O';
        auto [it, fresh] = accounts_.try_emplace({fileNumber, perStation ? station : 0});
        // A second creation would wipe what the first one loaded.
        if (!fresh) Failed("file " + std::to_string(fileNumber) + " made twice");
        DemoFile& account = it->second;
        account.base = base_;
        account.station = perStation ? station : 0;
        account.fileNumber = fileNumber;
        account.path = data_ + StationFileName(fileNumber, perStation ? station : 1);
        return std::make_unique<Sink>(account.path, fileNumber, account);
    }

    // Every file of the catalogue exists in a base, even those the demo leaves empty.
    void CreateMissingFiles() {
        for (int n = 0; n < kCatalogueSize; ++n) {
            if (!CatalogueEntryFor(n).Exists()) continue;
            const bool perStation = CatalogueEntryFor(n).perStation == 'O';
            for (int s = 1; s <= (perStation ? kDemoStations : 1); ++s) {
                if (accounts_.count({n, perStation ? s : 0}) == 0) Open(n, s)->Finish();
            }
        }
        for (const auto& entry : accounts_) result_.files.push_back(entry.second);
    }

    // ---- What every station's files are made of

    void MakeCatalogueData() {
        for (size_t i = 0; i < kArtistNames.size(); ++i) {
            artists_.push_back({"A" + ZeroPad(static_cast<long long>(i) + 1, 4), kArtistNames[i],
                                kGroups[i % kGroups.size()].code});
        }
        for (int i = 0; i < profile_.musicSongs; ++i)
            songs_.push_back(MusicSong(i, "000" + ZeroPad(i + 1, 5)));
        for (const OtherType& t : kOtherTypes) {
            for (int i = 1; i <= kOtherSongsPerType; ++i) {
                Song s;
                s.id = std::string(t.type) + ZeroPad(i, 5);
                s.type = t.type;
                s.title = std::string(t.title) + " " + std::to_string(i);
                s.second = "Habillage";
                s.artist = 1;
                s.category = "";
                s.durationMs = rng_.Between(5, 40) * 1000;
                s.year = 2020 + i % 5;
                songs_.push_back(s);
            }
        }
        for (int i = 0; i < profile_.customers; ++i) {
            Customer c;
            c.code = "CLI" + ZeroPad(i + 1, 5);
            c.name = kCustomerNames[static_cast<size_t>(i) % kCustomerNames.size()];
            if (i >= static_cast<int>(kCustomerNames.size()))
                c.name += " " + kTowns[static_cast<size_t>(i) % kTowns.size()];
            c.product = "PRD" + ZeroPad(i + 1, 7);
            c.productLabel = "Produits " + c.name;
            c.sector = rng_.Pick(kSectors).code;
            c.commercial =
                "COM" + ZeroPad(rng_.Below(static_cast<int>(kCommercials.size())) + 1, 5);
            c.town = rng_.Pick(kTowns);
            customers_.push_back(c);
            for (int k = 1; k <= 2; ++k) {
                SpotInfo spot;
                spot.customer = i;
                spot.contract = 100 + i;
                spot.number = k;
                spot.campaign = "Campagne " + c.name;
                spot.label = c.name + (k == 1 ? " - Été" : " - Promotion");
                spot.sound = "PUB" + ZeroPad(i * 2 + k, 5);
                spot.seconds = k == 1 ? 30 : 20;
                spots_.push_back(spot);

                Song sound;
                sound.id = spot.sound;
                sound.type = "PUB";
                sound.title = spot.label;
                sound.second = c.name;
                sound.durationMs = spot.seconds * 1000;
                sound.year = 2025;
                songs_.push_back(sound);
            }
        }
    }

    // Music song `i` of the title list, under the code `id`.
    Song MusicSong(int i, const std::string& id) {
        Song s;
        s.id = id;
        s.type = "000";
        s.title = kTitleStarts[static_cast<size_t>(i) % kTitleStarts.size()] + " " +
                  kTitleEnds[static_cast<size_t>(i / 10) % kTitleEnds.size()];
        int round = i / static_cast<int>(kTitleStarts.size() * kTitleEnds.size());
        if (round > 0) s.title += " (" + std::to_string(round + 1) + ")";
        s.second = rng_.Pick(kVersions);
        s.artist = rng_.Below(static_cast<int>(artists_.size()));
        s.category = rng_.Pick(kCategories).code;
        s.theme = rng_.Pick(kThemes).code;
        s.voice = rng_.Pick(kVoices).code;
        s.sonority = rng_.Pick(kSonorities).code;
        s.durationMs = rng_.Between(150, 290) * 1000 + rng_.Below(1000);
        s.year = rng_.Between(1965, 2025);
        s.bpm = rng_.Between(70, 140);
        return s;
    }

    // A station's catalogue: the common songs, a few titles written its own way (so that the
    // label duplication finds differences), and a few songs of its own (which the equivalence
    // table maps between the stations).
    std::vector<Song> StationSongs(int station) {
        std::vector<Song> songs = songs_;
        for (size_t i = 0; i < songs.size(); ++i) {
            if (station > 1 && songs[i].type == "000" && i % 7 == static_cast<size_t>(station))
                songs[i].title = UpperAscii(songs[i].title);
        }
        for (int i = 0; i < kOwnSongsPerStation; ++i) {
            const int title = profile_.musicSongs + station * kOwnSongsPerStation + i;
            songs.push_back(MusicSong(title, "0009" + std::to_string(station) + ZeroPad(i + 1, 3)));
        }
        std::sort(songs.begin(), songs.end(),
                  [](const Song& a, const Song& b) { return a.id < b.id; });
        return songs;
    }

    std::string CategoryLabel(const std::string& code) const {
        for (const Code& c : kCategories)
            if (c.code == code) return c.label;
        return "";
    }

    // ---- Files common to the base

    void MakeCommonFiles() {
        {
            auto f = Open(0);
            for (const auto& [header, code, name] :
                 std::vector<std::tuple<std::string, std::string, std::string>>{
                     {"PARAM", "00001", "Radio Kavella"},
                     {"BASE ", ZeroPad(base_ + 1, 5), base_ == 0 ? "Kavella FM" : "Kavella Info"},
                     {"STAT ", "00001", "Stations de la base"},
                     {"VERS ", "00001", "3.4"}}) {
                std::string r = f->Blank();
                RecordView v(0, r);
                v.SetText("Header", header);
                v.SetText("Code", code);
                v.SetText("Name", name);
                f->Add(r);
            }
            f->Finish();
        }
        {
            auto f = Open(9);
            std::string r = f->Blank();
            RecordView v(9, r);
            v.SetText("Header", "BKP  ");
            v.SetText("Code", "00001");
            v.SetText("Name", "Sauvegarde quotidienne à 02:02");
            f->Add(r);
            f->Finish();
        }
        {
            auto f = Open(1);
            for (size_t i = 0; i < kCommercials.size(); ++i) {
                std::string r = f->Blank();
                RecordView v(1, r);
                v.SetText("Code", "COM" + ZeroPad(static_cast<long long>(i) + 1, 5));
                v.SetText("Name", kCommercials[i]);
                v.SetText("Adress_1", kStreets[i % kStreets.size()]);
                v.SetText("Zip Code", "59000");
                v.SetText("Town", "Lille");
                v.SetText("Email", "commercial" + std::to_string(i + 1) + "@kavella.example");
                f->Add(r);
            }
            f->Finish();
        }
        {
            auto f = Open(2);
            for (const Code& c : kSectors) {
                std::string r = f->Blank();
                RecordView v(2, r);
                v.SetText("Code", c.code);
                v.SetText("Label", c.label);
                f->Add(r);
            }
            f->Finish();
        }
        MakeCustomersAndProducts();
        MakeUserRights();
        MakeThirdSystems();
        MakeSoundInfoAndTools();
        MakeEquivalences();
    }

    void MakeCustomersAndProducts() {
        auto customers = Open(3);
        auto products = Open(4);
        for (size_t i = 0; i < customers_.size(); ++i) {
            const Customer& c = customers_[i];
            std::string r = customers->Blank();
            RecordView v(3, r);
            v.SetText("Code", c.code);
            v.SetText("Name", c.name);
            v.SetText("Adress_1", std::to_string(rng_.Between(1, 120)) + " " + rng_.Pick(kStreets));
            v.SetText("Zip Code", "59" + ZeroPad(rng_.Between(0, 999), 3));
            v.SetText("Town", c.town);
            v.SetText("Responsible", rng_.Pick(kCommercials));
            v.SetText("Name", c.name, 1);
            v.SetText("Town", c.town, 1);
            v.SetText("Telephone", "03 20 " + ZeroPad(rng_.Below(100), 2) + " " +
                                       ZeroPad(rng_.Below(100), 2) + " " +
                                       ZeroPad(rng_.Below(100), 2));
            v.SetText("Sector", c.sector);
            v.SetText("Commercial", c.commercial);
            v.SetText("Date Creat.", DateKey(AddDays(today_, -400 + static_cast<int>(i))));
            v.SetText("Annonceur", "O");
            v.SetText("Email", "contact@client" + std::to_string(i + 1) + ".example");
            SetNum(v, "NbMaxSpot", 4);
            customers->Add(r);

            std::string p = products->Blank();
            RecordView pv(4, p);
            pv.SetText("Code", c.product);
            pv.SetText("Label", c.productLabel);
            pv.SetText("Exclu.", i % 3 == 0 ? "O" : "N");
            SetNum(pv, "Max./Break", 1);
            pv.SetText("Colour", ZeroPad(rng_.Below(999999), 6));
            products->Add(p);
        }
        customers->Finish();
        products->Finish();
    }

    void MakeUserRights() {
        auto f = Open(11);
        const char* users[] = {"ADMIN", "PROG", "PUB"};
        const char* actions[] = {"Backup", "Restauration", "Création", "Duplication"};
        for (const char* user : users) {
            int n = 0;
            for (const char* action : actions) {
                std::string r = f->Blank();
                RecordView v(11, r);
                v.SetText("User", user);
                SetNum(v, "Station", 1);
                v.SetText("Module", "KV3_Toverin");
                v.SetText("CodeForme", "Frm_Main");
                SetNum(v, "N°", ++n);
                v.SetText("Action", action);
                SetNum(v, "N°", n, 1);
                v.SetText("LibForm", "Fenêtre principale");
                v.SetText("LibAction", action);
                v.SetText("Active", std::string(user) == "ADMIN" || n == 1 ? "O" : "N");
                v.SetText("Temporary", "N");
                f->Add(r);
            }
        }
        f->Finish();
    }

    void MakeThirdSystems() {
        auto campaigns = Open(12);
        auto thirdSpots = Open(13);
        auto messages = Open(14);
        auto products = Open(15);
        auto clients = Open(16);
        auto ninsight = Open(19);
        for (int i = 0; i < 3 && i < static_cast<int>(customers_.size()); ++i) {
            const Customer& c = customers_[static_cast<size_t>(i)];
            const std::string campaign = "CMP" + ZeroPad(i + 1, 6);
            std::string r = campaigns->Blank();
            RecordView v(12, r);
            v.SetText("IDThirdSystem", "NIN");
            v.SetText("IDCampaign", campaign);
            v.SetText("Label", "Campagne régionale " + c.name);
            v.SetText("Start_Date", DateKey(AddDays(today_, -30)));
            v.SetText("End_Date", DateKey(AddDays(today_, 30)));
            v.SetText("Sector", c.sector);
            v.SetText("CampaignDeleted", "N");
            v.SetText("KVContract", ZeroPad(100 + i, 7));
            v.SetText("IDF_Product", c.product);
            v.SetText("Annonceur", c.name);
            campaigns->Add(r);

            std::string m = messages->Blank();
            RecordView mv(14, m);
            mv.SetText("IDThirdSystem", "NIN");
            mv.SetText("IDMessage", "MSG" + ZeroPad(i + 1, 6));
            mv.SetText("MessageToTreat", "N");
            mv.SetText("KVContract", ZeroPad(100 + i, 7));
            SetNum(mv, "KVCommercial", 1);
            mv.SetText("Label", "Message " + c.name);
            SetNum(mv, "Comm_Duration", 30);
            mv.SetText("KVSound", "PUB" + ZeroPad(i * 2 + 1, 5));
            messages->Add(m);

            for (int d = 0; d < 3; ++d) {
                std::string s = thirdSpots->Blank();
                RecordView sv(13, s);
                sv.SetText("IDThirdSystem", "NIN");
                sv.SetText("IDCampaign", campaign);
                sv.SetText("IDSpot", "SPT" + ZeroPad(i * 10 + d + 1, 6));
                sv.SetText("Comm_Date", DateKey(AddDays(today_, d)));
                sv.SetText("Start_Hour", "0800");
                sv.SetText("End_Hour", "0900");
                SetNum(sv, "Comm_Duration", 30);
                sv.SetText("IDMessage", "MSG" + ZeroPad(i + 1, 6));
                sv.SetText("ID_Msg2", "MSG" + ZeroPad(i + 1, 6));
                sv.SetText("KVCtr", ZeroPad(100 + i, 7));
                SetNum(sv, "KVSpot", 1);
                sv.SetText("Label", "Message " + c.name);
                thirdSpots->Add(s);
            }

            std::string p = products->Blank();
            RecordView pv(15, p);
            pv.SetText("IDThirdSystem", "NIN");
            pv.SetText("Sector", c.sector + " " + c.productLabel);
            pv.SetText("KVProduct", c.product);
            products->Add(p);

            std::string k = clients->Blank();
            RecordView kv(16, k);
            kv.SetText("IDThirdSystem", "NIN");
            kv.SetText("Customer", c.name);
            kv.SetText("KVCustomer", c.code);
            clients->Add(k);

            std::string n = ninsight->Blank();
            RecordView nv(19, n);
            nv.SetText("KVId", "PUB" + ZeroPad(i * 2 + 1, 5));
            nv.SetText("ServeurId", "SRV01");
            nv.SetText("ProduitSparkId", "SPARK-" + c.product);
            nv.SetText("NomServeur", "Serveur TV Nord");
            nv.SetText("NomFichier", "PUB_" + ZeroPad(i * 2 + 1, 5) + ".wav");
            nv.SetText("TCIn", "00:00:00:00");
            nv.SetText("TCOut", "00:00:30:00");
            nv.SetText("TCDuree", "00:00:30:00");
            nv.SetText("PAD", "O");
            nv.SetText("DatePAD", DateKey(AddDays(today_, -2)));
            nv.SetText("CustomerId", c.code);
            ninsight->Add(n);
        }
        for (auto* f : {&campaigns, &thirdSpots, &messages, &products, &clients, &ninsight})
            (*f)->Finish();
    }

    void MakeSoundInfoAndTools() {
        {
            auto f = Open(37);
            for (const Song& s : songs_) {
                std::string r = f->Blank();
                RecordView v(37, r);
                v.SetText("Song Id", s.id);
                std::string made = DateKey(AddDays(today_, -300));
                v.SetPart("Date Creation", 0, made.substr(0, 4));
                v.SetPart("Date Creation", 1, made.substr(4, 2));
                v.SetPart("Date Creation", 2, made.substr(6, 2));
                v.SetPart("Date Creation", 3, "10");
                v.SetPart("Date Creation", 4, "30");
                SetNum(v, "Taille", s.durationMs / 1000 * 176400LL);
                SetNum(v, "Duration", s.durationMs);
                v.SetText("UsePtx", "N");
                f->Add(r);
            }
            f->Finish();
        }
        {
            auto f = Open(38);
            const char* jobs[][3] = {{"00001", "Envoi des conducteurs", "/Conducteurs"},
                                     {"00002", "Réception des sons", "/Sons"}};
            for (auto& job : jobs) {
                std::string r = f->Blank();
                RecordView v(38, r);
                v.SetText("Entete", "FTP");
                v.SetText("Id", job[0]);
                v.SetText("Lib", job[1]);
                v.SetText("Actif", "O");
                v.SetText("ActifPermanent", "O");
                v.SetText("NomDuPoste", "KV-SERVEUR");
                SetNum(v, "Frequence", 1);
                v.SetText("Heure", "03");
                v.SetText("Minute", "15");
                v.SetText("FTPServeur", "ftp.kavella.example");
                SetNum(v, "FTPNoPort", 21);
                v.SetText("FTPUser", "radio");
                v.SetText("FTPCnxActive", "N");
                SetNum(v, "FTPRetry", 3);
                SetNum(v, "FTPTimeOut", 30);
                v.SetText("FTPDossier", job[2]);
                v.SetText("FTPFichier", "*.*");
                f->Add(r);
            }
            f->Finish();
        }
        {
            auto f = Open(39);
            for (int i = 1; i <= 6; ++i) {
                std::string r = f->Blank();
                RecordView v(39, r);
                v.SetText("DL", i % 2 ? "U" : "D");
                SetNum(v, "Id", i);
                v.SetText("File", "FRADA35_" + DateKey(AddDays(today_, -i)) + ".btr");
                v.SetText("DateInv", DateKey(AddDays(today_, -i)));
                v.SetText("HHMMSS", "031500");
                SetNum(v, "Duration", rng_.Between(2, 60));
                SetNum(v, "Size", rng_.Between(100000, 900000));
                v.SetText("Auto", "O");
                SetNum(v, "Status", 0);
                v.SetText("Comment", "Transfert terminé");
                f->Add(r);
            }
            f->Finish();
        }
        {
            auto header = Open(41);
            auto detail = Open(42);
            for (int i = 1; i <= 3; ++i) {
                std::string r = header->Blank();
                RecordView v(41, r);
                SetNum(v, "IdFichier", i);
                v.SetText("SourceFile", "Interview_" + std::to_string(i) + ".wav");
                SetNum(v, "FileSize", rng_.Between(1000000, 9000000));
                v.SetText("ToDo", "N");
                v.SetText("TargetFile", "INF_" + ZeroPad(i, 5) + ".mp3");
                v.SetText("SourceFolder", "C:\\KV_Import\\");
                v.SetText("TargetFolder", "C:\\KV_Sons\\Autre\\");
                header->Add(r);

                std::string d = detail->Blank();
                RecordView dv(42, d);
                SetNum(dv, "IdFichier", i);
                SetNum(dv, "IdConvert", 1);
                SetNum(dv, "FileSize", rng_.Between(100000, 900000));
                dv.SetText("LibErr", "");
                detail->Add(d);
            }
            header->Finish();
            detail->Finish();
        }
    }

    // Rows of the equivalence table: each station's own songs stand for one another, and one
    // row turns a song of station 1 into a category on station 3.
    void MakeEquivalences() {
        auto f = Open(46);
        int row = 1;
        for (int i = 0; i < kOwnSongsPerStation; ++i) {
            std::string r = f->Blank();
            RecordView v(46, r);
            SetNum(v, "NoLig", row++);
            for (int s = 1; s <= kDemoStations; ++s) {
                v.SetPart("SongId", 1, "0009" + std::to_string(s) + ZeroPad(i + 1, 3), s - 1);
            }
            f->Add(r);
        }
        std::string r = f->Blank();
        RecordView v(46, r);
        SetNum(v, "NoLig", row);
        v.SetPart("SongId", 1, songs_.front().id, 0);
        v.SetPart("SongId", 1, songs_[1].id, 1);
        v.SetPart("SongId", 0, kCategories.front().code, 2);
        f->Add(r);
        f->Finish();
    }

    // ---- Files of a station

    void MakeStation(int station) {
        std::vector<Song> songs = StationSongs(station);
        MakeArtists(station, songs);
        MakeLabels(station);
        MakeSongs(station, songs);
        MakeClocks(station);
        MakeContracts(station);
        MakePodcasts(station);
        MakeSchedule(station, songs);
    }

    void MakeArtists(int station, const std::vector<Song>& songs) {
        auto f = Open(20, station);
        auto codes = Open(47, station);
        for (const Artist& a : artists_) {
            std::string r = f->Blank();
            RecordView v(20, r);
            v.SetText("Code", a.code);
            v.SetText("Name Code", UpperAscii(Cp1252FromUtf8(a.name)).substr(0, 10));
            v.SetText("Label", a.name);
            v.SetText("Key", UpperAscii(Cp1252FromUtf8(a.name)).substr(0, 1));
            SetNum(v, "Nb_Disks", rng_.Between(1, 12));
            SetNum(v, "Sep_Hour", 2);
            SetNum(v, "NbMaxPassageParJour", 4);
            v.SetText("LibelleExport", a.name);
            v.SetText("Group_1", a.group);
            f->Add(r);

            std::string c = codes->Blank();
            RecordView cv(47, c);
            cv.SetText("Ent.", "ART");
            cv.SetText("Code", a.code);
            cv.SetText("Regp", a.group);
            for (int y = 0; y < 3; ++y) {
                SetNum(cv, "Millesime", 2023 + y, y);
                SetNum(cv, "Nb", rng_.Between(50, 900), y);
            }
            codes->Add(c);
        }
        // The broadcast counts of each song by vintage.
        for (const Song& s : songs) {
            if (s.type != "000") continue;
            std::string c = codes->Blank();
            RecordView cv(47, c);
            cv.SetText("Ent.", "MOR");
            cv.SetText("Code", s.id);
            cv.SetText("Regp", s.category);
            SetNum(cv, "Millesime", 2025);
            SetNum(cv, "Nb", rng_.Between(1, 200));
            codes->Add(c);
        }
        f->Finish();
        codes->Finish();
    }

    void MakeLabels(int station) {
        auto f = Open(21, station);
        auto add = [&](const std::string& kind, const std::vector<Code>& codes) {
            for (const Code& c : codes) {
                std::string r = f->Blank();
                RecordView v(21, r);
                v.SetText("Header", kind);
                v.SetText("Code", c.code);
                // The second station writes its category names its own way.
                v.SetText("Label", station == 2 && kind == "CATEG" ? UpperAscii(c.label) : c.label);
                f->Add(r);
            }
        };
        add("CATEG", kCategories);
        add("THEME", kThemes);
        add("HORLO", kClocks);
        add("VOIX ", kVoices);
        add("SONOR", kSonorities);
        add("GROUP", kGroups);
        std::string r = f->Blank();
        RecordView v(Layout21Form("VER"), r);
        v.SetText("Header", "VER");
        v.SetText("Code", "00001");
        v.SetText("Label", "Version de la base");
        v.SetText("Version", "3.4.0");
        v.SetText("Date", DateKey(AddDays(today_, -365)));
        v.SetText("hhmmss", "101500");
        v.SetText("Program", "KV3_Toverin");
        v.SetText("Computer", "KV-SERVEUR");
        f->Add(r);
        f->Finish();
    }

    void MakeSongs(int station, const std::vector<Song>& songs) {
        auto file22 = Open(22, station);
        auto bySubject = Open(23, station);
        auto byCategory = Open(24, station);
        auto recorder = Open(26, station);
        auto keys = Open(29, station);
        auto pointers = Open(31, station);
        auto info = Open(32, station);
        auto titles = Open(48, station);
        std::map<std::string, int> order;
        for (const Song& s : songs) {
            const Artist& artist = artists_[static_cast<size_t>(s.artist)];
            std::string r = file22->Blank();
            RecordView v(22, r);
            v.SetText("SongId", s.id);
            v.SetText("Artist_1", artist.code);
            v.SetText("Title", s.title);
            v.SetText("SecondText", s.second);
            v.SetText("Category", s.category);
            v.SetText("Group", artist.group);
            v.SetText("Voice", s.voice);
            v.SetText("Sonority", s.sonority);
            v.SetText("Type", s.type);
            SetNum(v, "BPM", s.bpm);
            SetNum(v, "Duration", s.durationMs);
            SetNum(v, "Year", s.year);
            SetNum(v, "Intro_Duration", s.type == "000" ? rng_.Between(3, 20) * 1000 : 0);
            v.SetText("Drive", "C");
            SetNum(v, "File_Size", s.durationMs / 1000 * 176400LL);
            v.SetText("Ext", "wav");
            v.SetText("Zones", "22222");
            v.SetText("Creation_Date", DateKey(AddDays(today_, -300)));
            v.SetText("Subject", s.theme);
            file22->Add(r);

            std::string t = titles->Blank();
            RecordView tv(48, t);
            tv.SetText("Code", s.id);
            tv.SetText("Lib", s.title + " - " + s.second);
            titles->Add(t);

            std::string i = info->Blank();
            RecordView iv(32, i);
            iv.SetText("SongId", s.id);
            iv.SetText("Code", "01");
            info->Add(i);

            std::string rec = recorder->Blank();
            RecordView rv(26, rec);
            const std::string piece = s.type == "000" ? "M" : s.type.substr(0, 1);
            for (int k = 0; k < 4; ++k) rv.SetText("SongId", s.id, k);
            for (int k = 0; k < 3; ++k) rv.SetText("TypeOfPiece", piece, k);
            rv.SetText("Artist_Code", artist.code);
            rv.SetText("Category", s.category);
            rv.SetText("Title", s.title);
            rv.SetText("Artist", artist.name);
            rv.SetText("Drive", "C");
            SetNum(rv, "Duration", s.durationMs / 1000);
            rv.SetText("Mono/Stereo", "S");
            rv.SetText("Ext", "wav");
            recorder->Add(rec);

            std::string k = keys->Blank();
            RecordView kv(29, k);
            kv.SetText("Header", s.type == "000" ? "CATEG" : "TYPE ");
            kv.SetText("Code", s.type == "000" ? s.category : s.type);
            kv.SetText("SongId", s.id);
            kv.SetText("Title", s.title);
            keys->Add(k);

            if (s.type != "000") continue;
            std::string p = pointers->Blank();
            RecordView pv(31, p);
            pv.SetText("SongId", s.id);
            pv.SetText("Code", "INT");
            SetNum(pv, "Order", 1);
            SetNum(pv, "Position", rng_.Between(3000, 20000));
            SetNum(pv, "Duration", s.durationMs);
            pointers->Add(p);

            for (auto* stack : {&bySubject, &byCategory}) {
                const bool subject = stack == &bySubject;
                const int file = subject ? 23 : 24;
                const std::string group = subject ? s.theme : s.category;
                std::string st = (*stack)->Blank();
                RecordView sv(file, st);
                sv.SetText("SongId", s.id);
                sv.SetText(subject ? "Subject" : "Category", group);
                SetNum(sv, "Order_#", ++order[std::to_string(file) + group]);
                sv.SetText("Artist", artist.name);
                sv.SetText("Title", s.title);
                SetNum(sv, "Duration", s.durationMs / 1000);
                (*stack)->Add(st);
            }
        }
        // Site records: the other sites that exchange songs with this station.
        const char* sites[] = {"Kavella Lille", "Kavella Arras", "Kavella Amiens"};
        for (int i = 0; i < 3; ++i) {
            std::string k = keys->Blank();
            RecordView kv(29, k);
            kv.SetText("Header", "SITES");
            kv.SetText("Code", ZeroPad(i + 1, 5));
            kv.SetText("SongId", ZeroPad(i + 1, 8));
            kv.SetText("Title", sites[i]);
            keys->Add(k);
        }
        for (auto* f :
             {&file22, &bySubject, &byCategory, &recorder, &keys, &pointers, &info, &titles})
            (*f)->Finish();

        auto priorities = Open(25, station);
        for (const Code& c : kCategories) {
            std::string r = priorities->Blank();
            RecordView v(25, r);
            v.SetText("Header", "PRIOR");
            v.SetText("Category", c.code);
            for (int k = 0; k < 4; ++k) {
                SetNum(v, "Strat_#", k + 1, k);
                SetNum(v, "Property", rng_.Between(1, 100), k);
            }
            priorities->Add(r);
        }
        priorities->Finish();
    }

    // The lines of a clock: music by category, a break of jingles or liners after every
    // third song, and the advertising screens of the day clocks.
    std::vector<ClockLine> ClockLines(int clock) const {
        std::vector<ClockLine> lines;
        const bool advertising = clock != 3;  // not at night
        const int songs = profile_.songsPerHour;
        const int breaks = advertising ? profile_.adBreaksPerHour : 0;
        int screen = 0;
        for (int i = 0; i < songs; ++i) {
            if (i % 3 == 0) {
                ClockLine b{ClockLine::Break, "", kOtherTypes[(i / 3) % kOtherTypes.size()].type,
                            0};
                lines.push_back(b);
            }
            lines.push_back({ClockLine::Music,
                             kCategories[static_cast<size_t>(clock + i) % kCategories.size()].code,
                             "", 0});
            // Screens spread over the hour.
            if (screen < breaks && (i + 1) * breaks >= (screen + 1) * songs * 2 / 3)
                lines.push_back({ClockLine::Advertising, "", "", ++screen});
        }
        while (screen < breaks) lines.push_back({ClockLine::Advertising, "", "", ++screen});
        return lines;
    }

    static int ClockOfHour(int hour) {
        if (hour >= 6 && hour < 10) return 0;
        if (hour >= 10 && hour < 17) return 1;
        if (hour >= 17 && hour < 22) return 2;
        return 3;
    }

    void MakeClocks(int station) {
        auto f = Open(30, station);
        for (size_t c = 0; c < kClocks.size(); ++c) {
            std::vector<ClockLine> lines = ClockLines(static_cast<int>(c));
            for (size_t i = 0; i < lines.size(); ++i) {
                const ClockLine& line = lines[i];
                std::string r = f->Blank();
                RecordView v(30, r);
                v.SetText("Clock", kClocks[c].code);
                SetNum(v, "Order_#", static_cast<long long>(i) + 1);
                v.SetText("Timing", Hhmmss(static_cast<int>(i * 3600 / lines.size())));
                switch (line.kind) {
                    case ClockLine::Music:
                        v.SetText("Code", "CATEG" + line.category);
                        v.SetText("Cat_Fill", line.category);
                        v.SetText("Type", "000");
                        SetNum(v, "Duration", 210);
                        break;
                    case ClockLine::Break:
                        v.SetText("Code", line.breakType);
                        v.SetText("Type", line.breakType);
                        SetNum(v, "Duration", 15);
                        break;
                    case ClockLine::Advertising:
                        v.SetText("Code", "PUB");
                        v.SetText("Type", "PUB");
                        SetNum(v, "Duration", 90);
                        break;
                }
                v.SetText("Filling", "A");
                SetNum(v, "Icon_#", static_cast<int>(line.kind) + 1);
                f->Add(r);
            }
        }
        f->Finish();
    }

    void MakeContracts(int station) {
        auto contracts = Open(5, station);
        auto spots = Open(6, station);
        for (size_t i = 0; i < customers_.size(); ++i) {
            const Customer& c = customers_[i];
            std::string r = contracts->Blank();
            RecordView v(5, r);
            v.SetText("State", "AC");
            v.SetText("Customer", c.code);
            SetNum(v, "No_Contract", 100 + static_cast<long long>(i));
            v.SetText("Product", c.product);
            v.SetText("Commercial", c.commercial);
            v.SetText("Label", "Campagne " + c.name);
            v.SetText("Start_Date", DateKey(AddDays(today_, -profile_.historyDays - 7)));
            v.SetText("End_Date", DateKey(AddDays(today_, kDemoDaysAhead + 30)));
            v.SetText("Récurring", "N");
            SetNum(v, "Nb_Week", 4);
            SetNum(v, "Nb_Commercial", 2);
            v.SetText("Promotion", "N");
            v.SetText("Stations", std::string(kDemoStations, 'X'));
            v.SetText("Start_Hour", "0600");
            v.SetText("End_Hour", "2100");
            v.SetText("Create_Date", DateKey(AddDays(today_, -profile_.historyDays - 14)));
            contracts->Add(r);
        }
        for (const SpotInfo& s : spots_) {
            const Customer& c = customers_[static_cast<size_t>(s.customer)];
            std::string r = spots->Blank();
            RecordView v(6, r);
            SetNum(v, "No_Contract", s.contract);
            SetNum(v, "No_Commercial", s.number);
            v.SetText("Label", s.label);
            v.SetText("Product", c.product);
            v.SetText("Label_Pro", c.productLabel);
            SetNum(v, "Nb_Msg", 1);
            SetNum(v, "Nb_Seg", 1);
            v.SetText("Teasing", "N");
            SetNum(v, "Duration", s.seconds);
            v.SetText("Comment", "Message enregistré au studio");
            spots->Add(r);
        }
        contracts->Finish();
        spots->Finish();
    }

    void MakePodcasts(int station) {
        auto shows = Open(43, station);
        auto articles = Open(44, station);
        auto images = Open(45, station);
        const char* titles[] = {"Le journal du matin", "Les coulisses de Kavella"};
        for (int i = 0; i < 2; ++i) {
            std::string r = shows->Blank();
            RecordView v(43, r);
            SetNum(v, "IdEmission", i + 1);
            v.SetText("Title", titles[i]);
            v.SetText("Subject", "Actualité régionale");
            v.SetText("Publier", "O");
            v.SetText("Description", std::string(titles[i]) + ", chaque semaine sur Kavella.");
            v.SetText("Link", "https://kavella.example/podcasts/" + std::to_string(i + 1));
            v.SetText("Language", "fr-FR");
            v.SetText("Encodage", "ISO-8859-1");
            shows->Add(r);
            for (int a = 1; a <= 3; ++a) {
                std::string p = articles->Blank();
                RecordView pv(44, p);
                SetNum(pv, "IdArticle", i * 10 + a);
                SetNum(pv, "IdEmission", i + 1);
                SetNum(pv, "NoOrdre", a);
                pv.SetText("SongId", "INF" + ZeroPad(a, 5));
                pv.SetText("Title", std::string(titles[i]) + " n°" + std::to_string(a));
                pv.SetText("Publier", "O");
                pv.SetText("DateInvPublication", DateKey(AddDays(today_, -7 * a)));
                pv.SetText("HHMMSSPublication", "070000");
                articles->Add(p);
            }
            std::string g = images->Blank();
            RecordView gv(45, g);
            SetNum(gv, "IdEmiArt", i + 1);
            gv.SetText("Title", std::string("Visuel ") + titles[i]);
            gv.SetText("LocalFile",
                       "C:\\KV_Podcast\\Images\\emission" + std::to_string(i + 1) + ".jpg");
            SetNum(gv, "VValue", 600);
            SetNum(gv, "HValue", 600);
            images->Add(g);
        }
        shows->Finish();
        articles->Finish();
        images->Finish();
    }

    // ---- Schedule and histories

    struct DayFiles {
        std::unique_ptr<Sink> schedule, artists, songs, broadcast, notBroadcast, gaps;
        std::unique_ptr<Sink> order, planning, log, programmed, spotDates;
    };

    void MakeSchedule(int station, const std::vector<Song>& songs) {
        DayFiles f;
        f.schedule = Open(35, station);
        f.artists = Open(33, station);
        f.songs = Open(34, station);
        f.broadcast = Open(28, station);
        f.notBroadcast = Open(40, station);
        f.gaps = Open(49, station);
        f.order = Open(27, station);
        f.planning = Open(17, station);
        f.log = Open(18, station);
        f.programmed = Open(10, station);
        f.spotDates = Open(7, station);

        std::map<std::string, std::vector<const Song*>> byCategory;
        std::map<std::string, std::vector<const Song*>> byType;
        for (const Song& s : songs) {
            if (s.type == "000") {
                byCategory[s.category].push_back(&s);
            } else {
                byType[s.type].push_back(&s);
            }
        }
        std::vector<std::vector<ClockLine>> clocks;
        for (size_t c = 0; c < kClocks.size(); ++c)
            clocks.push_back(ClockLines(static_cast<int>(c)));

        // Templates: the fields that stay the same from one record to the next are set once.
        Templates t = MakeTemplates();
        for (int d = -profile_.historyDays; d <= kDemoDaysAhead; ++d) {
            const LocalTime day = AddDays(today_, d);
            const std::string date = DateKey(day);
            const bool broadcast = d <= 0;
            int sequence = 0;
            std::vector<int> unprogrammed(24, 0), gaps(24, 0);
            for (int hour = 0; hour < 24; ++hour) {
                const int clock = ClockOfHour(hour);
                const std::vector<ClockLine>& lines = clocks[static_cast<size_t>(clock)];
                for (size_t i = 0; i < lines.size(); ++i) {
                    const ClockLine& line = lines[i];
                    const int at = hour * 3600 + static_cast<int>(i * 3600 / lines.size());
                    sequence += 10;
                    Event e{date, hour, at, sequence, static_cast<int>(i) + 1, clock};
                    if (line.kind == ClockLine::Advertising) {
                        AddScreen(f, t, e, line.screen, broadcast);
                        AddScreenEvent(f, t, e, line.screen);
                        continue;
                    }
                    const Song* song = nullptr;
                    if (line.kind == ClockLine::Music) {
                        auto& pool = byCategory[line.category];
                        song = pool.empty() ? &songs.front() : rng_.Pick(pool);
                    } else {
                        song = rng_.Pick(byType[line.breakType]);
                    }
                    AddEvent(f, t, e, line, *song);
                    if (!broadcast) continue;
                    if (line.kind == ClockLine::Music) AddHistories(f, t, e, *song);
                    // One event in fifty did not go on air.
                    if (rng_.Below(50) == 0) {
                        AddNotBroadcast(f, t, e, *song);
                        ++unprogrammed[static_cast<size_t>(hour)];
                    } else {
                        AddBroadcast(f, t, e, *song);
                    }
                    gaps[static_cast<size_t>(hour)] += rng_.Between(-4, 4);
                }
            }
            if (broadcast) AddGaps(f, date, unprogrammed, gaps);
        }
        AddUndatedSpotDates(f);
        for (auto* sink : {&f.schedule, &f.artists, &f.songs, &f.broadcast, &f.notBroadcast,
                           &f.gaps, &f.order, &f.planning, &f.log, &f.programmed, &f.spotDates})
            (*sink)->Finish();
    }

    struct Event {
        std::string date;
        int hour;
        int at;  // seconds since midnight
        int sequence;
        int line;
        int clock;
    };

    struct Templates {
        std::string schedule, artist, song, broadcast, order, planning, log, programmed, spotDate;
    };

    Templates MakeTemplates() {
        Templates t;
        t.schedule = BlankRecord(35);
        {
            RecordView v(35, t.schedule);
            v.SetText("Rup", "000");
            v.SetText("Strategy", "001");
            SetNum(v, "Peripheral", 1);
            SetNum(v, "Algo", 1);
            v.SetText("Filling", "A");
            v.SetText("Curve", "L");
            v.SetText("Replace_Enable", "O");
            v.SetText("Dupl_Lck", "N");
        }
        t.artist = BlankRecord(33);
        {
            RecordView v(33, t.artist);
            SetNum(v, "Artist_#", 1);
            SetNum(v, "Group_#", 0);
        }
        t.song = BlankRecord(34);
        t.broadcast = BlankRecord(28);
        {
            RecordView v(28, t.broadcast);
            SetNum(v, "PP", 1);
            v.SetText("Origin", "A");
            v.SetText("Status", "D");
            v.SetText("CodeUser", "00");
        }
        t.order = BlankRecord(27);
        {
            RecordView v(27, t.order);
            v.SetText("Drive", "C");
            v.SetText("To_Fill", "N");
        }
        t.planning = BlankRecord(17);
        {
            RecordView v(17, t.planning);
            SetNum(v, "NoRotation", 1);
            SetNum(v, "NbMaxRotation", 1);
            v.SetText("IdNature", "PUB");
            v.SetText("IdOrigine", "KV ");
            v.SetText("PositionLockee", "N");
            v.SetText("Floating", "N");
        }
        t.log = BlankRecord(18);
        t.programmed = BlankRecord(10);
        t.spotDate = BlankRecord(7);
        {
            RecordView v(7, t.spotDate);
            v.SetText("Precision", "H");
            v.SetText("Précision", "H");
            SetNum(v, "Nb_Commercials", 1);
        }
        return t;
    }

    void AddEvent(DayFiles& f, Templates& t, const Event& e, const ClockLine& line,
                  const Song& song) {
        std::string r = t.schedule;
        RecordView v(35, r);
        v.SetText("Date", e.date);
        v.SetText("HH", ZeroPad(e.hour, 2));
        SetNum(v, "Sequence", e.sequence);
        v.SetText("Clock", kClocks[static_cast<size_t>(e.clock)].code);
        SetNum(v, "Duration", song.durationMs / 1000);
        v.SetText("Timing", Hhmmss(e.at));
        v.SetText("EventKind", "Son");
        SetNum(v, "NoLig_Hor", e.line);
        SetNum(v, "Theo_Dur.", song.durationMs / 1000);
        if (line.kind == ClockLine::Music) {
            v.SetText("EventSubKind", "Mus");
            v.SetText("Key_1", song.category);
            v.SetText("Filling_Cat.", line.category);
            v.SetText("Title", song.title);
            v.SetText("Artist", artists_[static_cast<size_t>(song.artist)].name);
            v.SetText("SongCode", song.id);
            v.SetText("Subject", song.theme);
            v.SetText("Sonority", song.sonority);
            v.SetText("Voice", song.voice);
            v.SetText("Type", "000");
            SetNum(v, "BPM", song.bpm);
        } else {
            // A break names the kind of sound it plays; the sound itself is the second code.
            v.SetText("EventSubKind", "Bre");
            v.SetText("SongCode", line.breakType);
            v.SetText("SecondCode", song.id);
            v.SetText("Type", line.breakType);
            v.SetText("BreakTitle1", song.title);
            v.SetText("BreakTitle2", song.second);
        }
        f.schedule->Add(r);
    }

    // The advertising screen's place in the music schedule: an event of its own kind, which the
    // music tools pass over.
    void AddScreenEvent(DayFiles& f, Templates& t, const Event& e, int screen) {
        std::string r = t.schedule;
        RecordView v(35, r);
        v.SetText("Date", e.date);
        v.SetText("HH", ZeroPad(e.hour, 2));
        SetNum(v, "Sequence", e.sequence);
        v.SetText("Clock", kClocks[static_cast<size_t>(e.clock)].code);
        SetNum(v, "Duration", profile_.spotsPerBreak * 30);
        v.SetText("Timing", Hhmmss(e.at));
        v.SetText("EventKind", "Pub");
        v.SetText("EventSubKind", "Bre");
        v.SetText("SongCode", "PUB");
        v.SetText("Type", "PUB");
        v.SetText("Title", "Écran publicitaire " + std::to_string(screen));
        SetNum(v, "NoLig_Hor", e.line);
        SetNum(v, "Screen_#", screen);
        SetNum(v, "Theo_Dur.", profile_.spotsPerBreak * 30);
        f.schedule->Add(r);
    }

    void AddHistories(DayFiles& f, Templates& t, const Event& e, const Song& song) {
        const std::string time = Hhmmss(e.at);
        const Artist& artist = artists_[static_cast<size_t>(song.artist)];
        std::string a = t.artist;
        RecordView av(33, a);
        for (int k = 0; k < 3; ++k) av.SetText("Date", e.date, k);
        SetNum(av, "Sequence", e.sequence);
        av.SetText("Artist", artist.code);
        av.SetText("hhmmss", time, 0);
        av.SetText("Group", artist.group);
        av.SetText("hhmmss", time, 1);
        av.SetText("SongId", song.id);
        f.artists->Add(a);

        std::string s = t.song;
        RecordView sv(34, s);
        sv.SetText("SongId", song.id);
        for (int k = 0; k < 5; ++k) sv.SetText("Date", e.date, k);
        for (int k = 0; k < 4; ++k) sv.SetText("hhmmss", time, k);
        sv.SetText("Title", song.title);
        sv.SetText("Album", "ALB" + song.id.substr(6, 2));
        sv.SetText("Category", song.category);
        SetNum(sv, "Sequence", e.sequence);
        SetNum(sv, "Old_Stack_Pos.", rng_.Between(1, 50));
        f.songs->Add(s);
    }

    void AddBroadcast(DayFiles& f, Templates& t, const Event& e, const Song& song) {
        const int real = e.at + rng_.Between(0, 4);
        std::string r = t.broadcast;
        RecordView v(28, r);
        v.SetText("Real Date", e.date);
        v.SetText("HH", ZeroPad(real / 3600, 2));
        v.SetText("MM", ZeroPad(real / 60 % 60, 2));
        v.SetText("SS", ZeroPad(real % 60, 2));
        v.SetText("Command", "PLAY " + song.id);
        v.SetText("SongId", song.id);
        v.SetText("Theo_Date", e.date);
        v.SetText("Theo_Hour", ZeroPad(e.hour, 2));
        v.SetText("Theo_Min", ZeroPad(e.at / 60 % 60, 2));
        v.SetText("Theo_Sec", ZeroPad(e.at % 60, 2));
        SetNum(v, "Broadcasted_Duration", song.durationMs - rng_.Below(2000));
        f.broadcast->Add(r);
    }

    void AddNotBroadcast(DayFiles& f, Templates&, const Event& e, const Song& song) {
        std::string r = BlankRecord(40);
        RecordView v(40, r);
        v.SetText("SongId", song.id);
        v.SetText("Date_Del", e.date);
        v.SetText("HHMMSS_Del", Hhmmss(e.at + 60));
        v.SetText("Code", "SAUT");
        v.SetText("Comment", "Sauté par l'animateur");
        v.SetText("DateTheo", e.date);
        v.SetText("HHMMSSTheo", Hhmmss(e.at));
        f.notBroadcast->Add(r);
    }

    void AddGaps(DayFiles& f, const std::string& date, const std::vector<int>& unprogrammed,
                 const std::vector<int>& gaps) {
        std::string r = BlankRecord(49);
        RecordView v(49, r);
        v.SetText("Date", date);
        for (int h = 0; h < 24; ++h) {
            SetNum(v, "NonPrg", unprogrammed[static_cast<size_t>(h)], h);
            SetNum(v, "Ecarts", gaps[static_cast<size_t>(h)], h);
        }
        f.gaps->Add(r);
    }

    // An advertising screen: its running order, planning and programmed data for every day
    // of the schedule, its log for the days already broadcast, the planned dates of its spots.
    void AddScreen(DayFiles& f, Templates& t, const Event& e, int screen, bool broadcast) {
        const std::string time = Hhmmss(e.at);
        std::string codes;
        int at = e.at;
        for (int p = 1; p <= profile_.spotsPerBreak; ++p) {
            const SpotInfo& spot = rng_.Pick(spots_);
            const Customer& c = customers_[static_cast<size_t>(spot.customer)];
            codes += spot.sound + " ";

            std::string o = t.order;
            RecordView ov(27, o);
            ov.SetText("Date", e.date);
            ov.SetText("HH", ZeroPad(e.hour, 2));
            SetNum(ov, "EE", screen);
            SetNum(ov, "PP", p);
            ov.SetText("SongId", spot.sound);
            ov.SetText("Theo Hour", Hhmmss(at));
            SetNum(ov, "Theo Duration", spot.seconds);
            SetNum(ov, "Duration_Mill", spot.seconds * 1000);
            SetNum(ov, "Real_Dur_S.", spot.seconds);
            f.order->Add(o);

            std::string pl = t.planning;
            RecordView pv(17, pl);
            pv.SetText("DateProg", e.date);
            pv.SetText("Hour", time);
            pv.SetText("Screen", "E" + ZeroPad(e.hour, 2) + ZeroPad(screen, 2));
            for (const char* pos : {"Pos", "PosReelle", "PosEffective", "PosSouhaitee"})
                SetNum(pv, pos, p);
            pv.SetText("LibCampagne", spot.campaign);
            pv.SetText("LibMessage", spot.label);
            pv.SetText("LibClient", c.name);
            pv.SetText("LibProduit", c.productLabel);
            SetNum(pv, "KVNoContrat", spot.contract);
            SetNum(pv, "KVNoSpot", spot.number);
            pv.SetText("KVCodeMorceau", spot.sound);
            pv.SetText("KVCodeClient", c.code);
            pv.SetText("KVCodeProduit", c.product);
            SetNum(pv, "DureeSeconde", spot.seconds);
            SetNum(pv, "SoundDuration", spot.seconds * 1000);
            SetNum(pv, "PlayDuration", spot.seconds * 1000);
            SetNum(pv, "DemiHeure", e.hour * 2 + (e.at % 3600 >= 1800 ? 1 : 0));
            pv.SetText("FichierSon", "C:\\KV_Sons\\Autre\\PUB_" + spot.sound.substr(3) + ".wav");
            f.planning->Add(pl);

            std::string sd = t.spotDate;
            RecordView dv(7, sd);
            SetNum(dv, "No_Contract", spot.contract);
            SetNum(dv, "No_Spot", spot.number);
            for (int k = 0; k < 2; ++k) {
                dv.SetText("Date_Passage", e.date, k);
                dv.SetText("Start_Hour", time.substr(0, 4), k);
                SetNum(dv, "Start_Screen", screen, k);
            }
            dv.SetText("End_Hour", Hhmmss(e.at + 900).substr(0, 4));
            SetNum(dv, "End_Screen", screen);
            dv.SetText("Product", c.product);
            dv.SetText("Customer", c.code);
            SetNum(dv, "Duration", spot.seconds);
            f.spotDates->Add(sd);

            if (broadcast) {
                std::string l = t.log;
                RecordView lv(18, l);
                for (int k = 0; k < 3; ++k) lv.SetText("Date", e.date, k);
                lv.SetText("HH", ZeroPad(at / 3600, 2));
                lv.SetText("MM", ZeroPad(at / 60 % 60, 2));
                lv.SetText("SS", ZeroPad(at % 60, 2));
                lv.SetText("IdMorceau", spot.sound);
                lv.SetText("IdClient", c.code);
                lv.SetText("Libellé", spot.label);
                SetNum(lv, "NoContrat", spot.contract);
                SetNum(lv, "NoSpot", spot.number);
                SetNum(lv, "Duration", spot.seconds);
                f.log->Add(l);
            }
            at += spot.seconds;
        }
        std::string r = t.programmed;
        RecordView v(10, r);
        v.SetText("Date", e.date);
        v.SetText("Hour", time);
        SetNum(v, "No_Screen", screen);
        SetNum(v, "No_Pos_Scr", profile_.spotsPerBreak);
        v.SetText("Data", codes);
        f.programmed->Add(r);
    }

    // Spots whose dates are not fixed yet carry the year 1900, which a limited backup keeps.
    void AddUndatedSpotDates(DayFiles& f) {
        for (const SpotInfo& spot : spots_) {
            if (spot.number != 2) continue;
            std::string r = BlankRecord(7);
            RecordView v(7, r);
            SetNum(v, "No_Contract", spot.contract);
            SetNum(v, "No_Spot", spot.number);
            v.SetText("Date_Passage", "19000101", 0);
            v.SetText("Date_Passage", "19000101", 1);
            v.SetText("Product", customers_[static_cast<size_t>(spot.customer)].product);
            v.SetText("Customer", customers_[static_cast<size_t>(spot.customer)].code);
            SetNum(v, "Duration", spot.seconds);
            f.spotDates->Add(r);
        }
    }

    int base_;
    Profile profile_;
    LocalTime today_;
    std::string data_;
    DemoSiteResult& result_;
    Rng rng_;
    std::map<std::pair<int, int>, DemoFile> accounts_;
    std::vector<Artist> artists_;
    std::vector<Song> songs_;
    std::vector<Customer> customers_;
    std::vector<SpotInfo> spots_;
};

// ---- Configuration files -----------------------------------------------------------------

struct BaseNames {
    const char* label;
    const char* folder;  // "Base1"
    const char* identity;
    const char* stations[kDemoStations];
};

const BaseNames kBases[kDemoBases] = {
    {"Kavella FM", "Base1", "KAV01", {"Kavella Lille", "Kavella Arras", "Kavella Amiens"}},
    {"Kavella Info", "Base2", "KAV02", {"Info Nord", "Info Littoral", "Info Picardie"}},
};

// The native folder under `root` of a path written as the suite writes it ("C:\KV_Data\").
std::string OnDrive(const std::string& root, const std::string& windowsPath) {
    std::string rest = ReplaceAll(windowsPath.substr(3), "\\", "/");
    return root + windowsPath.substr(0, 1) + "/" + rest;
}

bool WriteConfiguration(const std::string& root, LocalTime today, DemoSiteResult& result) {
    const std::string settings = root + "Settings/";
    fs::create_directories(settings + "_Local");
    IniDocument site;
    site.Set("Site", "Lib", "Radio Kavella (démo)");
    site.Set("Site", "Actif", "1");
    site.Set("Site", "NbBase", std::to_string(kDemoBases));
    site.Set("Site", "NoBase", "1");
    for (int b = 0; b < kDemoBases; ++b) {
        const BaseNames& names = kBases[b];
        const std::string section = "Base_" + ZeroPad(b + 1, 2);
        const std::string folder = std::string(names.folder) + "\\";
        const std::string config = "C:\\KV_Config\\" + folder;
        const std::map<std::string, std::string> keys = {
            {"Dossier_Log", "C:\\AudioLog\\" + folder},
            {"Dossier_Log_Pub", "C:\\AudioLog\\" + folder + "Pub\\"},
            {"Dossier_Local", "D:\\KV_Local\\" + folder},
            {"Dossier_Shared", "C:\\KV_Shared\\" + folder},
            {"Dossier_Data", "C:\\KV_Data\\" + folder},
            {"Dossier_Config_Global", config},
        };
        site.Set(section, "Lib", names.label);
        site.Set(section, "Actif", "1");
        site.Set(section, "NbStation", std::to_string(kDemoStations));
        site.Set(section, "NoStation", "1");
        for (const auto& [key, value] : keys) {
            site.Set(section, key, value);
            fs::create_directories(OnDrive(root, value));
        }
        site.Set(section, "Id_Radio", names.identity);
        const std::string deliveries =
            OnDrive(root, keys.at("Dossier_Shared") + kImportXMLDossier + "\\");
        fs::create_directories(deliveries);
        if (WriteDemoDeliveries(deliveries, today).empty()) return false;
        result.dataFolders.push_back(OnDrive(root, keys.at("Dossier_Data")));

        // Each base's own file: its sections are named Base_01 whatever the base's number.
        IniDocument systeme;
        systeme.Set("Base_01", "Lib", names.label);
        systeme.Set("Stations", "Nb_Max", std::to_string(kDemoStations));
        for (int s = 1; s <= kDemoStations; ++s) {
            const std::string n = ZeroPad(s, 2);
            systeme.Set("Base_01_Station_" + n, "Lib", names.stations[s - 1]);
            systeme.Set("Base_01_Station_" + n, "Actif", "1");
            const char* kinds[] = {"Musique", "Jingles", "Liners", "Rubriques",
                                   "Infos",   "Pub",     "Presse", "Temp"};
            const char* keysOfKinds[] = {
                "Dossiers_Sons_Mus", "Dossiers_Sons_Jin", "Dossiers_Sons_Lin", "Dossiers_Sons_Rub",
                "Dossiers_Sons_Inf", "Dossiers_Sons_Pub", "Dossiers_Sons_Pre", "Dossiers_Sons_Tmp"};
            for (int k = 0; k < 8; ++k) {
                systeme.Set("Base_01", std::string(keysOfKinds[k]) + n,
                            "C:\\KV_Sons\\" + folder + "Station" + n + "\\" + kinds[k] + "\\");
            }
        }
        if (!systeme.Save(OnDrive(root, config) + "KV3_Systeme.ini")) return false;
        if (!EcritureBkMus(OnDrive(root, config) + "BK_MUS.ini", MusicSettings())) return false;
    }
    result.configFile = settings + "KV3_Config.ini";
    return site.Save(result.configFile);
}

}  // namespace

bool ParseDemoSize(std::string_view text, DemoSize& size) {
    if (text == "small") {
        size = DemoSize::Small;
    } else if (text == "medium") {
        size = DemoSize::Medium;
    } else if (text == "large") {
        size = DemoSize::Large;
    } else {
        return false;
    }
    return true;
}

const char* DemoSizeName(DemoSize size) {
    switch (size) {
        case DemoSize::Small:
            return "small";
        case DemoSize::Medium:
            return "medium";
        case DemoSize::Large:
            break;
    }
    return "large";
}

int DefaultHistoryDays(DemoSize size) {
    return ProfileOf(size).historyDays;
}

long long DemoSiteResult::BaseRecords(int base) const {
    long long total = 0;
    for (const DemoFile& f : files)
        if (f.base == base) total += f.records;
    return total;
}

long long DemoSiteResult::TotalRecords() const {
    long long total = 0;
    for (const DemoFile& f : files) total += f.records;
    return total;
}

DemoSiteResult CreateDemoSite(const std::string& rootFolder, DemoSize size, int historyDays,
                              LocalTime today) {
    DemoSiteResult result;
    // A demo site can always be made again: nothing waits for the disk while it is made.
    struct UnsyncedWrites {
        bool before = engine::SyncedWrites();
        UnsyncedWrites() { engine::SetSyncedWrites(false); }
        ~UnsyncedWrites() { engine::SetSyncedWrites(before); }
    } unsynced;
    std::string root = ReplaceAll(rootFolder, "\\", "/");
    if (root.empty()) root = ".";
    if (root.back() != '/') root += '/';
    try {
        fs::create_directories(root);
        if (!WriteConfiguration(root, today, result)) {
            result.error = "cannot write the configuration files under " + root;
            return result;
        }
        for (int b = 0; b < kDemoBases; ++b) {
            const DemoSize baseSize = b == 0 ? size : Smaller(size);
            const int days = b == 0 ? historyDays : -1;
            BaseMaker(b, baseSize, days, today, result.dataFolders[static_cast<size_t>(b)], result)
                .Make();
        }
        result.ok = true;
    } catch (const std::exception& e) {
        result.error = e.what();
    }
    return result;
}

}  // namespace toverin
