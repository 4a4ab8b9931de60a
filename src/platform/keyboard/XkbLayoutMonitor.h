#pragma once

// The source of kTISNotifySelectedKeyboardInputSourceChanged on Linux. While anyone observes it,
// it listens on a connection of its own to the X server (a selection of the keyboard extension's
// events on Qt's connection would replace Qt's own) for changes of the keyboard's group, new
// keymaps, and the root window's _XKB_RULES_NAMES, which names the layouts (setxkbmap writes it
// after the keymap). All that arrives in one batch is posted as one notification, on the thread
// of the QCoreApplication.

#include <QObject>

#include <cstdint>
#include <memory>

class QSocketNotifier;
class XkbServerConnection;

class XkbLayoutMonitor : public QObject {
    Q_OBJECT

public:
    static XkbLayoutMonitor& instance();

    // Called by the distributed notification centre as the first observer comes and the last
    // goes. Without a QCoreApplication nothing is watched.
    void setWatching(bool watching);

private:
    XkbLayoutMonitor() = default;
    ~XkbLayoutMonitor() override;
    void start();
    void stop();
    void readEvents();

    std::unique_ptr<XkbServerConnection> server;
    QSocketNotifier* notifier = nullptr;
    std::uint32_t rulesNamesAtom = 0;
};
