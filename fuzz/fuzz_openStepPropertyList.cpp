// Arbitrary bytes as a property list in the old text form. Its values are dictionaries, arrays,
// strings and data only; and text that libplist cannot take for XML or binary (it does not begin
// with '<' or "bplist00") reads the same through the reader of all forms.

#include "propertyListChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const std::optional<QVariant> list = openStepPropertyListFromData(bytes);
    if (list)
        checkPropertyListValue(*list, true);
    qsizetype first = 0;
    while (first < bytes.size() && QByteArrayView(" \t\r\n").contains(bytes[first]))
        ++first;
    if (!bytes.startsWith("bplist00") && (first == bytes.size() || bytes[first] != '<') &&
        propertyListFromData(bytes) != list)
        std::abort();
    return 0;
}
