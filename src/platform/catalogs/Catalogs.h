#pragma once

// The translation catalogs of Linux applications, read as their files are laid out: GNU gettext's
// machine objects (".mo") and Qt's compiled translations (".qm"). Nothing here switches the
// process's locale or asks the libraries that normally read them.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct CatalogMessage {
    QString context;      // gettext's msgctxt, Qt's context; empty for none
    QString source;       // the untranslated text: msgid, or Qt's source text
    QString sourcePlural; // msgid_plural; empty when the message has no plural forms
    // msgstr, or msgstr[0], msgstr[1]... for plural forms; Qt: its translation, or its numerus
    // forms in order.
    QStringList translations;
    // Qt's disambiguating comment; empty for gettext
    QString comment;
};

struct Catalog {
    // The catalog's language as it names it: the "Language:" field of a gettext header, Qt's
    // language section ("de", "pt_BR"); empty when it does not say.
    QString language;
    QList<CatalogMessage> messages;
};

// A ".mo" file in either byte order. The header entry (the empty msgid) gives the language and
// is not a message; messages whose translations are all empty are left out. Nullopt for data
// that is no ".mo" file or whose tables point outside it.
std::optional<Catalog> readGettextCatalog(const QByteArray& data);
// A ".qm" file. Messages without a source text (compiled without it) or without a translation are
// left out; the hash table and the numerus rules are not needed and not read. Nullopt for data
// that is no ".qm" file or is damaged.
std::optional<Catalog> readQtCatalog(const QByteArray& data);

// A label's text as a person sees it: without the marker of its mnemonic ("_Open" with '_' gives
// "Open"); a doubled marker stands for the character itself ("Rock __n roll" gives "Rock _n roll").
QString withoutMnemonics(const QString& text, QChar marker);

// Files larger than this are not read: no catalog comes near it.
inline constexpr qint64 kLargestCatalogFile = 64 * 1024 * 1024;
