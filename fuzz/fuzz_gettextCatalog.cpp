// Arbitrary bytes as a gettext ".mo" catalog. Whatever is read is a message with a translation:
// the header entry and untranslated messages never come out.

#include "catalogs/Catalogs.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<Catalog> catalog =
        readGettextCatalog(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!catalog)
        return 0;
    for (const CatalogMessage& message : catalog->messages) {
        if (message.translations.join(QString()).isEmpty() || !message.comment.isEmpty())
            std::abort();
    }
    return 0;
}
