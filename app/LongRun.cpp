#include "app/LongRun.h"

#include <utility>

namespace toverin {
namespace {

std::string& Holder() {
    static std::string activity;
    return activity;
}

bool& Held() {
    static bool held = false;
    return held;
}

}  // namespace

LongRun::LongRun(std::string activity) {
    if (Held()) {
        refusedBy_ = Holder();
        return;
    }
    Held() = true;
    Holder() = std::move(activity);
    held_ = true;
}

LongRun::~LongRun() {
    if (!held_) return;
    Held() = false;
    Holder().clear();
}

std::string LongRun::Refusal() const {
    if (held_) return "";
    return "Une autre opération est en cours : " + refusedBy_ +
           ".\r\n\r\nAttendez la fin de cette opération avant d'en lancer une autre.";
}

bool LongRunUnderWay() {
    return Held();
}

const std::string& LongRunActivity() {
    return Holder();
}

}  // namespace toverin
