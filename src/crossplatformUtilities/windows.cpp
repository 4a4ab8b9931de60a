#include "windows.h"

#include "osxUIElementUtils.h"

namespace {

NativeUIElement handleTakingOver(AXUIElementRef window) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(static_cast<const void*>(window)));
    return handle;
}

void pressTitlebarButton(const NativeUIElement& window, CFStringRef button, CFStringRef fallbackAttribute,
                         CFTypeRef fallbackValue, CFStringRef action) {
    const CFTypeSmartRef<AXUIElementRef> reference(
        static_cast<AXUIElementRef>(window.copyOSSpecificElementReference()));
    pressTitlebarButtonOfWindow(reference, button, button, fallbackAttribute, fallbackValue, action);
}

} // namespace

NativeUIElement focusedWindow() {
    return handleTakingOver(copyFocusedWindow());
}

NativeUIElement windowUnderMouse() {
    return handleTakingOver(copyWindowUnderMouse());
}

void minimizeWindow(const NativeUIElement& window) {
    pressTitlebarButton(window, CFSTR("AXMinimizeButton"), CFSTR("AXMinimized"), kCFBooleanTrue, nullptr);
}

void zoomWindow(const NativeUIElement& window) {
    pressTitlebarButton(window, CFSTR("AXZoomButton"), nullptr, nullptr, CFSTR("AXZoomWindow"));
}

void closeWindow(const NativeUIElement& window) {
    pressTitlebarButton(window, CFSTR("AXCloseButton"), nullptr, nullptr, nullptr);
}
