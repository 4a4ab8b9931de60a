#pragma once

// The workspace under AppKit's name, as far as the system asks it: which applications run, and
// which of them is in front.

#include "NSRunningApplication.h"

#include <QList>

class NSWorkspace {
public:
    static NSWorkspace* sharedWorkspace();

    // Every running application, in the desktop's order.
    QList<NSRunningApplication*> runningApplications() const;
    // The active application; null when none is.
    NSRunningApplication* frontmostApplication() const;
};
