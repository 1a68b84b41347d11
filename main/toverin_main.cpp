#include "store/EngineNotices.h"
#include "ui/Application.h"

int main(int argc, char** argv) {
    toverin::LogEngineNotices();
    return toverin::ui::RunToverin(argc, argv);
}
