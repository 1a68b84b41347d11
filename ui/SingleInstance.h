// One running instance per suite root. The running instance holds a lock file in the machine's
// settings folder and listens on a local socket, so that a start that must replace it can ask it
// to quit.
#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <functional>

namespace toverin::ui {

class SingleInstance : public QObject {
    Q_OBJECT
  public:
    // `lockFile` names the instance lock (per suite root).
    explicit SingleInstance(const QString& lockFile, QObject* parent = nullptr);
    ~SingleInstance() override;

    // Takes the lock; false when another process holds it.
    bool TryAcquire();
    bool OtherRunning();
    // Sends a request ("quit") to the running instance; false when none answered.
    bool Send(const QByteArray& request);
    // Starts listening for requests once this instance holds the lock.
    void Listen(std::function<void(const QByteArray&)> onRequest);
    qint64 OtherProcessId() const;

  private:
    QString lockFile_;
    QString serverName_;
    int fd_ = -1;
    QLocalServer* server_ = nullptr;
};

// True when this instance may run. With `kill` false and another instance still there after
// `waitMs`, the user is told (and, without a display, standard error) and false is returned,
// the other instance left untouched; with `kill` true the other one is asked to quit, up to ten
// rounds.
bool TesterPrevInstance(SingleInstance& instance, bool kill, int waitMs);

// The suite's mutual-exclusion marker "Kavella 3.4", held for the life of the process so that the
// suite's installers can see that one of its programs runs.
void CreateSuiteMarker();

}  // namespace toverin::ui
