// Arbitrary messages on the report channel, as ui-element-ctl reads them: a message is taken as
// a report only if it is one exactly, and then it is the report that the tool would build.

#include "StateReport.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray message(reinterpret_cast<const char*>(data), qsizetype(size));
    quint64 id = 0;
    bool found = false;
    const bool accepted = parseStateReport(message, id, found);
    const bool wellFormed = size == stateReportSize && data[8] <= 1;
    if (accepted != wellFormed)
        std::abort();
    if (accepted && makeStateReport(id, found) != message)
        std::abort();
    return 0;
}
