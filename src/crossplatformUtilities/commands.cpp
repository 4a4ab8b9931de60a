#include "commands.h"

#include "appkit/Foundation.h"
#include "osxSystemVersion.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QProcessEnvironment>

namespace {

const QString shortcutsProgram = QStringLiteral("/usr/bin/shortcuts");
// Reading the Shortcuts takes a noticeable moment; callers that ask again soon get the last list.
constexpr qint64 kShortcutsListLifetimeMs = 3000;

} // namespace

QProcess* createProcessExecutingShellCommand(const QString& command, QObject* parent) {
    auto* process = new QProcess(parent);
    const QString shell =
        QProcessEnvironment::systemEnvironment().value(QStringLiteral("SHELL"), QStringLiteral("/bin/bash"));
    QStringList arguments;
    if (shell.endsWith(QLatin1String("/bash")) || shell.endsWith(QLatin1String("/zsh"))) {
        arguments << QStringLiteral("-l");
    }
    arguments << QStringLiteral("-c") << command;
    process->setProgram(shell);
    process->setArguments(arguments);
    return process;
}

QStringList getMacOSShortcuts(int timeout) {
    static QStringList shortcuts;
    static QElapsedTimer age;

    if (!isMontereyOrLater()) {
        qDebug().noquote() << "Error: attempting to get macOS Shortcuts in unsupported macOS version";
        return {};
    }
    if (age.isValid() && age.elapsed() < kShortcutsListLifetimeMs) {
        return shortcuts;
    }

    const ProgramInvocation invocation = systemProgramInvocation(shortcutsProgram, {QStringLiteral("list")});
    auto* process = new QProcess;
    process->start(invocation.program, invocation.arguments);
    if (!process->waitForFinished(timeout)) {
        qDebug().noquote() << "Error: attempt to get current Shortcuts timed out";
        if (process->state() == QProcess::NotRunning) {
            // It never started, so no finished signal will come to delete it.
            process->deleteLater();
        } else {
            QObject::connect(process, &QProcess::finished, process, &QObject::deleteLater);
            process->kill();
        }
        return {};
    }

    QByteArray output = process->readAllStandardOutput();
    const qsizetype end = output.indexOf('\0');
    if (end >= 0) {
        output.truncate(end);
    }
    shortcuts = QString::fromUtf8(output).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    age.restart();
    process->deleteLater();
    return shortcuts;
}

QProcess* createProcessExecutingMacOSShortcut(const QString& name, QObject* parent) {
    if (!isMontereyOrLater()) {
        qDebug().noquote() << "Error: attempting to run macOS Shortcut in unsupported macOS version";
        return nullptr;
    }
    const ProgramInvocation invocation =
        systemProgramInvocation(shortcutsProgram, {QStringLiteral("run"), name});
    auto* process = new QProcess(parent);
    process->setProgram(invocation.program);
    process->setArguments(invocation.arguments);
    // A Shortcut that asks for input must not wait on ours.
    process->setStandardInputFile(QProcess::nullDevice());
    return process;
}
