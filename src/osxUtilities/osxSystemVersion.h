#pragma once

// The version of the running macOS, and the gates that compare it with the releases whose
// behaviour differs. On other platforms the platform layer answers the version it follows.

#include <QVersionNumber>

// The first version of each release that a gate lets pass.
inline const QVersionNumber kBigSurVersion(10, 16, 0);
inline const QVersionNumber kMontereyVersion(12, 0, 0);
inline const QVersionNumber kVenturaVersion(13, 0, 0);

// Asks the system now: Gestalt, and for a 10.x version from 10.16 on, which Gestalt reports to
// programs built for older systems, the sysctl program. May block for up to two seconds.
QVersionNumber readMacOSVersion();

// readMacOSVersion() of the first call, kept for the life of the process.
QVersionNumber getMacOSVersion();
int getMacOSMajorVersionNumber();
int getMacOSMinorVersionNumber();
int getMacOSBugfixVersionNumber();

// Whether version is the gate's version or later.
bool passesVersionGate(const QVersionNumber& version, const QVersionNumber& gate);
bool isBigSurOrLater();
bool isMontereyOrLater();
bool isVenturaOrLater();
