#pragma once

// Launch Services' shared file lists, as far as the login items go. On Linux they are the XDG
// autostart entries: the session list is what starts when the user logs in, the desktop entries
// in $XDG_CONFIG_HOME/autostart (default ~/.config/autostart) together with those of the
// autostart folders of $XDG_CONFIG_DIRS (default /etc/xdg) that no user file of the same name
// overrides; a user file with Hidden=true takes the system entry of its name away. The global
// list is the entries of the system folders alone, and can only be read.
//
// An item is one entry that stands for an application (parseDesktopEntry): its display name is
// the entry's Name, its URL that of the first word of Exec, looked up in $PATH when it is no
// path. The folders have no order: a snapshot lists the user's entries by file name, then the
// system's.

#include "Processes.h"
#include "platformCoreFoundation.h"

#include <QString>

typedef struct OpaqueLSSharedFileListRef* LSSharedFileListRef;
typedef struct OpaqueLSSharedFileListItemRef* LSSharedFileListItemRef;
typedef struct OpaqueIconRef* IconRef;
struct FSRef;

enum : OSStatus {
    ioErr = -36,
    fnfErr = -43,
    wrPermErr = -61,
};

enum : UInt32 {
    kLSSharedFileListNoUserInteraction = 1,
    kLSSharedFileListDoNotMountVolumes = 2,
};

extern const CFStringRef kLSSharedFileListSessionLoginItems;
extern const CFStringRef kLSSharedFileListGlobalLoginItems;
extern const LSSharedFileListItemRef kLSSharedFileListItemBeforeFirst;
extern const LSSharedFileListItemRef kLSSharedFileListItemLast;

// A new list, released by the caller; NULL for other list types.
LSSharedFileListRef LSSharedFileListCreate(CFAllocatorRef allocator, CFStringRef listType,
                                           CFTypeRef listOptions);
// A new array of the items as they are now, released by the caller; NULL for a NULL list.
CFArrayRef LSSharedFileListCopySnapshot(LSSharedFileListRef list, UInt32* outSnapshotSeed);
// Writes a user entry for the program at the file URL: Type=Application, the display name (else
// the URL's last path component) as Name, the path as Exec, quoted where the desktop entry format
// asks for it. The entry's file is named after the program, with a number added when an entry of
// that name already starts something else. A new item, released by the caller; NULL when the
// list is the global one, the URL no file URL, or the file cannot be written. Where the item goes
// is immaterial, as autostart has no order.
LSSharedFileListItemRef LSSharedFileListInsertItemURL(LSSharedFileListRef list,
                                                      LSSharedFileListItemRef insertAfterThisItem,
                                                      CFStringRef inDisplayName, IconRef inIconRef,
                                                      CFURLRef inURL, CFDictionaryRef inPropertiesToSet,
                                                      CFArrayRef inPropertiesToClear);
// Deletes the item's user entry; where a system entry of the same file name would then start the
// program, or the item is a system entry, writes a user entry with Hidden=true instead. wrPermErr
// for the global list, ioErr when the folder cannot be changed.
OSStatus LSSharedFileListItemRemove(LSSharedFileListRef list, LSSharedFileListItemRef item);
// The program's URL, new for the caller, with symbolic links resolved; fnfErr when it is not
// there. The flags change nothing here: nothing is ever mounted or asked. outRef must be NULL.
OSStatus LSSharedFileListItemResolve(LSSharedFileListItemRef item, UInt32 inFlags, CFURLRef* outURL,
                                     FSRef* outRef);
// A new string; NULL when the entry has no Name.
CFStringRef LSSharedFileListItemCopyDisplayName(LSSharedFileListItemRef item);

// The value of a desktop entry's Exec key that runs the program at this path with no arguments
// (the quoting of the Exec key, then the escapes of a string value).
QString desktopEntryExecValue(const QString& programPath);
