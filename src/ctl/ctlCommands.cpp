#include "ctlCommands.h"

#include "QtLocalPeer.h"
#include "StateReport.h"
#include "toolIds.h"

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>

#include <cstdio>

namespace {

constexpr int defaultSendTimeoutMilliseconds = 5000;

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err() {
    static QTextStream stream(stderr);
    return stream;
}

int usage() {
    err() << "usage: ui-element-ctl reports\n"
             "       ui-element-ctl send FILE [TIMEOUT_MS]\n"
             "\n"
             "  reports   listen for the tool's state reports and print each as '<id> found' or\n"
             "            '<id> not found', one per line\n"
             "  send      send the bytes of FILE (a settings file holding a command) to the tool\n"
             "            and wait for its \"ack\" (default time-out "
          << defaultSendTimeoutMilliseconds << " ms)\n";
    err().flush();
    return ctlExitUsage;
}

} // namespace

QString stateReportLine(quint64 id, bool found) {
    return QStringLiteral("%1 %2").arg(id).arg(found ? QStringLiteral("found") : QStringLiteral("not found"));
}

int runReports() {
    QtLocalPeer peer(nullptr, QString::fromLatin1(toolReportPeerId), QtLocalPeer::ByteArrayMessagesOnly);
    // The lock tells whether somebody already takes the reports; two listeners would steal the
    // socket name from each other.
    if (peer.isClient()) {
        err() << "ui-element-ctl: another process is already listening for reports\n";
        err().flush();
        return ctlExitFailure;
    }
    QObject::connect(&peer, &QtLocalPeer::messageReceivedAsByteArray, &peer, [](const QByteArray& message) {
        quint64 id = 0;
        bool found = false;
        if (parseStateReport(message, id, found)) {
            out() << stateReportLine(id, found) << '\n';
            out().flush();
        } else {
            err() << "ui-element-ctl: ignoring a message of " << message.size()
                  << " bytes that is not a state report\n";
            err().flush();
        }
    });
    peer.listenForMessages();
    err() << "ui-element-ctl: listening for reports\n";
    err().flush();
    return QCoreApplication::exec() == 0 ? ctlExitSuccess : ctlExitFailure;
}

int runSend(const QString& filePath, int timeoutMilliseconds) {
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly)) {
        err() << "ui-element-ctl: cannot read " << filePath << ": " << file.errorString() << '\n';
        err().flush();
        return ctlExitUsage;
    }
    const QByteArray message = file.readAll();
    if (message.size() > qsizetype(QtLocalPeer::maximumMessageLength)) {
        err() << "ui-element-ctl: " << filePath << " holds " << message.size()
              << " bytes, more than a command may have (" << QtLocalPeer::maximumMessageLength << ")\n";
        err().flush();
        return ctlExitUsage;
    }
    QtLocalPeer peer(nullptr, QString::fromLatin1(toolCommandPeerId),
                     QtLocalPeer::NoLockFile | QtLocalPeer::ByteArrayMessagesOnly);
    if (!peer.sendMessage(message, timeoutMilliseconds)) {
        err() << "ui-element-ctl: no ack from the UI element tool (is it running?)\n";
        err().flush();
        return ctlExitFailure;
    }
    out() << "ack\n";
    out().flush();
    return ctlExitSuccess;
}

int runCtl(const QStringList& arguments) {
    const QString verb = arguments.value(0);
    if (verb == QLatin1String("reports") && arguments.size() == 1)
        return runReports();
    if (verb == QLatin1String("send") && (arguments.size() == 2 || arguments.size() == 3)) {
        int timeout = defaultSendTimeoutMilliseconds;
        if (arguments.size() == 3) {
            bool ok = false;
            timeout = arguments.at(2).toInt(&ok);
            if (!ok || timeout <= 0) {
                err() << "ui-element-ctl: the time-out must be a positive number of milliseconds, not '"
                      << arguments.at(2) << "'\n";
                return usage();
            }
        }
        return runSend(arguments.at(1), timeout);
    }
    if (!verb.isEmpty() && verb != QLatin1String("help") && verb != QLatin1String("--help"))
        err() << "ui-element-ctl: unknown or incomplete command '" << arguments.join(QLatin1Char(' '))
              << "'\n";
    return usage();
}
