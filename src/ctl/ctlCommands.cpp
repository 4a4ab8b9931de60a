#include "ctlCommands.h"

#include "CFTypeSmartRef.h"
#include "QtLocalPeer.h"
#include "StateReport.h"
#include "UIElement.h"
#include "ZRUIElementToolData.h"
#include "appkit/NSWorkspace.h"
#include "dataObjectSerialization.h"
#include "elementTree.h"
#include "osxUIElementUtils.h"
#include "toolIds.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QRegularExpression>
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
             "       ui-element-ctl watch ID FILE [TIMEOUT_MS]\n"
             "       ui-element-ctl stop ID [TIMEOUT_MS]\n"
             "       ui-element-ctl tree [--desktop FILE] [PID|BUNDLE_ID]\n"
             "       ui-element-ctl at [--desktop FILE] X,Y\n"
             "\n"
             "  reports   listen for the tool's state reports and print each as '<id> found' or\n"
             "            '<id> not found', one per line\n"
             "  send      send the bytes of FILE (a settings file holding a command) to the tool\n"
             "  watch     tell the tool to watch the UI element collection saved in FILE under ID\n"
             "  stop      tell the tool to stop watching ID\n"
             "  tree      print the element tree of the running applications (or of one), one element\n"
             "            per line: role, title, frame; --desktop reads a virtual desktop file\n"
             "  at        print the element at a screen point and its ancestors, the application first\n"
             "\n"
             "send, watch and stop wait for the tool's \"ack\" (default time-out "
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

namespace {

int failWithUsageError(const QString& text) {
    err() << "ui-element-ctl: " << text << '\n';
    err().flush();
    return ctlExitUsage;
}

bool parseWatchId(const QString& text, quint64& id) {
    bool ok = false;
    id = text.toULongLong(&ok);
    return ok;
}

int failWithBadId(const QString& text) {
    return failWithUsageError(
        QStringLiteral("the id must be a whole number from 0 to 18446744073709551615, not '%1'").arg(text));
}

int sendCommand(const QByteArray& message, int timeoutMilliseconds) {
    if (message.size() > qsizetype(QtLocalPeer::maximumMessageLength))
        return failWithUsageError(
            QStringLiteral("the command holds %1 bytes, more than a command may have (%2)")
                .arg(message.size())
                .arg(QtLocalPeer::maximumMessageLength));
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

bool readFile(const QString& filePath, QByteArray& content, QString& error) {
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read %1: %2").arg(filePath, file.errorString());
        return false;
    }
    content = file.readAll();
    return true;
}

// What the tool will make of the message: the collection must come back with every element, or
// the tool would drop the command, or watch less than the file holds, after its "ack".
bool commandCarriesCollection(const QByteArray& message, qsizetype elementCount) {
    ZRUIElementToolData received;
    deserializeObjectFromByteArray(&received, message);
    return received.elements() && received.elements()->elements().size() == elementCount;
}

} // namespace

int runSend(const QString& filePath, int timeoutMilliseconds) {
    QByteArray message;
    QString error;
    if (!readFile(filePath, message, error))
        return failWithUsageError(error);
    return sendCommand(message, timeoutMilliseconds);
}

int runWatch(const QString& id, const QString& collectionFilePath, int timeoutMilliseconds) {
    quint64 watchId = 0;
    if (!parseWatchId(id, watchId))
        return failWithBadId(id);
    QByteArray saved;
    QString error;
    if (!readFile(collectionFilePath, saved, error))
        return failWithUsageError(error);

    ZRUIElementToolData command;
    command.setCommand(toolCommandStartWatching);
    command.setId(watchId);
    // A child of the command, as the tool's loader makes it, so that both die together.
    auto* collection = new UIElementCollection(&command);
    deserializeObjectFromByteArray(collection, saved);
    const qsizetype elementCount = collection->elements().size();
    if (elementCount == 0)
        return failWithUsageError(
            QStringLiteral("%1 holds no UI element collection").arg(collectionFilePath));
    command.setElements(collection);

    const QByteArray message = serializeObjectToByteArray(&command);
    if (!commandCarriesCollection(message, elementCount))
        return failWithUsageError(
            QStringLiteral("the UI element collection in %1 does not come through serialization whole "
                           "(elements that store nothing are lost), so the tool would not watch it as saved")
                .arg(collectionFilePath));
    return sendCommand(message, timeoutMilliseconds);
}

int runStop(const QString& id, int timeoutMilliseconds) {
    quint64 watchId = 0;
    if (!parseWatchId(id, watchId))
        return failWithBadId(id);
    ZRUIElementToolData command;
    command.setCommand(toolCommandStopWatching);
    command.setId(watchId);
    return sendCommand(serializeObjectToByteArray(&command), timeoutMilliseconds);
}

// Reads the desktop from the file instead of the live one; false when there is no such file.
bool useDesktopFile(const QString& desktopFile) {
    if (desktopFile.isEmpty())
        return true;
    if (!QFile::exists(desktopFile)) {
        err() << "ui-element-ctl: no desktop file " << desktopFile << '\n';
        err().flush();
        return false;
    }
    // Chosen once per process, at the first platform call: this comes before any.
    qputenv("UIET_ACCESSIBILITY", "virtual:" + QFile::encodeName(desktopFile));
    return true;
}

int runTree(const QString& desktopFile, const QString& application) {
    if (!useDesktopFile(desktopFile))
        return ctlExitUsage;
    bool isPid = false;
    const pid_t pid = application.toInt(&isPid);
    int printed = 0;
    for (NSRunningApplication* running : NSWorkspace::sharedWorkspace()->runningApplications()) {
        if (!application.isEmpty() &&
            (isPid ? running->processIdentifier() != pid : running->bundleIdentifier() != application))
            continue;
        out() << running->localizedName() << " (" << running->bundleIdentifier() << ", pid "
              << running->processIdentifier() << ")\n";
        const CFTypeSmartRef<AXUIElementRef> element(
            AXUIElementCreateApplication(running->processIdentifier()));
        for (const QString& line : elementTreeLines(element, 1))
            out() << line << '\n';
        ++printed;
    }
    out().flush();
    if (printed == 0) {
        err() << "ui-element-ctl: no running application"
              << (application.isEmpty() ? QString() : QStringLiteral(" ") + application) << '\n';
        err().flush();
        return ctlExitFailure;
    }
    return ctlExitSuccess;
}

int runAt(const QString& desktopFile, const QString& pointText) {
    static const QRegularExpression pointPattern(
        QStringLiteral("^(-?\\d+(?:\\.\\d+)?),(-?\\d+(?:\\.\\d+)?)$"));
    const QRegularExpressionMatch point = pointPattern.match(pointText);
    if (!point.hasMatch()) {
        err() << "ui-element-ctl: the point must be X,Y in screen coordinates, not '" << pointText << "'\n";
        return usage();
    }
    if (!useDesktopFile(desktopFile))
        return ctlExitUsage;
    const CFTypeSmartRef<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
    CFTypeSmartRef<AXUIElementRef> hit;
    const AXError error = AXUIElementCopyElementAtPosition(systemWide, point.captured(1).toFloat(),
                                                           point.captured(2).toFloat(), hit.out());
    if (error != kAXErrorSuccess || hit.isNull()) {
        err() << "ui-element-ctl: no element at " << pointText << " (" << getAXUIErrorString(error) << ")\n";
        err().flush();
        return ctlExitFailure;
    }
    for (const QString& line : elementAncestryLines(hit))
        out() << line << '\n';
    out().flush();
    return ctlExitSuccess;
}

int runCtl(const QStringList& arguments) {
    const QString verb = arguments.value(0);
    if (verb == QLatin1String("reports") && arguments.size() == 1)
        return runReports();
    if (verb == QLatin1String("tree") || verb == QLatin1String("at")) {
        QStringList operands = arguments.mid(1);
        QString desktopFile;
        if (operands.value(0) == QLatin1String("--desktop") && operands.size() >= 2) {
            desktopFile = operands.at(1);
            operands = operands.mid(2);
        }
        if (verb == QLatin1String("at") && operands.size() == 1)
            return runAt(desktopFile, operands.at(0));
        if (verb == QLatin1String("tree") && operands.size() <= 1 &&
            !operands.value(0).startsWith(QLatin1Char('-')))
            return runTree(desktopFile, operands.value(0));
    }
    // The verbs that send a command: their operands, then an optional time-out.
    const QHash<QString, qsizetype> operandCounts{
        {QStringLiteral("send"), 1}, {QStringLiteral("watch"), 2}, {QStringLiteral("stop"), 1}};
    const qsizetype operands = operandCounts.value(verb, -1);
    const qsizetype given = arguments.size() - 1;
    if (operands >= 0 && (given == operands || given == operands + 1)) {
        int timeout = defaultSendTimeoutMilliseconds;
        if (given > operands) {
            bool ok = false;
            timeout = arguments.last().toInt(&ok);
            if (!ok || timeout <= 0) {
                err() << "ui-element-ctl: the time-out must be a positive number of milliseconds, not '"
                      << arguments.last() << "'\n";
                return usage();
            }
        }
        if (verb == QLatin1String("send"))
            return runSend(arguments.at(1), timeout);
        if (verb == QLatin1String("watch"))
            return runWatch(arguments.at(1), arguments.at(2), timeout);
        return runStop(arguments.at(1), timeout);
    }
    if (!verb.isEmpty() && verb != QLatin1String("help") && verb != QLatin1String("--help"))
        err() << "ui-element-ctl: unknown or incomplete command '" << arguments.join(QLatin1Char(' '))
              << "'\n";
    return usage();
}
