#include "platformTestSupport.h"
#include "testSupport.h"

#include "ax/AccessibilityProvider.h"
#include "ax/PlatformCallCounters.h"
#include "cf/CFRuntime.h"
#include "platformAccessibility.h"
#include "platformWindowServer.h"
#include "virtual/VirtualDesktop.h"

#include <QFile>
#include <QScopeGuard>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QScopeGuard>
#include <QTest>

#include <functional>
#include <memory>

#include <unistd.h>

namespace {

AXError copyAttribute(AXUIElementRef element, const QString& attribute, Ref<CFTypeRef>& value) {
    Ref<CFStringRef> name(CFStringCreateWithQString(attribute));
    return AXUIElementCopyAttributeValue(element, name, value.out());
}

QString textOf(CFTypeRef object) {
    if (object && CFGetTypeID(object) == CFStringGetTypeID())
        return QStringFromCFString(static_cast<CFStringRef>(object));
    Ref<CFStringRef> description(CFCopyDescription(object));
    return QStringFromCFString(description);
}

CFTypeRef packedPoint(double x, double y) {
    const CGPoint value = CGPointMake(x, y);
    return AXValueCreate(kAXValueCGPointType, &value);
}

CFTypeRef packedSize(double width, double height) {
    const CGSize value = CGSizeMake(width, height);
    return AXValueCreate(kAXValueCGSizeType, &value);
}

template <class T> CFTypeRef number(CFNumberType type, T value) {
    return CFNumberCreate(kCFAllocatorDefault, type, &value);
}

using Factory = CFTypeRef (*)();
#define MAKE(expression) Factory([]() -> CFTypeRef { return expression; })

// One application with one window and one button, for the tests that change a detail.
QJsonObject smallDesktop(const QJsonObject& buttonExtras = {}, const QJsonObject& applicationExtras = {}) {
    QJsonObject button{{"id", "button"},
                       {"role", "AXButton"},
                       {"title", "OK"},
                       {"frame", QJsonObject{{"x", 10}, {"y", 10}, {"width", 50}, {"height", 20}}},
                       {"attributes", QJsonObject{{"AXValue", 0}}},
                       {"settable", QJsonArray{"AXValue"}},
                       {"actions", QJsonArray{QJsonObject{{"name", "AXPress"}, {"description", "press"}}}}};
    for (auto it = buttonExtras.begin(); it != buttonExtras.end(); ++it)
        button.insert(it.key(), it.value());
    QJsonObject window{{"windowId", 7},
                       {"id", "window"},
                       {"frame", QJsonObject{{"x", 0}, {"y", 0}, {"width", 200}, {"height", 100}}},
                       {"children", QJsonArray{button}}};
    QJsonObject application{{"pid", 77}, {"name", "Small"}, {"windows", QJsonArray{window}}};
    for (auto it = applicationExtras.begin(); it != applicationExtras.end(); ++it)
        application.insert(it.key(), it.value());
    return QJsonObject{{"applications", QJsonArray{application}}};
}

QJsonObject json(const char* text) {
    return QJsonDocument::fromJson(text).object();
}

void writeFileAtomically(const QString& path, const QByteArray& content) {
    QSaveFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    QVERIFY(file.commit());
}

// The platform calls that a fault can make fail, each on the button of smallDesktop().
using Operation = std::function<AXError(AXUIElementRef element)>;
const QHash<QString, Operation>& operations() {
    static const QHash<QString, Operation> table{
        {"read AXTitle",
         [](AXUIElementRef e) {
             Ref<CFTypeRef> value;
             return AXUIElementCopyAttributeValue(e, CFSTR("AXTitle"), value.out());
         }},
        {"read AXRole",
         [](AXUIElementRef e) {
             Ref<CFTypeRef> value;
             return AXUIElementCopyAttributeValue(e, CFSTR("AXRole"), value.out());
         }},
        {"count AXChildren",
         [](AXUIElementRef e) {
             CFIndex count = 0;
             return AXUIElementGetAttributeValueCount(e, CFSTR("AXChildren"), &count);
         }},
        {"attribute names",
         [](AXUIElementRef e) {
             Ref<CFArrayRef> names;
             return AXUIElementCopyAttributeNames(e, names.out());
         }},
        {"settable",
         [](AXUIElementRef e) {
             Boolean settable = false;
             return AXUIElementIsAttributeSettable(e, CFSTR("AXValue"), &settable);
         }},
        {"set AXValue",
         [](AXUIElementRef e) { return AXUIElementSetAttributeValue(e, CFSTR("AXValue"), kCFBooleanTrue); }},
        {"action names",
         [](AXUIElementRef e) {
             Ref<CFArrayRef> names;
             return AXUIElementCopyActionNames(e, names.out());
         }},
        {"action description",
         [](AXUIElementRef e) {
             Ref<CFStringRef> description;
             return AXUIElementCopyActionDescription(e, CFSTR("AXPress"), description.out());
         }},
        {"press", [](AXUIElementRef e) { return AXUIElementPerformAction(e, CFSTR("AXPress")); }},
        {"window",
         [](AXUIElementRef e) {
             CGWindowID window = 0;
             return _AXUIElementGetWindow(e, &window);
         }},
        {"hit test",
         [](AXUIElementRef) {
             Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
             Ref<AXUIElementRef> hit;
             return AXUIElementCopyElementAtPosition(systemWide, 20, 15, hit.out());
         }},
    };
    return table;
}

} // namespace

class tst_VirtualDesktop : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

private:
    void install(const QJsonObject& fixture) {
        desktop = std::make_shared<VirtualDesktop>();
        QVERIFY(desktop->load(fixture));
        setAccessibilityProviderForTesting(desktop);
    }

    AXUIElementRef element(const QString& id) const { return desktop->copyElement(id); }

private slots:
    void init() {
        QFile basic(QFINDTESTDATA("fixtures/desktop-basic.json"));
        QVERIFY(basic.open(QIODevice::ReadOnly));
        const QByteArray content = basic.readAll();
        QVERIFY(
            installDesktop([&](VirtualDesktop& desktop) { return desktop.load(content, basic.fileName()); }));
    }

    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void attributeReads_data() {
        QTest::addColumn<QString>("element");
        QTest::addColumn<QString>("attribute");
        QTest::addColumn<int>("error");
        QTest::addColumn<Factory>("expected");
        QTest::addColumn<int>("numberType");

        const auto row = [](const char* name, const char* element, const char* attribute, Factory expected,
                            int numberType = 0) {
            QTest::newRow(name) << element << attribute << 0 << expected << numberType;
        };
        row("title", "save-button", "AXTitle", MAKE(CFSTR("Save")));
        row("role", "save-button", "AXRole", MAKE(CFSTR("AXButton")));
        row("boolean", "save-button", "AXEnabled", MAKE(kCFBooleanTrue));
        row("null", "save-button", "AXHelp", MAKE(kCFNull));
        row("position", "save-button", "AXPosition", MAKE(packedPoint(110, 133)));
        row("size", "save-button", "AXSize", MAKE(packedSize(60, 30)));
        row("range", "name-field", "AXVisibleCharacterRange", MAKE([] {
                const CFRange range = CFRangeMake(0, 5);
                return static_cast<CFTypeRef>(AXValueCreate(kAXValueCFRangeType, &range));
            }()));
        row("fraction is a double", "volume-slider", "AXValue", MAKE(number(kCFNumberFloat64Type, 0.5)),
            kCFNumberFloat64Type);
        row("whole number is an integer", "volume-slider", "AXMinValue",
            MAKE(number(kCFNumberSInt64Type, 0LL)), kCFNumberSInt64Type);
        row("whole double", "volume-slider", "AXMaxValue", MAKE(number(kCFNumberFloat64Type, 1.0)),
            kCFNumberFloat64Type);
        row("url", "front-panel", "AXURL",
            MAKE(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///tmp/readme.txt"), nullptr)));
        row("window title", "document-window", "AXTitle", MAKE(CFSTR("Untitled")));
        row("window role", "document-window", "AXRole", MAKE(CFSTR("AXWindow")));
        row("window frame", "document-window", "AXSize", MAKE(packedSize(800, 600)));
        row("window not minimized", "document-window", "AXMinimized", MAKE(kCFBooleanFalse));
        row("minimized window", "old-draft-window", "AXMinimized", MAKE(kCFBooleanTrue));
        row("main window is the frontmost on screen", "inspector-window", "AXMain", MAKE(kCFBooleanTrue));
        row("window behind is not main", "document-window", "AXMain", MAKE(kCFBooleanFalse));
        row("application title", "editor", "AXTitle", MAKE(CFSTR("Editor")));
        row("application role", "editor", "AXRole", MAKE(CFSTR("AXApplication")));
        row("active application", "editor", "AXFrontmost", MAKE(kCFBooleanTrue));

        const auto failing = [](const char* name, const char* element, const char* attribute, AXError error) {
            QTest::newRow(name) << element << attribute << int(error) << Factory(nullptr) << 0;
        };
        failing("unknown attribute", "save-button", "AXNoSuchThing", kAXErrorAttributeUnsupported);
        failing("application has no parent", "editor", "AXParent", kAXErrorAttributeUnsupported);
        failing("a window has no focused element", "files-desktop", "AXFocusedUIElement",
                kAXErrorAttributeUnsupported);
        failing("a window has no window", "files-desktop", "AXWindow", kAXErrorAttributeUnsupported);
    }

    void attributeReads() {
        QFETCH(QString, element);
        QFETCH(QString, attribute);
        QFETCH(int, error);
        QFETCH(Factory, expected);
        QFETCH(int, numberType);

        Ref<AXUIElementRef> target(this->element(element));
        QVERIFY(target);
        Ref<CFTypeRef> value;
        QCOMPARE(int(copyAttribute(target, attribute, value)), error);
        if (!expected) {
            QVERIFY(!value);
            return;
        }
        Ref<CFTypeRef> wanted(expected());
        QVERIFY2(CFEqual(value, wanted), qPrintable(textOf(value)));
        QCOMPARE(CFGetTypeID(value), CFGetTypeID(wanted));
        if (numberType)
            QCOMPARE(int(CFNumberGetType(static_cast<CFNumberRef>(static_cast<CFTypeRef>(value)))),
                     numberType);
    }

    void noValueAndSystemWide() {
        Ref<AXUIElementRef> files(AXUIElementCreateApplication(4202));
        Ref<CFTypeRef> value;
        QCOMPARE(copyAttribute(files, "AXFocusedUIElement", value), kAXErrorNoValue);

        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> editor(AXUIElementCreateApplication(4101));
        Ref<AXUIElementRef> nameField(element("name-field"));
        QCOMPARE(copyAttribute(systemWide, "AXFocusedApplication", value), kAXErrorSuccess);
        QVERIFY(CFEqual(value, editor));
        QCOMPARE(copyAttribute(systemWide, "AXFocusedUIElement", value), kAXErrorSuccess);
        QVERIFY(CFEqual(value, nameField));
        QCOMPARE(copyAttribute(systemWide, "AXTitle", value), kAXErrorAttributeUnsupported);
        pid_t pid = 1;
        QCOMPARE(AXUIElementGetPid(systemWide, &pid), kAXErrorIllegalArgument);
    }

    void childrenAndParents() {
        Ref<AXUIElementRef> editor(AXUIElementCreateApplication(4101));
        Ref<CFTypeRef> children;
        QCOMPARE(copyAttribute(editor, "AXChildren", children), kAXErrorSuccess);
        // Elements outside windows first, then the windows from front to back, minimized ones too.
        const char* order[] = {"menu-bar", "old-draft-window", "inspector-window", "document-window"};
        CFArrayRef array = static_cast<CFArrayRef>(static_cast<CFTypeRef>(children));
        QCOMPARE(CFArrayGetCount(array), CFIndex(4));
        for (CFIndex i = 0; i < 4; ++i) {
            Ref<AXUIElementRef> expected(element(order[i]));
            QVERIFY2(CFEqual(CFArrayGetValueAtIndex(array, i), expected), order[i]);
            QCOMPARE(CFGetTypeID(CFArrayGetValueAtIndex(array, i)), AXUIElementGetTypeID());
            Ref<CFTypeRef> parent;
            QCOMPARE(copyAttribute(static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(array, i)), "AXParent",
                                   parent),
                     kAXErrorSuccess);
            QVERIFY(CFEqual(parent, editor));
        }

        CFIndex count = 0;
        QCOMPARE(AXUIElementGetAttributeValueCount(editor, CFSTR("AXWindows"), &count), kAXErrorSuccess);
        QCOMPARE(count, CFIndex(3));
        QCOMPARE(AXUIElementGetAttributeValueCount(editor, CFSTR("AXTitle"), &count),
                 kAXErrorIllegalArgument);

        // A button in a group in a toolbar: its window is the document window at every level.
        Ref<AXUIElementRef> save(element("save-button"));
        Ref<AXUIElementRef> window(element("document-window"));
        Ref<CFTypeRef> value;
        QCOMPARE(copyAttribute(save, "AXWindow", value), kAXErrorSuccess);
        QVERIFY(CFEqual(value, window));
        QCOMPARE(copyAttribute(save, "AXTopLevelUIElement", value), kAXErrorSuccess);
        QVERIFY(CFEqual(value, window));
        Ref<CFTypeRef> toolbar;
        QCOMPARE(copyAttribute(save, "AXParent", toolbar), kAXErrorSuccess);
        QCOMPARE(copyAttribute(static_cast<AXUIElementRef>(static_cast<CFTypeRef>(toolbar)), "AXRole", value),
                 kAXErrorSuccess);
        QCOMPARE(textOf(value), QStringLiteral("AXToolbar"));

        Ref<CFArrayRef> names;
        QCOMPARE(AXUIElementCopyAttributeNames(save, names.out()), kAXErrorSuccess);
        for (CFStringRef name : {CFSTR("AXTitle"), CFSTR("AXChildren"), CFSTR("AXParent"), CFSTR("AXWindow")})
            QVERIFY2(CFArrayContainsValue(names, CFRangeMake(0, CFArrayGetCount(names)), name),
                     qPrintable(textOf(name)));
    }

    void elementReferencesInValues() {
        Ref<AXUIElementRef> panel(element("front-panel"));
        Ref<CFTypeRef> selected;
        QCOMPARE(copyAttribute(panel, "AXSelectedChildren", selected), kAXErrorSuccess);
        Ref<AXUIElementRef> save(element("save-button"));
        Ref<AXUIElementRef> inspector(element("inspector-window"));
        CFArrayRef array = static_cast<CFArrayRef>(static_cast<CFTypeRef>(selected));
        QCOMPARE(CFArrayGetCount(array), CFIndex(2));
        QVERIFY(CFEqual(CFArrayGetValueAtIndex(array, 0), save));
        QVERIFY(CFEqual(CFArrayGetValueAtIndex(array, 1), inspector));
    }

    void handleIdentity() {
        Ref<AXUIElementRef> first(element("save-button"));
        Ref<AXUIElementRef> second(element("save-button"));
        Ref<AXUIElementRef> other(element("apply-button"));
        QVERIFY(static_cast<AXUIElementRef>(first) != static_cast<AXUIElementRef>(second));
        QVERIFY(CFEqual(first, second));
        QCOMPARE(CFHash(first), CFHash(second));
        QVERIFY(!CFEqual(first, other));

        // The application element: created by pid, or reached as a window's parent.
        Ref<AXUIElementRef> byPid(AXUIElementCreateApplication(4101));
        Ref<AXUIElementRef> window(element("document-window"));
        Ref<CFTypeRef> parent;
        QCOMPARE(copyAttribute(window, "AXParent", parent), kAXErrorSuccess);
        QVERIFY(CFEqual(byPid, parent));
        QCOMPARE(CFHash(byPid), CFHash(parent));
        Ref<AXUIElementRef> otherApplication(AXUIElementCreateApplication(4202));
        QVERIFY(!CFEqual(byPid, otherApplication));
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> systemWideAgain(AXUIElementCreateSystemWide());
        QVERIFY(CFEqual(systemWide, systemWideAgain));
        QVERIFY(!CFEqual(systemWide, byPid));

        // Sets find handles by CFEqual and CFHash, as the visited set of a walk needs.
        const void* values[] = {first, second, other};
        Ref<CFSetRef> set(CFSetCreate(kCFAllocatorDefault, values, 3, &kCFTypeSetCallBacks));
        QCOMPARE(CFSetGetCount(set), CFIndex(2));

        // The same element under another provider is another element, and this one names nothing there.
        auto replacement = std::make_shared<VirtualDesktop>();
        QFile basic(QFINDTESTDATA("fixtures/desktop-basic.json"));
        QVERIFY(basic.open(QIODevice::ReadOnly));
        QVERIFY(replacement->load(basic.readAll()));
        setAccessibilityProviderForTesting(replacement);
        Ref<AXUIElementRef> fresh(replacement->copyElement("save-button"));
        QVERIFY(!CFEqual(first, fresh));
        Ref<CFTypeRef> value;
        QCOMPARE(copyAttribute(first, "AXTitle", value), kAXErrorInvalidUIElement);
        QCOMPARE(copyAttribute(fresh, "AXTitle", value), kAXErrorSuccess);
    }

    void actions() {
        Ref<AXUIElementRef> menuBar(element("menu-bar"));
        Ref<CFTypeRef> items;
        QCOMPARE(copyAttribute(menuBar, "AXChildren", items), kAXErrorSuccess);
        AXUIElementRef file = static_cast<AXUIElementRef>(
            CFArrayGetValueAtIndex(static_cast<CFArrayRef>(static_cast<CFTypeRef>(items)), 0));
        Ref<CFArrayRef> names;
        QCOMPARE(AXUIElementCopyActionNames(file, names.out()), kAXErrorSuccess);
        QCOMPARE(textOf(names), QStringLiteral("(AXPress, AXCancel)"));
        Ref<CFStringRef> description;
        QCOMPARE(AXUIElementCopyActionDescription(file, CFSTR("AXCancel"), description.out()),
                 kAXErrorSuccess);
        QCOMPARE(textOf(description), QStringLiteral("cancel"));
        QCOMPARE(AXUIElementCopyActionDescription(file, CFSTR("AXRaise"), description.out()),
                 kAXErrorActionUnsupported);
        QVERIFY(!description);

        Ref<AXUIElementRef> save(element("save-button"));
        QCOMPARE(AXUIElementPerformAction(save, CFSTR("AXPress")), kAXErrorSuccess);
        QCOMPARE(AXUIElementPerformAction(save, CFSTR("AXPress")), kAXErrorSuccess);
        QCOMPARE(desktop->actionCount("save-button", "AXPress"), 2);
        QCOMPARE(AXUIElementPerformAction(save, CFSTR("AXShowMenu")), kAXErrorActionUnsupported);

        // An action may set attributes.
        Ref<AXUIElementRef> slider(element("volume-slider"));
        QCOMPARE(AXUIElementPerformAction(slider, CFSTR("AXIncrement")), kAXErrorSuccess);
        Ref<CFTypeRef> value;
        QCOMPARE(copyAttribute(slider, "AXValue", value), kAXErrorSuccess);
        QCOMPARE(textOf(value), QStringLiteral("0.75"));

        // Windows raise by default, and the window server sees the new order.
        CGPoint overlap = CGPointMake(750, 300);
        CGWindowID window = 0;
        QCOMPARE(CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &overlap, nullptr, &window, nullptr),
                 kCGErrorSuccess);
        QCOMPARE(window, CGWindowID(202));
        Ref<AXUIElementRef> document(element("document-window"));
        QCOMPARE(AXUIElementPerformAction(document, CFSTR("AXRaise")), kAXErrorSuccess);
        QCOMPARE(CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &overlap, nullptr, &window, nullptr),
                 kCGErrorSuccess);
        QCOMPARE(window, CGWindowID(201));
    }

    void settingAttributes() {
        Ref<AXUIElementRef> field(element("name-field"));
        Boolean settable = false;
        QCOMPARE(AXUIElementIsAttributeSettable(field, CFSTR("AXValue"), &settable), kAXErrorSuccess);
        QVERIFY(settable);
        QCOMPARE(AXUIElementIsAttributeSettable(field, CFSTR("AXRole"), &settable), kAXErrorSuccess);
        QVERIFY(!settable);
        QCOMPARE(AXUIElementIsAttributeSettable(field, CFSTR("AXNoSuchThing"), &settable),
                 kAXErrorAttributeUnsupported);
        QCOMPARE(AXUIElementSetAttributeValue(field, CFSTR("AXValue"), CFSTR("final")), kAXErrorSuccess);
        Ref<CFTypeRef> value;
        QCOMPARE(copyAttribute(field, "AXValue", value), kAXErrorSuccess);
        QCOMPARE(textOf(value), QStringLiteral("final"));
        QCOMPARE(AXUIElementSetAttributeValue(field, CFSTR("AXRole"), CFSTR("AXButton")),
                 kAXErrorAttributeUnsupported);
        // Only what an attribute could hold: not a set.
        Ref<CFSetRef> set(CFSetCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeSetCallBacks));
        QCOMPARE(AXUIElementSetAttributeValue(field, CFSTR("AXValue"), set), kAXErrorIllegalArgument);

        // One application is frontmost at a time.
        Ref<AXUIElementRef> files(AXUIElementCreateApplication(4202));
        QCOMPARE(AXUIElementSetAttributeValue(files, CFSTR("AXFrontmost"), kCFBooleanTrue), kAXErrorSuccess);
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        QCOMPARE(copyAttribute(systemWide, "AXFocusedApplication", value), kAXErrorSuccess);
        QVERIFY(CFEqual(value, files));
        const QList<ApplicationInfo> applications = desktop->applications();
        QCOMPARE(applications.size(), 2);
        QVERIFY(!applications[0].active);
        QVERIFY(applications[1].active);

        // A minimized window leaves the screen.
        Ref<AXUIElementRef> inspector(element("inspector-window"));
        QCOMPARE(AXUIElementSetAttributeValue(inspector, CFSTR("AXMinimized"), kCFBooleanTrue),
                 kAXErrorSuccess);
        CGPoint overlap = CGPointMake(750, 300);
        CGWindowID window = 0;
        QCOMPARE(CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &overlap, nullptr, &window, nullptr),
                 kCGErrorSuccess);
        QCOMPARE(window, CGWindowID(201));
    }

    void elementAtPosition_data() {
        QTest::addColumn<int>("scope"); // 0 system-wide, else a pid
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("expected");

        QTest::newRow("deepest element") << 0 << 150.0 << 148.0 << 0 << "save-button";
        QTest::newRow("through a group without frame") << 0 << 130.0 << 210.0 << 0 << "name-field";
        QTest::newRow("later sibling lies on top") << 0 << 600.0 << 400.0 << 0 << "front-panel";
        QTest::newRow("earlier sibling where uncovered") << 0 << 520.0 << 320.0 << 0 << "back-panel";
        QTest::newRow("front window over the other") << 0 << 750.0 << 300.0 << 0 << "inspector-window";
        QTest::newRow("element of the front window") << 0 << 750.0 << 510.0 << 0 << "apply-button";
        QTest::newRow("minimized window is not hit") << 0 << 300.0 << 650.0 << 0 << "document-window";
        QTest::newRow("last pixel inside") << 0 << 899.5 << 650.0 << 0 << "document-window";
        QTest::newRow("right edge is outside") << 0 << 900.0 << 650.0 << 0 << "files-desktop";
        QTest::newRow("window at the back") << 0 << 50.0 << 50.0 << 0 << "files-desktop";
        QTest::newRow("window without accessibility") << 0 << 1500.0 << 100.0 << int(kAXErrorNoValue) << "";
        QTest::newRow("nothing there") << 0 << 5000.0 << 5000.0 << int(kAXErrorNoValue) << "";
        QTest::newRow("application without a window there")
            << 4101 << 50.0 << 50.0 << int(kAXErrorNoValue) << "";
        QTest::newRow("application's own window behind others")
            << 4202 << 750.0 << 300.0 << 0 << "files-desktop";
        QTest::newRow("process without application")
            << 999 << 50.0 << 50.0 << int(kAXErrorCannotComplete) << "";
    }

    void elementAtPosition() {
        QFETCH(int, scope);
        QFETCH(double, x);
        QFETCH(double, y);
        QFETCH(int, error);
        QFETCH(QString, expected);

        Ref<AXUIElementRef> asked(scope ? AXUIElementCreateApplication(scope)
                                        : AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> hit;
        QCOMPARE(int(AXUIElementCopyElementAtPosition(asked, float(x), float(y), hit.out())), error);
        if (expected.isEmpty()) {
            QVERIFY(!hit);
            return;
        }
        Ref<AXUIElementRef> wanted(element(expected));
        QVERIFY2(CFEqual(hit, wanted), qPrintable(textOf(hit)));
    }

    void elementAtPositionOfAnElementIsRefused() {
        Ref<AXUIElementRef> save(element("save-button"));
        Ref<AXUIElementRef> hit;
        QCOMPARE(AXUIElementCopyElementAtPosition(save, 150, 148, hit.out()), kAXErrorIllegalArgument);
    }

    void windowServer() {
        pid_t pid = 0;
        QCOMPARE(CGSConnectionGetPID(CGSMainConnectionID(), &pid), kCGErrorSuccess);
        QCOMPARE(pid, getpid());
        // A pid is not a connection.
        QCOMPARE(CGSConnectionGetPID(4101, &pid), kCGErrorInvalidConnection);

        CGPoint point = CGPointMake(750, 510);
        CGPoint inWindow{};
        CGWindowID window = 0;
        CGSConnectionID owner = 0;
        QCOMPARE(CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &point, &inWindow, &window, &owner),
                 kCGErrorSuccess);
        QCOMPARE(window, CGWindowID(202));
        QCOMPARE(inWindow.x, 50.0);
        QCOMPARE(inWindow.y, 360.0);
        QCOMPARE(CGSConnectionGetPID(owner, &pid), kCGErrorSuccess);
        QCOMPARE(pid, pid_t(4101));

        CGRect rect{};
        QCOMPARE(CGSGetScreenRectForWindow(CGSMainConnectionID(), window, &rect), kCGErrorSuccess);
        QCOMPARE(rect.origin.x, 700.0);
        QCOMPARE(rect.size.height, 400.0);
        // Known to the window server, though minimized.
        QCOMPARE(CGSGetScreenRectForWindow(CGSMainConnectionID(), 203, &rect), kCGErrorSuccess);
        QCOMPARE(CGSGetScreenRectForWindow(CGSMainConnectionID(), 999, &rect), kCGErrorIllegalArgument);

        // No window: success, with 0 for window and owner.
        point = CGPointMake(5000, 5000);
        QCOMPARE(CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &point, nullptr, &window, &owner),
                 kCGErrorSuccess);
        QCOMPARE(window, CGWindowID(0));
        QCOMPARE(owner, 0);

        // The accessibility side agrees on window ids.
        Ref<AXUIElementRef> apply(element("apply-button"));
        QCOMPARE(_AXUIElementGetWindow(apply, &window), kAXErrorSuccess);
        QCOMPARE(window, CGWindowID(202));
        Ref<AXUIElementRef> menuBar(element("menu-bar"));
        QCOMPARE(_AXUIElementGetWindow(menuBar, &window), kAXErrorNoValue);
        QCOMPARE(window, CGWindowID(0));

        double factor = 0;
        CGPoint origin{1, 1};
        QCOMPARE(CGSGetZoomParameters(CGSMainConnectionID(), &origin, &factor, nullptr), kCGErrorSuccess);
        QCOMPARE(factor, 1.0);
        QCOMPARE(origin.x, 0.0);
        QCOMPARE(desktop->screens().size(), 2);
        QCOMPARE(desktop->screens()[0].scale, 2.0);
        QCOMPARE(desktop->mousePosition().x, 200.0);
    }

    void faults_data() {
        QTest::addColumn<bool>("onApplication");
        QTest::addColumn<QJsonObject>("faults");
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("error");

        const auto attribute = [](const char* name, const QJsonValue& error) {
            return QJsonObject{{"attributes", QJsonObject{{name, error}}}};
        };
        const auto call = [](const char* function, const QJsonValue& error) {
            return QJsonObject{{"calls", QJsonObject{{function, error}}}};
        };
        QTest::newRow("attribute by name")
            << false << attribute("AXTitle", "kAXErrorNoValue") << "read AXTitle" << int(kAXErrorNoValue);
        QTest::newRow("attribute by code")
            << false << attribute("AXTitle", -25214) << "read AXTitle" << int(kAXErrorNotEnoughPrecision);
        QTest::newRow("other attribute reads") << false << attribute("AXTitle", -25204) << "read AXRole" << 0;
        QTest::newRow("count of an attribute")
            << false << attribute("AXChildren", -25204) << "count AXChildren" << int(kAXErrorCannotComplete);
        QTest::newRow("action") << false << QJsonObject{{"actions", QJsonObject{{"AXPress", -25200}}}}
                                << "press" << int(kAXErrorFailure);
        QTest::newRow("attribute names") << false << call("AXUIElementCopyAttributeNames", -25204)
                                         << "attribute names" << int(kAXErrorCannotComplete);
        QTest::newRow("value read") << false << call("AXUIElementCopyAttributeValue", -25213) << "read AXRole"
                                    << int(kAXErrorParameterizedAttributeUnsupported);
        QTest::newRow("value count") << false << call("AXUIElementGetAttributeValueCount", -25210)
                                     << "count AXChildren" << int(kAXErrorNotificationNotRegistered);
        QTest::newRow("settable") << false << call("AXUIElementIsAttributeSettable", -25211) << "settable"
                                  << int(kAXErrorAPIDisabled);
        QTest::newRow("set") << false << call("AXUIElementSetAttributeValue", -25205) << "set AXValue"
                             << int(kAXErrorAttributeUnsupported);
        QTest::newRow("action names") << false << call("AXUIElementCopyActionNames", -25203) << "action names"
                                      << int(kAXErrorInvalidUIElementObserver);
        QTest::newRow("action description") << false << call("AXUIElementCopyActionDescription", -25208)
                                            << "action description" << int(kAXErrorNotImplemented);
        QTest::newRow("perform") << false << call("AXUIElementPerformAction", -25206) << "press"
                                 << int(kAXErrorActionUnsupported);
        QTest::newRow("window id") << false << call("_AXUIElementGetWindow", -25207) << "window"
                                   << int(kAXErrorNotificationUnsupported);
        QTest::newRow("dead from the start")
            << false << QJsonObject{{"diesAfterCalls", 0}} << "read AXRole" << int(kAXErrorInvalidUIElement);
        QTest::newRow("hit test") << true << call("AXUIElementCopyElementAtPosition", -25201) << "hit test"
                                  << int(kAXErrorIllegalArgument);
        QTest::newRow("busy application")
            << true << QJsonObject() << "read AXTitle" << int(kAXErrorCannotComplete);
        QTest::newRow("busy application hit test")
            << true << QJsonObject() << "hit test" << int(kAXErrorCannotComplete);
    }

    void faults() {
        QFETCH(bool, onApplication);
        QFETCH(QJsonObject, faults);
        QFETCH(QString, operation);
        QFETCH(int, error);

        const bool busy = faults.isEmpty();
        const QJsonObject extras =
            busy ? QJsonObject{{"busy", QJsonObject{{"delayMs", 1}}}} : QJsonObject{{"faults", faults}};
        install(onApplication ? smallDesktop({}, extras) : smallDesktop(extras));
        Ref<AXUIElementRef> button(element("button"));
        QCOMPARE(int(operations().value(operation)(button)), error);
    }

    void busyApplicationAnswersAgainAfterItsCalls() {
        install(smallDesktop({}, QJsonObject{{"busy", QJsonObject{{"delayMs", 5}, {"calls", 2}}}}));
        Ref<AXUIElementRef> button(element("button"));
        QCOMPARE(operations().value("read AXTitle")(button), kAXErrorCannotComplete);
        QCOMPARE(operations().value("hit test")(button), kAXErrorCannotComplete);
        QCOMPARE(operations().value("read AXTitle")(button), kAXErrorSuccess);
        QCOMPARE(operations().value("hit test")(button), kAXErrorSuccess);
    }

    void elementDiesAfterItsCalls() {
        install(smallDesktop(QJsonObject{{"faults", QJsonObject{{"diesAfterCalls", 2}}}}));
        Ref<AXUIElementRef> button(element("button"));
        QCOMPARE(operations().value("read AXTitle")(button), kAXErrorSuccess);
        QCOMPARE(operations().value("press")(button), kAXErrorSuccess);
        for (const QString& operation : operations().keys()) {
            if (operation != QLatin1String("hit test"))
                QCOMPARE(operations().value(operation)(button), kAXErrorInvalidUIElement);
        }
        // The pid lives in the handle; asking for it needs no answer from the element.
        pid_t pid = 0;
        QCOMPARE(AXUIElementGetPid(button, &pid), kAXErrorSuccess);
        QCOMPARE(pid, pid_t(77));
    }

    void parentThatDisagreesWithChildren() {
        install(json(R"({"applications": [{"pid": 5, "windows": [{"windowId": 1, "id": "window",
            "frame": {"x": 0, "y": 0, "width": 10, "height": 10},
            "children": [{"id": "stray", "attributes": {"AXParent": {"application": 5}}}]}]}]})"));
        Ref<AXUIElementRef> stray(element("stray"));
        Ref<AXUIElementRef> application(AXUIElementCreateApplication(5));
        Ref<CFTypeRef> parent;
        QCOMPARE(copyAttribute(stray, "AXParent", parent), kAXErrorSuccess);
        QVERIFY(CFEqual(parent, application));
        Ref<CFTypeRef> children;
        QCOMPARE(copyAttribute(application, "AXChildren", children), kAXErrorSuccess);
        CFArrayRef array = static_cast<CFArrayRef>(static_cast<CFTypeRef>(children));
        QVERIFY(!CFArrayContainsValue(array, CFRangeMake(0, CFArrayGetCount(array)), stray));
    }

    void reloadMakesElementsVanishAndAppear() {
        QTemporaryDir directory;
        const QString path = directory.filePath("desktop.json");
        const QByteArray withButton = QJsonDocument(smallDesktop()).toJson();
        QJsonObject withoutButton = smallDesktop();
        withoutButton["applications"] = json(R"({"a": [{"pid": 77, "windows": [{"windowId": 7, "id": "window",
            "frame": {"x": 0, "y": 0, "width": 200, "height": 100}}]}]})")
                                            .value("a");
        writeFileAtomically(path, withButton);
        desktop = std::make_shared<VirtualDesktop>();
        QVERIFY(desktop->watchFile(path));
        setAccessibilityProviderForTesting(desktop);
        Ref<AXUIElementRef> button(element("button"));
        Ref<AXUIElementRef> window(element("window"));
        QCOMPARE(operations().value("read AXTitle")(button), kAXErrorSuccess);

        // Replaced by rename, as editors save.
        writeFileAtomically(path, QJsonDocument(withoutButton).toJson());
        QTRY_COMPARE(operations().value("read AXTitle")(button), kAXErrorInvalidUIElement);
        QCOMPARE(operations().value("read AXRole")(window), kAXErrorSuccess);
        CFIndex count = -1;
        QCOMPARE(AXUIElementGetAttributeValueCount(window, CFSTR("AXChildren"), &count), kAXErrorSuccess);
        QCOMPARE(count, CFIndex(0));

        // Rewritten in place: the same element is back under the old handle.
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(withButton);
        file.close();
        QTRY_COMPARE(operations().value("read AXTitle")(button), kAXErrorSuccess);
        QVERIFY(desktop->lastError().problem.isEmpty());
    }

    void badFixtures_data() {
        QTest::addColumn<QByteArray>("fixture");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("problem");

        const QByteArray window = R"({"windowId": 1, "frame": {"x": 0, "y": 0, "width": 10, "height": 10}})";
        const auto inWindow = [&](const QByteArray& children) {
            return R"({"applications": [{"pid": 1}, {"pid": 2}, {"pid": 3, "windows": [)" +
                   window.chopped(1) + R"(, "children": [{}, {}, {}, )" + children + "]}]}]}";
        };
        QTest::newRow("syntax") << QByteArray("{\n  \"applications\": [}") << "line 2, column 21"
                                << "object is missing after a comma";
        QTest::newRow("not an object") << QByteArray("[]") << "top level"
                                       << "expected an object";
        QTest::newRow("misspelt key") << QByteArray(R"({"aplications": []})") << "top level"
                                      << "unknown key \"aplications\"";
        QTest::newRow("pid missing") << QByteArray(R"({"applications": [{"name": "x"}]})")
                                     << "applications[0]"
                                     << "\"pid\" is missing";
        QTest::newRow("pid not a number")
            << QByteArray(R"({"applications": [{"pid": "12"}]})") << "applications[0].pid"
            << "expected an integer from 1 to 4194304";
        QTest::newRow("pid fractional")
            << QByteArray(R"({"applications": [{"pid": 1.5}]})") << "applications[0].pid"
            << "expected an integer from 1 to 4194304";
        QTest::newRow("pid twice") << QByteArray(R"({"applications": [{"pid": 1}, {"pid": 1}]})")
                                   << "applications[1].pid"
                                   << "the pid 1 is used twice";
        QTest::newRow("window frame missing")
            << QByteArray(R"({"applications": [{"pid": 1, "windows": [{"windowId": 1}]}]})")
            << "applications[0].windows[0]"
            << "\"frame\" is missing";
        QTest::newRow("window id twice")
            << QByteArray(R"({"applications": [{"pid": 1, "windows": [)" + window + "]}, " +
                          R"({"pid": 2, "windows": [)" + window + "]}]}")
            << "applications[1].windows[0].windowId"
            << "the window id 1 is used twice";
        QTest::newRow("negative size")
            << QByteArray(
                   R"({"applications": [{"pid": 1, "windows": [{"windowId": 1, "frame": {"x": 0, "y": 0, "width": -1, "height": 1}}]}]})")
            << "applications[0].windows[0].frame"
            << "width and height must not be negative";
        QTest::newRow("misspelt key deep")
            << inWindow(R"({"childern": []})") << "applications[2].windows[0].children[3]"
            << "unknown key \"childern\"";
        QTest::newRow("unknown error")
            << inWindow(R"({"faults": {"attributes": {"AXTitle": "kAXErrorNope"}}})")
            << "applications[2].windows[0].children[3].faults.attributes.AXTitle"
            << "expected an AXError other than success, as a code or a name (-25204 or "
               "\"kAXErrorCannotComplete\")";
        QTest::newRow("success is no fault")
            << inWindow(R"({"faults": {"actions": {"AXPress": 0}}})")
            << "applications[2].windows[0].children[3].faults.actions.AXPress"
            << "expected an AXError other than success, as a code or a name (-25204 "
               "or \"kAXErrorCannotComplete\")";
        QTest::newRow("fault of a call that asks no element")
            << inWindow(R"({"faults": {"calls": {"AXUIElementGetPid": -25204}}})")
            << "applications[2].windows[0].children[3].faults.calls.AXUIElementGetPid"
            << "not a function that asks an element";
        QTest::newRow("dangling reference")
            << inWindow(R"({"attributes": {"AXTitleUIElement": {"element": "nope"}}})")
            << "applications[2].windows[0].children[3].attributes.AXTitleUIElement"
            << "no element has the id \"nope\"";
        QTest::newRow("dangling window in an array")
            << inWindow(R"({"attributes": {"AXLinked": [1, {"window": 9}]}})")
            << "applications[2].windows[0].children[3].attributes.AXLinked[1]"
            << "no window has the id 9";
        QTest::newRow("unknown value form") << inWindow(R"({"attributes": {"AXPosition": {"x": 1}}})")
                                            << "applications[2].windows[0].children[3].attributes.AXPosition"
                                            << "unknown value form {\"x\"}";
        QTest::newRow("id twice") << inWindow(R"({"id": "a"}, {"id": "a"})")
                                  << "applications[2].windows[0].children[4].id"
                                  << "the id \"a\" is used twice";
        QTest::newRow("attribute given twice")
            << inWindow(R"({"title": "A", "attributes": {"AXTitle": "B"}})")
            << "applications[2].windows[0].children[3].title"
            << "AXTitle is given twice, here and in \"attributes\"";
        QTest::newRow("two active applications")
            << QByteArray(R"({"applications": [{"pid": 1, "active": true}, {"pid": 2, "active": true}]})")
            << "applications[1]"
            << "only one application can be active";
        QTest::newRow("zoom factor") << QByteArray(R"({"zoom": {"factor": 0}})") << "zoom.factor"
                                     << "the factor must be above 0";
        QTest::newRow("busy delay") << QByteArray(
                                           R"({"applications": [{"pid": 1, "busy": {"delayMs": 60001}}]})")
                                    << "applications[0].busy.delayMs"
                                    << "expected an integer from 0 to 60000";
    }

    void badFixtures() {
        QFETCH(QByteArray, fixture);
        QFETCH(QString, place);
        QFETCH(QString, problem);

        auto bad = std::make_shared<VirtualDesktop>();
        setAccessibilityProviderForTesting(bad);
        QTest::ignoreMessage(
            QtWarningMsg,
            qPrintable(QStringLiteral("Error: bad desktop fixture bad.json at %1: %2").arg(place, problem)));
        QVERIFY(!bad->load(fixture, "bad.json"));
        QCOMPARE(bad->lastError().file, QStringLiteral("bad.json"));
        QCOMPARE(bad->lastError().place, place);
        QCOMPARE(bad->lastError().problem, problem);

        // No desktop: every query fails, the process goes on.
        Ref<AXUIElementRef> application(AXUIElementCreateApplication(1));
        QCOMPARE(operations().value("read AXTitle")(application), kAXErrorCannotComplete);
        QList<WindowInfo> windows;
        QCOMPARE(bad->windowList(&windows), kCGErrorCannotComplete);
        QVERIFY(!AXIsProcessTrusted());
    }

    void badFixtureReplacesGoodDesktop() {
        Ref<AXUIElementRef> save(element("save-button"));
        QTest::ignoreMessage(QtWarningMsg,
                             "Error: bad desktop fixture <fixture> at top level: expected an object");
        QVERIFY(!desktop->load(QByteArray("[]")));
        QCOMPARE(operations().value("read AXTitle")(save), kAXErrorCannotComplete);
    }

    void environmentChoosesProvider_data() {
        QTest::addColumn<QByteArray>("choice");
        QTest::addColumn<int>("messageType");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("error");
        QTest::addColumn<bool>("trusted");

        const QByteArray fixture = QFINDTESTDATA("fixtures/desktop-basic.json").toUtf8();
        const QString unavailable =
            "Note: the live desktop (AT-SPI2) cannot be reached: no session bus (DBUS_SESSION_BUS_ADDRESS is not "
            "set); every accessibility query fails";
        QTest::newRow("virtual") << "virtual:" + fixture << -1 << QString() << 0 << true;
        QTest::newRow("virtual without file")
            << QByteArray("virtual:/nonexistent/desktop.json") << int(QtWarningMsg)
            << "Error: desktop fixture /nonexistent/desktop.json: cannot be read: No such file or directory"
            << int(kAXErrorCannotComplete) << false;
        QTest::newRow("atspi") << QByteArray("atspi") << int(QtDebugMsg) << unavailable
                               << int(kAXErrorAPIDisabled) << false;
        QTest::newRow("unset") << QByteArray() << int(QtDebugMsg) << unavailable << int(kAXErrorAPIDisabled)
                               << false;
        QTest::newRow("virtual without path")
            << QByteArray("virtual:") << int(QtWarningMsg)
            << "Error: UIET_ACCESSIBILITY must be \"atspi\" or \"virtual:<path>\", not: virtual:"
            << int(kAXErrorAPIDisabled) << false;
        QTest::newRow("unknown") << QByteArray("carrier-pigeon") << int(QtWarningMsg)
                                 << "Error: UIET_ACCESSIBILITY must be \"atspi\" or \"virtual:<path>\", not: "
                                    "carrier-pigeon"
                                 << int(kAXErrorAPIDisabled) << false;
    }

    void environmentChoosesProvider() {
        QFETCH(QByteArray, choice);
        QFETCH(int, messageType);
        QFETCH(QString, message);
        QFETCH(int, error);
        QFETCH(bool, trusted);

        // No session bus: the live desktop cannot be reached.
        const QByteArray sessionBus = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        const auto restoreBus = qScopeGuard([&] {
            if (!sessionBus.isEmpty())
                qputenv("DBUS_SESSION_BUS_ADDRESS", sessionBus);
        });
        if (choice.isNull())
            qunsetenv("UIET_ACCESSIBILITY");
        else
            qputenv("UIET_ACCESSIBILITY", choice);
        setAccessibilityProviderForTesting(nullptr);
        if (messageType >= 0)
            QTest::ignoreMessage(QtMsgType(messageType), qPrintable(message));
        Ref<AXUIElementRef> editor(AXUIElementCreateApplication(4101));
        QCOMPARE(int(operations().value("read AXTitle")(editor)), error);
        QCOMPARE(bool(AXIsProcessTrusted()), trusted);
        QCOMPARE(bool(AXAPIEnabled()), trusted);
        qunsetenv("UIET_ACCESSIBILITY");
    }

    void untrustedProcess() {
        install(json(R"({"trusted": false, "applications": [{"pid": 5}]})"));
        Ref<AXUIElementRef> application(AXUIElementCreateApplication(5));
        QCOMPARE(operations().value("read AXTitle")(application), kAXErrorAPIDisabled);
        QVERIFY(!AXIsProcessTrusted());
        QCOMPARE(desktop->trustPromptCount(), 0);
        const void* keys[] = {kAXTrustedCheckOptionPrompt};
        const void* values[] = {kCFBooleanTrue};
        Ref<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                        &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
        QVERIFY(!AXIsProcessTrustedWithOptions(options));
        QCOMPARE(desktop->trustPromptCount(), 1);
    }

    void illegalArguments() {
        Ref<AXUIElementRef> save(element("save-button"));
        Ref<CFTypeRef> value;
        QCOMPARE(AXUIElementCopyAttributeValue(nullptr, CFSTR("AXTitle"), value.out()),
                 kAXErrorIllegalArgument);
        QCOMPARE(AXUIElementCopyAttributeValue(save, nullptr, value.out()), kAXErrorIllegalArgument);
        QCOMPARE(AXUIElementCopyAttributeValue(save, CFSTR("AXTitle"), nullptr), kAXErrorIllegalArgument);
        // A string is no element, and a number no attribute name.
        QCOMPARE(AXUIElementCopyAttributeValue(reinterpret_cast<AXUIElementRef>(CFSTR("AXTitle")),
                                               CFSTR("AXTitle"), value.out()),
                 kAXErrorIllegalArgument);
        Ref<CFTypeRef> one(number(kCFNumberSInt32Type, 1));
        QCOMPARE(AXUIElementPerformAction(save, static_cast<CFStringRef>(static_cast<CFTypeRef>(one))),
                 kAXErrorIllegalArgument);
        QCOMPARE(AXUIElementSetAttributeValue(save, CFSTR("AXValue"), nullptr), kAXErrorIllegalArgument);
        QVERIFY(!AXUIElementCreateApplication(0));
        QVERIFY(!AXUIElementCreateApplication(-1));
        pid_t pid = 0;
        QCOMPARE(AXUIElementGetPid(save, nullptr), kAXErrorIllegalArgument);
        QCOMPARE(AXUIElementGetPid(save, &pid), kAXErrorSuccess);
        QCOMPARE(pid, pid_t(4101));
    }

    void packedValues() {
        const CGRect rect = CGRectMake(1, 2, 3, 4);
        Ref<AXValueRef> packed(AXValueCreate(kAXValueCGRectType, &rect));
        QCOMPARE(AXValueGetType(packed), kAXValueCGRectType);
        CGPoint point{};
        QVERIFY(!AXValueGetValue(packed, kAXValueCGPointType, &point));
        CGRect back{};
        QVERIFY(AXValueGetValue(packed, kAXValueCGRectType, &back));
        QCOMPARE(back.size.height, 4.0);
        QVERIFY(!AXValueCreate(kAXValueIllegalType, &rect));
        QVERIFY(!AXValueCreate(AXValueType(9), &rect));
        QCOMPARE(AXValueGetType(reinterpret_cast<AXValueRef>(CFSTR("x"))), kAXValueIllegalType);

        // Equal by value, with hashes to match: 0.0 and -0.0 are one coordinate.
        Ref<CFTypeRef> zero(packedPoint(0.0, 0.0));
        Ref<CFTypeRef> negativeZero(packedPoint(-0.0, -0.0));
        QVERIFY(CFEqual(zero, negativeZero));
        QCOMPARE(CFHash(zero), CFHash(negativeZero));
        Ref<CFTypeRef> sizeOfZero(packedSize(0, 0));
        QVERIFY(!CFEqual(zero, sizeOfZero));
    }

    void copiesAreOwnedOnce() {
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> editor(AXUIElementCreateApplication(4101));
        Ref<AXUIElementRef> hit;
        QCOMPARE(AXUIElementCopyElementAtPosition(systemWide, 150, 148, hit.out()), kAXErrorSuccess);
        Ref<CFTypeRef> children;
        QCOMPARE(copyAttribute(editor, "AXChildren", children), kAXErrorSuccess);
        Ref<CFTypeRef> title;
        QCOMPARE(copyAttribute(hit, "AXTitle", title), kAXErrorSuccess);
        Ref<CFArrayRef> names;
        QCOMPARE(AXUIElementCopyAttributeNames(hit, names.out()), kAXErrorSuccess);
        Ref<CFArrayRef> actionNames;
        QCOMPARE(AXUIElementCopyActionNames(hit, actionNames.out()), kAXErrorSuccess);
        Ref<CFStringRef> description;
        QCOMPARE(AXUIElementCopyActionDescription(hit, CFSTR("AXPress"), description.out()), kAXErrorSuccess);
        for (CFTypeRef object :
             {CFTypeRef(systemWide), CFTypeRef(editor), CFTypeRef(hit), CFTypeRef(children), CFTypeRef(title),
              CFTypeRef(names), CFTypeRef(actionNames), CFTypeRef(description)})
            QCOMPARE(CFGetRetainCount(object), CFIndex(1));
        // Each element of an array is held by the array alone.
        QCOMPARE(CFGetRetainCount(
                     CFArrayGetValueAtIndex(static_cast<CFArrayRef>(static_cast<CFTypeRef>(children)), 0)),
                 CFIndex(1));
    }

    void counters() {
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> hit;
        AXUIElementCopyElementAtPosition(systemWide, 150, 148, hit.out());
        Ref<CFTypeRef> value;
        copyAttribute(hit, "AXTitle", value);
        copyAttribute(hit, "AXNoSuchThing", value); // failed calls count too
        CGPoint point = CGPointMake(1, 1);
        CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &point, nullptr, nullptr, nullptr);

        QMap<QString, quint64> expected;
        for (const QString& name : platformCallCounts().keys())
            expected.insert(name, 0);
        expected["AXUIElementCreateSystemWide"] = 1;
        expected["AXUIElementCopyElementAtPosition"] = 1;
        expected["AXUIElementCopyAttributeValue"] = 2;
        expected["CGSMainConnectionID"] = 1;
        expected["CGSFindWindowAndOwner"] = 1;
        QCOMPARE(platformCallCounts(), expected);
        QCOMPARE(platformCallCount("AXUIElementCopyAttributeValue"), quint64(2));
        QCOMPARE(platformCallCount("CFRelease"), quint64(0));
        QCOMPARE(expected.size(), kPlatformCallKinds);

        resetPlatformCallCounts();
        for (quint64 count : platformCallCounts())
            QCOMPARE(count, quint64(0));
    }
};

UIET_TEST_MAIN(tst_VirtualDesktop)

#include "tst_virtualDesktop.moc"
