#include "ui/QtDialogs.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>
#include <vector>

#include "app/Log.h"

namespace toverin::ui {
namespace {

std::vector<MsgAnswer> ButtonsOf(MsgButtons buttons) {
    switch (buttons) {
        case MsgButtons::Ok:
            return {MsgAnswer::Ok};
        case MsgButtons::OkCancel:
            return {MsgAnswer::Ok, MsgAnswer::Cancel};
        case MsgButtons::AbortRetryIgnore:
            return {MsgAnswer::Abort, MsgAnswer::Retry, MsgAnswer::Ignore};
        case MsgButtons::YesNoCancel:
            return {MsgAnswer::Yes, MsgAnswer::No, MsgAnswer::Cancel};
        case MsgButtons::YesNo:
            return {MsgAnswer::Yes, MsgAnswer::No};
        case MsgButtons::RetryCancel:
            return {MsgAnswer::Retry, MsgAnswer::Cancel};
    }
    return {MsgAnswer::Ok};
}

QMessageBox::ButtonRole RoleOf(MsgAnswer a) {
    switch (a) {
        case MsgAnswer::Ok:
        case MsgAnswer::Yes:
        case MsgAnswer::Retry:
            return QMessageBox::AcceptRole;
        case MsgAnswer::No:
            return QMessageBox::NoRole;
        case MsgAnswer::Cancel:
        case MsgAnswer::Abort:
            return QMessageBox::RejectRole;
        case MsgAnswer::Ignore:
            return QMessageBox::ActionRole;
    }
    return QMessageBox::AcceptRole;
}

QMessageBox::Icon IconOf(MsgIcon icon) {
    switch (icon) {
        case MsgIcon::None:
            return QMessageBox::NoIcon;
        case MsgIcon::Critical:
            return QMessageBox::Critical;
        case MsgIcon::Question:
            return QMessageBox::Question;
        case MsgIcon::Exclamation:
            return QMessageBox::Warning;
        case MsgIcon::Information:
            return QMessageBox::Information;
    }
    return QMessageBox::NoIcon;
}

}  // namespace

MsgAnswer QtDialogs::Message(const MsgRequest& request) {
    QMessageBox box(IconOf(request.icon), QString::fromStdString(request.title),
                    QString::fromStdString(request.text), QMessageBox::NoButton,
                    QApplication::activeWindow());
    box.setObjectName("FrmMsgBox");
    std::vector<std::pair<QAbstractButton*, MsgAnswer>> map;
    for (MsgAnswer a : ButtonsOf(request.buttons)) {
        QPushButton* b = box.addButton(QString::fromStdString(AnswerName(a)), RoleOf(a));
        b->setObjectName(QString("Command%1").arg(static_cast<int>(a)));
        map.emplace_back(b, a);
    }
    box.setDefaultButton(static_cast<QPushButton*>(map.front().first));
    box.exec();
    for (const auto& [button, answer] : map)
        if (box.clickedButton() == button) return answer;
    // Closed by the window's own button: the box's cancel-like answer.
    return UnattendedAnswer(request);
}

std::optional<std::string> QtDialogs::Input(const InputRequest& request) {
    QDialog dialog(QApplication::activeWindow());
    dialog.setObjectName("FrmInputBox");
    dialog.setWindowTitle(QString::fromStdString(request.title));
    auto* layout = new QVBoxLayout(&dialog);
    auto* label = new QLabel(QString::fromStdString(request.prompt), &dialog);
    label->setWordWrap(true);
    auto* text = new QLineEdit(QString::fromStdString(request.initial), &dialog);
    text->setObjectName("TexteSaisie");
    auto* buttons = new QDialogButtonBox(&dialog);
    buttons->addButton(QString::fromUtf8("OK"), QDialogButtonBox::AcceptRole);
    buttons->addButton(QString::fromUtf8("Annuler"), QDialogButtonBox::RejectRole);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(label);
    layout->addWidget(text);
    layout->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) return std::nullopt;
    return text->text().toStdString();
}

std::string QtDialogs::SelectFolder(const std::string& title, const std::string& start) {
    QString chosen = QFileDialog::getExistingDirectory(
        QApplication::activeWindow(), QString::fromStdString(title), QString::fromStdString(start));
    return chosen.isEmpty() ? std::string("*") : chosen.toStdString();
}

// "Fichiers xls|*.xls|Fichiers xml|*.xml" as Qt writes filters: "Fichiers xls (*.xls);;...".
std::string QtDialogs::SaveFileName(const std::string& title, const std::string& filter,
                                    const std::string& start) {
    QStringList parts = QString::fromStdString(filter).split('|');
    QStringList filters, patterns;
    for (int i = 0; i + 1 < parts.size(); i += 2) {
        filters << parts[i] + " (" + parts[i + 1] + ")";
        patterns << parts[i + 1];
    }
    QString selected = filters.value(0);
    QString chosen = QFileDialog::getSaveFileName(
        QApplication::activeWindow(), QString::fromStdString(title), QString::fromStdString(start),
        filters.join(";;"), &selected, QFileDialog::DontConfirmOverwrite);
    if (chosen.isEmpty()) return "";
    // The extension of the filter chosen, when the name has none of the filters' extensions.
    QString extension = patterns.value(filters.indexOf(selected), patterns.value(0)).mid(1);
    bool known = false;
    for (const QString& p : patterns)
        known = known || chosen.endsWith(p.mid(1), Qt::CaseInsensitive);
    if (!known && !extension.isEmpty()) chosen += extension;
    return chosen.toStdString();
}

}  // namespace toverin::ui
