#pragma once

// Unordered collections of distinct values; distinct by the equal and hash callbacks.

#include "CFBase.h"

typedef const struct __CFSet* CFSetRef;
typedef struct __CFSet* CFMutableSetRef;

typedef const void* (*CFSetRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFSetReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFSetCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFSetEqualCallBack)(const void* value1, const void* value2);
typedef CFHashCode (*CFSetHashCallBack)(const void* value);

typedef struct {
    CFIndex version;
    CFSetRetainCallBack retain;
    CFSetReleaseCallBack release;
    CFSetCopyDescriptionCallBack copyDescription;
    CFSetEqualCallBack equal;
    CFSetHashCallBack hash;
} CFSetCallBacks;

extern "C" {

// Values that are CF objects: retained while in the set, told apart by CFEqual and CFHash.
extern const CFSetCallBacks kCFTypeSetCallBacks;

CFTypeID CFSetGetTypeID(void);
CFSetRef CFSetCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                     const CFSetCallBacks* callBacks);
// capacity is not enforced.
CFMutableSetRef CFSetCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                   const CFSetCallBacks* callBacks);

CFIndex CFSetGetCount(CFSetRef theSet);
Boolean CFSetContainsValue(CFSetRef theSet, const void* value);
// The member equal to value, or NULL.
const void* CFSetGetValue(CFSetRef theSet, const void* value);
void CFSetGetValues(CFSetRef theSet, const void** values);

// Does nothing when an equal value is already a member.
void CFSetAddValue(CFMutableSetRef theSet, const void* value);
void CFSetRemoveValue(CFMutableSetRef theSet, const void* value);
void CFSetRemoveAllValues(CFMutableSetRef theSet);

} // extern "C"
