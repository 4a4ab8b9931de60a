#pragma once

// Strings: immutable and mutable UTF-16 texts.

#include "CFBase.h"

typedef UInt32 CFStringEncoding;

enum CFStringBuiltInEncodings : CFStringEncoding {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingWindowsLatin1 = 0x0500,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingNextStepLatin = 0x0B01,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUnicode = 0x0100,
    kCFStringEncodingUTF8 = 0x08000100,
    kCFStringEncodingNonLossyASCII = 0x0BFF,
    kCFStringEncodingUTF16 = 0x0100,
    kCFStringEncodingUTF16BE = 0x10000100,
    kCFStringEncodingUTF16LE = 0x14000100,
    kCFStringEncodingUTF32 = 0x0c000100,
    kCFStringEncodingUTF32BE = 0x18000100,
    kCFStringEncodingUTF32LE = 0x1c000100
};

#define kCFStringEncodingInvalidId (0xffffffffU)

typedef CFOptionFlags CFStringCompareFlags;
enum : CFOptionFlags {
    kCFCompareCaseInsensitive = 1,
    kCFCompareBackwards = 4,
    kCFCompareAnchored = 8,
    kCFCompareNonliteral = 16,
    kCFCompareLocalized = 32,
    kCFCompareNumerically = 64,
    kCFCompareDiacriticInsensitive = 128,
    kCFCompareWidthInsensitive = 256,
    kCFCompareForcedOrdering = 512
};

namespace CFInternal {
// The string behind CFSTR: one immortal string per distinct text, shared by every use of it.
CFStringRef constantString(const char* utf8);
} // namespace CFInternal

// A string constant from a literal (UTF-8). Never freed; retain and release leave it alone.
// Each use site remembers its string after the first evaluation.
#define CFSTR(cStr)                                                                                          \
    ([]() -> CFStringRef {                                                                                   \
        static const CFStringRef constant = CFInternal::constantString("" cStr "");                          \
        return constant;                                                                                     \
    }())

extern "C" {

CFTypeID CFStringGetTypeID(void);

// Supported encodings: UTF-8, ASCII, ISO Latin 1, UTF-16 (host order with an optional byte
// order mark, big or little endian), and of Mac Roman and Windows Latin 1 the characters they
// share with ISO Latin 1. Bytes that are not valid in the encoding give NULL, as does any other
// encoding.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars, CFIndex numChars);
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr, CFStringEncoding encoding);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithSubstring(CFAllocatorRef alloc, CFStringRef str, CFRange range);
CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);
// maxLength is not enforced.
CFMutableStringRef CFStringCreateMutable(CFAllocatorRef alloc, CFIndex maxLength);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength, CFStringRef theString);

CFIndex CFStringGetLength(CFStringRef theString);
UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx);
void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);
// C strings are 8-bit: UTF-8 or one of the single-byte encodings.
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
// Always NULL here, which Apple allows: callers fall back to CFStringGetCString.
const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
SInt32 CFStringGetIntValue(CFStringRef str);

// Comparisons are literal, by UTF-16 code unit. Of the options, kCFCompareCaseInsensitive,
// kCFCompareBackwards and kCFCompareAnchored are honoured; the others are ignored.
CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions);
Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix);
Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix);
CFRange CFStringFind(CFStringRef theString, CFStringRef stringToFind, CFStringCompareFlags compareOptions);
Boolean CFStringFindWithOptions(CFStringRef theString, CFStringRef stringToFind, CFRange rangeToSearch,
                                CFStringCompareFlags searchOptions, CFRange* result);

void CFStringAppend(CFMutableStringRef theString, CFStringRef appendedString);
void CFStringAppendCString(CFMutableStringRef theString, const char* cStr, CFStringEncoding encoding);
void CFStringDelete(CFMutableStringRef theString, CFRange range);
CFIndex CFStringFindAndReplace(CFMutableStringRef theString, CFStringRef stringToFind,
                               CFStringRef replacementString, CFRange rangeToSearch,
                               CFStringCompareFlags compareOptions);

} // extern "C"
