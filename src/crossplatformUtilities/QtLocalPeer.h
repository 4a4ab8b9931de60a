#pragma once

// A named, per-user request and acknowledge channel between two processes of one machine.
// A frame is a 4-byte big-endian length followed by that many raw bytes; the listener answers
// every frame it received whole with the three raw bytes "ack".

#include "QtLockedFile.h"

#include <QByteArray>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class QLocalServer;
class QLocalSocket;
class QIODevice;

class QtLocalPeer : public QObject {
    Q_OBJECT
public:
    enum Option { NoLockFile = 1, ByteArrayMessagesOnly = 2 };
    Q_DECLARE_FLAGS(Options, Option)

    // Frames longer than this are refused before anything is allocated for them.
    static constexpr quint32 maximumMessageLength = 64u * 1024u * 1024u;

    QtLocalPeer(QObject* parent = nullptr, const QString& id = QString(), QFlags<Option> options = {});

    bool isClient();
    void listenForMessages();
    bool connectToServer(QLocalSocket& socket, int timeout);

    bool sendMessage(QLocalSocket& socket, const QByteArray& message, int timeout);
    bool sendMessage(const QByteArray& message, int timeout);
    bool sendMessage(QLocalSocket& socket, const QString& message, int timeout);
    bool sendMessage(const QString& message, int timeout);

    bool receiveReturnMessage(QLocalSocket& socket, QString& message, int timeout);
    bool sendReturnMessage(QSharedPointer<QLocalSocket> socket, const QByteArray& message);

    bool readMessage(QLocalSocket* socket, int timeout, QByteArray& message);

    QString applicationId() const { return id; }
    QString serverName() const { return socketName; }

    static const char* ack;

Q_SIGNALS:
    void messageReceivedAsByteArray(QByteArray message);
    void messageReceivedAsByteArrayWithSocket(QSharedPointer<QLocalSocket> socket, QByteArray message);
    void messageReceived(QString message);
    void messageReceivedWithSocket(QSharedPointer<QLocalSocket> socket, QString message);

public Q_SLOTS:
    void receiveConnection();

private:
    QString id;
    QString socketName;
    QLocalServer* server;
    QtLP_Private::QtLockedFile lockFile;
    bool clientOnly;
    bool byteArrayOnly;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(QtLocalPeer::Options)

// The socket name that both ends of a channel derive from the shared id for the given user.
QString localPeerSocketName(const QString& id, uint userId);

// Reads one frame from any device; readMessage uses it on its socket, the fuzz target on a buffer.
bool readFrame(QIODevice& device, int timeout, QByteArray& message);
