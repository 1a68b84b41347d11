// The menus of the main window choose an item only on a click made inside the open menu.
//
// A press on a menu title opens the menu, and Qt lets the release of that same press choose the
// item under the pointer once the pointer has travelled more than the drag distance since the
// menu opened. "Mise en veille" sits right under "Fichier": a click on the title that slipped
// down a little on its way up chose it and hid the window. Here the release that ends the
// opening press never chooses anything; the item stays highlighted and a click takes it.
#pragma once

#include <QObject>

class QMenu;

namespace toverin::ui {

class ClickOnlyMenu : public QObject {
    Q_OBJECT
  public:
    // Watches `menu` for its lifetime.
    static void Install(QMenu* menu);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    explicit ClickOnlyMenu(QMenu* menu);
    bool openingPress_ = false;  // the press that opened the menu is still held
};

}  // namespace toverin::ui
