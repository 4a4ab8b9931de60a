#include "Processes.h"

#include "NSRunningApplication.h"

#include <QMutex>
#include <QMutexLocker>

namespace {

QMutex gestaltMutex;
std::optional<QHash<OSType, SInt32>> scriptedGestalt;

QHash<OSType, SInt32> platformGestalt() {
    return {{gestaltSystemVersionMajor, kLinuxLayerMacOSVersion[0]},
            {gestaltSystemVersionMinor, kLinuxLayerMacOSVersion[1]},
            {gestaltSystemVersionBugFix, kLinuxLayerMacOSVersion[2]}};
}

} // namespace

OSErr Gestalt(OSType selector, SInt32* response) {
    if (!response) {
        return paramErr;
    }
    QMutexLocker locker(&gestaltMutex);
    const QHash<OSType, SInt32> responses = scriptedGestalt ? *scriptedGestalt : platformGestalt();
    const auto found = responses.constFind(selector);
    if (found == responses.constEnd()) {
        return gestaltUndefSelectorErr;
    }
    *response = *found;
    return noErr;
}

void setGestaltResponsesForTesting(std::optional<QHash<OSType, SInt32>> responses) {
    QMutexLocker locker(&gestaltMutex);
    scriptedGestalt = std::move(responses);
}

// A serial number names the process by its pid in the low word.
OSStatus GetProcessForPID(pid_t pid, ProcessSerialNumber* psn) {
    if (!psn) {
        return paramErr;
    }
    if (!NSRunningApplication::runningApplicationWithProcessIdentifier(pid)) {
        return procNotFound;
    }
    *psn = {0, UInt32(pid)};
    return noErr;
}

OSStatus SetFrontProcessWithOptions(const ProcessSerialNumber* psn, OptionBits) {
    if (!psn || psn->highLongOfPSN != 0) {
        return paramErr;
    }
    NSRunningApplication* application =
        NSRunningApplication::runningApplicationWithProcessIdentifier(pid_t(psn->lowLongOfPSN));
    const bool activated =
        application && application->activateWithOptions(NSApplicationActivateIgnoringOtherApps);
    return activated ? noErr : procNotFound;
}
