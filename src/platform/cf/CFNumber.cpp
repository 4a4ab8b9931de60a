// Numbers. A number holds either a 64-bit integer or a double, with the storage type it was
// made from. Equality, ordering and hashing go by value across all types, as Apple's do: the
// integer 1 and the double 1.0 are equal and hash alike, 0.1 as Float32 and as Float64 are not.

#include "CFNumber.h"
#include "CFObject_p.h"

#include <QLocale>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

using CFInternal::kNumberTypeID;

namespace {

struct NumberBody {
    CFNumberType type;
    bool isFloat;
    SInt64 integer;
    Float64 real;
};

NumberBody* numberBody(CFTypeRef number) {
    return CFInternal::bodyIfType<NumberBody>(number, kNumberTypeID);
}

// How each CFNumberType lies in memory; indexed by the type, entry 0 is no type.
struct Layout {
    unsigned char size;
    bool isFloat;
};
constexpr Layout layouts[] = {
    {0, false},
    {1, false},
    {2, false},
    {4, false},
    {8, false},
    {4, true},
    {8, true},
    {sizeof(char), false},
    {sizeof(short), false},
    {sizeof(int), false},
    {sizeof(long), false},
    {sizeof(long long), false},
    {sizeof(float), true},
    {sizeof(double), true},
    {sizeof(CFIndex), false},
    {sizeof(long), false},  // NSInteger
    {sizeof(double), true}, // CGFloat, on 64-bit systems
};
static_assert(std::size(layouts) == kCFNumberMaxType + 1, "a number type lacks its layout");

const Layout* layoutOf(CFNumberType type) {
    return type >= 1 && type <= kCFNumberMaxType ? &layouts[type] : nullptr;
}

// The fixed-size type with the same layout, which is what a number keeps.
CFNumberType storageType(Layout layout) {
    if (layout.isFloat)
        return layout.size == 4 ? kCFNumberFloat32Type : kCFNumberFloat64Type;
    switch (layout.size) {
    case 1:
        return kCFNumberSInt8Type;
    case 2:
        return kCFNumberSInt16Type;
    case 4:
        return kCFNumberSInt32Type;
    default:
        return kCFNumberSInt64Type;
    }
}

template <class T> T load(const void* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <class T> void store(void* to, T value) {
    std::memcpy(to, &value, sizeof value);
}

SInt64 loadInteger(const void* from, unsigned size) {
    switch (size) {
    case 1:
        return load<SInt8>(from);
    case 2:
        return load<SInt16>(from);
    case 4:
        return load<SInt32>(from);
    default:
        return load<SInt64>(from);
    }
}

void storeInteger(void* to, unsigned size, SInt64 value) {
    switch (size) {
    case 1:
        return store(to, SInt8(value));
    case 2:
        return store(to, SInt16(value));
    case 4:
        return store(to, SInt32(value));
    default:
        return store(to, value);
    }
}

constexpr double kTwoTo63 = 9223372036854775808.0;

// The nearest signed integer of size bytes, and whether it is the number's value itself.
std::pair<SInt64, bool> toInteger(const NumberBody& number, unsigned size) {
    const SInt64 max = size >= 8 ? std::numeric_limits<SInt64>::max() : (SInt64(1) << (8 * size - 1)) - 1;
    const SInt64 min = -max - 1;
    if (!number.isFloat) {
        if (number.integer < min)
            return {min, false};
        if (number.integer > max)
            return {max, false};
        return {number.integer, true};
    }
    const double value = number.real;
    if (std::isnan(value))
        return {0, false};
    // min is a power of two, exact as a double; -min is one past max.
    if (value < double(min))
        return {min, false};
    if (value >= -double(min))
        return {max, false};
    const double truncated = std::trunc(value);
    return {SInt64(truncated), truncated == value};
}

// An integer as a floating type, and whether that is exact.
template <class Real> std::pair<Real, bool> integerToReal(SInt64 integer) {
    const Real real = Real(integer);
    return {real, real < Real(kTwoTo63) && SInt64(real) == integer};
}

std::pair<Float64, bool> toFloat64(const NumberBody& number) {
    return number.isFloat ? std::make_pair(number.real, true) : integerToReal<Float64>(number.integer);
}

std::pair<Float32, bool> toFloat32(const NumberBody& number) {
    if (!number.isFloat)
        return integerToReal<Float32>(number.integer);
    const double value = number.real;
    if (std::isnan(value) || std::isinf(value))
        return {Float32(value), true};
    if (value > FLT_MAX)
        return {FLT_MAX, false};
    if (value < -FLT_MAX)
        return {-FLT_MAX, false};
    const Float32 narrowed = Float32(value);
    return {narrowed, double(narrowed) == value};
}

int compareOrdered(double a, double b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

// Exact comparison of an integer with a double; no rounding of either.
int compareIntegerWithReal(SInt64 integer, double real) {
    if (std::isnan(real))
        return 1;
    if (real >= kTwoTo63)
        return -1;
    if (real < -kTwoTo63)
        return 1;
    const double truncated = std::trunc(real);
    const SInt64 whole = SInt64(truncated);
    if (integer != whole)
        return integer < whole ? -1 : 1;
    // Equal whole parts: the fraction decides.
    return compareOrdered(0, real - truncated);
}

int compareNumbers(const NumberBody& a, const NumberBody& b) {
    if (!a.isFloat && !b.isFloat)
        return a.integer < b.integer ? -1 : a.integer > b.integer ? 1 : 0;
    if (!a.isFloat)
        return compareIntegerWithReal(a.integer, b.real);
    if (!b.isFloat)
        return -compareIntegerWithReal(b.integer, a.real);
    // NaN equals NaN and lies below everything else, so that equality stays reflexive.
    if (std::isnan(a.real) || std::isnan(b.real))
        return std::isnan(a.real) ? (std::isnan(b.real) ? 0 : -1) : 1;
    return compareOrdered(a.real, b.real);
}

Boolean equalNumbers(CFTypeRef number1, CFTypeRef number2) {
    return compareNumbers(*numberBody(number1), *numberBody(number2)) == 0;
}

CFHashCode hashNumber(CFTypeRef number) {
    const NumberBody& body = *numberBody(number);
    if (!body.isFloat)
        return CFInternal::hashInteger(body.integer);
    const double value = body.real;
    if (std::isnan(value))
        return CFInternal::hashInteger(std::numeric_limits<SInt64>::min());
    // A whole value hashes like the integer it equals (0.0 and -0.0 alike).
    if (std::trunc(value) == value && value >= -kTwoTo63 && value < kTwoTo63)
        return CFInternal::hashInteger(SInt64(value));
    return CFInternal::hashBytes(&value, sizeof value);
}

CFStringRef describeNumber(CFTypeRef number) {
    const NumberBody& body = *numberBody(number);
    return CFInternal::createString(body.isFloat
                                        ? QString::number(body.real, 'g', QLocale::FloatingPointShortest)
                                        : QString::number(body.integer));
}

} // namespace

const CFRuntime::TypeInfo CFInternal::numberTypeInfo = {"CFNumber", nullptr, equalNumbers, hashNumber,
                                                        describeNumber};

CFTypeID CFNumberGetTypeID(void) {
    return kNumberTypeID;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr) {
    const Layout* layout = layoutOf(theType);
    if (!layout || !valuePtr)
        return nullptr;
    NumberBody body{storageType(*layout), layout->isFloat, 0, 0.0};
    if (!layout->isFloat)
        body.integer = loadInteger(valuePtr, layout->size);
    else if (layout->size == 4)
        body.real = load<Float32>(valuePtr);
    else
        body.real = load<Float64>(valuePtr);
    return static_cast<CFNumberRef>(CFRuntime::create<NumberBody>(kNumberTypeID, body));
}

CFNumberType CFNumberGetType(CFNumberRef number) {
    const NumberBody* body = numberBody(number);
    return body ? body->type : CFNumberType(0);
}

CFIndex CFNumberGetByteSize(CFNumberRef number) {
    const NumberBody* body = numberBody(number);
    return body ? layoutOf(body->type)->size : 0;
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
    const NumberBody* body = numberBody(number);
    return body && body->isFloat;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
    const NumberBody* body = numberBody(number);
    const Layout* layout = layoutOf(theType);
    if (!body || !layout || !valuePtr)
        return false;
    if (!layout->isFloat) {
        const auto [value, exact] = toInteger(*body, layout->size);
        storeInteger(valuePtr, layout->size, value);
        return exact;
    }
    if (layout->size == 4) {
        const auto [value, exact] = toFloat32(*body);
        store(valuePtr, value);
        return exact;
    }
    const auto [value, exact] = toFloat64(*body);
    store(valuePtr, value);
    return exact;
}

CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void*) {
    const NumberBody* a = numberBody(number);
    const NumberBody* b = numberBody(otherNumber);
    if (!a || !b)
        return kCFCompareEqualTo;
    const int order = compareNumbers(*a, *b);
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}
