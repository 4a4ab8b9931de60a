#include "NSScreen.h"

#include "ax/AccessibilityProvider.h"

#include <QMutex>
#include <QMutexLocker>

#include <map>
#include <memory>
#include <tuple>

// One object per provider, display and configuration, kept for the life of the process.
class ScreenRegistry {
public:
    static ScreenRegistry& instance() {
        static ScreenRegistry registry;
        return registry;
    }

    NSScreen* objectFor(quint64 providerSerial, CGDirectDisplayID id, const CGRect& inverted,
                        const ScreenInfo& info) {
        const Key key{
            providerSerial,       id,         inverted.origin.x, inverted.origin.y, inverted.size.width,
            inverted.size.height, info.scale, info.name};
        QMutexLocker locker(&mutex);
        std::unique_ptr<NSScreen>& object = objects[key];
        if (!object)
            object.reset(new NSScreen(id, inverted, info.scale, info.name));
        return object.get();
    }

private:
    using Key = std::tuple<quint64, CGDirectDisplayID, double, double, double, double, double, QString>;
    QMutex mutex;
    std::map<Key, std::unique_ptr<NSScreen>> objects;
};

namespace {

bool frameContains(const CGRect& frame, const CGPoint& point) {
    return point.x >= frame.origin.x && point.x < frame.origin.x + frame.size.width &&
           point.y >= frame.origin.y && point.y < frame.origin.y + frame.size.height;
}

// The objects of these screens, in their order.
QList<NSScreen*> screenObjects(quint64 providerSerial, const QList<ScreenInfo>& infos) {
    QList<NSScreen*> result;
    if (infos.isEmpty())
        return result;
    const double mirror = infos.first().frame.size.height;
    for (qsizetype n = 0; n < infos.size(); ++n) {
        CGRect inverted = infos[n].frame;
        inverted.origin.y = mirror - inverted.origin.y - inverted.size.height;
        result.append(ScreenRegistry::instance().objectFor(providerSerial, CGDirectDisplayID(n + 1), inverted,
                                                           infos[n]));
    }
    return result;
}

} // namespace

NSScreen::NSScreen(CGDirectDisplayID id, const CGRect& invertedFrame, double scale, const QString& name)
    : id(id), invertedFrame(invertedFrame), scale(scale), name(name) {}

QList<NSScreen*> NSScreen::screens() {
    const std::shared_ptr<AccessibilityProvider> provider = activeAccessibilityProvider();
    return screenObjects(provider->serial(), provider->screens());
}

// One reading of the screen list serves both the objects and the search, so that they agree.
NSScreen* NSScreen::mainScreen() {
    const std::shared_ptr<AccessibilityProvider> provider = activeAccessibilityProvider();
    const QList<ScreenInfo> infos = provider->screens();
    const QList<NSScreen*> all = screenObjects(provider->serial(), infos);
    if (all.isEmpty())
        return nullptr;
    QList<WindowInfo> windows;
    provider->windowList(&windows);
    for (const WindowInfo& window : std::as_const(windows)) {
        if (!window.onScreen)
            continue;
        const CGPoint centre = CGPointMake(window.frame.origin.x + window.frame.size.width / 2,
                                           window.frame.origin.y + window.frame.size.height / 2);
        for (qsizetype n = 0; n < infos.size(); ++n) {
            if (frameContains(infos[n].frame, centre))
                return all[n];
        }
        break;
    }
    return all.first();
}

QVariantMap NSScreen::deviceDescription() const {
    return {{QStringLiteral("NSScreenNumber"), QVariant::fromValue(uint(id))}};
}
