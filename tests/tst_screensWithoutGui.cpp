// The Qt screen functions in a process without a QGuiApplication: there are no screens, and
// nothing may index into the empty list.

#include "generalUtilities.h"
#include "testSupport.h"

#include <QtTest>

class ScreensWithoutGuiTest : public QObject {
    Q_OBJECT

private slots:
    void noScreens_data() {
        QTest::addColumn<QPoint>("point");
        QTest::newRow("origin") << QPoint(0, 0);
        QTest::newRow("far away") << QPoint(-5000, 90000);
    }
    void noScreens() {
        QFETCH(QPoint, point);
        QCOMPARE(systemDevicePixelRatio(), 1.0);
        QVERIFY(screensBoundingBox().isNull());
        QVERIFY(allScreenGeometry().isEmpty());
        QVERIFY(pointIsOffScreen(point));
        QCOMPARE(screenIndexContainingPoint(point), 0);
        QCOMPARE(screenIndexContainingUnscaledPoint(point), 0);
        QCOMPARE(screenContainingPoint(point), nullptr);
        QCOMPARE(screenContainingUnscaledPoint(point), nullptr);
        QVERIFY(rectOfScreenContainingPoint(point).isNull());
        QVERIFY(unscaledRectOfScreenContainingUnscaledPoint(point).isNull());
        QCOMPARE(rectOfScreenWithIndex(-1), QRect(0, 0, 0, 0));
        QCOMPARE(rectOfScreenWithIndex(0), QRect(0, 0, 0, 0));
        QCOMPARE(screenPosToNormalizedCoordinates(point), QPointF(0, 0));
        QCOMPARE(unscaledScreenPosToNormalizedCoordinates(point), QPointF(0, 0));
    }
};

UIET_TEST_MAIN(ScreensWithoutGuiTest)

#include "tst_screensWithoutGui.moc"
