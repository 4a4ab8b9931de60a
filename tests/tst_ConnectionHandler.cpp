// The watch table driven by collections that answer scripted codes, with a real report
// listener on another thread (the handler's sends block until "ack").

#include "ConnectionHandler.h"
#include "QtLocalPeer.h"
#include "StateReport.h"
#include "ZRUIElementToolData.h"
#include "testSupport.h"
#include "toolIds.h"

#include <QMutex>
#include <QRandomGenerator>
#include <QThread>
#include <QTimer>

namespace {

QList<quint64> visits;

// Answers its codes in turn, repeating the last one, and records each visit.
class ScriptedCollection : public UIElementCollection {
public:
    ScriptedCollection(quint64 id, QList<int> codes) : id(id), codes(std::move(codes)) {}

    int findUIElementAndCreateOSSpecificRepresentation(NativeUIElement&, QFlags<UIElementSearchOption>,
                                                       QVariant, bool*) const override {
        visits.append(id);
        const int code = codes.value(calls, codes.last());
        ++calls;
        return code;
    }

    quint64 id;
    QList<int> codes;
    mutable int calls = 0;
};

// Ostrik Conductor's side of the report channel, listening on a thread of its own.
class ReportSink {
public:
    ReportSink() {
        thread.start();
        context.moveToThread(&thread);
        QMetaObject::invokeMethod(
            &context,
            [this] {
                peer = new QtLocalPeer(nullptr, QString::fromLatin1(toolReportPeerId),
                                       QtLocalPeer::ByteArrayMessagesOnly);
                QObject::connect(peer, &QtLocalPeer::messageReceivedAsByteArray, peer,
                                 [this](const QByteArray& message) {
                                     QMutexLocker locker(&mutex);
                                     messages.append(message);
                                 });
                peer->listenForMessages();
            },
            Qt::BlockingQueuedConnection);
    }
    ~ReportSink() {
        QMetaObject::invokeMethod(
            &context, [this] { delete peer; }, Qt::BlockingQueuedConnection);
        thread.quit();
        thread.wait();
    }

    // The reports delivered so far. "ack" goes out before the listener hands a message on, so a
    // marker sent last and seen last proves that all earlier messages are in: connections are
    // served in order.
    QList<QByteArray> received() {
        const QByteArray marker = "end of reports";
        QtLocalPeer sender(nullptr, QString::fromLatin1(toolReportPeerId), QtLocalPeer::NoLockFile);
        if (!sender.sendMessage(marker, 10000))
            return {"marker not delivered"};
        for (int wait = 0; wait < 1000; ++wait) {
            {
                QMutexLocker locker(&mutex);
                if (messages.removeAll(marker) > 0)
                    return messages;
            }
            QThread::msleep(10);
        }
        return {"marker not received"};
    }

private:
    QThread thread;
    QObject context;
    QtLocalPeer* peer = nullptr;
    QMutex mutex;
    QList<QByteArray> messages;
};

// Drops debug lines while it lives, for runs that log too much to list.
class QuietLog {
public:
    QuietLog()
        : previous(qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {})) {}
    ~QuietLog() { qInstallMessageHandler(previous); }

private:
    QtMessageHandler previous;
};

void expectFindErrors(int code, int count) {
    for (int i = 0; i < count; ++i)
        QTest::ignoreMessage(
            QtDebugMsg,
            qPrintable(
                QStringLiteral("Error: UI element tool attempt to find UI element failed with error code: %1")
                    .arg(code)));
}

QByteArray report(quint64 id, bool found) {
    return makeStateReport(id, found);
}

} // namespace

class TestConnectionHandler : public QObject {
    Q_OBJECT
    QtLocalPeer reportPeer{nullptr, QString::fromLatin1(toolReportPeerId),
                           QtLocalPeer::NoLockFile | QtLocalPeer::ByteArrayMessagesOnly};

    void start(ConnectionHandler& handler, quint64 id, QList<int> codes) {
        ZRUIElementToolData data;
        data.setCommand(toolCommandStartWatching);
        data.setId(id);
        auto* collection = new ScriptedCollection(id, std::move(codes));
        collection->setParent(&data);
        data.setElements(collection);
        handler.startWatchingUIElement(data);
    }
    void stop(ConnectionHandler& handler, quint64 id) {
        ZRUIElementToolData data;
        data.setCommand(toolCommandStopWatching);
        data.setId(id);
        handler.stopWatchingUIElement(data);
    }

    // Five entries whose checks all fail, so that only the order of visits shows; `ticks` checks.
    void startFiveAndTick(ConnectionHandler& handler, int ticks) {
        for (quint64 id = 1; id <= 5; ++id)
            start(handler, id, {3});
        expectFindErrors(3, ticks);
        for (int i = 0; i < ticks; ++i)
            handler.checkNextUIElement();
    }

private Q_SLOTS:
    void init() { visits.clear(); }

    void stateReportLayout() {
        QCOMPARE(report(0x0102030405060708ULL, true), QByteArray::fromHex("010203040506070801"));
        QCOMPARE(report(~0ULL, false), QByteArray::fromHex("ffffffffffffffff00"));
        quint64 id = 0;
        bool found = true;
        QVERIFY(parseStateReport(QByteArray::fromHex("ffffffffffffffff00"), id, found));
        QCOMPARE(id, ~0ULL);
        QCOMPARE(found, false);
        for (const char* bad : {"", "0000000000000001", "00000000000000010100", "000000000000000102"})
            QVERIFY2(!parseStateReport(QByteArray::fromHex(bad), id, found), bad);
    }

    // The interval after starting this many entries, and whether one start too many restarts it.
    void timerIntervalFollowsTableSize_data() {
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("interval");
        QTest::newRow("1") << 1 << 1000;
        QTest::newRow("2") << 2 << 500;
        QTest::newRow("3") << 3 << 333;
        QTest::newRow("6") << 6 << 166;
        QTest::newRow("7") << 7 << 142;
        QTest::newRow("8") << 8 << 125;
        QTest::newRow("9") << 9 << 125;
        QTest::newRow("1001, quotient 0") << 1001 << 125;
    }
    void timerIntervalFollowsTableSize() {
        QFETCH(int, entries);
        QFETCH(int, interval);
        ConnectionHandler handler(&reportPeer);
        QVERIFY(!handler.currentWatchTimer());
        for (int i = 0; i < entries; ++i)
            start(handler, quint64(i) + 100, {1});
        QVERIFY(handler.currentWatchTimer());
        QCOMPARE(handler.currentWatchTimer()->interval(), interval);
        QVERIFY(handler.currentWatchTimer()->isActive());
        QVERIFY(!handler.currentWatchTimer()->isSingleShot());
    }

    void timerLifecycle() {
        ConnectionHandler handler(&reportPeer);
        start(handler, 1, {1});
        const QTimer* first = handler.currentWatchTimer();
        QTest::ignoreMessage(
            QtDebugMsg,
            "Error: UI element tool received command to watch UI elements with already used ID: 1");
        start(handler, 1, {0});
        QCOMPARE(handler.currentWatchTimer(), first);
        QTest::ignoreMessage(
            QtDebugMsg,
            "Error: UI element tool received command to stop watching UI elements with invalid ID: 2");
        stop(handler, 2);
        QCOMPARE(handler.currentWatchTimer(), first);
        start(handler, 2, {1});
        QVERIFY(handler.currentWatchTimer() != first);
        QCOMPARE(handler.currentWatchTimer()->interval(), 500);
        stop(handler, 1);
        QCOMPARE(handler.currentWatchTimer()->interval(), 1000);
        stop(handler, 2);
        QVERIFY(!handler.currentWatchTimer());
        QVERIFY(handler.watchedUIElements().isEmpty());
    }

    // Codes answered by successive checks of one entry, and the reports that must reach the peer.
    void reportsOnlyFlips_data() {
        QTest::addColumn<QList<int>>("codes");
        QTest::addColumn<QList<bool>>("reports");
        QTest::newRow("first check reports not found") << QList<int>{1} << QList<bool>{false};
        QTest::newRow("first check reports found") << QList<int>{0} << QList<bool>{true};
        QTest::newRow("repeat is silent, flip reports")
            << QList<int>{1, 1, 0, 0, 1} << QList<bool>{false, true, false};
        QTest::newRow("errors leave the state") << QList<int>{1, 3, 1, 2, 5, 0} << QList<bool>{false, true};
        QTest::newRow("error first reports nothing") << QList<int>{3, 3} << QList<bool>{};
        QTest::newRow("negative code is an error") << QList<int>{-1, 0} << QList<bool>{true};
    }
    void reportsOnlyFlips() {
        QFETCH(QList<int>, codes);
        QFETCH(QList<bool>, reports);
        ReportSink sink;
        ConnectionHandler handler(&reportPeer);
        start(handler, 77, codes);
        for (int code : codes) {
            if (unsigned(code) >= 2)
                expectFindErrors(code, 1);
            handler.checkNextUIElement();
        }
        QList<QByteArray> expected;
        for (bool found : reports)
            expected.append(report(77, found));
        QCOMPARE(sink.received(), expected);
        QCOMPARE(visits.size(), codes.size());
    }

    void undeliveredReportIsNotRepeated() {
        ConnectionHandler handler(&reportPeer);
        start(handler, 5, {1, 1, 0});
        QTest::ignoreMessage(QtDebugMsg, "QtLocalPeer error: client failed to connect to running instance");
        QTest::ignoreMessage(QtDebugMsg, "QtLocalPeer error: client failed to send message");
        QTest::ignoreMessage(QtDebugMsg,
                             "Error: UI element tool failed to send message back to Ostrik Conductor");
        handler.checkNextUIElement();
        QCOMPARE(handler.watchedUIElements().value(5).lastState, QVariant(false));

        ReportSink sink;
        handler.checkNextUIElement();
        QVERIFY(sink.received().isEmpty());
        handler.checkNextUIElement();
        QCOMPARE(sink.received(), QList<QByteArray>{report(5, true)});
    }

    void roundRobinVisitsEachEntryOncePerPass() {
        ConnectionHandler handler(&reportPeer);
        startFiveAndTick(handler, 10);
        const QList<quint64> pass = visits.mid(0, 5);
        QCOMPARE(QSet<quint64>(pass.begin(), pass.end()).size(), 5);
        QCOMPARE(visits.mid(5), pass);
    }

    // Stopping the entry that the next tick would check must not skip the one behind it.
    void stopUnderPositionSkipsNothing() {
        ConnectionHandler handler(&reportPeer);
        startFiveAndTick(handler, 5);
        expectFindErrors(3, 2);
        const QList<quint64> pass = visits;
        visits.clear();
        handler.checkNextUIElement(); // position now on pass[1]
        stop(handler, pass.at(1));
        handler.checkNextUIElement();
        QCOMPARE(visits.last(), pass.at(2));
    }

    // The single entry leaves the position in the end state after every tick; stopping it there
    // must work, and so must a stop before the first tick.
    void stopInEndState() {
        ConnectionHandler handler(&reportPeer);
        start(handler, 9, {3});
        stop(handler, 9);
        start(handler, 9, {3});
        expectFindErrors(3, 1);
        handler.checkNextUIElement();
        stop(handler, 9);
        QVERIFY(handler.watchedUIElements().isEmpty());
        QVERIFY(!handler.currentWatchTimer());
        handler.checkNextUIElement(); // an empty table checks nothing
        QCOMPARE(visits.size(), 1);
    }

    // Starts and stops in any order between ticks never visit a stopped collection (freed at the
    // stop, so a stale position would show under the address sanitizer) and never lose one.
    void positionSurvivesChangesOfTheTable() {
        ConnectionHandler handler(&reportPeer);
        QRandomGenerator random(20261121);
        QSet<quint64> live;
        QuietLog quiet;
        for (int step = 0; step < 3000; ++step) {
            const quint64 id = random.bounded(40);
            if (random.bounded(3) == 0) {
                if (live.contains(id)) {
                    stop(handler, id);
                    live.remove(id);
                } else {
                    start(handler, id, {3});
                    live.insert(id);
                }
            }
            visits.clear();
            handler.checkNextUIElement();
            QCOMPARE(visits.size(), live.isEmpty() ? 0 : 1);
            if (!visits.isEmpty())
                QVERIFY(live.contains(visits.first()));
        }
        // With the table left alone, one pass reaches every entry.
        visits.clear();
        for (int i = 0; i < 2 * live.size(); ++i)
            handler.checkNextUIElement();
        QCOMPARE(QSet<quint64>(visits.begin(), visits.end()), live);
    }

    void startWithoutCollectionIsDropped() {
        ConnectionHandler handler(&reportPeer);
        ZRUIElementToolData data;
        data.setCommand(toolCommandStartWatching);
        data.setId(3);
        QTest::ignoreMessage(QtDebugMsg, "Error: UI element tool received command to watch UI elements "
                                         "without a UI element collection, ID: 3");
        handler.startWatchingUIElement(data);
        QVERIFY(handler.watchedUIElements().isEmpty());
        QVERIFY(!handler.currentWatchTimer());
    }

    void startTakesTheCollectionOutOfTheCommand() {
        ConnectionHandler handler(&reportPeer);
        QPointer<UIElementCollection> collection;
        {
            ZRUIElementToolData data;
            data.setId(4);
            collection = new ScriptedCollection(4, {1});
            collection->setParent(&data);
            data.setElements(collection);
            handler.startWatchingUIElement(data);
            QCOMPARE(data.elements(), nullptr);
            QCOMPARE(collection->parent(), nullptr);
        }
        QVERIFY(collection); // survived the command object
        stop(handler, 4);
        QVERIFY(!collection); // died with its entry
    }

    // Whole messages as they arrive from the command peer.
    void receiveMessage_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QString>("logLine");
        QTest::newRow("empty")
            << QByteArray() << "Error: UI element tool received invalid command ID from Ostrik Conductor: 0";
        QTest::newRow("unknown command")
            << QByteArray("[General]\ncommand=7\nid=1\n")
            << "Error: UI element tool received invalid command ID from Ostrik Conductor: 7";
        QTest::newRow("command not a number")
            << QByteArray("[General]\ncommand=start\n")
            << "Error: UI element tool received invalid command ID from Ostrik Conductor: 0";
        QTest::newRow("stop of unknown id")
            << QByteArray("[General]\ncommand=2\nid=18446744073709551615\n")
            << "Error: UI element tool received command to stop watching UI elements with invalid ID: "
               "18446744073709551615";
        QTest::newRow("start without collection") << QByteArray("[General]\ncommand=1\nid=12\n")
                                                  << "Error: UI element tool received command to watch UI "
                                                     "elements without a UI element collection, ID: 12";
    }
    void receiveMessage() {
        QFETCH(QByteArray, message);
        QFETCH(QString, logLine);
        ConnectionHandler handler(&reportPeer);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(logLine));
        handler.receiveMessage(message);
        QVERIFY(handler.watchedUIElements().isEmpty());
        QVERIFY(!handler.currentWatchTimer());
    }

    void stopMessageRemovesEntry() {
        ConnectionHandler handler(&reportPeer);
        start(handler, 21, {1});
        start(handler, 22, {1});
        handler.receiveMessage("[General]\ncommand=2\nid=21\n");
        QCOMPARE(handler.watchedUIElements().keys(), QList<quint64>{22});
        QCOMPARE(handler.currentWatchTimer()->interval(), 1000);
    }

    void timerDrivesTheChecks() {
        ReportSink sink;
        ConnectionHandler handler(&reportPeer);
        start(handler, 31, {0});
        QTRY_COMPARE_WITH_TIMEOUT(sink.received(), QList<QByteArray>{report(31, true)}, 10000);
    }
};

UIET_TEST_MAIN(TestConnectionHandler)
#include "tst_ConnectionHandler.moc"
