#pragma once

// The CoreFoundation subset of the platform layer: what code above the seam gets in place of
// <CoreFoundation/CoreFoundation.h> on systems other than Apple's. Include it through
// platformCoreFoundation.h.

#include "CFArray.h"
#include "CFBase.h"
#include "CFData.h"
#include "CFDictionary.h"
#include "CFNumber.h"
#include "CFSet.h"
#include "CFString.h"
#include "CFURL.h"
