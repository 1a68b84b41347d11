#include "store/EngineNotices.h"

#include <memory>
#include <set>
#include <string>

#include "app/Clock.h"
#include "app/DateTime.h"
#include "app/Log.h"
#include "store/engine/EngineFile.h"

namespace toverin {

void LogEngineNotices() {
    struct Seen {
        std::string day;
        std::set<std::string> lines;
    };
    auto seen = std::make_shared<Seen>();
    engine::SetEngineNotice([seen](const std::string& line) {
        std::string today = DateKey(AppClock().Now());
        if (today != seen->day) {
            seen->day = today;
            seen->lines.clear();
        }
        if (seen->lines.insert(line).second) TraceLog(line);
    });
}

}  // namespace toverin
