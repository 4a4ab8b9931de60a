#include "applicationCommands.h"

#include "appkit/NSRunningApplication.h"
#include "applications.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTimer>

namespace {

// Long enough for any demonstration, short enough that a mistyped number ends.
constexpr int maximumEventSeconds = 24 * 60 * 60;

} // namespace

int runApps(const InspectorOptions& options) {
    if (!useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    const int front = focusedApplication();
    QJsonArray list;
    QStringList lines;
    for (int pid : allRunningGUIApplicationsPids()) {
        const NSRunningApplication* application =
            NSRunningApplication::runningApplicationWithProcessIdentifier(pid);
        if (!application)
            continue; // quit since it was listed
        QJsonObject object = applicationObject(pid);
        object.insert("executable", application->executableURL().path());
        object.insert("bundle", application->bundleURL().path());
        object.insert("front", pid == front);
        list.append(object);
        lines << QStringLiteral("%1 %2 \"%3\" %4%5")
                     .arg(pid)
                     .arg(application->bundleIdentifier(), application->localizedName(),
                          application->executableURL().path(),
                          pid == front ? QStringLiteral(" (front)") : QString());
    }
    if (list.isEmpty())
        return ctlFail(ctlExitFailure, QStringLiteral("no running application"));
    ctlPrintAnswer(options.json, lines, QJsonObject{{"applications", list}});
    return ctlExitSuccess;
}

int runAppEvents(const InspectorOptions& options, const QString& secondsText) {
    bool ok = false;
    const int seconds = secondsText.toInt(&ok);
    if (!ok || seconds <= 0 || seconds > maximumEventSeconds)
        return ctlFail(ctlExitUsage,
                       QStringLiteral("the time must be a whole number of seconds from 1 to %1, not '%2'")
                           .arg(maximumEventSeconds)
                           .arg(secondsText));
    if (!useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    const auto tell = [&options](const char* event, const QString& id) {
        ctlPrintAnswer(options.json, {QStringLiteral("%1 %2").arg(QLatin1String(event), id)},
                       QJsonObject{{"event", QLatin1String(event)}, {"bundleId", id}});
    };
    auto front = registerForFrontAppChangedNotifications(
        [&](const QString& id, bool state) { tell(state ? "front" : "not front", id); });
    auto running = registerForAppRunningNotifications(
        [&](const QString& id, bool state) { tell(state ? "launched" : "quit", id); });
    // Where the changes start from; every later line is a change.
    const QString frontmost = applicationIdentifierOfFrontmostApp();
    if (!frontmost.isEmpty())
        tell("front", frontmost);
    QTimer::singleShot(seconds * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    unregisterForFrontAppChangedNotifications(front);
    unregisterForAppRunningNotifications(running);
    return ctlExitSuccess;
}
