// Feeds arbitrary bytes to the frame reader, as a stranger on the peer's socket could, and checks
// that whatever it accepts is exactly the frame that the bytes describe.

#include "QtLocalPeer.h"

#include <QBuffer>
#include <QtEndian>

#include <cstdlib>

namespace {

void discardMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Every refused frame logs a line: at fuzzing speed that is only noise.
    qInstallMessageHandler(discardMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer device(&input);
    device.open(QIODevice::ReadOnly);
    QByteArray message = "stale";
    // Nothing more ever arrives in a buffer: a negative time-out gives up on a missing length at the
    // first look instead of spinning until a millisecond has passed.
    const bool accepted = readFrame(device, -1, message);

    if (size < 4) {
        if (accepted || !message.isEmpty())
            std::abort();
        return 0;
    }
    const quint32 length = qFromBigEndian<quint32>(data);
    const bool whole = length <= QtLocalPeer::maximumMessageLength && size - 4 >= length;
    if (accepted != whole)
        std::abort();
    if (accepted ? message != input.mid(4, length) : !message.isEmpty())
        std::abort();
    return 0;
}
