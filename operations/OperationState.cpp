#include "operations/OperationState.h"

namespace toverin {

OperationFlags& Operations() {
    static OperationFlags flags;
    return flags;
}

std::function<void(int base)>& AfterBackupHook() {
    static std::function<void(int)> hook;
    return hook;
}

}  // namespace toverin
