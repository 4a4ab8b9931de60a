#include "osxRunningApplications.h"

#include "appkit/Foundation.h"
#include "appkit/NSBundle.h"
#include "appkit/Processes.h"

#include <QDebug>

NSRunningApplication* getRunningApplicationForBundleId(const QString& bundleId) {
    const QList<NSRunningApplication*> applications =
        NSRunningApplication::runningApplicationsWithBundleIdentifier(bundleId);
    if (applications.size() <= 1) {
        return applications.value(0);
    }
    for (NSRunningApplication* application : applications) {
        if (application->isActive()) {
            return application;
        }
    }
    NSLog(QStringLiteral("Warning: there is more than one instance of the application '%1', and none of them "
                         "are frontmost. One will be picked arbitrarily.")
              .arg(bundleId));
    return applications.first();
}

int applicationPidForBundleId(const QString& bundleId) {
    const NSRunningApplication* application = getRunningApplicationForBundleId(bundleId);
    return application ? application->processIdentifier() : 0;
}

QList<int> applicationPidsForBundleId(const QString& bundleId) {
    QList<int> pids;
    for (const NSRunningApplication* application :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(bundleId)) {
        pids.append(application->processIdentifier());
    }
    return pids;
}

QString applicationNameForBundleId(const QString& bundleId) {
    const NSRunningApplication* application = getRunningApplicationForBundleId(bundleId);
    return application ? application->localizedName() : QString();
}

QString bundleIdForApplicationAtPath(const QString& path) {
    const auto bundle = NSBundle::bundleWithPath(path);
    if (!bundle) {
        qWarning().noquote() << "Warning: failed to get NSBundle for application:" << path;
        return QString();
    }
    const QString bundleId = bundle->bundleIdentifier();
    if (bundleId.isEmpty()) {
        qCritical().noquote() << "Error: failed to get bundle ID of NSBundle for application:" << path;
    }
    return bundleId;
}

bool activateApplication(NSRunningApplication* application, bool activateAllWindows, bool verbose) {
    if (!application) {
        return false;
    }
    NSApplicationActivationOptions options = NSApplicationActivateIgnoringOtherApps;
    if (activateAllWindows) {
        options |= NSApplicationActivateAllWindows;
    }
    if (application->activateWithOptions(options)) {
        return true;
    }
    if (verbose) {
        qDebug().noquote()
            << "Note: normal method of activating an application didn't work, trying alternative "
               "method";
    }
    ProcessSerialNumber psn;
    const OSStatus psnStatus = GetProcessForPID(application->processIdentifier(), &psn);
    if (psnStatus != noErr) {
        if (verbose) {
            qDebug().noquote() << "Error: alternative method didn't work; couldn't get psn. Status code:"
                               << psnStatus;
        }
        return false;
    }
    const OSStatus frontStatus = SetFrontProcessWithOptions(
        &psn, activateAllWindows ? OptionBits(0) : kSetFrontProcessFrontWindowOnly);
    if (frontStatus != noErr && verbose) {
        qDebug().noquote() << "Error: alternative method didn't work. Error code:" << frontStatus;
    }
    return frontStatus == noErr;
}
