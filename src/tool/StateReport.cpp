#include "StateReport.h"

#include <QDataStream>
#include <QIODevice>

QByteArray makeStateReport(quint64 id, bool found) {
    QByteArray report;
    QDataStream stream(&report, QIODevice::WriteOnly);
    stream << qint64(id) << found;
    return report;
}

bool parseStateReport(const QByteArray& message, quint64& id, bool& found) {
    if (message.size() != stateReportSize)
        return false;
    const auto flag = static_cast<unsigned char>(message.at(8));
    if (flag > 1)
        return false;
    QDataStream stream(message);
    qint64 rawId = 0;
    stream >> rawId;
    id = quint64(rawId);
    found = flag == 1;
    return true;
}
