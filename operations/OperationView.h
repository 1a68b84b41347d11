// How an operation shows its progress without touching widgets: it names the controls of its tab
// (control name and index, as the window's control arrays do: the base, or base × 7 + weekday - 1
// for the restore dates) and the interface finds the widget of that name. Tests record the
// values; unattended runs show nothing.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace toverin {

class OperationView {
  public:
    virtual ~OperationView() = default;
    virtual void SetText(std::string_view control, int index, const std::string& text) = 0;
    virtual void SetProgress(std::string_view control, int index, int value, int maximum) = 0;
    virtual void SetEnabled(std::string_view control, int index, bool enabled) = 0;
    virtual void SetCaption(const std::string& caption) = 0;
};

class NullView final : public OperationView {
  public:
    void SetText(std::string_view, int, const std::string&) override {}
    void SetProgress(std::string_view, int, int, int) override {}
    void SetEnabled(std::string_view, int, bool) override {}
    void SetCaption(const std::string&) override {}
};

// Keeps the latest value of every control, for tests and the command line.
class RecordingView final : public OperationView {
  public:
    void SetText(std::string_view control, int index, const std::string& text) override {
        texts[{std::string(control), index}] = text;
    }
    void SetProgress(std::string_view control, int index, int value, int maximum) override {
        progress[{std::string(control), index}] = {value, maximum};
        if (value > peak[{std::string(control), index}])
            peak[{std::string(control), index}] = value;
    }
    void SetEnabled(std::string_view control, int index, bool enabled) override {
        enabled_[{std::string(control), index}] = enabled;
    }
    void SetCaption(const std::string& c) override {
        caption = c;
        if (c.find(" en cours de la base ") != std::string::npos) busyCaption = c;
    }
    std::string Text(const std::string& control, int index) const {
        auto it = texts.find({control, index});
        return it == texts.end() ? std::string() : it->second;
    }
    bool Enabled(const std::string& control, int index) const {
        auto it = enabled_.find({control, index});
        return it != enabled_.end() && it->second;
    }

    std::map<std::pair<std::string, int>, std::string> texts;
    std::map<std::pair<std::string, int>, std::pair<int, int>> progress;
    std::map<std::pair<std::string, int>, int> peak;
    std::map<std::pair<std::string, int>, bool> enabled_;
    std::string caption;
    std::string busyCaption;
};

}  // namespace toverin
