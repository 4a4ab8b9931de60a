#pragma once

// A stand-in keyboard tap platform whose channels the test feeds through sockets, as the X
// server's are fed, and which records every answer of the taps. Header only: include it only
// from tests that link the platform library.

#include "platformEvents.h"

#include <QList>
#include <QMutex>

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <utility>

class FakeKeyChannel : public EventTapChannel {
public:
    struct Answer {
        std::int64_t keycode;
        CGEventType type;
        bool passOn;
    };

    explicit FakeKeyChannel(CGEventMask mask) : mask(mask) { socketpair(AF_UNIX, SOCK_STREAM, 0, sockets); }
    ~FakeKeyChannel() override {
        ::close(sockets[0]);
        ::close(sockets[1]);
    }
    int socket() const override { return sockets[0]; }
    void setEnabled(bool enable) override { enabled = enable; }
    QList<Event> readPending() override {
        char bytes[64];
        (void)::read(sockets[0], bytes, sizeof bytes);
        QMutexLocker lock(&mutex);
        return std::exchange(queue, {});
    }
    void answer(const Event& event, bool passOn) override {
        QMutexLocker lock(&mutex);
        answers.append({event.keycode, event.type, passOn});
    }

    // From the test's thread.
    void post(const Event& event) {
        QMutexLocker lock(&mutex);
        queue.append(event);
        (void)::write(sockets[1], "e", 1);
    }
    QList<Answer> answered() {
        QMutexLocker lock(&mutex);
        return answers;
    }

    const CGEventMask mask;
    std::atomic<bool> enabled{false};

private:
    int sockets[2] = {-1, -1};
    QMutex mutex;
    QList<Event> queue;
    QList<Answer> answers;
};

class FakeKeyboardTapPlatform final : public KeyboardTapPlatform {
public:
    std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask mask, bool active) override {
        // Held by a test that wants the tap thread to hang while it makes its taps.
        QMutexLocker gateLock(&gate);
        if (active ? !keyboardTapAvailable : !modifierTapAvailable)
            return nullptr;
        auto channel = std::make_unique<Channel>(this, mask);
        return channel;
    }

    // The open channel of the tap that takes this kind of event; null when none is open.
    FakeKeyChannel* channel(CGEventType kind) {
        QMutexLocker lock(&mutex);
        for (Channel* each : channels)
            if (each->mask & CGEventMaskBit(kind))
                return each;
        return nullptr;
    }
    int openChannels() {
        QMutexLocker lock(&mutex);
        return int(channels.size());
    }

    QMutex gate;
    std::atomic<bool> keyboardTapAvailable{true};
    std::atomic<bool> modifierTapAvailable{true};

private:
    class Channel final : public FakeKeyChannel {
    public:
        Channel(FakeKeyboardTapPlatform* platform, CGEventMask mask)
            : FakeKeyChannel(mask), platform(platform) {
            QMutexLocker lock(&platform->mutex);
            platform->channels.append(this);
        }
        ~Channel() override {
            QMutexLocker lock(&platform->mutex);
            platform->channels.removeOne(this);
        }
        FakeKeyboardTapPlatform* const platform;
    };

    QMutex mutex;
    QList<Channel*> channels;
};
