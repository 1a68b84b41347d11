#include "ui/Application.h"

int main(int argc, char** argv) { return toverin::ui::RunToverin(argc, argv); }
