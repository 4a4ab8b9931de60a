#pragma once

// The menu bar under AppKit's name, as far as the screen services ask it.

class NSMenu {
public:
    // The height of the system's menu bar in points; 0 when the desktop has none. On the live
    // Linux desktop: the top strut of the work area that the window manager publishes.
    static double menuBarHeight();
};
