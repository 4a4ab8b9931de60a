#include "UIElement.h"

#include "UIElementType.h"
#include "ZRMetaTypeRegistrar.h"
#include "dataObjectUtils.h"

#include <algorithm>

template class ZRMetaTypeObjectRegistrar<UIElement>;
template class ZRMetaTypeObjectRegistrar<UIElementCollection>;
template class ZRMetaTypeRegistrar<UIElementList>;

UIElement::UIElement(QObject* parent) : UIElementIdentifier(parent), impl(new UIElement_p(this)) {}

UIElement::UIElement(QPoint position, QObject* parent)
    : UIElementIdentifier(parent), impl(new UIElement_p(position, this)) {}

UIElement::UIElement(const NativeUIElement& element, QObject* parent)
    : UIElementIdentifier(parent),
      impl(element.isNull() ? new UIElement_p(this) : new UIElement_p(element, this)) {
    if (element.isNull())
        impl->setNull();
}

UIElement::UIElement(decltype(nullptr), QObject* parent)
    : UIElementIdentifier(parent), impl(new UIElement_p(this)) {
    impl->setNull();
}

void UIElement::setPlatformSpecificEntity(UIElement_p* newImpl) {
    if (newImpl == impl)
        return;
    delete impl;
    impl = newImpl;
    if (impl)
        impl->setParent(this);
}

namespace {

// What the guarded texts of an element without a description read.
const QString uninitialized = QStringLiteral("<uninitialized>");

} // namespace

int UIElement::findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit,
                                                   QFlags<UIElementSearchOption> options,
                                                   QVariant alternative, UIElement** foundElement,
                                                   bool* abort) const {
    // The caller learns which element answered, whatever the answer.
    if (foundElement)
        *foundElement = const_cast<UIElement*>(this);
    return impl ? impl->findUIElementAndGetInteractionPoint(point, requireHit, alternative, options, abort)
                : UIElementNotVerified;
}

int UIElement::findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption> options,
                                             QVariant alternative, bool* abort) const {
    return impl ? impl->findUIElementAndGetScreenRect(rect, alternative, options, abort)
                : UIElementNotVerified;
}

int UIElement::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                              QFlags<UIElementSearchOption> options,
                                                              QVariant alternative, bool* abort) const {
    return impl ? impl->findUIElementAndCreateOSSpecificRepresentation(element, alternative, options, abort)
                : UIElementNotVerified;
}

int UIElement::findUIElementAtHierarchyLevelAndGetScreenRect(QRect& rect, int level,
                                                             QFlags<UIElementSearchOption> options,
                                                             QVariant alternative, bool* abort) const {
    return impl
               ? impl->findUIElementAtHierarchyLevelAndGetScreenRect(rect, level, alternative, options, abort)
               : UIElementNotVerified;
}

bool UIElement::matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                            const NativeUIElement& start,
                                            QFlags<UIElementSearchOption> options) {
    return impl && impl->matchingElementUnderElement(result, levelsUp, start, options);
}

QString UIElement::shortDescription(bool includeRole, bool includeApplication, bool includeTargetType) const {
    return impl ? impl->shortDescription(includeRole, includeApplication, includeTargetType) : uninitialized;
}

bool UIElement::isNull() const {
    return !impl || impl->isNull();
}

QStringList UIElement::actionNames() const {
    return impl->actionNames();
}

QStringList UIElement::actionDescriptions() const {
    return impl->actionDescriptions();
}

QPoint UIElement::localInteractionPoint() const {
    return impl ? impl->localInteractionPoint() : QPoint();
}

QString UIElement::hierarchyDescription() const {
    // With blanks, unlike the other texts of an element without a description.
    return impl ? impl->hierarchyDescription() : QStringLiteral("< uninitialized >");
}

bool UIElement::isDegenerate() const {
    return impl && impl->isDegenerate();
}

QRect UIElement::screenRect() const {
    return impl ? impl->screenRect() : QRect();
}

QPoint UIElement::screenInteractionPoint() const {
    return impl ? impl->screenInteractionPoint() : QPoint();
}

QString UIElement::applicationId() const {
    return impl ? impl->applicationId() : QString();
}

QString UIElement::debugInfo() const {
    return impl ? impl->debugInfo() : uninitialized;
}

QString UIElement::htmlHierarchyDescription() const {
    return impl ? impl->htmlHierarchyDescription() : uninitialized;
}

QString UIElement::shortDescriptionOfElementAtHierarchyLevel(int level, bool includeRole,
                                                             bool includeApplication,
                                                             bool includeTargetType) const {
    return impl ? impl->shortDescriptionOfElementAtHierarchyLevel(level, includeRole, includeApplication,
                                                                  includeTargetType)
                : uninitialized;
}

int UIElement::hierarchySize() const {
    return impl ? impl->hierarchySize() : 0;
}

QMap<QString, QVariant> UIElement::attributeValuesForElementAtHierarchyLevel(int level) const {
    return impl ? impl->attributeValuesForElementAtHierarchyLevel(level) : QMap<QString, QVariant>();
}

QStringList UIElement::definingAttributesForElementAtHierarchyLevel(int level) const {
    return impl ? impl->definingAttributesForElementAtHierarchyLevel(level) : QStringList();
}

bool UIElement::canEditDefiningAttributesAtHierarchyLevel(int level) const {
    return impl && impl->canEditDefiningAttributesAtHierarchyLevel(level);
}

bool UIElement::usesSpecializedMatchingMethodAtHierarchyLevel(int level) const {
    return impl && impl->usesSpecializedMatchingMethodAtHierarchyLevel(level);
}

QVariant UIElement::optionForElementAtHierarchyLevel(int level, const QString& key) const {
    return impl ? impl->optionForElementAtHierarchyLevel(level, key) : QVariant();
}

bool UIElement::resolvesToSameOSSpecificElement(const UIElement* other,
                                                QFlags<UIElementSearchOption> options) const {
    return impl && other && other->impl && impl->resolvesToSameOSSpecificElement(other->impl, options);
}

bool UIElement::isEqualToElement(const UIElement* other) const {
    return impl && other && other->impl && impl->isEqualToElement(other->impl);
}

void UIElement::copyType(UIElementType* type) const {
    if (impl)
        impl->copyType(type);
}

void UIElement::raiseElement(int mode, QFlags<UIElementSearchOption> options) const {
    if (impl)
        impl->raiseElement(mode, options);
}

void UIElement::selectDefaultDefiningAttributesForHierarchy() {
    if (impl)
        impl->selectDefaultDefiningAttributesForHierarchy();
}

void UIElement::setTargetType(const QString& targetType) {
    if (impl)
        impl->setTargetType(targetType);
}

bool UIElement::canCreateOSSpecificUIElementRepresentation(QFlags<UIElementSearchOption> options) const {
    return impl->canCreateOSSpecificUIElementRepresentation(options);
}

bool UIElement::validate(QString& error, QFlags<UIElementSearchOption> options) const {
    return impl->validate(error, options);
}

int UIElement::matchingMethod() const {
    return impl->matchingMethod();
}

void UIElement::markAsDegenerate() {
    impl->markAsDegenerate();
}

UIElement* UIElement::copyParentElement() const {
    auto* copy = new UIElement(nullptr);
    deepCopyObject(impl->parentElement(), copy->impl, true);
    return copy;
}

QVariant UIElement::readInternalProperty(const char* name) const {
    return impl->property(name);
}

void UIElement::setNull() {
    impl->setNull();
}

void UIElement::copyTypeFromNativeElement(UIElementType* type, const NativeUIElement& element) {
    UIElement_p::copyTypeFromNativeElement(type, element);
}

QString UIElement::attributeDisplayName(const QString& name) {
    return UIElement_p::attributeDisplayName(name);
}

bool UIElement::attributeHasBooleanValue(const QString& name) {
    return UIElement_p::attributeHasBooleanValue(name);
}

void UIElement::setInteractionPointFromLocalPoint(QPoint newOffset) {
    if (impl)
        impl->setInteractionPointFromLocalPoint(newOffset);
}

void UIElement::setInteractionPointFromScreenPoint(QPoint p) {
    if (impl)
        impl->setInteractionPointFromScreenPoint(p);
}

void UIElement::setMatchingMethod(int method) {
    impl->setMatchingMethod(method);
}

void UIElement::setDefiningAttributesForElementAtHierarchyLevel(int level, QStringList newValue) {
    if (impl)
        impl->setDefiningAttributesForElementAtHierarchyLevel(level, newValue);
}

void UIElement::setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,
                                                            const QVariant& value) {
    if (impl)
        impl->setAttributeValueForElementAtHierarchyLevel(level, attributeName, value);
}

// The typed forms wrap their value and take the general one.
#define UIET_TYPED_ATTRIBUTE_SETTER(Type)                                                                    \
    void UIElement::setAttributeValueForElementAtHierarchyLevel(int level, const QString& attributeName,     \
                                                                Type value) {                                \
        setAttributeValueForElementAtHierarchyLevel(level, attributeName, QVariant(value));                  \
    }
UIET_TYPED_ATTRIBUTE_SETTER(int)
UIET_TYPED_ATTRIBUTE_SETTER(long long)
UIET_TYPED_ATTRIBUTE_SETTER(double)
UIET_TYPED_ATTRIBUTE_SETTER(bool)
UIET_TYPED_ATTRIBUTE_SETTER(const QString&)
UIET_TYPED_ATTRIBUTE_SETTER(const QRect&)
UIET_TYPED_ATTRIBUTE_SETTER(const QRectF&)
UIET_TYPED_ATTRIBUTE_SETTER(const QPoint&)
UIET_TYPED_ATTRIBUTE_SETTER(const QPointF&)
UIET_TYPED_ATTRIBUTE_SETTER(const QList<QString>&)
UIET_TYPED_ATTRIBUTE_SETTER(const QList<QVariant>&)
#undef UIET_TYPED_ATTRIBUTE_SETTER

void UIElement::setOptionForElementAtHierarchyLevel(int level, QString key, QVariant val) {
    if (impl)
        impl->setOptionForElementAtHierarchyLevel(level, key, val);
}

UIElementList::UIElementList(const QList<UIElement*>& other) : QList<UIElement*>(other) {}

UIElementList::~UIElementList() = default;

bool UIElementList::isSequentialStructure() const {
    return true;
}

QList<int> UIElementList::keyList() const {
    return indexList(*this);
}

UIElement*& UIElementList::getValueRef(const int& key) {
    return growingElementRef<UIElement*>(*this, key, defaultValue());
}

UIElement* UIElementList::getValue(const int& key) const {
    return at(key);
}

UIElementCollection::UIElementCollection(QObject* parent) : UIElementIdentifier(parent) {}

UIElementCollection* UIElementCollection::emptyElementCollection() {
    static UIElementCollection empty;
    return &empty;
}

// The alternatives in order: the first answer other than UIElementNotFound ends the search, an
// error as much as a success. `ask` gets each element and answers its code; `ended` hears of the
// element that ended the search.
template <typename Ask, typename Ended> int UIElementCollection::firstAnswer(Ask ask, Ended ended) const {
    if (elementList.isEmpty())
        return UIElementNotVerified;
    for (UIElement* candidate : elementList) {
        // A gap left by a list loaded with missing indices is no alternative.
        if (!candidate)
            continue;
        const int code = ask(*candidate);
        if (code != UIElementNotFound) {
            ended(candidate);
            return code;
        }
    }
    return UIElementNotFound;
}

int UIElementCollection::findUIElementAndGetInteractionPoint(QPoint& point, bool requireHit,
                                                             QFlags<UIElementSearchOption> options,
                                                             QVariant alternative, UIElement** foundElement,
                                                             bool* abort) const {
    return firstAnswer(
        [&](const UIElement& element) {
            return element.findUIElementAndGetInteractionPoint(point, requireHit, options, alternative,
                                                               nullptr, abort);
        },
        [&](UIElement* element) {
            if (foundElement)
                *foundElement = element;
        });
}

int UIElementCollection::findUIElementAndGetScreenRect(QRect& rect, QFlags<UIElementSearchOption> options,
                                                       QVariant alternative, bool* abort) const {
    return firstAnswer(
        [&](const UIElement& element) {
            return element.findUIElementAndGetScreenRect(rect, options, alternative, abort);
        },
        [](UIElement*) {});
}

int UIElementCollection::findUIElementAndCreateOSSpecificRepresentation(NativeUIElement& element,
                                                                        QFlags<UIElementSearchOption> options,
                                                                        QVariant alternative,
                                                                        bool* abort) const {
    return firstAnswer(
        [&](const UIElement& candidate) {
            return candidate.findUIElementAndCreateOSSpecificRepresentation(element, options, alternative,
                                                                            abort);
        },
        [](UIElement*) {});
}

bool UIElementCollection::matchingElementUnderElement(NativeUIElement& result, int& levelsUp,
                                                      const NativeUIElement& start,
                                                      QFlags<UIElementSearchOption> options) {
    for (UIElement* candidate : elementList) {
        NativeUIElement found;
        int up = 0;
        if (candidate && candidate->matchingElementUnderElement(found, up, start, options)) {
            result = found;
            levelsUp = up;
            return true;
        }
    }
    return false;
}

const UIElement* UIElementCollection::firstElement() const {
    return elementList.isEmpty() ? nullptr : elementList.first();
}

// One text for no element, the one element's own, and one for several.
template <typename Describe> QString UIElementCollection::describe(Describe describe) const {
    if (elementList.isEmpty())
        return tr("< No UI element >");
    if (elementList.size() > 1)
        return tr("< Multiple UI elements >");
    return elementList.first() ? describe(*elementList.first()) : QString();
}

QString UIElementCollection::shortDescription(bool includeRole, bool includeApplication,
                                              bool includeTargetType) const {
    return describe([&](const UIElement& element) {
        return element.shortDescription(includeRole, includeApplication, includeTargetType);
    });
}

QString UIElementCollection::hierarchyDescription() const {
    return describe([](const UIElement& element) { return element.hierarchyDescription(); });
}

QStringList UIElementCollection::actionNames() const {
    return firstElement() ? firstElement()->actionNames() : QStringList();
}

QStringList UIElementCollection::actionDescriptions() const {
    return firstElement() ? firstElement()->actionDescriptions() : QStringList();
}

QPoint UIElementCollection::localInteractionPoint() const {
    return firstElement() ? firstElement()->localInteractionPoint() : QPoint();
}

bool UIElementCollection::isEqualToElementCollection(const UIElementCollection* other) const {
    if (!other || other->elementList.size() != elementList.size())
        return false;
    for (qsizetype i = 0; i < elementList.size(); ++i) {
        const UIElement* mine = elementList.at(i);
        const UIElement* theirs = other->elementList.at(i);
        if (!mine || !theirs || !mine->platformSpecificEntity() || !theirs->platformSpecificEntity() ||
            !mine->platformSpecificEntity()->isEqualToElement(theirs->platformSpecificEntity()))
            return false;
    }
    return true;
}

bool UIElementCollection::isNull() const {
    return std::all_of(elementList.cbegin(), elementList.cend(),
                       [](const UIElement* element) { return !element || element->isNull(); });
}

const UIElementList& UIElementCollection::elements() const {
    return elementList;
}

void UIElementCollection::setElements(const UIElementList& newElements) {
    for (UIElement* element : newElements) {
        if (element)
            element->setParent(this);
    }
    elementList = newElements;
    Q_EMIT elementsChanged();
}

namespace {

// "Name(" and what describe writes, ")"; "Name(0x0)" for a null pointer.
template <typename T, typename Describe>
QDebug describedAs(QDebug debug, const char* name, const T* object, Describe describe) {
    const QDebugStateSaver saver(debug);
    debug.nospace().noquote() << name << '(';
    if (object)
        describe(debug, *object);
    else
        debug << "0x0";
    return debug << ')';
}

} // namespace

QDebug operator<<(QDebug debug, const UIElement* element) {
    return describedAs(debug, "UIElement", element,
                       [](QDebug& d, const UIElement& e) { d << e.shortDescription(true, true, true); });
}

QDebug operator<<(QDebug debug, const UIElement& element) {
    return debug << &element;
}

QDebug operator<<(QDebug debug, const UIElementCollection* collection) {
    return describedAs(debug, "UIElementCollection", collection, [](QDebug& d, const UIElementCollection& c) {
        d << c.shortDescription(true, true, true);
    });
}

QDebug operator<<(QDebug debug, const UIElementCollection& collection) {
    return debug << &collection;
}

QDebug operator<<(QDebug debug, const UIElementType* type) {
    return describedAs(debug, "UIElementType", type,
                       [](QDebug& d, const UIElementType& t) { d << t.description(); });
}

QDebug operator<<(QDebug debug, const UIElementType& type) {
    return debug << &type;
}
