#pragma once

// Scripts under AppKit's name, as far as the system runs them. Linux has no AppleScript: the one
// script the system runs, which turns on the user interface scripting of "System Events", is
// understood as turning on the desktop's accessibility (as the prompt of
// AXIsProcessTrustedWithOptions does); any other script fails with an error dictionary.

#include "platformCoreFoundation.h"

#include <QString>

inline const QString kEnableUIElementsScript =
    QStringLiteral("tell application \"System Events\" to set UI elements enabled to true");
// The keys of the error dictionary.
extern const CFStringRef NSAppleScriptErrorMessage;
extern const CFStringRef NSAppleScriptErrorNumber;

class NSAppleScript {
public:
    explicit NSAppleScript(const QString& source) : source(source) {}

    // True when the script ran. Otherwise, when errorInfo is given, it receives a dictionary of
    // the error that the caller owns.
    bool executeAndReturnError(CFDictionaryRef* errorInfo) const;

private:
    QString source;
};
