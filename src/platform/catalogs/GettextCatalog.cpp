#include "Catalogs.h"

#include <QByteArrayView>
#include <QStringDecoder>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr quint32 kMagic = 0x950412de;
// Magic, revision, number of strings, offsets of the original and translation tables, size and
// offset of the hash table: seven words. Later revisions append, and what they add is not read.
constexpr quint64 kHeaderSize = 7 * 4;
// Each table entry is a length and an offset.
constexpr quint64 kEntrySize = 2 * 4;
// Entries may share their bytes, so a small hostile file could name gigabytes of strings; a real
// catalog's strings never add up to more than the file.
constexpr quint64 kStringBytesPerFileByte = 4;
// gettext's separators inside an original: context before it, plural after the singular.
constexpr char kContextSeparator = '\x04';
constexpr char kPluralSeparator = '\0';

class MoFile {
public:
    MoFile(const QByteArray& data, bool bigEndian)
        : data(data), bigEndian(bigEndian), budget(kStringBytesPerFileByte * quint64(data.size())) {}

    // The word at `offset`, which the caller has checked to lie inside the file.
    quint32 word(quint64 offset) const {
        const char* at = data.constData() + offset;
        return bigEndian ? qFromBigEndian<quint32>(at) : qFromLittleEndian<quint32>(at);
    }

    // A table of `count` entries at `offset` lies wholly inside the file.
    bool tableFits(quint64 offset, quint64 count) const {
        return offset + count * kEntrySize <= quint64(data.size());
    }

    // The bytes that entry `index` of a table (checked with tableFits) names, without their
    // terminating NUL, which has to be inside the file as well. Nullopt when they are not, or when
    // the strings read so far exceed what the file can hold.
    std::optional<QByteArrayView> string(quint64 table, quint64 index) {
        const quint64 length = word(table + index * kEntrySize);
        const quint64 offset = word(table + index * kEntrySize + 4);
        if (offset + length >= quint64(data.size()) || data.at(qsizetype(offset + length)) != '\0' ||
            length > budget)
            return std::nullopt;
        budget -= length;
        return QByteArrayView(data).sliced(qsizetype(offset), qsizetype(length));
    }

private:
    const QByteArray& data;
    const bool bigEndian;
    quint64 budget;
};

// The value of a header field ("Language: de"), empty when the header has no such field.
QByteArray headerField(const QByteArray& header, QByteArrayView name) {
    for (const QByteArray& line : header.split('\n')) {
        if (line.startsWith(name) && line.sliced(name.size()).startsWith(':'))
            return line.sliced(name.size() + 1).trimmed();
    }
    return {};
}

// "de_DE.UTF-8" and "sr@latin" name the languages "de_DE" and "sr".
QString languageOfHeader(const QByteArray& header) {
    const QByteArray language = headerField(header, "Language");
    qsizetype end = 0;
    while (end < language.size() && language[end] != '.' && language[end] != '@')
        ++end;
    return QString::fromLatin1(language.first(end));
}

// The strings' text: UTF-8, unless the header's Content-Type names another charset that Qt can
// decode. An unknown charset ("CHARSET" of an unfilled template) is read as UTF-8 too.
class TextDecoder {
public:
    explicit TextDecoder(const QByteArray& header) {
        const QByteArray contentType = headerField(header, "Content-Type");
        const qsizetype at = contentType.toLower().indexOf("charset=");
        if (at < 0)
            return;
        QByteArray name = contentType.mid(at + 8);
        qsizetype end = 0;
        while (end < name.size() && name[end] != ';' && name[end] != ' ' && name[end] != '\t')
            ++end;
        name.truncate(end);
        QStringDecoder named(name.constData(), QStringDecoder::Flag::Stateless);
        if (named.isValid())
            decoder.emplace(std::move(named));
    }

    QString operator()(QByteArrayView bytes) {
        return decoder ? QString((*decoder)(bytes)) : QString::fromUtf8(bytes);
    }

private:
    std::optional<QStringDecoder> decoder;
};

QStringList decodedParts(QByteArrayView bytes, TextDecoder& decode) {
    QStringList parts;
    qsizetype start = 0;
    for (qsizetype end = bytes.indexOf(kPluralSeparator); end >= 0;
         start = end + 1, end = bytes.indexOf(kPluralSeparator, start))
        parts.append(decode(bytes.sliced(start, end - start)));
    parts.append(decode(bytes.sliced(start)));
    return parts;
}

bool allEmpty(const QStringList& texts) {
    return std::all_of(texts.cbegin(), texts.cend(), [](const QString& text) { return text.isEmpty(); });
}

CatalogMessage messageOf(QByteArrayView original, QByteArrayView translation, TextDecoder& decode) {
    CatalogMessage message;
    const qsizetype contextEnd = original.indexOf(kContextSeparator);
    if (contextEnd >= 0) {
        message.context = decode(original.first(contextEnd));
        original = original.sliced(contextEnd + 1);
    }
    const qsizetype singularEnd = original.indexOf(kPluralSeparator);
    message.source = decode(singularEnd >= 0 ? original.first(singularEnd) : original);
    if (singularEnd >= 0)
        message.sourcePlural = decode(original.sliced(singularEnd + 1));
    message.translations = decodedParts(translation, decode);
    return message;
}

} // namespace

std::optional<Catalog> readGettextCatalog(const QByteArray& data) {
    if (quint64(data.size()) < kHeaderSize)
        return std::nullopt;
    const quint32 magic = qFromLittleEndian<quint32>(data.constData());
    if (magic != kMagic && qFromBigEndian<quint32>(data.constData()) != kMagic)
        return std::nullopt;
    MoFile file(data, magic != kMagic);
    // Major revisions 0 and 1 share the tables read here; minor revisions only add to them.
    if (file.word(4) >> 16 > 1)
        return std::nullopt;
    const quint64 count = file.word(8);
    const quint64 originals = file.word(12);
    const quint64 translations = file.word(16);
    if (!file.tableFits(originals, count) || !file.tableFits(translations, count))
        return std::nullopt;

    struct Entry {
        QByteArrayView original, translation;
    };
    QList<Entry> entries;
    entries.reserve(qsizetype(count));
    std::optional<QByteArray> header;
    for (quint64 i = 0; i < count; ++i) {
        const std::optional<QByteArrayView> original = file.string(originals, i);
        const std::optional<QByteArrayView> translation = file.string(translations, i);
        if (!original || !translation)
            return std::nullopt;
        if (original->isEmpty() && !header)
            header = translation->toByteArray();
        else
            entries.append({*original, *translation});
    }

    Catalog catalog;
    catalog.language = languageOfHeader(header.value_or(QByteArray()));
    TextDecoder decode(header.value_or(QByteArray()));
    for (const Entry& entry : entries) {
        CatalogMessage message = messageOf(entry.original, entry.translation, decode);
        if (!allEmpty(message.translations))
            catalog.messages.append(std::move(message));
    }
    return catalog;
}
