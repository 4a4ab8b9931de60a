#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "CFTypeSmartRef.h"
#include "ax/AccessibilityProvider.h"
#include "ax/PlatformCallCounters.h"
#include "cf/CFRuntime.h"
#include "osxMisc.h"
#include "osxUIElementUtils.h"
#include "virtual/VirtualDesktop.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <functional>
#include <memory>

namespace {

QJsonObject rect(double x, double y, double width, double height) {
    return {{"x", x}, {"y", y}, {"width", width}, {"height", height}};
}

QJsonObject element(const QString& id, const QString& role, const QJsonObject& extras = {}) {
    QJsonObject object{{"id", id}, {"role", role}};
    for (auto it = extras.begin(); it != extras.end(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

QJsonObject desktopFixture() {
    const QJsonObject menuItemFrame = rect(5, 5, 80, 18);
    const QJsonArray children{
        element("titled", "AXButton",
                {{"title", QString("Save") + QChar(0xFFFC) + " As"},
                 {"frame", rect(10.9, 20.9, 5.9, 7.9)},
                 {"attributes", QJsonObject{{"AXIdentifier", 42}, {"AXValue", 3}}},
                 {"actions", QJsonArray{QJsonObject{{"name", "AXPress"}, {"description", "press"}},
                                        QJsonObject{{"name", "AXShowMenu"}, {"description", "menu"}}}}}),
        element("replacementOnly", "AXStaticText",
                {{"title", QString(QChar(0xFFFC))},
                 {"attributes", QJsonObject{{"AXIdentifier", QString("id") + QChar(0xFFFC)}}}}),
        element(
            "failing", "AXButton",
            {{"title", "Broken"},
             {"faults", QJsonObject{{"attributes", QJsonObject{{"AXTitle", "kAXErrorCannotComplete"}}},
                                    {"calls", QJsonObject{{"AXUIElementCopyActionDescription", -25200}}}}},
             {"actions", QJsonArray{QJsonObject{{"name", "AXPress"}}, QJsonObject{{"name", "AXCancel"}}}}}),
        element("sizeOnly", "AXGroup",
                {{"attributes", QJsonObject{{"AXSize", QJsonObject{{"width", 5}, {"height", 5}}}}}}),
        element("zeroSize", "AXGroup", {{"frame", rect(30, 40, 0, 0)}}),
        element(
            "unsupported", "AXGroup",
            {{"attributes", QJsonObject{{"AXValue", QJsonArray{"a", QJsonObject{{"element", "titled"}}}}}}}),
        element("secureField", "AXTextField",
                {{"attributes", QJsonObject{{"AXSubrole", "AXSecureTextField"}}}}),
        element("dateTimeArea", "AXDateTimeArea"),
        element("editableWeb", "AXWebArea",
                {{"attributes", QJsonObject{{"AXValue", ""}}}, {"settable", QJsonArray{"AXValue"}}}),
        element("readOnlyWeb", "AXWebArea", {{"attributes", QJsonObject{{"AXValue", ""}}}}),
        element("menuItemA", "AXMenuItem", {{"title", "Open"}, {"frame", menuItemFrame}}),
        element("menuItemB", "AXMenuItem", {{"title", "Open"}, {"frame", menuItemFrame}}),
        element("menuItemOther", "AXMenuItem", {{"title", "Close"}, {"frame", menuItemFrame}}),
        element("longName", "AXStaticText",
                {{"title", QString(59, 'a') + "\nbc"},
                 {"frame", rect(1, 2, 3, 4)},
                 {"attributes", QJsonObject{{"AXRoleDescription", "text"}}}}),
        element("sixtyCharacters", "AXStaticText", {{"title", QString(59, 'a') + "\n"}}),
        element("numericValue", "AXSlider", {{"attributes", QJsonObject{{"AXValue", 7}, {"AXTitle", ""}}}}),
        element("buttonTwin", "AXButton",
                {{"title", "Save" + QString(QChar(0xFFFC)) + " As"}, {"frame", rect(10.9, 20.9, 5.9, 7.9)}}),
    };
    const QJsonObject window{
        {"windowId", 7}, {"id", "window"}, {"frame", rect(0, 0, 400, 300)}, {"children", children}};
    const QJsonObject application{{"pid", 77},
                                  {"name", "Small"},
                                  {"bundleId", "com.avid.ProToolsUltimate"},
                                  {"executable", "/Applications/Pro Tools.app/Contents/MacOS/ProTools"},
                                  {"windows", QJsonArray{window}}};
    return QJsonObject{{"applications", QJsonArray{application}}};
}

template <class T> CFTypeRef number(CFNumberType type, T value) {
    return CFNumberCreate(kCFAllocatorDefault, type, &value);
}

CFTypeRef array(std::initializer_list<CFTypeRef> entries) {
    QList<CFTypeRef> values(entries);
    CFTypeRef result =
        CFArrayCreate(kCFAllocatorDefault, values.data(), values.size(), &kCFTypeArrayCallBacks);
    for (CFTypeRef each : values)
        CFRelease(each);
    return result;
}

CFTypeRef packedPoint() {
    const CGPoint point = CGPointMake(1, 2);
    return AXValueCreate(kAXValueCGPointType, &point);
}

using Factory = CFTypeRef (*)();
#define MAKE(expression) Factory([]() -> CFTypeRef { return expression; })

} // namespace

Q_DECLARE_METATYPE(Factory)

class tst_osxUIElementUtils : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    CFTypeSmartRef<AXUIElementRef> copy(const QString& id) const {
        return CFTypeSmartRef<AXUIElementRef>(desktop->copyElement(id));
    }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(desktopFixture()); }));
    }

    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void convertsValues_data() {
        QTest::addColumn<Factory>("make");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("string") << MAKE(CFStringCreateWithQString("text")) << QVariant(QString("text"));
        QTest::newRow("float64") << MAKE(number(kCFNumberFloat64Type, 2.5)) << QVariant(2.5);
        QTest::newRow("float32") << MAKE(number(kCFNumberFloat32Type, 0.5f)) << QVariant(0.5);
        QTest::newRow("sint32") << MAKE(number(kCFNumberSInt32Type, qint32(-7))) << QVariant(-7LL);
        QTest::newRow("boolean") << MAKE(kCFBooleanTrue) << QVariant(true);
        QTest::newRow("strings") << MAKE(array(
                                        {CFStringCreateWithQString("a"), CFStringCreateWithQString("b")}))
                                 << QVariant(QStringList{"a", "b"});
        QTest::newRow("empty array") << MAKE(array({})) << QVariant(QStringList());
        QTest::newRow("array with element")
            << MAKE(array({CFStringCreateWithQString("a"), AXUIElementCreateApplication(77)})) << QVariant();
        QTest::newRow("null") << MAKE(kCFNull) << QVariant::fromValue<void*>(nullptr);
        QTest::newRow("url") << MAKE(CFURLCreateWithString(kCFAllocatorDefault,
                                                           CFSTR("https://example.org/x"), nullptr))
                             << QVariant(QString("https://example.org/x"));
        QTest::newRow("packed point") << MAKE(packedPoint()) << QVariant();
    }

    void convertsValues() {
        QFETCH(Factory, make);
        QFETCH(QVariant, expected);
        const CFTypeSmartRef<CFTypeRef> value(make());
        QVariant converted;
        QCOMPARE(logOf([&] { converted = CFTypeToVariant(value, true); }), QStringList());
        QCOMPARE(converted.metaType(), expected.metaType());
        QCOMPARE(converted, expected);
    }

    void logsUnsupportedValuesUnlessQuiet() {
        const CFTypeSmartRef<CFTypeRef> point(packedPoint());
        QCOMPARE(logOf([&] { CFTypeToVariant(point); }),
                 QStringList({"Warning: Tried to convert CFType of unsupported type:", "  type: AXValue",
                              "  description: {x:1 y:2}"}));
        const auto unsupported = copy("unsupported");
        QCOMPARE(logOf([&] {
                     QVERIFY(!UIElementAttributeValue(unsupported, QString("AXValue"), true).isValid());
                 }),
                 QStringList());
        const QStringList lines = logOf([&] { UIElementAttributeValue(unsupported, CFSTR("AXValue")); });
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines[0], "Warning: Tried to get UI element attribute value of unsupported type:");
        QCOMPARE(lines[1], "  type: CFArray");
        QVERIFY(lines[2].startsWith("  description: (a, "));
    }

    void readsStrings_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<int>("numericIdentifier");
        QTest::newRow("replacement removed") << "titled"
                                             << "Save As" << QString() << 42;
        QTest::newRow("replacement only")
            << "replacementOnly" << QString() << (QString("id") + QChar(0xFFFC)) << 0;
        QTest::newRow("failed read") << "failing" << QString() << QString() << 0;
        QTest::newRow("no title") << "zeroSize" << QString() << QString() << 0;
    }

    void readsStrings() {
        QFETCH(QString, id);
        const auto handle = copy(id);
        QTEST(UIElementTitle(handle), "title");
        QTEST(UIElementIdentifierAsString(handle), "identifier");
        QTEST(UIElementIdentifier(handle), "numericIdentifier");
    }

    void readsRectangles_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("read");
        QTest::addColumn<QRect>("rect");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QPoint>("position");
        QTest::addColumn<bool>("isNull");
        QTest::newRow("truncated") << "titled" << true << QRect(10, 20, 5, 7) << QSize(5, 7) << QPoint(10, 20)
                                   << false;
        QTest::newRow("size only") << "sizeOnly" << false << QRect(0, 0, 0, 0) << QSize(5, 5) << QPoint(0, 0)
                                   << true;
        QTest::newRow("zero size") << "zeroSize" << true << QRect(QPoint(30, 40), QPoint(29, 39))
                                   << QSize(0, 0) << QPoint(30, 40) << true;
        QTest::newRow("neither") << "dateTimeArea" << false << QRect(0, 0, 0, 0) << QSize(-1, -1)
                                 << QPoint(0, 0) << true;
    }

    void readsRectangles() {
        QFETCH(QString, id);
        const auto handle = copy(id);
        CGRect raw{};
        QTEST(UIElementRect(raw, handle), "read");
        const QRect rect = UIElementRect(handle);
        QTEST(rect, "rect");
        QTEST(rect.isNull(), "isNull");
        QTEST(UIElementSize(handle), "size");
        QTEST(UIElementPosition(handle), "position");
    }

    void listsAttributesAndActions() {
        const auto titled = copy("titled");
        QCOMPARE(UIElementAttributes(titled).count("AXTitle"), 2);
        QCOMPARE(UIElementAttributes(copy("zeroSize")).count("AXTitle"), 0);
        QCOMPARE(UIElementActionNames(titled), QStringList({"AXPress", "AXShowMenu"}));
        QCOMPARE(UIElementActionDescriptions(titled), QStringList({"press", "menu"}));
        QCOMPARE(UIElementActionDescriptions(copy("failing")), QStringList({QString(), QString()}));
        QCOMPARE(UIElementActionNames(copy("zeroSize")), QStringList());
        const auto window = copy("window");
        QCOMPARE(UIElementChildrenCount(window), 17L); // the children of desktopFixture()
        QCOMPARE(platformCallCount("AXUIElementCopyAttributeValue") > 0, true);
        const int copiesBefore = platformCallCount("AXUIElementCopyAttributeValue");
        UIElementChildrenCount(window);
        QCOMPARE(platformCallCount("AXUIElementCopyAttributeValue"), copiesBefore);
    }

    void readsProcessId() {
        QCOMPARE(UIElementPID(copy("titled")), 77);
        const CFTypeSmartRef<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        QCOMPARE(logOf([&] { QCOMPARE(UIElementPID(systemWide), 0); }),
                 QStringList{"Error: failed to get process ID for UI element. Error code: -25201"});
    }

    void identifiesApplicationAndType() {
        const auto menuItem = copy("menuItemA");
        QCOMPARE(UIElementBundleId(menuItem), "com.avid.ProToolsUltimate");
        QCOMPARE(UIElementProcessName(menuItem), "ProTools");
        QVERIFY(isProToolsUIElement(menuItem));
        QVERIFY(!isProToolsUIElement(nullptr));
        // A Pro Tools menu item need not offer AXPress.
        QVERIFY(UIElementIsOfType(menuItem, "menu item"));
        QVERIFY(!UIElementIsOfType(copy("titled"), "menu item"));
        QVERIFY(UIElementIsOfType(copy("window"), "window"));
        QCOMPARE(logOf([&] { QVERIFY(!UIElementIsOfType(menuItem, "Window")); }),
                 QStringList{"Cannot check if UI element is unsupported type: Window"});
    }

    void recognizesTextFields_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("textField");
        QTest::addColumn<bool>("secure");
        QTest::newRow("secure field") << "secureField" << true << true;
        QTest::newRow("date time area") << "dateTimeArea" << true << false;
        QTest::newRow("editable web area") << "editableWeb" << true << false;
        QTest::newRow("read-only web area") << "readOnlyWeb" << false << false;
        QTest::newRow("button") << "titled" << false << false;
    }

    void recognizesTextFields() {
        QFETCH(QString, id);
        bool secure = true;
        QTEST(UIElementIsTextField(copy(id), &secure), "textField");
        QTEST(secure, "secure");
        QTEST(UIElementIsTextField(copy(id), nullptr), "textField");
    }

    void comparesElements_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("loose");
        QTest::addColumn<bool>("equal");
        QTest::newRow("same element") << "titled"
                                      << "titled" << false << true;
        QTest::newRow("menu items strict") << "menuItemA"
                                           << "menuItemB" << false << false;
        QTest::newRow("menu items loose") << "menuItemA"
                                          << "menuItemB" << true << true;
        QTest::newRow("other title") << "menuItemA"
                                     << "menuItemOther" << true << false;
        QTest::newRow("buttons") << "titled"
                                 << "buttonTwin" << true << false;
    }

    void comparesElements() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, loose);
        QTEST(UIElementsAreEqual(copy(a), copy(b), loose), "equal");
        if (!loose)
            QCOMPARE(platformCallCount("AXUIElementCopyAttributeValue"), 0);
    }

    // The name cut: 61 characters become the first 60 and "...", 60 stay; then newlines become
    // blanks. A value that is not a string is given by its description, uncut.
    void debugInfo_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("expected");
        QTest::newRow("cut name") << "longName"
                                  << "text, (1, 2) (3 x 4), " + QString(59, 'a') + " ... pid:77 Small";
        QTest::newRow("60 characters") << "sixtyCharacters"
                                       << "no role, (0, 0) (0 x 0), " + QString(59, 'a') + "  pid:77 Small";
        QTest::newRow("value by description") << "numericValue"
                                              << "no role, (0, 0) (0 x 0), 7 pid:77 Small";
        QTest::newRow("no name") << "zeroSize"
                                 << "no role, (30, 40) (0 x 0), no name pid:77 Small";
    }
    void debugInfo() {
        QFETCH(QString, id);
        QTEST(UIElementDebugInfo(copy(id)), "expected");
    }

    void describes() {
        QCOMPARE(UIElementDebugInfo(nullptr), "NULL AXUIElementRef");
        QCOMPARE(UIElementShortDebugInfo(copy("titled")), "AXButton: 'Save As'");
        QCOMPARE(UIElementShortDebugInfo(copy("zeroSize")), "AXGroup");
        QCOMPARE(getAXUIErrorString(kAXErrorCannotComplete),
                 "The function cannot complete because messaging failed in some way or because the "
                 "application with "
                 "which the function is communicating is busy or unresponsive.");
        QCOMPARE(getAXUIErrorString(kAXErrorSuccess), "No error occurred.");
        QCOMPARE(getAXUIErrorString(AXError(-25215)), "An unknown UI element error has occurred.");
        QCOMPARE(logOf([] { printAccessibilityThreadWarning("copyUIElementParent"); }),
                 QStringList{"%%%%% Error: calling copyUIElementParent outside of main thread"});
        QVERIFY(bundleIdIsProTools("com.avid.ProToolsUltimate"));
        QVERIFY(!bundleIdIsProTools("com.avid.protools"));
    }

    void sharedReferencesRetainAndCompareByIdentity() {
        const auto handle = copy("titled");
        const CFIndex count = CFGetRetainCount(handle);
        {
            UIElementAncestorList ancestors{CFTypeSharedRef<AXUIElementRef>(handle)};
            const QVariant variant = QVariant::fromValue(ancestors);
            QCOMPARE(CFGetRetainCount(handle), count + 1);
            const CFTypeSharedRef<AXUIElementRef> other(copy("titled"));
            QVERIFY(other.get() != handle.get());
            QCOMPARE(variant.value<UIElementAncestorList>().first(), other);
        }
        QCOMPARE(CFGetRetainCount(handle), count);
    }
};

UIET_TEST_MAIN(tst_osxUIElementUtils)
#include "tst_osxUIElementUtils.moc"
