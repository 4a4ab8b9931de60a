#pragma once

// Reading attributes of live user interface elements of other applications and turning them into
// Qt values. Every reader turns a failed read into the empty value of its type and keeps no state
// between calls. Functions whose name begins with copy hand the caller one retain.

#include "platformAccessibility.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVariant>

// The texts of the platform's accessibility constants of the same names without the Q.
extern const QString kQAXTitleAttribute;
extern const QString kQAXRoleAttribute;
extern const QString kQAXRoleDescriptionAttribute;
extern const QString kQAXSubroleAttribute;
extern const QString kQAXApplicationRole;
extern const QString kQAXGroupRole;
extern const QString kQAXButtonRole;
extern const QString kQAXMenuRole;
extern const QString kQAXMenuItemRole;
extern const QString kQAXWindowRole;
extern const QString kQAXScrollAreaRole;
extern const QString kQAXTextFieldRole;
extern const QString kQAXTextAreaRole;
extern const QString kQAXComboBoxRole;
extern const QString kQAXTimeFieldRole;
extern const QString kQAXDateFieldRole;
extern const QString kQAXIncrementorRole;
extern const QString kQAXSliderRole;
extern const QString kQAXValueIndicatorRole;
extern const QString kQAXLayoutItemRole;
extern const QString kQAXToolbarRole;
extern const QString kQAXSplitGroupRole;
extern const QString kQAXSplitterRole;
extern const QString kQAXWebAreaRole;
extern const QString kQAXSecureTextFieldSubrole;
extern const QString kQAXPressAction;

// The attribute's string without any U+FFFC; null when the read fails or gives no string.
QString UIElementGetStringAttribute(AXUIElementRef element, CFStringRef attribute);
QString UIElementTitle(AXUIElementRef element);
QString UIElementRole(AXUIElementRef element);

// The attribute converted by CFTypeToVariant; invalid when the read fails or the value has no Qt
// counterpart, which unless quiet is logged.
QVariant UIElementAttributeValue(AXUIElementRef element, CFStringRef attribute, bool quiet = false);
QVariant UIElementAttributeValue(AXUIElementRef element, const QString& attribute, bool quiet = false);

int UIElementIdentifier(AXUIElementRef element);
// "AXIdentifier" when it is a string, U+FFFC kept; empty otherwise.
QString UIElementIdentifierAsString(AXUIElementRef element);

// The supported attribute names, and "AXTitle" once more when the element has a title.
QStringList UIElementAttributes(AXUIElementRef element);
QStringList UIElementActionNames(AXUIElementRef element);
// One description per action name, empty where a description cannot be read.
QStringList UIElementActionDescriptions(AXUIElementRef element);
long UIElementChildrenCount(AXUIElementRef element);
// The owning process id; 0, logged, on failure.
int UIElementPID(AXUIElementRef element);

// Of the running application that owns the element; empty when there is none.
QString UIElementBundleId(AXUIElementRef element);
// The file name of the application's executable; empty when unknown.
QString UIElementProcessName(AXUIElementRef element);

bool UIElementSize(CGSize& size, AXUIElementRef element);
bool UIElementPosition(CGPoint& position, AXUIElementRef element);
bool UIElementRect(CGRect& rect, AXUIElementRef element);
// Width and height -1 on failure.
QSize UIElementSize(AXUIElementRef element);
// (0, 0) on failure.
QPoint UIElementPosition(AXUIElementRef element);
// Coordinates and size truncated toward zero; the null rectangle on failure.
QRect UIElementRect(AXUIElementRef element);

// type is "menu item" or "window"; any other word is logged and gives false.
bool UIElementIsOfType(AXUIElementRef element, const QString& type);
// Whether the element takes text; isSecure, when given, tells whether it is a secure text field.
bool UIElementIsTextField(AXUIElementRef element, bool* isSecure = nullptr);
// CFEqual; with loose, menus and menu items of equal role, rectangle and title are equal too.
bool UIElementsAreEqual(AXUIElementRef a, AXUIElementRef b, bool loose = false);

// One line for logs: role description, frame, name (the title, else the value, cut to 60
// characters), process id and application name; "NULL AXUIElementRef" for a null handle.
QString UIElementDebugInfo(AXUIElementRef element);

QString UIElementShortDebugInfo(AXUIElementRef element);

// The platform's explanation of an accessibility result code, translated.
QString getAXUIErrorString(AXError code);
void printAccessibilityThreadWarning(const char* functionName);

bool isProToolsUIElement(AXUIElementRef element);
bool bundleIdIsProTools(const QString& bundleId);
