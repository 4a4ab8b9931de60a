#pragma once

// Running applications by bundle identifier, and bringing one to the front.

#include "appkit/NSRunningApplication.h"

#include <QList>
#include <QString>

// The instance to talk to: null when none runs; of several, the first active one, otherwise the
// first, with a warning in the system log.
NSRunningApplication* getRunningApplicationForBundleId(const QString& bundleId);
// 0 when none runs.
int applicationPidForBundleId(const QString& bundleId);
QList<int> applicationPidsForBundleId(const QString& bundleId);
// Empty when none runs.
QString applicationNameForBundleId(const QString& bundleId);
// The identifier of the application bundle at the path; empty, with a log line, on failure.
QString bundleIdForApplicationAtPath(const QString& path);

// Activates through AppKit first and through the process manager when AppKit refuses. verbose:
// log why the second way was needed and why it failed. False for a null application.
bool activateApplication(NSRunningApplication* application, bool activateAllWindows, bool verbose);
