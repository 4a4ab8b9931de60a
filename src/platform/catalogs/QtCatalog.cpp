#include "Catalogs.h"

#include <QByteArrayView>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr char kMagic[] = "\x3c\xb8\x64\x18\xca\xef\x9c\x95\xcd\x21\x1c\xbf\x60\xa1\xbd\xdd";
constexpr qsizetype kMagicSize = sizeof kMagic - 1;

// The sections of the file; the hashes, contexts, numerus rules and dependencies are not needed.
enum SectionTag : quint8 { MessagesSection = 0x69, LanguageSection = 0xa7 };

// The fields of one message in the messages section.
enum MessageTag : quint8 {
    End = 1,
    SourceText16 = 2,
    Translation = 3,
    Context16 = 4,
    Obsolete1 = 5,
    SourceText = 6,
    Context = 7,
    Comment = 8,
    Obsolete2 = 9,
};
constexpr qsizetype kObsolete1Size = 4;
// The length of a field that QDataStream wrote for a null string or byte array.
constexpr quint32 kNullLength = 0xffffffff;

// Big-endian fields of a byte range, each checked against what is left of it.
class Cursor {
public:
    explicit Cursor(QByteArrayView bytes) : rest(bytes) {}

    bool atEnd() const { return rest.isEmpty(); }

    bool skip(qsizetype count) { return take(count, nullptr); }

    bool take(quint64 count, QByteArrayView* bytes) {
        if (count > quint64(rest.size()))
            return false;
        if (bytes)
            *bytes = rest.first(qsizetype(count));
        rest = rest.sliced(qsizetype(count));
        return true;
    }

    bool byte(quint8* value) {
        QByteArrayView bytes;
        if (!take(1, &bytes))
            return false;
        *value = quint8(bytes[0]);
        return true;
    }

    bool word(quint32* value) {
        QByteArrayView bytes;
        if (!take(4, &bytes))
            return false;
        *value = qFromBigEndian<quint32>(bytes.data());
        return true;
    }

    // A length and that many bytes; the null length gives no bytes.
    bool field(QByteArrayView* bytes) {
        quint32 length = 0;
        if (!word(&length))
            return false;
        if (length == kNullLength) {
            *bytes = {};
            return true;
        }
        return take(length, bytes);
    }

private:
    QByteArrayView rest;
};

// UTF-16 big-endian text, as QDataStream writes a QString. Nullopt for an odd number of bytes.
std::optional<QString> utf16Text(QByteArrayView bytes) {
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    QString text(bytes.size() / 2, Qt::Uninitialized);
    qFromBigEndian<char16_t>(bytes.data(), text.size(), text.data());
    return text;
}

bool textField(Cursor& cursor, bool utf16, QString* text) {
    QByteArrayView bytes;
    if (!cursor.field(&bytes))
        return false;
    if (!utf16) {
        *text = QString::fromUtf8(bytes);
        return true;
    }
    const std::optional<QString> decoded = utf16Text(bytes);
    if (decoded)
        *text = *decoded;
    return decoded.has_value();
}

bool worthListing(const CatalogMessage& message) {
    return !message.source.isEmpty() &&
           std::any_of(message.translations.cbegin(), message.translations.cend(),
                       [](const QString& translation) { return !translation.isEmpty(); });
}

// The messages section: records of tagged fields, each record closed by End.
bool readMessages(QByteArrayView section, QList<CatalogMessage>* messages) {
    Cursor cursor(section);
    CatalogMessage message;
    bool open = false;
    while (!cursor.atEnd()) {
        quint8 tag = 0;
        cursor.byte(&tag);
        open = tag != End;
        bool ok = true;
        switch (tag) {
        case End:
            if (worthListing(message))
                messages->append(std::move(message));
            message = CatalogMessage();
            break;
        case Translation:
            ok = textField(cursor, true, &message.translations.emplace_back());
            break;
        case SourceText:
        case SourceText16:
            ok = textField(cursor, tag == SourceText16, &message.source);
            break;
        case Context:
        case Context16:
            ok = textField(cursor, tag == Context16, &message.context);
            break;
        case Comment:
            ok = textField(cursor, false, &message.comment);
            break;
        case Obsolete1:
            ok = cursor.skip(kObsolete1Size);
            break;
        case Obsolete2:
            break;
        default:
            return false;
        }
        if (!ok)
            return false;
    }
    return !open;
}

} // namespace

std::optional<Catalog> readQtCatalog(const QByteArray& data) {
    if (!data.startsWith(QByteArrayView(kMagic, kMagicSize)))
        return std::nullopt;
    Catalog catalog;
    Cursor cursor(QByteArrayView(data).sliced(kMagicSize));
    while (!cursor.atEnd()) {
        quint8 tag = 0;
        quint32 length = 0;
        QByteArrayView section;
        if (!cursor.byte(&tag) || !cursor.word(&length) || !cursor.take(length, &section))
            return std::nullopt;
        if (tag == LanguageSection)
            catalog.language = QString::fromUtf8(section);
        else if (tag == MessagesSection && !readMessages(section, &catalog.messages))
            return std::nullopt;
    }
    return catalog;
}
