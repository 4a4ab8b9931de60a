#pragma once

// Running the project's binaries from process-level tests.

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <functional>

inline constexpr int processTimeout = 20000;

// A started binary whose output, both channels merged unless asked otherwise, is collected as it
// comes.
class Binary {
public:
    Binary(const QString& program, const QStringList& arguments,
           QProcess::ProcessChannelMode mode = QProcess::MergedChannels) {
        process.setProcessChannelMode(mode);
        process.start(program, arguments);
    }
    ~Binary() {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }

    // Waits until the collected output holds `text`, or the process ends, or time runs out.
    bool waitForOutput(const QString& text) {
        return waitFor([&] { return output().contains(text); });
    }
    bool waitForErrorOutput(const QString& text) {
        return waitFor([&] { return errorOutput().contains(text); });
    }

    QString output() {
        collected += process.readAllStandardOutput();
        return QString::fromUtf8(collected);
    }
    QString errorOutput() {
        collectedErrors += process.readAllStandardError();
        return QString::fromUtf8(collectedErrors);
    }
    bool finish() { return process.waitForFinished(processTimeout); }

    QProcess process;

private:
    bool waitFor(const std::function<bool()>& condition) {
        QElapsedTimer timer;
        timer.start();
        while (!condition()) {
            if (timer.hasExpired(processTimeout) || process.state() == QProcess::NotRunning)
                return condition();
            QTest::qWait(20); // lets the process object read both channels
        }
        return true;
    }

    QByteArray collected;
    QByteArray collectedErrors;
};
