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

namespace {

std::string RefusalNaming(const std::string& activity) {
    return "Une autre opération est en cours : " + activity +
           ".\r\n\r\nAttendez la fin de cette opération avant d'en lancer une autre.";
}

}  // namespace

std::string LongRun::Refusal() const {
    return held_ ? "" : RefusalNaming(refusedBy_);
}

std::string LongRunRefusal() {
    return Held() ? RefusalNaming(Holder()) : "";
}

bool LongRunUnderWay() {
    return Held();
}

const std::string& LongRunActivity() {
    return Holder();
}

}  // namespace toverin
