#pragma once

// The report that tells Ostrik Conductor that a watched id flipped between found and not
// found: 9 bytes, the id as a big-endian 64-bit integer and one byte, 1 for found.

#include <QByteArray>
#include <QtGlobal>

inline constexpr int stateReportSize = 9;

QByteArray makeStateReport(quint64 id, bool found);

// False, with the outputs untouched, unless the message is exactly one well-formed report.
bool parseStateReport(const QByteArray& message, quint64& id, bool& found);
