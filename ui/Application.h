// The program: the suite's command line, the display (offscreen when there is none, and then
// nobody is asked anything), the main window and the ordinary unload on SIGTERM.
#pragma once

namespace toverin::ui {

int RunToverin(int argc, char** argv);

}  // namespace toverin::ui
