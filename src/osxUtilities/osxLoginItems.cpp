#include "osxLoginItems.h"

#include "CFTypeSmartRef.h"
#include "appkit/Foundation.h"
#include "appkit/NSBundle.h"

namespace {

CFURLRef copyMainBundleURL() {
    const CFTypeSmartRef<CFStringRef> path(CFStringCreateWithQString(NSBundle::mainBundle()->bundlePath()));
    return CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, false);
}

LSSharedFileListRef createList(CFStringRef type) {
    return LSSharedFileListCreate(nullptr, type, nullptr);
}

LSSharedFileListItemRef itemAt(CFArrayRef items, CFIndex index) {
    return static_cast<LSSharedFileListItemRef>(const_cast<void*>(CFArrayGetValueAtIndex(items, index)));
}

// The item's URL, new for the caller; null when it does not resolve.
CFURLRef copyResolvedURL(LSSharedFileListItemRef item) {
    CFURLRef url = nullptr;
    LSSharedFileListItemResolve(item, kLSSharedFileListNoUserInteraction | kLSSharedFileListDoNotMountVolumes,
                                &url, nullptr);
    return url;
}

QString withoutAppExtension(const QString& name) {
    return name.size() >= 5 && name.endsWith(QLatin1String(".app"), Qt::CaseInsensitive) ? name.chopped(4)
                                                                                         : name;
}

// Whether one of the list's items matches the application's file name.
bool listHasCurrentApplication(LSSharedFileListRef list) {
    const CFTypeSmartRef<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
    const CFTypeSmartRef<CFStringRef> name(copyCurrentBundleFileName());
    return items && findSharedFileItemMatchingName(items, name);
}

} // namespace

CFStringRef copyCurrentBundleFileName() {
    const CFTypeSmartRef<CFURLRef> url(copyMainBundleURL());
    return url ? CFURLCopyLastPathComponent(url) : nullptr;
}

LSSharedFileListItemRef findSharedFileItemMatchingCurrentApplication(CFArrayRef items) {
    const CFTypeSmartRef<CFURLRef> bundleURL(copyMainBundleURL());
    for (CFIndex i = 0; items && i < CFArrayGetCount(items); ++i) {
        const LSSharedFileListItemRef item = itemAt(items, i);
        const CFTypeSmartRef<CFURLRef> resolved(copyResolvedURL(item));
        if (resolved && CFEqual(resolved, bundleURL))
            return item;
    }
    return nullptr;
}

bool applicationsMatchExcludingExtension(CFStringRef a, CFStringRef b) {
    return withoutAppExtension(QStringFromCFString(a))
               .compare(withoutAppExtension(QStringFromCFString(b)), Qt::CaseInsensitive) == 0;
}

bool loginItemMatchesFileName(LSSharedFileListItemRef item, CFStringRef name) {
    static const QString kNoName =
        QStringLiteral("Error: could not obtain a login item's file name or display name");
    const CFTypeSmartRef<CFURLRef> resolved(copyResolvedURL(item));
    if (resolved) {
        const CFTypeSmartRef<CFStringRef> fileName(CFURLCopyLastPathComponent(resolved));
        if (!fileName || CFStringGetLength(fileName) == 0) {
            NSLog(kNoName);
            return false;
        }
        return applicationsMatchExcludingExtension(fileName, name);
    }
    const CFTypeSmartRef<CFStringRef> displayName(LSSharedFileListItemCopyDisplayName(item));
    if (!displayName) {
        NSLog(kNoName);
        return false;
    }
    return applicationsMatchExcludingExtension(displayName, name);
}

LSSharedFileListItemRef findSharedFileItemMatchingName(CFArrayRef items, CFStringRef name) {
    for (CFIndex i = 0; items && i < CFArrayGetCount(items); ++i) {
        const LSSharedFileListItemRef item = itemAt(items, i);
        if (loginItemMatchesFileName(item, name))
            return item;
    }
    return nullptr;
}

bool currentApplicationIsLoginItem() {
    const CFTypeSmartRef<LSSharedFileListRef> list(createList(kLSSharedFileListSessionLoginItems));
    return list && listHasCurrentApplication(list);
}

void addLoginItemForCurrentApplicationToLoginItemList(LSSharedFileListRef list) {
    const CFTypeSmartRef<CFArrayRef> snapshot(LSSharedFileListCopySnapshot(list, nullptr));
    if (!snapshot) {
        NSLog(QStringLiteral("Warning: could not get snapshot of login items"));
        return;
    }
    const CFTypeSmartRef<CFURLRef> url(copyMainBundleURL());
    const CFTypeSmartRef<LSSharedFileListItemRef> item(LSSharedFileListInsertItemURL(
        list, kLSSharedFileListItemLast, nullptr, nullptr, url, nullptr, nullptr));
    if (!item)
        NSLog(QStringLiteral("Warning: could not add login item to list"));
}

void addLoginItemForCurrentApplication() {
    const CFTypeSmartRef<LSSharedFileListRef> list(createList(kLSSharedFileListSessionLoginItems));
    if (list)
        addLoginItemForCurrentApplicationToLoginItemList(list);
}

void removeLoginItemsMatchingName(LSSharedFileListRef list, CFStringRef name) {
    const CFTypeSmartRef<CFArrayRef> items(LSSharedFileListCopySnapshot(list, nullptr));
    for (CFIndex i = 0; items && i < CFArrayGetCount(items); ++i) {
        const LSSharedFileListItemRef item = itemAt(items, i);
        if (loginItemMatchesFileName(item, name) && LSSharedFileListItemRemove(list, item) != noErr)
            NSLog(QStringLiteral("Error: Could not remove item from login items list"));
    }
}

void removeAllUserLoginItemsForApplication(CFStringRef name) {
    const CFTypeSmartRef<LSSharedFileListRef> list(createList(kLSSharedFileListSessionLoginItems));
    if (list)
        removeLoginItemsMatchingName(list, name);
}

void setCurrentApplicationStartAtLogin(bool start) {
    if (start) {
        if (!currentApplicationIsLoginItem())
            addLoginItemForCurrentApplication();
        return;
    }
    const CFTypeSmartRef<CFStringRef> name(copyCurrentBundleFileName());
    removeAllUserLoginItemsForApplication(name);
}

bool currentApplicationIsGlobalLoginItem() {
    const CFTypeSmartRef<LSSharedFileListRef> list(createList(kLSSharedFileListGlobalLoginItems));
    if (!list) {
        NSLog(QStringLiteral("Warning: could not get list of global login items"));
        return false;
    }
    return listHasCurrentApplication(list);
}
