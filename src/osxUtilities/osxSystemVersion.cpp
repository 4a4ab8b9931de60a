#include "osxSystemVersion.h"

#include "appkit/Foundation.h"
#include "appkit/Processes.h"

#include <QDebug>
#include <QProcess>

namespace {

constexpr int kSysctlTimeoutMs = 2000;

// The product version that sysctl prints; "12.0.0" when it does not answer in time.
QString readSysctlProductVersion() {
    const ProgramInvocation invocation =
        sysctlInvocation({QStringLiteral("-b"), QStringLiteral("kern.osproductversion")});
    auto* process = new QProcess;
    process->start(invocation.program, invocation.arguments);
    QByteArray output;
    if (process->waitForFinished(kSysctlTimeoutMs)) {
        output = process->readAllStandardOutput();
    } else {
        qDebug().noquote() << "Error: could not get macOS version using sysctl, assuming macOS 12";
        process->kill();
        process->waitForFinished(); // reaps it; a killed process ends at once
        output = "12.0.0";
    }
    process->deleteLater();
    if (output.endsWith('\0')) {
        output.chop(1);
    }
    return QString::fromUtf8(output).trimmed();
}

} // namespace

QVersionNumber readMacOSVersion() {
    SInt32 numbers[3] = {0, 0, 0};
    Gestalt(gestaltSystemVersionMajor, &numbers[0]);
    Gestalt(gestaltSystemVersionMinor, &numbers[1]);
    Gestalt(gestaltSystemVersionBugFix, &numbers[2]);
    const QVersionNumber gestaltVersion(numbers[0], numbers[1], numbers[2]);
    if (QVersionNumber::compare(gestaltVersion, kBigSurVersion) < 0 || numbers[0] >= 11) {
        return gestaltVersion;
    }

    const QString output = readSysctlProductVersion();
    const QStringList parts = output.split(QLatin1Char('.'));
    // Major and minor come from the first two parts, the bugfix number only from a third one.
    const qsizetype count = parts.size() >= 3 ? 3 : qMin<qsizetype>(parts.size(), 2);
    for (qsizetype i = 0; i < count; ++i) {
        bool ok = false;
        numbers[i] = parts[i].toInt(&ok, 10);
        if (!ok) {
            qDebug().noquote() << "Error: invalid system version returned by sysctl:" << output;
            return gestaltVersion;
        }
    }
    return QVersionNumber(numbers[0], numbers[1], numbers[2]);
}

QVersionNumber getMacOSVersion() {
    static const QVersionNumber version = readMacOSVersion();
    return version;
}

int getMacOSMajorVersionNumber() {
    return getMacOSVersion().majorVersion();
}

int getMacOSMinorVersionNumber() {
    return getMacOSVersion().minorVersion();
}

int getMacOSBugfixVersionNumber() {
    return getMacOSVersion().microVersion();
}

bool passesVersionGate(const QVersionNumber& version, const QVersionNumber& gate) {
    return QVersionNumber::compare(version, gate) >= 0;
}

bool isBigSurOrLater() {
    return passesVersionGate(getMacOSVersion(), kBigSurVersion);
}

bool isMontereyOrLater() {
    return passesVersionGate(getMacOSVersion(), kMontereyVersion);
}

bool isVenturaOrLater() {
    return passesVersionGate(getMacOSVersion(), kVenturaVersion);
}
