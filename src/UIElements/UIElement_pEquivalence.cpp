// Whether attributes read from a live element are those of a description, and whether two
// descriptions are the same.

#include "UIElement_pMatching.h"

#include "dataObjectUtils.h"
#include "osxTranslationMapping.h"

using UIElementMatching::isList;

namespace {

QSet<QString> translationsOf(const QVariant& value, int pid) {
    const QStringList translations = translationsOfStringForProcess(value.toString(), pid);
    return QSet<QString>(translations.cbegin(), translations.cend());
}

// A list of values stands for alternatives: any one of them may be the single value.
bool listOffers(const QVariant& list, const QVariant& single, bool translated, int pid) {
    const QVariantList entries = list.toList();
    if (!translated)
        return entries.contains(single);
    QSet<QString> offered;
    for (const QVariant& entry : entries)
        offered.insert(entry.toString());
    return translationsOf(single, pid).intersects(offered);
}

bool valuesAreEquivalent(const QString& key, const QVariant& live, const QVariant& saved, int pid,
                         bool useTranslations) {
    const bool liveValid = live.metaType().isValid();
    const bool savedValid = saved.metaType().isValid();
    if (!liveValid || !savedValid) {
        if (!liveValid && !savedValid)
            return true;
        // An empty string, a 0 or a false equals nothing.
        const QVariant& valid = liveValid ? live : saved;
        return valid == QVariant(valid.metaType());
    }
    const bool liveIsList = isList(live);
    const bool savedIsList = isList(saved);
    if (liveIsList && savedIsList)
        return live == saved;
    const bool translated = useTranslations && localizedAttributes().contains(key);
    if (liveIsList)
        return listOffers(live, saved, translated, pid);
    if (savedIsList)
        return listOffers(saved, live, translated, pid);
    // The live text's translations are searched for the saved text, never the other way round.
    if (translated)
        return translationsOf(live, pid).contains(saved.toString());
    return live == saved;
}

} // namespace

bool attributeMapsAreEquivalent(const QMap<QString, QVariant>& first, const QMap<QString, QVariant>& second,
                                int pid, bool useTranslations) {
    // The key sets first: an attribute that only one side has is fatal, and costs no translation.
    if (first.keys() != second.keys())
        return false;
    for (auto live = first.cbegin(), saved = second.cbegin(); live != first.cend(); ++live, ++saved) {
        if (!valuesAreEquivalent(live.key(), live.value(), saved.value(), pid, useTranslations))
            return false;
    }
    return true;
}

QMap<QString, QVariant> removeKeys(QMap<QString, QVariant> map, const QSet<QString>& keys) {
    for (const QString& key : keys)
        map.remove(key);
    return map;
}

QMap<QString, QVariant> removeOtherKeys(QMap<QString, QVariant> map, const QSet<QString>& keys) {
    const QList<QString> snapshot = map.keys();
    for (const QString& key : snapshot) {
        if (!keys.contains(key))
            map.remove(key);
    }
    return map;
}

bool UIElement_p::isEqualToElement(const UIElement_p* other) const {
    // Two captures of one element at different points of it are the same description.
    static const QMap<const QMetaObject*, QList<QByteArray>> ignored{
        {&UIElement_p::staticMetaObject,
         {"localInteractionPoint", "screenInteractionPoint", "strictMatching"}}};
    return objectsAreEqual(this, other, ignored);
}
