#pragma once

// The watch table of the tool: commands start and stop watching collections; a timer visits
// one entry per tick, round-robin, and reports each flip between found and not found.

#include <QHash>
#include <QObject>
#include <QSharedPointer>
#include <QVariant>

#include <optional>

class QTimer;
class QtLocalPeer;
class UIElementCollection;
class ZRUIElementToolData;

class ConnectionHandler : public QObject {
    Q_OBJECT
public:
    struct WatchedUIElement {
        QSharedPointer<UIElementCollection> elements; // sole owner of the collection
        QVariant lastState;                           // invalid until the first answered check, then found
    };

    // `peer` carries the reports; it is not owned.
    explicit ConnectionHandler(QtLocalPeer* peer, QObject* parent = nullptr);

    void startWatchingUIElement(ZRUIElementToolData& data);
    void stopWatchingUIElement(ZRUIElementToolData& data);
    void updateWatchTimer();

    // The interval for a table of `entries`: each entry once a second, but never more than
    // eight checks a second.
    static int watchIntervalForEntryCount(qsizetype entries);

    // For inspection: the live timer (null while nothing is watched) and the table.
    const QTimer* currentWatchTimer() const { return watchTimer; }
    const QHash<quint64, WatchedUIElement>& watchedUIElements() const { return watchedElements; }

public Q_SLOTS:
    void receiveMessage(QByteArray message);
    void checkNextUIElement();

private:
    void advancePosition();

    QtLocalPeer* peer;
    QTimer* watchTimer = nullptr;
    QHash<quint64, WatchedUIElement> watchedElements;
    // The round-robin position: the key of the entry that the next tick checks, or none for
    // the end state. A key, unlike a hash iterator, stays meaningful when the table grows or
    // shrinks.
    std::optional<quint64> nextElement;
};
