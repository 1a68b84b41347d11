#include "ui/ClickOnlyMenu.h"

#include <QEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>

#include "app/Log.h"

namespace toverin::ui {

ClickOnlyMenu::ClickOnlyMenu(QMenu* menu) : QObject(menu) {
    menu->installEventFilter(this);
}

void ClickOnlyMenu::Install(QMenu* menu) {
    if (menu) new ClickOnlyMenu(menu);
}

bool ClickOnlyMenu::eventFilter(QObject* watched, QEvent* event) {
    auto* menu = static_cast<QMenu*>(watched);
    switch (event->type()) {
        case QEvent::Show:
            // Opened by a press (on its title) rather than by the keyboard.
            openingPress_ = QGuiApplication::mouseButtons() != Qt::NoButton;
            break;
        case QEvent::Hide:
        case QEvent::MouseButtonPress:
            openingPress_ = false;
            break;
        case QEvent::MouseButtonRelease:
            if (openingPress_) {
                openingPress_ = false;
                auto* mouse = static_cast<QMouseEvent*>(event);
                if (QAction* action = menu->actionAt(mouse->position().toPoint())) {
                    TraceLog("Menu: '" + action->text().toStdString() +
                             "' not chosen by the release of the press that opened the menu");
                    return true;
                }
            }
            break;
        default:
            break;
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace toverin::ui
