// Arbitrary bytes as a Qt ".qm" catalog. Whatever is read is a message with a source text and a
// translation, and no ".qm" file has gettext's plural source.

#include "catalogs/Catalogs.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<Catalog> catalog =
        readQtCatalog(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!catalog)
        return 0;
    for (const CatalogMessage& message : catalog->messages) {
        if (message.source.isEmpty() || message.translations.join(QString()).isEmpty() ||
            !message.sourcePlural.isEmpty())
            std::abort();
    }
    return 0;
}
