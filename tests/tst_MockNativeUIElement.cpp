#include "logCapture.h"
#include "testSupport.h"

#include "MockNativeUIElement.h"

#include <QTest>

#include <functional>

namespace {

using Identifiers = QMap<QString, QString>;

const Identifiers buttonType{{"AXRole", "AXButton"}, {"AXSubrole", "AXCloseButton"}};

MockNativeUIElement closeButton() {
    return MockNativeUIElement("com.example.editor", buttonType, QPoint(5, 6), QRect(1, 2, 30, 40));
}

using MockOperation = std::function<void(MockNativeUIElement&)>;

} // namespace

Q_DECLARE_METATYPE(MockOperation)

class tst_MockNativeUIElement : public QObject {
    Q_OBJECT

private slots:
    // Must stay first: nothing may have touched the type before.
    void registeredBeforeMain() {
        const QMetaType type = QMetaType::fromName("MockNativeUIElement");
        QVERIFY(type.isValid());
        QVERIFY(type.isEqualityComparable());
        void* instance = type.create();
        QVERIFY(instance);
        QVERIFY(static_cast<MockNativeUIElement*>(instance)->isNull());
        type.destroy(instance);
    }

    void nullMock() {
        const MockNativeUIElement mock;
        QVERIFY(mock.isNull());
        QVERIFY(mock.applicationIdentifier().isEmpty());
        QVERIFY(mock.mockIdentifiers().isEmpty());
        QCOMPARE(mock.screenRect(), QRect());
        QCOMPARE(mock.screenPosition(), QPoint(0, 0));
        QVERIFY(mock == MockNativeUIElement());
        QCOMPARE(QVariant::fromValue(mock), QVariant::fromValue(MockNativeUIElement()));
    }

    void heldValues() {
        const MockNativeUIElement mock = closeButton();
        QVERIFY(!mock.isNull());
        QCOMPARE(mock.applicationIdentifier(), "com.example.editor");
        QCOMPARE(mock.mockIdentifiers(), buttonType);
        QCOMPARE(mock.screenPosition(), QPoint(5, 6));
        QCOMPARE(mock.screenRect(), QRect(1, 2, 30, 40));
        // A mock knows nothing of a hierarchy or of text fields, whatever it holds.
        QVERIFY(mock.parentElement().isNull());
        QVERIFY(mock.ancestorElementOfType("window").isNull());
        QCOMPARE(mock.childrenCount(), 0L);
        bool secure = true;
        QVERIFY(!mock.isTextField(&secure));
        QVERIFY(!secure);
        QVERIFY(!mock.isTextField());
    }

    void equality_data() {
        QTest::addColumn<MockNativeUIElement>("a");
        QTest::addColumn<MockNativeUIElement>("b");
        QTest::addColumn<bool>("equal");
        QTest::newRow("same values") << closeButton() << closeButton() << true;
        QTest::newRow("application") << closeButton()
                                     << MockNativeUIElement("com.example.other", buttonType, QPoint(5, 6),
                                                            QRect(1, 2, 30, 40))
                                     << false;
        QTest::newRow("identifiers") << closeButton()
                                     << MockNativeUIElement("com.example.editor",
                                                            Identifiers{{"AXRole", "AXButton"}}, QPoint(5, 6),
                                                            QRect(1, 2, 30, 40))
                                     << false;
        QTest::newRow("position") << closeButton()
                                  << MockNativeUIElement("com.example.editor", buttonType, QPoint(5, 7),
                                                         QRect(1, 2, 30, 40))
                                  << false;
        QTest::newRow("rectangle") << closeButton()
                                   << MockNativeUIElement("com.example.editor", buttonType, QPoint(5, 6),
                                                          QRect(1, 2, 30, 41))
                                   << false;
        // Only the null flag tells these two apart.
        QTest::newRow("null flag") << MockNativeUIElement()
                                   << MockNativeUIElement(QString(), {}, QPoint(), QRect()) << false;
        QTest::newRow("two null mocks") << MockNativeUIElement() << MockNativeUIElement() << true;
    }

    void equality() {
        QFETCH(MockNativeUIElement, a);
        QFETCH(MockNativeUIElement, b);
        QFETCH(bool, equal);
        QCOMPARE(a == b, equal);
        QCOMPARE(b == a, equal);
        QCOMPARE(QVariant::fromValue(a) == QVariant::fromValue(b), equal);
    }

    void copies() {
        MockNativeUIElement original = closeButton();
        const MockNativeUIElement copy(original);
        QVERIFY(copy == original);
        MockNativeUIElement assigned;
        assigned = original;
        QVERIFY(assigned == original);
        assigned.setScreenPosition(QPoint(9, 9));
        QCOMPARE(assigned.screenPosition(), QPoint(9, 9));
        QVERIFY(!(assigned == original));
        assigned = MockNativeUIElement();
        QVERIFY(assigned.isNull());
    }

    // What would reach the platform is refused with a log line and changes nothing.
    void refusals_data() {
        QTest::addColumn<MockOperation>("operation");
        QTest::addColumn<QString>("line");
        QTest::newRow("set to an element on screen") << MockOperation([](MockNativeUIElement& mock) {
            bool timedOut = false;
            mock.setToElementAtScreenPosition(QPoint(1, 1), "window", true, {"com.example.editor"}, true,
                                              &timedOut);
            QVERIFY(!timedOut);
        }) << "Error: tried to set MockNativeUIElement to element on screen";
        QTest::newRow("get the platform reference") << MockOperation([](MockNativeUIElement& mock) {
            QCOMPARE(mock.copyOSSpecificElementReference(), nullptr);
        }) << "Error: trying to get OS specific UI element from MockNativeUIElement";
        QTest::newRow("set the platform reference") << MockOperation([](MockNativeUIElement& mock) {
            int reference = 0;
            mock.setOSSpecificElementReference(&reference);
        }) << "Error: trying to set MockNativeUIElement to OS specific UI element";
        QTest::newRow("constructed from the screen") << MockOperation([](MockNativeUIElement&) {
            const MockNativeUIElement made(QPoint(5, 6), "window", false, {});
            QVERIFY(made == MockNativeUIElement());
        }) << "Error: tried to initialize MockNativeUIElement with an on screen UI element";
    }

    void refusals() {
        QFETCH(MockOperation, operation);
        QFETCH(QString, line);
        for (const MockNativeUIElement& before : {closeButton(), MockNativeUIElement()}) {
            MockNativeUIElement mock = before;
            QCOMPARE(logOf([&] { operation(mock); }), QStringList{line});
            QVERIFY(mock == before);
        }
    }

    void printDebugInfo() {
        const QStringList log = logOf([] { closeButton().printDebugInfo(); });
        QCOMPARE(
            log,
            (QStringList{"MockNativeUIElement:", "  _applicationIdentifier: \"com.example.editor\"",
                         "  _identifiers: QMap((\"AXRole\", \"AXButton\")(\"AXSubrole\", \"AXCloseButton\"))",
                         "  _screenPosition: QPoint(5,6)", "  _screenRect: QRect(1,2 30x40)"}));
    }
};

UIET_TEST_MAIN(tst_MockNativeUIElement)
#include "tst_MockNativeUIElement.moc"
