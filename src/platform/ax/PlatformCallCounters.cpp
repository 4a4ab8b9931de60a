#include "PlatformCallCounters.h"

#include <array>
#include <atomic>

namespace {

// In the order of the enumeration.
const char* const callNames[kPlatformCallKinds] = {
    "AXUIElementCreateSystemWide",
    "AXUIElementCreateApplication",
    "AXUIElementCopyElementAtPosition",
    "AXUIElementCopyAttributeNames",
    "AXUIElementCopyAttributeValue",
    "AXUIElementGetAttributeValueCount",
    "AXUIElementIsAttributeSettable",
    "AXUIElementSetAttributeValue",
    "AXUIElementCopyActionNames",
    "AXUIElementCopyActionDescription",
    "AXUIElementPerformAction",
    "AXUIElementGetPid",
    "_AXUIElementGetWindow",
    "AXIsProcessTrusted",
    "AXIsProcessTrustedWithOptions",
    "AXAPIEnabled",
    "CGSMainConnectionID",
    "CGSFindWindowAndOwner",
    "CGSConnectionGetPID",
    "CGSGetScreenRectForWindow",
    "CGSGetZoomParameters",
};

// Counting must not cost a lock: these sit on every call into the platform.
std::array<std::atomic<quint64>, kPlatformCallKinds> counts{};

} // namespace

QString platformCallName(PlatformCall call) {
    return QString::fromLatin1(callNames[int(call)]);
}

std::optional<PlatformCall> platformCallNamed(const QString& functionName) {
    for (int i = 0; i < kPlatformCallKinds; ++i) {
        if (functionName == QLatin1String(callNames[i]))
            return PlatformCall(i);
    }
    return std::nullopt;
}

void countPlatformCall(PlatformCall call) {
    counts[std::size_t(call)].fetch_add(1, std::memory_order_relaxed);
}

quint64 platformCallCount(PlatformCall call) {
    return counts[std::size_t(call)].load(std::memory_order_relaxed);
}

quint64 platformCallCount(const QString& functionName) {
    const std::optional<PlatformCall> call = platformCallNamed(functionName);
    return call ? platformCallCount(*call) : 0;
}

QMap<QString, quint64> platformCallCounts() {
    QMap<QString, quint64> result;
    for (int i = 0; i < kPlatformCallKinds; ++i)
        result.insert(QString::fromLatin1(callNames[i]), platformCallCount(PlatformCall(i)));
    return result;
}

void resetPlatformCallCounts() {
    for (std::atomic<quint64>& count : counts)
        count.store(0, std::memory_order_relaxed);
}
