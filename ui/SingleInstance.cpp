#include "ui/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>
#include <iostream>

#include "app/Clock.h"
#include "app/Dialogs.h"
#include "app/EventPump.h"
#include "app/Log.h"
#include "app/Startup.h"
#include "app/Text.h"

namespace toverin::ui {

SingleInstance::SingleInstance(const QString& lockFile, QObject* parent)
    : QObject(parent), lockFile_(lockFile) {
    QByteArray hash = QCryptographicHash::hash(lockFile.toUtf8(), QCryptographicHash::Sha1).toHex();
    serverName_ = QString("toverin-%1-%2").arg(::getuid()).arg(QString::fromLatin1(hash.left(16)));
}

SingleInstance::~SingleInstance() {
    if (fd_ >= 0) ::close(fd_);
}

bool SingleInstance::TryAcquire() {
    if (fd_ >= 0) return true;
    QDir().mkpath(QFileInfo(lockFile_).absolutePath());
    int fd = ::open(lockFile_.toLocal8Bit().constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return true;  // no lock possible: do not stop the program for it
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    QByteArray pid = QByteArray::number(static_cast<qint64>(::getpid())) + "\n";
    if (::ftruncate(fd_, 0) == 0 && ::write(fd_, pid.constData(), pid.size()) < 0) {
    }
    return true;
}

bool SingleInstance::OtherRunning() {
    if (fd_ >= 0) return false;
    int fd = ::open(lockFile_.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool locked = ::flock(fd, LOCK_SH | LOCK_NB) != 0;
    ::close(fd);
    return locked;
}

qint64 SingleInstance::OtherProcessId() const {
    QFile f(lockFile_);
    if (!f.open(QIODevice::ReadOnly)) return 0;
    return f.readAll().trimmed().toLongLong();
}

bool SingleInstance::Send(const QByteArray& request) {
    QLocalSocket socket;
    socket.connectToServer(serverName_);
    if (!socket.waitForConnected(1000)) return false;
    socket.write(request + "\n");
    socket.waitForBytesWritten(1000);
    socket.waitForReadyRead(1000);
    socket.disconnectFromServer();
    return true;
}

void SingleInstance::Listen(std::function<void(const QByteArray&)> onRequest) {
    QLocalServer::removeServer(serverName_);
    server_ = new QLocalServer(this);
    server_->listen(serverName_);
    connect(server_, &QLocalServer::newConnection, this, [this, onRequest] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            connect(socket, &QLocalSocket::readyRead, socket, [socket, onRequest] {
                QByteArray request = socket->readAll().trimmed();
                socket->write("ok\n");
                socket->flush();
                onRequest(request);
            });
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

bool TesterPrevInstance(SingleInstance& instance, bool kill, int waitMs) {
    bool result = true;
    bool found = instance.OtherRunning();
    // The running one is left as it is (in standby it stays there): only time is given to it.
    if (found && waitMs > 0) {
        WaitOnDuration(waitMs);
        if (TerminationRequested()) return false;
        found = instance.OtherRunning();
    }
    if (found && !kill) {
        const std::string text =
            "Application encore chargée en mémoire.\r\n\r\nVeuillez la quitter avant de relancer "
            "une autre instance de cette application.";
        // Without a display nobody sees the box: a service's log shows standard error.
        if (Startup().unattended)
            std::cerr << "Toverin: " << ReplaceAll(text, "\r\n\r\n", " ") << "\n";
        AffMsg(text, MsgButtons::Ok, MsgIcon::Critical);
        return false;
    }
    if (found && kill) {
        for (int round = 0; round < 10; ++round) {
            DoEvents();
            if (!instance.OtherRunning()) return true;
            TraceLogEncadre(
                "Err: PrevInstance found in Windows memory. Prev-Instance try to kill |Hwnd:" +
                    std::to_string(instance.OtherProcessId()),
                '=');
            instance.Send("quit");
            WaitOnDuration(500);
        }
    }
    return result && instance.TryAcquire();
}

void CreateSuiteMarker() {
    static int fd = -1;
    if (fd >= 0) return;
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty()) dir = QDir::tempPath();
    QString path = dir + "/Kavella 3.4.lock";
    fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0 && ::flock(fd, LOCK_SH | LOCK_NB) != 0) {
    }
}

}  // namespace toverin::ui
