#include "Vector2D.h"
#include "generalUtilities.h"
#include "testSupport.h"

#include <QBitArray>
#include <QGuiApplication>
#include <QLine>
#include <QSet>
#include <QtMath>

struct Opaque {
    int value = 0;
};
Q_DECLARE_METATYPE(Opaque)
Q_DECLARE_METATYPE(Vector2D)

// Failure messages print vectors through their own debug output.
char* toString(const Vector2D& vector) {
    QString text;
    QDebug(&text).nospace() << vector;
    return qstrdup(text.toUtf8().constData());
}

namespace {

// Most tables hold a function's result beside the value worked out by hand.
void addActualAndExpected() {
    QTest::addColumn<QVariant>("actual");
    QTest::addColumn<QVariant>("expected");
}

void row(const char* name, const QVariant& actual, const QVariant& expected) {
    QTest::newRow(name) << actual << expected;
}

void compareActualWithExpected() {
    QFETCH(QVariant, actual);
    QFETCH(QVariant, expected);
    QCOMPARE(actual, expected);
}

} // namespace

class tst_generalUtilities : public QObject {
    Q_OBJECT

private slots:
    void scalarFormulas_data() {
        addActualAndExpected();
        row("lerp", lerp(0.25, 10, 20), 12.5);
        row("lerp not clamped", lerp(1.5, 0, 2), 3.0);
        row("lerpi half up", lerpi(0.5, 0, 3), 2);
        // lround(0.5 * -3) = lround(-1.5) = -2, away from zero; -2 + 3 = 1.
        row("lerpi half down", lerpi(0.5, 3, 0), 1);
        row("clamp lo above hi: hi wins", clamp(5, 10, 0), 0.0);
        row("clampi below", clampi(-3, 0, 7), 0);
        row("percent empty range", percent(5, 3, 3), 0.0);
        // (6 - 4) / (2 - 4): a reversed range, not clamped.
        row("percent reversed", percent(6, 4, 2), -1.0);
        row("normalize clamped", normalize(15, 0, 10), 1.0);
        row("normalize", normalize(-5, -10, 10), 0.25);
        row("changeRange beyond", changeRange(15, 0, 10, 100, 200), 250.0);
        // 1.5 * (100 - 200) + 200 = 50, held at the low end of 100..200; -0.5 * -100 + 200 = 250.
        row("clampedChangeRange reversed, low", clampedChangeRange(15, 0, 10, 200, 100), 100.0);
        row("clampedChangeRange reversed, high", clampedChangeRange(-5, 0, 10, 200, 100), 200.0);
        row("signf negative zero", signf(-0.0f), 0);
        row("signf", signf(-3.5f), -1);
        row("signd tiny", signd(2e-300), 1.0);
        row("signedSqrt", signedSqrt(-9), -3.0);
        row("almostEquals inside", almostEquals(1, 1.25, 0.5), true);
        row("almostEquals strict", almostEquals(1, 1.5, 0.5), false);
    }
    void scalarFormulas() { compareActualWithExpected(); }

    void easing_data() {
        addActualAndExpected();
        row("in", easeIn(0.5, 2), 0.25);
        row("in below 0", easeIn(-1, 2), 0.0);
        row("in above 1", easeIn(2, 3), 1.0);
        row("out", easeOut(0.5, 2), 0.75);
        row("out cubic", easeOut(0.25, 3), 0.578125); // 1 - 0.75^3 = 1 - 0.421875
        row("out above 1", easeOut(1.5, 2), 1.0);
        row("middle at 0", easeMiddle(0, 3), 0.0);
        row("middle at 0.5", easeMiddle(0.5, 7), 0.5);
        row("middle at 1", easeMiddle(1, 2), 1.0);
        row("middle upper half", easeMiddle(0.75, 2), 0.625);  // 0.5 + 2^1 * 0.25^2
        row("middle lower half", easeMiddle(0.25, 3), 0.4375); // 0.5 - 2^2 * 0.25^3
        row("middle below 0", easeMiddle(-3, 2), 0.0);
    }
    void easing() { compareActualWithExpected(); }

    void rectsAndPoints_data() {
        addActualAndExpected();
        row("centered, height 0", rectCenteredAt(QPoint(10, 10), 4, 0), QRect(8, 8, 4, 4));
        // 5 / 2 = 2 and 3 / 2 = 1 in integer division.
        row("centered, odd", rectCenteredAt(QPoint(10, 10), QSize(5, 3)), QRect(8, 9, 5, 3));
        row("centered F, height 0", rectCenteredAt(QPointF(10, 10), 5.0), QRectF(7.5, 7.5, 5, 5));
        row("centered F", rectCenteredAt(QPointF(1, 2), QSizeF(3, 1)), QRectF(-0.5, 1.5, 3, 1));
        // Centre (5, 2), new size (20, 2); then a new height of 0, which takes the width.
        row("scaled", scaleRectFromCenter(QRectF(0, 0, 10, 4), 2, 0.5), QRectF(-5, 1, 20, 2));
        row("scaled to height 0", scaleRectFromCenter(QRectF(0, 0, 10, 4), 2, 0), QRectF(-5, -8, 20, 20));
        row("scaled evenly", scaleRectFromCenter(QRectF(0, 0, 10, 4), 0.5), QRectF(2.5, 1, 5, 2));
        row("sides", rectWithSides(1, 2, 4, 8), QRectF(1, 2, 3, 6));
        row("distance", pointDistance(QPoint(1, 1), QPoint(4, 5)), 5.0);
        row("rect distance inside", rectDistanceFromPoint(QRect(0, 0, 10, 10), QPoint(9, 0)), 0.0);
        // The nearest pixel is bottomRight(), (9, 9): (13 - 9, 12 - 9) = (4, 3), so 5.
        row("rect distance corner", rectDistanceFromPoint(QRect(0, 0, 10, 10), QPoint(13, 12)), 5.0);
        row("circle 90 degrees", circlePoint(2, 90), QPointF(0, -2));
        // right() = 14, bottom() = 22: (10 + 4, 20 + 2).
        row("to point, corner", normalizedCoordinatesToPointInRect(QRect(10, 20, 5, 3), {1, 1}),
            QPoint(14, 22));
        // Span 3: lround(1.5) = 2; y clamped to 1 gives 3.
        row("to point, rounded", normalizedCoordinatesToPointInRect(QRect(0, 0, 4, 4), {0.5, 2}),
            QPoint(2, 3));
        row("to point F", normalizedCoordinatesToPointInRect(QRectF(10, 20, 5, 3), {1, 0.5}),
            QPointF(15, 21.5));
        // x: (12 - 10) / 4; y: (25 - 20) / 2 = 2.5, clamped.
        row("to normalized", pointInRectToNormalizedCoordinates(QRect(10, 20, 5, 3), {12, 25}),
            QPointF(0.5, 1));
        row("to normalized, empty", pointInRectToNormalizedCoordinates(QRect(10, 20, 0, 3), {12, 21}),
            QPointF(0, 0.5));
        row("to normalized, one pixel", pointInRectToNormalizedCoordinates(QRect(10, 20, 1, 1), {10, 21}),
            QPointF(0, 0));
        row("to normalized F, negative height",
            pointInRectToNormalizedCoordinates(QRectF(10, 20, 4, -2), {11, 0}), QPointF(0.25, 0));
        // Half axes 5 and 2 about (5, 2): dx = 5 gives exactly 1; 3^2 / 25 + 1.5^2 / 4 = 0.9225;
        // 4^2 / 25 + 1.5^2 / 4 = 1.2025.
        row("ellipse edge", ellipseContainsPoint(QPointF(10, 2), QRectF(0, 0, 10, 4)), true);
        row("ellipse inside", ellipseContainsPoint(QPointF(8, 3.5), QRectF(0, 0, 10, 4)), true);
        row("ellipse outside", ellipseContainsPoint(QPointF(9, 3.5), QRectF(0, 0, 10, 4)), false);
        row("ellipse flat", ellipseContainsPoint(QPointF(0, 2), QRectF(0, 0, 0, 4)), false);
        // Four pixels wide: half axis 2 about x = 2, so x = 4, one past right(), lies on the edge.
        row("ellipse int edge", ellipseContainsPoint(QPoint(4, 2), QRect(0, 0, 4, 4)), true);
        row("ellipse int corner", ellipseContainsPoint(QPoint(4, 0), QRect(0, 0, 4, 4)), false);
    }
    void rectsAndPoints() { compareActualWithExpected(); }

    void colors_data() {
        QTest::addColumn<QColor>("actual");
        QTest::addColumn<QColor>("expected");
        // 255 * 0.5 = 127.5, truncated.
        QTest::newRow("halfway") << blended(QColor(0, 0, 0, 255), QColor(255, 255, 255, 0), 0.5)
                                 << QColor(127, 127, 127, 127);
        // 10 * -1 + 20 * 2 = 30, and so on: extrapolation that stays in range.
        QTest::newRow("beyond") << blended(QColor(10, 20, 30), QColor(20, 40, 60), 2) << QColor(30, 60, 90);
        // 1 * -0.5 = -0.5 truncates toward zero, to 0, which is still valid.
        QTest::newRow("toward zero") << blended(QColor(1, 1, 1), QColor(0, 0, 0), 1.5) << QColor(0, 0, 0);
        // 255 * 1.5 = 382.5
        QTest::newRow("out of range") << blended(QColor(0, 0, 0), QColor(255, 255, 255), 1.5) << QColor();
        QTest::newRow("new alpha") << withNewAlpha(QColor(1, 2, 3), 4) << QColor(1, 2, 3, 4);
        QTest::newRow("alpha out of range") << withNewAlpha(QColor(1, 2, 3), 256) << QColor();
    }
    void colors() {
        QFETCH(QColor, actual);
        QFETCH(QColor, expected);
        QCOMPARE(actual.isValid(), expected.isValid());
        if (expected.isValid())
            QCOMPARE(actual.rgba(), expected.rgba());
    }

    void fontsAndPalettes() {
        QFont light;
        light.setWeight(QFont::Light);
        QCOMPARE(unboldedFont(boldedFont(light)).weight(), QFont::Normal);
        QCOMPARE(boldedFont(light).weight(), QFont::Bold);
        QCOMPARE(unitalicizedFont(italicizedFont(light)).style(), QFont::StyleNormal);
        QVERIFY(!nonunderlinedFont(underlinedFont(light)).underline());
        QCOMPARE(fontWithNewPointSize(light, 13.5).pointSizeF(), 13.5);

        const QPalette palette = paletteWithAdjustedColor(QPalette(), QPalette::Highlight, QColor(1, 2, 3));
        for (auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
            QCOMPARE(palette.brush(group, QPalette::Highlight).color(), QColor(1, 2, 3));
            QCOMPARE(palette.brush(group, QPalette::Highlight).style(), Qt::SolidPattern);
        }
    }

    void vectorComparisons_data() {
        QTest::addColumn<Vector2D>("a");
        QTest::addColumn<Vector2D>("b");
        QTest::addColumn<bool>("equal");
        QTest::addColumn<bool>("less");
        QTest::addColumn<bool>("greater");
        QTest::newRow("both null") << Vector2D() << Vector2D() << true << false << true;
        QTest::newRow("null and zero") << Vector2D() << Vector2D(0, 0) << false << false << true;
        QTest::newRow("zero and null") << Vector2D(0, 0) << Vector2D() << false << false << true;
        QTest::newRow("same magnitude") << Vector2D(3, 4) << Vector2D(-4, 3) << false << false << true;
        QTest::newRow("same vector") << Vector2D(3, 4) << Vector2D(3, 4) << true << false << true;
        QTest::newRow("shorter") << Vector2D(1, 0) << Vector2D(0, 2) << false << true << false;
        QTest::newRow("longer") << Vector2D(0, -2) << Vector2D(1, 0) << false << false << true;
    }
    void vectorComparisons() {
        QFETCH(Vector2D, a);
        QFETCH(Vector2D, b);
        QFETCH(bool, equal);
        QFETCH(bool, less);
        QFETCH(bool, greater);
        QCOMPARE(a == b, equal);
        QCOMPARE(a != b, !equal);
        QCOMPARE(a < b, less);
        QCOMPARE(a > b, greater);
    }

    void vectorAngles_data() {
        QTest::addColumn<Vector2D>("a");
        QTest::addColumn<Vector2D>("b");
        QTest::addColumn<double>("angle");
        QTest::addColumn<double>("signedAngle");
        QTest::newRow("quarter turn") << Vector2D(1, 0) << Vector2D(0, 1) << 90.0 << 90.0;
        QTest::newRow("quarter turn back") << Vector2D(0, 1) << Vector2D(1, 0) << 90.0 << -90.0;
        QTest::newRow("opposite") << Vector2D(1, 0) << Vector2D(-1, 0) << 180.0 << 180.0;
        // The zero vector normalizes to (0, 0): acos(0); atan2(0, 0) = 0.
        QTest::newRow("against zero") << Vector2D(1, 1) << Vector2D(0, 0) << 90.0 << 0.0;
        // The unit vectors' dot product comes out as 1 + 2^-52 here, where acos has no value.
        QTest::newRow("parallel") << Vector2D(3, 3) << Vector2D(6, 6) << 0.0 << 0.0;
    }
    void vectorAngles() {
        QFETCH(Vector2D, a);
        QFETCH(Vector2D, b);
        QFETCH(double, angle);
        QFETCH(double, signedAngle);
        QVERIFY(almostEquals(a.angle(b), angle, 1e-9));
        QVERIFY(almostEquals(a.signedAngle(b), signedAngle, 1e-9));
    }

    void vectorFlagsAndConversions() {
        QVERIFY((Vector2D() + Vector2D(1, 2)).isNull());
        QCOMPARE(Vector2D(1, 2) - Vector2D(), Vector2D(1, 2));
        QVERIFY((2 * Vector2D()).isNull());
        QVERIFY(Vector2D().adjusted(1, 1).isNull());
        QCOMPARE(Vector2D(1, 2) * Vector2D(3, 4), 11.0);
        Vector2D assigned;
        assigned = QSize(2, 3);
        QCOMPARE(assigned, Vector2D(2, 3));

        QCOMPARE(Vector2D().normal(), Vector2D(0, 0));
        QVERIFY(Vector2D(3, 4).normal().almostEquals(Vector2D(0.6, 0.8), 1e-12));
        QCOMPARE(Vector2D().rotate(1), Vector2D(0, 0));
        QVERIFY(Vector2D(1, 0).rotate(M_PI / 2).almostEquals(Vector2D(0, 1), 1e-12));
        QCOMPARE(Vector2D(0, -1).signedAngle(), -90.0);
        QCOMPARE(Vector2D(1.5, -1.5).toInteger(), Vector2D(2, -2));
        QCOMPARE(Vector2D(1.5, -1.5).toQPoint(), QPoint(1, -1));
        QVERIFY(Vector2D().almostEquals(Vector2D(), 0));
        QVERIFY(!Vector2D().almostEquals(Vector2D(0, 0), 1));
        QVERIFY(!Vector2D(0, 0).almostEquals(Vector2D(0.5, 0), 0.5));

        QString text;
        QDebug(&text) << Vector2D() << Vector2D(1.5, -2);
        QCOMPARE(text, QString("Vector2D(null) Vector2D(1.5,-2) "));
    }

    void objectTrees() {
        QObject root;
        auto* middle = new QObject(&root);
        auto* leaf = new QObject(middle);
        QVERIFY(isDescendantOf(leaf, &root));
        QVERIFY(isDescendantOf(leaf, leaf));
        QVERIFY(!isDescendantOf(&root, leaf));
        QVERIFY(!isDescendantOf(nullptr, &root));
        QVERIFY(!isDescendantOf(leaf, nullptr));
        QCOMPARE(ancestors(leaf, true), (QList<QObject*>{leaf, middle, &root}));
        QCOMPARE(ancestors(leaf, false), (QList<QObject*>{middle, &root}));
        QVERIFY(ancestors(nullptr, true).isEmpty());

        const QMetaObject* app = &QGuiApplication::staticMetaObject;
        QVERIFY(classIsDescendantOf(app, &QObject::staticMetaObject));
        QVERIFY(classIsDescendantOf(app, app));
        QVERIFY(!classIsDescendantOf(&QObject::staticMetaObject, app));
        QVERIFY(!classIsDescendantOf(nullptr, app));
    }

    void typesAndStrings_data() {
        addActualAndExpected();
        row("long", isIntegerVariant(QVariant::fromValue(1L)), true);
        row("ushort", isIntegerVariant(QVariant::fromValue(ushort(1))), true);
        row("char", isIntegerVariant(QVariant::fromValue(char(1))), false);
        row("bool", isIntegerVariant(true), false);
        row("invalid", isIntegerVariant(QVariant()), false);
        row("int max", stringIsInteger("2147483647"), true);
        row("past int max", stringIsInteger("2147483648"), false);
        row("int min", stringIsInteger("-2147483648"), true);
        row("past int min", stringIsInteger("-2147483649"), false);
        row("hexadecimal", stringIsInteger("0x10"), false);
        row("empty", stringIsInteger(""), false);
        row("capitalized", firstLetterCapitalized("élan vital"), "Élan vital");
        row("capitalized empty", firstLetterCapitalized(""), "");
        row("no parts", joinPaths("/base", {}), "/base");
        row("absolute part", joinPaths("/base", {"a", "/abs", "d/e"}), "/abs/d/e");
    }
    void typesAndStrings() { compareActualWithExpected(); }

    void variantHashLogs_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<size_t>("hash");
        QTest::addColumn<QString>("message");
        const QString invalid = "Trying to get hash of invalid or null QVariant";
        const QString known = "Trying to get hash of known but unsupported QVariant type: ";
        const QString unknown = "Trying to get hash of unsupported QVariant type: ";
        const size_t allBits = ~size_t(0);
        QTest::newRow("invalid") << QVariant() << size_t(0) << invalid;
        QTest::newRow("null pointer") << QVariant::fromValue<QObject*>(nullptr) << size_t(0) << invalid;
        QTest::newRow("map") << QVariant(QVariantMap{{"k", 1}}) << size_t(0) << known + "QVariantMap";
        QTest::newRow("list") << QVariant(QVariantList{1}) << size_t(0) << known + "QVariantList";
        QTest::newRow("bit array") << QVariant(QBitArray(3)) << size_t(0) << known + "QBitArray";
        QTest::newRow("line") << QVariant(QLine(0, 0, 1, 1)) << size_t(0) << known + "QLine";
        QTest::newRow("line F") << QVariant(QLineF(0, 0, 1, 1)) << size_t(0) << known + "QLineF";
        QTest::newRow("rect F") << QVariant(QRectF(0, 0, 1, 1)) << size_t(0) << known + "QRectF";
        QTest::newRow("hash") << QVariant(QVariantHash{{"k", 1}}) << allBits << unknown + "QVariantHash";
        QTest::newRow("float") << QVariant(1.5f) << allBits << unknown + "float";
        QTest::newRow("custom type") << QVariant::fromValue(Opaque{}) << allBits << unknown + "Opaque";
    }
    void variantHashLogs() {
        QFETCH(QVariant, value);
        QFETCH(size_t, hash);
        QFETCH(QString, message);
        QTest::ignoreMessage(QtDebugMsg, message.toUtf8().constData());
        QCOMPARE(qHash(value, 7), hash);
    }

    void variantHashCollisions_data() {
        QTest::addColumn<QVariant>("a");
        QTest::addColumn<QVariant>("b");
        QTest::addColumn<bool>("same");
        // Truncated, where Qt's own conversion would round 2.5 to 3 and -2.5 to -3.
        QTest::newRow("2.5 and 2.0") << QVariant(2.5) << QVariant(2.0) << true;
        QTest::newRow("-2.5 and -2.0") << QVariant(-2.5) << QVariant(-2.0) << true;
        QTest::newRow("2.5 and 3.0") << QVariant(2.5) << QVariant(3.0) << false;
        QTest::newRow("true and 1u") << QVariant(true) << QVariant(1u) << true;
        // XOR of the two halves does not see their order.
        QTest::newRow("size swapped") << QVariant(QSize(3, 5)) << QVariant(QSize(5, 3)) << true;
        QTest::newRow("point F and size F") << QVariant(QPointF(1, 2)) << QVariant(QSizeF(2, 1)) << true;
        QTest::newRow("one-item string list") << QVariant(QStringList{"x"}) << QVariant(QString("x")) << true;
        QTest::newRow("chars") << QVariant(QChar('A')) << QVariant(QChar('B')) << false;
        QTest::newRow("points") << QVariant(QPoint(1, 2)) << QVariant(QPoint(2, 1)) << false;
    }
    void variantHashCollisions() {
        QFETCH(QVariant, a);
        QFETCH(QVariant, b);
        QFETCH(bool, same);
        QCOMPARE(qHash(a, 11) == qHash(b, 11), same);
    }

    void variantHashOfRectAndSeed() {
        // Left 1, right 1 + 3 - 1 = 3, top 2, bottom 2 + 5 - 1 = 6, combined in that order.
        size_t h = 42;
        for (int v : {1, 3, 2, 6})
            h ^= qHash(v, 0) + 0x9e3779b9 + (h << 6) + (h >> 2);
        QCOMPARE(qHash(QVariant(QRect(1, 2, 3, 5)), 42), h);
        QVERIFY(qHash(QVariant(QString("a")), 1) != qHash(QVariant(QString("a")), 2));
        QCOMPARE((QSet<QVariant>{1, 1, QString("a"), QPoint(1, 1)}).size(), 3);
    }
};

UIET_GUI_TEST_MAIN(tst_generalUtilities)
#include "tst_generalUtilities.moc"
