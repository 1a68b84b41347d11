// The Backup, Restauration and Création pages of every base, and their buttons.
#pragma once

#include <QObject>
#include <array>
#include <functional>
#include <memory>

#include "app/Site.h"
#include "ui/ControlName.h"
#include "ui/PageProgress.h"

class QListWidget;
class QLineEdit;

namespace toverin::ui {

class Frm_Main;

class OperationPages : public QObject {
    Q_OBJECT
  public:
    explicit OperationPages(Frm_Main* main);
    void Build();
    // The observers of each base's Backup, Restauration and Création pages.
    PageProgress& BackupProgress(int base) { return *backup_[base]; }
    PageProgress& RestoreProgress(int base) { return *restore_[base]; }
    PageProgress& CreationProgress(int base) { return *creation_[base]; }

    void CommandBkpNow(int base);
    void CommandBkpPause(int base);
    void CommandBkpStop(int base);
    void CommandRestoreNow(int base);
    void CommandCreationNow(int base);
    // Called after a backup started here, whatever its outcome (the plan shows its next date).
    std::function<void(int base)> afterBackup;
    // Shows base `b`'s last good backup, its age and how the last run ended.
    void ShowBackupState(int b);
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
    std::array<std::unique_ptr<PageProgress>, kMaxBases> backup_, restore_, creation_;
    std::array<QListWidget*, kMaxBases> incidents_{};
    size_t incidentsShown_ = 0;
};

}  // namespace toverin::ui
