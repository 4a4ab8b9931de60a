#include "QtLocalPeer.h"
#include "testSupport.h"

#include <QBuffer>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QThread>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using QtLP_Private::QtLockedFile;

namespace {

// CRC-16/X-25, the ISO 3309 checksum, bit by bit: the socket name must not be checked against itself.
quint16 crc16X25(const QByteArray& data) {
    quint16 crc = 0xFFFF;
    for (const char byte : data) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
    }
    return crc ^ 0xFFFF;
}

QByteArray frame(quint32 length, const QByteArray& body) {
    QByteArray bytes(4, Qt::Uninitialized);
    qToBigEndian(length, bytes.data());
    return bytes + body;
}

QByteArray frame(const QByteArray& body) {
    return frame(quint32(body.size()), body);
}

QString lockFilePath(const QString& id) {
    return QDir::tempPath() + QLatin1Char('/') + localPeerSocketName(id, ::getuid()) + "-lockfile";
}

// Tries an fcntl lock on a file from a child process, which keeps it until this object goes.
class OtherProcessLock {
public:
    OtherProcessLock(const QString& path, short type) {
        const QByteArray name = QFile::encodeName(path);
        int result[2], release[2];
        if (::pipe(result) != 0 || ::pipe(release) != 0)
            qFatal("pipe: %s", std::strerror(errno));
        child = ::fork();
        if (child == 0) {
            // Nothing but system calls up to _exit: the test process has other threads.
            ::close(result[0]);
            ::close(release[1]);
            struct flock range {};
            range.l_type = type;
            range.l_whence = SEEK_SET;
            const int handle = ::open(name.constData(), O_RDWR | O_CREAT, 0600);
            const char locked = handle >= 0 && ::fcntl(handle, F_SETLK, &range) == 0;
            char ignored;
            if (::write(result[1], &locked, 1) == 1 && ::read(release[0], &ignored, 1) < 0)
                ::_exit(1);
            ::_exit(0);
        }
        ::close(result[1]);
        ::close(release[0]);
        char locked = 0;
        held = ::read(result[0], &locked, 1) == 1 && locked;
        ::close(result[0]);
        releaseHandle = release[1];
    }
    ~OtherProcessLock() {
        ::close(releaseHandle);
        ::waitpid(child, nullptr, 0);
    }
    bool held = false;

private:
    pid_t child = -1;
    int releaseHandle = -1;
};

// A blocking send and a listener in one thread would wait for each other: the send gets a thread
// of its own while this thread's event loop serves the listener.
template <typename Send> bool sendFromThread(Send send) {
    bool result = false;
    const std::unique_ptr<QThread> thread(QThread::create([&] { result = send(); }));
    thread->start();
    const bool finished = QTest::qWaitFor([&] { return thread->isFinished(); }, 120000);
    thread->wait();
    return finished && result;
}

// Connects a raw client to a peer's name and writes bytes as a foreign or broken sender would.
void writeRaw(QLocalSocket& client, const QString& name, const QByteArray& bytes) {
    client.connectToServer(name);
    QVERIFY(client.waitForConnected(5000));
    client.write(bytes);
    QVERIFY(client.waitForBytesWritten(5000));
}

class BrokenDevice : public QBuffer {
protected:
    qint64 readData(char* data, qint64 maxSize) override {
        if (pos() < 4)
            return QBuffer::readData(data, qMin<qint64>(maxSize, 4 - pos()));
        setErrorString("device broke");
        return -1;
    }
};

const QString peerId = QStringLiteral("com.velmora.test.peer");

} // namespace

class TestQtLocalPeer : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        QCOMPARE(crc16X25("123456789"), quint16(0x906E));
        qRegisterMetaType<QSharedPointer<QLocalSocket>>();
    }
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    void socketName_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<uint>("userId");
        QTest::addColumn<QString>("expected");
        const auto name = [](const char* prefix, const QByteArray& checksummed, uint userId) {
            return QString::asprintf("qtsingleapp-%s-%x-%x", prefix, crc16X25(checksummed), userId);
        };
        const QByteArray tool = "com.velmora.ostrikconductor.uielementtool";
        QTest::newRow("tool") << QString(tool) << 1000u << name("comvel", tool, 1000);
        QTest::newRow("tool, other user") << QString(tool) << 1001u << name("comvel", tool, 1001);
        QTest::newRow("digits and dots") << "1.2.3" << 0u << name("", "1.2.3", 0);
        QTest::newRow("letters beyond ASCII")
            << QString::fromUtf8("Übermaß-Tool") << 0xffffffffu << name("bermaT", "Übermaß-Tool", 0xffffffff);
        QByteArray small = "id";
        for (int i = 0; crc16X25(small) >= 0x1000; ++i)
            small = "id" + QByteArray::number(i);
        QTest::newRow("checksum below 0x1000") << QString(small) << 0u << name("id", small, 0);
        QTest::newRow("empty id") << QString() << 7u
                                  << name("tstQtL", QCoreApplication::applicationFilePath().toUtf8(), 7);
    }
    void socketName() {
        QFETCH(QString, id);
        QFETCH(uint, userId);
        QTEST(localPeerSocketName(id, userId), "expected");
    }

    void lockFile_data() {
        QTest::addColumn<int>("options");
        QTest::addColumn<bool>("otherHolds");
        QTest::addColumn<bool>("client");
        QTest::newRow("first instance") << 0 << false << false;
        QTest::newRow("another process holds the id") << 0 << true << true;
        QTest::newRow("no lock file") << int(QtLocalPeer::NoLockFile) << false << true;
    }
    void lockFile() {
        QFETCH(int, options);
        QFETCH(bool, otherHolds);
        QFETCH(bool, client);
        const QString id = peerId + QTest::currentDataTag();
        const QString path = lockFilePath(id);
        std::optional<OtherProcessLock> other;
        if (otherHolds)
            QVERIFY(other.emplace(path, F_WRLCK).held);
        {
            QtLocalPeer peer(nullptr, id, QtLocalPeer::Options(options));
            QCOMPARE(peer.isClient(), client);
            QCOMPARE(peer.isClient(), client);
            if (!client)
                QVERIFY(!OtherProcessLock(path, F_RDLCK).held);
        }
        QCOMPARE(QFile::exists(path), !(options & QtLocalPeer::NoLockFile));
    }

    void sendNeedsAnotherInstance_data() {
        QTest::addColumn<bool>("otherHolds");
        QTest::newRow("alone") << false;
        QTest::newRow("another instance holds the id") << true;
    }
    void sendNeedsAnotherInstance() {
        QFETCH(bool, otherHolds);
        const QString id = peerId + QTest::currentDataTag();
        QtLocalPeer listener(nullptr, id, QtLocalPeer::NoLockFile);
        listener.listenForMessages();
        QSignalSpy received(&listener, &QtLocalPeer::messageReceivedAsByteArray);
        std::optional<OtherProcessLock> other;
        if (otherHolds)
            QVERIFY(other.emplace(lockFilePath(id), F_WRLCK).held);
        QtLocalPeer peer(nullptr, id);
        QCOMPARE(sendFromThread([&] { return peer.sendMessage(QByteArray("hello"), 5000); }), otherHolds);
        QCOMPARE(received.count(), otherHolds ? 1 : 0);
        QCOMPARE(peer.isClient(), otherHolds);
    }

    void lockModes_data() {
        QTest::addColumn<QList<int>>("modes");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("otherCanRead");
        QTest::addColumn<bool>("otherCanWrite");
        QTest::newRow("none") << QList<int>{QtLockedFile::NoLock} << 0 << true << true;
        QTest::newRow("read") << QList<int>{QtLockedFile::ReadLock} << 1 << true << false;
        QTest::newRow("write") << QList<int>{QtLockedFile::WriteLock} << 2 << false << false;
        QTest::newRow("write, then read") << QList<int>{2, 1} << 1 << true << false;
        QTest::newRow("read, then write") << QList<int>{1, 2} << 2 << false << false;
        QTest::newRow("write, then unlocked") << QList<int>{2, 0} << 0 << true << true;
    }
    void lockModes() {
        QFETCH(QList<int>, modes);
        QFETCH(int, mode);
        QtLockedFile file(QDir::tempPath() + "/modes");
        QVERIFY(file.open(QIODevice::ReadWrite));
        for (const int next : modes)
            QVERIFY(file.lock(QtLockedFile::LockMode(next), false));
        QCOMPARE(int(file.lockMode()), mode);
        QCOMPARE(file.isLocked(), mode != QtLockedFile::NoLock);
        QTEST(OtherProcessLock(file.fileName(), F_RDLCK).held, "otherCanRead");
        QTEST(OtherProcessLock(file.fileName(), F_WRLCK).held, "otherCanWrite");
    }

    void lockedFileFailures_data() {
        QTest::addColumn<int>("openMode");
        QTest::addColumn<int>("lockMode"); // -1 unlocks
        QTest::addColumn<QStringList>("warnings");
        const QString notOpened = "QtLockedFile::lock(): file is not opened";
        const QString badHandle = QString("QtLockedFile::lock(): fcntl: ") + std::strerror(EBADF);
        QTest::newRow("truncate") << int(QIODevice::ReadWrite | QIODevice::Truncate) << 2
                                  << QStringList{"QtLockedFile::open(): Truncate mode not allowed.",
                                                 notOpened};
        QTest::newRow("lock while closed") << 0 << 1 << QStringList{notOpened};
        QTest::newRow("unlock while closed")
            << 0 << -1 << QStringList{"QtLockedFile::unlock(): file is not opened"};
        QTest::newRow("write lock, read only") << int(QIODevice::ReadOnly) << 2 << QStringList{badHandle};
        QTest::newRow("read lock, write only")
            << int(QIODevice::WriteOnly | QIODevice::Append) << 1 << QStringList{badHandle};
    }
    void lockedFileFailures() {
        QFETCH(int, openMode);
        QFETCH(int, lockMode);
        QFETCH(QStringList, warnings);
        const QString path = QDir::tempPath() + "/failures";
        QFile seed(path);
        QVERIFY(seed.open(QIODevice::WriteOnly) && seed.write("kept") == 4);
        seed.close();
        for (const QString& warning : warnings)
            QTest::ignoreMessage(QtWarningMsg, qPrintable(warning));
        QtLockedFile file(path);
        if (openMode != 0)
            QCOMPARE(file.open(QIODevice::OpenMode(openMode)), !(openMode & QIODevice::Truncate));
        QVERIFY(lockMode < 0 ? !file.unlock() : !file.lock(QtLockedFile::LockMode(lockMode), false));
        QVERIFY(!file.isLocked());
        QVERIFY(seed.open(QIODevice::ReadOnly));
        QCOMPARE(seed.readAll(), QByteArray("kept"));
    }

    void listening_data() {
        QTest::addColumn<int>("listeners");
        QTest::newRow("fresh name") << 1;
        QTest::newRow("name in use") << 2;
        QTest::newRow("name taken twice") << 3;
    }
    void listening() {
        QFETCH(int, listeners);
        std::vector<std::unique_ptr<QtLocalPeer>> peers;
        std::vector<std::unique_ptr<QSignalSpy>> received;
        for (int i = 0; i < listeners; ++i) {
            peers.push_back(std::make_unique<QtLocalPeer>(nullptr, peerId, QtLocalPeer::NoLockFile));
            peers.back()->listenForMessages();
            received.push_back(
                std::make_unique<QSignalSpy>(peers.back().get(), &QtLocalPeer::messageReceivedAsByteArray));
        }
        struct stat status {};
        QCOMPARE(::stat(QFile::encodeName(QDir::tempPath() + '/' + peers.back()->serverName()), &status), 0);
        QVERIFY(S_ISSOCK(status.st_mode));
        QCOMPARE(status.st_mode & (S_IRWXG | S_IRWXO), 0u);

        QLocalSocket client;
        writeRaw(client, peers.back()->serverName(), frame("hi"));
        QVERIFY(received.back()->wait(10000));
        QCOMPARE(received.back()->first().first().toByteArray(), QByteArray("hi"));
        QVERIFY(client.waitForReadyRead(5000));
        QCOMPARE(client.readAll(), QByteArray("ack"));
        for (int i = 0; i + 1 < listeners; ++i)
            QCOMPARE(received[i]->count(), 0);
    }

    void roundTrip_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<int>("options");
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("one byte") << QByteArray("x") << 0;
        QTest::newRow("text") << QByteArray("grüße") << 0;
        QTest::newRow("zero byte inside") << QByteArray("a\0b", 3) << 0;
        QTest::newRow("byte arrays only") << QByteArray("grüße") << int(QtLocalPeer::ByteArrayMessagesOnly);
        QTest::newRow("more than a socket buffer") << QByteArray(1024 * 1024 + 1, 'm') << 0;
        QTest::newRow("longest allowed") << QByteArray(QtLocalPeer::maximumMessageLength, 'l') << 0;
    }
    void roundTrip() {
        QFETCH(QByteArray, message);
        QFETCH(int, options);
        QtLocalPeer listener(nullptr, peerId, QtLocalPeer::NoLockFile | QtLocalPeer::Option(options));
        listener.listenForMessages();
        QSignalSpy bytes(&listener, &QtLocalPeer::messageReceivedAsByteArray);
        QSignalSpy bytesWithSocket(&listener, &QtLocalPeer::messageReceivedAsByteArrayWithSocket);
        QSignalSpy text(&listener, &QtLocalPeer::messageReceived);
        QSignalSpy textWithSocket(&listener, &QtLocalPeer::messageReceivedWithSocket);
        bool answered = false;
        connect(&listener, &QtLocalPeer::messageReceivedAsByteArrayWithSocket, &listener,
                [&](QSharedPointer<QLocalSocket> socket, const QByteArray& received) {
                    answered =
                        listener.sendReturnMessage(socket, "got " + QByteArray::number(received.size()));
                });

        QString answer;
        QVERIFY(sendFromThread([&] {
            QtLocalPeer sender(nullptr, peerId, QtLocalPeer::NoLockFile);
            QLocalSocket socket;
            return sender.sendMessage(socket, message, 30000) &&
                   sender.receiveReturnMessage(socket, answer, 30000);
        }));
        QVERIFY(answered);
        QCOMPARE(answer, "got " + QString::number(message.size()));
        QCOMPARE(bytes.count(), 1);
        QCOMPARE(bytesWithSocket.count(), 1);
        QVERIFY(bytes.first().first().toByteArray() == message);
        const int textSignals = (options & QtLocalPeer::ByteArrayMessagesOnly) ? 0 : 1;
        QCOMPARE(text.count(), textSignals);
        QCOMPARE(textWithSocket.count(), textSignals);
        if (textSignals)
            QCOMPARE(text.first().first().toString(), QString::fromUtf8(message));
    }

    void sendToRawListener_data() {
        QTest::addColumn<bool>("listening");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("sent");
        QTest::addColumn<QStringList>("logs");
        QTest::newRow("empty message") << true << QByteArray("ack") << QByteArray() << true << QStringList();
        QTest::newRow("looks like the ack")
            << true << QByteArray("ack") << QByteArray("ack") << true << QStringList();
        QTest::newRow("300 bytes") << true << QByteArray("ack") << QByteArray(300, 'm') << true
                                   << QStringList();
        QTest::newRow("no answer") << true << QByteArray() << QByteArray("x") << false << QStringList();
        const QString badAnswer = "QtLocalPeer error: client failed to read response";
        QTest::newRow("other answer")
            << true << QByteArray("nak") << QByteArray("x") << false << QStringList{badAnswer};
        QTest::newRow("short answer")
            << true << QByteArray("ac") << QByteArray("x") << false << QStringList{badAnswer};
        QTest::newRow("no listener") << false << QByteArray() << QByteArray("x") << false
                                     << QStringList{
                                            "QtLocalPeer error: client failed to connect to running instance",
                                            "QtLocalPeer error: client failed to send message"};
    }
    void sendToRawListener() {
        QFETCH(bool, listening);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, message);
        QFETCH(QStringList, logs);
        QtLocalPeer peer(nullptr, peerId, QtLocalPeer::NoLockFile);
        const QByteArray wire = frame(message);
        QByteArray received;
        QLocalServer server;
        connect(&server, &QLocalServer::newConnection, &server, [&] {
            const std::unique_ptr<QLocalSocket> socket(server.nextPendingConnection());
            while (received.size() < wire.size() && socket->waitForReadyRead(5000))
                received += socket->readAll();
            socket->write(reply);
            socket->waitForBytesWritten(5000);
        });
        QVERIFY(!listening || server.listen(peer.serverName()));
        for (const QString& log : logs)
            QTest::ignoreMessage(QtDebugMsg, qPrintable(log));
        QTEST(sendFromThread([&] { return peer.sendMessage(message, 5000); }), "sent");
        QCOMPARE(received, listening ? wire : QByteArray());
    }

    void receiveReturnMessage_data() {
        QTest::addColumn<int>("options");
        QTest::addColumn<QByteArray>("wire");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("message");
        const int noLock = QtLocalPeer::NoLockFile;
        QTest::newRow("text") << noLock << frame("grüß") << true << QString::fromUtf8("grüß");
        QTest::newRow("cut at zero byte") << noLock << frame(QByteArray("a\0b", 3)) << true << "a";
        QTest::newRow("empty") << noLock << frame("") << true << "";
        QTest::newRow("nothing comes") << noLock << QByteArray() << false << "unchanged";
        QTest::newRow("sole instance") << 0 << frame("pong") << false << "unchanged";
    }
    void receiveReturnMessage() {
        QFETCH(int, options);
        QFETCH(QByteArray, wire);
        QFETCH(bool, ok);
        QtLocalPeer peer(nullptr, peerId, QtLocalPeer::Options(options));
        QLocalServer server;
        QVERIFY(server.listen(peer.serverName()));
        QLocalSocket client;
        QVERIFY(peer.connectToServer(client, 10000));
        QVERIFY(server.waitForNewConnection(5000));
        const std::unique_ptr<QLocalSocket> accepted(server.nextPendingConnection());
        accepted->write(wire);
        QVERIFY(wire.isEmpty() || accepted->waitForBytesWritten(5000));
        if (wire.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, "QtLocalPeer error: Message reception timed out");
        QString message = "unchanged";
        QCOMPARE(peer.receiveReturnMessage(client, message, 200), ok);
        QTEST(message, "message");
    }

    void refusedFrames_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("senderCloses");
        QTest::addColumn<QString>("log");
        const QString tooLong =
            "QtLocalPeer error: Message length over the limit, length and limit: %1 67108864";
        const QString incomplete =
            "QtLocalPeer error: Message reception incomplete, bytes received and expected: 5 10";
        QTest::newRow("one over the limit") << frame(QtLocalPeer::maximumMessageLength + 1, "abc") << false
                                            << tooLong.arg(QtLocalPeer::maximumMessageLength + 1);
        QTest::newRow("largest length") << frame(0xffffffff, "abc") << false << tooLong.arg(0xffffffffu);
        QTest::newRow("sender stalls mid-frame") << frame(10, "12345") << false << incomplete;
        QTest::newRow("sender closes mid-frame") << frame(10, "12345") << true << incomplete;
        QTest::newRow("sender closes before the length")
            << QByteArray("\0\0", 2) << true
            << "QtLocalPeer error: Message reception failed, connection closed before the length arrived";
    }
    void refusedFrames() {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, senderCloses);
        QFETCH(QString, log);
        QtLocalPeer listener(nullptr, peerId, QtLocalPeer::NoLockFile);
        listener.listenForMessages();
        QSignalSpy received(&listener, &QtLocalPeer::messageReceivedAsByteArray);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(log));
        QLocalSocket client;
        writeRaw(client, listener.serverName(), bytes);
        if (senderCloses)
            client.disconnectFromServer();
        // Connections are served in order: once the next one is through, the bad one is done with.
        QLocalSocket next;
        writeRaw(next, listener.serverName(), frame("next"));
        QVERIFY(received.wait(20000));
        QCOMPARE(received.count(), 1);
        QCOMPARE(received.first().first().toByteArray(), QByteArray("next"));
        QTRY_COMPARE(client.state(), QLocalSocket::UnconnectedState);
        QCOMPARE(client.readAll(), QByteArray());
    }

    void readErrorIsReported() {
        BrokenDevice device;
        device.setData(frame(3, "abc"));
        QVERIFY(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
        QTest::ignoreMessage(QtDebugMsg, "QtLocalPeer error: Message reception failed device broke");
        QByteArray message = "stale";
        QVERIFY(!readFrame(device, 1000, message));
        QVERIFY(message.isEmpty());
    }
};

UIET_TEST_MAIN(TestQtLocalPeer)
#include "tst_QtLocalPeer.moc"
