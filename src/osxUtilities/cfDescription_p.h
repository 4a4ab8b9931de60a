#pragma once

// The platform's descriptions of values and their types, for the log lines about values that have
// no Qt counterpart.

#include "platformCoreFoundation.h"

// Logs at debug level the heading, then "  type: " with the description of the value's type and
// "  description: " with the description of the value, as three lines.
void logUnsupportedCFValue(const char* heading, CFTypeRef value);
