#pragma once

// Foundation's log function and the system programs that the platform services run (the
// kernel's sysctl, the Shortcuts tool), which tests may replace.

#include <QString>
#include <QStringList>

#include <optional>

// Writes a line to the system log; on Linux through Qt's message logger at info level, so that it
// reaches standard error as other log lines do. The text is complete: callers format it.
void NSLog(const QString& text);

struct ProgramInvocation {
    QString program;
    QStringList arguments;
};
// How to start the system program at this path with these arguments.
ProgramInvocation systemProgramInvocation(const QString& program, const QStringList& arguments);
// Runs replacement instead of the system program at this path: its arguments come first, then
// those of the call. Nullopt goes back to the system's program.
void replaceSystemProgramForTesting(const QString& program, std::optional<ProgramInvocation> replacement);

// "/usr/sbin/sysctl".
ProgramInvocation sysctlInvocation(const QStringList& arguments);
void setSysctlProgramForTesting(std::optional<ProgramInvocation> program);
