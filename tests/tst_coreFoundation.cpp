#include "platformTestSupport.h"
#include "testSupport.h"

#include "cf/CFRuntime.h"
#include "platformCoreFoundation.h"

#include <QObject>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace {

// Rows of data-driven tests carry factories, so that each test owns and releases its objects.
using Factory = CFTypeRef (*)();
#define MAKE(expression) Factory([]() -> CFTypeRef { return expression; })

CFStringRef utf8(const char* text) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

CFStringRef utf16(std::initializer_list<UniChar> units) {
    return CFStringCreateWithCharacters(kCFAllocatorDefault, units.begin(), CFIndex(units.size()));
}

template <class T> CFNumberRef number(CFNumberType type, T value) {
    return CFNumberCreate(kCFAllocatorDefault, type, &value);
}

CFDataRef data(const char* bytes) {
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes),
                        CFIndex(std::strlen(bytes)));
}

// Containers of new references: the container takes its own, and these are released.
template <class Container> Container adopting(Container container, std::initializer_list<CFTypeRef> values) {
    for (CFTypeRef value : values)
        CFRelease(value);
    return container;
}

CFArrayRef arrayOf(std::initializer_list<CFTypeRef> values) {
    std::vector<const void*> items(values);
    return adopting(
        CFArrayCreate(kCFAllocatorDefault, items.data(), CFIndex(items.size()), &kCFTypeArrayCallBacks),
        values);
}

CFSetRef setOf(std::initializer_list<CFTypeRef> values) {
    std::vector<const void*> items(values);
    return adopting(
        CFSetCreate(kCFAllocatorDefault, items.data(), CFIndex(items.size()), &kCFTypeSetCallBacks), values);
}

CFDictionaryRef dictionaryOf(CFTypeRef key, CFTypeRef value) {
    const void* keys[] = {key};
    const void* values[] = {value};
    return adopting(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                                       &kCFTypeDictionaryValueCallBacks),
                    {key, value});
}

QString describe(CFTypeRef object) {
    Ref<CFStringRef> description(CFCopyDescription(object));
    return QStringFromCFString(description);
}

template <class T> QByteArray bytesOf(T value) {
    return QByteArray(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T> T load(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

// A number read back as one of the fixed-size types, as qlonglong or double.
QVariant readAs(CFNumberRef value, CFNumberType type, bool* exact) {
    alignas(8) unsigned char buffer[8] = {};
    *exact = CFNumberGetValue(value, type, buffer);
    switch (type) {
    case kCFNumberSInt8Type:
        return qlonglong(load<SInt8>(buffer));
    case kCFNumberSInt32Type:
        return qlonglong(load<SInt32>(buffer));
    case kCFNumberSInt64Type:
        return qlonglong(load<SInt64>(buffer));
    case kCFNumberFloat32Type:
        return double(load<Float32>(buffer));
    default:
        return load<Float64>(buffer);
    }
}

// A provider's type, as the accessibility layer registers its element handles.
struct Handle {
    int pid;
    int id;
    int* finalized;
};

const Handle& handle(CFTypeRef object) {
    return *CFRuntime::body<Handle>(object);
}

CFTypeID handleTypeID() {
    static const CFTypeID typeID =
        CFRuntime::registerType({"TestHandle", [](CFTypeRef object) { ++*handle(object).finalized; },
                                 [](CFTypeRef a, CFTypeRef b) -> Boolean {
                                     return handle(a).pid == handle(b).pid && handle(a).id == handle(b).id;
                                 },
                                 [](CFTypeRef object) { return CFHashCode(handle(object).id); }, nullptr});
    return typeID;
}

} // namespace

Q_DECLARE_METATYPE(Factory)

class TestCoreFoundation : public QObject, private LiveObjectCheck {
    Q_OBJECT

private slots:
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    void retainAndRelease() {
        CFStringRef string = utf8("AXRole");
        QCOMPARE(CFRuntime::liveObjectCount(), liveAtStart + 1);
        QCOMPARE(CFRetain(string), CFTypeRef(string));
        QCOMPARE(CFGetRetainCount(string), CFIndex(2));
        CFRelease(string);
        QCOMPARE(CFRuntime::liveObjectCount(), liveAtStart + 1);
        CFRelease(string);
        QCOMPARE(CFRuntime::liveObjectCount(), liveAtStart);
    }

    void nullAndForeignObjects() {
        CFRelease(nullptr);
        QCOMPARE(CFRetain(nullptr), CFTypeRef(nullptr));
        QCOMPARE(CFGetTypeID(nullptr), CFRuntime::kNotATypeID);
        QCOMPARE(CFCopyDescription(nullptr), CFStringRef(nullptr));
        Ref<CFStringRef> empty(utf8(""));
        QVERIFY(CFEqual(nullptr, nullptr));
        QVERIFY(!CFEqual(nullptr, empty));
        // An object of another type gives the empty answer.
        Ref<CFNumberRef> one(number(kCFNumberSInt32Type, 1));
        QCOMPARE(CFStringGetLength(CFStringRef(CFTypeRef(one))), CFIndex(0));
        QCOMPARE(CFArrayGetCount(CFArrayRef(CFTypeRef(empty))), CFIndex(0));
    }

    void containersReleaseWhatTheyHold() {
        Ref<CFStringRef> member(utf8("member"));
        // Equal but distinct: a removal by it must release the stored member, not it.
        Ref<CFStringRef> twin(utf8("member"));
        Ref<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
        Ref<CFMutableSetRef> set(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
        Ref<CFMutableDictionaryRef> byKey(CFDictionaryCreateMutable(
            kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        Ref<CFMutableDictionaryRef> byValue(CFDictionaryCreateMutable(
            kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        CFArrayAppendValue(array, member);
        CFSetAddValue(set, member);
        CFSetAddValue(set, twin); // already a member: neither stored nor retained
        CFDictionarySetValue(byKey, member, kCFNull);
        CFDictionarySetValue(byValue, CFSTR("key"), member);
        QCOMPARE(CFGetRetainCount(member), CFIndex(5));
        QCOMPARE(CFGetRetainCount(twin), CFIndex(1));

        CFArrayRemoveValueAtIndex(array, 0);
        CFSetRemoveValue(set, twin);
        CFDictionaryRemoveValue(byKey, twin);
        CFDictionaryRemoveValue(byValue, CFSTR("key"));
        QCOMPARE(CFGetRetainCount(member), CFIndex(1));
        QCOMPARE(CFGetRetainCount(twin), CFIndex(1));

        // Finalizing a container releases its members, nested ones included.
        CFRelease(setOf({arrayOf({CFRetain(member)}), dictionaryOf(CFRetain(member), CFRetain(member))}));
        QCOMPARE(CFGetRetainCount(member), CFIndex(1));
    }

    void replacingKeepsTheValueAlive() {
        Ref<CFStringRef> other(utf8("other"));
        Ref<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
        Ref<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
            kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        // Each container holds the only reference to its value.
        CFStringRef inArray = utf8("in the array");
        CFStringRef inDictionary = utf8("in the dictionary");
        CFArrayAppendValue(array, inArray);
        CFDictionarySetValue(dictionary, CFSTR("key"), inDictionary);
        CFRelease(inArray);
        CFRelease(inDictionary);
        const CFIndex live = CFRuntime::liveObjectCount();

        // Setting the value that is already there must not free it on the way.
        CFArraySetValueAtIndex(array, 0, inArray);
        CFDictionarySetValue(dictionary, CFSTR("key"), inDictionary);
        QCOMPARE(CFRuntime::liveObjectCount(), live);
        CFArraySetValueAtIndex(array, 0, other);
        CFDictionarySetValue(dictionary, CFSTR("key"), other);
        QCOMPARE(CFRuntime::liveObjectCount(), live - 2);

        CFDictionaryAddValue(dictionary, CFSTR("key"), kCFNull);        // present: kept as it was
        CFDictionaryReplaceValue(dictionary, CFSTR("absent"), kCFNull); // absent: nothing added
        QCOMPARE(CFDictionaryGetValue(dictionary, CFSTR("key")), static_cast<const void*>(other));
        QCOMPARE(CFDictionaryGetCount(dictionary), CFIndex(1));
    }

    void setMembershipFollowsEquality() {
        Ref<CFMutableSetRef> set(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
        Ref<CFStringRef> button(utf8("AXButton"));
        Ref<CFNumberRef> one(number(kCFNumberSInt32Type, 1));
        Ref<CFNumberRef> oneAsDouble(number(kCFNumberFloat64Type, 1.0));
        CFSetAddValue(set, button);
        CFSetAddValue(set, one);
        QVERIFY(CFSetContainsValue(set, CFSTR("AXButton")));
        QVERIFY(CFSetContainsValue(set, oneAsDouble));
        QVERIFY(!CFSetContainsValue(set, kCFBooleanTrue));
        CFSetRemoveValue(set, oneAsDouble);
        QCOMPARE(CFSetGetCount(set), CFIndex(1));

        // Without callbacks a set goes by address and retains nothing.
        Ref<CFMutableSetRef> byAddress(CFSetCreateMutable(kCFAllocatorDefault, 0, nullptr));
        Ref<CFStringRef> twin(utf8("AXButton"));
        CFSetAddValue(byAddress, button);
        CFSetAddValue(byAddress, twin);
        QCOMPARE(CFSetGetCount(byAddress), CFIndex(2));
        QCOMPARE(CFGetRetainCount(twin), CFIndex(1));
    }

    void equalAndHash_data() {
        QTest::addColumn<Factory>("a");
        QTest::addColumn<Factory>("b");
        QTest::addColumn<bool>("equal");
        auto row = [](const char* name, Factory a, Factory b, bool equal) {
            QTest::newRow(name) << a << b << equal;
        };
        row("same text", MAKE(utf8("AXButton")), MAKE(utf8("AXButton")), true);
        row("UTF-8 and UTF-16 of non-ASCII", MAKE(utf8("Grüße")), MAKE(utf16({'G', 'r', 0xFC, 0xDF, 'e'})),
            true);
        row("UTF-8 and surrogate pair", MAKE(utf8("\xF0\x9D\x84\x9E")), MAKE(utf16({0xD834, 0xDD1E})), true);
        row("composed and decomposed", MAKE(utf16({0xE9})), MAKE(utf16({'e', 0x301})), false);
        row("constant and created", MAKE(CFSTR("AXTitle")), MAKE(utf8("AXTitle")), true);
        row("SInt32 1 and Float64 1.0", MAKE(number(kCFNumberSInt32Type, 1)),
            MAKE(number(kCFNumberFloat64Type, 1.0)), true);
        row("SInt8 -1 and SInt64 -1", MAKE(number(kCFNumberSInt8Type, SInt8(-1))),
            MAKE(number(kCFNumberSInt64Type, SInt64(-1))), true);
        row("Float32 0.5 and Float64 0.5", MAKE(number(kCFNumberFloat32Type, 0.5f)),
            MAKE(number(kCFNumberFloat64Type, 0.5)), true);
        row("Float32 0.1 and Float64 0.1", MAKE(number(kCFNumberFloat32Type, 0.1f)),
            MAKE(number(kCFNumberFloat64Type, 0.1)), false);
        row("2^53+1 and 2^53 as double", MAKE(number(kCFNumberSInt64Type, SInt64(9007199254740993))),
            MAKE(number(kCFNumberFloat64Type, 9007199254740992.0)), false);
        row("-0.0 and 0", MAKE(number(kCFNumberFloat64Type, -0.0)),
            MAKE(number(kCFNumberSInt16Type, SInt16(0))), true);
        row("NaN and NaN", MAKE(number(kCFNumberFloat64Type, std::nan(""))),
            MAKE(number(kCFNumberFloat32Type, std::nanf(""))), true);
        row("true and 1", MAKE(kCFBooleanTrue), MAKE(number(kCFNumberSInt32Type, 1)), false);
        row("null and null", MAKE(kCFNull), MAKE(kCFNull), true);
        row("arrays element-wise", MAKE(arrayOf({utf8("a"), number(kCFNumberSInt32Type, 1)})),
            MAKE(arrayOf({utf8("a"), number(kCFNumberFloat64Type, 1.0)})), true);
        row("arrays in another order", MAKE(arrayOf({utf8("a"), utf8("b")})),
            MAKE(arrayOf({utf8("b"), utf8("a")})), false);
        row("sets in another order", MAKE(setOf({utf8("a"), utf8("b")})), MAKE(setOf({utf8("b"), utf8("a")})),
            true);
        row("sets differing", MAKE(setOf({utf8("a"), utf8("b")})), MAKE(setOf({utf8("a"), utf8("c")})),
            false);
        row("dictionaries", MAKE(dictionaryOf(utf8("k"), number(kCFNumberSInt32Type, 2))),
            MAKE(dictionaryOf(utf8("k"), number(kCFNumberFloat32Type, 2.0f))), true);
        row("data differing", MAKE(data("\x01\x02")), MAKE(data("\x01\x03")), false);
        row("URL and its text",
            MAKE(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///t/"), nullptr)),
            MAKE(utf8("file:///t/")), false);
    }

    void equalAndHash() {
        QFETCH(Factory, a);
        QFETCH(Factory, b);
        QFETCH(bool, equal);
        Ref<CFTypeRef> first(a());
        Ref<CFTypeRef> second(b());
        QCOMPARE(bool(CFEqual(first, second)), equal);
        QCOMPARE(bool(CFEqual(second, first)), equal);
        if (equal)
            QCOMPARE(CFHash(first), CFHash(second));
    }

    void numberCompare_data() {
        QTest::addColumn<Factory>("a");
        QTest::addColumn<Factory>("b");
        QTest::addColumn<int>("order");
        QTest::newRow("-1 < -0.5") << MAKE(number(kCFNumberSInt64Type, SInt64(-1)))
                                   << MAKE(number(kCFNumberFloat64Type, -0.5)) << -1;
        // As doubles both are 2^63; exactly, the integer is one less.
        QTest::newRow("SInt64 max < 2^63")
            << MAKE(number(kCFNumberSInt64Type, std::numeric_limits<SInt64>::max()))
            << MAKE(number(kCFNumberFloat64Type, 9223372036854775808.0)) << -1;
        QTest::newRow("NaN < 0") << MAKE(number(kCFNumberFloat64Type, std::nan("")))
                                 << MAKE(number(kCFNumberSInt8Type, SInt8(0))) << -1;
    }

    void numberCompare() {
        QFETCH(Factory, a);
        QFETCH(Factory, b);
        QFETCH(int, order);
        Ref<CFNumberRef> first(static_cast<CFNumberRef>(a()));
        Ref<CFNumberRef> second(static_cast<CFNumberRef>(b()));
        QCOMPARE(int(CFNumberCompare(first, second, nullptr)), order);
        QCOMPARE(int(CFNumberCompare(second, first, nullptr)), -order);
    }

    void numberTypes_data() {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("storedType"); // 0: no number
        QTest::addColumn<int>("byteSize");
        QTest::newRow("Char") << int(kCFNumberCharType) << bytesOf(char(5)) << int(kCFNumberSInt8Type) << 1;
        QTest::newRow("Short") << int(kCFNumberShortType) << bytesOf(short(5)) << int(kCFNumberSInt16Type)
                               << 2;
        QTest::newRow("Int") << int(kCFNumberIntType) << bytesOf(5) << int(kCFNumberSInt32Type) << 4;
        QTest::newRow("Long") << int(kCFNumberLongType) << bytesOf(5L) << int(kCFNumberSInt64Type) << 8;
        QTest::newRow("CFIndex") << int(kCFNumberCFIndexType) << bytesOf(CFIndex(5))
                                 << int(kCFNumberSInt64Type) << 8;
        QTest::newRow("Float") << int(kCFNumberFloatType) << bytesOf(5.0f) << int(kCFNumberFloat32Type) << 4;
        QTest::newRow("CGFloat") << int(kCFNumberCGFloatType) << bytesOf(5.0) << int(kCFNumberFloat64Type)
                                 << 8;
        QTest::newRow("no type 0") << 0 << bytesOf(5) << 0 << 0;
        QTest::newRow("no type 17") << 17 << bytesOf(5) << 0 << 0;
    }

    void numberTypes() {
        QFETCH(int, type);
        QFETCH(QByteArray, value);
        QFETCH(int, storedType);
        QFETCH(int, byteSize);
        Ref<CFNumberRef> created(CFNumberCreate(kCFAllocatorDefault, CFNumberType(type), value.constData()));
        QCOMPARE(bool(created), storedType != 0);
        if (!created)
            return;
        QCOMPARE(int(CFNumberGetType(created)), storedType);
        QCOMPARE(CFNumberGetByteSize(created), CFIndex(byteSize));
        QCOMPARE(bool(CFNumberIsFloatType(created)), storedType >= kCFNumberFloat32Type);
        bool exact = false;
        QCOMPARE(readAs(created, kCFNumberSInt64Type, &exact), QVariant(qlonglong(5)));
        QVERIFY(exact);
    }

    void numberGetValue_data() {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<QVariant>("expected");
        QTest::addColumn<bool>("exact");
        const int s8 = kCFNumberSInt8Type, s32 = kCFNumberSInt32Type, s64 = kCFNumberSInt64Type;
        const int f32 = kCFNumberFloat32Type, f64 = kCFNumberFloat64Type;
        const qlonglong int64Max = std::numeric_limits<SInt64>::max();
        auto row = [](const char* name, QByteArray value, int from, int to, QVariant expected, bool exact) {
            QTest::newRow(name) << value << from << to << expected << exact;
        };
        row("127 fits SInt8", bytesOf(SInt32(127)), s32, s8, qlonglong(127), true);
        row("300 clamps to SInt8", bytesOf(SInt32(300)), s32, s8, qlonglong(127), false);
        row("-129 clamps to SInt8", bytesOf(SInt32(-129)), s32, s8, qlonglong(-128), false);
        row("-2.75 truncates toward zero", bytesOf(-2.75), f64, s32, qlonglong(-2), false);
        row("3.0 is exact", bytesOf(3.0), f64, s32, qlonglong(3), true);
        row("1e10 clamps to SInt32", bytesOf(1e10), f64, s32, qlonglong(INT_MAX), false);
        row("2^63 clamps to SInt64", bytesOf(9223372036854775808.0), f64, s64, int64Max, false);
        row("-2^63 is SInt64 min", bytesOf(-9223372036854775808.0), f64, s64, -int64Max - 1, true);
        row("NaN to integer", bytesOf(std::nan("")), f64, s32, qlonglong(0), false);
        row("2^53+1 to double", bytesOf(SInt64(9007199254740993)), s64, f64, 9007199254740992.0, false);
        row("SInt64 max to double", bytesOf(SInt64(int64Max)), s64, f64, 9223372036854775808.0, false);
        row("2^24+1 to Float32", bytesOf(SInt32(16777217)), s32, f32, 16777216.0, false);
        row("0.1 to Float32", bytesOf(0.1), f64, f32, double(0.1f), false);
        row("0.5 to Float32", bytesOf(0.5), f64, f32, 0.5, true);
        row("1e300 clamps to Float32", bytesOf(1e300), f64, f32, double(FLT_MAX), false);
        row("Float32 0.1 widens", bytesOf(0.1f), f32, f64, double(0.1f), true);
    }

    void numberGetValue() {
        QFETCH(QByteArray, value);
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(QVariant, expected);
        QFETCH(bool, exact);
        Ref<CFNumberRef> created(CFNumberCreate(kCFAllocatorDefault, CFNumberType(from), value.constData()));
        bool wasExact = !exact;
        QCOMPARE(readAs(created, CFNumberType(to), &wasExact), expected);
        QCOMPARE(wasExact, exact);
    }

    void qStringRoundTrip_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("units");
        QTest::newRow("null") << QString() << 0;
        QTest::newRow("empty") << QStringLiteral("") << 0;
        QTest::newRow("non-ASCII") << QStringLiteral("Grüße") << 5;
        QTest::newRow("non-BMP") << QString::fromUcs4(U"\U0001D11Ex") << 3;
        QTest::newRow("embedded NUL") << QString::fromUtf16(u"a\0b", 3) << 3;
        QTest::newRow("lone surrogate") << QString(QChar(0xD800)) << 1;
    }

    void qStringRoundTrip() {
        QFETCH(QString, text);
        QFETCH(int, units);
        Ref<CFStringRef> string(CFStringCreateWithQString(text));
        QVERIFY(string);
        QCOMPARE(CFStringGetLength(string), CFIndex(units));
        QCOMPARE(QStringFromCFString(string), text);
        QVERIFY(QStringFromCFString(nullptr).isNull());
    }

    void cStrings_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<uint>("encoding");
        QTest::addColumn<int>("bufferSize");
        QTest::addColumn<QByteArray>("expected"); // null: the conversion fails
        const uint utf8 = kCFStringEncodingUTF8;
        const QString clef = QString::fromUcs4(U"\U0001D11E");
        QTest::newRow("fits exactly") << QStringLiteral("AXRole") << utf8 << 7 << QByteArray("AXRole");
        QTest::newRow("no room for NUL") << QStringLiteral("AXRole") << utf8 << 6 << QByteArray();
        QTest::newRow("two-byte character") << QStringLiteral("é") << utf8 << 3 << QByteArray("\xC3\xA9");
        QTest::newRow("surrogate pair") << clef << utf8 << 5 << QByteArray("\xF0\x9D\x84\x9E");
        QTest::newRow("lone surrogate") << QString(QChar(0xD800)) << utf8 << 8 << QByteArray();
        QTest::newRow("non-ASCII as ASCII")
            << QStringLiteral("é") << uint(kCFStringEncodingASCII) << 8 << QByteArray();
        QTest::newRow("Latin 1") << QStringLiteral("é") << uint(kCFStringEncodingISOLatin1) << 2
                                 << QByteArray("\xE9");
        QTest::newRow("UTF-16") << QStringLiteral("a") << uint(kCFStringEncodingUTF16) << 8 << QByteArray();
    }

    void cStrings() {
        QFETCH(QString, text);
        QFETCH(uint, encoding);
        QFETCH(int, bufferSize);
        QFETCH(QByteArray, expected);
        Ref<CFStringRef> string(CFStringCreateWithQString(text));
        QByteArray buffer(bufferSize, '\x7f');
        QCOMPARE(bool(CFStringGetCString(string, buffer.data(), bufferSize, encoding)), !expected.isNull());
        if (expected.isNull())
            return;
        QCOMPARE(QByteArray(buffer.constData()), expected);
        QVERIFY(CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), encoding) >= expected.size());
        Ref<CFStringRef> back(CFStringCreateWithCString(kCFAllocatorDefault, buffer.constData(), encoding));
        QVERIFY(CFEqual(back, string));
    }

    void stringsFromBytes_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<uint>("encoding");
        QTest::addColumn<QString>("expected"); // null: no string
        const QString clef = QString::fromUcs4(U"\U0001D11E");
        QTest::newRow("UTF-8 cut short") << QByteArray("a\xC3") << uint(kCFStringEncodingUTF8) << QString();
        QTest::newRow("UTF-8 overlong") << QByteArray("\xC0\xAF") << uint(kCFStringEncodingUTF8) << QString();
        QTest::newRow("ASCII high byte") << QByteArray("\xE9") << uint(kCFStringEncodingASCII) << QString();
        QTest::newRow("UTF-16BE") << QByteArray("\xD8\x34\xDD\x1E", 4) << uint(kCFStringEncodingUTF16BE)
                                  << clef;
        QTest::newRow("UTF-16LE") << QByteArray("\x34\xD8\x1E\xDD", 4) << uint(kCFStringEncodingUTF16LE)
                                  << clef;
        QTest::newRow("UTF-16 marked big-endian")
            << QByteArray("\xFE\xFF\x00\x41", 4) << uint(kCFStringEncodingUTF16) << QStringLiteral("A");
        QTest::newRow("UTF-16 odd length")
            << QByteArray("\x00\x41\x00", 3) << uint(kCFStringEncodingUTF16BE) << QString();
        QTest::newRow("Mac Roman beyond ASCII")
            << QByteArray("a\x8A") << uint(kCFStringEncodingMacRoman) << QString();
        QTest::newRow("Windows Latin 1 like ISO Latin 1")
            << QByteArray("\xE9") << uint(kCFStringEncodingWindowsLatin1) << QStringLiteral("é");
        QTest::newRow("unsupported encoding")
            << QByteArray("a\0\0\0", 4) << uint(kCFStringEncodingUTF32) << QString();
    }

    void stringsFromBytes() {
        QFETCH(QByteArray, bytes);
        QFETCH(uint, encoding);
        QFETCH(QString, expected);
        Ref<CFStringRef> string(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                        reinterpret_cast<const UInt8*>(bytes.constData()),
                                                        bytes.size(), encoding, false));
        QCOMPARE(bool(string), !expected.isNull());
        if (string)
            QCOMPARE(QStringFromCFString(string), expected);
    }

    void stringCompare_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("options");
        QTest::addColumn<int>("order");
        QTest::newRow("equal") << "AXRole"
                               << "AXRole" << 0 << 0;
        QTest::newRow("lower case after upper") << "axrole"
                                                << "AXRole" << 0 << 1;
        QTest::newRow("case-insensitive") << "axrole"
                                          << "AXRole" << int(kCFCompareCaseInsensitive) << 0;
        QTest::newRow("prefix first") << "AX"
                                      << "AXRole" << 0 << -1;
    }

    void stringCompare() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, options);
        QFETCH(int, order);
        Ref<CFStringRef> first(CFStringCreateWithQString(a));
        Ref<CFStringRef> second(CFStringCreateWithQString(b));
        QCOMPARE(int(CFStringCompare(first, second, CFStringCompareFlags(options))), order);
        QCOMPARE(int(CFStringCompare(second, first, CFStringCompareFlags(options))), -order);
    }

    void stringFind_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("needle");
        QTest::addColumn<int>("options");
        QTest::addColumn<int>("location");
        QTest::newRow("at the start") << "AXRole"
                                      << "AX" << 0 << 0;
        QTest::newRow("first") << "AXMenuItemMenu"
                               << "Menu" << 0 << 2;
        QTest::newRow("backwards") << "AXMenuItemMenu"
                                   << "Menu" << int(kCFCompareBackwards) << 10;
        QTest::newRow("anchored misses") << "AXMenuItemMenu"
                                         << "Menu" << int(kCFCompareAnchored) << -1;
        QTest::newRow("anchored backwards") << "AXMenuItemMenu"
                                            << "Menu" << int(kCFCompareAnchored | kCFCompareBackwards) << 10;
        QTest::newRow("case-insensitive") << "AXButton"
                                          << "button" << int(kCFCompareCaseInsensitive) << 2;
        QTest::newRow("case-sensitive") << "AXButton"
                                        << "button" << 0 << -1;
        QTest::newRow("empty needle") << "abc"
                                      << "" << 0 << -1;
        QTest::newRow("needle longer") << "ab"
                                       << "abc" << 0 << -1;
        QTest::newRow("after a surrogate pair") << QString::fromUcs4(U"\U0001D11Ex") << "x" << 0 << 2;
    }

    void stringFind() {
        QFETCH(QString, text);
        QFETCH(QString, needle);
        QFETCH(int, options);
        QFETCH(int, location);
        Ref<CFStringRef> string(CFStringCreateWithQString(text));
        Ref<CFStringRef> find(CFStringCreateWithQString(needle));
        const CFRange found = CFStringFind(string, find, CFStringCompareFlags(options));
        QCOMPARE(found.location, location < 0 ? kCFNotFound : CFIndex(location));
        QCOMPARE(found.length, location < 0 ? CFIndex(0) : CFIndex(needle.size()));
        if (options == 0)
            QCOMPARE(bool(CFStringHasPrefix(string, find)), location == 0);
    }

    void findAndReplace_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("find");
        QTest::addColumn<QString>("replacement");
        QTest::addColumn<int>("location");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("options");
        QTest::addColumn<QString>("result");
        QTest::newRow("all") << "a-b-c"
                             << "-"
                             << "+" << 0 << 5 << 0 << "a+b+c";
        QTest::newRow("within range") << "a-b-c"
                                      << "-"
                                      << "+" << 2 << 3 << 0 << "a-b+c";
        QTest::newRow("anchored backwards")
            << "--x--"
            << "-"
            << "" << 0 << 5 << int(kCFCompareAnchored | kCFCompareBackwards) << "--x-";
        QTest::newRow("case-insensitive") << "aAa"
                                          << "a"
                                          << "b" << 0 << 3 << int(kCFCompareCaseInsensitive) << "bbb";
        QTest::newRow("not overlapping") << "aaaa"
                                         << "aa"
                                         << "b" << 0 << 4 << 0 << "bb";
        QTest::newRow("replacement holds the needle") << "ab"
                                                      << "a"
                                                      << "aa" << 0 << 2 << 0 << "aab";
        QTest::newRow("range beyond the end") << "abc"
                                              << "a"
                                              << "b" << 2 << 5 << 0 << "abc";
    }

    void findAndReplace() {
        QFETCH(QString, text);
        QFETCH(QString, find);
        QFETCH(QString, replacement);
        QFETCH(int, location);
        QFETCH(int, length);
        QFETCH(int, options);
        QFETCH(QString, result);
        Ref<CFStringRef> original(CFStringCreateWithQString(text));
        Ref<CFMutableStringRef> string(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, original));
        Ref<CFStringRef> findString(CFStringCreateWithQString(find));
        Ref<CFStringRef> replacementString(CFStringCreateWithQString(replacement));
        const CFIndex count =
            CFStringFindAndReplace(string, findString, replacementString, CFRangeMake(location, length),
                                   CFStringCompareFlags(options));
        QCOMPARE(QStringFromCFString(string), result);
        // Each replacement changes the length by the difference of the two texts.
        QCOMPARE(result.size() - text.size(), count * (replacement.size() - find.size()));
    }

    void mutableStrings() {
        Ref<CFMutableStringRef> string(CFStringCreateMutable(kCFAllocatorDefault, 0));
        CFStringAppend(string, CFSTR("AX"));
        CFStringAppendCString(string, "Menü", kCFStringEncodingUTF8);
        CFStringAppend(string, string);
        CFStringDelete(string, CFRangeMake(6, 2));
        CFStringDelete(string, CFRangeMake(9, 2)); // beyond the end: refused
        QCOMPARE(QStringFromCFString(string), QStringLiteral("AXMenüMenü"));

        // A copy of a mutable string does not follow it; an immutable string is its own copy.
        Ref<CFStringRef> copy(CFStringCreateCopy(kCFAllocatorDefault, string));
        CFStringAppend(string, CFSTR("Item"));
        QCOMPARE(QStringFromCFString(copy), QStringLiteral("AXMenüMenü"));
        Ref<CFStringRef> copyOfCopy(CFStringCreateCopy(kCFAllocatorDefault, copy));
        QCOMPARE(CFStringRef(copyOfCopy), CFStringRef(copy));
        CFStringAppend(const_cast<CFMutableStringRef>(CFStringRef(copy)), CFSTR("x")); // immutable: refused
        QCOMPARE(CFStringGetLength(copy), CFIndex(10));
    }

    void intValue_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("value");
        QTest::newRow("blanks, sign and tail") << "  -56x" << -56;
        QTest::newRow("no digits") << "abc" << 0;
        QTest::newRow("largest") << "2147483647" << INT_MAX;
        QTest::newRow("too large") << "99999999999999999999" << INT_MAX;
        QTest::newRow("too small") << "-99999999999" << INT_MIN;
    }

    void intValue() {
        QFETCH(QString, text);
        QFETCH(int, value);
        Ref<CFStringRef> string(CFStringCreateWithQString(text));
        QCOMPARE(int(CFStringGetIntValue(string)), value);
    }

    void constantStrings() {
        CFStringRef title = CFSTR("AXTitle");
        QCOMPARE(CFRuntime::liveObjectCount(), liveAtStart); // constants are not counted
        QCOMPARE(CFSTR("AXTitle"), title);                   // one object for every use of a text
        QCOMPARE(QStringFromCFString(CFSTR("Grüße")), QStringLiteral("Grüße"));

        // Immortal: more releases than retains leave it intact, containers included.
        const CFIndex count = CFGetRetainCount(title);
        for (int i = 0; i < 3; ++i)
            CFRelease(title);
        CFRelease(arrayOf({title}));
        QCOMPARE(CFGetRetainCount(title), count);
        QCOMPARE(QStringFromCFString(title), QStringLiteral("AXTitle"));
    }

    void descriptions_data() {
        QTest::addColumn<Factory>("object");
        QTest::addColumn<QString>("text");
        QTest::newRow("integer") << MAKE(number(kCFNumberSInt32Type, -42)) << "-42";
        QTest::newRow("empty array") << MAKE(arrayOf({})) << "()";
        QTest::newRow("nested array")
            << MAKE(arrayOf({utf8("a"), number(kCFNumberSInt32Type, 1),
                             arrayOf({utf8("b"), number(kCFNumberFloat64Type, 2.5)}), kCFNull}))
            << "(a, 1, (b, 2.5), <null>)";
        QTest::newRow("set of an array") << MAKE(setOf({arrayOf({utf8("x")})})) << "{((x))}";
        QTest::newRow("dictionary") << MAKE(dictionaryOf(utf8("k"), arrayOf({utf8("v"), kCFBooleanFalse})))
                                    << "{k = (v, false)}";
        QTest::newRow("data") << MAKE(data("\x01\xff")) << "<01ff>";
        QTest::newRow("URL") << MAKE(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/tmp/a b"),
                                                                   kCFURLPOSIXPathStyle, false))
                             << "file:///tmp/a%20b";
    }

    void descriptions() {
        QFETCH(Factory, object);
        QFETCH(QString, text);
        Ref<CFTypeRef> value(object());
        QCOMPARE(describe(value), text);
    }

    void typeNames() {
        const std::pair<CFTypeID, const char*> names[] = {
            {CFStringGetTypeID(), "CFString"},   {CFNumberGetTypeID(), "CFNumber"},
            {CFBooleanGetTypeID(), "CFBoolean"}, {CFNullGetTypeID(), "CFNull"},
            {CFArrayGetTypeID(), "CFArray"},     {CFSetGetTypeID(), "CFSet"},
            {CFURLGetTypeID(), "CFURL"},         {CFDataGetTypeID(), "CFData"},
            {handleTypeID(), "TestHandle"}};
        for (const auto& [typeID, name] : names) {
            Ref<CFStringRef> description(CFCopyTypeIDDescription(typeID));
            QCOMPARE(QStringFromCFString(description), QString::fromLatin1(name));
        }
        QCOMPARE(CFCopyTypeIDDescription(CFRuntime::kNotATypeID), CFStringRef(nullptr));
        QCOMPARE(CFCopyTypeIDDescription(100000), CFStringRef(nullptr));
    }

    void arrays() {
        // The empty array that stands in for a missing list of children.
        Ref<CFArrayRef> empty(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
        QCOMPARE(CFArrayGetCount(empty), CFIndex(0));
        QVERIFY(!CFArrayGetValueAtIndex(empty, 0));

        Ref<CFArrayRef> array(arrayOf({utf8("a"), utf8("b"), utf8("a")}));
        QCOMPARE(CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 3), CFSTR("a")), CFIndex(0));
        QCOMPARE(CFArrayGetFirstIndexOfValue(array, CFRangeMake(1, 2), CFSTR("a")), CFIndex(2));
        QCOMPARE(CFArrayGetFirstIndexOfValue(array, CFRangeMake(1, 3), CFSTR("a")), kCFNotFound);
        QVERIFY(!CFArrayContainsValue(array, CFRangeMake(0, 3), CFSTR("c")));
        QVERIFY(!CFArrayGetValueAtIndex(array, -1));
        QVERIFY(!CFArrayGetValueAtIndex(array, 3));
        const void* values[2] = {};
        CFArrayGetValues(array, CFRangeMake(1, 2), values);
        QVERIFY(CFEqual(values[0], CFSTR("b")) && CFEqual(values[1], CFSTR("a")));

        Ref<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array));
        CFArrayRemoveValueAtIndex(copy, 3); // out of range: refused
        CFArrayInsertValueAtIndex(copy, 0, CFSTR("z"));
        QCOMPARE(describe(copy), QStringLiteral("(z, a, b, a)"));
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(CFArrayRef(array)),
                           CFSTR("x")); // immutable: refused
        QCOMPARE(CFArrayGetCount(array), CFIndex(3));
    }

    void dictionaryLookup() {
        // A key given twice keeps the later value; lookups go by equality.
        const void* keys[] = {CFSTR("AXTrustedCheckOptionPrompt"), CFSTR("AXTrustedCheckOptionPrompt")};
        const void* values[] = {kCFBooleanFalse, kCFBooleanTrue};
        Ref<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 2,
                                                        &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
        Ref<CFStringRef> key(utf8("AXTrustedCheckOptionPrompt"));
        QCOMPARE(CFDictionaryGetCount(options), CFIndex(1));
        QCOMPARE(CFDictionaryGetValue(options, key), static_cast<const void*>(kCFBooleanTrue));
        const void* found = nullptr;
        QVERIFY(!CFDictionaryGetValueIfPresent(options, CFSTR("missing"), &found));
    }

    void urls_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("isDirectory");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("lastComponent");
        QTest::newRow("blank and umlaut") << "/tmp/a b/ü.txt" << false << "file:///tmp/a%20b/%C3%BC.txt"
                                          << "ü.txt";
        QTest::newRow("directory") << "/tmp/dir" << true << "file:///tmp/dir/"
                                   << "dir";
        QTest::newRow("root") << "/" << true << "file:///"
                              << "/";
        QTest::newRow("hash sign") << "/tmp/x#1" << false << "file:///tmp/x%231"
                                   << "x#1";
    }

    void urls() {
        QFETCH(QString, path);
        QFETCH(bool, isDirectory);
        QFETCH(QString, url);
        QFETCH(QString, lastComponent);
        Ref<CFStringRef> pathString(CFStringCreateWithQString(path));
        Ref<CFURLRef> fileURL(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, pathString,
                                                            kCFURLPOSIXPathStyle, isDirectory));
        QCOMPARE(QStringFromCFString(CFURLGetString(fileURL)), url);
        QCOMPARE(bool(CFURLHasDirectoryPath(fileURL)), isDirectory);
        Ref<CFStringRef> pathBack(CFURLCopyFileSystemPath(fileURL, kCFURLPOSIXPathStyle));
        QCOMPARE(QStringFromCFString(pathBack), path);
        Ref<CFStringRef> last(CFURLCopyLastPathComponent(fileURL));
        QCOMPARE(QStringFromCFString(last), lastComponent);
        Ref<CFURLRef> parsed(CFURLCreateWithString(kCFAllocatorDefault, CFURLGetString(fileURL), nullptr));
        QVERIFY(CFEqual(parsed, fileURL));
    }

    void urlStrings() {
        QVERIFY(!CFURLCreateWithString(kCFAllocatorDefault, CFSTR("has blanks in it"), nullptr));
        Ref<CFURLRef> base(
            CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///Applications/"), nullptr));
        Ref<CFURLRef> resolved(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("Pro%20Tools.app"), base));
        QCOMPARE(QStringFromCFString(CFURLGetString(resolved)),
                 QStringLiteral("file:///Applications/Pro%20Tools.app"));
    }

    void registeredTypes() {
        int finalized = 0;
        {
            Ref<CFTypeRef> element(CFRuntime::create<Handle>(handleTypeID(), 100, 7, &finalized));
            Ref<CFTypeRef> sameElement(CFRuntime::create<Handle>(handleTypeID(), 100, 7, &finalized));
            Ref<CFTypeRef> otherElement(CFRuntime::create<Handle>(handleTypeID(), 100, 8, &finalized));
            QCOMPARE(CFGetTypeID(element), handleTypeID());
            QVERIFY(!CFEqual(element, otherElement));
            QVERIFY(describe(element).startsWith(QLatin1String("<TestHandle 0x")));
            // A visited set finds an element again through another handle on it.
            Ref<CFSetRef> visited(setOf({CFRetain(element)}));
            QVERIFY(CFSetContainsValue(visited, sameElement));
            QVERIFY(!CFSetContainsValue(visited, otherElement));
            QCOMPARE(finalized, 0);
        }
        QCOMPARE(finalized, 3);
        QCOMPARE(CFRuntime::registerType({nullptr, nullptr, nullptr, nullptr, nullptr}),
                 CFRuntime::kNotATypeID);
        QVERIFY(!CFRuntime::createInstance(CFRuntime::kNotATypeID, 8));
        QVERIFY(!CFRuntime::createInstance(100000, 8));
    }

    void retainCountsAcrossThreads() {
        constexpr int threadCount = 4;
        Ref<CFStringRef> shared(utf8("shared"));
        // The threads start counting together, so that their retains and releases overlap.
        std::atomic<int> ready{0};
        std::vector<std::unique_ptr<QThread>> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back(QThread::create([&shared, &ready] {
                ready.fetch_add(1);
                while (ready.load() < threadCount)
                    QThread::yieldCurrentThread();
                for (int i = 0; i < 200000; ++i)
                    CFRelease(CFRetain(shared));
                for (int i = 0; i < 1000; ++i)
                    CFRelease(utf8("own"));
            }));
            threads.back()->start();
        }
        for (auto& thread : threads)
            thread->wait();
        QCOMPARE(CFGetRetainCount(shared), CFIndex(1));
    }
};

UIET_TEST_MAIN(TestCoreFoundation)
#include "tst_coreFoundation.moc"
