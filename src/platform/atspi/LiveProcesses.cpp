#include "LiveProcesses.h"

#include "appkit/DesktopEntries.h"

#include <QFileInfo>

ApplicationInfo describeLiveProcess(pid_t pid, const QString& accessibleName) {
    ApplicationInfo info;
    info.pid = pid;
    QString executable = QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
    executable.remove(QLatin1String(" (deleted)"));
    info.executablePath = executable;
    const QString program = QFileInfo(executable).fileName();
    const DesktopEntry entry = desktopEntryForProgram(program).value_or(DesktopEntry());
    info.bundleIdentifier = entry.id.isEmpty() ? program : entry.id;
    info.name = !entry.name.isEmpty() ? entry.name : !accessibleName.isEmpty() ? accessibleName : program;
    info.bundlePath = entry.path;
    return info;
}
