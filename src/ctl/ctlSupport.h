#pragma once

// What the verbs of ui-element-ctl share: its two output streams, the reading of files, the choice
// of desktop, and the reading of screen points.

#include <QJsonObject>
#include <QPoint>
#include <QPointF>
#include <QString>
#include <QStringList>
#include <QTextStream>

inline constexpr int ctlExitSuccess = 0;
inline constexpr int ctlExitFailure = 1; // the verb ran, but the other side did not answer
inline constexpr int ctlExitUsage = 2;   // bad arguments or unreadable input

QTextStream& ctlOut();
QTextStream& ctlErr();

// Prints one answer: the JSON object on one line with --json, else the text lines.
void ctlPrintAnswer(bool json, const QStringList& lines, const QJsonObject& object);

// Prints "ui-element-ctl: <text>" to the error stream and returns status.
int ctlFail(int status, const QString& text);

// The whole file; false, with "cannot read FILE: REASON" in error, when it cannot be opened.
bool readFile(const QString& filePath, QByteArray& content, QString& error);

// Reads the desktop from the file instead of the live one; false, with a message, when there is
// no such file. Must come before the first platform call of the process.
bool useDesktopFile(const QString& desktopFile);

// Far beyond any desktop, and small enough for every integer type a platform call takes.
inline constexpr double maximumScreenCoordinate = 1000000;

// "X,Y" in screen coordinates, each a decimal number no farther from 0 than the maximum.
bool parseScreenPoint(const QString& text, QPointF& point);
// parseScreenPoint, truncated to whole coordinates; on bad text prints the message of every verb
// that takes a point (status ctlExitUsage is the caller's to return).
bool readScreenPoint(const QString& text, QPoint& point);
