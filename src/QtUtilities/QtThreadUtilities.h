#pragma once

// Running functions on other threads: on a given QThread, on the main thread, on a pool
// thread, after a delay, or with a wait for completion. Accessibility work must run on the
// main thread; everything that reaches it from elsewhere comes through here.

#include <QEvent>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QRunnable>
#include <QSemaphore>
#include <QSharedPointer>
#include <QString>
#include <functional>

class QThread;

// Carries a function to the process-wide FunctionEventReceiver on the main thread.
class FunctionEvent : public QEvent {
public:
    static constexpr QEvent::Type FunctionEventType = static_cast<QEvent::Type>(2000);

    explicit FunctionEvent(const std::function<void()>& function,
                           const QSharedPointer<QSemaphore>& semaphore = QSharedPointer<QSemaphore>());
    ~FunctionEvent() override;

    std::function<void()> function;
    QSharedPointer<QSemaphore> semaphore; // null unless a caller waits
};

class FunctionEventReceiver : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    bool event(QEvent* event) override;
};

class QtRunnableTask : public QRunnable {
public:
    explicit QtRunnableTask(const std::function<void()>& function);
    void run() override;

private:
    std::function<void()> function;
};

// A relay for single values across threads; it has no logic.
class QtValueTransmitter : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
Q_SIGNALS:
    void sendInt(int val);
    void sendDouble(double val);
    void sendBool(bool val);
    void sendString(QString val);
    void sendPoint(QPoint val);
    void sendRect(QRect val);
};

void executeInSeparateThread(const std::function<void()>& function);
void executeInThread(QThread* thread, const std::function<void()>& function);
void executeInThreadAfterMilliseconds(QThread* thread, int milliseconds,
                                      const std::function<void()>& function);
void executeInThreadAfterMilliseconds(QThread* thread, int milliseconds, QObject* context,
                                      const std::function<void()>& function);
bool executeInThreadAndWaitForCompletion(QThread* thread, int timeoutMilliseconds,
                                         const std::function<void()>& function);
void executeInMainThread(const std::function<void()>& function);
void executeInMainThreadWithMaximumPriority(const std::function<void()>& function);
bool executeInMainThreadAndWaitForCompletion(int timeoutMilliseconds, const std::function<void()>& function);
FunctionEventReceiver* functionEventReceiver();
