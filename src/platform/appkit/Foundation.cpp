#include "Foundation.h"

#include <QDebug>
#include <QMutex>
#include <QMutexLocker>

namespace {

QMutex sysctlMutex;
std::optional<ProgramInvocation> scriptedSysctl;

} // namespace

void NSLog(const QString& text) {
    qInfo().noquote() << text;
}

ProgramInvocation sysctlInvocation(const QStringList& arguments) {
    QMutexLocker locker(&sysctlMutex);
    if (!scriptedSysctl) {
        return {QStringLiteral("/usr/sbin/sysctl"), arguments};
    }
    return {scriptedSysctl->program, scriptedSysctl->arguments + arguments};
}

void setSysctlProgramForTesting(std::optional<ProgramInvocation> program) {
    QMutexLocker locker(&sysctlMutex);
    scriptedSysctl = std::move(program);
}
