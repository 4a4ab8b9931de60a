#pragma once

// The accessibility functions, with Apple's names and signatures. Each one is answered by the
// active accessibility provider (AccessibilityProvider.h); docs/platform-accessibility.md tells
// which provider that is and where the answers differ from Apple's.
//
// As on Apple, every Copy and Create function hands the caller one reference, and a function
// that fails leaves NULL in its out argument.

#include "AXError.h"
#include "AXValue.h"
#include "CGBase.h"
#include "cf/CFArray.h"
#include "cf/CFDictionary.h"
#include "cf/CFString.h"

#include <sys/types.h>

#include <memory>

// A handle on one element of one application. Two handles are the same element when CFEqual
// says so; they are never compared by address.
typedef const struct __AXUIElement* AXUIElementRef;

extern "C" {

CFTypeID AXUIElementGetTypeID(void);

AXUIElementRef AXUIElementCreateSystemWide(void);
// A handle on the application element of a process. It does not prove that the process
// exists: reads through it fail with kAXErrorCannotComplete when it does not. NULL for a pid
// below 1.
AXUIElementRef AXUIElementCreateApplication(pid_t pid);

// application is the system-wide element or an application element; the point is in global
// coordinates with a top-left origin.
AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                         AXUIElementRef* element);

AXError AXUIElementCopyAttributeNames(AXUIElementRef element, CFArrayRef* names);
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef* value);
// Only for attributes whose value is an array; kAXErrorIllegalArgument for any other.
AXError AXUIElementGetAttributeValueCount(AXUIElementRef element, CFStringRef attribute, CFIndex* count);
AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute, Boolean* settable);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);

AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef* names);
AXError AXUIElementCopyActionDescription(AXUIElementRef element, CFStringRef action,
                                         CFStringRef* description);
AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);

// Answered from the handle itself, without asking the application, so it works on an element
// that has died. The system-wide element belongs to no process: kAXErrorIllegalArgument.
AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid);

// Private on Apple systems: the window server's id of the window that holds an element.
AXError _AXUIElementGetWindow(AXUIElementRef element, CGWindowID* windowID);

Boolean AXIsProcessTrusted(void);
// options may hold kAXTrustedCheckOptionPrompt with kCFBooleanTrue: ask the user to grant
// access when it is not granted yet.
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options);
Boolean AXAPIEnabled(void);
extern const CFStringRef kAXTrustedCheckOptionPrompt;

} // extern "C"

// Not Apple's: marks the reads that the calling thread makes while it lives as one walk through
// the hierarchy (a resolution), which the provider may answer from what it read in bulk earlier
// in the same walk. Apple's framework keeps no such thing; there it is an empty class.
class AXReadBatch {
public:
    AXReadBatch();
    ~AXReadBatch();
    AXReadBatch(const AXReadBatch&) = delete;
    AXReadBatch& operator=(const AXReadBatch&) = delete;

private:
    // The provider that the batch began on ends it, whichever is active by then.
    std::shared_ptr<class AccessibilityProvider> provider;
};
