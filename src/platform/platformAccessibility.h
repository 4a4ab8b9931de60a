#pragma once

// The accessibility functions for the code above the platform seam: Apple's framework on Apple
// systems, the functions in ax/ elsewhere, which dispatch to the active accessibility provider.
// Code includes this header, never either of the two directly.

#include "platformCoreFoundation.h"

#ifdef __APPLE__
#include <ApplicationServices/ApplicationServices.h>

// Private to Apple's accessibility library, so no header of the framework declares it.
extern "C" AXError _AXUIElementGetWindow(AXUIElementRef element, CGWindowID* windowID);

// The framework reads as it likes; a batch of reads means nothing to it.
class AXReadBatch {};
#else
#include "ax/AXUIElement.h"
#endif
