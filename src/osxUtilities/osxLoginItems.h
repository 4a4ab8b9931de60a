#pragma once

// The application's login items: whether it starts when the user logs in, and the switch for it.
// They work on the session list of login items (kLSSharedFileListSessionLoginItems), except
// currentApplicationIsGlobalLoginItem. The application is the main bundle; on Linux that is the
// program's executable file (NSBundle::mainBundle), and a login item is an autostart desktop
// entry (appkit/LSSharedFileList.h). A list that cannot be had changes nothing.

#include "platformCoreFoundation.h"

#include "appkit/LSSharedFileList.h"

// The last path component of the main bundle's URL, new for the caller.
CFStringRef copyCurrentBundleFileName();
// The first item whose resolved URL equals the main bundle's; null when none does. Borrowed
// from the array.
LSSharedFileListItemRef findSharedFileItemMatchingCurrentApplication(CFArrayRef items);
// Whether the names are equal, case aside, each without a final ".app" (any case) when it is at
// least 5 characters long.
bool applicationsMatchExcludingExtension(CFStringRef a, CFStringRef b);
// Whether the last path component of the item's resolved URL matches the name, or, when the item
// does not resolve (its file has moved), its display name does. False, with a log line, when it
// has neither.
bool loginItemMatchesFileName(LSSharedFileListItemRef item, CFStringRef name);
// The first item that matches; null when none does. Borrowed from the array.
LSSharedFileListItemRef findSharedFileItemMatchingName(CFArrayRef items, CFStringRef name);
bool currentApplicationIsLoginItem();
// Appends the main bundle at the end of the list.
void addLoginItemForCurrentApplicationToLoginItemList(LSSharedFileListRef list);
void addLoginItemForCurrentApplication();
// Removes every item that matches the name; a failed removal is logged and the others go on.
void removeLoginItemsMatchingName(LSSharedFileListRef list, CFStringRef name);
void removeAllUserLoginItemsForApplication(CFStringRef name);
// Adds an item only when there is none yet, or removes every one that matches the application.
void setCurrentApplicationStartAtLogin(bool start);
// As currentApplicationIsLoginItem, on the global list.
bool currentApplicationIsGlobalLoginItem();
