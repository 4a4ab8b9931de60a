#include "osxTranslationMapping.h"

#include "appkit/Foundation.h"
#include "appkit/NSBundle.h"
#include "appkit/NSFileManager.h"
#include "appkit/NSRunningApplication.h"
#include "appkit/PropertyList.h"
#include "applications.h"
#include "catalogTranslations.h"
#include "osxUIElementUtils.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSet>

#include <algorithm>

namespace {

// Compiled on first use, shared by all mappings.
const QRegularExpression& normalizationRegex() {
    static const QRegularExpression regex(QStringLiteral("\\p{White_Space}"));
    return regex;
}

QHash<QString, TranslationMapping*>& translationMappingsByAppPath() {
    static auto* mappings = new QHash<QString, TranslationMapping*>;
    return *mappings;
}

template <class Value> Value& ensureObjectForKey(QHash<QString, Value>& dictionary, const QString& key) {
    return dictionary[key];
}

// The path of a file inside root, relative to it, for every file below root with this extension.
QStringList filesWithExtension(const QString& root, const QString& extension) {
    QStringList found;
    for (const QString& relative : NSFileManager::defaultManager()->enumeratorAtPath(root)) {
        if (QFileInfo(relative).suffix() == extension)
            found.append(relative);
    }
    return found;
}

void appendOnce(QStringList& set, const QString& value) {
    if (!set.contains(value))
        set.append(value);
}

} // namespace

TranslationLocation TranslationLocation::translationLocationWithBundlePath(const QString& bundlePath,
                                                                           const QString& locale,
                                                                           const QString& file,
                                                                           const QString& key) {
    return TranslationLocation{bundlePath, locale, file, key};
}

bool TranslationLocation::operator==(const TranslationLocation& other) const {
    return bundlePath == other.bundlePath && locale == other.locale && file == other.file && key == other.key;
}

TranslationMapping::TranslationMapping(const QString& path) : bundlePath(path) {}

TranslationMapping* TranslationMapping::build(const QString& path,
                                              const std::function<void(TranslationMapping&)>& fill) {
    auto* mapping = new TranslationMapping(path);
    qDebug().noquote() << "Creating translation mapping for:" << path;
    QElapsedTimer timer;
    timer.start();
    fill(*mapping);
    qDebug().noquote() << "...Time elapsed:" << timer.elapsed();
    return mapping;
}

TranslationMapping* TranslationMapping::translationMappingForBundleAtPath(const QString& path) {
    return build(path, [&path](TranslationMapping& mapping) {
        mapping.findAndInsertTranslationsForBundleAtPath(path);
    });
}

namespace {

// The characters of the Unicode property White_Space other than the blank.
bool isWhiteSpaceButBlank(char16_t c) {
    return (c >= 0x09 && c <= 0x0d) || c == 0x85 || c == 0xa0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200a) || c == 0x2028 || c == 0x2029 || c == 0x202f || c == 0x205f ||
           c == 0x3000;
}

} // namespace

QString TranslationMapping::normalizeString(const QString& string) {
    // Most texts hold no white space but blanks: they need no replacing, which is the costly part
    // of reading a catalog of every language.
    const bool plain = std::none_of(string.cbegin(), string.cend(),
                                    [](QChar c) { return isWhiteSpaceButBlank(c.unicode()); });
    if (plain)
        return string.trimmed();
    QString normalized = string;
    normalized.replace(normalizationRegex(), QStringLiteral(" "));
    return normalized.trimmed();
}

QHash<QString, QString>& TranslationMapping::tableOf(const QString& locale, const QString& bundle,
                                                     const QString& file) {
    return ensureObjectForKey(ensureObjectForKey(ensureObjectForKey(strings, locale), bundle), file);
}

void TranslationMapping::insert(const QString& locale, const QString& bundle, const QString& file,
                                const QString& key, const QString& value) {
    const auto pooled = [this](const QString& text) { return *pool.insert(normalizeString(text)); };
    tableOf(locale, bundle, file).insert(pooled(key), pooled(value));
}

void TranslationMapping::insertStrings(const QString& locale, const QString& bundle, const QString& file,
                                       const QVariantMap& table) {
    tableOf(locale, bundle, file);
    for (auto entry = table.cbegin(); entry != table.cend(); ++entry) {
        if (entry.value().typeId() == QMetaType::QString)
            insert(locale, bundle, file, entry.key(), entry.value().toString());
    }
}

void TranslationMapping::processLoctable(const QString& file, const QString& dir, const QString& bundle) {
    const QVariantMap root = dictionaryWithContentsOfFile(QDir(dir).filePath(file)).value_or(QVariantMap());
    for (auto locale = root.cbegin(); locale != root.cend(); ++locale) {
        if (locale.key() == QLatin1String("LocProvenance") ||
            locale.value().typeId() != QMetaType::QVariantMap)
            continue;
        insertStrings(locale.key(), bundle, file, locale.value().toMap());
    }
}

void TranslationMapping::findAndInsertTranslationsForBundleAtPath(const QString& bundle) {
    const auto opened = NSBundle::bundleWithPath(bundle);
    if (!opened) {
        NSLog(
            QStringLiteral("Error: failed to create translation mapping for bundle at path: %1").arg(bundle));
        return;
    }
    const QString resources = opened->resourcePath();
    for (const QString& loctable : filesWithExtension(resources, QStringLiteral("loctable")))
        processLoctable(loctable, resources, bundle);
    for (const QString& locale : opened->localizations()) {
        ensureObjectForKey(ensureObjectForKey(strings, locale), bundle);
        const QString folder = QDir(resources).filePath(QStringLiteral("%1.lproj").arg(locale));
        for (const QString& file : filesWithExtension(folder, QStringLiteral("strings")))
            insertStrings(locale, bundle, file,
                          dictionaryWithContentsOfFile(QDir(folder).filePath(file)).value_or(QVariantMap()));
    }
    const QStringList frameworks{QStringLiteral("framework"), QStringLiteral("bundle")};
    findAndInsertTranslationsForBundlesInDirectory(opened->privateFrameworksURL().toLocalFile(), frameworks);
    findAndInsertTranslationsForBundlesInDirectory(opened->sharedFrameworksURL().toLocalFile(), frameworks);
    findAndInsertTranslationsForBundlesInDirectory(opened->builtInPlugInsURL().toLocalFile(),
                                                   {QStringLiteral("appex"), QStringLiteral("bundle")});
}

void TranslationMapping::findAndInsertTranslationsForBundlesInDirectory(const QString& directory,
                                                                        const QStringList& extensions) {
    NSFileManager* files = NSFileManager::defaultManager();
    if (directory.isEmpty() || !files->fileExistsAtPath(directory))
        return;
    const std::optional<QStringList> entries = files->contentsOfDirectoryAtPath(directory);
    if (!entries)
        return;
    const QSet<QString> wanted(extensions.cbegin(), extensions.cend());
    for (const QString& entry : *entries) {
        if (wanted.contains(QFileInfo(entry).suffix()))
            findAndInsertTranslationsForBundleAtPath(entry);
    }
}

QList<TranslationLocation> TranslationMapping::findFileAndKeyForString(const QString& string) const {
    const QString wanted = normalizeString(string);
    QList<TranslationLocation> found;
    for (auto locale = strings.cbegin(); locale != strings.cend(); ++locale) {
        for (auto bundle = locale->cbegin(); bundle != locale->cend(); ++bundle) {
            for (auto file = bundle->cbegin(); file != bundle->cend(); ++file) {
                for (auto entry = file->cbegin(); entry != file->cend(); ++entry) {
                    if (entry.value() != wanted)
                        continue;
                    const auto location = TranslationLocation::translationLocationWithBundlePath(
                        bundle.key(), locale.key(), file.key(), entry.key());
                    if (entry.key() == wanted)
                        found.prepend(location);
                    else
                        found.append(location);
                }
            }
        }
    }
    return found;
}

QMap<QString, QStringList> TranslationMapping::translationsForStringWithLocales(const QString& string) const {
    QMap<QString, QStringList> result;
    for (const TranslationLocation& location : findFileAndKeyForString(string)) {
        for (auto locale = strings.cbegin(); locale != strings.cend(); ++locale) {
            const auto bundle = locale->constFind(location.bundlePath);
            if (bundle == locale->cend())
                continue;
            const auto file = bundle->constFind(location.file);
            if (file == bundle->cend())
                continue;
            const auto value = file->constFind(location.key);
            if (value != file->cend())
                appendOnce(result[locale.key()], *value);
        }
    }
    return result;
}

QStringList TranslationMapping::translationsForString(const QString& string) {
    const auto cached = translationCache.constFind(string);
    if (cached != translationCache.cend())
        return *cached;
    QStringList all;
    for (const QStringList& translations : translationsForStringWithLocales(string))
        for (const QString& translation : translations)
            appendOnce(all, translation);
    translationCache.insert(string, all);
    return all;
}

qsizetype TranslationMapping::stringCount() const {
    qsizetype count = 0;
    for (const auto& bundles : strings)
        for (const auto& files : bundles)
            for (const auto& table : files)
                count += table.size();
    return count;
}

namespace {

std::optional<QString>& systemBundleForTesting() {
    static std::optional<QString> path;
    return path;
}

} // namespace

QString systemTranslationBundlePath() {
    return systemBundleForTesting().value_or(QStringLiteral(
        "/System/Library/Frameworks/ApplicationServices.framework/Frameworks/HIServices.framework"));
}

void setSystemTranslationBundlePathForTesting(std::optional<QString> path) {
    QMutexLocker locker(&translationMappingMutex());
    systemBundleForTesting() = std::move(path);
}

QMutex& translationMappingMutex() {
    static QMutex mutex;
    return mutex;
}

TranslationMapping* translationMappingForBundleAtPath(const QString& path) {
    TranslationMapping*& mapping = translationMappingsByAppPath()[path];
    if (!mapping)
        mapping = TranslationMapping::translationMappingForBundleAtPath(path);
    return mapping;
}

QStringList translationsOfStringForBundleAtPath(const QString& string, const QString& bundlePath) {
    return translationMappingForBundleAtPath(bundlePath)->translationsForString(string);
}

QMap<QString, QStringList> translationsOfStringForBundleAtPathWithLocales(const QString& string,
                                                                          const QString& bundlePath) {
    return translationMappingForBundleAtPath(bundlePath)->translationsForStringWithLocales(string);
}

QStringList mergeResults(const QStringList& first, const QStringList& second) {
    QStringList merged = first;
    for (const QString& entry : second)
        appendOnce(merged, entry);
    return merged;
}

QStringList translationsOfStringForAppAtPath(const QString& string, const QString& appPath) {
    QMutexLocker locker(&translationMappingMutex());
    const QStringList list{string};
    const QStringList system = translationsOfStringForBundleAtPath(string, systemTranslationBundlePath());
    if (!system.isEmpty())
        return mergeResults(list, system);
    return mergeResults(list, translationsOfStringForBundleAtPath(string, appPath));
}

QMap<QString, QStringList> translationsOfStringForAppAtPathWithLocales(const QString& string,
                                                                       const QString& appPath) {
    QMutexLocker locker(&translationMappingMutex());
    const auto system = translationsOfStringForBundleAtPathWithLocales(string, systemTranslationBundlePath());
    if (!system.isEmpty())
        return system;
    return translationsOfStringForBundleAtPathWithLocales(string, appPath);
}

QStringList translationsOfStringForProcess(const QString& string, pid_t pid) {
    const NSRunningApplication* application =
        NSRunningApplication::runningApplicationWithProcessIdentifier(pid);
    const QString bundlePath = application ? application->bundleURL().toLocalFile() : QString();
    const QStringList translations = translationsOfStringForAppAtPath(string, bundlePath);
#ifdef __APPLE__
    return translations;
#else
    return mergeResults(translations, catalogTranslationsOfStringForProcess(string, pid));
#endif
}

QStringList translationsOfStringForApplicationWithID(const QString& string, const QString& bundleId) {
    return translationsOfStringForAppAtPath(string, applicationPathForIdentifier(bundleId));
}

AXUIElementRef findElementWithLocalizedTitle(CFArrayRef elements, const QString& title,
                                             bool useTranslations) {
    const CFIndex count = elements ? CFArrayGetCount(elements) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        auto element = static_cast<AXUIElementRef>(const_cast<void*>(CFArrayGetValueAtIndex(elements, i)));
        const QString elementTitle = UIElementTitle(element);
        if (!useTranslations) {
            if (elementTitle == title)
                return element;
            continue;
        }
        pid_t pid = 0;
        AXUIElementGetPid(element, &pid);
        if (translationsOfStringForProcess(elementTitle, pid).contains(title))
            return element;
    }
    return nullptr;
}
