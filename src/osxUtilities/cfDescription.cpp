#include "cfDescription_p.h"

#include "CFTypeSmartRef.h"

#include <QDebug>

namespace {

QString takeText(CFStringRef description) {
    CFTypeSmartRef<CFStringRef> owned(description);
    return QStringFromCFString(owned);
}

} // namespace

void logUnsupportedCFValue(const char* heading, CFTypeRef value) {
    const QString type = value ? takeText(CFCopyTypeIDDescription(CFGetTypeID(value))) : QString();
    const QString description = value ? takeText(CFCopyDescription(value)) : QString();
    qDebug().noquote() << heading;
    qDebug().noquote() << "  type:" << type;
    qDebug().noquote() << "  description:" << description;
}
