#pragma once

// Conversion of platform values into Qt values.

#include "platformCoreFoundation.h"

#include <QVariant>

// Strings become QString, floating numbers double, other numbers long long, booleans bool, arrays
// of strings QStringList, the platform's null a valid QVariant holding a null void*, URLs their
// text. Anything else, an array with an entry that is not a string included, gives an invalid
// QVariant and, unless quiet, a debug log line.
QVariant CFTypeToVariant(CFTypeRef value, bool quiet = false);
