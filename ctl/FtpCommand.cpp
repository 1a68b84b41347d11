#include "ctl/Ctl.h"

namespace toverin::ctl {

int RunFtpCommand(const Args&) {
    return Fail("ftp: not available yet", 3);
}

}  // namespace toverin::ctl
