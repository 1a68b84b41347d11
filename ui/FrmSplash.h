// The start-up splash window: shows which initialisation step is running.
#pragma once

#include <QLabel>
#include <QWidget>

namespace toverin::ui {

class FrmSplash : public QWidget {
    Q_OBJECT
  public:
    explicit FrmSplash(QWidget* parent = nullptr);
    void Announce(const QString& step);
    QString Status() const { return status_->text(); }

  private:
    QLabel* status_;
};

}  // namespace toverin::ui
