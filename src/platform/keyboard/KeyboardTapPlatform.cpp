#include "KeyboardTapPlatform_p.h"

#include "x11/X11KeyboardTaps.h"

#include <QMutex>

namespace {

QMutex platformMutex;
std::shared_ptr<KeyboardTapPlatform> installedPlatform;

} // namespace

std::shared_ptr<KeyboardTapPlatform> activeKeyboardTapPlatform() {
    QMutexLocker lock(&platformMutex);
    if (!installedPlatform)
        installedPlatform = std::make_shared<X11KeyboardTapPlatform>();
    return installedPlatform;
}

void setKeyboardTapPlatformForTesting(std::shared_ptr<KeyboardTapPlatform> platform) {
    QMutexLocker lock(&platformMutex);
    installedPlatform = std::move(platform);
}
