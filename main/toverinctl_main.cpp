#include "ctl/Ctl.h"
#include "store/EngineNotices.h"

int main(int argc, char** argv) {
    toverin::LogEngineNotices();
    return toverin::ctl::RunCtl(toverin::ctl::Args(argv + 1, argv + argc));
}
