// The rules for elements that no fixed description can name, because which one is meant depends
// on what the user has chosen in the application: the track group of the track selected in Pro
// Tools, and the free audio plug-in slot nearest the end of a Logic Pro channel strip. A level's
// option turns a rule on; the rule then stands in for all attribute matching at that level.

#include "UIElement_pMatching.h"

#include "osxUIElementUtils.h"

#include <QDebug>
#include <QRegularExpression>

using UIElementMatching::childAt;
using UIElementMatching::countOf;

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;
using ArrayRef = CFTypeSmartRef<CFArrayRef>;

const QString kIdentifierAttribute = QStringLiteral("AXIdentifier");

// Pro Tools names its elements by four-character codes, some in the characters themselves and
// some in their decimal value.
bool isTrackGroupIdentifier(const QString& identifier) {
    return identifier == QLatin1String("1279812722") || identifier == QLatin1String("LHdr") ||
           identifier == QLatin1String("1128817778") || identifier == QLatin1String("CHdr");
}

bool isTrackListIdentifier(const QString& identifier) {
    return identifier == QLatin1String("1399343204") || identifier == QLatin1String("ShHd");
}

QString identifierOf(AXUIElementRef element) {
    return UIElementAttributeValue(element, kIdentifierAttribute, false).toString();
}

// Capture 1 of the pattern in text; empty, with the error and the text logged, when it doesn't fit.
QString trackNameIn(const QString& text, const QRegularExpression& pattern, const char* error) {
    const QRegularExpressionMatch match = pattern.match(text);
    if (match.hasMatch())
        return match.captured(1);
    qDebug().noquote() << error << text;
    return QString();
}

// The track name in a track group's title, "Kick 1 - Audio Track": all before the last " - "
// that has no hyphen behind it.
QString trackNameOfGroup(AXUIElementRef group) {
    static const QRegularExpression pattern(QStringLiteral("^(.+) - [^-]+$"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    return trackNameIn(UIElementTitle(group), pattern,
                       "Error: track group title does not contains unexpected pattern:");
}

// The selected row with the smallest "AXIndex"; among equal ones the first.
AXUIElementRef firstSelectedRow(CFArrayRef rows) {
    AXUIElementRef best = nullptr;
    qlonglong bestIndex = 0;
    for (CFIndex i = 0; i < CFArrayGetCount(rows); ++i) {
        const AXUIElementRef row = childAt(rows, i);
        const qlonglong index = UIElementAttributeValue(row, QStringLiteral("AXIndex"), false).toLongLong();
        if (!best || index < bestIndex) {
            best = row;
            bestIndex = index;
        }
    }
    return best;
}

// The button in the row's visibility cell, the cell of the first column. A visibility cell with
// children ends the search whether one of them is a button or not.
ElementRef copyVisibilityButton(AXUIElementRef row) {
    const ArrayRef cells(copyUIElementChildren(row));
    for (CFIndex i = 0; i < CFArrayGetCount(cells); ++i) {
        const AXUIElementRef cell = childAt(cells, i);
        if (!identifierOf(cell).startsWith(QLatin1String("1399343204:CELL:0:"), Qt::CaseSensitive))
            continue;
        const ArrayRef cellChildren(copyUIElementChildren(cell));
        if (CFArrayGetCount(cellChildren) > 0)
            return ElementRef(retained(findNthElementWithRole(cellChildren, kQAXButtonRole, 0)));
        qDebug().noquote() << "Error: table row for selected pro tools track has no cells";
    }
    return ElementRef();
}

// The name of the track that the track list shows selected; empty when none can be told. The
// button of its row reads "Track: Kick 1": all behind the first word, one non-word character and
// one white-space character.
QString selectedTrackName(AXUIElementRef table) {
    CFTypeSmartRef<CFTypeRef> rows;
    const AXError error = AXUIElementCopyAttributeValue(table, CFSTR("AXSelectedRows"), rows.out());
    if (error != kAXErrorSuccess || !rows || CFGetTypeID(rows) != CFArrayGetTypeID()) {
        qWarning().noquote()
            << "Pro Tools UI element error: unable to read selected rows attribute from track table";
        return QString();
    }
    const auto selected = static_cast<CFArrayRef>(rows.get());
    if (CFArrayGetCount(selected) == 0)
        return QString();
    const ElementRef button = copyVisibilityButton(firstSelectedRow(selected));
    if (!button) {
        qDebug().noquote()
            << "Error: table row for selected pro tools track has no button in its visibility cell";
        return QString();
    }
    static const QRegularExpression pattern(QStringLiteral("^\\w+\\W\\s(.+)$"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    return trackNameIn(
        UIElementAttributeValue(button, QStringLiteral("AXValue"), false).toString(), pattern,
        "Error: table row for selected Pro Tools track has unexpected text in its visibility button:");
}

// The "AXDescription"s of an empty audio plug-in slot in Logic Pro's languages. Made once and kept
// for the life of the process.
CFSetRef emptyAudioPluginSlotDescriptions() {
    static const CFSetRef descriptions = [] {
        const void* texts[] = {CFSTR("audio plug-in"),   CFSTR("Audio-Plug-In"),        CFSTR("module audio"),
                               CFSTR("módulo de audio"), CFSTR("オーディオプラグイン"), CFSTR("音频插件"),
                               CFSTR("Audio-Plug-in")};
        return CFSetCreate(kCFAllocatorDefault, texts, sizeof texts / sizeof *texts, &kCFTypeSetCallBacks);
    }();
    return descriptions;
}

} // namespace

AXUIElementRef UIElement_p::selectProToolsSelectedInstrumentGroup(
    const std::function<AXUIElementRef(AXUIElementRef)>& descend, CFArrayRef children, AXUIElementRef,
    QFlags<UIElementSearchOption>, bool* abort) const {
    // Borrowed from children; a later group of the same name replaces an earlier one.
    QMap<QString, AXUIElementRef> groups;
    AXUIElementRef table = nullptr;
    for (CFIndex i = 0; i < countOf(children); ++i) {
        const AXUIElementRef child = childAt(children, i);
        const QString identifier = identifierOf(child);
        if (isTrackGroupIdentifier(identifier)) {
            const QString name = trackNameOfGroup(child);
            if (!name.isEmpty())
                groups.insert(name, child);
        } else if (isTrackListIdentifier(identifier)) {
            table = child;
        }
    }
    if (groups.isEmpty() || !table || shouldAbort(abort))
        return nullptr;

    const QString name = selectedTrackName(table);
    if (name.isEmpty())
        return nullptr;
    const AXUIElementRef group = groups.value(name);
    if (!group) {
        qWarning().noquote() << "Pro Tools UI element error: no matching track group for track name:" << name;
        return nullptr;
    }
    // Final: a group that leads nowhere is the answer, and no other group is tried.
    return descend(group);
}

AXUIElementRef
UIElement_p::selectLogicProNextEmptyPluginSlot(const std::function<AXUIElementRef(AXUIElementRef)>& descend,
                                               CFArrayRef children, bool* abort) const {
    // From the end: the free slot nearest the end of the list is the one meant.
    for (CFIndex i = countOf(children) - 1; i >= 0; --i) {
        if (shouldAbort(abort))
            return nullptr;
        const AXUIElementRef child = childAt(children, i);
        CFTypeSmartRef<CFTypeRef> description;
        if (AXUIElementCopyAttributeValue(child, CFSTR("AXDescription"), description.out()) !=
                kAXErrorSuccess ||
            !description)
            continue;
        if (CFSetContainsValue(emptyAudioPluginSlotDescriptions(), description.get()))
            return descend(child);
    }
    return nullptr;
}
