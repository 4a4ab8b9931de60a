// Screens and coordinates: the Qt functions over two offscreen screens of Qt's own (a plain one at
// the origin and a scale 2 one to its right, top-aligned), and the platform functions over a
// virtual desktop.

#include "generalUtilities.h"
#include "logCapture.h"
#include "mouse.h"
#include "osxMisc.h"
#include "osxQScreenName.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "virtual/VirtualDesktop.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTemporaryFile>
#include <QtTest>

namespace {

const QRect kLeft(0, 0, 1920, 1080);
const QRect kRight(1920, 0, 1440, 900); // scale 2

QByteArray screenFixture(const QByteArray& screens, const QByteArray& extra = "") {
    return "{\"screens\": [" + screens + "]" + extra + "}";
}

const QByteArray kTwoDisplays = "{\"frame\": {\"x\": 0, \"y\": 0, \"width\": 1920, \"height\": 1080}, "
                                "\"physicalSize\": {\"width\": 600, \"height\": 340}},"
                                "{\"frame\": {\"x\": 1920, \"y\": -200, \"width\": 1440, \"height\": 900}, "
                                "\"scale\": 2, \"name\": \"Side\"}";

} // namespace

class ScreensTest : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    bool use(const QByteArray& json) {
        return installDesktop([&json](VirtualDesktop& desktop) { return desktop.load(json); });
    }

private slots:
    void cleanup() {
        if (desktop)
            uninstallDesktopAndCheckReferences();
    }

    void qtScreens() {
        QCOMPARE(allScreenGeometry(), QList<QRect>({kLeft, kRight}));
        QCOMPARE(screensBoundingBox(), QRect(0, 0, 3360, 1080));
        QCOMPARE(systemDevicePixelRatio(), 1.0);
        QCOMPARE(unscaledScreenRect(QGuiApplication::screens()[1]), QRect(1920, 0, 2880, 1800));
        QCOMPARE(unscaledScreenRect(nullptr), QRect());
        QVERIFY(pointIsOffScreen(QPoint(3000, 1000)));
        QVERIFY(!pointIsOffScreen(QPoint(3000, 899)));
    }

    void screenIndexContainingPoint_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<int>("logical");
        QTest::addColumn<int>("unscaled");
        QTest::newRow("inside the first") << QPoint(10, 10) << 0 << 0;
        QTest::newRow("last pixel of the first") << QPoint(1919, 1079) << 0 << 0;
        QTest::newRow("first pixel of the second") << QPoint(1920, 0) << 1 << 1;
        QTest::newRow("below the second, nearer the first") << QPoint(2000, 1000) << 0 << 1;
        QTest::newRow("below the second, nearer it") << QPoint(3000, 1000) << 1 << 1;
        QTest::newRow("equally near: the earlier") << QPoint(2019, 999) << 0 << 1;
        QTest::newRow("one pixel nearer the second") << QPoint(2020, 999) << 1 << 1;
        QTest::newRow("inside the second only unscaled") << QPoint(1950, 1200) << 0 << 1;
        QTest::newRow("far above and left") << QPoint(-500, -500) << 0 << 0;
        QTest::newRow("far right") << QPoint(9000, 100) << 1 << 1;
    }
    void screenIndexContainingPoint() {
        QFETCH(QPoint, point);
        QTEST(::screenIndexContainingPoint(point), "logical");
        QTEST(::screenIndexContainingUnscaledPoint(point), "unscaled");
        QFETCH(int, logical);
        QCOMPARE(screenContainingPoint(point), QGuiApplication::screens()[logical]);
    }

    void rectsOfScreens_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<QRect>("rect");
        QTest::newRow("-1: the primary") << -1 << kLeft;
        QTest::newRow("0") << 0 << kLeft;
        QTest::newRow("1") << 1 << kRight;
        QTest::newRow("beyond the list: the primary") << 2 << kLeft;
    }
    void rectsOfScreens() {
        QFETCH(int, index);
        QTEST(rectOfScreenWithIndex(index), "rect");
    }

    // The screen is picked by the logical test even for an unscaled point.
    void unscaledRectOfScreen() {
        QCOMPARE(rectOfScreenContainingPoint(QPoint(1950, 1200)), kLeft);
        QCOMPARE(unscaledRectOfScreenContainingUnscaledPoint(QPoint(1950, 1200)), kLeft);
        QCOMPARE(unscaledRectOfScreenContainingUnscaledPoint(QPoint(2000, 10)), QRect(1920, 0, 2880, 1800));
    }

    void normalizedCoordinates_data() {
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<QPointF>("normalized");
        QTest::addColumn<QPointF>("unscaled");
        QTest::newRow("centre of the first") << QPointF(960, 540) << QPointF(0.5, 0.5) << QPointF(0.5, 0.5);
        QTest::newRow("last pixel: below 1") << QPointF(1919.4, 1079) << QPointF(1919.0 / 1920, 1079.0 / 1080)
                                             << QPointF(1919.0 / 1920, 1079.0 / 1080);
        QTest::newRow("a half rounds away from zero, onto the second")
            << QPointF(1919.5, 0) << QPointF(0, 0) << QPointF(0, 0);
        QTest::newRow("outside: clamped") << QPointF(-0.5, -40) << QPointF(0, 0) << QPointF(0, 0);
        QTest::newRow("second screen") << QPointF(2640, 450) << QPointF(0.5, 0.5) << QPointF(0.25, 0.25);
    }
    void normalizedCoordinates() {
        QFETCH(QPointF, point);
        QTEST(screenPosToNormalizedCoordinates(point), "normalized");
        QTEST(unscaledScreenPosToNormalizedCoordinates(point), "unscaled");
    }

    void zoomWithinTolerance_data() {
        QTest::addColumn<double>("factor");
        QTest::addColumn<bool>("moves");
        QTest::newRow("1") << 1.0 << false;
        QTest::newRow("1 + 1e-12") << 1.0 + 1e-12 << false;
        QTest::newRow("1 + 1e-10") << 1.0 + 1e-10 << true;
    }
    void zoomWithinTolerance() {
        QFETCH(double, factor);
        QFETCH(bool, moves);
        const CGPoint point = CGPointMake(1000, 500), origin = CGPointMake(100, 100);
        const CGPoint zoomed = unzoomedGlobalPointToZoomed(point, origin, factor);
        const CGPoint unzoomed = zoomedGlobalPointToUnzoomed(point, origin, factor);
        QCOMPARE(zoomed.x != point.x || zoomed.y != point.y, moves);
        QCOMPARE(unzoomed.x != point.x || unzoomed.y != point.y, moves);
    }

    // The bounding box (0, 0) 3360 x 1080 has the exact centre (1680, 540) and QRect::center
    // (1679, 539): there and back lands a pixel off.
    void zoomRoundTrip() {
        const CGPoint zoomed =
            unzoomedGlobalPointToZoomed(CGPointMake(1000, 500), CGPointMake(100, 100), 2.0);
        QCOMPARE(CGPointToQPointF(zoomed), QPointF(-240, 80));
        const CGPoint back = zoomedGlobalPointToUnzoomed(zoomed, CGPointMake(100, 100), 2.0);
        QCOMPARE(CGPointToQPointF(back), QPointF(999, 499));
    }

    void conversions() {
        QCOMPARE(CGPointToQPoint(CGPointMake(-1.9, 2.9)), QPoint(-1, 2));
        const CGRect rect = CGRectMake(10.7, -3.5, 100.9, 20.2);
        QCOMPARE(CGRectToQRect(rect), QRect(10, -3, 100, 20));
        QCOMPARE(CGRectToQRect(rect).right(), 109);
        QCOMPARE(QRectFromNSRect(rect), QRect(10, -3, 100, 20));
        QCOMPARE(CGRectToQRectF(QRectToCGRect(QRect(1, 2, 3, 4))), QRectF(1, 2, 3, 4));
        QCOMPARE(CGRectToQRectF(QRectFToCGRect(QRectF(1.5, 2, 3, 4))), QRectF(1.5, 2, 3, 4));
    }

    void physicalSize_data() {
        QTest::addColumn<QByteArray>("size");
        QTest::addColumn<QSizeF>("expected");
        QTest::addColumn<bool>("guessed");
        QTest::newRow("0 x 0: guessed")
            << QByteArray("{\"width\": 0, \"height\": 0}") << QSizeF(677.33, 381) << true;
        QTest::newRow("49.9 x 300: guessed")
            << QByteArray("{\"width\": 49.9, \"height\": 300}") << QSizeF(677.33, 381) << true;
        QTest::newRow("50 x 50: taken")
            << QByteArray("{\"width\": 50, \"height\": 50}") << QSizeF(50, 50) << false;
        QTest::newRow("600 x 340: taken")
            << QByteArray("{\"width\": 600, \"height\": 340}") << QSizeF(600, 340) << false;
    }
    void physicalSize() {
        QFETCH(QByteArray, size);
        QVERIFY(use(screenFixture(
            "{\"frame\": {\"x\": 0, \"y\": 0, \"width\": 1920, \"height\": 1080}, \"physicalSize\": " + size +
            "}")));
        QRect rect;
        QSizeF physical;
        const QStringList log =
            logOf([&] { getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(rect, physical, 0); });
        QCOMPARE(rect, QRect(0, 0, 1920, 1080));
        QFETCH(QSizeF, expected);
        QVERIFY2(qAbs(physical.width() - expected.width()) < 0.005 &&
                     qAbs(physical.height() - expected.height()) < 0.005,
                 qPrintable(QStringLiteral("%1 x %2").arg(physical.width()).arg(physical.height())));
        QFETCH(bool, guessed);
        QCOMPARE(log,
                 guessed
                     ? QStringList(
                           {"Warning: had to make best guess at the physical size of display with index: 0",
                            "Assuming it is 677.333mm x 381mm"})
                     : QStringList());
    }

    void physicalSizeOfMissingDisplay_data() {
        QTest::addColumn<int>("index");
        QTest::newRow("beyond the list") << 2;
        QTest::newRow("negative") << -1;
    }
    void physicalSizeOfMissingDisplay() {
        QFETCH(int, index);
        QVERIFY(use(screenFixture(kTwoDisplays)));
        QRect rect(1, 1, 1, 1);
        QSizeF physical(5, 5);
        getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(rect, physical, index);
        QVERIFY(rect.isNull());
        QCOMPARE(physical, QSizeF(-1, -1));
    }

    void activeDisplays() {
        QVERIFY(use(screenFixture(kTwoDisplays)));
        QList<CGRect> bounds{CGRectMake(1, 1, 1, 1)};
        getBoundsOfActiveDisplays(bounds);
        QCOMPARE(bounds.size(), 2);
        QCOMPARE(CGRectToQRect(bounds[1]), QRect(1920, -200, 1440, 900));

        QVERIFY(use(screenFixture("")));
        const QStringList log = logOf([&] { getBoundsOfActiveDisplays(bounds); });
        QVERIFY(bounds.isEmpty());
        QCOMPARE(log, QStringList("Error: could not get list of active displays, error: 1011"));
    }

    // The mirror line is the first screen's height: 1080.
    void invertedCoordinates() {
        QVERIFY(use(screenFixture(kTwoDisplays)));
        const QList<NSScreen*> screens = NSScreen::screens();
        QCOMPARE(screens.size(), 2);
        QCOMPARE(CGRectToQRect(screens[1]->frame()), QRect(1920, 380, 1440, 900));
        QCOMPARE(screens[1]->deviceDescription().value("NSScreenNumber").toUInt(), 2u);
        QCOMPARE(screens[1]->localizedName(), QString("Side"));
        QCOMPARE(CGRectToQRect(invertedNSRectFromGlobalQRect(QRect(10, 20, 30, 40))),
                 QRect(10, 1020, 30, 40));
        QCOMPARE(QRectFromInvertedGlobalNSRect(CGRectMake(10.5, 1020, 30.9, 40)), QRect(10, 20, 30, 40));
        QCOMPARE(pointToInvertedPoint(QPoint(5, 80)), QPoint(5, 1000));
        QCOMPARE(NSScreenContainingPoint(QPoint(2000, -150)), screens[1]);
        QCOMPARE(NSScreenContainingPoint(QPoint(0, 1079)), screens[0]);
        const QStringList log =
            logOf([&] { QCOMPARE(NSScreenContainingPoint(QPoint(0, 1080)), NSScreen::mainScreen()); });
        QCOMPARE(log, QStringList("Warning: Could not find display containing QPoint(0,1080) so using "
                                  "focused display instead"));
    }

    void noPlatformScreens() {
        QVERIFY(use(screenFixture("")));
        QStringList log = logOf([] {
            QCOMPARE(CGRectToQRect(invertedNSRectFromGlobalQRect(QRect(1, 2, 3, 4))), QRect(1, -6, 3, 4));
        });
        QCOMPARE(log, QStringList(
                          "Error: [NSScreen screens] reports no screens! Using focused screen instead..."));
        log = logOf([] { QCOMPARE(pointToInvertedPoint(QPoint(1, 2)), QPoint(1, -2)); });
        QCOMPARE(log, QStringList(
                          "Error: [NSScreen screens] reports no screens! Using focused screen instead..."));
        QCOMPARE(NSScreen::mainScreen(), nullptr);
    }

    void menuBarAndZoom() {
        QVERIFY(use(screenFixture(
            kTwoDisplays,
            ", \"menuBarHeight\": 24.9, \"zoom\": {\"factor\": 2.5, \"origin\": {\"x\": 7, \"y\": 8}}")));
        QCOMPARE(systemMenuBarHeight(), 24);
        CGPoint origin{};
        QCOMPARE(getScreenZoomFactorAndOrigin(origin), 2.5);
        QCOMPARE(CGPointToQPointF(origin), QPointF(7, 8));
        QCOMPARE(getScreenZoomFactor(), 2.5);
        QVERIFY(use(screenFixture(kTwoDisplays)));
        QCOMPARE(systemMenuBarHeight(), 0);
        QCOMPARE(getScreenZoomFactor(), 1.0);
    }

    // The pointer as the desktop has it, and on the glass of a zoomed desktop: the zoom's origin
    // (100, 100) and factor 2 around the integer centre (1679, 539) of the screens' bounding box.
    void mouseLocation() {
        QVERIFY(use(screenFixture(kTwoDisplays,
                                  ", \"mouse\": {\"x\": 200, \"y\": 150}, "
                                  "\"zoom\": {\"factor\": 2, \"origin\": {\"x\": 100, \"y\": 100}}")));
        QCOMPARE(currentMouseLocation(), QPointF(200, 150));
        QCOMPARE(CGPointToQPointF(currentUnzoomedMouseLocation()), QPointF(1879, 639));
        QVERIFY(use(screenFixture(kTwoDisplays, ", \"mouse\": {\"x\": 200, \"y\": 150}")));
        QCOMPARE(CGPointToQPointF(currentUnzoomedMouseLocation()), QPointF(200, 150));
    }

    // Below macOS 14 the name is Qt's; the warning is given once in the life of the process.
    void screenName() {
        QCOMPARE(fixedQScreenName(QGuiApplication::screens()[1]), QString("right"));
        QCOMPARE(fixedQScreenName(nullptr), QString());
        QStringList log = logOf([] { maybeWarn("first reason"); });
        QCOMPARE(log, QStringList({"Warning: display name may be wrong or missing", "Reason: first reason"}));
        log = logOf([] { maybeWarn("second reason"); });
        QCOMPARE(log, QStringList());
    }
};

// Two screens of Qt's offscreen platform, from a configuration file, before the application starts.
int main(int argc, char** argv) {
    PrivateTempDir privateTempDir;
    QTemporaryFile config;
    if (!config.open())
        return 1;
    config.write(R"({"screens": [
        {"name": "left", "x": 0, "y": 0, "width": 1920, "height": 1080, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1},
        {"name": "right", "x": 1920, "y": 0, "width": 1440, "height": 900, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 2}
    ]})");
    config.flush();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + config.fileName().toLocal8Bit());
    QGuiApplication application(argc, argv);
    ScreensTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_screens.moc"
