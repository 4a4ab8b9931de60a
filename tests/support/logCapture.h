#pragma once

// Catches the log lines that a piece of work writes, so that a test can compare all of them, in
// order, and see that nothing else was logged.

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>

// The texts of the log lines written while the work runs, whatever their level.
inline QStringList logOf(const std::function<void()>& work) {
    static QStringList lines;
    lines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& text) { lines.append(text); });
    work();
    qInstallMessageHandler(previous);
    return lines;
}
