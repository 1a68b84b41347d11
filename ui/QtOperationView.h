// The operations' progress shown in the main window: a control is the widget whose object name
// is the control's name, "_" and its index.
#pragma once

#include <QPointer>
#include <QWidget>

#include "operations/OperationView.h"

namespace toverin::ui {

class QtOperationView final : public OperationView {
  public:
    explicit QtOperationView(QWidget* window) : window_(window) {}
    void SetText(std::string_view control, int index, const std::string& text) override;
    void SetProgress(std::string_view control, int index, int value, int maximum) override;
    void SetEnabled(std::string_view control, int index, bool enabled) override;
    void SetCaption(const std::string& caption) override;

    QWidget* Find(std::string_view control, int index) const;

  private:
    QPointer<QWidget> window_;
};

// The object name of control `control` of index `index`.
QString ControlName(std::string_view control, int index);

}  // namespace toverin::ui
