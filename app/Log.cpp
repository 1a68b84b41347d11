#include "app/Log.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>

#include "app/DateTime.h"
#include "app/Registry.h"
#include "app/Text.h"

namespace toverin {
namespace {

namespace fs = std::filesystem;

constexpr size_t kRecentMax = 5000;
constexpr int kKeepDays = 45;
constexpr const char* kHeaderPrefix = "==:==:==:====:=:=:=:";

struct LogState {
    std::mutex mutex;
    LogSettings settings;
    std::deque<std::string> recent;
    std::vector<std::string> pending;
    std::string lastFileName;
    std::string lastPurgeDay;
    uint64_t lastWriteTick = 0;
    bool reboot45 = false;
    bool reboot48 = false;
};

LogState& State() {
    static LogState state;
    return state;
}

std::string Uptime(int64_t total) {
    int64_t d = total / 86400, h = (total / 3600) % 24, m = (total / 60) % 60, s = total % 60;
    return std::to_string(d) + " D " + std::to_string(h) + " H " + std::to_string(m) + " Min " +
           std::to_string(s) + " Sec";
}

std::string Theme(const LogIdentity& id) {
    if (!id.theme.empty()) return id.theme;
    std::string active =
        GetRegValue(kHkeyCurrentUser, "Software\\Microsoft\\Windows\\CurrentVersion\\ThemeManager",
                    "ThemeActive", "1");
    return Trim(active) == "0" ? "WinClassic" : "WinXP";
}

std::vector<std::string> HeaderLines(const LogSettings& s, int64_t uptime) {
    const LogIdentity& id = s.identity;
    std::string rule(80, '=');
    return {rule,
            "System started since " + Uptime(uptime),
            "App.Version: " + id.version,
            "App.ExeName: " + id.exeName + ".exe",
            "App.ProductName: " + id.productName,
            "Computer.Name: " + (id.computerName.empty() ? ComputerName() : id.computerName),
            "ActiveTheme: " + Theme(id),
            "Operating System: " +
                (id.operatingSystem.empty() ? OperatingSystemDisplayString() : id.operatingSystem),
            "Id Radio: " + std::to_string(id.baseNumber) + ": " + id.radioIdentity,
            rule};
}

// Deletes the ".Log" files of the folder (whatever program wrote them, whatever their case) last
// written more than the kept days ago.
void PurgeOldFiles(const std::string& folder, LocalTime now) {
    const LocalTime limit = AddDays(now, -kKeepDays);
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code fileError;
        if (!it->is_regular_file(fileError)) continue;
        if (!EqualsIgnoreCase(it->path().extension().string(), ".Log")) continue;
        auto written = fs::last_write_time(it->path(), fileError);
        if (fileError) continue;
        if (LocalTimeOf(std::chrono::time_point_cast<std::chrono::system_clock::duration>(
                fs::file_time_type::clock::to_sys(written))) < limit)
            fs::remove(it->path(), fileError);
    }
}

// The lines said once per run when the machine has been up too long.
void CheckUptime(LogState& st, LocalTime now) {
    const int64_t uptime = AppClock().UptimeSeconds(), day = 86400;
    auto say = [&](bool& flag, const char* text) {
        if (flag) return;
        flag = true;
        std::string l = FormatLogLine(now, -1, -1, -1, text);
        st.recent.push_back(l);
        st.pending.push_back(l);
    };
    if (uptime > 45 * day)
        say(st.reboot45, "Reboot needed because computer started since more 45 days");
    if (uptime > 48 * day)
        say(st.reboot48, "Reboot needed because computer started since more 48 days");
}

void Append(LogState& st, std::string line) {
    st.recent.push_back(line);
    if (st.recent.size() > kRecentMax) st.recent.pop_front();
    st.pending.push_back(std::move(line));
}

void ForceLocked(LogState& st) {
    st.lastWriteTick = GetTickCount64();
    if (st.pending.empty() || st.settings.folder.empty()) return;
    LocalTime now = AppClock().Now();
    std::string name = "Toverin_" + DateKey(now) + ".Log";
    std::error_code ec;
    fs::create_directories(st.settings.folder, ec);
    // A new day or a new folder (the site moved the log to the current base) starts a new file.
    std::string path = (fs::path(st.settings.folder) / name).string();
    std::ofstream out(path, std::ios::app | std::ios::binary);
    if (!out) {
        st.pending.clear();  // a file that cannot be opened loses the batch
        return;
    }
    if (path != st.lastFileName) {
        for (const auto& line : HeaderLines(st.settings, AppClock().UptimeSeconds()))
            out << kHeaderPrefix << line << "\r\n";
        st.lastFileName = path;
    }
    // At every write: a program that runs for weeks crosses the lines in the middle of a day.
    CheckUptime(st, now);
    for (const auto& line : st.pending) out << line << "\r\n";
    out.flush();
    st.pending.clear();
    std::string today = DateKey(now);
    if (today != st.lastPurgeDay) {
        st.lastPurgeDay = today;
        PurgeOldFiles(st.settings.folder, now);
    }
}

}  // namespace

char LogFieldChar(int value) {
    if (value < 0) return ' ';
    if (value <= 9) return static_cast<char>('0' + value);
    if (value <= 35) return static_cast<char>('A' + value - 10);
    return '*';
}

std::string FormatLogLine(LocalTime time, int f1, int f2, int f3, std::string_view message) {
    auto ms = std::chrono::duration_cast<Milliseconds>(
        time - std::chrono::floor<std::chrono::seconds>(time));
    std::string line = FormatTime(time) + ":" + ZeroPad(ms.count(), 3) + " :";
    if (!(f2 == -2 && f3 == -2)) {
        for (int f : {f1, f2, f3}) {
            line.push_back(LogFieldChar(f));
            line.push_back(':');
        }
    }
    line.append(message);
    return line;
}

void TraceLog(int f1, int f2, int f3, std::string_view message) {
    try {
        LogState& st = State();
        std::lock_guard lock(st.mutex);
        if (!st.settings.enabled) return;
        Append(st, FormatLogLine(AppClock().Now(), f1, f2, f3, message));
        // Write at least every second so that a crash loses almost nothing.
        uint64_t tick = GetTickCount64();
        if (tick - st.lastWriteTick >= 1000 || st.pending.size() >= 500) ForceLocked(st);
    } catch (...) {
    }
}

void TraceLogEncadre(int f1, int f2, int f3, std::string_view message, char frame) {
    std::string rule(Utf8Length(message), frame);
    TraceLog(f1, f2, f3, rule);
    TraceLog(f1, f2, f3, message);
    TraceLog(f1, f2, f3, rule);
}

void TraceLogForce() {
    try {
        LogState& st = State();
        std::lock_guard lock(st.mutex);
        ForceLocked(st);
    } catch (...) {
    }
}

bool& ProcedureTrace() {
    static bool on = false;
    return on;
}

void TraceProcedure(std::string_view module, std::string_view name) {
    if (!ProcedureTrace()) return;
    std::string line(module);
    line.push_back(':');
    line.append(name);
    TraceLog(line);
}

LogSettings& LogConfig() {
    return State().settings;
}

std::vector<std::string> RecentLogLines(size_t max) {
    LogState& st = State();
    std::lock_guard lock(st.mutex);
    size_t n = std::min(max, st.recent.size());
    return {st.recent.end() - static_cast<long>(n), st.recent.end()};
}

std::string LogFilePath(LocalTime day) {
    return (fs::path(State().settings.folder) / ("Toverin_" + DateKey(day) + ".Log")).string();
}

bool RebootNeeded45() {
    return State().reboot45;
}
bool RebootNeeded48() {
    return State().reboot48;
}

void ResetLog() {
    LogState& st = State();
    std::lock_guard lock(st.mutex);
    st.recent.clear();
    st.pending.clear();
    st.lastFileName.clear();
    st.lastPurgeDay.clear();
    st.lastWriteTick = 0;
    st.reboot45 = st.reboot48 = false;
}

std::string OperatingSystemDisplayString() {
    std::ifstream in("/etc/os-release");
    std::string line;
    while (std::getline(in, line)) {
        if (StartsWith(line, "PRETTY_NAME=")) {
            std::string v = line.substr(12);
            if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
            return v;
        }
    }
    return "Linux";
}

std::string ComputerName() {
    char buf[256] = {};
    if (gethostname(buf, sizeof buf - 1) != 0) return "localhost";
    return buf;
}

}  // namespace toverin
