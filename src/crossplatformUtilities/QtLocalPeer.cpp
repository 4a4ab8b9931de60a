#include "QtLocalPeer.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QThread>

#include <unistd.h>

using QtLP_Private::QtLockedFile;

const char* QtLocalPeer::ack = "ack";

namespace {

// Both ends of a channel must agree on the id; a peer without one stands for its program.
QString idOrApplicationPath(const QString& id) {
    return id.isEmpty() ? QCoreApplication::applicationFilePath() : id;
}

// writeBytes, not operator<<, so that an empty message is a length of 0 and never the null marker.
void writeFrame(QIODevice& device, const QByteArray& message) {
    QDataStream(&device).writeBytes(message.constData(), uint(message.size()));
}

// Reads into the message as it is sized, and gives up when a further piece doesn't come.
bool readFrameBody(QIODevice& device, QByteArray& message) {
    qsizetype received = 0;
    for (;;) {
        const qint64 count = device.read(message.data() + received, message.size() - received);
        if (count < 0) {
            qDebug("QtLocalPeer error: Message reception failed %s",
                   device.errorString().toLatin1().constData());
            return false;
        }
        received += count;
        if (received == message.size())
            return true;
        // A slow sender gets a fixed time for each further piece, however long the whole frame is.
        if (!device.waitForReadyRead(2000)) {
            qDebug() << "QtLocalPeer error: Message reception incomplete, bytes received and expected:"
                     << received << message.size();
            return false;
        }
    }
}

bool connectionClosed(const QIODevice& device) {
    const auto* socket = qobject_cast<const QLocalSocket*>(&device);
    return socket && socket->state() != QLocalSocket::ConnectedState;
}

} // namespace

QString localPeerSocketName(const QString& id, uint userId) {
    const QString fullId = idOrApplicationPath(id);
    QString prefix = id.isEmpty() ? fullId.section(QLatin1Char('/'), -1) : fullId;
    prefix.remove(QRegularExpression(QStringLiteral("[^a-zA-Z]")));
    prefix.truncate(6);
    const quint16 checksum = qChecksum(fullId.toUtf8(), Qt::ChecksumIso3309);
    // The user id keeps the channels of two users of one machine apart.
    return QStringLiteral("qtsingleapp-") + prefix + QLatin1Char('-') + QString::number(checksum, 16) +
           QLatin1Char('-') + QString::number(userId, 16);
}

bool readFrame(QIODevice& device, int timeout, QByteArray& message) {
    message.clear();
    QElapsedTimer timer;
    timer.start();
    while (device.bytesAvailable() < qint64(sizeof(quint32))) {
        // A closed connection answers every wait at once: waiting out the time-out would only
        // spin the processor and hold the event loop for nothing.
        if (!device.waitForReadyRead(timeout) && connectionClosed(device)) {
            qDebug(
                "QtLocalPeer error: Message reception failed, connection closed before the length arrived");
            return false;
        }
        if (timer.elapsed() > timeout) {
            qDebug("QtLocalPeer error: Message reception timed out");
            return false;
        }
    }

    quint32 length = 0;
    QDataStream(&device) >> length;
    // The length comes from the other process: refuse it before it decides what is allocated.
    if (length > QtLocalPeer::maximumMessageLength) {
        qDebug() << "QtLocalPeer error: Message length over the limit, length and limit:" << length
                 << QtLocalPeer::maximumMessageLength;
        return false;
    }
    message.resize(qsizetype(length));
    // Half a message must never pass for a whole one.
    if (!readFrameBody(device, message)) {
        message.clear();
        return false;
    }
    return true;
}

QtLocalPeer::QtLocalPeer(QObject* parent, const QString& appId, QFlags<Option> options)
    : QObject(parent), id(idOrApplicationPath(appId)), socketName(localPeerSocketName(appId, ::getuid())),
      server(new QLocalServer(this)), clientOnly(options.testFlag(NoLockFile)),
      byteArrayOnly(options.testFlag(ByteArrayMessagesOnly)) {
    if (clientOnly)
        return;
    // The file stays behind at exit on purpose: only its lock tells whether the id is taken.
    lockFile.setFileName(QDir(QDir::tempPath()).absolutePath() + QLatin1Char('/') + socketName +
                         QLatin1String("-lockfile"));
    lockFile.open(QIODevice::ReadWrite);
}

bool QtLocalPeer::isClient() {
    if (clientOnly)
        return true;
    if (lockFile.isLocked())
        return false;
    return !lockFile.lock(QtLockedFile::WriteLock, false);
}

void QtLocalPeer::listenForMessages() {
    // Only the owning user may connect; the name alone is no secret.
    server->setSocketOptions(QLocalServer::UserAccessOption);
    bool listening = server->listen(socketName);
    if (!listening && server->serverError() == QAbstractSocket::AddressInUseError) {
        // A name in use is taken over, whether its owner is still alive or not: a restarted
        // listener must never be locked out by the socket of one that died.
        QFile::remove(QDir::cleanPath(QDir::tempPath()) + QLatin1Char('/') + socketName);
        listening = server->listen(socketName);
    }
    if (!listening)
        qWarning("QtSingleCoreApplication: listen on local socket failed, %s",
                 qPrintable(server->errorString()));
    connect(server, &QLocalServer::newConnection, this, &QtLocalPeer::receiveConnection,
            Qt::UniqueConnection);
}

bool QtLocalPeer::connectToServer(QLocalSocket& socket, int timeout) {
    if (socket.state() == QLocalSocket::ConnectedState)
        return true;
    for (int attempt = 0; attempt < 2; ++attempt) {
        // A listener that is just starting gets a moment to come up.
        if (attempt > 0)
            QThread::msleep(250);
        socket.connectToServer(socketName, QIODevice::ReadWrite);
        if (socket.waitForConnected(timeout / 2))
            return true;
    }
    qDebug("QtLocalPeer error: client failed to connect to running instance");
    return false;
}

bool QtLocalPeer::sendMessage(QLocalSocket& socket, const QByteArray& message, int timeout) {
    // Without another instance holding the id nobody is there to receive, and this peer keeps the id.
    if (!isClient())
        return false;
    // Without a connection there is nothing to write to: that ends as a write that never finished.
    const bool connected = connectToServer(socket, timeout / 2);
    if (connected)
        writeFrame(socket, message);
    if (!connected || !socket.waitForBytesWritten(timeout)) {
        qDebug("QtLocalPeer error: client failed to send message");
        return false;
    }
    if (!socket.waitForReadyRead(timeout))
        return false;
    if (socket.read(qstrlen(ack)) == ack)
        return true;
    qDebug("QtLocalPeer error: client failed to read response");
    return false;
}

bool QtLocalPeer::sendMessage(const QByteArray& message, int timeout) {
    QLocalSocket socket;
    return sendMessage(socket, message, timeout);
}

bool QtLocalPeer::sendMessage(QLocalSocket& socket, const QString& message, int timeout) {
    return sendMessage(socket, message.toUtf8(), timeout);
}

bool QtLocalPeer::sendMessage(const QString& message, int timeout) {
    return sendMessage(message.toUtf8(), timeout);
}

bool QtLocalPeer::receiveReturnMessage(QLocalSocket& socket, QString& message, int timeout) {
    if (!isClient())
        return false;
    QByteArray buffer;
    if (!readMessage(&socket, timeout, buffer))
        return false;
    // Answers are C strings to their readers: the text ends at the first zero byte.
    message = QString::fromUtf8(buffer.constData(), qsizetype(qstrlen(buffer.constData())));
    return true;
}

bool QtLocalPeer::sendReturnMessage(QSharedPointer<QLocalSocket> socket, const QByteArray& message) {
    if (!socket)
        return false;
    writeFrame(*socket, message);
    qint64 pending = 0;
    while ((pending = socket->bytesToWrite()) > 0 && socket->waitForBytesWritten(1000)) {
    }
    return pending < 1;
}

bool QtLocalPeer::readMessage(QLocalSocket* socket, int timeout, QByteArray& message) {
    return socket && readFrame(*socket, timeout, message);
}

void QtLocalPeer::receiveConnection() {
    QLocalSocket* pending = server->nextPendingConnection();
    if (!pending)
        return;
    // Out of the server's children, so that a socket kept by a slot is never deleted twice.
    pending->setParent(nullptr);
    const QSharedPointer<QLocalSocket> socket(pending);

    QByteArray message;
    if (!readMessage(socket.data(), 30000, message))
        return;
    // "ack" says received, not accepted: it goes out before anybody has looked at the message.
    socket->write(ack, qstrlen(ack));
    socket->waitForBytesWritten(1000);

    Q_EMIT messageReceivedAsByteArray(message);
    Q_EMIT messageReceivedAsByteArrayWithSocket(socket, message);
    if (byteArrayOnly)
        return;
    const QString text = QString::fromUtf8(message);
    Q_EMIT messageReceived(text);
    Q_EMIT messageReceivedWithSocket(socket, text);
}
