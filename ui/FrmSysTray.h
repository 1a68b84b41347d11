// The standby window: a tray icon ("Kavella: Toverin") whose menu shows the main window again or
// opens the about box, and whose tooltip tells the last and next backups. Where the desktop has
// no tray the main window goes to the task bar instead (see Frm_Main::EnterStandby).
#pragma once

#include <QIcon>
#include <QObject>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/Clock.h"

class QSystemTrayIcon;
class QMenu;
class QAction;

namespace toverin::ui {

// What the tooltip says of one base.
struct TrayBaseStatus {
    std::string label;
    std::optional<LocalTime> lastBackup;  // the last backup that ended, planned or not
    std::optional<LocalTime> nextBackup;  // armed
    bool lastRunFailed = false;           // the last planned run did not end well
    std::optional<LocalTime> lastRunAt;
};
std::string TrayToolTip(const std::vector<TrayBaseStatus>& bases);

class FrmSysTray : public QObject {
    Q_OBJECT
  public:
    FrmSysTray(std::function<void()> show, std::function<void()> about, QObject* parent = nullptr);
    ~FrmSysTray() override;
    // Shows the icon; false when the desktop has no tray.
    bool Show();
    void Hide();
    bool visible() const;
    // The tooltip, and the warning icon after a failed run.
    void SetStatus(const std::string& toolTip, bool warning);
    QString toolTip() const { return toolTip_; }
    bool warning() const { return warning_; }
    QAction* MnuAfficher;
    QAction* MnuAbout;

  private:
    QSystemTrayIcon* icon_ = nullptr;
    QMenu* menu_;
    QString toolTip_ = "Kavella: Toverin";
    bool warning_ = false;
};

}  // namespace toverin::ui
