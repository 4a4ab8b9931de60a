#include "NSWindow.h"

#include "NSScreen.h"

#include <algorithm>

namespace {

const SEL constrainSelector = sel_registerName("constrainFrameRect:toScreen:");
const SEL deallocSelector = sel_registerName("dealloc");

// AppKit's rule: the top edge goes onto the screen, width and horizontal place stay.
CGRect constrainToScreen(id, SEL, CGRect frame, NSScreen* screen) {
    if (!screen)
        return frame;
    const CGRect area = screen->frame();
    const CGFloat top = frame.origin.y + frame.size.height;
    const CGFloat onScreen = std::clamp(top, area.origin.y, area.origin.y + area.size.height);
    frame.origin.y += onScreen - top;
    return frame;
}

} // namespace

Class NSWindow::windowClass() {
    static const Class cls = [] {
        Class made = objc_allocateClassPair(nullptr, "NSWindow", 0);
        class_addMethod(made, constrainSelector, reinterpret_cast<IMP>(&constrainToScreen),
                        "{CGRect={CGPoint=dd}{CGSize=dd}}56@0:8{CGRect={CGPoint=dd}{CGSize=dd}}16@48");
        class_addMethod(made, deallocSelector, reinterpret_cast<IMP>(&NSWindow::dealloc), "v16@0:8");
        return made;
    }();
    return cls;
}

NSWindow* NSWindow::alloc(Class cls) {
    return classDerivesFrom(cls, windowClass()) ? new NSWindow(cls) : nullptr;
}

CGRect NSWindow::constrainFrameRect(CGRect frame, NSScreen* screen) {
    const auto implementation = reinterpret_cast<NSWindowConstrainFrameRectIMP>(
        class_getMethodImplementation(isa, constrainSelector));
    return implementation(this, constrainSelector, frame, screen);
}

void NSWindow::release() {
    if (--references > 0)
        return;
    const auto implementation =
        reinterpret_cast<NSWindowDeallocIMP>(class_getMethodImplementation(isa, deallocSelector));
    implementation(this, deallocSelector);
}

void NSWindow::dealloc(id self, SEL) {
    objc_removeAssociatedObjects(self);
    delete static_cast<NSWindow*>(self);
}
