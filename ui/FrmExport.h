// The standalone export window: the listing it exports, its nature in TexteNature ("Export Excel"
// or "Export XML") and the menu entry Mnu01Export and button CommandExporter that run the export,
// the same procedure as the viewer's "Exporter..." button.
#pragma once

#include <QDialog>

#include "store/RecordCursor.h"

class QAction;
class QLabel;
class QLineEdit;
class QPushButton;

namespace toverin::ui {

// The export of a listing with a progress window that can cancel it: refuses a listing whose file
// is missing, asks for the target, asks
// before overwriting, exports, reports and offers to open the file. `totalRows` sizes the
// progress bar (0 when unknown). Returns the file written, "" when none.
std::string RunExport(QWidget* parent, const CursorSpec& query, bool excel, long long totalRows);

class FrmExport : public QDialog {
    Q_OBJECT
  public:
    FrmExport(const CursorSpec& query, bool excel, QWidget* parent = nullptr);

    void Mnu01Export_Click();

    QLineEdit* TexteNature;
    QAction* Mnu01Export;
    QPushButton* CommandExporter;

  private:
    CursorSpec spec_;
    bool excel_;
};

}  // namespace toverin::ui
