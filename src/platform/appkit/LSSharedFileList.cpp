#include "LSSharedFileList.h"

#include "DesktopEntries.h"
#include "cf/CFObject_p.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

namespace {

struct ListBody {
    bool global;
};

struct ItemBody {
    QString entryPath; // the file that provides the item
    QString displayName;
    QString program; // the first word of Exec
};

CFTypeID sharedListType() {
    static const CFTypeID type =
        CFRuntime::registerType({"LSSharedFileList", nullptr, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID itemType() {
    static const CFTypeID type = CFRuntime::registerType(
        {"LSSharedFileListItem", &CFRuntime::destroyBody<ItemBody>, nullptr, nullptr, nullptr});
    return type;
}

const QString kAutostart = QStringLiteral("/autostart");
const QString kEntrySuffix = QStringLiteral(".desktop");

QString userAutostartFolder() {
    const QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    return (configHome.isEmpty() ? QDir::homePath() + QStringLiteral("/.config") : configHome) + kAutostart;
}

QStringList systemAutostartFolders() {
    QStringList folders;
    const QString configDirs = qEnvironmentVariable("XDG_CONFIG_DIRS", QStringLiteral("/etc/xdg"));
    for (const QString& dir : configDirs.split(u':', Qt::SkipEmptyParts))
        folders.append(dir + kAutostart);
    return folders;
}

// The entry files of a folder by file name, regular files only.
QStringList entryFileNames(const QString& folder) {
    return QDir(folder).entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name);
}

// The string escapes of a desktop entry value (\s, \n, \t, \r and \\), undone.
QString unescapeValue(const QString& value) {
    QString result;
    for (qsizetype i = 0; i < value.size(); ++i) {
        QChar c = value[i];
        if (c == u'\\' && i + 1 < value.size()) {
            switch ((c = value[++i]).unicode()) {
            case u's':
                c = u' ';
                break;
            case u'n':
                c = u'\n';
                break;
            case u't':
                c = u'\t';
                break;
            case u'r':
                c = u'\r';
                break;
            }
        }
        result.append(c);
    }
    return result;
}

QString escapeValue(const QString& text) {
    QString result;
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'\\':
            result += QLatin1String("\\\\");
            break;
        case u'\n':
            result += QLatin1String("\\n");
            break;
        case u'\t':
            result += QLatin1String("\\t");
            break;
        case u'\r':
            result += QLatin1String("\\r");
            break;
        default:
            result += c;
        }
    }
    return result;
}

// The first argument of an Exec value, with its quoting and "%%" undone.
QString firstExecArgument(const QString& exec) {
    QString argument;
    qsizetype i = 0;
    while (i < exec.size() && exec[i] == u' ')
        ++i;
    const bool quoted = i < exec.size() && exec[i] == u'"';
    for (i += quoted ? 1 : 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quoted && c == u'"')
            break;
        if (!quoted && c == u' ')
            break;
        if (quoted && c == u'\\' && i + 1 < exec.size())
            argument.append(exec[++i]);
        else if (c == u'%' && i + 1 < exec.size() && exec[i + 1] == u'%')
            argument.append(exec[i++]);
        else
            argument.append(c);
    }
    return argument;
}

// The raw value of Exec in the [Desktop Entry] group.
QString execValue(const QByteArray& content) {
    bool inMainGroup = false;
    for (const QByteArray& rawLine : content.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.startsWith(u'['))
            inMainGroup = line == QLatin1String("[Desktop Entry]");
        else if (inMainGroup && line.startsWith(QLatin1String("Exec")) &&
                 line.mid(4).trimmed().startsWith(u'='))
            return line.mid(line.indexOf(u'=') + 1).trimmed();
    }
    return QString();
}

// The item of an entry file; null when it stands for no application.
CFTypeRef readItem(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    const QByteArray content = file.readAll();
    DesktopEntry entry;
    if (!parseDesktopEntry(content, &entry))
        return nullptr;
    const QString program = firstExecArgument(unescapeValue(execValue(content)));
    if (program.isEmpty())
        return nullptr;
    return CFRuntime::create<ItemBody>(itemType(), path, entry.name, program);
}

// The system entries by file name, the first folder's winning.
QList<QPair<QString, QString>> systemEntryFiles() {
    QList<QPair<QString, QString>> files;
    QStringList seen;
    for (const QString& folder : systemAutostartFolders()) {
        for (const QString& name : entryFileNames(folder)) {
            if (!seen.contains(name)) {
                seen.append(name);
                files.append({name, folder + u'/' + name});
            }
        }
    }
    return files;
}

bool systemEntryExists(const QString& fileName) {
    for (const auto& file : systemEntryFiles()) {
        if (file.first == fileName)
            return true;
    }
    return false;
}

bool writeEntry(const QString& path, const QString& content) {
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content.toUtf8()) >= 0 && file.commit();
}

// A user entry file for a new item of this program: its own name, unless an entry of that name
// already stands for an application.
QString newEntryPath(const QString& program) {
    const QString folder = userAutostartFolder();
    const QString base = QFileInfo(program).fileName();
    for (int number = 1;; ++number) {
        const QString path = folder + u'/' + base +
                             (number == 1 ? QString() : QStringLiteral("-%1").arg(number)) + kEntrySuffix;
        const CFTypeRef existing = QFileInfo::exists(path) ? readItem(path) : nullptr;
        if (!existing)
            return path;
        CFRelease(existing);
    }
}

} // namespace

const CFStringRef kLSSharedFileListSessionLoginItems = CFSTR("com.apple.LSSharedFileList.SessionLoginItems");
const CFStringRef kLSSharedFileListGlobalLoginItems = CFSTR("com.apple.LSSharedFileList.GlobalLoginItems");
const LSSharedFileListItemRef kLSSharedFileListItemBeforeFirst = reinterpret_cast<LSSharedFileListItemRef>(1);
const LSSharedFileListItemRef kLSSharedFileListItemLast = reinterpret_cast<LSSharedFileListItemRef>(2);

QString desktopEntryExecValue(const QString& programPath) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    QString argument;
    bool needsQuotes = false;
    for (const QChar c : programPath) {
        needsQuotes = needsQuotes || reserved.contains(c);
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            argument.append(u'\\');
        argument.append(c);
        if (c == u'%')
            argument.append(u'%');
    }
    return escapeValue(needsQuotes                  ? QLatin1Char('"') + argument + QLatin1Char('"')
                       : programPath.contains(u'%') ? argument
                                                    : programPath);
}

LSSharedFileListRef LSSharedFileListCreate(CFAllocatorRef, CFStringRef listType, CFTypeRef) {
    const bool session = listType && CFEqual(listType, kLSSharedFileListSessionLoginItems);
    if (!session && !(listType && CFEqual(listType, kLSSharedFileListGlobalLoginItems)))
        return nullptr;
    return static_cast<LSSharedFileListRef>(
        const_cast<void*>(CFRuntime::create<ListBody>(sharedListType(), !session)));
}

CFArrayRef LSSharedFileListCopySnapshot(LSSharedFileListRef list, UInt32* outSnapshotSeed) {
    const ListBody* body = CFInternal::bodyIfType<ListBody>(list, sharedListType());
    if (!body)
        return nullptr;
    if (outSnapshotSeed)
        *outSnapshotSeed = 0;
    QStringList paths;
    QStringList userNames;
    if (!body->global) {
        userNames = entryFileNames(userAutostartFolder());
        for (const QString& name : userNames)
            paths.append(userAutostartFolder() + u'/' + name);
    }
    for (const auto& file : systemEntryFiles()) {
        if (!userNames.contains(file.first))
            paths.append(file.second);
    }
    CFMutableArrayRef items = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    for (const QString& path : paths) {
        if (const CFTypeRef item = readItem(path)) {
            CFArrayAppendValue(items, item);
            CFRelease(item);
        }
    }
    return items;
}

LSSharedFileListItemRef LSSharedFileListInsertItemURL(LSSharedFileListRef list, LSSharedFileListItemRef,
                                                      CFStringRef inDisplayName, IconRef, CFURLRef inURL,
                                                      CFDictionaryRef, CFArrayRef) {
    const ListBody* body = CFInternal::bodyIfType<ListBody>(list, sharedListType());
    const QString urlText = QStringFromCFString(inURL ? CFURLGetString(inURL) : nullptr);
    if (!body || body->global || !QUrl(urlText).isLocalFile())
        return nullptr;
    const QString program = QUrl(urlText).toLocalFile();
    const QString name = inDisplayName ? QStringFromCFString(inDisplayName) : QFileInfo(program).fileName();
    const QString path = newEntryPath(program);
    const QString content = QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n")
                                .arg(escapeValue(name), desktopEntryExecValue(program));
    if (!writeEntry(path, content))
        return nullptr;
    return static_cast<LSSharedFileListItemRef>(const_cast<void*>(readItem(path)));
}

OSStatus LSSharedFileListItemRemove(LSSharedFileListRef list, LSSharedFileListItemRef item) {
    const ListBody* listBody = CFInternal::bodyIfType<ListBody>(list, sharedListType());
    const ItemBody* itemBody = CFInternal::bodyIfType<ItemBody>(item, itemType());
    if (!listBody || !itemBody)
        return paramErr;
    if (listBody->global)
        return wrPermErr;
    const QString fileName = QFileInfo(itemBody->entryPath).fileName();
    const QString userPath = userAutostartFolder() + u'/' + fileName;
    if (!systemEntryExists(fileName))
        return QFile::remove(itemBody->entryPath) ? OSStatus(noErr) : OSStatus(ioErr);
    return writeEntry(userPath, QStringLiteral("[Desktop Entry]\nType=Application\nHidden=true\n"))
               ? OSStatus(noErr)
               : OSStatus(ioErr);
}

OSStatus LSSharedFileListItemResolve(LSSharedFileListItemRef item, UInt32, CFURLRef* outURL, FSRef* outRef) {
    const ItemBody* body = CFInternal::bodyIfType<ItemBody>(item, itemType());
    if (!body || !outURL || outRef)
        return paramErr;
    *outURL = nullptr;
    const QString program =
        body->program.contains(u'/') ? body->program : QStandardPaths::findExecutable(body->program);
    const QString resolved = program.isEmpty() ? QString() : QFileInfo(program).canonicalFilePath();
    if (resolved.isEmpty() || !QFileInfo(resolved).isFile())
        return fnfErr;
    const CFStringRef path = CFStringCreateWithQString(resolved);
    *outURL = CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, false);
    CFRelease(path);
    return *outURL ? OSStatus(noErr) : OSStatus(fnfErr);
}

CFStringRef LSSharedFileListItemCopyDisplayName(LSSharedFileListItemRef item) {
    const ItemBody* body = CFInternal::bodyIfType<ItemBody>(item, itemType());
    return body && !body->displayName.isEmpty() ? CFStringCreateWithQString(body->displayName) : nullptr;
}
