#pragma once

// What the live desktop tells about a running process in the terms of application bundles: the
// bundle identifier is the id of the desktop entry whose program is the process's executable
// (gtk3-widget-factory.desktop gives "gtk3-widget-factory"), else the executable's name; the
// localized name is that entry's name, else the name the application gives itself on the
// accessibility bus; the bundle is the entry's file; the executable comes from /proc.

#include "ax/AccessibilityProvider.h"

#include <QString>

ApplicationInfo describeLiveProcess(pid_t pid, const QString& accessibleName);
