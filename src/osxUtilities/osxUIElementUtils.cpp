#include "osxUIElementUtils.h"

#include "CFTypeSmartRef.h"
#include "appkit/NSRunningApplication.h"
#include "cfDescription_p.h"
#include "osxMisc.h"

#include <QDebug>
#include <QHash>
#include <QObject>
#include <QSet>

const QString kQAXTitleAttribute = QStringLiteral("AXTitle");
const QString kQAXRoleAttribute = QStringLiteral("AXRole");
const QString kQAXRoleDescriptionAttribute = QStringLiteral("AXRoleDescription");
const QString kQAXSubroleAttribute = QStringLiteral("AXSubrole");
const QString kQAXApplicationRole = QStringLiteral("AXApplication");
const QString kQAXGroupRole = QStringLiteral("AXGroup");
const QString kQAXButtonRole = QStringLiteral("AXButton");
const QString kQAXMenuRole = QStringLiteral("AXMenu");
const QString kQAXMenuItemRole = QStringLiteral("AXMenuItem");
const QString kQAXWindowRole = QStringLiteral("AXWindow");
const QString kQAXScrollAreaRole = QStringLiteral("AXScrollArea");
const QString kQAXTextFieldRole = QStringLiteral("AXTextField");
const QString kQAXTextAreaRole = QStringLiteral("AXTextArea");
const QString kQAXComboBoxRole = QStringLiteral("AXComboBox");
const QString kQAXTimeFieldRole = QStringLiteral("AXTimeField");
const QString kQAXDateFieldRole = QStringLiteral("AXDateField");
const QString kQAXIncrementorRole = QStringLiteral("AXIncrementor");
const QString kQAXSliderRole = QStringLiteral("AXSlider");
const QString kQAXValueIndicatorRole = QStringLiteral("AXValueIndicator");
const QString kQAXLayoutItemRole = QStringLiteral("AXLayoutItem");
const QString kQAXToolbarRole = QStringLiteral("AXToolbar");
const QString kQAXSplitGroupRole = QStringLiteral("AXSplitGroup");
const QString kQAXSplitterRole = QStringLiteral("AXSplitter");
const QString kQAXWebAreaRole = QStringLiteral("AXWebArea");
const QString kQAXSecureTextFieldSubrole = QStringLiteral("AXSecureTextField");
const QString kQAXPressAction = QStringLiteral("AXPress");

namespace {

const QChar objectReplacementCharacter(0xFFFC);

// The one read of an attribute: null when the platform reports an error or no object.
CFTypeSmartRef<CFTypeRef> copyAttribute(AXUIElementRef element, CFStringRef attribute) {
    CFTypeSmartRef<CFTypeRef> value;
    if (AXUIElementCopyAttributeValue(element, attribute, value.out()) != kAXErrorSuccess)
        return CFTypeSmartRef<CFTypeRef>();
    return value;
}

bool isString(CFTypeRef value) {
    return value && CFGetTypeID(value) == CFStringGetTypeID();
}

// The text of a string value, null for anything else.
QString stringOf(CFTypeRef value) {
    return isString(value) ? QStringFromCFString(static_cast<CFStringRef>(value)) : QString();
}

QStringList stringsOf(CFArrayRef array) {
    QStringList strings;
    const CFIndex count = array ? CFArrayGetCount(array) : 0;
    for (CFIndex i = 0; i < count; ++i)
        strings.append(stringOf(CFArrayGetValueAtIndex(array, i)));
    return strings;
}

CFTypeSmartRef<CFArrayRef> copyActionNames(AXUIElementRef element) {
    CFTypeSmartRef<CFArrayRef> names;
    if (AXUIElementCopyActionNames(element, names.out()) != kAXErrorSuccess)
        return CFTypeSmartRef<CFArrayRef>();
    return names;
}

// Reads a packed point or size.
bool readPackedValue(AXUIElementRef element, CFStringRef attribute, AXValueType type, void* result) {
    const CFTypeSmartRef<CFTypeRef> value = copyAttribute(element, attribute);
    return value && CFGetTypeID(value) == AXValueGetTypeID() &&
           AXValueGetValue(static_cast<AXValueRef>(value.get()), type, result);
}

} // namespace

QString UIElementGetStringAttribute(AXUIElementRef element, CFStringRef attribute) {
    QString text = stringOf(copyAttribute(element, attribute));
    return text.remove(objectReplacementCharacter);
}

QString UIElementTitle(AXUIElementRef element) {
    return UIElementGetStringAttribute(element, CFSTR("AXTitle"));
}

QString UIElementRole(AXUIElementRef element) {
    return UIElementGetStringAttribute(element, CFSTR("AXRole"));
}

QVariant UIElementAttributeValue(AXUIElementRef element, CFStringRef attribute, bool quiet) {
    const CFTypeSmartRef<CFTypeRef> value = copyAttribute(element, attribute);
    if (!value)
        return QVariant();
    const QVariant result = CFTypeToVariant(value, true);
    if (!result.isValid() && !quiet)
        logUnsupportedCFValue("Warning: Tried to get UI element attribute value of unsupported type:", value);
    return result;
}

QVariant UIElementAttributeValue(AXUIElementRef element, const QString& attribute, bool quiet) {
    const CFTypeSmartRef<CFStringRef> name(CFStringCreateWithQString(attribute));
    return UIElementAttributeValue(element, name.get(), quiet);
}

int UIElementIdentifier(AXUIElementRef element) {
    return UIElementAttributeValue(element, CFSTR("AXIdentifier"), false).toInt();
}

QString UIElementIdentifierAsString(AXUIElementRef element) {
    return stringOf(copyAttribute(element, CFSTR("AXIdentifier")));
}

QStringList UIElementAttributes(AXUIElementRef element) {
    CFTypeSmartRef<CFArrayRef> names;
    if (AXUIElementCopyAttributeNames(element, names.out()) != kAXErrorSuccess || !names)
        return QStringList();
    QStringList attributes = stringsOf(names);
    if (!UIElementTitle(element).isEmpty())
        attributes.append(kQAXTitleAttribute);
    return attributes;
}

QStringList UIElementActionNames(AXUIElementRef element) {
    return stringsOf(copyActionNames(element));
}

QStringList UIElementActionDescriptions(AXUIElementRef element) {
    const CFTypeSmartRef<CFArrayRef> names = copyActionNames(element);
    QStringList descriptions;
    const CFIndex count = names ? CFArrayGetCount(names) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        const auto action = static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, i));
        CFTypeSmartRef<CFStringRef> description;
        AXUIElementCopyActionDescription(element, action, description.out());
        descriptions.append(stringOf(description));
    }
    return descriptions;
}

long UIElementChildrenCount(AXUIElementRef element) {
    CFIndex count = 0;
    if (AXUIElementGetAttributeValueCount(element, CFSTR("AXChildren"), &count) != kAXErrorSuccess)
        return 0;
    return count;
}

int UIElementPID(AXUIElementRef element) {
    pid_t pid = 0;
    const AXError error = AXUIElementGetPid(element, &pid);
    if (error != kAXErrorSuccess || pid == 0) {
        qWarning().noquote() << "Error: failed to get process ID for UI element. Error code:" << int(error);
        return 0;
    }
    return pid;
}

bool UIElementSize(CGSize& size, AXUIElementRef element) {
    return readPackedValue(element, CFSTR("AXSize"), kAXValueCGSizeType, &size);
}

bool UIElementPosition(CGPoint& position, AXUIElementRef element) {
    return readPackedValue(element, CFSTR("AXPosition"), kAXValueCGPointType, &position);
}

bool UIElementRect(CGRect& rect, AXUIElementRef element) {
    const bool haveSize = UIElementSize(rect.size, element);
    const bool havePosition = UIElementPosition(rect.origin, element);
    return haveSize && havePosition;
}

QString UIElementBundleId(AXUIElementRef element) {
    const int pid = UIElementPID(element);
    const NSRunningApplication* application =
        pid ? NSRunningApplication::runningApplicationWithProcessIdentifier(pid) : nullptr;
    return application ? application->bundleIdentifier() : QString();
}

QString UIElementProcessName(AXUIElementRef element) {
    const int pid = UIElementPID(element);
    const NSRunningApplication* application =
        pid ? NSRunningApplication::runningApplicationWithProcessIdentifier(pid) : nullptr;
    return application ? application->executableURL().fileName() : QString();
}

QSize UIElementSize(AXUIElementRef element) {
    CGSize size{};
    if (!UIElementSize(size, element))
        return QSize(-1, -1);
    return QSize(int(size.width), int(size.height));
}

QPoint UIElementPosition(AXUIElementRef element) {
    CGPoint position{};
    if (!UIElementPosition(position, element))
        return QPoint(0, 0);
    return QPoint(int(position.x), int(position.y));
}

QRect UIElementRect(AXUIElementRef element) {
    CGRect rect{};
    if (!UIElementRect(rect, element))
        return QRect();
    return CGRectToQRect(rect);
}

bool UIElementIsTextField(AXUIElementRef element, bool* isSecure) {
    static const QSet<QString> alwaysTextFields{kQAXTextFieldRole,  kQAXTextAreaRole,
                                                kQAXComboBoxRole,   kQAXTimeFieldRole,
                                                kQAXDateFieldRole,  QStringLiteral("AXDateTimeArea"),
                                                kQAXIncrementorRole};
    static const QSet<QString> textFieldsWhenEditable{kQAXWebAreaRole};

    if (isSecure)
        *isSecure = false;
    const QString role = UIElementRole(element);
    bool result = alwaysTextFields.contains(role);
    if (!result && textFieldsWhenEditable.contains(role)) {
        Boolean settable = false;
        result = AXUIElementIsAttributeSettable(element, CFSTR("AXValue"), &settable) == kAXErrorSuccess &&
                 settable;
    }
    if (result && isSecure)
        *isSecure = UIElementGetStringAttribute(element, CFSTR("AXSubrole")) == kQAXSecureTextFieldSubrole;
    return result;
}

bool UIElementIsOfType(AXUIElementRef element, const QString& type) {
    if (type == QLatin1String("menu item")) {
        return UIElementRole(element) == kQAXMenuItemRole &&
               (isProToolsUIElement(element) || UIElementActionNames(element).contains(kQAXPressAction));
    }
    if (type == QLatin1String("window"))
        return UIElementRole(element) == kQAXWindowRole;
    qDebug().noquote() << "Cannot check if UI element is unsupported type:" << type;
    return false;
}

bool UIElementsAreEqual(AXUIElementRef a, AXUIElementRef b, bool loose) {
    if (a == b)
        return true;
    if (!a || !b)
        return false;
    if (CFEqual(a, b))
        return true;
    if (!loose)
        return false;
    const QString role = UIElementRole(a);
    if (role != kQAXMenuItemRole && role != kQAXMenuRole)
        return false;
    return UIElementRole(b) == role && UIElementRect(a) == UIElementRect(b) &&
           UIElementTitle(a) == UIElementTitle(b);
}

QString UIElementShortDebugInfo(AXUIElementRef element) {
    const QString role = UIElementRole(element);
    const QString title = UIElementTitle(element);
    return title.isEmpty() ? role : QStringLiteral("%1: '%2'").arg(role, title);
}

namespace {

// The title, else the value; a string is cut to 60 characters and kept on one line, anything else
// is given by its platform description, uncut.
QString debugName(AXUIElementRef element) {
    constexpr qsizetype longestName = 60;
    for (CFStringRef attribute : {CFSTR("AXTitle"), CFSTR("AXValue")}) {
        const CFTypeSmartRef<CFTypeRef> value = copyAttribute(element, attribute);
        if (!value || (isString(value) && CFStringGetLength(static_cast<CFStringRef>(value.get())) == 0))
            continue;
        if (!isString(value)) {
            const CFTypeSmartRef<CFStringRef> description(CFCopyDescription(value));
            return stringOf(description);
        }
        QString name = stringOf(value);
        if (name.size() > longestName)
            name = name.left(longestName) + QStringLiteral("...");
        return name.replace(QLatin1Char('\n'), QLatin1Char(' '));
    }
    return QStringLiteral("no name");
}

} // namespace

QString UIElementDebugInfo(AXUIElementRef element) {
    if (!element)
        return QStringLiteral("NULL AXUIElementRef");
    QString role = stringOf(copyAttribute(element, CFSTR("AXRoleDescription")));
    if (role.isEmpty())
        role = QStringLiteral("no role");
    const QRect frame = UIElementRect(element);
    pid_t pid = 0;
    AXUIElementGetPid(element, &pid);
    const NSRunningApplication* application =
        NSRunningApplication::runningApplicationWithProcessIdentifier(pid);
    return QStringLiteral("%1, (%2, %3) (%4 x %5), %6 pid:%7 %8")
        .arg(role)
        .arg(frame.left())
        .arg(frame.top())
        .arg(frame.width())
        .arg(frame.height())
        .arg(debugName(element))
        .arg(pid)
        .arg(application ? application->localizedName() : QString());
}

QString getAXUIErrorString(AXError code) {
    const QHash<int, QString> texts{
        {kAXErrorSuccess, QObject::tr("No error occurred.")},
        {kAXErrorFailure, QObject::tr("A system error occurred, such as the failure to allocate an object.")},
        {kAXErrorIllegalArgument, QObject::tr("An illegal argument was passed to the function.")},
        {kAXErrorInvalidUIElement, QObject::tr("The AXUIElementRef passed to the function is invalid.")},
        {kAXErrorInvalidUIElementObserver,
         QObject::tr("The AXObserverRef passed to the function is not a valid observer.")},
        {kAXErrorCannotComplete,
         QObject::tr(
             "The function cannot complete because messaging failed in some way or because the application "
             "with which the function is communicating is busy or unresponsive.")},
        {kAXErrorAttributeUnsupported, QObject::tr("The attribute is not supported by the AXUIElementRef.")},
        {kAXErrorActionUnsupported, QObject::tr("The action is not supported by the AXUIElementRef.")},
        {kAXErrorNotificationUnsupported,
         QObject::tr("The notification is not supported by the AXUIElementRef.")},
        {kAXErrorNotImplemented,
         QObject::tr(
             "Indicates that the function or method is not implemented (this can be returned if a process "
             "does not support the accessibility API).")},
        {kAXErrorNotificationAlreadyRegistered,
         QObject::tr("This notification has already been registered for.")},
        {kAXErrorNotificationNotRegistered,
         QObject::tr("Indicates that a notification is not registered yet.")},
        {kAXErrorAPIDisabled,
         QObject::tr(
             "The accessibility API is disabled (as when, for example, the user deselects \"Enable access "
             "for assistive devices\" in Universal Access Preferences).")},
        {kAXErrorNoValue, QObject::tr("The requested value or AXUIElementRef does not exist.")},
        {kAXErrorParameterizedAttributeUnsupported,
         QObject::tr("The parameterized attribute is not supported by the AXUIElementRef.")},
        {kAXErrorNotEnoughPrecision, QObject::tr("Not enough precision.")},
    };
    return texts.value(int(code), QObject::tr("An unknown UI element error has occurred."));
}

void printAccessibilityThreadWarning(const char* functionName) {
    qDebug().noquote() << "%%%%% Error: calling" << QString::fromUtf8(functionName)
                       << "outside of main thread";
}

bool bundleIdIsProTools(const QString& bundleId) {
    return bundleId.startsWith(QLatin1String("com.avid.ProTools"), Qt::CaseSensitive);
}

bool isProToolsUIElement(AXUIElementRef element) {
    if (!element)
        return false;
    pid_t pid = 0;
    AXUIElementGetPid(element, &pid);
    const NSRunningApplication* application =
        NSRunningApplication::runningApplicationWithProcessIdentifier(pid);
    return application && bundleIdIsProTools(application->bundleIdentifier());
}
