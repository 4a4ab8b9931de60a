#pragma once

// The workspace under AppKit's name, as far as the system asks it: which applications run.

#include "NSRunningApplication.h"

#include <QList>

class NSWorkspace {
public:
    static NSWorkspace* sharedWorkspace();

    // Every running application, in the desktop's order.
    QList<NSRunningApplication*> runningApplications() const;
};
