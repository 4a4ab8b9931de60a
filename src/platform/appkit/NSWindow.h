#pragma once

// AppKit's windows as objects of the object system (ObjCRuntime.h), as far as a window's frame
// and its end go: the class NSWindow has the instance methods constrainFrameRect:toScreen: and
// dealloc, and a window calls them through its class, so that a class may replace them. No window
// of a Linux desktop belongs to the toolkit of this process: these windows exist for the logic
// that exempts windows from being kept on screen, which so far concerns no window here.

#include "ObjCRuntime.h"
#include "ax/CGBase.h"

class NSScreen;

class NSWindow : public objc_object {
public:
    // The class NSWindow.
    static Class windowClass();
    // A new window, with one reference, of NSWindow or of a class derived from it; null for
    // another class.
    static NSWindow* alloc(Class cls = windowClass());

    // The frame moved so that its top edge lies on the screen (coordinates with the origin at
    // the bottom left of the first screen, y upward); unchanged without a screen.
    CGRect constrainFrameRect(CGRect frame, NSScreen* screen);

    void retain() { ++references; }
    // The last reference ends the window through its class's dealloc.
    void release();

    NSWindow(const NSWindow&) = delete;
    NSWindow& operator=(const NSWindow&) = delete;

private:
    explicit NSWindow(Class cls) : objc_object{cls} {}
    ~NSWindow() = default;
    static void dealloc(id self, SEL);

    int references = 1;
};

// The function types of the two methods, for calls through an IMP.
typedef CGRect (*NSWindowConstrainFrameRectIMP)(id self, SEL selector, CGRect frame, NSScreen* screen);
typedef void (*NSWindowDeallocIMP)(id self, SEL selector);
