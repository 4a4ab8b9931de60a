#pragma once

// How often each accessibility and window server function has been called, whatever the
// provider. Every such call is a round trip to another process on a real desktop, so these
// counts are what tests of caching and benchmarks of searches look at.

#include <QMap>
#include <QString>
#include <QtGlobal>

#include <optional>

enum class PlatformCall {
    AXUIElementCreateSystemWide,
    AXUIElementCreateApplication,
    AXUIElementCopyElementAtPosition,
    AXUIElementCopyAttributeNames,
    AXUIElementCopyAttributeValue,
    AXUIElementGetAttributeValueCount,
    AXUIElementIsAttributeSettable,
    AXUIElementSetAttributeValue,
    AXUIElementCopyActionNames,
    AXUIElementCopyActionDescription,
    AXUIElementPerformAction,
    AXUIElementGetPid,
    _AXUIElementGetWindow,
    AXIsProcessTrusted,
    AXIsProcessTrustedWithOptions,
    AXAPIEnabled,
    CGSMainConnectionID,
    CGSFindWindowAndOwner,
    CGSConnectionGetPID,
    CGSGetScreenRectForWindow,
    CGSGetZoomParameters,
};
inline constexpr int kPlatformCallKinds = int(PlatformCall::CGSGetZoomParameters) + 1;

// The function's name as C code spells it ("AXUIElementCopyAttributeValue").
QString platformCallName(PlatformCall call);
std::optional<PlatformCall> platformCallNamed(const QString& functionName);

void countPlatformCall(PlatformCall call);

quint64 platformCallCount(PlatformCall call);
// 0 for a name that is no platform function.
quint64 platformCallCount(const QString& functionName);
// Every function by name, those never called included.
QMap<QString, quint64> platformCallCounts();
void resetPlatformCallCounts();
