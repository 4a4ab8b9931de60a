#pragma once

// What the live desktop tells about a running process in the terms of application bundles: the
// bundle identifier is the id of the desktop entry whose program is the process's executable
// (gtk3-widget-factory.desktop gives "gtk3-widget-factory"), else the executable's name; the
// localized name is that entry's name, else the name the application gives itself on the
// accessibility bus; the executable comes from /proc.

#include "ax/AccessibilityProvider.h"

#include <QByteArray>
#include <QString>

ApplicationInfo describeLiveProcess(pid_t pid, const QString& accessibleName);

// The desktop entries of the XDG data directories, by the file name of their program: the id and
// the name of the first entry found for each program. Read once per process.
struct DesktopEntry {
    QString id;
    QString name;
};
DesktopEntry desktopEntryForProgram(const QString& programFileName);

// The name and the program file name of a desktop entry's [Desktop Entry] group: the file name of
// TryExec, else of the first word of Exec past "env" and its assignments. False when there is no
// program.
bool parseDesktopEntry(const QByteArray& content, DesktopEntry* entry, QString* program);
