// Runs one toverinctl command line in the test's process and keeps what it printed.
#pragma once

#include <iostream>
#include <sstream>
#include <string>

#include "ctl/Ctl.h"

namespace toverin::testing {

struct CtlRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline CtlRun RunCaptured(const ctl::Args& args) {
    std::ostringstream out, err;
    auto* oldOut = std::cout.rdbuf(out.rdbuf());
    auto* oldErr = std::cerr.rdbuf(err.rdbuf());
    CtlRun result;
    result.status = ctl::RunCtl(args);
    std::cout.rdbuf(oldOut);
    std::cerr.rdbuf(oldErr);
    result.out = out.str();
    result.err = err.str();
    return result;
}

}  // namespace toverin::testing
