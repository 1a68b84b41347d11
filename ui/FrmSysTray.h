// The standby window: a tray icon ("Kavella: Toverin") whose menu shows the main window again or
// opens the about box. Where the desktop has no tray, nothing shows and the program keeps running
// hidden; a second start of the program then brings the window back.
#pragma once

#include <QObject>
#include <functional>

class QSystemTrayIcon;
class QMenu;
class QAction;

namespace toverin::ui {

class FrmSysTray : public QObject {
    Q_OBJECT
  public:
    FrmSysTray(std::function<void()> show, std::function<void()> about, QObject* parent = nullptr);
    ~FrmSysTray() override;
    // Shows the icon; false when the desktop has no tray.
    bool Show();
    void Hide();
    bool visible() const;
    QAction* MnuAfficher;
    QAction* MnuAbout;

  private:
    QSystemTrayIcon* icon_ = nullptr;
    QMenu* menu_;
};

}  // namespace toverin::ui
