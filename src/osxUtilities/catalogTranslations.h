#pragma once

// The translations of a string in the catalogs that a running Linux application uses: GNU
// gettext catalogs (".mo") of its own text domains and of its toolkit, and Qt's compiled
// translations (".qm"). Each family of catalogs (one gettext domain in every language, or one Qt
// catalog in every language) is read once into a TranslationMapping and kept, as the bundle
// mappings are, until the process ends, under a name of its own ("gettext:gtk30",
// "qt:/usr/share/qt6/translations/qtbase").
//
// In such a mapping the file level is the family's name and the key is the message's context
// and source text (and the plural form's number). Every language found is a locale, and the
// source texts themselves stand under the locale "C", so that a text in one language leads to
// the untranslated one and to all others. Mnemonic markers ("_" in gettext catalogs, "&" in Qt
// ones) are taken out, as accessibility names never show them.

#include <QString>
#include <QStringList>

#include <sys/types.h>

class TranslationMapping;

// The locale under which the source texts of a catalog stand.
inline const QString kCatalogSourceLocale = QStringLiteral("C");

// The catalog families that the process uses, its own first, then its toolkit's: keys of
// catalogTranslationMapping. Read from the process's desktop entry, executable and loaded
// libraries once per process (a pid taken by a new process is read anew).
QStringList catalogFamiliesOfProcess(pid_t pid);
// The mapping of one family, built on first use. Callers hold translationMappingMutex().
TranslationMapping* catalogTranslationMapping(const QString& family);
// The translations of the string in every catalog of the process, its own catalogs first.
QStringList catalogTranslationsOfStringForProcess(const QString& string, pid_t pid);

// Where gettext catalogs are looked for: "locale" in each XDG data directory, in their order.
QStringList gettextLocaleDirectories();
