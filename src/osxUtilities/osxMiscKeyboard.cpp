// Keyboard, events and logging of osxMisc.

#include "osxMisc.h"

#include "appkit/Foundation.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

int getCarbonModifiers(Qt::KeyboardModifiers modifiers) {
    int carbon = 0;
    if (modifiers & Qt::AltModifier)
        carbon |= 0x800;
    if (modifiers & Qt::MetaModifier)
        carbon |= 0x100;
    if (modifiers & Qt::ShiftModifier)
        carbon |= 0x200;
    if (modifiers & Qt::ControlModifier)
        carbon |= 0x1000;
    return carbon;
}

CGEventFlags getCurrentNativeModifiers() {
    return CGEventSourceFlagsState(kCGEventSourceStateHIDSystemState);
}

bool isSecondaryFunctionKey(int keyCode) {
    static constexpr std::array<int, 29> codes = {64,  79,  80,  96,  97,  98,  99,  100, 101, 103,
                                                  105, 106, 107, 109, 111, 113, 114, 115, 116, 117,
                                                  118, 119, 120, 121, 122, 123, 124, 125, 126};
    return keyCode >= 0 && keyCode <= 127 && std::binary_search(codes.begin(), codes.end(), keyCode);
}

const char* CGEventTypeName(CGEventType type) {
    switch (type) {
    case 1:
        return "Mouse down (Left)";
    case 2:
        return "Mouse up (Left)";
    case 3:
        return "Mouse down (Right)";
    case 4:
        return "Mouse up (Right)";
    case 5:
        return "Mouse moved";
    case 6:
        return "Mouse dragged (Left)";
    case 7:
        return "Mouse dragged (Right)";
    case 10:
        return "Key down";
    case 11:
        return "Key up";
    case 12:
        return "Modifier changed";
    case 22:
        return "Scroll wheel";
    case 25:
        return "Mouse down (Other)";
    case 26:
        return "Mouse up (Other)";
    case 27:
        return "Mouse dragged (Other)";
    default:
        return "(Unknown)";
    }
}

namespace {

// One printf conversion, with the values of its "*" width and precision, formatted on its own.
template <class T>
void appendFormatted(QByteArray& out, const QByteArray& directive, const int* stars, int starCount, T value) {
    const auto print = [&](char* buffer, std::size_t size) {
        switch (starCount) {
        case 0:
            return std::snprintf(buffer, size, directive.constData(), value);
        case 1:
            return std::snprintf(buffer, size, directive.constData(), stars[0], value);
        default:
            return std::snprintf(buffer, size, directive.constData(), stars[0], stars[1], value);
        }
    };
    char buffer[512];
    const int length = print(buffer, sizeof buffer);
    if (length < 0)
        return;
    if (std::size_t(length) < sizeof buffer) {
        out.append(buffer, length);
        return;
    }
    QByteArray large(length + 1, Qt::Uninitialized);
    print(large.data(), std::size_t(large.size()));
    out.append(large.constData(), length);
}

QByteArray descriptionOf(CFTypeRef object) {
    if (!object)
        return QByteArrayLiteral("(null)");
    if (CFGetTypeID(object) == CFStringGetTypeID())
        return QStringFromCFString(static_cast<CFStringRef>(object)).toUtf8();
    const CFStringRef description = CFCopyDescription(object);
    const QByteArray text = QStringFromCFString(description).toUtf8();
    if (description)
        CFRelease(description);
    return text;
}

// Takes the argument of one conversion off the list, by its length modifier, and formats it.
void appendConversion(QByteArray& out, const QByteArray& directive, const QByteArray& length, char conversion,
                      const int* stars, int starCount, va_list& arguments) {
    const bool isSigned = std::strchr("di", conversion);
    if (std::strchr("diouxXc", conversion) && conversion != 'c') {
        if (length == "l")
            isSigned ? appendFormatted(out, directive, stars, starCount, va_arg(arguments, long))
                     : appendFormatted(out, directive, stars, starCount, va_arg(arguments, unsigned long));
        else if (length == "ll" || length == "q")
            isSigned
                ? appendFormatted(out, directive, stars, starCount, va_arg(arguments, long long))
                : appendFormatted(out, directive, stars, starCount, va_arg(arguments, unsigned long long));
        else if (length == "j")
            isSigned ? appendFormatted(out, directive, stars, starCount, va_arg(arguments, std::intmax_t))
                     : appendFormatted(out, directive, stars, starCount, va_arg(arguments, std::uintmax_t));
        else if (length == "z")
            appendFormatted(out, directive, stars, starCount, va_arg(arguments, std::size_t));
        else if (length == "t")
            appendFormatted(out, directive, stars, starCount, va_arg(arguments, std::ptrdiff_t));
        else
            isSigned ? appendFormatted(out, directive, stars, starCount, va_arg(arguments, int))
                     : appendFormatted(out, directive, stars, starCount, va_arg(arguments, unsigned int));
    } else if (conversion == 'c') {
        appendFormatted(out, directive, stars, starCount, va_arg(arguments, int));
    } else if (std::strchr("eEfFgGaA", conversion)) {
        if (length == "L")
            appendFormatted(out, directive, stars, starCount, va_arg(arguments, long double));
        else
            appendFormatted(out, directive, stars, starCount, va_arg(arguments, double));
    } else if (conversion == 's') {
        const char* text = va_arg(arguments, const char*);
        appendFormatted(out, directive, stars, starCount, text ? text : "(null)");
    } else if (conversion == 'p') {
        appendFormatted(out, directive, stars, starCount, va_arg(arguments, void*));
    } else if (conversion == '@') {
        out.append(descriptionOf(va_arg(arguments, CFTypeRef)));
    }
}

} // namespace

void qtNSLog(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    QByteArray out;
    for (const char* p = format; *p; ++p) {
        if (*p != '%') {
            out.append(*p);
            continue;
        }
        const char* start = p++;
        int stars[2] = {0, 0};
        int starCount = 0;
        p += std::strspn(p, "-+ #0'");
        for (int part = 0; part < 2; ++part) { // the width, then the precision after its "."
            if (part == 1 && *p == '.')
                ++p;
            else if (part == 1)
                break;
            if (*p == '*') {
                stars[starCount++] = va_arg(arguments, int);
                ++p;
            } else {
                p += std::strspn(p, "0123456789");
            }
        }
        const std::size_t lengthSize = std::strspn(p, "hljztLq");
        const QByteArray length(p, int(std::min<std::size_t>(lengthSize, 2)));
        p += lengthSize;
        const char conversion = *p;
        if (conversion == '%') {
            out.append('%');
        } else if (conversion && (std::strchr("diouxXeEfFgGaA", conversion) ||
                                  (length.isEmpty() && std::strchr("csp@", conversion)))) {
            const QByteArray directive(start, int(p - start + 1));
            appendConversion(out, directive, length, conversion, stars, starCount, arguments);
        } else {
            // Unknown: written as it stands, the star values already taken notwithstanding.
            out.append(start, int(p - start) + (conversion ? 1 : 0));
            if (!conversion)
                break;
        }
    }
    va_end(arguments);
    NSLog(QString::fromUtf8(out));
}
