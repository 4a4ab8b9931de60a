#include "platformDisplays.h"

#include "AccessibilityProvider.h"

namespace {

CGError displayList(std::uint32_t maxDisplays, CGDirectDisplayID* displays, std::uint32_t* displayCount) {
    if (!displayCount)
        return kCGErrorIllegalArgument;
    const qsizetype count = activeAccessibilityProvider()->screens().size();
    *displayCount = 0;
    if (count == 0)
        return kCGErrorNoneAvailable;
    if (!displays) {
        *displayCount = std::uint32_t(count);
        return kCGErrorSuccess;
    }
    while (*displayCount < maxDisplays && *displayCount < count) {
        displays[*displayCount] = *displayCount + 1;
        ++*displayCount;
    }
    return kCGErrorSuccess;
}

ScreenInfo screenOf(CGDirectDisplayID display) {
    const QList<ScreenInfo> screens = activeAccessibilityProvider()->screens();
    return display >= 1 && display <= std::uint32_t(screens.size()) ? screens[display - 1] : ScreenInfo();
}

} // namespace

CGError CGGetOnlineDisplayList(std::uint32_t maxDisplays, CGDirectDisplayID* displays,
                               std::uint32_t* displayCount) {
    return displayList(maxDisplays, displays, displayCount);
}

CGError CGGetActiveDisplayList(std::uint32_t maxDisplays, CGDirectDisplayID* displays,
                               std::uint32_t* displayCount) {
    return displayList(maxDisplays, displays, displayCount);
}

CGRect CGDisplayBounds(CGDirectDisplayID display) {
    return screenOf(display).frame;
}

CGSize CGDisplayScreenSize(CGDirectDisplayID display) {
    return screenOf(display).physicalSize;
}
