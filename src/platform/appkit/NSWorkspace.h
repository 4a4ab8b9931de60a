#pragma once

// The workspace under AppKit's name, as far as the system asks it: which applications are
// installed and where, which run, which of them is in front, and notifications of their changes.

#include "NSImage.h"
#include "NSNotificationCenter.h"
#include "NSRunningApplication.h"

#include <QList>
#include <QString>

#include <memory>

class NSWorkspace {
public:
    static NSWorkspace* sharedWorkspace();

    // Every running application, in the desktop's order.
    QList<NSRunningApplication*> runningApplications() const;
    // The active application; null when none is.
    NSRunningApplication* frontmostApplication() const;
    // The application that owns the menu bar. Linux desktops have no menu bar of the system's: the
    // active application stands for its owner.
    NSRunningApplication* menuBarOwningApplication() const;

    // The bundle of the installed application of this name; empty when there is none. On Linux the
    // desktop entry whose Name is this (case aside), else the entry of this id, else an executable
    // file of this name on PATH.
    QString fullPathForApplication(const QString& appName) const;
    // The bundle of the installed application with this identifier; empty when there is none. On
    // Linux the desktop entry of this id, else an executable file of this name on PATH (an
    // application without an entry has its executable's name as identifier).
    QString absolutePathForAppBundleWithIdentifier(const QString& bundleIdentifier) const;
    // The icon of the file at the path. On Linux, for a desktop entry or an executable with one:
    // the entry's Icon, as a file or as a name looked up in the icon themes' "hicolor" folders
    // (largest size first) and in /usr/share/pixmaps. Null when there is none. The caller owns it.
    std::unique_ptr<NSImage> iconForFile(const QString& path) const;

    // Opens the URL with the desktop's handler (xdg-open); false when nothing could be started. The
    // panes of System Preferences ("x-apple.systempreferences:" URLs) are the desktop's settings:
    // Privacy_Accessibility, and Privacy_Automation (controlling other applications goes through
    // the accessibility bus; there is no permission of its own), open the accessibility settings
    // of the first installed settings application that has them (GNOME's, KDE's, Xfce's: by their
    // desktop entries); Privacy_ScreenCapture has none, as there is no permission to grant. Where
    // nothing opens a pane, a log line says so and the result is false.
    bool openURL(const QString& url) const;
    // Opens the file with the desktop's handler (xdg-open); the pane of Security and Privacy
    // ("/System/Library/PreferencePanes/Security.prefPane") is the accessibility settings.
    bool openFile(const QString& path) const;

    // Where NSWorkspaceDidLaunch/Terminate/Activate/DeactivateApplicationNotification
    // (appkit/WorkspaceMonitor.h), NSWorkspaceSessionDidBecomeActive/ResignActiveNotification
    // (appkit/SessionMonitor.h) and NSWorkspaceScreensDidSleep/WakeNotification
    // (appkit/DisplayMonitor.h) are posted, on the main queue, while anyone observes them.
    NSNotificationCenter* notificationCenter() const;
};
