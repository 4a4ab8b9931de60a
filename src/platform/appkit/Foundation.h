#pragma once

// Foundation's log function and the kernel's sysctl program, for the platform services.

#include <QString>
#include <QStringList>

#include <optional>

// Writes a line to the system log; on Linux through Qt's message logger at info level, so that it
// reaches standard error as other log lines do. The text is complete: callers format it.
void NSLog(const QString& text);

// How to start "/usr/sbin/sysctl" with these arguments.
struct ProgramInvocation {
    QString program;
    QStringList arguments;
};
ProgramInvocation sysctlInvocation(const QStringList& arguments);
// Runs this program instead: its arguments come first, then those of the query. Nullopt goes
// back to the system's.
void setSysctlProgramForTesting(std::optional<ProgramInvocation> program);
