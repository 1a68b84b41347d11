#include "ui/PageProgress.h"

#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QWidget>
#include <algorithm>

#include "app/DateTime.h"
#include "app/Dialogs.h"
#include "operations/BackupHealth.h"
#include "ui/Widgets.h"

namespace toverin::ui {
namespace {

using namespace progress;

template <class... F>
struct Overloaded : F... {
    using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

void SetBox(QLineEdit* box, const QString& text) {
    if (!box) return;
    box->setText(text);
    box->setCursorPosition(0);
}

void SetLabel(QLabel* label, const QString& text) {
    if (label) label->setText(text);
}

// The records bar counts at most 32767, as the suite's bars did.
void SetBar(QProgressBar* bar, long long value, long long maximum) {
    if (!bar) return;
    const int top = static_cast<int>(std::clamp<long long>(maximum, 1, 32767));
    bar->setMaximum(top);
    bar->setValue(static_cast<int>(std::clamp<long long>(value, 0, top)));
}

const char* OutcomeWord(Outcome outcome) {
    switch (outcome) {
        case Outcome::Finished:
            return "terminé";
        case Outcome::Incomplete:
            return "incomplet";
        case Outcome::Stopped:
            return "arrêté";
        case Outcome::Failed:
            return "échec";
        case Outcome::Refused:
            return "refusé";
    }
    return "";
}

}  // namespace

QString PageProgress::OutcomeText(const Ended& ended) {
    QString text = QString::fromUtf8(OutcomeWord(ended.outcome));
    text[0] = text[0].toUpper();
    if (!ended.summary.empty()) text += " : " + Q(ended.summary);
    return text;
}

QString PageProgress::BackupDateText(LocalTime time, bool complete) {
    QString text = Q(FormatLongDateTime(time));
    if (!complete) text += " (incomplet)";
    return text;
}

void PageProgress::Clear() {
    SetLabel(w_.file, "");
    SetLabel(w_.key, "");
    for (QProgressBar* bar : {w_.files, w_.stations, w_.records}) SetBar(bar, 0, 1);
}

void PageProgress::OnProgress(const Event& event) {
    std::visit(Overloaded{
                   [this](const Started& e) {
                       if (w_.window) w_.window->window()->setWindowTitle(Q(e.caption));
                       SetBox(w_.start, Q(FormatLongDateTime(e.time)));
                       // The last run's end and duration would read as this one's.
                       SetBox(w_.end, "");
                       SetBox(w_.duration, "");
                       SetLabel(w_.result, "");
                   },
                   [this](const Ended& e) {
                       SetBox(w_.end, Q(FormatLongDateTime(e.time)));
                       // A run that did not finish does not pass for one that did.
                       QString duration = Q(FormatDuration(e.seconds));
                       if (e.outcome != Outcome::Finished)
                           duration += " (" + QString::fromUtf8(OutcomeWord(e.outcome)) + ")";
                       SetBox(w_.duration, duration);
                       Clear();
                       SetLabel(w_.result, OutcomeText(e));
                       if (w_.window) w_.window->window()->setWindowTitle(Q(AppCaption()));
                   },
                   [this](const FileReached& e) {
                       SetBar(w_.files, e.index, e.count);
                       if (!e.label.empty()) SetLabel(w_.file, Q(e.label));
                   },
                   [this](const StationReached& e) { SetBar(w_.stations, e.station, e.count); },
                   [this](const RecordsDone& e) { SetBar(w_.records, e.done, e.expected); },
                   [this](const KeyReached& e) { SetLabel(w_.key, Q(e.key)); },
                   [this](const ItemReached& e) { SetLabel(w_.key, Q(e.text)); },
                   [this](const PhaseChanged& e) { SetLabel(w_.file, Q(e.phase)); },
                   [this](const DayReached& e) { SetLabel(w_.file, Q(e.day)); },
                   [this](const BackupRecorded& e) {
                       const QString when = BackupDateText(e.time, e.complete);
                       SetBox(w_.lastBackup, when);
                       if (e.weekday >= 1 && e.weekday <= 7) SetBox(w_.days[e.weekday - 1], when);
                       SetLabel(w_.age, Q(BackupAgeText(e.time, e.time)));
                   },
                   [this](const ControlsEnabled& e) {
                       if (w_.pause) w_.pause->setEnabled(e.enabled);
                       if (w_.stop) w_.stop->setEnabled(e.enabled);
                   },
                   [this](const Paused& e) {
                       if (w_.pause) w_.pause->setText(e.paused ? "Resume" : "Pause");
                   },
               },
               event);
}

}  // namespace toverin::ui
