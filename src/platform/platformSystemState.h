#pragma once

// The user's session and the display under the names of SystemConfiguration and IOKit's power
// management: the real calls on Apple systems; elsewhere session/, over systemd-logind on the
// system bus and the X server's DPMS and screen saver.

#ifdef __APPLE__
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <SystemConfiguration/SystemConfiguration.h>
#else
#include "platformCoreFoundation.h"

#include <cstdint>
#include <sys/types.h>

typedef struct __SCDynamicStore* SCDynamicStoreRef;

// The name of the user in front at the console, with uid and gid when asked for; the caller owns
// it. On Linux the user of seat0's active session as logind tells; null when seat0 has no active
// session. Where logind cannot be reached (a container, CI) the user of this process, with a
// note in the log: a machine without logind has no other session to be in front. The store may
// be null.
CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* uid, gid_t* gid);

typedef int IOReturn;
enum : IOReturn { kIOReturnSuccess = 0, kIOReturnNotFound = int(0xe00002f0) };
typedef std::uint32_t IOPMAssertionID;
typedef enum { kIOPMUserActiveLocal = 0, kIOPMUserActiveRemote = 1 } IOPMUserActiveType;

// Tells the system that the user is active: the display wakes and the idle time starts anew. On
// Linux the X server's screen saver is reset (its idle time is 0 again) and, where the server has
// DPMS, the display is turned on. kIOReturnNotFound without an X display. No assertion is held:
// assertionID, when given, is set to 0.
IOReturn IOPMAssertionDeclareUserActivity(CFStringRef assertionName, IOPMUserActiveType userType,
                                          IOPMAssertionID* assertionID);
#endif
