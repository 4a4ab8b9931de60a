#pragma once

// Who a process is, in the terms of application bundles, whether or not it is one of the
// desktop's running applications: what NSRunningApplication's bundleIdentifier is for a process
// that AppKit knows.

#include <QString>

#include <sys/types.h>

// The id of the desktop entry of the process's executable, else the executable's file name, as
// the live desktop names its applications; empty when the process cannot be looked at.
QString bundleIdentifierOfProcess(pid_t pid);
