#include "operations/OperationState.h"

namespace toverin {

OperationFlags& Operations() {
    static OperationFlags flags;
    return flags;
}

void RequestShutdownStop() {
    OperationFlags& flags = Operations();
    flags.shutdown = true;
    flags.stopRequested.fill(true);
    flags.paused.fill(false);
}

}  // namespace toverin
