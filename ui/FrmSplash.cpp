#include "ui/FrmSplash.h"

#include <QApplication>
#include <QFont>
#include <QVBoxLayout>

namespace toverin::ui {

FrmSplash::FrmSplash(QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint) {
    setObjectName("FrmSplash");
    setFixedSize(420, 160);
    setStyleSheet("#FrmSplash { background: #1f3a5a; } QLabel { color: white; }");
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel("Kavella: Toverin", this);
    QFont f = title->font();
    f.setPointSize(18);
    f.setBold(true);
    title->setFont(f);
    auto* subtitle = new QLabel(QString::fromUtf8("Administration des données"), this);
    status_ = new QLabel(this);
    status_->setObjectName("LabelStatus");
    layout->addWidget(title);
    layout->addWidget(subtitle);
    layout->addStretch();
    layout->addWidget(status_);
}

void FrmSplash::Announce(const QString& step) {
    status_->setText(step);
    QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

}  // namespace toverin::ui
