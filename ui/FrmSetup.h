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
    QCheckBox* CheckForcerVeille;

  private:
    QListWidget* log_;
};

}  // namespace toverin::ui
