#pragma once

// Gestalt and the process calls of the Carbon Process Manager, answered for the desktop of the
// platform layer. On Linux, Gestalt answers the macOS version whose behaviour the layer follows
// (kLinuxLayerMacOSVersion); tests may script its answers.

#include "platformCoreFoundation.h"

#include <QHash>

#include <optional>
#include <sys/types.h>

typedef SInt32 OSStatus;
typedef SInt16 OSErr;
typedef UInt32 OSType;
typedef UInt32 OptionBits;

constexpr OSType fourCharCode(const char (&code)[5]) {
    return OSType(UInt8(code[0])) << 24 | OSType(UInt8(code[1])) << 16 | OSType(UInt8(code[2])) << 8 |
           OSType(UInt8(code[3]));
}

enum : OSType {
    gestaltSystemVersionMajor = fourCharCode("sys1"),
    gestaltSystemVersionMinor = fourCharCode("sys2"),
    gestaltSystemVersionBugFix = fourCharCode("sys3"),
};

enum : OSStatus {
    noErr = 0,
    paramErr = -50,
    procNotFound = -600,
    gestaltUndefSelectorErr = -5551,
};

enum : OptionBits { kSetFrontProcessFrontWindowOnly = 1 << 0 };

struct ProcessSerialNumber {
    UInt32 highLongOfPSN = 0;
    UInt32 lowLongOfPSN = 0;
};

// The three numbers of the macOS version that Gestalt reports on Linux.
inline constexpr SInt32 kLinuxLayerMacOSVersion[3] = {10, 15, 7};

OSErr Gestalt(OSType selector, SInt32* response);
// Replaces Gestalt's answers: a selector missing from responses answers gestaltUndefSelectorErr.
// Nullopt goes back to the platform's answers.
void setGestaltResponsesForTesting(std::optional<QHash<OSType, SInt32>> responses);

// procNotFound when no running application has this process id.
OSStatus GetProcessForPID(pid_t pid, ProcessSerialNumber* psn);
// Brings the process to the front; options: kSetFrontProcessFrontWindowOnly or 0.
OSStatus SetFrontProcessWithOptions(const ProcessSerialNumber* psn, OptionBits options);
