// The object name of a control of the window's control arrays: the control's name, "_" and its
// index (the base, or base × 10 + row for the plan rows), as the suite names them.
#pragma once

#include <QString>
#include <string_view>

namespace toverin::ui {

inline QString ControlName(std::string_view control, int index) {
    return QString::fromUtf8(control.data(), static_cast<int>(control.size())) + "_" +
           QString::number(index);
}

}  // namespace toverin::ui
