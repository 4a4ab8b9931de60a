#pragma once

// The inspector verbs of ui-element-ctl: what the accessibility layer sees of the desktop, and
// acting on it, on the live desktop or on a virtual one (--desktop FILE), as text or as one JSON
// object per answer (--json).

#include "ctlSupport.h"

#include <sys/types.h>

#include <QJsonObject>
#include <QString>
#include <QStringList>

struct InspectorOptions {
    QString desktopFile; // empty: the live desktop
    bool json = false;
    bool plain = false; // at: the platform's answer alone, without the searches
};

// Takes --desktop FILE, --json and --plain out of arguments, wherever they stand; false when --desktop has
// no file.
bool takeInspectorOptions(QStringList& arguments, InspectorOptions& options);

// The element at a screen point and its ancestors, the application first, and how it was found:
// the platform's answer, or the searches of the full strategy where that is not enough.
int runAt(const InspectorOptions& options, const QString& pointText);
// The window at a point by the robust lookup, with its application, window id, title and frame.
int runWindow(const InspectorOptions& options, const QString& pointText);
// The focused element, its window and its application.
int runFocused(const InspectorOptions& options);
// The screens with their frames, scale, name and physical size, the menu bar's height and the zoom.
int runScreens(const InspectorOptions& options);
// Performs "AXPress" on the element at a point and prints the result.
int runPress(const InspectorOptions& options, const QString& pointText);
// verb is raise, minimize, zoom or close: acts on the window at a point, then waits a moment for
// the window to show the effect.
int runWindowAction(const InspectorOptions& options, const QString& verb, const QString& pointText);

// pid, bundle id and name of the running application with the pid; empty strings when none runs.
QJsonObject applicationObject(pid_t pid);

// Whether verb is one of the inspector verbs that act on a point (at, window, press, raise,
// minimize, zoom, close).
bool isPointVerb(const QString& verb);
