// Every fault that the virtual desktop can inject, driven through the attribute readers to the
// empty value each of them promises for a failed read. Each row loads the reader's element twice:
// first without the fault (the healthy value), then with it (the value under test). A fault that
// reaches the reader must change the value; one that does not reach it (the row says so) must leave
// it alone.

#include "platformTestSupport.h"
#include "testSupport.h"

#include "CFTypeSmartRef.h"
#include "osxUIElementUtils.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRectF>
#include <QRegularExpression>
#include <QTest>

#include <functional>

namespace {

// The element under test: a menu item of application 77 "Small". Its twin, beside it in the same
// window, is the same element without the fault (the second element of UIElementsAreEqual).
const char* const kTarget = R"({"id": "target", "role": "AXMenuItem", "title": "Open",
    "frame": {"x": 10.5, "y": 20.5, "width": 30.5, "height": 40.5},
    "attributes": {"AXRoleDescription": "menu item", "AXIdentifier": "42", "AXValue": "Value text"},
    "actions": [{"name": "AXPress", "description": "press"}, {"name": "AXCancel", "description": "cancel"}],
    "children": [{"role": "AXStaticText"}]})";
const char* const kApplication = R"({"pid": 77, "name": "Small", "bundleId": "com.example.small",
    "executable": "/Applications/Small.app/Contents/MacOS/Small"})";
const char* const kWindow =
    R"({"windowId": 7, "id": "window", "frame": {"x": 0, "y": 0, "width": 400, "height": 300}})";

QJsonObject json(const QString& text) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("bad JSON in the test table: %s in %s", qPrintable(error.errorString()), qPrintable(text));
    return document.object();
}

// Objects merge key by key, at every depth; anything else in extra replaces.
QJsonObject merged(QJsonObject base, const QJsonObject& extra) {
    for (auto it = extra.begin(); it != extra.end(); ++it) {
        const QJsonValue old = base.value(it.key());
        base.insert(it.key(), old.isObject() && it->isObject()
                                  ? QJsonValue(merged(old.toObject(), it->toObject()))
                                  : it.value());
    }
    return base;
}

// The desktop of one row. shape: the reader's kind of element, merged into the target and its twin.
// fault: merged into the target only, except its key "application", which goes to the application.
QJsonObject desktopFixture(const QString& shape, const QString& fault) {
    const QJsonObject healthy = merged(json(kTarget), json(shape));
    QJsonObject target = merged(healthy, json(fault));
    const QJsonObject applicationFault = target.take("application").toObject();
    QJsonObject twin = healthy;
    twin.insert("id", "twin");
    QJsonObject window = json(kWindow);
    window.insert("children", QJsonArray{target, twin});
    QJsonObject application = merged(json(kApplication), applicationFault);
    application.insert("windows", QJsonArray{window});
    return QJsonObject{{"applications", QJsonArray{application}}};
}

QString attributeFault(const char* attribute, const char* error) {
    return QString(R"({"faults": {"attributes": {"%1": "%2"}}})").arg(attribute, error);
}
QString callFault(const char* function, const char* error) {
    return QString(R"({"faults": {"calls": {"%1": "%2"}}})").arg(function, error);
}
QString deathAfter(int calls) {
    return QString(R"({"faults": {"diesAfterCalls": %1}})").arg(calls);
}
const QString kBusy = R"({"application": {"busy": {"delayMs": 2}}})";
const QString kBusyForOneCall = R"({"application": {"busy": {"delayMs": 2, "calls": 1}}})";
// The target names its twin as parent; the twin's AXChildren does not list it.
const QString kStrayParent = R"({"attributes": {"AXParent": {"element": "twin"}}})";

struct Reader {
    QString shape; // JSON merged into the target and its twin
    std::function<QVariant(AXUIElementRef target, AXUIElementRef twin)> read;
};

const char* const kMenuItem = "{}";
const char* const kSecureTextField =
    R"({"role": "AXTextField", "attributes": {"AXSubrole": "AXSecureTextField"}})";
const char* const kEditableWebArea = R"({"role": "AXWebArea", "settable": ["AXValue"]})";

QVariant textField(AXUIElementRef element) {
    bool secure = true; // the reader must clear it
    const bool result = UIElementIsTextField(element, &secure);
    return QVariantList{result, secure};
}

const QHash<QString, Reader>& readers() {
    using E = AXUIElementRef;
    static const QHash<QString, Reader> table{
        {"UIElementTitle", {kMenuItem, [](E e, E) { return QVariant(UIElementTitle(e)); }}},
        {"UIElementRole", {kMenuItem, [](E e, E) { return QVariant(UIElementRole(e)); }}},
        {"UIElementAttributeValue(AXTitle)",
         {kMenuItem, [](E e, E) { return UIElementAttributeValue(e, CFSTR("AXTitle")); }}},
        {"UIElementAttributeValue(\"AXIdentifier\")",
         {kMenuItem, [](E e, E) { return UIElementAttributeValue(e, QString("AXIdentifier"), false); }}},
        {"UIElementAttributeValue(AXParent)",
         {kMenuItem, [](E e, E) { return UIElementAttributeValue(e, CFSTR("AXParent")); }}},
        {"UIElementIdentifier", {kMenuItem, [](E e, E) { return QVariant(UIElementIdentifier(e)); }}},
        {"UIElementIdentifierAsString",
         {kMenuItem, [](E e, E) { return QVariant(UIElementIdentifierAsString(e)); }}},
        {"UIElementAttributes", {kMenuItem, [](E e, E) { return QVariant(UIElementAttributes(e)); }}},
        {"UIElementAttributes: AXTitle count",
         {kMenuItem, [](E e, E) { return QVariant(int(UIElementAttributes(e).count("AXTitle"))); }}},
        {"UIElementActionNames", {kMenuItem, [](E e, E) { return QVariant(UIElementActionNames(e)); }}},
        {"UIElementActionDescriptions",
         {kMenuItem, [](E e, E) { return QVariant(UIElementActionDescriptions(e)); }}},
        {"UIElementChildrenCount",
         {kMenuItem, [](E e, E) { return QVariant::fromValue(UIElementChildrenCount(e)); }}},
        {"UIElementChildrenCount(claimed parent)",
         {kMenuItem, [](E, E twin) { return QVariant::fromValue(UIElementChildrenCount(twin)); }}},
        {"UIElementPID", {kMenuItem, [](E e, E) { return QVariant(UIElementPID(e)); }}},
        {"UIElementBundleId", {kMenuItem, [](E e, E) { return QVariant(UIElementBundleId(e)); }}},
        {"UIElementSize", {kMenuItem, [](E e, E) { return QVariant(UIElementSize(e)); }}},
        {"UIElementPosition", {kMenuItem, [](E e, E) { return QVariant(UIElementPosition(e)); }}},
        {"UIElementRect(CGRect&)",
         {kMenuItem,
          [](E e, E) {
              CGRect rect{};
              const bool read = UIElementRect(rect, e);
              return QVariant(QVariantList{
                  read, QRectF(rect.origin.x, rect.origin.y, rect.size.width, rect.size.height)});
          }}},
        {"UIElementRect", {kMenuItem, [](E e, E) { return QVariant(UIElementRect(e)); }}},
        {"UIElementIsOfType(menu item)",
         {kMenuItem, [](E e, E) { return QVariant(UIElementIsOfType(e, "menu item")); }}},
        {"UIElementIsTextField", {kSecureTextField, [](E e, E) { return textField(e); }}},
        {"UIElementIsTextField(web area)", {kEditableWebArea, [](E e, E) { return textField(e); }}},
        {"UIElementsAreEqual(loose)",
         {kMenuItem, [](E e, E twin) { return QVariant(UIElementsAreEqual(e, twin, true)); }}},
        {"UIElementsAreEqual(loose, reversed)",
         {kMenuItem, [](E e, E twin) { return QVariant(UIElementsAreEqual(twin, e, true)); }}},
        {"UIElementDebugInfo", {kMenuItem, [](E e, E) { return QVariant(UIElementDebugInfo(e)); }}},
        {"UIElementShortDebugInfo", {kMenuItem, [](E e, E) { return QVariant(UIElementShortDebugInfo(e)); }}},
    };
    return table;
}

// Every AXError that a fixture fault may carry, with the text that getAXUIErrorString gives for it.
struct ErrorCode {
    int code;
    const char* name;
    const char* text;
};
const ErrorCode kErrorCodes[] = {
    {-25200, "kAXErrorFailure", "A system error occurred, such as the failure to allocate an object."},
    {-25201, "kAXErrorIllegalArgument", "An illegal argument was passed to the function."},
    {-25202, "kAXErrorInvalidUIElement", "The AXUIElementRef passed to the function is invalid."},
    {-25203, "kAXErrorInvalidUIElementObserver",
     "The AXObserverRef passed to the function is not a valid observer."},
    {-25204, "kAXErrorCannotComplete",
     "The function cannot complete because messaging failed in some way or because the application with "
     "which "
     "the function is communicating is busy or unresponsive."},
    {-25205, "kAXErrorAttributeUnsupported", "The attribute is not supported by the AXUIElementRef."},
    {-25206, "kAXErrorActionUnsupported", "The action is not supported by the AXUIElementRef."},
    {-25207, "kAXErrorNotificationUnsupported", "The notification is not supported by the AXUIElementRef."},
    {-25208, "kAXErrorNotImplemented",
     "Indicates that the function or method is not implemented (this can be returned if a process does not "
     "support the accessibility API)."},
    {-25209, "kAXErrorNotificationAlreadyRegistered", "This notification has already been registered for."},
    {-25210, "kAXErrorNotificationNotRegistered", "Indicates that a notification is not registered yet."},
    {-25211, "kAXErrorAPIDisabled",
     "The accessibility API is disabled (as when, for example, the user deselects \"Enable access for "
     "assistive "
     "devices\" in Universal Access Preferences)."},
    {-25212, "kAXErrorNoValue", "The requested value or AXUIElementRef does not exist."},
    {-25213, "kAXErrorParameterizedAttributeUnsupported",
     "The parameterized attribute is not supported by the AXUIElementRef."},
    {-25214, "kAXErrorNotEnoughPrecision", "Not enough precision."},
};

// Log lines of the reader: recorded, and passed on to QTest (so that ignoreMessage applies) or dropped.
QStringList* recordedLines = nullptr;
QtMessageHandler testHandler = nullptr;
bool passLinesOn = false;
void recordLine(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    recordedLines->append(text);
    if (passLinesOn && testHandler)
        testHandler(type, context, text);
}

QVariant readLogging(const Reader& reader, VirtualDesktop& desktop, QStringList* lines, bool passOn) {
    const CFTypeSmartRef<AXUIElementRef> target(desktop.copyElement("target"));
    const CFTypeSmartRef<AXUIElementRef> twin(desktop.copyElement("twin"));
    if (!target || !twin)
        return QStringLiteral("<no target>");
    recordedLines = lines;
    passLinesOn = passOn;
    testHandler = qInstallMessageHandler(recordLine);
    const QVariant value = reader.read(target, twin);
    qInstallMessageHandler(testHandler);
    return value;
}

} // namespace

class tst_readerFaults : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

private slots:
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void readerFails_data() {
        QTest::addColumn<QString>("reader");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QVariant>("expected");
        QTest::addColumn<bool>("reached"); // false: the fault must not change the reader's value
        QTest::addColumn<QStringList>(
            "log"); // patterns of the debug lines, in order; nothing else may be logged
        QTest::addColumn<QString>("errorText"); // of getAXUIErrorString for the row's code
        QTest::addColumn<int>("code");
        const auto add = [](const QString& label, const QString& fault, const QString& reader,
                            const QVariant& expected, bool reached = true, const QStringList& log = {}) {
            QTest::newRow(qPrintable(label + " / " + reader))
                << reader << fault << expected << reached << log << QString() << 0;
        };

        // Every code a fault may carry. The readers tell none apart: any result but 0 is a failed read,
        // and a failed read gives an invalid variant without a log line.
        for (const ErrorCode& error : kErrorCodes)
            QTest::newRow(
                qPrintable(QString("AXTitle %1 / UIElementAttributeValue(AXTitle)").arg(error.name)))
                << "UIElementAttributeValue(AXTitle)" << attributeFault("AXTitle", error.name) << QVariant()
                << true << QStringList() << QString(error.text) << error.code;

        // One attribute fails; the element answers everything else.
        add("AXTitle fails", attributeFault("AXTitle", "kAXErrorNoValue"), "UIElementTitle", QString());
        add("AXTitle fails", attributeFault("AXTitle", "kAXErrorNoValue"),
            "UIElementAttributes: AXTitle count", 1);
        add("AXTitle fails", attributeFault("AXTitle", "kAXErrorAttributeUnsupported"),
            "UIElementShortDebugInfo", "AXMenuItem");
        add("AXTitle fails", attributeFault("AXTitle", "kAXErrorFailure"), "UIElementDebugInfo",
            "menu item, (10, 20) (30 x 40), Value text pid:77 Small");
        add("AXTitle fails", attributeFault("AXTitle", "kAXErrorCannotComplete"), "UIElementsAreEqual(loose)",
            false);
        add("AXRole fails", attributeFault("AXRole", "kAXErrorNoValue"), "UIElementRole", QString());
        add("AXRole fails", attributeFault("AXRole", "kAXErrorFailure"), "UIElementIsOfType(menu item)",
            false);
        add("AXRole fails", attributeFault("AXRole", "kAXErrorNotImplemented"), "UIElementIsTextField",
            QVariantList{false, false});
        add("AXRole fails", attributeFault("AXRole", "kAXErrorIllegalArgument"),
            "UIElementIsTextField(web area)", QVariantList{false, false});
        add("AXRole fails", attributeFault("AXRole", "kAXErrorCannotComplete"), "UIElementsAreEqual(loose)",
            false);
        add("AXRole fails", attributeFault("AXRole", "kAXErrorCannotComplete"),
            "UIElementsAreEqual(loose, reversed)", false);
        add("AXRole fails", attributeFault("AXRole", "kAXErrorNoValue"), "UIElementShortDebugInfo",
            ": 'Open'");
        add("AXSubrole fails", attributeFault("AXSubrole", "kAXErrorCannotComplete"), "UIElementIsTextField",
            QVariantList{true, false});
        add("AXIdentifier fails", attributeFault("AXIdentifier", "kAXErrorNoValue"), "UIElementIdentifier",
            0);
        add("AXIdentifier fails", attributeFault("AXIdentifier", "kAXErrorNoValue"),
            "UIElementIdentifierAsString", QString());
        add("AXIdentifier fails", attributeFault("AXIdentifier", "kAXErrorAPIDisabled"),
            "UIElementAttributeValue(\"AXIdentifier\")", QVariant());
        add("AXSize fails", attributeFault("AXSize", "kAXErrorNoValue"), "UIElementSize", QSize(-1, -1));
        add("AXSize fails", attributeFault("AXSize", "kAXErrorNoValue"), "UIElementRect(CGRect&)",
            QVariantList{false, QRectF(10.5, 20.5, 0, 0)});
        add("AXSize fails", attributeFault("AXSize", "kAXErrorNoValue"), "UIElementRect", QRect());
        add("AXSize fails", attributeFault("AXSize", "kAXErrorFailure"), "UIElementsAreEqual(loose)", false);
        add("AXSize fails", attributeFault("AXSize", "kAXErrorCannotComplete"), "UIElementDebugInfo",
            "menu item, (0, 0) (0 x 0), Open pid:77 Small");
        add("AXPosition fails", attributeFault("AXPosition", "kAXErrorNoValue"), "UIElementPosition",
            QPoint(0, 0));
        add("AXPosition fails", attributeFault("AXPosition", "kAXErrorNoValue"), "UIElementRect(CGRect&)",
            QVariantList{false, QRectF(0, 0, 30.5, 40.5)});
        add("AXPosition fails", attributeFault("AXPosition", "kAXErrorNotEnoughPrecision"), "UIElementRect",
            QRect());
        add("AXChildren fails", attributeFault("AXChildren", "kAXErrorCannotComplete"),
            "UIElementChildrenCount", QVariant::fromValue(0L));
        add("AXRoleDescription fails", attributeFault("AXRoleDescription", "kAXErrorNoValue"),
            "UIElementDebugInfo", "no role, (10, 20) (30 x 40), Open pid:77 Small");

        // One platform call fails on the element, every time.
        const QString copyValue = callFault("AXUIElementCopyAttributeValue", "kAXErrorCannotComplete");
        add("CopyAttributeValue fails", copyValue, "UIElementTitle", QString());
        add("CopyAttributeValue fails", copyValue, "UIElementIdentifier", 0);
        add("CopyAttributeValue fails", copyValue, "UIElementRect", QRect());
        add("CopyAttributeValue fails", copyValue, "UIElementIsOfType(menu item)", false);
        add("CopyAttributeValue fails", copyValue, "UIElementIsTextField", QVariantList{false, false});
        add("CopyAttributeValue fails", copyValue, "UIElementAttributes: AXTitle count", 1);
        add("CopyAttributeValue fails", copyValue, "UIElementDebugInfo",
            "no role, (0, 0) (0 x 0), no name pid:77 Small");
        // The count comes from AXUIElementGetAttributeValueCount, not from copying the array.
        add("CopyAttributeValue fails", copyValue, "UIElementChildrenCount", QVariant::fromValue(1L), false);
        add("CopyAttributeNames fails", callFault("AXUIElementCopyAttributeNames", "kAXErrorFailure"),
            "UIElementAttributes", QStringList());
        add("GetAttributeValueCount fails",
            callFault("AXUIElementGetAttributeValueCount", "kAXErrorIllegalArgument"),
            "UIElementChildrenCount", QVariant::fromValue(0L));
        add("IsAttributeSettable fails",
            callFault("AXUIElementIsAttributeSettable", "kAXErrorCannotComplete"),
            "UIElementIsTextField(web area)", QVariantList{false, false});
        const QString actionNames = callFault("AXUIElementCopyActionNames", "kAXErrorCannotComplete");
        add("CopyActionNames fails", actionNames, "UIElementActionNames", QStringList());
        add("CopyActionNames fails", actionNames, "UIElementActionDescriptions", QStringList());
        add("CopyActionNames fails", actionNames, "UIElementIsOfType(menu item)", false);
        // Pro Tools menu items need no AXPress, so the action names are not read.
        add("CopyActionNames fails in Pro Tools",
            R"({"application": {"bundleId": "com.avid.ProTools"}, "faults": {"calls": {"AXUIElementCopyActionNames": -25204}}})",
            "UIElementIsOfType(menu item)", true, false);
        // (AXUIElementCopyActionDescription failing on every call is in tst_osxUIElementUtils; here it dies
        // below.)

        // Elements that answer nothing: dead from the start, or of an application that is busy.
        const QList<QPair<QString, QVariant>> nothingAnswers{
            {"UIElementTitle", QString()},
            {"UIElementRole", QString()},
            {"UIElementAttributeValue(AXTitle)", QVariant()},
            {"UIElementIdentifier", 0},
            {"UIElementIdentifierAsString", QString()},
            {"UIElementAttributes", QStringList()},
            {"UIElementActionNames", QStringList()},
            {"UIElementActionDescriptions", QStringList()},
            {"UIElementChildrenCount", QVariant::fromValue(0L)},
            {"UIElementSize", QSize(-1, -1)},
            {"UIElementPosition", QPoint(0, 0)},
            {"UIElementRect(CGRect&)", QVariantList{false, QRectF()}},
            {"UIElementRect", QRect()},
            {"UIElementIsOfType(menu item)", false},
            {"UIElementIsTextField", QVariantList{false, false}},
            {"UIElementIsTextField(web area)", QVariantList{false, false}},
            {"UIElementsAreEqual(loose)", false},
            {"UIElementsAreEqual(loose, reversed)", false},
            {"UIElementDebugInfo", "no role, (0, 0) (0 x 0), no name pid:77 Small"},
            {"UIElementShortDebugInfo", QString()},
        };
        for (const auto& [label, fault] : {qMakePair(QString("dead from the start"), deathAfter(0)),
                                           qMakePair(QString("busy application"), kBusy)}) {
            for (const auto& [reader, expected] : nothingAnswers)
                add(label, fault, reader, expected);
            // The pid is in the handle and the application is known without asking it: not reached, and
            // no "failed to get process ID" warning.
            add(label, fault, "UIElementPID", 77, false);
        }
        add("busy application", kBusy, "UIElementBundleId", "com.example.small", false);

        // Dying or busy in the middle of a read: what was read before stays, the rest fails.
        add("dies after 1 call", deathAfter(1), "UIElementAttributes: AXTitle count", 1);
        add("dies after 1 call", deathAfter(1), "UIElementActionDescriptions",
            QStringList{QString(), QString()});
        add("dies after 2 calls", deathAfter(2), "UIElementActionDescriptions",
            QStringList{"press", QString()});
        add("dies after 1 call", deathAfter(1), "UIElementRect(CGRect&)",
            QVariantList{false, QRectF(0, 0, 30.5, 40.5)});
        add("busy for 1 call", kBusyForOneCall, "UIElementRect(CGRect&)",
            QVariantList{false, QRectF(10.5, 20.5, 0, 0)});
        add("dies after 1 call", deathAfter(1), "UIElementIsTextField", QVariantList{true, false});
        add("dies after 1 call", deathAfter(1), "UIElementIsOfType(menu item)", false);
        add("dies after 1 call", deathAfter(1), "UIElementsAreEqual(loose)", false);

        // A parent link that disagrees with the children: none of these readers follows AXParent (the
        // hierarchy walk does), so nothing changes. An element as value is unsupported and logged, as it is
        // without the fault.
        add("stray AXParent", kStrayParent, "UIElementAttributeValue(AXParent)", QVariant(), false,
            {"^Warning: Tried to get UI element attribute value of unsupported type:$",
             "^  type: AXUIElement$", "^  description: .+$"});
        add("stray AXParent", kStrayParent, "UIElementChildrenCount(claimed parent)", QVariant::fromValue(1L),
            false);
    }

    void readerFails() {
        QFETCH(QString, reader);
        QFETCH(QString, fault);
        QFETCH(QVariant, expected);
        QFETCH(bool, reached);
        QFETCH(QStringList, log);
        QFETCH(QString, errorText);
        QFETCH(int, code);

        const Reader read = readers().value(reader);
        QVERIFY(installDesktop([&](VirtualDesktop& d) { return d.load(desktopFixture(read.shape, "{}")); }));
        QVERIFY2(read.read, qPrintable("no reader " + reader));
        QStringList healthyLines;
        const QVariant healthy = readLogging(read, *desktop, &healthyLines, false);

        // Reloading keeps the handles' identity and starts the faults' counts afresh.
        QVERIFY(desktop->load(desktopFixture(read.shape, fault)));
        for (const QString& line : log)
            QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line));
        QStringList lines;
        const QVariant actual = readLogging(read, *desktop, &lines, true);

        QCOMPARE(actual.metaType(), expected.metaType());
        QCOMPARE(actual, expected);
        if (reached)
            QVERIFY2(healthy != expected, qPrintable("the fault changes nothing: " + healthy.toString()));
        else
            QCOMPARE(healthy, expected);
        QCOMPARE(lines.size(), log.size());
        for (qsizetype i = 0; i < log.size(); ++i)
            QVERIFY2(QRegularExpression(log[i]).match(lines[i]).hasMatch(), qPrintable(lines[i]));
        if (code)
            QCOMPARE(getAXUIErrorString(AXError(code)), errorText);
    }
};

UIET_TEST_MAIN(tst_readerFaults)
#include "tst_readerFaults.moc"
