// Small pieces every window and page of the interface builds with.
#pragma once

#include <QLineEdit>
#include <QString>
#include <string>
#include <string_view>

#include "ui/ControlName.h"

namespace toverin::ui {

// A text of the program (UTF-8) as Qt holds it.
inline QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

// `widget`, named as the suite names the controls of its arrays.
template <class W>
W* Named(W* widget, std::string_view control, int index) {
    widget->setObjectName(ControlName(control, index));
    return widget;
}

// A text box that shows and is not edited, named.
inline QLineEdit* ReadOnlyBox(QWidget* parent, std::string_view control, int index) {
    auto* box = Named(new QLineEdit(parent), control, index);
    box->setReadOnly(true);
    return box;
}

}  // namespace toverin::ui
