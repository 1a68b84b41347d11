// The dialogs port with the program's own widgets: a message box whose buttons are captioned in
// French, the input box FrmInputBox, the folder picker and the save dialog.
#pragma once

#include "app/Dialogs.h"

namespace toverin::ui {

class QtDialogs final : public Dialogs {
  public:
    MsgAnswer Message(const MsgRequest& request) override;
    std::optional<std::string> Input(const InputRequest& request) override;
    std::string SelectFolder(const std::string& title, const std::string& start) override;
    std::string SaveFileName(const std::string& title, const std::string& filter,
                             const std::string& start) override;
};

}  // namespace toverin::ui
