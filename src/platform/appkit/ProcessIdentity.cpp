#include "ProcessIdentity.h"

#include "atspi/LiveProcesses.h"

QString bundleIdentifierOfProcess(pid_t pid) {
    return describeLiveProcess(pid, QString()).bundleIdentifier;
}
