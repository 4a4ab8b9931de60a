#pragma once

// The displays under AppKit's name. Objects live for the life of the process, as pointers that
// AppKit hands out stay valid; a display whose frame, scale or name changes gets a new object,
// as AppKit makes new ones when the configuration changes. Frames are in AppKit's inverted
// coordinates: bottom-left origin, y upward, mirrored at the height of the first screen.

#include "platformDisplays.h"

#include <QList>
#include <QString>
#include <QVariantMap>

class NSScreen {
public:
    // The displays of the desktop, the one with the menu bar first; empty when there are none or
    // the desktop cannot be reached.
    static QList<NSScreen*> screens();
    // The screen that holds the frontmost window on screen (its centre), else the first screen;
    // null without screens.
    static NSScreen* mainScreen();

    CGRect frame() const { return invertedFrame; }
    double backingScaleFactor() const { return scale; }
    // "NSScreenNumber": the display id (CGDirectDisplayID) as an unsigned integer.
    QVariantMap deviceDescription() const;
    QString localizedName() const { return name; }

    NSScreen(const NSScreen&) = delete;
    NSScreen& operator=(const NSScreen&) = delete;

private:
    NSScreen(CGDirectDisplayID id, const CGRect& invertedFrame, double scale, const QString& name);
    friend class ScreenRegistry;

    const CGDirectDisplayID id;
    const CGRect invertedFrame;
    const double scale;
    const QString name;
};
