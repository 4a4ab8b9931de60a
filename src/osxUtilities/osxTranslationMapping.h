#pragma once

// The translations of a string that an application shows: every localized string table of the
// application's bundle, and of the bundles inside it, read into one index; a string found as a
// value in any language leads to what stands under the same file and key in every other.
//
// On Linux a running application's strings also live in the translation catalogs it uses
// (catalogTranslations.h): translationsOfStringForProcess looks there too.

#include "platformAccessibility.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <optional>

#include <sys/types.h>

// The address of one string in the index.
struct TranslationLocation {
    QString bundlePath;
    QString locale;
    QString file;
    QString key;

    static TranslationLocation translationLocationWithBundlePath(const QString& bundlePath,
                                                                 const QString& locale, const QString& file,
                                                                 const QString& key);
    bool operator==(const TranslationLocation& other) const;
};

class TranslationMapping {
public:
    // locale → bundle path → file → normalized key → normalized value.
    using Index = QHash<QString, QHash<QString, QHash<QString, QHash<QString, QString>>>>;

    // A new mapping with the whole tree of the bundle at path read, logged with its time. The
    // caller owns it.
    static TranslationMapping* translationMappingForBundleAtPath(const QString& path);

    // A new mapping for path that fill fills, logged with its time. The caller owns it.
    static TranslationMapping* build(const QString& path,
                                     const std::function<void(TranslationMapping&)>& fill);

    // Reads the loctable at dir/file into the index, file standing as the file level.
    void processLoctable(const QString& file, const QString& dir, const QString& bundlePath);
    // Reads one bundle, its language folders and loctables, and every bundle in its frameworks
    // and plug-ins folders.
    void findAndInsertTranslationsForBundleAtPath(const QString& bundlePath);
    // Reads each bundle directly in the folder whose extension is one of these.
    void findAndInsertTranslationsForBundlesInDirectory(const QString& directory,
                                                        const QStringList& extensions);
    // Stores one string of a table: key and value are normalized here.
    void insert(const QString& locale, const QString& bundlePath, const QString& file, const QString& key,
                const QString& value);

    // Each white space character becomes one blank; then blanks and line ends are trimmed.
    static QString normalizeString(const QString& string);

    // Every place where the string is a value; those where it is its own key first.
    QList<TranslationLocation> findFileAndKeyForString(const QString& string) const;
    // Locale → what stands at those places in that locale, in order, without repeats.
    QMap<QString, QStringList> translationsForStringWithLocales(const QString& string) const;
    // All of them together, in order, without repeats; kept for the string as given.
    QStringList translationsForString(const QString& string);

    const Index& allStrings() const { return strings; }
    QString path() const { return bundlePath; }
    // How many strings the index holds, over all its tables.
    qsizetype stringCount() const;

private:
    explicit TranslationMapping(const QString& path);
    // The table of one file, made empty when there is none yet.
    QHash<QString, QString>& tableOf(const QString& locale, const QString& bundle, const QString& file);
    // The string values of a table read from a file; values of other types are passed over.
    void insertStrings(const QString& locale, const QString& bundle, const QString& file,
                       const QVariantMap& table);

    Index strings;
    QHash<QString, QStringList> translationCache;
    QString bundlePath;
    // Every key and value is stored once, whatever the number of tables that hold it.
    QSet<QString> pool;
};

// The mapping of the bundle at path: kept from an earlier call, or built and kept until the
// process ends. Callers hold translationMappingMutex().
TranslationMapping* translationMappingForBundleAtPath(const QString& path);
QMutex& translationMappingMutex();

QStringList translationsOfStringForBundleAtPath(const QString& string, const QString& bundlePath);
QMap<QString, QStringList> translationsOfStringForBundleAtPathWithLocales(const QString& string,
                                                                          const QString& bundlePath);
// first, then every entry of second that is not in it yet (case-sensitively), in order.
QStringList mergeResults(const QStringList& first, const QStringList& second);
// The string itself first; then the translations of the system's own bundle, or when it knows
// none, those of the application's.
QStringList translationsOfStringForAppAtPath(const QString& string, const QString& appPath);
QMap<QString, QStringList> translationsOfStringForAppAtPathWithLocales(const QString& string,
                                                                       const QString& appPath);
// For the bundle of the running application of pid (none: an empty path); on Linux merged with
// the translations in the catalogs that the process uses.
QStringList translationsOfStringForProcess(const QString& string, pid_t pid);
QStringList translationsOfStringForApplicationWithID(const QString& string, const QString& bundleId);

// The first element of the array that has this title, borrowed from the array: with
// useTranslations, an element whose title's translations (in its own process) hold title.
AXUIElementRef findElementWithLocalizedTitle(CFArrayRef elements, const QString& title, bool useTranslations);

// The system's bundle of standard texts, read first for every application: HIServices.framework
// of macOS, which Linux does not have. Tests may point it at a bundle of their own before the
// first translation of the process; nullopt goes back to the system's.
QString systemTranslationBundlePath();
void setSystemTranslationBundlePathForTesting(std::optional<QString> path);
