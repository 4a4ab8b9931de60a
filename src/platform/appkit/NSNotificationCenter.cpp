#include "NSNotificationCenter.h"

#include <QList>
#include <QMutex>
#include <QMutexLocker>

#include <atomic>

NSOperationQueue* NSOperationQueue::mainQueue() {
    static NSOperationQueue queue;
    return &queue;
}

struct NSObserver {
    NSObserver(const NSNotificationName& name, std::function<void(const NSNotification&)> block)
        : name(name), block(std::move(block)) {}
    const NSNotificationName name;
    const std::function<void(const NSNotification&)> block;
    // Set on removal: a notification being posted skips the observer from then on.
    std::atomic<bool> removed{false};
};

struct NSNotificationCenter::Private {
    std::function<void(bool)> observersChanged;
    mutable QMutex mutex;
    // Shared, so that a block being called outlives its removal.
    QList<std::shared_ptr<NSObserver>> observers;
};

NSNotificationCenter::NSNotificationCenter(std::function<void(bool)> observersChanged)
    : d(std::make_unique<Private>()) {
    d->observersChanged = std::move(observersChanged);
}

NSNotificationCenter::~NSNotificationCenter() = default;

NSObserverToken NSNotificationCenter::addObserverForName(const NSNotificationName& name, const void*,
                                                         NSOperationQueue*,
                                                         std::function<void(const NSNotification&)> block) {
    auto observer = std::make_shared<NSObserver>(name, std::move(block));
    bool first = false;
    {
        QMutexLocker locker(&d->mutex);
        first = d->observers.isEmpty();
        d->observers.append(observer);
    }
    if (first && d->observersChanged)
        d->observersChanged(true);
    return observer.get();
}

void NSNotificationCenter::removeObserver(NSObserverToken token) {
    bool last = false;
    {
        QMutexLocker locker(&d->mutex);
        const auto removed = d->observers.removeIf([token](const std::shared_ptr<NSObserver>& observer) {
            if (observer.get() != token)
                return false;
            observer->removed = true;
            return true;
        });
        last = removed > 0 && d->observers.isEmpty();
    }
    if (last && d->observersChanged)
        d->observersChanged(false);
}

void NSNotificationCenter::postNotification(const NSNotification& notification) {
    QList<std::shared_ptr<NSObserver>> observers;
    {
        QMutexLocker locker(&d->mutex);
        observers = d->observers;
    }
    for (const auto& observer : std::as_const(observers)) {
        if (observer->name == notification.name && !observer->removed)
            observer->block(notification);
    }
}

int NSNotificationCenter::observerCount() const {
    QMutexLocker locker(&d->mutex);
    return int(d->observers.size());
}
