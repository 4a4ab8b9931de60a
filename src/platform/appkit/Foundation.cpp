#include "Foundation.h"

#include <QDebug>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>

namespace {

QMutex replacementsMutex;
QHash<QString, ProgramInvocation> replacements;
const QString sysctlProgram = QStringLiteral("/usr/sbin/sysctl");

} // namespace

void NSLog(const QString& text) {
    qInfo().noquote() << text;
}

ProgramInvocation systemProgramInvocation(const QString& program, const QStringList& arguments) {
    QMutexLocker locker(&replacementsMutex);
    const auto replacement = replacements.constFind(program);
    if (replacement == replacements.constEnd()) {
        return {program, arguments};
    }
    return {replacement->program, replacement->arguments + arguments};
}

void replaceSystemProgramForTesting(const QString& program, std::optional<ProgramInvocation> replacement) {
    QMutexLocker locker(&replacementsMutex);
    if (replacement) {
        replacements.insert(program, std::move(*replacement));
    } else {
        replacements.remove(program);
    }
}

ProgramInvocation sysctlInvocation(const QStringList& arguments) {
    return systemProgramInvocation(sysctlProgram, arguments);
}

void setSysctlProgramForTesting(std::optional<ProgramInvocation> program) {
    replaceSystemProgramForTesting(sysctlProgram, std::move(program));
}
