#pragma once

// The monotonic clock, for measuring intervals: never adjusted, unrelated to the time of day.

#include <QtGlobal>

// Milliseconds with a fraction: whole nanoseconds divided by 1e6.
double milliseconds();
// The same instant in whole nanoseconds.
quint64 getSystenTimeInNanoseconds();
