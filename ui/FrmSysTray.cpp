#include "ui/FrmSysTray.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

#include "app/DateTime.h"

namespace toverin::ui {
namespace {

std::string When(LocalTime t) {
    return FormatLongDate(t) + " " + FormatShortTime(t);
}

// A small drawn icon, so that the tray needs no image file beside the program; orange after a
// failed run.
QIcon TrayIcon(bool warning = false) {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setBrush(warning ? QColor(214, 94, 16) : QColor(31, 58, 90));
    p.setPen(Qt::NoPen);
    p.drawEllipse(1, 1, 30, 30);
    p.setPen(Qt::white);
    QFont f = p.font();
    f.setBold(true);
    f.setPixelSize(20);
    p.setFont(f);
    p.drawText(pixmap.rect(), Qt::AlignCenter, warning ? "!" : "T");
    return QIcon(pixmap);
}

}  // namespace

std::string TrayToolTip(const std::vector<TrayBaseStatus>& bases) {
    std::string text = "Kavella: Toverin";
    for (const TrayBaseStatus& b : bases) {
        text += "\n" + b.label + ": ";
        if (b.lastRunFailed && b.lastRunAt) {
            text += "Attention: le backup planifié du " + When(*b.lastRunAt) + " a échoué";
        } else {
            text += "dernier backup " + (b.lastBackup ? When(*b.lastBackup) : std::string("aucun"));
        }
        text += ", prochain " + (b.nextBackup ? When(*b.nextBackup) : std::string("non planifié"));
    }
    return text;
}

FrmSysTray::FrmSysTray(std::function<void()> show, std::function<void()> about, QObject* parent)
    : QObject(parent), menu_(new QMenu()) {
    setObjectName("FrmSysTray");
    MnuAfficher = menu_->addAction("Afficher");
    MnuAfficher->setObjectName("MnuAfficher");
    MnuAbout = menu_->addAction(QString::fromUtf8("A propos de Toverin..."));
    MnuAbout->setObjectName("MnuAbout");
    connect(MnuAfficher, &QAction::triggered, this, [show] { show(); });
    connect(MnuAbout, &QAction::triggered, this, [about] { about(); });
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        icon_ = new QSystemTrayIcon(TrayIcon(), this);
        icon_->setToolTip("Kavella: Toverin");
        icon_->setContextMenu(menu_);
        connect(icon_, &QSystemTrayIcon::activated, this,
                [show](QSystemTrayIcon::ActivationReason r) {
                    if (r == QSystemTrayIcon::DoubleClick || r == QSystemTrayIcon::Trigger) show();
                });
    }
}

FrmSysTray::~FrmSysTray() {
    delete menu_;
}

bool FrmSysTray::Show() {
    if (!icon_) return false;
    icon_->show();
    return true;
}

void FrmSysTray::Hide() {
    if (icon_) icon_->hide();
}

bool FrmSysTray::visible() const {
    return icon_ && icon_->isVisible();
}

void FrmSysTray::SetStatus(const std::string& toolTip, bool warning) {
    toolTip_ = QString::fromStdString(toolTip);
    if (icon_) {
        icon_->setToolTip(toolTip_);
        if (warning != warning_) icon_->setIcon(TrayIcon(warning));
    }
    warning_ = warning;
}

}  // namespace toverin::ui
