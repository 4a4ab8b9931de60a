#pragma once

// The questions about one element of the live desktop, each answered by its application over
// the accessibility bus when it is asked: nothing is remembered from one question to the next
// but the role and the states, within one reader, which lives for one question of the provider.
//
// A reader asks an element only through the interfaces that it has: a toolkit answers a call on
// an interface that the element lacks with a default value, not an error. It reads the list of
// interfaces itself, since libatspi's waits for the bus's own 25 s time-out when an application
// hangs. A failure ends the reader, and every later question answers empty without asking.

#include "AtspiRoles.h"
#include "ax/AXError.h"
#include "ax/CGBase.h"
#include "virtual/DesktopModel.h"

#include <atspi/atspi.h>

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object)
            g_object_unref(object);
    }
};
template <typename T> using GRef = std::unique_ptr<T, GObjectUnref>;
using AccessibleRef = GRef<AtspiAccessible>;

AccessibleRef retained(AtspiAccessible* accessible);
std::vector<AccessibleRef> copiesOf(const std::vector<AccessibleRef>& accessibles);
struct AtspiBatchedElement;

// The interfaces of elements, which never change, by bus name and path. A provider keeps one for
// the elements it knows.
enum AtspiInterface : quint32 {
    kAtspiComponent = 1,
    kAtspiAction = 2,
    kAtspiValue = 4,
    kAtspiText = 8,
    kAtspiEditableText = 16,
    kAtspiCollection = 32,
};
// What the provider keeps of the elements it has met, by key: the interfaces, which never change
// for an element, and its role for a moment. A walk asks one element's role several times in a
// row (for its own role, then again while it climbs to its window or tells whether it is one),
// and a role does not change between two such questions; any later question reads it anew.
struct AtspiKnownElement {
    std::optional<quint32> interfaces;
    AtspiRole role = ATSPI_ROLE_INVALID;
    QDeadlineTimer roleExpiry; // expired: the role is not known
    // The accessible id as a batch of reads last read it. Toolkits set it when they build an
    // element and keep it; walks many times a second read it again only once it has expired.
    std::optional<QString> accessibleId;
    QDeadlineTimer accessibleIdExpiry;
};
using AtspiInterfaceCache = QHash<QByteArray, AtspiKnownElement>;

class AtspiReader {
public:
    // An application that does not answer within this time fails the question with
    // kAXErrorCannotComplete.
    static constexpr int replyTimeoutMs = 2000;
    // How long a role read answers later questions about the same element.
    static constexpr int roleReuseMs = 5;
    // How long an accessible id read in a batch answers the batches after it.
    static constexpr int accessibleIdReuseMs = 10000;

    explicit AtspiReader(AtspiAccessible* accessible, AtspiInterfaceCache* interfaceCache = nullptr)
        : element(accessible), interfaceCache(interfaceCache) {}

    // kAXErrorSuccess, or why the reader stopped: kAXErrorInvalidUIElement when the element or
    // its application is gone, kAXErrorCannotComplete when the application did not answer.
    AXError error() const { return failure; }
    AtspiAccessible* accessible() const { return element; }
    bool isApplication() const;
    QByteArray busName() const;
    // Bus name and path: the element's identity on the bus.
    QByteArray key() const;
    bool hasInterface(AtspiInterface which);

    AtspiRole role();
    // Whether the element is a child of its application; known without asking when the caller
    // knows where it found the element (markTopLevel).
    bool isTopLevel();
    void markTopLevel(bool childOfApplication = true) { topLevel = childOfApplication; }
    // A window role, or a top-level element of a role that is a window there.
    bool isWindow();
    bool hasState(AtspiStateType state);
    QString axRole();
    QString name();
    QString description();
    QString localizedRoleName();
    QString accessibleId();

    // The frame in screen coordinates; nullopt when the element has no Component interface
    // (`hasComponent` false) or reports the off-screen extents of the toolkits.
    std::optional<CGRect> frame(bool* hasComponent = nullptr);
    // "AXValue": a check state for checkable roles, the current number of a Value, the text of
    // a Text; nullopt when the element has none of them.
    std::optional<VirtualDesktopModel::Value> value();
    // Whether value() has one to give, told by the role and the interfaces without reading it.
    bool hasValue();

    int childCount();
    // Every child, as the toolkit lists them.
    std::vector<AccessibleRef> children();
    // The children that are shown (state showing): what the user can see. Found by the
    // application in one query where it offers Collection (GTK 3); else (Qt) the children and
    // then the state of each.
    std::vector<AccessibleRef> shownChildren();
    AccessibleRef parent();
    // The nearest window at or above the element; null when there is none.
    AccessibleRef window();
    // Of an application: its window with the active state.
    AccessibleRef activeWindow();
    // The focused element below this one, found by the application in one query where it offers
    // Collection (GTK); else (Qt) looked for breadth first through the shown elements, as far as
    // maximumFocusSearch of them.
    AccessibleRef focusedDescendant();
    static constexpr int maximumFocusSearch = 2000;
    // The child under a screen point, as the element's Component tells it.
    AccessibleRef childAtPoint(CGPoint point);

    // Of a push button: which button of its window's title bar it is, where the toolkit draws
    // the title bar itself: GTK 3's header bar (window, header bar, box of window controls,
    // button), the button named as titleBarButtonNamed() knows. None for any other element.
    TitleBarButton titleBarButton();
    // Of a window: that button of its title bar, where the toolkit draws it; null otherwise.
    AccessibleRef drawnTitleBarButton(TitleBarButton which);

    QStringList toolkitActionNames();
    // The index of the toolkit action with this AX name (axActionNames), or -1.
    int actionIndex(const QString& axName);
    QString actionDescription(int index);
    bool doAction(int index);

    // False with a success error() when the element lacks the interface.
    bool setText(const QString& text);
    bool setNumber(double number);
    bool grabFocus();

    // Takes over a hung application from the reader of another element of it.
    void adopt(const AtspiReader& other);
    // Stops the reader with error, unless it has stopped already.
    void adoptFailure(AXError error);

private:
    // Runs one call unless the reader has stopped.
    template <typename Call> auto call(Call function) -> decltype(function(nullptr));

    quint32 interfaces();
    // What the thread's open batch of reads knows of the element; null outside a batch, when it
    // knows nothing, or once the reader has stopped (which a failure in the batch does).
    AtspiBatchedElement* inBatch();
    // The registry's root, whose children are the applications.
    bool isDesktop() const;
    // The children, read from the toolkit in one call where it answers one.
    std::vector<AccessibleRef> readChildren();
    // Takes out the elements that are not shown; a hung application stops this reader too.
    void keepShown(std::vector<AccessibleRef>& elements);
    // In a batch, the children as the application's whole tree read at once gives them; nullopt
    // where the toolkit has no such cache or does not hold all of them.
    std::optional<std::vector<AccessibleRef>> childrenFromTree();
    AccessibleRef searchFocused();
    // The elements below this one with the state, found by the application (Collection): `count`
    // of them at most (0: all), among the children only or in the whole subtree (`traverse`).
    std::vector<AccessibleRef> matchesWithState(AtspiStateType state, int count, bool traverse);
    // Whether the toolkit draws a title bar the way titleBarButton() knows: GTK 3.
    bool drawsHeaderBars();
    // The languages the element's application shows gettext's texts in, read from its
    // environment once per application (bus name; a bus daemon gives no name twice).
    QStringList applicationLanguages();

    AtspiAccessible* element;
    AtspiInterfaceCache* interfaceCache;
    std::optional<quint32> knownInterfaces;
    AXError failure = kAXErrorSuccess;
    std::optional<AtspiRole> knownRole;
    std::optional<bool> topLevel;
    GRef<AtspiStateSet> states;
};
