// The old text form of property lists, read as Foundation reads it: strings (quoted or bare),
// dictionaries, arrays and data, with C comments between them; and the ".strings" form, whose top
// level is the inside of a dictionary.

#include "PropertyList.h"

#include <QStringDecoder>
#include <QVariantList>

namespace {

// Text in UTF-16 carries its byte order mark; anything else is UTF-8, with or without one.
std::optional<QString> decodedText(const QByteArray& data) {
    const bool littleEndian = data.startsWith("\xFF\xFE");
    if (littleEndian || data.startsWith("\xFE\xFF")) {
        if (data.size() % 2 != 0)
            return std::nullopt;
        QStringDecoder decoder(littleEndian ? QStringConverter::Utf16LE : QStringConverter::Utf16BE);
        const QString text = decoder.decode(data);
        // The UTF-16 decoder lets unpaired surrogates through.
        if (!QStringView(text).isValidUtf16())
            return std::nullopt;
        return text;
    }
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    const QString text = decoder.decode(data);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

bool isBlank(QChar c) {
    switch (c.unicode()) {
    case ' ':
    case '\t':
    case '\n':
    case '\r':
    case '\v':
    case '\f':
    case 0x2028: // line separator
    case 0x2029: // paragraph separator
        return true;
    default:
        return false;
    }
}

bool isUnquotedStringCharacter(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '_' ||
           u == '$' || u == '+' || u == '/' || u == ':' || u == '.' || u == '-';
}

int hexDigitValue(QChar c) {
    if (c.unicode() >= 0x80)
        return -1;
    return int(QByteArrayView("0123456789abcdef").indexOf(char(QChar::toLower(c.unicode()))));
}

bool isOctalDigit(QChar c) {
    return c.unicode() >= '0' && c.unicode() <= '7';
}

// Recursive descent over the decoded text. Every parse function leaves `pos` after what it read;
// on failure the whole parse is abandoned, so `pos` no longer matters then.
class OpenStepParser {
public:
    explicit OpenStepParser(QString text) : text(std::move(text)) {}

    std::optional<QVariant> parseTopLevel() {
        if (!skipBlanksAndComments())
            return std::nullopt;
        if (atEnd())
            return QVariant(QVariantMap());
        const qsizetype start = pos;
        std::optional<QVariant> value = parseValue(1);
        if (!value || !skipBlanksAndComments())
            return std::nullopt;
        if (atEnd())
            return value;
        // A string followed by "=" or ";" opens a ".strings" text: a dictionary without braces.
        if (value->typeId() != QMetaType::QString || (peek() != '=' && peek() != ';'))
            return std::nullopt;
        pos = start;
        std::optional<QVariantMap> entries = parseDictionaryEntries(1, std::nullopt);
        if (!entries)
            return std::nullopt;
        return QVariant(*entries);
    }

private:
    bool atEnd() const { return pos >= text.size(); }
    QChar peek() const { return atEnd() ? QChar() : text.at(pos); }
    QStringView remaining() const { return QStringView(text).mid(pos); }

    // False when a "/*" comment has no end.
    bool skipBlanksAndComments() {
        while (!atEnd()) {
            if (isBlank(peek())) {
                ++pos;
            } else if (remaining().startsWith(u"//")) {
                while (!atEnd() && peek() != '\n' && peek() != '\r')
                    ++pos;
            } else if (remaining().startsWith(u"/*")) {
                const qsizetype end = text.indexOf(u"*/", pos + 2);
                if (end < 0)
                    return false;
                pos = end + 2;
            } else {
                break;
            }
        }
        return true;
    }

    // `depth` is the nesting level a container read here would have.
    std::optional<QVariant> parseValue(int depth) {
        const QChar c = peek();
        if (c == '{' || c == '(') {
            if (depth > kDeepestPropertyListNesting)
                return std::nullopt;
            ++pos;
            if (c == '{') {
                std::optional<QVariantMap> map = parseDictionaryEntries(depth, QChar('}'));
                return map ? std::optional<QVariant>(*map) : std::nullopt;
            }
            std::optional<QVariantList> list = parseArrayElements(depth);
            return list ? std::optional<QVariant>(*list) : std::nullopt;
        }
        if (c == '<') {
            std::optional<QByteArray> bytes = parseData();
            return bytes ? std::optional<QVariant>(*bytes) : std::nullopt;
        }
        std::optional<QString> string = parseString();
        return string ? std::optional<QVariant>(*string) : std::nullopt;
    }

    // Entries up to `terminator` (consumed), or up to the end of the text when there is none.
    // "key;" alone stands for "key = key;". A later key overwrites an earlier one.
    std::optional<QVariantMap> parseDictionaryEntries(int depth, std::optional<QChar> terminator) {
        QVariantMap map;
        for (;;) {
            if (!skipBlanksAndComments())
                return std::nullopt;
            if (terminator ? peek() == *terminator : atEnd())
                break;
            std::optional<QString> key = parseString();
            if (!key || !skipBlanksAndComments())
                return std::nullopt;
            QVariant value(*key);
            if (peek() == '=') {
                ++pos;
                if (!skipBlanksAndComments())
                    return std::nullopt;
                std::optional<QVariant> parsed = parseValue(depth + 1);
                if (!parsed || !skipBlanksAndComments())
                    return std::nullopt;
                value = std::move(*parsed);
            }
            if (peek() != ';')
                return std::nullopt;
            ++pos;
            map.insert(*key, value);
        }
        if (terminator)
            ++pos;
        return map;
    }

    // After "(": values separated by commas, a trailing comma allowed, up to ")".
    std::optional<QVariantList> parseArrayElements(int depth) {
        QVariantList list;
        for (;;) {
            if (!skipBlanksAndComments())
                return std::nullopt;
            if (peek() == ')')
                break;
            std::optional<QVariant> value = parseValue(depth + 1);
            if (!value || !skipBlanksAndComments())
                return std::nullopt;
            list.append(*value);
            if (peek() == ',')
                ++pos;
            else if (peek() != ')')
                return std::nullopt;
        }
        ++pos;
        return list;
    }

    // "<0fbd 7777>": pairs of hex digits, with blanks between the pairs.
    std::optional<QByteArray> parseData() {
        QByteArray bytes;
        ++pos;
        for (;;) {
            while (!atEnd() && isBlank(peek()))
                ++pos;
            if (atEnd())
                return std::nullopt;
            if (peek() == '>')
                break;
            const int high = hexDigitValue(peek());
            const int low = pos + 1 < text.size() ? hexDigitValue(text.at(pos + 1)) : -1;
            if (high < 0 || low < 0)
                return std::nullopt;
            bytes.append(char(high << 4 | low));
            pos += 2;
        }
        ++pos;
        return bytes;
    }

    std::optional<QString> parseString() {
        if (peek() == '"')
            return parseQuotedString();
        const qsizetype start = pos;
        while (!atEnd() && isUnquotedStringCharacter(peek()))
            ++pos;
        if (pos == start)
            return std::nullopt;
        return text.mid(start, pos - start);
    }

    std::optional<QString> parseQuotedString() {
        QString result;
        ++pos;
        for (;;) {
            if (atEnd())
                return std::nullopt;
            const QChar c = text.at(pos++);
            if (c == '"')
                return result;
            if (c != '\\') {
                result.append(c);
                continue;
            }
            if (atEnd())
                return std::nullopt;
            result.append(escapedCharacter());
        }
    }

    // The character after a backslash, with what belongs to it.
    QChar escapedCharacter() {
        const QChar c = text.at(pos++);
        // The letters of C's escapes for control characters, and what they stand for.
        const qsizetype control = QStringView(u"ntrabfv").indexOf(c);
        if (control >= 0)
            return QStringView(u"\n\t\r\a\b\f\v").at(control);
        if (c == 'U') {
            // Up to four hex digits make one UTF-16 unit; the two halves of a surrogate pair,
            // written one after the other, thus join in the string.
            char16_t unit = 0;
            for (int digits = 0; digits < 4 && !atEnd() && hexDigitValue(peek()) >= 0; ++digits)
                unit = char16_t(unit << 4 | hexDigitValue(text.at(pos++)));
            return QChar(unit);
        }
        if (!isOctalDigit(c))
            return c; // "\\", "\"" and any other character stand for themselves
        // One to three octal digits name a byte in the NeXTSTEP encoding. Below 0x80 it is ASCII;
        // above, its code point is taken as it is (as in Latin-1), which the letters of the
        // NeXTSTEP table do not all match, but string tables write such characters plainly.
        char16_t value = char16_t(c.unicode() - '0');
        for (int digits = 1; digits < 3 && !atEnd() && isOctalDigit(peek()); ++digits)
            value = char16_t(value << 3 | (text.at(pos++).unicode() - '0'));
        return QChar(value);
    }

    const QString text;
    qsizetype pos = 0;
};

} // namespace

std::optional<QVariant> openStepPropertyListFromData(const QByteArray& data) {
    std::optional<QString> text = decodedText(data);
    if (!text)
        return std::nullopt;
    return OpenStepParser(std::move(*text)).parseTopLevel();
}
