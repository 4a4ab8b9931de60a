#pragma once

// The inspector verbs about applications: which run, which is in front, and their changes as
// they happen.

#include "inspectorCommands.h"

// The running applications that the user switches between, the frontmost first: pid, bundle id,
// name, executable and bundle.
int runApps(const InspectorOptions& options);
// Prints the application in front ("front ID"), then the changes of the running applications
// for this many seconds, one line each as it comes: "front ID", "not front ID", "launched ID",
// "quit ID" (an application in front that quits is told both "not front" and "quit").
int runAppEvents(const InspectorOptions& options, const QString& secondsText);
