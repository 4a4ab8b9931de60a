#include "settingsReadGuard.h"

#include "generalUtilities.h"

#include <QDataStream>
#include <QIODevice>
#include <QMetaType>
#include <QStringDecoder>
#include <QStringList>

namespace {

// The INI reading below follows QSettings' own, far enough to see every string that it hands to
// its value conversion. Where it simplifies, it sees more, never less: a payload is checked from
// any "@Variant(" inside an item, not only at its start, and to the item's end before trailing
// blanks are cut.

enum CharTrait { Space = 1, Special = 2 };

int charTrait(char c) {
    switch (c) {
    case '\t':
    case ' ':
        return Space;
    case '\n':
    case '\r':
        return Space | Special;
    case '"':
    case ';':
    case '=':
    case '\\':
        return Special;
    default:
        return 0;
    }
}

struct IniLine {
    qsizetype start = 0;
    qsizetype length = 0;
    qsizetype equalsPos = -1;
};

// The next logical line from `pos`: quotes and backslashes carry it over line ends, and comment
// lines at its start are skipped.
bool readIniLine(QByteArrayView data, qsizetype& pos, IniLine& line) {
    const qsizetype size = data.size();
    bool inQuotes = false;
    line.equalsPos = -1;
    line.start = pos;
    while (line.start < size && (charTrait(data[line.start]) & Space))
        ++line.start;

    qsizetype i = line.start;
    while (i < size) {
        char ch = data[i];
        while (!(charTrait(ch) & Special)) {
            if (++i == size)
                break;
            ch = data[i];
        }
        if (i == size)
            break;
        ++i;
        if (ch == '=') {
            if (!inQuotes && line.equalsPos == -1)
                line.equalsPos = i - 1;
        } else if (ch == '\n' || ch == '\r') {
            if (i == line.start + 1) {
                ++line.start;
            } else if (!inQuotes) {
                --i;
                break;
            }
        } else if (ch == '\\') {
            if (i < size) {
                const char escaped = data[i++];
                if (i < size) {
                    const char next = data[i];
                    if ((escaped == '\n' && next == '\r') || (escaped == '\r' && next == '\n'))
                        ++i;
                }
            }
        } else if (ch == '"') {
            inQuotes = !inQuotes;
        } else { // ';'
            if (i == line.start + 1) {
                while (i < size && data[i] != '\n' && data[i] != '\r')
                    ++i;
                while (i < size && (charTrait(data[i]) & Space))
                    ++i;
                line.start = i;
            } else if (!inQuotes) {
                --i;
                break;
            }
        }
    }
    pos = i;
    line.length = i - line.start;
    return line.length > 0;
}

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

char16_t simpleEscape(char c) {
    switch (c) {
    case 'a':
        return '\a';
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'v':
        return '\v';
    case '"':
    case '?':
    case '\'':
    case '\\':
        return char16_t(c);
    default:
        return 0;
    }
}

// The items of one value after unescaping: one, or several when unquoted commas make it a list.
QStringList unescapedIniValue(QByteArrayView value) {
    QStringList items(1);
    QStringDecoder fromUtf8(QStringDecoder::Utf8);
    bool inQuotes = false;
    const qsizetype size = value.size();
    qsizetype i = 0;
    auto skipBlanks = [&] {
        while (i < size && (value[i] == ' ' || value[i] == '\t'))
            ++i;
    };
    skipBlanks();
    while (i < size) {
        const char ch = value[i];
        if (ch == '\\') {
            if (++i >= size)
                break;
            const char code = value[i++];
            if (const char16_t simple = simpleEscape(code)) {
                items.last() += QChar(simple);
            } else if (code == 'x' || (code >= '0' && code <= '7')) {
                // Digits run on without limit; the value wraps at 16 bits, as a QChar does.
                const int base = code == 'x' ? 16 : 8;
                char16_t escaped = code == 'x' ? 0 : char16_t(code - '0');
                const bool hasDigits = code != 'x' || (i < size && hexDigitValue(value[i]) >= 0);
                while (i < size) {
                    const int digit = hexDigitValue(value[i]);
                    if (digit < 0 || digit >= base)
                        break;
                    escaped = char16_t(escaped * base + digit);
                    ++i;
                }
                if (hasDigits)
                    items.last() += QChar(escaped);
            } else if (code == '\n' || code == '\r') {
                if (i < size && (value[i] == '\n' || value[i] == '\r') && value[i] != code)
                    ++i;
            }
        } else if (ch == '"') {
            ++i;
            inQuotes = !inQuotes;
            if (!inQuotes)
                skipBlanks();
        } else if (ch == ',' && !inQuotes) {
            items.append(QString());
            ++i;
            skipBlanks();
        } else {
            qsizetype end = i + 1;
            while (end < size && value[end] != '\\' && value[end] != '"' && value[end] != ',')
                ++end;
            items.last() += fromUtf8(value.sliced(i, end - i));
            i = end;
        }
    }
    return items;
}

// Stream type ids of older stream versions, moved to the ids of today, as QVariant reads them.
int currentTypeId(quint32 streamed, int version) {
    constexpr quint32 qt5UserType = 1024, qt5FirstGuiType = 64, qt5LastGuiType = 87, qt5SizePolicy = 121;
    if (version < QDataStream::Qt_5_0) {
        if (streamed == 127)
            streamed = qt5UserType;
        else if (streamed >= 128 && streamed != qt5UserType)
            streamed -= 97;
        else if (streamed == 75)
            streamed = qt5SizePolicy;
        else if (streamed > 75 && streamed <= 86)
            streamed -= 1;
    }
    if (version < QDataStream::Qt_6_0) {
        if (streamed == qt5UserType)
            streamed = QMetaType::User;
        else if (streamed >= qt5FirstGuiType && streamed <= qt5LastGuiType)
            streamed += QMetaType::FirstGuiType - qt5FirstGuiType;
        else if (streamed == qt5SizePolicy)
            streamed = QMetaType::QSizePolicy;
    }
    return int(streamed);
}

enum class Verdict { ReadOn, QtStopsHere, Refused };

class VariantPayloadCheck {
public:
    VariantPayloadCheck(const QByteArray& payload, QDataStream::Version version) : stream(payload) {
        stream.setVersion(version);
    }

    Verdict variant(int depth) {
        quint32 streamedId = 0;
        stream >> streamedId;
        if (stream.status() != QDataStream::Ok)
            return Verdict::QtStopsHere;
        const int id = currentTypeId(streamedId, stream.version());
        if (stream.version() >= QDataStream::Qt_4_2) {
            qint8 isNull = 0;
            stream >> isNull;
        }
        QMetaType type;
        if (id != QMetaType::User) {
            type = QMetaType(id);
        } else {
            QByteArray name;
            stream >> name;
            type = QMetaType::fromName(name);
            if (!type.isValid())
                return Verdict::QtStopsHere;
        }
        // A type registered by the program, by name or by number, streams in its own way: a
        // list of them makes room for as many items as its count claims.
        if (type.isValid() && type.id() >= QMetaType::User && type.hasRegisteredDataStreamOperators())
            return refuse(QStringLiteral("a value of type %1, whose stream form cannot be checked")
                              .arg(QString::fromLatin1(type.name())));
        if (!type.isValid()) {
            // Older streams carry a string in place of the missing value.
            if (stream.version() < QDataStream::Qt_5_0)
                return skip<QString>();
            return Verdict::ReadOn;
        }
        // Its stream carries the address of a function, which the curve would later call.
        if (type.id() == QMetaType::QEasingCurve)
            return refuse(QStringLiteral("a value of type QEasingCurve, which carries a function address"));
        if (typeNeedsGuiApplication(type.id()))
            return refuse(QStringLiteral("a value of type %1").arg(QString::fromLatin1(type.name())));
        return value(type, depth);
    }

    QString problem;

private:
    static constexpr int maximumDepth = 64;

    Verdict refuse(const QString& why) {
        problem = why;
        return Verdict::Refused;
    }

    template <typename T> Verdict skip() {
        T ignored;
        stream >> ignored;
        return stream.status() == QDataStream::Ok ? Verdict::ReadOn : Verdict::QtStopsHere;
    }

    // Only the types that can hold other variants are read through, and the sequences that Qt
    // makes room for before reading. A single value of any other type cannot hold a pixmap, but
    // its length is known only for a few.
    Verdict value(QMetaType type, int depth) {
        if (depth > maximumDepth)
            return refuse(QStringLiteral("variants nested more than %1 deep").arg(maximumDepth));
        switch (type.id()) {
        case QMetaType::QVariantList:
            return sequence(4, [this, depth] { return variant(depth + 1); });
        case QMetaType::QVariantMap:
        case QMetaType::QVariantHash:
            return sequence(8, [this, depth] {
                const Verdict key = skip<QString>();
                return key == Verdict::ReadOn ? variant(depth + 1) : key;
            });
        case QMetaType::QVariantPair: {
            const Verdict first = variant(depth + 1);
            return first == Verdict::ReadOn ? variant(depth + 1) : first;
        }
        case QMetaType::QStringList:
            return sequence(4, [this] { return skip<QString>(); });
        case QMetaType::QByteArrayList:
            return sequence(4, [this] { return skip<QByteArray>(); });
        case QMetaType::QPolygon:
            return sequence(8, [this] { return skipBytes(8); });
        case QMetaType::QPolygonF:
            return sequence(16, [this] { return skipBytes(16); });
        case QMetaType::Bool:
            return skipBytes(1);
        case QMetaType::Int:
        case QMetaType::UInt:
            return skipBytes(4);
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
            return skipBytes(8);
        case QMetaType::QString:
            return skip<QString>();
        case QMetaType::QByteArray:
            return skip<QByteArray>();
        default:
            // The rest of the stream cannot be followed. With a GUI nothing in it could abort;
            // without one, only a top-level value is known to be plain.
            if (depth == 0 || guiApplicationIsRunning())
                return Verdict::QtStopsHere;
            return refuse(QStringLiteral("a value of type %1 inside a container, which cannot be checked")
                              .arg(QString::fromLatin1(type.name())));
        }
    }

    Verdict skipBytes(int count) {
        return stream.skipRawData(count) == count ? Verdict::ReadOn : Verdict::QtStopsHere;
    }

    // Qt reserves room for all items of a sequence before it reads one: a count beyond what the
    // rest of the payload could hold would ask for gigabytes.
    template <typename ReadItem> Verdict sequence(qint64 smallestItemSize, ReadItem readItem) {
        quint32 count = 0;
        stream >> count;
        if (stream.status() != QDataStream::Ok)
            return Verdict::QtStopsHere;
        if (count > stream.device()->bytesAvailable() / smallestItemSize)
            return refuse(
                QStringLiteral("a sequence of %1 items, more than its bytes could hold").arg(count));
        for (quint32 index = 0; index < count; ++index) {
            const Verdict item = readItem();
            if (item != Verdict::ReadOn)
                return item;
        }
        return Verdict::ReadOn;
    }

    QDataStream stream;
};

// The payload of every "@Variant(" and "@DateTime(" in one unescaped item, in the byte form and
// stream version in which QSettings reads it.
bool itemIsReadableHere(const QString& item, QString* problem) {
    static const struct {
        QLatin1StringView prefix;
        QDataStream::Version version;
    } conversions[] = {{QLatin1StringView("@Variant("), QDataStream::Qt_4_0},
                       {QLatin1StringView("@DateTime("), QDataStream::Qt_5_6}};
    for (const auto& conversion : conversions) {
        for (qsizetype at = item.indexOf(conversion.prefix); at >= 0;
             at = item.indexOf(conversion.prefix, at + 1)) {
            const QByteArray payload = QStringView(item).sliced(at + conversion.prefix.size()).toLatin1();
            VariantPayloadCheck check(payload, conversion.version);
            if (check.variant(0) == Verdict::Refused) {
                if (problem)
                    *problem = check.problem;
                return false;
            }
        }
    }
    return true;
}

} // namespace

bool typeNeedsGuiApplication(int typeId) {
    switch (typeId) {
    case QMetaType::QPixmap:
    case QMetaType::QBitmap:
    case QMetaType::QCursor:
    case QMetaType::QIcon:
    case QMetaType::QBrush:
    case QMetaType::QPen:
    case QMetaType::QPalette:
    case QMetaType::QTextFormat:
        return !guiApplicationIsRunning();
    default:
        return false;
    }
}

bool iniTextIsReadableHere(QByteArrayView text, QString* problem) {
    // Neither a conversion nor an escape that could spell one: nothing to follow.
    if (!text.contains('@') && !text.contains('\\'))
        return true;
    if (text.startsWith("\xef\xbb\xbf"))
        text = text.sliced(3);
    qsizetype pos = 0;
    IniLine line;
    while (readIniLine(text, pos, line)) {
        if (text[line.start] == '[' || line.equalsPos < 0)
            continue;
        const QByteArrayView value =
            text.sliced(line.equalsPos + 1, line.start + line.length - line.equalsPos - 1);
        for (const QString& item : unescapedIniValue(value))
            if (!itemIsReadableHere(item, problem))
                return false;
    }
    return true;
}
