#include "NSDistributedNotificationCenter.h"

#include "keyboard/XkbLayoutMonitor.h"
#include "platformKeyboard.h"

#include <QMutexLocker>

NSDistributedNotificationCenter* NSDistributedNotificationCenter::defaultCenter() {
    // Never destroyed: observers may come and go until the process ends.
    static NSDistributedNotificationCenter* const center = new NSDistributedNotificationCenter;
    return center;
}

NSDistributedNotificationCenter::NSDistributedNotificationCenter() {
    center.watchObservers({kTISNotifySelectedKeyboardInputSourceChanged},
                          [](bool anyObservers) { XkbLayoutMonitor::instance().setWatching(anyObservers); });
}

void NSDistributedNotificationCenter::addObserver(const void* observer,
                                                  std::function<void(const NSNotification&)> selector,
                                                  const NSNotificationName& name, const void* object,
                                                  NSNotificationSuspensionBehavior) {
    const NSObserverToken token =
        center.addObserverForName(name, object, NSOperationQueue::mainQueue(), std::move(selector));
    QMutexLocker locker(&mutex);
    tokens.insert(observer, token);
}

void NSDistributedNotificationCenter::removeObserver(const void* observer) {
    QList<NSObserverToken> removed;
    {
        QMutexLocker locker(&mutex);
        removed = tokens.values(observer);
        tokens.remove(observer);
    }
    for (NSObserverToken token : std::as_const(removed))
        center.removeObserver(token);
}

void NSDistributedNotificationCenter::postNotification(const NSNotification& notification) {
    center.postNotification(notification);
}
