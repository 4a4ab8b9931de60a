#pragma once

// Two subscribers to modifier changes: one with a context on a thread of its own, one without a
// context, which hears on the test's thread. Each records the modifiers it heard and where.

#include "osxEventFiltering.h"

#include <QMutex>
#include <QPair>
#include <QThread>

class ModifierSubscribers {
public:
    using Heard = QPair<QThread*, Qt::KeyboardModifiers>;

    ModifierSubscribers() : context(new QObject) {
        worker.start();
        context->moveToThread(&worker);
    }
    ~ModifierSubscribers() {
        // On its thread, where its subscription's proxy lives.
        QMetaObject::invokeMethod(
            context, [this] { delete context; }, Qt::BlockingQueuedConnection);
        worker.quit();
        worker.wait();
    }

    // The two subscriptions, for the caller to remove.
    QList<QSharedPointer<ModifierChangedCallbackData>> subscribe() {
        auto record = [this](Qt::KeyboardModifiers modifiers, unsigned long long) {
            QMutexLocker lock(&mutex);
            heard.append({QThread::currentThread(), modifiers});
        };
        return {osxAddModifierChangedCallback(context, record), osxAddModifierChangedCallback(record)};
    }
    QList<Heard> heardSoFar() {
        QMutexLocker lock(&mutex);
        return heard;
    }
    // Both heard these modifiers, each on its own thread.
    bool bothHeard(Qt::KeyboardModifiers modifiers) {
        const QList<Heard> all = heardSoFar();
        return all.contains({&worker, modifiers}) && all.contains({QThread::currentThread(), modifiers});
    }

private:
    QThread worker;
    QObject* context;
    QMutex mutex;
    QList<Heard> heard;
};
