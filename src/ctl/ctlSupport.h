#pragma once

// What the verbs of ui-element-ctl share: its two output streams, the reading of files and of
// saved descriptions, the choice of desktop, the reading of screen points and option values, and
// the showing of saved values.

#include <QJsonObject>
#include <QJsonValue>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QVariant>

class UIElementCollection;

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

// Loads the collection as watch does; false, with the message, when the file cannot be read or
// holds none.
bool loadCollection(const QString& filePath, UIElementCollection& collection);

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

// The value of an option that takes one, removed from arguments with its option; false, with the
// message, when it has none.
bool takeValue(QStringList& arguments, qsizetype index, QString& value);

bool readWholeNumber(const QString& text, int minimum, int maximum, int& number);

// A saved value as a person reads it: texts quoted, lists in brackets, rects as "X,Y WIDTHxHEIGHT",
// points as "X,Y", the platform's null as "null".
QString valueText(const QVariant& value);
// The same as JSON: rects {x, y, width, height}, points {x, y}, sizes {width, height}, lists as
// arrays, the platform's null as null; a type JSON has no form for as its text.
QJsonValue valueJson(const QVariant& value);
QString rectText(const QRect& rect);
QJsonObject rectJson(const QRect& rect);
QString coordinatesText(const QPoint& point);
QJsonObject pointJson(const QPoint& point);
