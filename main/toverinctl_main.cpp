#include "ctl/Ctl.h"

int main(int argc, char** argv) {
    return toverin::ctl::RunCtl(toverin::ctl::Args(argv + 1, argv + argc));
}
