#pragma once

// CoreFoundation for the code above the platform seam: Apple's framework on Apple systems, the
// subset in cf/ elsewhere. Code includes this header, never either of the two directly.

#ifdef __APPLE__
#include <CoreFoundation/CoreFoundation.h>
#else
#include "cf/CoreFoundation.h"
#endif

#include <QString>

// Conversions between platform strings and QString, the same on every platform and with the
// meaning of Qt's QString::fromCFString and QString::toCFString on Apple systems.

// A null QString for NULL.
QString QStringFromCFString(CFStringRef string);
// A new string the caller releases; an empty one for an empty or null QString.
CFStringRef CFStringCreateWithQString(const QString& string);
