#pragma once

// Foundation's centre of the notifications that the system posts for every process, in the
// observer and selector form: an observer object is added with the method to call, and removed
// by itself. On Linux it serves the notifications of the platform layer's own sources (the
// keyboard layout), each running only while it is observed; the methods are called on the thread
// of the QCoreApplication, from its event loop.

#include "NSNotificationCenter.h"

#include <QHash>
#include <QMutex>

enum NSNotificationSuspensionBehavior {
    NSNotificationSuspensionBehaviorDrop = 1,
    NSNotificationSuspensionBehaviorCoalesce = 2,
    NSNotificationSuspensionBehaviorHold = 3,
    NSNotificationSuspensionBehaviorDeliverImmediately = 4,
};

class NSDistributedNotificationCenter {
public:
    static NSDistributedNotificationCenter* defaultCenter();

    // selector is called with each notification of this name. The process is never suspended
    // here, so every behaviour delivers at once.
    void addObserver(const void* observer, std::function<void(const NSNotification&)> selector,
                     const NSNotificationName& name, const void* object,
                     NSNotificationSuspensionBehavior suspensionBehavior);
    // Removes every registration of the observer.
    void removeObserver(const void* observer);
    // For the sources: calls the selectors of this name's observers on the calling thread.
    void postNotification(const NSNotification& notification);

    int observerCount() const { return center.observerCount(); }

private:
    NSDistributedNotificationCenter();

    NSNotificationCenter center;
    QMutex mutex;
    QMultiHash<const void*, NSObserverToken> tokens;
};
