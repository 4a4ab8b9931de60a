#include "LiveScreens.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>

#include <cmath>

namespace {

bool qtKnowsTheXScreens() {
    const auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    return application && QGuiApplication::platformName() == QLatin1String("xcb") &&
           QThread::currentThread() == application->thread();
}

ScreenInfo describe(const QScreen* screen) {
    ScreenInfo info;
    const QRect geometry = screen->geometry();
    info.frame = CGRectMake(geometry.x(), geometry.y(), geometry.width(), geometry.height());
    info.scale = screen->devicePixelRatio();
    info.name = screen->name();
    info.physicalSize = CGSizeMake(screen->physicalSize().width(), screen->physicalSize().height());
    return info;
}

} // namespace

double qtScaleFactor() {
    bool isNumber = false;
    const double factor = qEnvironmentVariable("QT_SCALE_FACTOR").toDouble(&isNumber);
    return isNumber && std::isfinite(factor) && factor > 0 ? factor : 1.0;
}

double toPoints(double devicePixels) {
    return devicePixels / qtScaleFactor();
}

QList<ScreenInfo> liveScreens(const QList<ScreenInfo>& monitors) {
    QList<ScreenInfo> result;
    if (qtKnowsTheXScreens()) {
        for (const QScreen* screen : QGuiApplication::screens())
            result.append(describe(screen));
        return result;
    }
    const double scale = qtScaleFactor();
    for (ScreenInfo screen : monitors) {
        screen.scale = scale;
        screen.frame.size = CGSizeMake(std::round(screen.frame.size.width / scale),
                                       std::round(screen.frame.size.height / scale));
        result.append(screen);
    }
    return result;
}
