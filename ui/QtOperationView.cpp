#include "ui/QtOperationView.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>

namespace toverin::ui {

QString ControlName(std::string_view control, int index) {
    return QString::fromUtf8(control.data(), static_cast<int>(control.size())) + "_" +
           QString::number(index);
}

QWidget* QtOperationView::Find(std::string_view control, int index) const {
    if (!window_) return nullptr;
    return window_->findChild<QWidget*>(ControlName(control, index));
}

void QtOperationView::SetText(std::string_view control, int index, const std::string& text) {
    QWidget* w = Find(control, index);
    QString t = QString::fromStdString(text);
    if (auto* label = qobject_cast<QLabel*>(w)) {
        label->setText(t);
    } else if (auto* edit = qobject_cast<QLineEdit*>(w)) {
        edit->setText(t);
        edit->setCursorPosition(0);
    } else if (auto* button = qobject_cast<QAbstractButton*>(w)) {
        button->setText(t);
    }
}

void QtOperationView::SetProgress(std::string_view control, int index, int value, int maximum) {
    if (auto* bar = qobject_cast<QProgressBar*>(Find(control, index))) {
        bar->setMaximum(std::max(1, maximum));
        bar->setValue(std::min(value, std::max(1, maximum)));
    }
}

void QtOperationView::SetEnabled(std::string_view control, int index, bool enabled) {
    if (QWidget* w = Find(control, index)) w->setEnabled(enabled);
}

void QtOperationView::SetCaption(const std::string& caption) {
    if (window_) window_->window()->setWindowTitle(QString::fromStdString(caption));
}

}  // namespace toverin::ui
