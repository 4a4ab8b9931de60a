#pragma once

// The windows of other applications as handles: the focused window, the window under the mouse,
// and the minimize, zoom and close buttons of a window's title bar.

#include "NativeUIElement.h"

NativeUIElement focusedWindow();
// Needs a QGuiApplication, which knows where the mouse is.
NativeUIElement windowUnderMouse();

// A window without a minimize button is minimized through its "AXMinimized"; zoom and close have
// no such way and only log.
void minimizeWindow(const NativeUIElement& window);
void zoomWindow(const NativeUIElement& window);
void closeWindow(const NativeUIElement& window);
