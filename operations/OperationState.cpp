#include "operations/OperationState.h"

#include "app/EventPump.h"

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

bool ShuttingDown() {
    return Operations().shutdown || TerminationRequested();
}

}  // namespace toverin
