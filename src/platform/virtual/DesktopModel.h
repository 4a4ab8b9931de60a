#pragma once

// The virtual desktop as data: applications, windows and element trees with their attributes,
// actions and faults, screens, zoom and mouse. Plain values, no CoreFoundation objects, so that a
// desktop can be thrown away at any moment (a reload) without a reference to balance. The
// questions over it that need no locking and no faults live here too; VirtualDesktop adds the
// rest.

#include "ax/AccessibilityProvider.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

#include <vector>

namespace VirtualDesktopModel {

// An attribute value as the desktop holds it; converted to a CoreFoundation object on each read.
struct Value {
    enum class Kind { Null, Boolean, Integer, Double, String, Url, Point, Size, Rect, Range, Array, Element };
    Kind kind = Kind::Null;
    bool boolean = false;
    qint64 integer = 0;
    double number = 0.0;
    QString text;  // String, Url
    CGRect rect{}; // Point (origin), Size (size), Rect
    CFRange range{};
    std::vector<Value> items;
    Element element;   // Element, once its reference is resolved
    QString reference; // Element, as the fixture names it ("id:ok", "app:12", "window:3"), until resolved
};

// Values made from their parts.
Value stringValue(const QString& text);
Value booleanValue(bool boolean);
Value pointValue(const CGPoint& point);
Value sizeValue(const CGSize& size);
Value elementValue(const Element& element);

struct Action {
    QString name;
    QString description;
    QList<QPair<QString, Value>> sets; // attributes that performing the action sets
    int performed = 0;
};

struct Faults {
    QHash<QString, AXError> attributes; // reads of these attributes fail
    QHash<QString, AXError> actions;    // performing these actions fails
    QHash<int, AXError> calls;          // every call of these functions (PlatformCall) fails
    int callsBeforeDeath = -1;          // -1 never dies; 0 dead
};

enum class NodeKind { Application, Window, Element };

struct Node {
    NodeKind kind = NodeKind::Element;
    ElementId id = 0;
    pid_t pid = 0;
    QString fixtureId; // "id" in the fixture, empty when there is none
    QString place;     // where the fixture describes it, for messages
    int parent = -1;   // index in Desktop::nodes; -1 for an application
    int window = -1;   // the window that holds it, the window itself for a window, else -1
    QList<int> children;
    QMap<QString, Value> attributes; // as given; structural ones (AXChildren...) are derived on reading
    QSet<QString> settable;
    QList<Action> actions;
    Faults faults;
    bool opaqueToHitTest = false; // the hit test stops here and does not look at the children
};

struct Busy {
    bool busy = false;
    int delayMs = 0;
    int callsLeft = -1; // -1 busy forever; 0 no longer busy
};

struct Application {
    int node = -1;
    QString bundleIdentifier;
    QString name;
    QString executablePath;
    bool regular =
        true;           // false: an accessory, with no place among the applications the user switches between
    QList<int> windows; // nodes, in fixture order
    QList<int> elements; // nodes of children other than windows (a menu bar)
    Busy busy;
};

struct Window {
    CGWindowID id = kCGNullWindowID;
    int node = -1;
    bool accessible = true; // false: the window server knows it, the accessibility tree does not
};

struct Desktop {
    std::vector<Node> nodes;
    QHash<ElementId, int> nodeById;
    QList<Application> applications;
    QHash<pid_t, int> applicationByPid;
    QList<Window> windows; // frontmost first
    QList<ScreenInfo> screens;
    ZoomInfo zoom;
    double menuBarHeight = 0;
    CGPoint mouse{};
    bool trusted = true;
    bool apiEnabled = true;

    const Node* node(const Element& element) const;
    const Application* application(pid_t pid) const;
};

// Ids stay with an element's key for the life of the provider, across reloads, so that a
// handle on an element that survives a reload still names it, and one on an element that is
// gone names nothing.
class ElementIds {
public:
    ElementId idFor(const QString& key);

private:
    QHash<QString, ElementId> ids;
};

enum class Lookup { Found, NoValue, Unsupported };

// The attribute as the element reports it: the given value, else the one that the desktop's
// structure implies (AXChildren, AXParent, AXWindow, AXWindows, AXFocusedWindow, ...).
Lookup attributeValue(const Desktop& desktop, int node, const QString& name, Value* value);
QStringList attributeNames(const Desktop& desktop, int node);
Lookup systemWideAttributeValue(const Desktop& desktop, const QString& name, Value* value);
QStringList systemWideAttributeNames();

// From "AXPosition" and "AXSize"; false when either is missing or of another kind.
bool frameOf(const Node& node, CGRect* frame);
bool contains(const CGRect& rect, const CGPoint& point);

// The frontmost window on screen at the point, of the given process or of any (pid 0);
// an index into Desktop::windows, or -1.
int windowAt(const Desktop& desktop, const CGPoint& point, pid_t pid);
// The deepest element of the window's tree at the point; later siblings lie over earlier ones.
int deepestElementAt(const Desktop& desktop, int windowNode, const CGPoint& point);

QList<WindowInfo> windowInfos(const Desktop& desktop);
QList<ApplicationInfo> applicationInfos(const Desktop& desktop);
// Brings the window to the front of the stacking order.
void raiseWindow(Desktop& desktop, int windowNode);

Value elementValue(const Node& node);

} // namespace VirtualDesktopModel
