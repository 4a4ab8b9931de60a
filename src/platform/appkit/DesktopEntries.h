#pragma once

// The applications installed on a Linux desktop: the desktop entries (".desktop" files) in the
// "applications" folders of the XDG data directories. They stand for application bundles: an
// entry's desktop file id is the bundle identifier, its file the bundle's path, its Name the
// bundle's name and its program the bundle's executable.
//
// The folders are read when first asked and again when one of them (or a folder below) has
// changed, which is looked at no more than once a second (rescanIntervalMs), so that an
// application installed while the system runs is found within a second. Of two entries with the
// same id, the one in the earlier data directory stands and hides the other; an entry marked
// Hidden hides the id without standing for an application.

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

struct DesktopEntry {
    // The file's path below its applications folder without ".desktop", every "/" a "-"
    // (kde/editor.desktop gives "kde-editor"); for a file outside those folders, its base name.
    QString id;
    QString path;
    QString name;
    // The file name of TryExec, else of the first word of Exec past "env" and its assignments.
    QString program;
    QString icon;
    // X-GNOME-Gettext-Domain: the text domain of the application's translations.
    QString gettextDomain;
};

// The [Desktop Entry] group of an entry file, into every field but id and path. False when it
// stands for no application: no program, a Type other than "Application", or Hidden=true.
bool parseDesktopEntry(const QByteArray& content, DesktopEntry* entry);

// Looked up among the installed entries, in the order of the data directories.
std::optional<DesktopEntry> desktopEntryWithId(const QString& id);
// The first entry whose program has this file name.
std::optional<DesktopEntry> desktopEntryForProgram(const QString& programFileName);
// The first entry whose Name is this, case aside; else the entry of this id, with or without
// ".desktop".
std::optional<DesktopEntry> desktopEntryNamed(const QString& name);
// The entry in the file at this path, installed or not.
std::optional<DesktopEntry> desktopEntryAtPath(const QString& path);

inline constexpr int rescanIntervalMs = 1000;
// Makes the next lookup look at the folders at once, whatever the interval.
void rescanDesktopEntriesForTesting();
