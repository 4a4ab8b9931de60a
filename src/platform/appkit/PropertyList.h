#pragma once

// Property lists as Foundation reads them, in their three forms: XML, binary ("bplist00") and the
// old text form of NeXTSTEP and OpenStep, in which ".strings" files are written
// ("key" = "value"; lines, with comments and escapes, in UTF-8 or UTF-16).
//
// Values come as QVariants: a dictionary as QVariantMap, an array as QVariantList, a string as
// QString, data as QByteArray, a date as QDateTime (UTC), an integer as qint64 (quint64 above
// the range of qint64), a real as double, a boolean as bool.

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// Any of the three forms; nullopt when the data is none of them or is damaged. A binary UID (the
// reference of a keyed archive) comes as a dictionary holding it under "CF$UID", which is how an
// XML property list writes one.
std::optional<QVariant> propertyListFromData(const QByteArray& data);
// The old text form alone. A text whose top level holds "key" = "value"; pairs without braces
// (a ".strings" file) is a dictionary; "key"; alone stands for "key" = "key";. Text in UTF-16
// begins with its byte order mark; any other is UTF-8, with or without one. Nullopt for a text
// that breaks the form or is no valid UTF-8 or UTF-16.
std::optional<QVariant> openStepPropertyListFromData(const QByteArray& data);

// NSDictionary's dictionaryWithContentsOfFile: the file's property list when its root is a
// dictionary; nullopt when the file cannot be read, is no property list, or its root is not a
// dictionary.
std::optional<QVariantMap> dictionaryWithContentsOfFile(const QString& path);

// Files larger than this are not read: no string table comes near it.
inline constexpr qint64 kLargestPropertyListFile = 64 * 1024 * 1024;

// Dictionaries and arrays nested deeper than this are refused in every form, so that a hostile
// file cannot exhaust the stack of the reader.
inline constexpr int kDeepestPropertyListNesting = 512;
