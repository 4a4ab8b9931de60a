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

struct ObserverWatch {
    QList<NSNotificationName> names;
    std::function<void(bool)> changed;
    int count = 0;
};

struct NSNotificationCenter::Private {
    std::function<void(bool)> observersChanged;
    mutable QMutex mutex;
    // Shared, so that a block being called outlives its removal.
    QList<std::shared_ptr<NSObserver>> observers;
    QList<ObserverWatch> watches;

    // Under the lock: counts an observer of this name in or out, and gives the watches to tell.
    QList<std::function<void(bool)>> countObserver(const NSNotificationName& name, int step) {
        QList<std::function<void(bool)>> told;
        for (ObserverWatch& watch : watches) {
            if (!watch.names.contains(name))
                continue;
            watch.count += step;
            if (watch.count == (step > 0 ? 1 : 0))
                told.append(watch.changed);
        }
        return told;
    }
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
    QList<std::function<void(bool)>> told;
    {
        QMutexLocker locker(&d->mutex);
        first = d->observers.isEmpty();
        d->observers.append(observer);
        told = d->countObserver(observer->name, 1);
    }
    if (first && d->observersChanged)
        d->observersChanged(true);
    for (const auto& changed : std::as_const(told))
        changed(true);
    return observer.get();
}

void NSNotificationCenter::removeObserver(NSObserverToken token) {
    bool last = false;
    QList<std::function<void(bool)>> told;
    {
        QMutexLocker locker(&d->mutex);
        const auto removed = d->observers.removeIf([&](const std::shared_ptr<NSObserver>& observer) {
            if (observer.get() != token)
                return false;
            observer->removed = true;
            told = d->countObserver(observer->name, -1);
            return true;
        });
        last = removed > 0 && d->observers.isEmpty();
    }
    if (last && d->observersChanged)
        d->observersChanged(false);
    for (const auto& changed : std::as_const(told))
        changed(false);
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

void NSNotificationCenter::watchObservers(const QList<NSNotificationName>& names,
                                          std::function<void(bool)> changed) {
    QMutexLocker locker(&d->mutex);
    ObserverWatch watch{names, std::move(changed)};
    for (const auto& observer : std::as_const(d->observers))
        watch.count += names.contains(observer->name) ? 1 : 0;
    d->watches.append(std::move(watch));
}
