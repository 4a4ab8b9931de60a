#pragma once

// Reading attributes of live user interface elements of other applications and turning them into
// Qt values. Every reader turns a failed read into the empty value of its type and keeps no state
// between calls. Functions whose name begins with copy hand the caller one retain.

#include "CFTypeSmartRef.h"
#include "platformAccessibility.h"
#include "platformWindowServer.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

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

// ----------------------------------------------------------------------------------------------
// Hierarchy navigation and search (osxUIElementHierarchy.cpp).
//
// The walks trust no single answer of the platform: a child's "AXParent" may name an element that
// does not list it, and one element may be reached by two paths. A child list that cannot be read
// counts as empty; a parent read counts only when it succeeds with an object. No walk has a depth
// limit: recursion goes as deep as the application's tree.

// The "AXChildren" array; null when it cannot be read, which the strict walks stop on.
CFArrayRef copyUIElementChildrenOrNull(AXUIElementRef element);
// The "AXChildren" array; a new empty array when it cannot be read, never null.
CFArrayRef copyUIElementChildren(AXUIElementRef element);
// "AXParent"; null on an error.
AXUIElementRef copyUIElementParent(AXUIElementRef element);
// The parent that really lists the element: the reported one, or one of its children when only
// that child lists the element; null otherwise. loose as in UIElementsAreEqual.
AXUIElementRef verifyAndCopyUIElementParent(AXUIElementRef element, bool loose);
// The application element of the element's process; null when the pid is 0.
AXUIElementRef copyUIElementApplication(AXUIElementRef element);
// The application element of the first running application with the bundle identifier.
AXUIElementRef copyApplicationWithBundleId(const QString& bundleId);
// Only an application element is top level.
bool isTopLevelElement(AXUIElementRef element);

// Climbs from the element itself up "AXParent" to the first element that passes the test; null
// when a parent read fails first.
AXUIElementRef copyAncestorElementOfType(AXUIElementRef element, const QString& type);
AXUIElementRef copyAncestorElementWithRole(AXUIElementRef element, const QString& role);
// Compares the role as a platform string; a role that cannot be read does not stop the climb.
AXUIElementRef copyAncestorUIElementWithRole(AXUIElementRef element, CFStringRef role);
bool UIElementOrAncestorHasRole(AXUIElementRef element, CFStringRef role);
AXUIElementRef copyAncestorElementWithActions(AXUIElementRef element);
AXUIElementRef copyAncestorElementWithAction(AXUIElementRef element, const QString& action);
bool UIElementIsSameOrAncestor(AXUIElementRef ancestor, AXUIElementRef element);

// The last element reached up plain "AXParent"; the element itself when it has no parent.
AXUIElementRef copyFarthestAncestor(AXUIElementRef element);
// The same climb through verified parents only.
AXUIElementRef copyFarthestVerifiableAncestor(AXUIElementRef element, bool loose);
bool UIElementIsNotRootedInApplication(AXUIElementRef element);

// The element at or below root whose children contain element; all children of a node are
// compared before any of them is entered.
AXUIElementRef recursivelySearchForParentOfElementAndCopy(AXUIElementRef root, AXUIElementRef element);
bool elementIsDescendant(AXUIElementRef root, AXUIElementRef element);
// Whether every step up the element's chain is confirmed by a search from the parent.
bool elementIsReachableFromTop(AXUIElementRef element);
// The first element below root that passes the test, children before grandchildren.
AXUIElementRef copyElementInAllDescendantsPassingTest(AXUIElementRef root,
                                                      const std::function<bool(AXUIElementRef)>& test);
typedef bool (*UIElementSearchPredicate)(AXUIElementRef element, void* context);
// The first element that passes the predicate, walking the whole tree from start: down before up,
// each element entered once.
AXUIElementRef searchUpAndDownHierarchyForElementAndCopy(AXUIElementRef start,
                                                         UIElementSearchPredicate predicate, void* context);
// Diagnostic: logs the path from root down to element when it finds it.
bool debugRecursivelySearchForElement(AXUIElementRef element, AXUIElementRef root);

// Ancestor lists run from the top of the tree down to the element's direct parent.
bool searchTopDownForElementAndBuildAncestorList(AXUIElementRef element, UIElementAncestorList& list);
bool searchTopDownForElementAndBuildAncestorListRec(AXUIElementRef target, AXUIElementRef current,
                                                    UIElementAncestorList& list, int depth);
// True when the verified climb ends at an application; list holds the verified part either way.
bool searchBottomUpForElementAndBuildAncestorList(AXUIElementRef element, UIElementAncestorList& list,
                                                  bool loose);
bool searchBottomUpForElementAndBuildAncestorListRec(AXUIElementRef element, UIElementAncestorList& list,
                                                     bool loose);

// Borrowed from elements: valid as long as the array is. The n-th (from 0) with exactly this role.
AXUIElementRef findNthElementWithRole(CFArrayRef elements, const QString& role, int n);
AXUIElementRef copyChildElementWithRole(AXUIElementRef element, const QString& role);
bool hasChildElementWithRole(AXUIElementRef element, const QString& role);
// The first child whose "AXSubrole" is subrole; null when "AXChildren" cannot be read.
AXUIElementRef copyUIElementChildBySubrole(AXUIElementRef element, CFStringRef subrole);

// Whether the two applications made from the elements' pids are the same.
bool UIElementsAreFromSameApplication(AXUIElementRef a, AXUIElementRef b);

// ----------------------------------------------------------------------------------------------
// Windows: lookup, activation and title bar (osxUIElementWindows.cpp).
//
// The accessibility attributes and the window server are two views of the same windows and
// neither always answers: each lookup has a plain form, a form through the window id, and a
// robust form that tries one after the other.

// The outermost window by attributes: copyUIElementWindowRec(element, null, UIElementPID(element)).
AXUIElementRef copyUIElementWindow(AXUIElementRef element);
// Climbs to the very top, jumping through "AXWindow", and gives the last window met; null when the
// climb leads into another process or meets an element without a role.
AXUIElementRef copyUIElementWindowRec(AXUIElementRef element, AXUIElementRef candidate, int pid);
AXUIElementRef copyUIElementWindowUsingPrivateAPI(AXUIElementRef element);
AXUIElementRef copyUIElementWindowRobustly(AXUIElementRef element);
// The nearest window or sheet at or above the element.
AXUIElementRef copyUIElementWindowOrSheet(AXUIElementRef element);
AXUIElementRef copyWindowWithPIDAndWindowID(int pid, CGWindowID windowID);

// 0 different windows, 1 the same window, 2 the window of at least one cannot be found.
int UIElementsHaveSameWindow(AXUIElementRef a, AXUIElementRef b);

AXUIElementRef copyWindowContainingPoint(const QPoint& point);
AXUIElementRef copyWindowUnderScreenPosition(const QPoint& point);
AXUIElementRef copyWindowUnderMouse();
AXUIElementRef copyWindowContainingPointUsingPrivateAPIs(const QPoint& point);
AXUIElementRef copyWindowContainingPointRobustly(const QPoint& point);
// The status of the window server calls; 0 with a pid or window id of 0 means no window.
CGError pidAndWindowIDOfWindowContainingPoint(int x, int y, int& pid, CGWindowID& windowID);
// The owner's pid, 0 for none; rect is the null rectangle when the window server fails.
int pidAndScreenRectOfWindowContainingPoint(int x, int y, QRect& rect);
int pidOfWindowContainingPoint(int x, int y);
QRect rectOfWindowContainingPoint(int x, int y);

AXUIElementRef copyFocusedWindow();
AXUIElementRef copyFocusedWindowOfApplicationByProcessIdentifier(int pid);
bool isWindowFocused(AXUIElementRef window);
void makeElementApplicationFrontmost(AXUIElementRef element);

// 0 activated (pid set), 1 failed, 2 already focused.
int activateWindow(AXUIElementRef window, int& pid);
int activateWindowContainingPoint(const QPoint& point, int& pid);
AXUIElementRef copyTitlebarButtonOfWindow(AXUIElementRef window, CFStringRef buttonAttribute,
                                          CFStringRef buttonSubrole);
// fallbackAttribute, fallbackValue and action may be null.
void pressTitlebarButtonOfWindow(AXUIElementRef window, CFStringRef buttonAttribute, CFStringRef buttonSubrole,
                                 CFStringRef fallbackAttribute, CFTypeRef fallbackValue, CFStringRef action);

// ----------------------------------------------------------------------------------------------
// Hit testing (osxUIElementHitTesting.cpp).
//
// The platform's one call for the element at a point comes first; some applications answer it
// with a coarse container or nothing, and then the application's tree is searched by rectangles
// (or, in Pro Tools, by its window layout). A time-out ends all further work.

// The platform's answer and nothing else. error, when given, is cleared first and set to the
// platform's result when there is no element.
AXUIElementRef copyUIElementAtPosition(float x, float y, AXError* error = nullptr);
AXUIElementRef copyUIElementAtPosition(const QPoint& point, AXError* error = nullptr);

// How the full strategy came to its answer.
enum class UIElementHitTestWay {
    Nothing,         // no element, found neither way
    PlatformAnswer,  // the platform's own answer
    ProToolsSearch,  // the search of a Pro Tools window
    RectangleSearch, // the search of the application's tree by rectangles
    TimedOut,        // the application did not answer; nothing further was tried
};

// The full strategy; error is set only to kAXErrorCannotComplete, for a time-out.
AXUIElementRef copyUIElementAtPositionEmployingSearchIfNecessary(const QPoint& point, AXError* error = nullptr);
// The same, telling which way it went.
AXUIElementRef copyUIElementAtPositionEmployingSearchIfNecessary(const QPoint& point, AXError* error,
                                                                 UIElementHitTestWay* way);
// The rectangle search over the application whose window is under the point; null for this
// process's own windows.
AXUIElementRef copyUIElementAtPositionBySearchingApplicationWithWindowContainingPoint(const QPoint& point);
AXUIElementRef copyUIElementAtPositionBySearchingApplication(AXUIElementRef application, const QPoint& point);
AXUIElementRef recursivelySearchChildrenForLeafElementContainingPoint(AXUIElementRef element, const QPoint& point,
                                                                      bool pruneByRect, int depth);

AXUIElementRef copyFocusedUIElement(AXError* error = nullptr);
AXUIElementRef copyFocusedApplication();
int pidOfFocusedApplication();
AXUIElementRef copyUIElementOfTypeAtPosition(const QPoint& point, const QString& type);
AXUIElementRef copyUIElementWithRoleAtPosition(const QPoint& point, const QString& role);
