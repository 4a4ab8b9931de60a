#pragma once

// Running shell commands and macOS Shortcuts as child processes.

#include <QObject>
#include <QProcess>
#include <QStringList>

// A process, not started, that runs command with the user's shell (SHELL, else /bin/bash): bash
// and zsh as login shells ("-l"), so that the user's environment holds, then "-c" and command.
QProcess* createProcessExecutingShellCommand(const QString& command, QObject* parent);

// The names of the user's Shortcuts, from "/usr/bin/shortcuts list", kept for 3000 ms after each
// successful reading. Empty, logged, on a system before macOS 12 or when the tool does not start or
// finish within timeout milliseconds (the kept list and its age are left as they were).
QStringList getMacOSShortcuts(int timeout);
// A process, not started, that runs the Shortcut of this name; null, logged, before macOS 12.
QProcess* createProcessExecutingMacOSShortcut(const QString& name, QObject* parent);

// Tests replace "/usr/bin/shortcuts" with replaceSystemProgramForTesting (appkit/Foundation.h).
