#include "tests/ui/UiTestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QPixmap>
#include <cstdlib>

#include "app/EventPump.h"

namespace toverin::testing {

QApplication& QtApp() {
    static int argc = 1;
    static char name[] = "ui_tests";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        auto* a = new QApplication(argc, argv);
        a->setQuitOnLastWindowClosed(false);
        SetEventPump([] { QApplication::processEvents(QEventLoop::AllEvents, 20); });
        return a;
    }();
    return *app;
}

std::string SaveScreenshot(QWidget* widget, const std::string& name) {
    QString dir = QString(TOVERIN_BINARY_DIR) + "/screenshots";
    QDir().mkpath(dir);
    QString path = dir + "/" + QString::fromStdString(name) + ".png";
    widget->grab().save(path);
    return path.toStdString();
}

void Pump(int ms) {
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < ms) QApplication::processEvents(QEventLoop::AllEvents, 10);
}

}  // namespace toverin::testing
