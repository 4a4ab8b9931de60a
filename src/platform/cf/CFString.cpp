// Strings. The text is a QString: UTF-16 like Apple's strings, so lengths, indices and ranges
// count the same units, and a surrogate pair is two of them.

#include "CFObject_p.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QStringDecoder>
#include <QStringEncoder>

#include <algorithm>
#include <climits>
#include <cstring>
#include <optional>
#include <vector>

using CFInternal::kStringTypeID;

namespace {

struct StringBody {
    QString text;
    bool isMutable;
};

StringBody* stringBody(CFTypeRef string) {
    return CFInternal::bodyIfType<StringBody>(string, kStringTypeID);
}

// Mutating an immutable string is a crash on Apple; here it is refused.
StringBody* mutableStringBody(CFMutableStringRef string) {
    StringBody* body = stringBody(string);
    return body && body->isMutable ? body : nullptr;
}

CFMutableStringRef makeString(const QString& text, bool isMutable) {
    auto* object = CFRuntime::create<StringBody>(kStringTypeID, text, isMutable);
    return static_cast<CFMutableStringRef>(const_cast<void*>(object));
}

Boolean equalStrings(CFTypeRef string1, CFTypeRef string2) {
    return stringBody(string1)->text == stringBody(string2)->text;
}

CFHashCode hashString(CFTypeRef string) {
    const QString& text = stringBody(string)->text;
    return CFInternal::hashBytes(text.constData(), std::size_t(text.size()) * sizeof(QChar));
}

CFStringRef describeString(CFTypeRef string) {
    return CFStringCreateCopy(kCFAllocatorDefault, static_cast<CFStringRef>(string));
}

// Encodings.

bool isSingleByteEncoding(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingASCII || encoding == kCFStringEncodingISOLatin1 ||
           encoding == kCFStringEncodingMacRoman || encoding == kCFStringEncodingWindowsLatin1;
}

// Whether a single-byte encoding gives the character value the byte value: all of ISO Latin 1,
// the ASCII half of Mac Roman, Windows Latin 1 except its block of punctuation at 0x80 to 0x9F.
// Other characters of those encodings are not supported.
bool encodesAsItself(CFStringEncoding encoding, char16_t value) {
    switch (encoding) {
    case kCFStringEncodingISOLatin1:
        return value < 0x100;
    case kCFStringEncodingWindowsLatin1:
        return value < 0x80 || (value >= 0xA0 && value < 0x100);
    default:
        return value < 0x80;
    }
}

bool isEightBitEncoding(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUTF8 || isSingleByteEncoding(encoding);
}

bool hostIsBigEndian() {
    const UInt16 probe = 0x0102;
    unsigned char first;
    std::memcpy(&first, &probe, 1);
    return first == 0x01;
}

std::optional<QString> decodeUtf16(const UInt8* bytes, CFIndex count, CFStringEncoding encoding) {
    if (count % 2 != 0)
        return std::nullopt;
    bool bigEndian = encoding == kCFStringEncodingUTF16BE;
    if (encoding == kCFStringEncodingUTF16) {
        // Host order unless a byte order mark says otherwise; the mark is not part of the text.
        bigEndian = hostIsBigEndian();
        if (count >= 2 &&
            ((bytes[0] == 0xFE && bytes[1] == 0xFF) || (bytes[0] == 0xFF && bytes[1] == 0xFE))) {
            bigEndian = bytes[0] == 0xFE;
            bytes += 2;
            count -= 2;
        }
    }
    QString text(count / 2, Qt::Uninitialized);
    for (CFIndex i = 0; i < count / 2; ++i) {
        const UInt8 high = bigEndian ? bytes[2 * i] : bytes[2 * i + 1];
        const UInt8 low = bigEndian ? bytes[2 * i + 1] : bytes[2 * i];
        text[i] = QChar(char16_t(high << 8 | low));
    }
    return text;
}

std::optional<QString> decode(const UInt8* bytes, CFIndex count, CFStringEncoding encoding) {
    const char* chars = reinterpret_cast<const char*>(bytes);
    if (isSingleByteEncoding(encoding)) {
        for (CFIndex i = 0; i < count; ++i)
            if (!encodesAsItself(encoding, bytes[i]))
                return std::nullopt;
        return QString::fromLatin1(chars, count);
    }
    switch (encoding) {
    case kCFStringEncodingUTF8: {
        // A leading byte order mark stays in the text: the bytes are taken as they are.
        QStringDecoder decoder(QStringConverter::Utf8,
                               QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
        QString text = decoder(QByteArrayView(chars, count));
        if (decoder.hasError())
            return std::nullopt;
        return text;
    }
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
        return decodeUtf16(bytes, count, encoding);
    default:
        return std::nullopt;
    }
}

// The text in an 8-bit encoding; nothing when a character has no place in it.
std::optional<QByteArray> encodeEightBit(const QString& text, CFStringEncoding encoding) {
    if (isSingleByteEncoding(encoding)) {
        for (QChar c : text)
            if (!encodesAsItself(encoding, c.unicode()))
                return std::nullopt;
        return text.toLatin1();
    }
    if (encoding != kCFStringEncodingUTF8)
        return std::nullopt;
    // A lone surrogate has no UTF-8 form.
    QStringEncoder encoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    QByteArray bytes = encoder(text);
    if (encoder.hasError())
        return std::nullopt;
    return bytes;
}

Qt::CaseSensitivity caseSensitivity(CFStringCompareFlags options) {
    return options & kCFCompareCaseInsensitive ? Qt::CaseInsensitive : Qt::CaseSensitive;
}

// Where needle occurs within range of text, as a position in the whole text; -1 when it
// does not. An empty needle occurs nowhere.
qsizetype findIn(const QString& text, const QString& needle, CFRange range, CFStringCompareFlags options) {
    if (needle.isEmpty() || !CFInternal::rangeWithin(range, text.size()))
        return -1;
    const QStringView scope = QStringView(text).mid(range.location, range.length);
    const Qt::CaseSensitivity cs = caseSensitivity(options);
    const bool backwards = options & kCFCompareBackwards;
    qsizetype at = -1;
    if (options & kCFCompareAnchored) {
        if (backwards ? scope.endsWith(needle, cs) : scope.startsWith(needle, cs))
            at = backwards ? scope.size() - needle.size() : 0;
    } else {
        at = backwards ? scope.lastIndexOf(needle, -1, cs) : scope.indexOf(needle, 0, cs);
    }
    return at < 0 ? -1 : range.location + at;
}

CFRange wholeRange(const QString& text) {
    return CFRangeMake(0, text.size());
}

} // namespace

const CFRuntime::TypeInfo CFInternal::stringTypeInfo = {"CFString", &CFRuntime::destroyBody<StringBody>,
                                                        equalStrings, hashString, describeString};

CFStringRef CFInternal::createString(const QString& text) {
    return makeString(text, false);
}

QString CFInternal::stringText(CFTypeRef string) {
    const StringBody* body = stringBody(string);
    return body ? body->text : QString();
}

CFStringRef CFInternal::constantString(const char* utf8) {
    // Never destroyed, so constants stay valid through the destructors of other statics.
    static QBasicMutex mutex;
    static auto* constants = new QHash<QByteArray, CFStringRef>;
    QMutexLocker locker(&mutex);
    CFStringRef& constant = (*constants)[QByteArray(utf8)];
    if (!constant)
        constant = static_cast<CFStringRef>(
            CFRuntime::createImmortal<StringBody>(kStringTypeID, QString::fromUtf8(utf8), false));
    return constant;
}

CFTypeID CFStringGetTypeID(void) {
    return kStringTypeID;
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars) {
    if (numChars < 0 || (!chars && numChars > 0))
        return nullptr;
    return makeString(QString(reinterpret_cast<const QChar*>(chars), numChars), false);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr, CFStringEncoding encoding) {
    if (!cStr || !isEightBitEncoding(encoding))
        return nullptr;
    return CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8*>(cStr), CFIndex(std::strlen(cStr)),
                                   encoding, false);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean) {
    if (numBytes < 0 || (!bytes && numBytes > 0))
        return nullptr;
    const std::optional<QString> text = decode(bytes, numBytes, encoding);
    return text ? makeString(*text, false) : nullptr;
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef, CFStringRef str, CFRange range) {
    const StringBody* body = stringBody(str);
    if (!body || !CFInternal::rangeWithin(range, body->text.size()))
        return nullptr;
    return makeString(body->text.mid(range.location, range.length), false);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef theString) {
    const StringBody* body = stringBody(theString);
    if (!body)
        return nullptr;
    // An immutable string is its own copy, as on Apple.
    if (!body->isMutable)
        return static_cast<CFStringRef>(CFRetain(theString));
    return makeString(body->text, false);
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef, CFIndex) {
    return makeString(QString(), true);
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef theString) {
    const StringBody* body = stringBody(theString);
    return body ? makeString(body->text, true) : nullptr;
}

CFIndex CFStringGetLength(CFStringRef theString) {
    const StringBody* body = stringBody(theString);
    return body ? body->text.size() : 0;
}

UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx) {
    const StringBody* body = stringBody(theString);
    if (!body || idx < 0 || idx >= body->text.size())
        return 0;
    return body->text.at(idx).unicode();
}

void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer) {
    const StringBody* body = stringBody(theString);
    if (!body || !buffer || !CFInternal::rangeWithin(range, body->text.size()))
        return;
    std::memcpy(buffer, body->text.constData() + range.location, std::size_t(range.length) * sizeof(UniChar));
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) {
    const StringBody* body = stringBody(theString);
    if (!body || !buffer || bufferSize <= 0)
        return false;
    const std::optional<QByteArray> bytes = encodeEightBit(body->text, encoding);
    if (!bytes || bytes->size() >= bufferSize)
        return false;
    std::memcpy(buffer, bytes->constData(), std::size_t(bytes->size()));
    buffer[bytes->size()] = '\0';
    return true;
}

const char* CFStringGetCStringPtr(CFStringRef, CFStringEncoding) {
    return nullptr;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    CFIndex bytesPerUnit = 1;
    switch (encoding) {
    case kCFStringEncodingASCII:
    case kCFStringEncodingISOLatin1:
    case kCFStringEncodingMacRoman:
    case kCFStringEncodingWindowsLatin1:
        break;
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
        bytesPerUnit = 2;
        break;
    case kCFStringEncodingUTF8:
        // A surrogate pair takes four bytes for two units; any other unit at most three.
        bytesPerUnit = 3;
        break;
    default:
        return kCFNotFound;
    }
    if (length < 0 || length > LONG_MAX / bytesPerUnit)
        return kCFNotFound;
    return length * bytesPerUnit;
}

SInt32 CFStringGetIntValue(CFStringRef str) {
    const QString text = CFInternal::stringText(str);
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+'))
        negative = text.at(i++) == u'-';
    // Magnitudes beyond the range of SInt32 give its limits.
    SInt64 magnitude = 0;
    for (; i < text.size() && text.at(i) >= u'0' && text.at(i) <= u'9'; ++i)
        magnitude = std::min<SInt64>(magnitude * 10 + (text.at(i).unicode() - u'0'), SInt64(INT_MAX) + 1);
    const SInt64 value = negative ? -magnitude : magnitude;
    return SInt32(std::clamp<SInt64>(value, INT_MIN, INT_MAX));
}

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions) {
    const int order = QString::compare(CFInternal::stringText(theString1), CFInternal::stringText(theString2),
                                       caseSensitivity(compareOptions));
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix) {
    const QString text = CFInternal::stringText(theString);
    return findIn(text, CFInternal::stringText(prefix), wholeRange(text), kCFCompareAnchored) >= 0;
}

Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix) {
    const QString text = CFInternal::stringText(theString);
    return findIn(text, CFInternal::stringText(suffix), wholeRange(text),
                  kCFCompareAnchored | kCFCompareBackwards) >= 0;
}

CFRange CFStringFind(CFStringRef theString, CFStringRef stringToFind, CFStringCompareFlags compareOptions) {
    CFRange result;
    if (!CFStringFindWithOptions(theString, stringToFind, CFRangeMake(0, CFStringGetLength(theString)),
                                 compareOptions, &result))
        result = CFRangeMake(kCFNotFound, 0);
    return result;
}

Boolean CFStringFindWithOptions(CFStringRef theString, CFStringRef stringToFind, CFRange rangeToSearch,
                                CFStringCompareFlags searchOptions, CFRange* result) {
    const QString needle = CFInternal::stringText(stringToFind);
    const qsizetype at = findIn(CFInternal::stringText(theString), needle, rangeToSearch, searchOptions);
    if (at < 0)
        return false;
    if (result)
        *result = CFRangeMake(at, needle.size());
    return true;
}

void CFStringAppend(CFMutableStringRef theString, CFStringRef appendedString) {
    if (StringBody* body = mutableStringBody(theString))
        body->text += CFInternal::stringText(appendedString);
}

void CFStringAppendCString(CFMutableStringRef theString, const char* cStr, CFStringEncoding encoding) {
    CFStringRef appended = CFStringCreateWithCString(kCFAllocatorDefault, cStr, encoding);
    CFStringAppend(theString, appended);
    CFRelease(appended);
}

void CFStringDelete(CFMutableStringRef theString, CFRange range) {
    StringBody* body = mutableStringBody(theString);
    if (body && CFInternal::rangeWithin(range, body->text.size()))
        body->text.remove(range.location, range.length);
}

CFIndex CFStringFindAndReplace(CFMutableStringRef theString, CFStringRef stringToFind,
                               CFStringRef replacementString, CFRange rangeToSearch,
                               CFStringCompareFlags compareOptions) {
    StringBody* body = mutableStringBody(theString);
    if (!body)
        return 0;
    const QString needle = CFInternal::stringText(stringToFind);
    std::vector<qsizetype> matches;
    if (compareOptions & kCFCompareAnchored) {
        const qsizetype at = findIn(body->text, needle, rangeToSearch, compareOptions);
        if (at >= 0)
            matches.push_back(at);
    } else {
        // Non-overlapping matches from the front, whichever direction was asked for.
        const CFStringCompareFlags forward = compareOptions & ~CFStringCompareFlags(kCFCompareBackwards);
        const CFIndex end = rangeToSearch.location + rangeToSearch.length;
        CFRange rest = rangeToSearch;
        for (qsizetype at; (at = findIn(body->text, needle, rest, forward)) >= 0;) {
            matches.push_back(at);
            rest = CFRangeMake(at + needle.size(), end - (at + needle.size()));
        }
    }
    // From the back, so that the positions of earlier matches stay where they were.
    const QString replacement = CFInternal::stringText(replacementString);
    for (auto at = matches.rbegin(); at != matches.rend(); ++at)
        body->text.replace(*at, needle.size(), replacement);
    return CFIndex(matches.size());
}
