#include "NativeUIElement.h"

#include "QtThreadUtilities.h"
#include "ZRMetaTypeRegistrar.h"
#include "osxUIElementUtils.h"

#include <QDebug>

template class ZRMetaTypeRegistrar<NativeUIElement>;

// The platform reference of the element, with the one retain that the handle owns.
struct NativeUIElement::Data {
    AXUIElementRef element = nullptr;
};

namespace {

void release(AXUIElementRef element) {
    if (element)
        CFRelease(element);
}

// Replaces the owned reference by an owned one.
void replace(AXUIElementRef& element, AXUIElementRef by) {
    release(element);
    element = by;
}

std::function<qint64(const QElapsedTimer&)>& queryDuration() {
    static std::function<qint64(const QElapsedTimer&)> duration;
    return duration;
}

qint64 millisecondsSince(const QElapsedTimer& timer) {
    return queryDuration() ? queryDuration()(timer) : timer.elapsed();
}

// A time-out that the platform reports this fast cannot be one.
constexpr qint64 shortestRealTimeoutMs = 100;

} // namespace

NativeUIElement::NativeUIElement() : data(new Data) {}

NativeUIElement::NativeUIElement(QPoint position, QString ancestorType, bool ancestorWithActions,
                                 const QSet<QString>& allowedApplications)
    : NativeUIElement() {
    setToElementAtScreenPosition(position, ancestorType, ancestorWithActions, allowedApplications, true,
                                 nullptr, QRect());
}

// The window cache is not copied: the copy finds its window anew when asked.
NativeUIElement::NativeUIElement(const NativeUIElement& other)
    : data(new Data{retained(other.data->element)}), m_screenPosition(other.m_screenPosition) {}

// The old reference goes first, so a handle assigned to itself while holding the element's last
// retain frees the element. It then stays null instead of retaining freed memory. The window
// cache stays as it was.
NativeUIElement& NativeUIElement::operator=(const NativeUIElement& other) {
    const bool releasesLastRetainOfItself =
        this == &other && data->element && CFGetRetainCount(data->element) == 1;
    release(data->element);
    data->element = releasesLastRetainOfItself ? nullptr : retained(other.data->element);
    m_screenPosition = other.m_screenPosition;
    return *this;
}

NativeUIElement::~NativeUIElement() {
    release(data->element);
    delete data;
}

void NativeUIElement::setToElementAtScreenPosition(QPoint position, QString ancestorType,
                                                   bool ancestorWithActions,
                                                   const QSet<QString>& allowedApplications,
                                                   bool employSearch, bool* timedOut,
                                                   const QRect& windowRect) {
    m_screenPosition = position;
    m_windowRect = windowRect;
    AXUIElementRef& element = data->element;
    for (int attempt = 1;; ++attempt) {
        QElapsedTimer timer;
        timer.start();
        AXError error = kAXErrorSuccess;
        replace(element, employSearch ? copyUIElementAtPositionEmployingSearchIfNecessary(position, &error)
                                      : copyUIElementAtPosition(position, &error));
        if (error != kAXErrorCannotComplete)
            break;
        if (attempt == 1 && millisecondsSince(timer) < shortestRealTimeoutMs) {
            qDebug() << "Note: first UI element query failed with timeout error even though it took "
                     << "less time than the actual timeout duration. Trying again!";
            continue;
        }
        if (timedOut)
            *timedOut = true;
        break;
    }
    // The application is judged by the element that was hit, before any climb.
    if (element && !allowedApplications.isEmpty() &&
        !allowedApplications.contains(UIElementBundleId(element)))
        replace(element, nullptr);
    if (!element)
        return;
    if (!ancestorType.isEmpty())
        replace(element, copyAncestorElementOfType(element, ancestorType));
    if (element && ancestorWithActions)
        replace(element, copyAncestorElementWithActions(element));
}

NativeUIElement NativeUIElement::parentElement() const {
    NativeUIElement parent;
    if (data->element)
        parent.data->element = copyUIElementParent(data->element);
    return parent;
}

NativeUIElement NativeUIElement::ancestorElementOfType(const QString& type) const {
    NativeUIElement ancestor;
    if (data->element)
        ancestor.data->element = copyAncestorElementOfType(data->element, type);
    return ancestor;
}

bool NativeUIElement::isNull() const {
    return data->element == nullptr;
}

QRect NativeUIElement::screenRect() const {
    return UIElementRect(data->element);
}

QRect NativeUIElement::windowRect() const {
    if (m_windowRect.isNull())
        m_windowRect = rectOfWindowContainingPoint(m_screenPosition.x(), m_screenPosition.y());
    return m_windowRect;
}

QString NativeUIElement::applicationIdentifier() const {
    return data->element ? UIElementBundleId(data->element) : QString();
}

long NativeUIElement::childrenCount() const {
    return UIElementChildrenCount(data->element);
}

bool NativeUIElement::isTextField(bool* isSecure) const {
    return UIElementIsTextField(data->element, isSecure);
}

QString NativeUIElement::description() const {
    const QString title = UIElementTitle(data->element);
    const QString type = typeDescription();
    return title.isEmpty() ? type : QStringLiteral("%1: %2").arg(type, title);
}

QString NativeUIElement::typeDescription() const {
    const QString roleDescription = UIElementGetStringAttribute(data->element, CFSTR("AXRoleDescription"));
    return roleDescription.isEmpty() ? UIElementRole(data->element) : roleDescription;
}

void NativeUIElement::printDebugInfo() const {
    qDebug() << "  screenPosition:" << m_screenPosition;
    qDebug() << "  data:" << static_cast<const void*>(data);
    qDebug() << "  data->element:" << static_cast<const void*>(data->element);
    qDebug() << "  element info:" << UIElementShortDebugInfo(data->element);
}

QString NativeUIElement::debugInfo() const {
    return UIElementDebugInfo(data->element);
}

void* NativeUIElement::copyOSSpecificElementReference() const {
    return const_cast<void*>(static_cast<const void*>(retained(data->element)));
}

void NativeUIElement::setOSSpecificElementReference(void* reference) {
    replace(data->element, static_cast<AXUIElementRef>(reference));
}

bool NativeUIElement::operator==(const NativeUIElement& other) const {
    return data->element && other.data->element && CFEqual(data->element, other.data->element);
}

bool NativeUIElement::operator!=(const NativeUIElement& other) const {
    return !data->element || !other.data->element || !CFEqual(data->element, other.data->element);
}

bool executeUIElementTask(int timeout, std::function<void()> task) {
    const bool finished = executeInMainThreadAndWaitForCompletion(timeout, task);
    if (!finished)
        qDebug() << "Error: UI element task timed out";
    return finished;
}

void setUIElementQueryDurationForTesting(std::function<qint64(const QElapsedTimer&)> duration) {
    queryDuration() = std::move(duration);
}
