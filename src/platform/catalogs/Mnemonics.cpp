#include "Catalogs.h"

QString withoutMnemonics(const QString& text, QChar marker) {
    QString plain;
    plain.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        // A marker with a character after it: that character is the mnemonic, or the marker
        // itself when doubled; either way the character stays and the marker goes.
        if (text[i] == marker && i + 1 < text.size())
            ++i;
        plain.append(text[i]);
    }
    return plain;
}
