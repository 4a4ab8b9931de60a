// Arbitrary bytes as a property list of any form, XML and binary through libplist and the old text
// form as the fallback. Every value that comes back is of a type the reader names.

#include "propertyListChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<QVariant> list =
        propertyListFromData(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (list)
        checkPropertyListValue(*list, false);
    return 0;
}
