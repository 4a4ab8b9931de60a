// The screens of the live desktop on a private X server whose RandR monitors the test sets, as
// X11Desktop, the display calls, NSScreen and a Qt application on that server see them; the menu
// bar height from the work area that a window manager publishes; and the zoom of a stand-in for
// GNOME's magnifier on the session's private bus. Every expected value follows from what the test
// set.

#include "appkit/NSScreen.h"
#include "atspi/AtspiProvider.h"
#include "atspi/X11Desktop.h"
#include "liveDesktopSession.h"
#include "osxMisc.h"
#include "testSupport.h"

#include <QProcess>
#include <QRect>
#include <QRegularExpression>

#include <atomic>
#include <cmath>
#include <thread>

// Xlib's macro None hides the enumerator of that name: this is named before Xlib comes in.
constexpr auto kAccessibilityBus = LiveDesktopSession::Bus::Accessibility;

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <dbus/dbus.h>

namespace {

// "NAME X Y WIDTH HEIGHT MM_WIDTH MM_HEIGHT", the name with a leading "*" for the primary one.
struct Monitor {
    QString name;
    QRect frame;
    QSizeF millimetres;
    bool primary = false;

    static Monitor parse(const QString& text) {
        const QStringList f = text.split(' ');
        Monitor monitor{f[0], QRect(f[1].toInt(), f[2].toInt(), f[3].toInt(), f[4].toInt()),
                        QSizeF(f[5].toInt(), f[6].toInt())};
        monitor.primary = monitor.name.startsWith('*');
        monitor.name.remove('*');
        return monitor;
    }
};

// The monitors as the desktop lists them: the primary one first, then in the order given.
QList<Monitor> expectedOrder(const QStringList& texts) {
    QList<Monitor> result;
    for (const QString& text : texts) {
        const Monitor monitor = Monitor::parse(text);
        if (monitor.primary)
            result.prepend(monitor);
        else
            result.append(monitor);
    }
    return result;
}

// A screen's frame in points: the origin stays, the size is divided by the scale factor.
QRect scaled(const QRect& frame, double factor) {
    return QRect(frame.topLeft(),
                 QSize(int(std::round(frame.width() / factor)), int(std::round(frame.height() / factor))));
}

QRect rect(const CGRect& frame) {
    return QRect(int(frame.origin.x), int(frame.origin.y), int(frame.size.width), int(frame.size.height));
}

constexpr char kMagnifier[] = "org.gnome.Magnifier";
constexpr char kMagnifierPath[] = "/org/gnome/Magnifier";
constexpr char kZoomRegion[] = "org.gnome.Magnifier.ZoomRegion";
constexpr char kRegionPath[] = "/org/gnome/Magnifier/ZoomRegion/zoomer0";

// Owns org.gnome.Magnifier on the session bus and answers as GNOME's magnifier does: isActive,
// getZoomRegions, and on a zoom region getMagFactor (horizontal, vertical) and getRoi (left, top,
// right, bottom). A silent one owns the name and never reads a question.
class MagnifierStandIn {
public:
    struct Answers {
        bool active = true;
        bool hasRegion = true;
        double factor = 1;
        QList<int> roi;
        bool silent = false;
    };

    explicit MagnifierStandIn(const Answers& answers) : answers(answers) {
        DBusError error;
        dbus_error_init(&error);
        connection = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
        dbus_error_free(&error);
        if (!connection)
            return;
        dbus_connection_set_exit_on_disconnect(connection, false);
        owner = dbus_bus_request_name(connection, kMagnifier, DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr) ==
                DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER;
        if (owner && !answers.silent)
            server = std::thread([this] {
                while (!stopping)
                    serve(20);
            });
    }
    ~MagnifierStandIn() {
        stopping = true;
        if (server.joinable())
            server.join();
        // Given back before the connection closes, so that the next owner finds it free.
        if (owner)
            dbus_bus_release_name(connection, kMagnifier, nullptr);
        if (connection) {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    }

    bool ownsName() const { return owner; }

    // A silent one: the questions that have come by now, read and left unanswered.
    int questions() {
        int count = 0;
        const auto read = [&] {
            for (DBusMessage* message; (message = dbus_connection_pop_message(connection));) {
                count += dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL &&
                         qstrcmp(dbus_message_get_destination(message), kMagnifier) == 0;
                dbus_message_unref(message);
            }
        };
        LiveDesktopSession::waitUntil([&] {
            dbus_connection_read_write(connection, 0);
            read();
            return count > 0;
        });
        return count;
    }

private:
    void serve(int timeoutMs) {
        dbus_connection_read_write(connection, timeoutMs);
        for (DBusMessage* message; (message = dbus_connection_pop_message(connection));) {
            if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL)
                answer(message);
            dbus_message_unref(message);
        }
    }

    void answer(DBusMessage* question) {
        DBusMessage* reply = dbus_message_new_method_return(question);
        DBusMessageIter iter, array;
        dbus_message_iter_init_append(reply, &iter);
        if (dbus_message_is_method_call(question, kMagnifier, "isActive") &&
            dbus_message_has_path(question, kMagnifierPath)) {
            const dbus_bool_t active = answers.active;
            dbus_message_iter_append_basic(&iter, DBUS_TYPE_BOOLEAN, &active);
        } else if (dbus_message_is_method_call(question, kMagnifier, "getZoomRegions")) {
            dbus_message_iter_open_container(&iter, DBUS_TYPE_ARRAY, DBUS_TYPE_OBJECT_PATH_AS_STRING, &array);
            const char* path = kRegionPath;
            if (answers.hasRegion)
                dbus_message_iter_append_basic(&array, DBUS_TYPE_OBJECT_PATH, &path);
            dbus_message_iter_close_container(&iter, &array);
        } else if (dbus_message_is_method_call(question, kZoomRegion, "getMagFactor") &&
                   dbus_message_has_path(question, kRegionPath)) {
            dbus_message_iter_append_basic(&iter, DBUS_TYPE_DOUBLE, &answers.factor);
            dbus_message_iter_append_basic(&iter, DBUS_TYPE_DOUBLE, &answers.factor);
        } else if (dbus_message_is_method_call(question, kZoomRegion, "getRoi") &&
                   dbus_message_has_path(question, kRegionPath)) {
            dbus_message_iter_open_container(&iter, DBUS_TYPE_ARRAY, DBUS_TYPE_INT32_AS_STRING, &array);
            for (dbus_int32_t side : std::as_const(answers.roi))
                dbus_message_iter_append_basic(&array, DBUS_TYPE_INT32, &side);
            dbus_message_iter_close_container(&iter, &array);
        } else {
            dbus_message_unref(reply);
            reply = dbus_message_new_error(question, DBUS_ERROR_UNKNOWN_METHOD, "no such method");
        }
        dbus_connection_send(connection, reply, nullptr);
        dbus_connection_flush(connection);
        dbus_message_unref(reply);
    }

    const Answers answers;
    DBusConnection* connection = nullptr;
    bool owner = false;
    std::atomic<bool> stopping{false};
    std::thread server;
};

} // namespace

class tst_LiveScreens : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        session = std::make_unique<LiveDesktopSession>(kAccessibilityBus);
        if (!session->isReady())
            QSKIP(qPrintable(session->skipReason()));
        session->applyToThisProcess();
        x = XOpenDisplay(qPrintable(session->display()));
        QVERIFY(x);
        root = DefaultRootWindow(x);
        XRRScreenResources* resources = XRRGetScreenResources(x, root);
        QVERIFY(resources);
        if (resources->noutput > 0)
            output = resources->outputs[0];
        XRRFreeScreenResources(resources);
        QVERIFY(output);
        QString problem;
        provider = AtspiProvider::create(&problem);
        QVERIFY2(provider, qPrintable(problem));
        setAccessibilityProviderForTesting(provider);
    }
    void cleanupTestCase() {
        setAccessibilityProviderForTesting(nullptr);
        provider.reset();
        if (x)
            XCloseDisplay(x);
        session.reset();
    }
    void cleanup() {
        qunsetenv("QT_SCALE_FACTOR");
        for (Atom name : std::as_const(monitorNames))
            XRRDeleteMonitor(x, root, name);
        monitorNames.clear();
        XDeleteProperty(x, root, XInternAtom(x, "_NET_WORKAREA", False));
        XDeleteProperty(x, root, XInternAtom(x, "_NET_CURRENT_DESKTOP", False));
        XSync(x, False);
    }

    void monitors_data() {
        QTest::addColumn<QStringList>("monitors");
        QTest::addColumn<double>("scaleFactor"); // QT_SCALE_FACTOR of this process; 0: unset
        const QStringList sideBySide{"DP-1 0 0 800 600 300 200", "*HDMI-2 800 0 480 1024 120 250"};
        const QStringList stacked{"*eDP-1 0 0 1280 512 344 194", "VGA-1 0 512 640 512 0 0"};
        QTest::newRow("primary given second") << sideBySide << 0.0;
        QTest::newRow("one without a size") << stacked << 0.0;
        QTest::newRow("scaled by 2") << sideBySide << 2.0;
        QTest::newRow("scaled by 2, one without a size") << stacked << 2.0;
        QTest::newRow("scaled by 1.5") << sideBySide << 1.5;
    }
    void monitors() {
        QFETCH(QStringList, monitors);
        QFETCH(double, scaleFactor);
        setMonitors(monitors);
        if (scaleFactor > 0)
            qputenv("QT_SCALE_FACTOR", QByteArray::number(scaleFactor));
        const double factor = scaleFactor > 0 ? scaleFactor : 1.0;
        const QList<Monitor> expected = expectedOrder(monitors);

        // The X server's view, in device pixels.
        const auto desktop = X11Desktop::open();
        QVERIFY(desktop);
        const QList<ScreenInfo> devicePixels = desktop->screens();
        QCOMPARE(devicePixels.size(), expected.size());
        for (qsizetype n = 0; n < expected.size(); ++n) {
            QCOMPARE(devicePixels[n].name, expected[n].name);
            QCOMPARE(rect(devicePixels[n].frame), expected[n].frame);
            QCOMPARE(devicePixels[n].physicalSize.width, expected[n].millimetres.width());
            QCOMPARE(devicePixels[n].physicalSize.height, expected[n].millimetres.height());
        }

        // The display calls, in points.
        for (qsizetype n = 0; n < expected.size(); ++n) {
            const QRect frame = scaled(expected[n].frame, factor);
            QSizeF size = expected[n].millimetres;
            if (size.isEmpty()) {
                size = QSizeF(frame.width() * 25.4 / 72, frame.height() * 25.4 / 72);
                QTest::ignoreMessage(
                    QtWarningMsg,
                    qPrintable(
                        QStringLiteral(
                            "Warning: had to make best guess at the physical size of display with index: %1")
                            .arg(n)));
                QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^Assuming it is ")));
            }
            QRect displayRect;
            QSizeF physicalSize;
            getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(displayRect, physicalSize, int(n));
            QCOMPARE(displayRect, frame);
            QCOMPARE(physicalSize, size);
        }
        QRect beyond;
        QSizeF noSize;
        getDisplayRectAndPhysicalSizeForOnlineDisplayIndex(beyond, noSize, int(expected.size()));
        QVERIFY(beyond.isNull());
        QCOMPARE(noSize, QSizeF(-1, -1));
        QList<CGRect> bounds;
        getBoundsOfActiveDisplays(bounds);
        QCOMPARE(bounds.size(), expected.size());
        for (qsizetype n = 0; n < expected.size(); ++n)
            QCOMPARE(rect(bounds[n]), scaled(expected[n].frame, factor));

        // NSScreen: mirrored at the height of the first screen.
        const QList<NSScreen*> screens = NSScreen::screens();
        QCOMPARE(screens.size(), expected.size());
        const int mirror = scaled(expected.first().frame, factor).height();
        for (qsizetype n = 0; n < expected.size(); ++n) {
            const QRect frame = scaled(expected[n].frame, factor);
            QCOMPARE(screens[n]->localizedName(), expected[n].name);
            QCOMPARE(rect(screens[n]->frame()),
                     QRect(frame.x(), mirror - frame.y() - frame.height(), frame.width(), frame.height()));
            QCOMPARE(screens[n]->backingScaleFactor(), factor);
            QCOMPARE(screens[n]->deviceDescription().value("NSScreenNumber").toUInt(), uint(n + 1));
            QCOMPARE(QRectFromInvertedGlobalNSRect(screens[n]->frame()), frame);
            QCOMPARE(NSScreenContainingPoint(frame.bottomRight()), screens[n]);
        }
    }

    // A Qt application on the X server: its screens are the monitors, and the provider in it
    // takes them from Qt.
    void qtApplication_data() {
        QTest::addColumn<QString>("scaleFactor"); // empty: unset
        QTest::newRow("unscaled") << QString();
        QTest::newRow("QT_SCALE_FACTOR=2") << QStringLiteral("2");
    }
    void qtApplication() {
        QFETCH(QString, scaleFactor);
        const QStringList monitors{"DP-1 0 0 800 600 300 200", "*HDMI-2 800 0 480 1024 120 250"};
        setMonitors(monitors);
        QProcessEnvironment environment = session->environment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        if (!scaleFactor.isEmpty())
            environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scaleFactor);
        QProcess report;
        report.setProcessEnvironment(environment);
        report.start(QStringLiteral(UIET_SCREEN_REPORT_APP));
        QVERIFY(report.waitForFinished(60000));
        const QString output = QString::fromUtf8(report.readAllStandardOutput());
        QVERIFY2(report.exitStatus() == QProcess::NormalExit && report.exitCode() == 0,
                 qPrintable(output + QString::fromUtf8(report.readAllStandardError())));

        const double factor = scaleFactor.isEmpty() ? 1.0 : scaleFactor.toDouble();
        QStringList lines;
        for (const Monitor& monitor : expectedOrder(monitors)) {
            const QRect frame = scaled(monitor.frame, factor);
            const QRect device = monitor.frame;
            lines << QStringLiteral("screen %1 %2 %3 %4 %5 %6 %7 %8 %9 %10 %11 %12")
                         .arg(monitor.name)
                         .arg(frame.x())
                         .arg(frame.y())
                         .arg(frame.width())
                         .arg(frame.height())
                         .arg(monitor.millimetres.width())
                         .arg(monitor.millimetres.height())
                         .arg(factor)
                         .arg(device.x())
                         .arg(device.y())
                         .arg(device.width())
                         .arg(device.height());
        }
        for (const Monitor& monitor : expectedOrder(monitors)) {
            const QRect frame = scaled(monitor.frame, factor);
            lines << QStringLiteral("display %1 %2 %3 %4 %5 %6")
                         .arg(frame.x())
                         .arg(frame.y())
                         .arg(frame.width())
                         .arg(frame.height())
                         .arg(monitor.millimetres.width())
                         .arg(monitor.millimetres.height());
        }
        QCOMPARE(output.split('\n', Qt::SkipEmptyParts), lines);
    }

    void menuBarHeight_data() {
        QTest::addColumn<QString>("workArea");   // _NET_WORKAREA; empty: not set
        QTest::addColumn<int>("currentDesktop"); // _NET_CURRENT_DESKTOP; -1: not set
        QTest::addColumn<double>("scaleFactor"); // 0: unset
        QTest::addColumn<int>("height");
        QTest::newRow("no work area") << QString() << -1 << 0.0 << 0;
        QTest::newRow("one desktop") << "0 24 1280 1000" << -1 << 0.0 << 24;
        QTest::newRow("panel at the bottom only") << "0 0 1280 990" << 0 << 0.0 << 0;
        QTest::newRow("second desktop current") << "0 24 1280 1000 0 40 1280 984" << 1 << 0.0 << 40;
        QTest::newRow("current desktop beyond the list") << "0 24 1280 1000" << 3 << 0.0 << 0;
        QTest::newRow("truncated in points") << "0 27 1280 997" << -1 << 2.0 << 13;
    }
    void menuBarHeight() {
        QFETCH(QString, workArea);
        QFETCH(int, currentDesktop);
        QFETCH(double, scaleFactor);
        if (!workArea.isEmpty()) {
            QList<long> values;
            for (const QString& value : workArea.split(' '))
                values << value.toLong();
            setCardinals("_NET_WORKAREA", values);
        }
        if (currentDesktop >= 0)
            setCardinals("_NET_CURRENT_DESKTOP", {currentDesktop});
        if (scaleFactor > 0)
            qputenv("QT_SCALE_FACTOR", QByteArray::number(scaleFactor));
        QTEST(systemMenuBarHeight(), "height");
    }

    void zoom_data() {
        QTest::addColumn<bool>("magnifier");
        QTest::addColumn<bool>("active");
        QTest::addColumn<bool>("hasRegion");
        QTest::addColumn<double>("factor");
        QTest::addColumn<QList<int>>("roi");
        QTest::addColumn<double>("zoomFactor");
        QTest::addColumn<QPointF>("origin");
        const QList<int> roi{100, 50, 740, 563}; // left, top, right, bottom
        QTest::newRow("no magnifier") << false << false << false << 1.0 << roi << 1.0 << QPointF(0, 0);
        QTest::newRow("zoomed by 2") << true << true << true << 2.0 << roi << 2.0 << QPointF(420, 306.5);
        QTest::newRow("zoomed by 4, at the corner")
            << true << true << true << 4.0 << QList<int>{0, 0, 320, 256} << 4.0 << QPointF(160, 128);
        QTest::newRow("not active") << true << false << true << 2.0 << roi << 1.0 << QPointF(0, 0);
        QTest::newRow("no zoom region") << true << true << false << 2.0 << roi << 1.0 << QPointF(0, 0);
        QTest::newRow("region of interest too short")
            << true << true << true << 2.0 << QList<int>{1, 2, 3} << 1.0 << QPointF(0, 0);
    }
    void zoom() {
        QFETCH(bool, magnifier);
        QFETCH(bool, active);
        QFETCH(bool, hasRegion);
        QFETCH(double, factor);
        QFETCH(QList<int>, roi);
        std::unique_ptr<MagnifierStandIn> standIn;
        if (magnifier) {
            standIn =
                std::make_unique<MagnifierStandIn>(MagnifierStandIn::Answers{active, hasRegion, factor, roi});
            QVERIFY(standIn->ownsName());
        }
        CGPoint origin = CGPointMake(-1, -1);
        QTEST(getScreenZoomFactorAndOrigin(origin), "zoomFactor");
        QTEST(QPointF(origin.x, origin.y), "origin");
    }

    // A magnifier that owns its name but never answers costs one time-out: the first unanswered
    // question ends the reading.
    void silentMagnifier() {
        MagnifierStandIn standIn(MagnifierStandIn::Answers{true, true, 2, {0, 0, 10, 10}, true});
        QVERIFY(standIn.ownsName());
        CGPoint origin = CGPointMake(-1, -1);
        QCOMPARE(getScreenZoomFactorAndOrigin(origin), 1.0);
        QCOMPARE(QPointF(origin.x, origin.y), QPointF(0, 0));
        QCOMPARE(standIn.questions(), 1);
    }

private:
    // The first monitor shows the server's one output, which takes its automatic monitor away;
    // the others show none.
    void setMonitors(const QStringList& texts) {
        for (qsizetype n = 0; n < texts.size(); ++n) {
            const Monitor monitor = Monitor::parse(texts[n]);
            XRRMonitorInfo* info = XRRAllocateMonitor(x, n == 0 ? 1 : 0);
            info->name = XInternAtom(x, qPrintable(monitor.name), False);
            info->primary = monitor.primary;
            info->automatic = False;
            info->x = monitor.frame.x();
            info->y = monitor.frame.y();
            info->width = monitor.frame.width();
            info->height = monitor.frame.height();
            info->mwidth = int(monitor.millimetres.width());
            info->mheight = int(monitor.millimetres.height());
            if (n == 0)
                info->outputs[0] = output;
            XRRSetMonitor(x, root, info);
            monitorNames << info->name;
            XFree(info);
        }
        XSync(x, False);
    }

    void setCardinals(const char* name, const QList<long>& values) {
        XChangeProperty(x, root, XInternAtom(x, name, False), XA_CARDINAL, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(values.constData()), int(values.size()));
        XSync(x, False);
    }

    std::unique_ptr<LiveDesktopSession> session;
    std::shared_ptr<AtspiProvider> provider;
    Display* x = nullptr;
    Window root = 0;
    RROutput output = 0;
    QList<Atom> monitorNames;
};

UIET_TEST_MAIN(tst_LiveScreens)
#include "tst_liveScreens.moc"
