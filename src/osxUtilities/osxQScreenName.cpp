#include "osxQScreenName.h"

#include "osxSystemVersion.h"

#include <QDebug>
#include <QScreen>
#include <QVersionNumber>

#ifdef __APPLE__
#include "appkit/NSScreen.h"

#include <cstdint>

class QCocoaScreen;

namespace {

// Qt 6.2.3 keeps the display id as the first field behind QPlatformScreen in QCocoaScreen. Kept
// apart so that it can follow Qt's layout when that changes.
CGDirectDisplayID getQCocoaScreenCGDirectDisplayID_(QCocoaScreen* screen) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(screen) + sizeof(QPlatformScreen);
    return *reinterpret_cast<const std::uint32_t*>(bytes);
}

} // namespace
#endif

namespace {

const QVersionNumber kSonomaVersion(14, 0, 0);
bool warned = false;

} // namespace

void maybeWarn(const QString& reason) {
    if (warned)
        return;
    warned = true;
    qWarning().noquote() << "Warning: display name may be wrong or missing";
    qDebug().noquote() << "Reason:" << reason;
}

QString fixedQScreenName(const QScreen* screen) {
    if (!screen)
        return QString();
    if (!passesVersionGate(getMacOSVersion(), kSonomaVersion))
        return screen->name();
#ifdef __APPLE__
    auto* cocoaScreen = reinterpret_cast<QCocoaScreen*>(screen->handle());
    if (!cocoaScreen) {
        maybeWarn(QStringLiteral("Couldn't get QCocoaScreen instance"));
        return screen->name();
    }
    const CGDirectDisplayID id = getQCocoaScreenCGDirectDisplayID_(cocoaScreen);
    if (id == 0) {
        maybeWarn(QStringLiteral("Couldn't get CGDirectDisplayID"));
        return screen->name();
    }
    for (NSScreen* candidate : NSScreen::screens()) {
        if (candidate->deviceDescription().value(QStringLiteral("NSScreenNumber")).toUInt() == id)
            return candidate->localizedName();
    }
    maybeWarn(QStringLiteral("Couldn't find matching NSScreen"));
    return screen->name();
#else
    return screen->name();
#endif
}
