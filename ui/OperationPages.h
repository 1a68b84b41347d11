// The Backup, Restauration and Création pages of every base, and their buttons.
#pragma once

#include <QObject>
#include <memory>

#include "ui/QtOperationView.h"

class QListWidget;

namespace toverin::ui {

class Frm_Main;

class OperationPages : public QObject {
    Q_OBJECT
  public:
    explicit OperationPages(Frm_Main* main);
    void Build();
    QtOperationView& view() { return view_; }

    void CommandBkpNow(int base);
    void CommandBkpPause(int base);
    void CommandBkpStop(int base);
    void CommandRestoreNow(int base);
    void CommandCreationNow(int base);
    // Fills the seven restore-date boxes of every base from "Bk_Sys.ini".
    void ShowRestoreDates();

  private:
    void BuildBackupPage(int base);
    void BuildRestorePage(int base);
    void BuildCreationPage(int base);
    void BuildIncidentsPage(int base);
    void RefreshIncidents();
    QListWidget* FileList(QWidget* parent, int base, bool selectFromSettings);
    void SaveFileSelection(int base, QListWidget* list);

    Frm_Main* main_;
    QtOperationView view_;
    size_t incidentsShown_ = 0;
};

}  // namespace toverin::ui
