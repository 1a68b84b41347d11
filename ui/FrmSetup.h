// The options window: the program's log and, per base, the settings the operations read.
#pragma once

#include <QDialog>

class QListWidget;
class QCheckBox;

namespace toverin::ui {

class FrmSetup : public QDialog {
    Q_OBJECT
  public:
    explicit FrmSetup(QWidget* parent = nullptr);
    void RefreshLog();
    // Writes every base's backup settings from the controls.
    void SaveBaseSettings();
    QCheckBox* CheckForcerVeille;

  private:
    QWidget* BuildBasePage(int base, QWidget* parent);
    QListWidget* log_;
};

}  // namespace toverin::ui
