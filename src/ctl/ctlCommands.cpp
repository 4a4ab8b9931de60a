#include "ctlCommands.h"

#include "CFTypeSmartRef.h"
#include "QtLocalPeer.h"
#include "StateReport.h"
#include "UIElement.h"
#include "ZRUIElementToolData.h"
#include "appkit/NSWorkspace.h"
#include "applicationCommands.h"
#include "captureCommands.h"
#include "dataObjectSerialization.h"
#include "elementTree.h"
#include "inspectorCommands.h"
#include "osxUIElementUtils.h"
#include "resolveCommands.h"
#include "showCommands.h"
#include "toolIds.h"

#include <QCoreApplication>
#include <QHash>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTextStream>

#include <cstdio>

namespace {

constexpr int defaultSendTimeoutMilliseconds = 5000;

int usage() {
    ctlErr() << "usage: ui-element-ctl reports\n"
                "       ui-element-ctl send FILE [TIMEOUT_MS]\n"
                "       ui-element-ctl watch ID FILE [TIMEOUT_MS]\n"
                "       ui-element-ctl stop ID [TIMEOUT_MS]\n"
                "       ui-element-ctl tree [--desktop FILE] [--json] [PID|BUNDLE_ID]\n"
                "       ui-element-ctl at [--desktop FILE] [--json] [--plain] X,Y\n"
                "       ui-element-ctl window|press [--desktop FILE] [--json] X,Y\n"
                "       ui-element-ctl raise|minimize|zoom|close [--desktop FILE] [--json] X,Y\n"
                "       ui-element-ctl focused|screens|apps [--desktop FILE] [--json]\n"
                "       ui-element-ctl app-events [--desktop FILE] [--json] SECONDS\n"
                "       ui-element-ctl capture [--desktop FILE] [--json] X,Y FILE\n"
                "       ui-element-ctl resolve [--desktop FILE] [--json] [--hint X,Y] [--level N]\n"
                "                              [--translations] [--repeat N] [--explain] FILE\n"
                "       ui-element-ctl show [--desktop FILE] [--json] FILE\n"
                "       ui-element-ctl edit [--desktop FILE] [--json] FILE [--alternative K] [--level N]\n"
                "                           EDIT...\n"
                "\n"
                "  reports   listen for the tool's state reports and print each as '<id> found' or\n"
                "            '<id> not found', one per line\n"
                "  send      send the bytes of FILE (a settings file holding a command) to the tool\n"
                "  watch     tell the tool to watch the UI element collection saved in FILE under ID\n"
                "  stop      tell the tool to stop watching ID\n"
                "  tree      print the element tree of the running applications (or of one), one element\n"
                "            per line: role, title, frame; --desktop reads a virtual desktop file\n"
                "  at        print the element at a screen point and its ancestors, the application first,\n"
                "            and how it was found; --plain takes the platform's answer alone\n"
                "  window    print the window at a screen point: title, frame, window id, application\n"
                "  focused   print the focused element, its window and its application\n"
                "  screens   print the screens (id, name, frame, scale, physical size), the menu bar's\n"
                "            height and the zoom\n"
                "  apps      print the running applications, the frontmost first: pid, bundle id, name,\n"
                "            executable\n"
                "  app-events print, for SECONDS, each application that comes to the front (front),\n"
                "            leaves it (not front), starts (launched) or quits (quit)\n"
                "  press     press the element at a screen point and print the AXError\n"
                "  raise, minimize, zoom, close\n"
                "            act on the window at a screen point as its title bar would\n"
                "  capture   describe the element at a screen point as a UI element collection of one\n"
                "            element saved to FILE, ready for watch, and print its levels, the\n"
                "            application first\n"
                "  resolve   resolve the UI element collection saved in FILE once, as the tool does,\n"
                "            and print the return code, the element found and its ancestors up to its\n"
                "            application, the time taken and the platform calls made; --hint gives the\n"
                "            position that rescues a degenerate description, --level N resolves level N\n"
                "            of the first alternative's chain, --translations matches through the\n"
                "            application's translations, --repeat N resolves N times (min, median and\n"
                "            max time), --explain first says at which level and why the walk ended, and\n"
                "            last traces it level by level: the candidates compared, which passed and\n"
                "            by which stage, and where each descent failed\n"
                "  show      print the UI element collection saved in FILE as a person reads it: per\n"
                "            alternative its hierarchy, and per level its description, its attribute\n"
                "            values as 'Display name [key] = value', its defining attributes, its matching\n"
                "            method and its options\n"
                "  edit      edit level N of alternative K (default 0) in FILE and write FILE back whole,\n"
                "            then print the new hierarchy; the EDITs, applied in order, are\n"
                "            --set NAME=VALUE, --defining A,B,... (empty: none), --matching\n"
                "            builtin|strict|custom (the whole chain) and --option KEY=VALUE; a VALUE\n"
                "            that parses as JSON is a number, true/false, a list of alternatives, a\n"
                "            rect {\"x\",\"y\",\"width\",\"height\"} or a quoted text; any other is text\n"
                "--desktop reads a virtual desktop file instead of the live desktop; --json prints one JSON\n"
                "object per answer\n"
                "\n"
                "send, watch and stop wait for the tool's \"ack\" (default time-out "
             << defaultSendTimeoutMilliseconds << " ms)\n";
    ctlErr().flush();
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
        ctlErr() << "ui-element-ctl: another process is already listening for reports\n";
        ctlErr().flush();
        return ctlExitFailure;
    }
    QObject::connect(&peer, &QtLocalPeer::messageReceivedAsByteArray, &peer, [](const QByteArray& message) {
        quint64 id = 0;
        bool found = false;
        if (parseStateReport(message, id, found)) {
            ctlOut() << stateReportLine(id, found) << '\n';
            ctlOut().flush();
        } else {
            ctlErr() << "ui-element-ctl: ignoring a message of " << message.size()
                     << " bytes that is not a state report\n";
            ctlErr().flush();
        }
    });
    peer.listenForMessages();
    ctlErr() << "ui-element-ctl: listening for reports\n";
    ctlErr().flush();
    return QCoreApplication::exec() == 0 ? ctlExitSuccess : ctlExitFailure;
}

namespace {

int failWithUsageError(const QString& text) {
    return ctlFail(ctlExitUsage, text);
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
        ctlErr() << "ui-element-ctl: no ack from the UI element tool (is it running?)\n";
        ctlErr().flush();
        return ctlExitFailure;
    }
    ctlOut() << "ack\n";
    ctlOut().flush();
    return ctlExitSuccess;
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

int runTree(const InspectorOptions& options, const QString& application) {
    if (!useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    bool isPid = false;
    const pid_t pid = application.toInt(&isPid);
    int printed = 0;
    for (NSRunningApplication* running : NSWorkspace::sharedWorkspace()->runningApplications()) {
        if (!application.isEmpty() &&
            (isPid ? running->processIdentifier() != pid : running->bundleIdentifier() != application))
            continue;
        const CFTypeSmartRef<AXUIElementRef> element(
            AXUIElementCreateApplication(running->processIdentifier()));
        if (options.json) {
            const QJsonObject answer{{"application", applicationObject(running->processIdentifier())},
                                     {"tree", elementTreeObject(element, 1)}};
            ctlOut() << QJsonDocument(answer).toJson(QJsonDocument::Compact) << '\n';
        } else {
            ctlOut() << running->localizedName() << " (" << running->bundleIdentifier() << ", pid "
                     << running->processIdentifier() << ")\n";
            for (const QString& line : elementTreeLines(element, 1))
                ctlOut() << line << '\n';
        }
        ++printed;
    }
    ctlOut().flush();
    if (printed == 0) {
        ctlErr() << "ui-element-ctl: no running application"
                 << (application.isEmpty() ? QString() : QStringLiteral(" ") + application) << '\n';
        ctlErr().flush();
        return ctlExitFailure;
    }
    return ctlExitSuccess;
}

int runCtl(const QStringList& arguments) {
    // The inspector's options may stand anywhere, before the verb too.
    QStringList inspectorOperands = arguments;
    InspectorOptions options;
    const bool optionsComplete = takeInspectorOptions(inspectorOperands, options);
    const QString inspectorVerb = inspectorOperands.isEmpty() ? QString() : inspectorOperands.takeFirst();
    const QStringList inspectorVerbs{
        QStringLiteral("tree"),    QStringLiteral("focused"),    QStringLiteral("screens"),
        QStringLiteral("apps"),    QStringLiteral("app-events"), QStringLiteral("capture"),
        QStringLiteral("resolve"), QStringLiteral("show"),       QStringLiteral("edit")};
    if (inspectorVerbs.contains(inspectorVerb) || isPointVerb(inspectorVerb)) {
        if (!optionsComplete) {
            ctlFail(ctlExitUsage, QStringLiteral("--desktop needs a desktop file"));
            return usage();
        }
        if (options.plain && inspectorVerb != QLatin1String("at")) {
            ctlFail(ctlExitUsage, QStringLiteral("--plain goes with at only"));
            return usage();
        }
        const bool flagLeft = inspectorOperands.value(0).startsWith(QLatin1String("--"));
        if (inspectorVerb == QLatin1String("tree") && inspectorOperands.size() <= 1 && !flagLeft)
            return runTree(options, inspectorOperands.value(0));
        if (inspectorVerb == QLatin1String("focused") && inspectorOperands.isEmpty())
            return runFocused(options);
        if (inspectorVerb == QLatin1String("screens") && inspectorOperands.isEmpty())
            return runScreens(options);
        if (inspectorVerb == QLatin1String("apps") && inspectorOperands.isEmpty())
            return runApps(options);
        if (inspectorVerb == QLatin1String("app-events") && inspectorOperands.size() == 1 && !flagLeft)
            return runAppEvents(options, inspectorOperands.at(0));
        if (inspectorVerb == QLatin1String("capture") && inspectorOperands.size() == 2 && !flagLeft &&
            !inspectorOperands.at(1).startsWith(QLatin1String("--")))
            return runCapture(options, inspectorOperands.at(0), inspectorOperands.at(1));
        if (inspectorVerb == QLatin1String("resolve")) {
            ResolveOptions resolveOptions;
            if (!takeResolveOptions(inspectorOperands, resolveOptions))
                return ctlExitUsage;
            if (inspectorOperands.size() == 1 && !inspectorOperands.at(0).startsWith(QLatin1String("--")))
                return runResolve(options, resolveOptions, inspectorOperands.at(0));
        }
        // Both read their operands themselves, and tell in one line what is wrong with them.
        if (inspectorVerb == QLatin1String("show"))
            return runShow(options, inspectorOperands);
        if (inspectorVerb == QLatin1String("edit"))
            return runEdit(options, inspectorOperands);
        if (isPointVerb(inspectorVerb) && inspectorOperands.size() == 1 && !flagLeft) {
            if (inspectorVerb == QLatin1String("at"))
                return runAt(options, inspectorOperands.at(0));
            if (inspectorVerb == QLatin1String("window"))
                return runWindow(options, inspectorOperands.at(0));
            if (inspectorVerb == QLatin1String("press"))
                return runPress(options, inspectorOperands.at(0));
            return runWindowAction(options, inspectorVerb, inspectorOperands.at(0));
        }
    }
    const QString verb = arguments.value(0);
    if (verb == QLatin1String("reports") && arguments.size() == 1)
        return runReports();
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
                ctlErr() << "ui-element-ctl: the time-out must be a positive number of milliseconds, not '"
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
        ctlErr() << "ui-element-ctl: unknown or incomplete command '" << arguments.join(QLatin1Char(' '))
                 << "'\n";
    return usage();
}
