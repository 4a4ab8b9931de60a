#include "ConnectionHandler.h"

#include "NativeUIElement.h"
#include "QtLocalPeer.h"
#include "StateReport.h"
#include "ZRUIElementToolData.h"
#include "dataObjectSerialization.h"
#include "toolIds.h"

#include <QDebug>
#include <QTimer>

namespace {
constexpr int reportTimeoutMilliseconds = 1000;
constexpr int fullPassMilliseconds = 1000;
constexpr int shortestIntervalMilliseconds = 125;
} // namespace

ConnectionHandler::ConnectionHandler(QtLocalPeer* peer, QObject* parent) : QObject(parent), peer(peer) {}

void ConnectionHandler::receiveMessage(QByteArray message) {
    ZRUIElementToolData data;
    deserializeObjectFromByteArray(&data, message);
    switch (data.command()) {
    case toolCommandStartWatching:
        startWatchingUIElement(data);
        break;
    case toolCommandStopWatching:
        stopWatchingUIElement(data);
        break;
    default:
        qDebug() << "Error: UI element tool received invalid command ID from Ostrik Conductor:"
                 << data.command();
    }
}

void ConnectionHandler::startWatchingUIElement(ZRUIElementToolData& data) {
    if (watchedElements.contains(data.id())) {
        qDebug() << "Error: UI element tool received command to watch UI elements with already used ID:"
                 << data.id();
        return;
    }
    UIElementCollection* collection = data.elements();
    if (!collection) {
        qDebug() << "Error: UI element tool received command to watch UI elements without a UI element "
                    "collection, ID:"
                 << data.id();
        return;
    }
    // Out of the parent tree before the shared pointer takes it, or it would be deleted twice.
    collection->setParent(nullptr);
    QSharedPointer<UIElementCollection> owned(collection);
    data.setElements(nullptr);
    watchedElements.insert(data.id(), WatchedUIElement{owned, QVariant()});
    updateWatchTimer();
}

void ConnectionHandler::stopWatchingUIElement(ZRUIElementToolData& data) {
    if (!watchedElements.contains(data.id())) {
        qDebug() << "Error: UI element tool received command to stop watching UI elements with invalid ID:"
                 << data.id();
        return;
    }
    // Never leave the position on the entry that goes, or its successor would be skipped.
    if (nextElement == data.id())
        advancePosition();
    watchedElements.remove(data.id());
    updateWatchTimer();
}

int ConnectionHandler::watchIntervalForEntryCount(qsizetype entries) {
    const qsizetype interval = fullPassMilliseconds / qMax<qsizetype>(entries, 1);
    return interval <= shortestIntervalMilliseconds ? shortestIntervalMilliseconds : int(interval);
}

void ConnectionHandler::updateWatchTimer() {
    // Every change restarts the interval from zero with a fresh timer; the old one must not tick.
    if (watchTimer) {
        watchTimer->stop();
        watchTimer->deleteLater();
        watchTimer = nullptr;
    }
    if (watchedElements.isEmpty())
        return;
    watchTimer = new QTimer(this);
    watchTimer->setInterval(watchIntervalForEntryCount(watchedElements.size()));
    connect(watchTimer, &QTimer::timeout, this, &ConnectionHandler::checkNextUIElement);
    watchTimer->start();
}

void ConnectionHandler::advancePosition() {
    auto it = nextElement ? watchedElements.constFind(*nextElement) : watchedElements.constEnd();
    if (it != watchedElements.constEnd())
        ++it;
    nextElement = it == watchedElements.constEnd() ? std::nullopt : std::optional<quint64>(it.key());
}

void ConnectionHandler::checkNextUIElement() {
    if (watchedElements.isEmpty())
        return;
    if (!nextElement || !watchedElements.contains(*nextElement))
        nextElement = watchedElements.constBegin().key();

    NativeUIElement element;
    const quint64 id = *nextElement;
    // Hold the collection for the length of the check whatever happens to the table meanwhile.
    const QSharedPointer<UIElementCollection> collection = watchedElements.value(id).elements;
    advancePosition();

    const int code =
        collection->findUIElementAndCreateOSSpecificRepresentation(element, {}, QVariant(), nullptr);
    if (unsigned(code) >= 2) {
        qDebug() << "Error: UI element tool attempt to find UI element failed with error code:" << code;
        return;
    }
    const bool found = code == 0;
    auto entry = watchedElements.find(id);
    if (entry == watchedElements.end())
        return;
    if (entry->lastState.isValid() && entry->lastState.toBool() == found)
        return;
    // Stored before the send: an undelivered flip is not retried.
    entry->lastState = found;
    if (!peer->sendMessage(makeStateReport(id, found), reportTimeoutMilliseconds))
        qDebug() << "Error: UI element tool failed to send message back to Ostrik Conductor";
}
