#include "catalogTranslations.h"

#include "appkit/DesktopEntries.h"
#include "appkit/NSFileManager.h"
#include "appkit/NSRunningApplication.h"
#include "catalogs/Catalogs.h"
#include "osxTranslationMapping.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLibraryInfo>
#include <QMutexLocker>
#include <QStandardPaths>

namespace {

const QString kGettextPrefix = QStringLiteral("gettext:");
const QString kQtPrefix = QStringLiteral("qt:");

std::optional<QByteArray> readCatalogFile(const QString& path) {
    return NSFileManager::defaultManager()->contentsAtPath(path, kLargestCatalogFile);
}

// The key of one message, or of one plural form of it: context, source text and Qt's comment
// apart by a separator that no text holds.
QString messageKey(const CatalogMessage& message, qsizetype form) {
    QString key = message.context + QChar(0x04) + message.source;
    if (!message.comment.isEmpty())
        key += QChar(0x04) + message.comment;
    if (form > 0 || !message.sourcePlural.isEmpty())
        key += QChar(0) + QString::number(form);
    return key;
}

// One catalog of a family into its mapping: the translations under its language, the source
// texts under the source locale.
void insertCatalog(TranslationMapping& mapping, const Catalog& catalog, const QString& locale,
                   const QString& family, const QString& file, QChar mnemonic) {
    for (const CatalogMessage& message : catalog.messages) {
        for (qsizetype form = 0; form < message.translations.size(); ++form) {
            const QString key = messageKey(message, form);
            const QString source =
                form > 0 && !message.sourcePlural.isEmpty() ? message.sourcePlural : message.source;
            mapping.insert(kCatalogSourceLocale, family, file, key, withoutMnemonics(source, mnemonic));
            if (!message.translations[form].isEmpty())
                mapping.insert(locale, family, file, key,
                               withoutMnemonics(message.translations[form], mnemonic));
        }
    }
}

// The catalog files of a gettext domain, <locale dir>/<language>/LC_MESSAGES/<domain>.mo, in the
// order of the locale directories: (language, path) for each that exists. None for a domain name
// that would lead out of LC_MESSAGES.
QList<std::pair<QString, QString>> gettextCatalogFiles(const QString& domain) {
    QList<std::pair<QString, QString>> files;
    if (domain.isEmpty() || domain.contains(u'/'))
        return files;
    for (const QString& localeDirectory : gettextLocaleDirectories()) {
        for (const QString& language : QDir(localeDirectory).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            const QString path =
                QStringLiteral("%1/%2/LC_MESSAGES/%3.mo").arg(localeDirectory, language, domain);
            if (QFileInfo(path).isFile())
                files.append({language, path});
        }
    }
    return files;
}

// Every language's catalog of a gettext domain, the first directory whose catalog of a language
// can be read standing.
void readGettextFamily(TranslationMapping& mapping, const QString& family, const QString& domain) {
    QSet<QString> languages;
    for (const auto& [language, path] : gettextCatalogFiles(domain)) {
        if (languages.contains(language))
            continue;
        const auto data = readCatalogFile(path);
        const auto catalog = data ? readGettextCatalog(*data) : std::nullopt;
        if (!catalog)
            continue;
        languages.insert(language);
        insertCatalog(mapping, *catalog, language, family, domain + QStringLiteral(".mo"), u'_');
    }
}

// Every language's catalog of a Qt family <folder>/<base>: the files <base>_<language>.qm.
void readQtFamily(TranslationMapping& mapping, const QString& family, const QString& stem) {
    const QFileInfo info(stem);
    const QString prefix = info.fileName() + u'_';
    for (const QString& file : QDir(info.path()).entryList({prefix + QStringLiteral("*.qm")}, QDir::Files)) {
        const auto data = readCatalogFile(QDir(info.path()).filePath(file));
        const auto catalog = data ? readQtCatalog(*data) : std::nullopt;
        if (!catalog)
            continue;
        const QString language = file.mid(prefix.size()).chopped(int(qstrlen(".qm")));
        insertCatalog(mapping, *catalog, language, family, info.fileName() + QStringLiteral(".qm"), u'&');
    }
}

// The Qt catalogs that an application installs for itself: <data dir>/<name>/translations/<name>_*.qm.
QStringList ownQtFamilies(const QStringList& names) {
    QStringList families;
    for (const QString& dataDirectory :
         QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation)) {
        for (const QString& name : names) {
            const QString stem = QStringLiteral("%1/%2/translations/%2").arg(dataDirectory, name);
            if (!name.isEmpty() && !name.contains(u'/') &&
                !QDir(QFileInfo(stem).path())
                     .entryList({name + QStringLiteral("_*.qm")}, QDir::Files)
                     .isEmpty())
                families.append(kQtPrefix + stem);
        }
    }
    return families;
}

// The toolkits whose libraries the process has loaded, as catalog families.
QStringList toolkitFamilies(pid_t pid) {
    QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
    if (!maps.open(QIODevice::ReadOnly))
        return {};
    const QByteArray libraries = maps.readAll();
    QStringList families;
    const auto uses = [&](const char* library) { return libraries.contains(library); };
    if (uses("/libgtk-3.so"))
        families << kGettextPrefix + QStringLiteral("gtk30");
    if (uses("/libgtk-4.so"))
        families << kGettextPrefix + QStringLiteral("gtk40");
    if (uses("/libQt6Core.so") || uses("/libQt5Core.so"))
        families << kQtPrefix + QLibraryInfo::path(QLibraryInfo::TranslationsPath) +
                        QStringLiteral("/qtbase");
    if (uses("/libglib-2.0.so"))
        families << kGettextPrefix + QStringLiteral("glib20");
    return families;
}

QStringList readCatalogFamiliesOfProcess(pid_t pid) {
    QStringList families;
    const QString executable = QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
    const QString program = QFileInfo(executable).fileName();
    const auto entry = desktopEntryForProgram(program);
    QStringList domains;
    if (entry)
        domains << entry->gettextDomain << entry->id;
    domains << program;
    for (const QString& domain : std::as_const(domains)) {
        const QString family = kGettextPrefix + domain;
        if (!families.contains(family) && !gettextCatalogFiles(domain).isEmpty())
            families << family;
    }
    families << ownQtFamilies(entry ? QStringList{program, entry->id} : QStringList{program});
    for (const QString& family : toolkitFamilies(pid))
        if (!families.contains(family))
            families << family;
    return families;
}

// When the process started, in clock ticks since boot: a pid taken over by a new process has
// another.
QByteArray startTimeOf(pid_t pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return {};
    const QByteArray line = stat.readAll();
    // The command name in parentheses may hold blanks: the fields count from its end.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return fields.value(19);
}

} // namespace

QStringList gettextLocaleDirectories() {
    QStringList directories;
    for (const QString& dataDirectory :
         QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        directories << dataDirectory + QStringLiteral("/locale");
    return directories;
}

QStringList catalogFamiliesOfProcess(pid_t pid) {
    struct Known {
        QByteArray startTime;
        QStringList families;
    };
    static QMutex mutex;
    static QHash<pid_t, Known> known;
    const QByteArray startTime = startTimeOf(pid);
    if (startTime.isEmpty())
        return {};
    QMutexLocker locker(&mutex);
    Known& entry = known[pid];
    if (entry.startTime != startTime)
        entry = Known{startTime, readCatalogFamiliesOfProcess(pid)};
    return entry.families;
}

TranslationMapping* catalogTranslationMapping(const QString& family) {
    static auto* mappings = new QHash<QString, TranslationMapping*>;
    TranslationMapping*& mapping = (*mappings)[family];
    if (mapping)
        return mapping;
    mapping = TranslationMapping::build(family, [&family](TranslationMapping& filled) {
        if (family.startsWith(kGettextPrefix))
            readGettextFamily(filled, family, family.mid(kGettextPrefix.size()));
        else if (family.startsWith(kQtPrefix))
            readQtFamily(filled, family, family.mid(kQtPrefix.size()));
    });
    return mapping;
}

QStringList catalogTranslationsOfStringForProcess(const QString& string, pid_t pid) {
    const QStringList families = catalogFamiliesOfProcess(pid);
    QMutexLocker locker(&translationMappingMutex());
    QStringList translations;
    for (const QString& family : families)
        translations =
            mergeResults(translations, catalogTranslationMapping(family)->translationsForString(string));
    return translations;
}
