#pragma once

// Small file services: names that the file system takes, the trash, and well-known places.

#include <QList>
#include <QSize>
#include <QString>

// A name that can stand as one file name: "." gives "_", ".." gives "__"; otherwise every "/"
// and ":" becomes "_", and the result is cut to maximumFileNameLength() characters.
QString sanitizeFileName(QString name);
// Moves each path to the user's trash, blocking until that is done. Failures are not reported to
// the caller.
void moveToTrash(const QList<QString>& paths);
// Where applications are installed.
QString getApplicationsFolder();
QString nullFilePath();
int maximumFileNameLength();
QSize messageBoxIconSize();
