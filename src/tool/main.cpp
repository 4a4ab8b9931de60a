// The UI element tool: a background process without window, arguments or settings. It takes
// commands from Ostrik Conductor on one local peer and reports found/not found flips on another.

#include "ConnectionHandler.h"
#include "QtLocalPeer.h"
#include "QtThreadUtilities.h"
#include "cf/CFRuntime.h"
#include "toolIds.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

// Runs on whatever thread took the signal, possibly in the middle of an allocation, so it does
// only what is safe there: one byte into a pipe. The main thread's notifier turns that into
// the quit, which then takes the orderly teardown of main().
void unixTerminatingSignalHandler(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
}

void setupSignalHandler() {
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        qDebug() << "Error: UI element tool could not create the pipe for termination signals";
        return;
    }
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        char buffer[16];
        while (read(signalPipe[0], buffer, sizeof buffer) > 0) {
        }
        executeInMainThread([] { QCoreApplication::quit(); });
    });

    struct sigaction action {};
    action.sa_handler = unixTerminatingSignalHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : {SIGTERM, SIGQUIT, SIGINT})
        sigaction(signalNumber, &action, nullptr);
}

} // namespace

int main(int argc, char* argv[]) {
    auto* application = new QCoreApplication(argc, argv);
    qDebug() << "Ostrik Conductor UI element tool starting up";
    setupSignalHandler();

    auto* commandPeer =
        new QtLocalPeer(nullptr, QString::fromLatin1(toolCommandPeerId), QtLocalPeer::ByteArrayMessagesOnly);
    auto* reportPeer = new QtLocalPeer(nullptr, QString::fromLatin1(toolReportPeerId),
                                       QtLocalPeer::NoLockFile | QtLocalPeer::ByteArrayMessagesOnly);
    auto* handler = new ConnectionHandler(reportPeer);
    QObject::connect(commandPeer, &QtLocalPeer::messageReceivedAsByteArray, handler,
                     &ConnectionHandler::receiveMessage);
    commandPeer->listenForMessages();
    qDebug() << "Ostrik Conductor UI element tool running";
    const CFIndex objectsAtStart = CFRuntime::liveObjectCount();

    QCoreApplication::exec();

    // Once nothing is watched, a count above the one at start is a leak; the soak run checks it.
    qDebug().noquote() << QStringLiteral("UI element tool: %1 platform objects alive, %2 at start")
                              .arg(CFRuntime::liveObjectCount())
                              .arg(objectsAtStart);
    qDebug() << "Ostrik Conductor UI element tool exiting";
    delete handler;
    delete reportPeer;
    delete commandPeer;
    delete application;
    return 0;
}
