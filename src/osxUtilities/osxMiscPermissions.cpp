// Permissions: accessibility, automation and screen recording.

#include "osxMisc.h"

#include "CFTypeSmartRef.h"
#include "platformAccessibility.h"
#include "platformScreenCapture.h"

#include "appkit/Foundation.h"
#include "appkit/NSAppleScript.h"
#include "appkit/NSWorkspace.h"

#include <QDebug>

namespace {

typedef bool (*ScreenCaptureAccessFunction)();

// Looked up at run time, so that the program still starts on a system without them.
ScreenCaptureAccessFunction preflightScreenCaptureAccess = nullptr;
ScreenCaptureAccessFunction requestScreenCaptureAccess = nullptr;

bool passesGate(const QVersionNumber& gate) {
    return passesVersionGate(getMacOSVersion(), gate);
}

void logScriptError(CFDictionaryRef error) {
    const CFTypeSmartRef<CFStringRef> description(CFCopyDescription(error));
    NSLog(QStringLiteral("Enabling accessibility failed! Error dictionary: %1")
              .arg(QStringFromCFString(description.get())));
}

// Runs the script that turns on the user interface scripting. False after an error, which is
// logged.
bool runEnableUIElementsScript() {
    CFDictionaryRef error = nullptr;
    NSAppleScript script(kEnableUIElementsScript);
    if (script.executeAndReturnError(&error))
        return true;
    const CFTypeSmartRef<CFDictionaryRef> owned(error);
    logScriptError(owned.get());
    return false;
}

bool ensureScreenRecordingFunctionsAreLoaded() {
    if (preflightScreenCaptureAccess && requestScreenCaptureAccess)
        return true;
    void* framework = frameworkDlopen(kCoreGraphicsFrameworkPath, RTLD_LAZY);
    if (!framework) {
        qDebug().noquote()
            << "Error: could not open CoreGraphics framework. Cannot detect whether Tavelboard has "
               "screen recording permissions.";
        return false;
    }
    preflightScreenCaptureAccess = reinterpret_cast<ScreenCaptureAccessFunction>(
        frameworkDlsym(framework, "CGPreflightScreenCaptureAccess"));
    requestScreenCaptureAccess = reinterpret_cast<ScreenCaptureAccessFunction>(
        frameworkDlsym(framework, "CGRequestScreenCaptureAccess"));
    if (!preflightScreenCaptureAccess || !requestScreenCaptureAccess) {
        qDebug().noquote() << "Error: could not load functions for determining whether Tavelboard has screen "
                              "recording permissions.";
        return false;
    }
    return true;
}

} // namespace

bool accessibilityAvailable() {
    return passesGate(kAccessibilityTrustVersion) ? AXIsProcessTrusted() : AXAPIEnabled();
}

void enableAccessibilityInterface() {
    if (passesGate(kAccessibilityTrustVersion))
        enableAccessibilityInterfaceNew();
    else
        enableAccessibilityInterfaceLegacy();
}

void enableAccessibilityInterfaceNew() {
    const void* keys[] = {kAXTrustedCheckOptionPrompt};
    const void* values[] = {kCFBooleanTrue};
    const CFTypeSmartRef<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                                     &kCFTypeDictionaryKeyCallBacks,
                                                                     &kCFTypeDictionaryValueCallBacks));
    AXIsProcessTrustedWithOptions(options.get());
}

void enableAccessibilityInterfaceLegacy() {
    if (accessibilityAvailable())
        return;
    qInfo().noquote() << "Enabling Access for Assisitive Devices...";
    if (!runEnableUIElementsScript())
        return;
    if (AXAPIEnabled()) {
        qInfo().noquote() << "...done.";
        return;
    }
    qWarning().noquote() << "Enabling Access for Assisitive Devices failed.";
}

bool enableAccessForAssistiveDevices() {
    return runEnableUIElementsScript() && AXAPIEnabled();
}

void openAccessibilityPreferences() {
    if (passesGate(kAccessibilityPreferencesUrlVersion))
        NSWorkspace::sharedWorkspace()->openURL(
            QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"));
    else
        NSWorkspace::sharedWorkspace()->openFile(
            QStringLiteral("/System/Library/PreferencePanes/Security.prefPane"));
}

void openAutomationPreferences() {
    if (passesGate(kAutomationPreferencesVersion))
        NSWorkspace::sharedWorkspace()->openURL(
            QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Automation"));
    else
        qDebug().noquote() << "Error: Automation preferences is not available in macOS 10.13 and earlier";
}

bool hasScreenRecordingPermission() {
    if (!passesGate(kScreenRecordingPermissionVersion))
        return true;
    // A check that cannot be made does not stop the system: it assumes permission.
    if (!ensureScreenRecordingFunctionsAreLoaded())
        return true;
    return preflightScreenCaptureAccess();
}

void requestScreenRecordingPermission() {
    if (passesGate(kScreenRecordingPermissionVersion) && ensureScreenRecordingFunctionsAreLoaded())
        requestScreenCaptureAccess();
}

void openScreenRecordingPreferences() {
    requestScreenRecordingPermission();
    NSWorkspace::sharedWorkspace()->openURL(
        QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture"));
}
