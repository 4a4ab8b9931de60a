// Arbitrary bytes as a command message, the way the tool receives them from its command peer.
// Whatever arrives, the tool must neither crash nor start watching anything it cannot check.

#include "ConnectionHandler.h"
#include "QtLocalPeer.h"

#include <QCoreApplication>

#include <cstdlib>

namespace {

void discardMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

QtLocalPeer* reportPeer = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication application(*argc, *argv);
    reportPeer = new QtLocalPeer(nullptr, QStringLiteral("fuzz.reports"), QtLocalPeer::NoLockFile);
    qInstallMessageHandler(discardMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ConnectionHandler handler(reportPeer);
    handler.receiveMessage(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    // A watched entry always has its collection.
    for (const auto& entry : handler.watchedUIElements())
        if (!entry.elements)
            std::abort();
    return 0;
}
