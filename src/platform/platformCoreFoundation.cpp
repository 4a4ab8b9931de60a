#include "platformCoreFoundation.h"

// Written against the public string functions only, so that it is one implementation for the
// real framework and for ours. Both sides are UTF-16: the units are copied as they are, and
// characters outside the Basic Multilingual Plane keep their surrogate pairs.

QString QStringFromCFString(CFStringRef string) {
    if (!string)
        return QString();
    const CFIndex length = CFStringGetLength(string);
    QString result(length, Qt::Uninitialized);
    CFStringGetCharacters(string, CFRangeMake(0, length), reinterpret_cast<UniChar*>(result.data()));
    return result;
}

CFStringRef CFStringCreateWithQString(const QString& string) {
    return CFStringCreateWithCharacters(kCFAllocatorDefault,
                                        reinterpret_cast<const UniChar*>(string.unicode()), string.size());
}
