#pragma once

// The running applications of the desktop, under AppKit's names. Objects stand for processes:
// there is one per running process, it lives as long as the process that asked for it, and
// callers never delete it. Strings are QStrings and URLs QUrls where AppKit has NSString and NSURL.

#include <QList>
#include <QString>
#include <QUrl>

#include <sys/types.h>

typedef unsigned long NSApplicationActivationOptions;
enum : NSApplicationActivationOptions {
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps = 1 << 1,
};

typedef long NSApplicationActivationPolicy;
enum : NSApplicationActivationPolicy {
    NSApplicationActivationPolicyRegular = 0,
    NSApplicationActivationPolicyAccessory = 1,
    NSApplicationActivationPolicyProhibited = 2,
};

class NSRunningApplication {
public:
    // This process. It need not be among the desktop's running applications.
    static NSRunningApplication* currentApplication();
    // Null when no running application has this process id.
    static NSRunningApplication* runningApplicationWithProcessIdentifier(pid_t pid);
    // In the desktop's order; empty when none runs.
    static QList<NSRunningApplication*>
    runningApplicationsWithBundleIdentifier(const QString& bundleIdentifier);

    // What the application was when first seen; they do not change while it runs.
    QString bundleIdentifier() const { return bundleId; }
    QUrl executableURL() const { return executable; }
    // Empty when the application has no bundle (on Linux: no desktop entry).
    QUrl bundleURL() const { return bundle; }
    NSApplicationActivationPolicy activationPolicy() const { return policy; }
    QString localizedName() const { return name; }
    pid_t processIdentifier() const { return pid; }

    // Asked of the desktop at each call: false once the application has quit.
    bool isActive() const;
    // Makes the application the frontmost one. False when it has quit or refuses.
    bool activateWithOptions(NSApplicationActivationOptions options);

    NSRunningApplication(const NSRunningApplication&) = delete;
    NSRunningApplication& operator=(const NSRunningApplication&) = delete;

private:
    NSRunningApplication(pid_t pid, const QString& bundleId, const QString& name, const QUrl& executable,
                         const QUrl& bundle, NSApplicationActivationPolicy policy);
    friend class RunningApplicationRegistry;

    const pid_t pid;
    const QString bundleId;
    const QString name;
    const QUrl executable;
    const QUrl bundle;
    const NSApplicationActivationPolicy policy;
};
