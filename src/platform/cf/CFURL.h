#pragma once

// URLs, mostly of files.

#include "CFBase.h"

typedef const struct __CFURL* CFURLRef;

enum CFURLPathStyle : CFIndex {
    kCFURLPOSIXPathStyle = 0,
    kCFURLHFSPathStyle = 1,
    kCFURLWindowsPathStyle = 2
};

extern "C" {

CFTypeID CFURLGetTypeID(void);
// NULL for a string that is not a valid URL. A base URL is resolved at once: the result is an
// absolute URL, and CFURLGetString gives its whole text.
CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef URLString, CFURLRef baseURL);
// POSIX paths only. A relative path is taken relative to the current directory at the time of
// the call and the result is absolute. A directory's URL ends in a slash.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory);
CFStringRef CFURLGetString(CFURLRef anURL);
// The decoded path, without a trailing slash unless it is the root.
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
Boolean CFURLHasDirectoryPath(CFURLRef anURL);

} // extern "C"
