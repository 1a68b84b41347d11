// The demo-site generator: a whole site under one folder, with realistic and deterministic data,
// for the run command, the tests and the benchmarks.
//
// The site: "Settings/KV3_Config.ini" with two bases of three stations each; each base has its
// data folder "C:\KV_Data\BaseN\", its configuration folder "C:\KV_Config\BaseN\" (with
// "KV3_Systeme.ini"), its log folder "C:\AudioLog\BaseN\", its local backup folder
// "D:\KV_Local\BaseN\" and its shared folder "C:\KV_Shared\BaseN\". Drive letters are folders
// under the root, as the default drive table has them. Each base's shared folder holds sample XML
// deliveries in "Import_XML\", and its configuration folder the music settings "BK_MUS.ini".
//
// Every record file of the catalogue exists (once per station where the catalogue says so).
// Dated data runs from `today` minus the history days up to `today` for what has been broadcast
// (histories, logs, gaps) and on to a week ahead for what is programmed (music schedule,
// advertising running order and planning), so that every date-driven operation finds work.
// The same arguments always give the same records, inserted in the same order.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/Clock.h"

namespace toverin {

enum class DemoSize { Small, Medium, Large };

// "small", "medium", "large".
bool ParseDemoSize(std::string_view text, DemoSize& size);
const char* DemoSizeName(DemoSize size);
// Days of history the first base gets when none is asked for.
int DefaultHistoryDays(DemoSize size);

inline constexpr int kDemoBases = 2;
inline constexpr int kDemoStations = 3;
// Days of programmed schedule after today.
inline constexpr int kDemoDaysAhead = 7;

struct DemoFile {
    int base = 0;     // 0-based
    int station = 0;  // 1..3, or 0 for a file common to the base
    int fileNumber = 0;
    std::string path;
    long long records = 0;
};

struct DemoSiteResult {
    bool ok = false;
    std::string error;  // why the site could not be made
    std::string configFile;
    std::vector<std::string> dataFolders;  // native, one per base
    std::vector<DemoFile> files;

    long long BaseRecords(int base) const;
    long long TotalRecords() const;
};

// Makes the site under `root` (created when missing; the files of an earlier site in the same
// place are replaced). `historyDays` < 0 takes DefaultHistoryDays(size); the second base gets
// the profile of the next smaller size, as a site's secondary base usually is. Only the date of
// `today` counts.
DemoSiteResult CreateDemoSite(const std::string& root, DemoSize size, int historyDays,
                              LocalTime today);

// The sample XML deliveries ("Livraison_Commerciale.xml", "Livraison_Programmes.xml") written
// into `folder` (ending with a separator); their paths, none when one could not be written.
// Every base of a demo site gets them in the Import tab's default source folder.
std::vector<std::string> WriteDemoDeliveries(const std::string& folder, LocalTime today);

}  // namespace toverin
