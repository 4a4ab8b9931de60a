#pragma once

// Watches what cursor hiding asks of its platform: which event tap channels are open, and whether
// each is enabled once the platform has taken the change. Everything is forwarded to another
// platform, the X server's or a test's stand-in. Header only: include it only from tests that
// link the platform library.

#include "platformCursor.h"

#include <QList>
#include <QMutex>

#include <atomic>
#include <memory>

class WatchedCursorPlatform final : public CursorPlatform {
public:
    explicit WatchedCursorPlatform(std::shared_ptr<CursorPlatform> inner) : inner(std::move(inner)) {}

    void hideCursor() override { inner->hideCursor(); }
    void showCursor() override { inner->showCursor(); }
    bool isCursorVisible() override { return inner->isCursorVisible(); }
    void forceShowCursor() override { inner->forceShowCursor(); }
    std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask mask) override {
        std::unique_ptr<EventTapChannel> channel = inner->openEventTapChannel(mask);
        if (!channel)
            return nullptr;
        return std::make_unique<WatchedChannel>(this, mask, std::move(channel));
    }

    int openChannels() {
        QMutexLocker lock(&mutex);
        return int(channels.size());
    }
    // The open channel that takes events of a kind (a CGEventMaskBit), as the inner platform made it.
    EventTapChannel* channel(CGEventMask kind) {
        QMutexLocker lock(&mutex);
        for (WatchedChannel* each : channels)
            if (each->mask & kind)
                return each->inner.get();
        return nullptr;
    }
    // False also when no such channel is open.
    bool channelEnabled(CGEventMask kind) {
        QMutexLocker lock(&mutex);
        for (WatchedChannel* each : channels)
            if (each->mask & kind)
                return each->enabled;
        return false;
    }

private:
    class WatchedChannel final : public EventTapChannel {
    public:
        WatchedChannel(WatchedCursorPlatform* platform, CGEventMask mask,
                       std::unique_ptr<EventTapChannel> inner)
            : platform(platform), mask(mask), inner(std::move(inner)) {
            QMutexLocker lock(&platform->mutex);
            platform->channels.append(this);
        }
        ~WatchedChannel() override {
            QMutexLocker lock(&platform->mutex);
            platform->channels.removeOne(this);
        }
        int socket() const override { return inner->socket(); }
        void setEnabled(bool enable) override {
            inner->setEnabled(enable);
            enabled = enable;
        }
        QList<Event> readPending() override { return inner->readPending(); }

        WatchedCursorPlatform* const platform;
        const CGEventMask mask;
        const std::unique_ptr<EventTapChannel> inner;
        std::atomic<bool> enabled{false};
    };

    const std::shared_ptr<CursorPlatform> inner;
    QMutex mutex;
    QList<WatchedChannel*> channels;
};
