// Presentation and editing: what a person sees of a description (readable attribute names, the
// values of each level, the textual descriptions) and the edits made through that view.

#include "UIElement_pMatching.h"

#include "UIElementType.h"
#include "osxUIElementUtils.h"

#include <QCoreApplication>
#include <QDebug>
#include <QHash>

#include <optional>

namespace {

// One row of the attribute table: the key, the text shown for it, and whether the user
// interface offers it as a yes-or-no value. AXEdited and AXValueWraps are yes-or-no attributes
// of the platform, but are edited as text all the same.
struct AttributeRow {
    const char* key;
    const char* displayName;
    bool boolean;
};

// The private keys first, then the accessibility attributes.
constexpr AttributeRow attributeRows[] = {
    {"childIndex", QT_TRANSLATE_NOOP("UIElement_p", "Sibling order"), false},
    {"matchingRoleChildIndex", QT_TRANSLATE_NOOP("UIElement_p", "Sibling type order"), false},
    {"childCount", QT_TRANSLATE_NOOP("UIElement_p", "Number of children"), false},
    {"localRect", QT_TRANSLATE_NOOP("UIElement_p", "Local rect"), false},
    {"bundleId", QT_TRANSLATE_NOOP("UIElement_p", "Bundle ID"), false},
    {"processName", QT_TRANSLATE_NOOP("UIElement_p", "Process name"), false},
    {"AXRole", QT_TRANSLATE_NOOP("UIElement_p", "Element type"), false},
    {"AXSubrole", QT_TRANSLATE_NOOP("UIElement_p", "Element subtype"), false},
    {"AXRoleDescription", QT_TRANSLATE_NOOP("UIElement_p", "Type description"), false},
    {"AXHelp", QT_TRANSLATE_NOOP("UIElement_p", "Help"), false},
    {"AXTitle", QT_TRANSLATE_NOOP("UIElement_p", "Title"), false},
    {"AXValue", QT_TRANSLATE_NOOP("UIElement_p", "Value"), false},
    {"AXValueDescription", QT_TRANSLATE_NOOP("UIElement_p", "Value description"), false},
    {"AXMinValue", QT_TRANSLATE_NOOP("UIElement_p", "Minimum value"), false},
    {"AXMaxValue", QT_TRANSLATE_NOOP("UIElement_p", "Maximum value"), false},
    {"AXValueIncrement", QT_TRANSLATE_NOOP("UIElement_p", "Value increment"), false},
    {"AXAllowedValues", QT_TRANSLATE_NOOP("UIElement_p", "Allowed values"), false},
    {"AXPlaceholderValue", QT_TRANSLATE_NOOP("UIElement_p", "Placeholder value"), false},
    {"AXEnabled", QT_TRANSLATE_NOOP("UIElement_p", "Enabled"), true},
    {"AXElementBusy", QT_TRANSLATE_NOOP("UIElement_p", "Element busy"), true},
    {"AXFocused", QT_TRANSLATE_NOOP("UIElement_p", "Focused"), true},
    {"AXPosition", QT_TRANSLATE_NOOP("UIElement_p", "Position in parent"), false},
    {"AXSize", QT_TRANSLATE_NOOP("UIElement_p", "Size"), false},
    {"AXOrientation", QT_TRANSLATE_NOOP("UIElement_p", "Orientation"), false},
    {"AXDescription", QT_TRANSLATE_NOOP("UIElement_p", "Description"), false},
    {"AXSelectedText", QT_TRANSLATE_NOOP("UIElement_p", "Selected text"), false},
    {"AXNumberOfCharacters", QT_TRANSLATE_NOOP("UIElement_p", "Number of characters"), false},
    {"AXMain", QT_TRANSLATE_NOOP("UIElement_p", "Main"), true},
    {"AXMinimized", QT_TRANSLATE_NOOP("UIElement_p", "Minimized"), true},
    {"AXModal", QT_TRANSLATE_NOOP("UIElement_p", "Modal"), true},
    {"AXEdited", QT_TRANSLATE_NOOP("UIElement_p", "Edited"), false},
    {"AXValueWraps", QT_TRANSLATE_NOOP("UIElement_p", "Value wraps"), false},
    {"AXTabs", QT_TRANSLATE_NOOP("UIElement_p", "Tabs"), false},
    {"AXFilename", QT_TRANSLATE_NOOP("UIElement_p", "Filename"), false},
    {"AXExpanded", QT_TRANSLATE_NOOP("UIElement_p", "Expanded"), true},
    {"AXSelected", QT_TRANSLATE_NOOP("UIElement_p", "Selected"), true},
    {"AXDocument", QT_TRANSLATE_NOOP("UIElement_p", "Document"), false},
    {"AXContents", QT_TRANSLATE_NOOP("UIElement_p", "Contents"), false},
    {"AXURL", QT_TRANSLATE_NOOP("UIElement_p", "URL"), false},
    {"AXLabelValue", QT_TRANSLATE_NOOP("UIElement_p", "Label value"), false},
    {"AXRows", QT_TRANSLATE_NOOP("UIElement_p", "Rows"), false},
    {"AXVisibleRows", QT_TRANSLATE_NOOP("UIElement_p", "Visible rows"), false},
    {"AXSelectedRows", QT_TRANSLATE_NOOP("UIElement_p", "Selected rows"), false},
    {"AXColumns", QT_TRANSLATE_NOOP("UIElement_p", "Columns"), false},
    {"AXIndex", QT_TRANSLATE_NOOP("UIElement_p", "Index"), false},
    {"AXUnits", QT_TRANSLATE_NOOP("UIElement_p", "Units"), false},
    {"AXUnitDescription", QT_TRANSLATE_NOOP("UIElement_p", "Units description"), false},
    {"AXIsApplicationRunning", QT_TRANSLATE_NOOP("UIElement_p", "Is application running"), true},
    {"AXRowCount", QT_TRANSLATE_NOOP("UIElement_p", "Row count"), false},
    {"AXColumnCount", QT_TRANSLATE_NOOP("UIElement_p", "Column count"), false},
    {"AXText", QT_TRANSLATE_NOOP("UIElement_p", "Text"), false},
    {"AXVisibleText", QT_TRANSLATE_NOOP("UIElement_p", "Visible text"), false},
    {"AXIsEditable", QT_TRANSLATE_NOOP("UIElement_p", "Is editable"), true},
    {"AXIdentifier", QT_TRANSLATE_NOOP("UIElement_p", "Identifier"), false},
    {"AXFrontmost", QT_TRANSLATE_NOOP("UIElement_p", "Frontmost"), true},
    {"AXHidden", QT_TRANSLATE_NOOP("UIElement_p", "Hidden"), true},
    {"AXFullScreen", QT_TRANSLATE_NOOP("UIElement_p", "Full screen"), true},
    {"AXDisclosing", QT_TRANSLATE_NOOP("UIElement_p", "Disclosing"), true},
    {"AXDisclosureLevel", QT_TRANSLATE_NOOP("UIElement_p", "Disclosure level"), false},
    {"AXInsertionPointLineNumber", QT_TRANSLATE_NOOP("UIElement_p", "Insertion point line number"), false},
};

// The element at a hierarchy level, or null for a level outside the chain.
template <class Element> Element* elementAtLevel(Element& element, int level) {
    QList<Element*> chain;
    element.topDownElementList(chain);
    return level >= 0 && level < chain.size() ? chain.at(level) : nullptr;
}

// "<target type> containing ", or nothing when no ancestor is meant.
QString targetTypePrefix(const QString& targetType) {
    return targetType.isEmpty() ? QString()
                                : UIElement_p::tr("%1 containing").arg(targetType) + QLatin1Char(' ');
}

QString rectText(const QRect& rect) {
    return QStringLiteral("(%1,%2 %3x%4)").arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height());
}

// The identifiers replace the old ones whole.
void fillType(UIElementType* type, const QString& description, const QString& role,
              const std::optional<QString>& subrole) {
    type->setDescription(description);
    ZRSerializableStringMap identifiers;
    identifiers.insert(kQAXRoleAttribute, role);
    if (subrole)
        identifiers.insert(kQAXSubroleAttribute, *subrole);
    type->setIdentifiers(identifiers);
}

} // namespace

QString UIElement_p::attributeDisplayName(const QString& name) {
    // Translated once: the translator in force at first use names the attributes for good.
    static const QHash<QString, QString> displayNames = [] {
        QHash<QString, QString> names;
        for (const AttributeRow& row : attributeRows)
            names.insert(QString::fromLatin1(row.key), tr(row.displayName));
        return names;
    }();
    return displayNames.value(name, name);
}

bool UIElement_p::attributeHasBooleanValue(const QString& name) {
    static const QHash<QString, bool> booleans = [] {
        QHash<QString, bool> values;
        for (const AttributeRow& row : attributeRows)
            values.insert(QString::fromLatin1(row.key), row.boolean);
        return values;
    }();
    return booleans.value(name, false);
}

QMap<QString, QVariant> UIElement_p::attributeValuesForElementAtHierarchyLevel(int level) const {
    const UIElement_p* element = elementAtLevel(*this, level);
    if (!element)
        return {};
    const ZRSerializableVariantMap& attributes = element->m_attributes;
    // The application is shown by what identifies it, whatever else it reports.
    if (element->isTopLevelApplicationElement()) {
        const QString bundleIdKey = QStringLiteral("bundleId");
        const QString processNameKey = QStringLiteral("processName");
        return {{bundleIdKey, attributes.value(bundleIdKey, element->m_bundleId)},
                {processNameKey, attributes.value(processNameKey, element->processName())}};
    }
    QMap<QString, QVariant> values = attributes;
    if (!element->m_title.isEmpty() && !values.contains(kQAXTitleAttribute))
        values.insert(kQAXTitleAttribute, element->m_title);
    static const QStringList relevantProperties{QStringLiteral("childIndex"),
                                                QStringLiteral("matchingRoleChildIndex"),
                                                QStringLiteral("childCount"), QStringLiteral("localRect")};
    // An entry the user entered, such as a list of alternatives, stands before the property.
    for (const QString& name : relevantProperties)
        if (!values.contains(name))
            values.insert(name, element->property(name.toLatin1().constData()));
    return values;
}

void UIElement_p::setAttributeValueForElementAtHierarchyLevel(int level, const QString& name,
                                                              const QVariant& value) {
    QList<UIElement_p*> chain;
    topDownElementList(chain);
    if (level < 0 || level >= chain.size())
        return;
    static const QMap<QString, QString> correspondingProperties{
        {kQAXRoleAttribute, QStringLiteral("role")},
        {kQAXRoleDescriptionAttribute, QStringLiteral("roleDescription")},
        {kQAXTitleAttribute, QStringLiteral("title")}};
    const QByteArray property = correspondingProperties.value(name, name).toLocal8Bit();

    QVariant written = value;
    QVariantList values;
    if (UIElementMatching::isList(value)) {
        values = value.toList();
        if (values.isEmpty())
            written = QVariant(QString());
    }
    const bool multiValue = !values.isEmpty();

    // A multi-value write keeps the list in attributes for matching; the property holds one
    // representative value. An attribute without a property can be overwritten, never added.
    const auto write = [&](UIElement_p* element) {
        bool taken = false;
        if (element->metaObject()->indexOfProperty(property.constData()) >= 0) {
            element->setProperty(property.constData(), multiValue ? values.first() : written);
            if (multiValue)
                element->m_attributes.insert(name, written);
            taken = true;
        }
        if (element->m_attributes.contains(name)) {
            element->m_attributes.insert(name, written);
            taken = true;
        }
        return taken;
    };

    bool taken = write(chain.at(level));
    // Every level of a chain belongs to one application.
    if (level == 0 && (name == QLatin1String("bundleId") || name == QLatin1String("processName"))) {
        for (int other = 1; other < chain.size(); ++other)
            taken = write(chain.at(other)) || taken;
        updateApplicationNameForHierarchy(chain);
    }
    if (!taken)
        qWarning().noquote() << "Tried to set invalid attribute name on UI element:" << name;
}

QStringList UIElement_p::definingAttributesForElementAtHierarchyLevel(int level) const {
    const UIElement_p* element = elementAtLevel(*this, level);
    return element ? element->definingAttributes() : QStringList();
}

void UIElement_p::setDefiningAttributesForElementAtHierarchyLevel(int level,
                                                                  const QList<QString>& attributes) {
    QList<UIElement_p*> chain;
    topDownElementList(chain);
    if (level < 0 || level >= chain.size())
        return;
    chain.at(level)->setDefiningAttributes(attributes);
    // Custom matching names the application by what its level is defined by.
    if (level == 0)
        updateApplicationNameForHierarchy(chain);
}

bool UIElement_p::canEditDefiningAttributesAtHierarchyLevel(int level) const {
    Q_UNUSED(level)
    return true;
}

bool UIElement_p::usesSpecializedMatchingMethodAtHierarchyLevel(int level) const {
    const auto isOn = [&](const QString& key) {
        const QVariant option = optionForElementAtHierarchyLevel(level, key);
        return option.isValid() && option.toBool();
    };
    return isOn(kSyncToProToolsSelectedTrackOption) ||
           isOn(kLogicProSelectFirstEmptyPluginSlotOption);
}

QVariant UIElement_p::optionForElementAtHierarchyLevel(int level, const QString& key) const {
    const UIElement_p* element = elementAtLevel(*this, level);
    return element ? element->options().value(key) : QVariant();
}

void UIElement_p::setOptionForElementAtHierarchyLevel(int level, const QString& key, QVariant value) {
    UIElement_p* element = elementAtLevel(*this, level);
    if (!element)
        return;
    // Through the setter with a whole map, so that the change signals fire.
    ZRSerializableVariantMap changed = element->options();
    changed.insert(key, value);
    element->setOptions(changed);
}

QString UIElement_p::shortDescription(bool includeRole, bool includeApplication,
                                      bool includeTargetType) const {
    if (m_null)
        return tr("< Invalid UI element >");
    QString text = includeTargetType ? targetTypePrefix(targetType()) : QString();
    const QString quotedTitle = QLatin1Char('"') + m_title + QLatin1Char('"');
    if (!includeRole)
        text += quotedTitle;
    else if (m_title.isEmpty())
        text += m_roleDescription;
    else
        text += m_roleDescription + QLatin1Char(' ') + quotedTitle;
    if (includeApplication) {
        text += QStringLiteral(" - ");
        if (m_applicationName == QLatin1String("*"))
            text += tr("Any application");
        else if (!m_applicationName.isEmpty())
            text += m_applicationName;
        else
            text += tr("Unknown application");
    }
    return text;
}

QString UIElement_p::shortDescriptionOfElementAtHierarchyLevel(int level, bool includeRole,
                                                               bool includeApplication,
                                                               bool includeTargetType) const {
    const UIElement_p* element = elementAtLevel(*this, level);
    return element ? element->shortDescription(includeRole, includeApplication, includeTargetType)
                   : QString();
}

void UIElement_p::hierarchyDescriptionParts(QList<QString>& parts) const {
    if (m_null)
        parts = {QStringLiteral("< %1 >").arg(tr("Invalid UI element"))};
    // The top of the chain shows as its application, not as its role.
    if (!m_parentElement) {
        parts.prepend(m_applicationName);
        return;
    }
    parts.prepend(m_title.length() > 0 ? QStringLiteral("%1: \"%2\"").arg(m_roleDescription, m_title)
                                       : m_roleDescription);
    m_parentElement->hierarchyDescriptionParts(parts);
}

QString UIElement_p::hierarchyDescription() const {
    QList<QString> parts;
    hierarchyDescriptionParts(parts);
    return targetTypePrefix(targetType()) + parts.join(QStringLiteral(" > "));
}

QString UIElement_p::htmlHierarchyDescription() const {
    if (m_null)
        return QStringLiteral("&lt; %1 &gt;").arg(tr("Invalid UI element"));
    QList<QString> parts;
    hierarchyDescriptionParts(parts);
    return QStringLiteral("<span>") + targetTypePrefix(targetType()) +
           parts.join(QStringLiteral(" <b>&gt;</b> ")) + QStringLiteral("</span>");
}

QString UIElement_p::debugInfo() const {
    QStringList lines;
    for (const UIElement_p* element = this; element; element = element->m_parentElement) {
        lines << QString(2 * lines.size(), QLatin1Char(' ')) + QStringLiteral("UIElement(title=") +
                     element->m_title + QStringLiteral(", role=") + element->m_role +
                     QStringLiteral(", childIndex=") + QString::number(element->childIndex()) +
                     QStringLiteral(", matchingTypeChildIndex=") +
                     QString::number(element->matchingRoleChildIndex()) + QStringLiteral(", localRect=") +
                     rectText(element->localRect()) + QStringLiteral(", screenRect=") +
                     rectText(element->screenRect()) + QLatin1Char(')');
    }
    return lines.join(QLatin1Char('\n'));
}

void UIElement_p::copyType(UIElementType* type) const {
    // A saved subrole counts even when empty; the web area rule isn't applied again.
    const std::optional<QString> subrole =
        m_attributes.contains(kQAXSubroleAttribute)
            ? std::optional<QString>(m_attributes.value(kQAXSubroleAttribute).toString())
            : std::nullopt;
    fillType(type, m_roleDescription, m_role, subrole);
}

void UIElement_p::copyTypeFromNativeElement(UIElementType* type, const NativeUIElement& element) {
    const CFTypeSmartRef<AXUIElementRef> reference(
        static_cast<AXUIElementRef>(element.copyOSSpecificElementReference()));
    if (!reference)
        return;
    const QString description = UIElementGetStringAttribute(reference, CFSTR("AXRoleDescription"));
    QString role = UIElementRole(reference);
    const QString subrole = UIElementGetStringAttribute(reference, CFSTR("AXSubrole"));
    // A menu item inside web content is a kind of its own, which no platform role names.
    if (role == kQAXMenuItemRole && UIElementOrAncestorHasRole(reference, CFSTR("AXWebArea")))
        role = QStringLiteral("AXUCWebAreaMenuItem");
    fillType(type, description, role, subrole.isEmpty() ? std::nullopt : std::optional<QString>(subrole));
}
