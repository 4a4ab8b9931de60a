#include "atspi/X11Desktop.h"
#include "liveDesktopSession.h"
#include "testSupport.h"

#include <QRect>

#include <cmath>
#include <map>

// Xlib's macro None hides the enumerators of that name: these are named before Xlib comes in.
constexpr auto kNoBus = LiveDesktopSession::Bus::None;
constexpr auto kNoWindowManager = LiveDesktopSession::WindowManager::None;

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

Q_DECLARE_METATYPE(LiveDesktopSession::WindowManager)

// The windows are made here, on a private X server, with the properties that applications and
// window managers set; every expected value follows from what the test made.
class tst_X11Desktop : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        session = std::make_unique<LiveDesktopSession>();
        if (!session->isReady())
            QSKIP(qPrintable(session->skipReason()));
        session->applyToThisProcess();
        x = XOpenDisplay(qPrintable(session->display()));
        QVERIFY(x);
        root = DefaultRootWindow(x);
        desktop = X11Desktop::open(); // from DISPLAY
        QVERIFY(desktop);
    }
    void cleanupTestCase() {
        managed.clear(); // in reverse order of start, before the first session
        desktop.reset();
        if (x)
            XCloseDisplay(x);
        session.reset();
    }
    void cleanup() {
        client.reset();
        while (!made.isEmpty()) // children before their parents
            XDestroyWindow(x, made.takeLast());
        named.clear();
        XDeleteProperty(x, root, atom("_NET_SUPPORTING_WM_CHECK"));
        XDeleteProperty(x, root, atom("_NET_CLIENT_LIST_STACKING"));
        XSync(x, False);
    }

    void stackingOrder_data() {
        QTest::addColumn<QStringList>("operations"); // on a, b, c, made and mapped in that order
        QTest::addColumn<QString>("frontmostFirst");
        QTest::newRow("bottom raised") << QStringList{"raise a"} << "acb";
        QTest::newRow("top lowered") << QStringList{"lower c"} << "bac";
        QTest::newRow("raised, then lowered") << QStringList{"raise b", "lower b"} << "cab";
        QTest::newRow("unmapped keeps its place") << QStringList{"unmap b"} << "cba";
        QTest::newRow("destroyed") << QStringList{"destroy b"} << "ca";
    }
    // The owners kept between calls follow every change, asked before the windows are.
    void stackingOrder() {
        QFETCH(QStringList, operations);
        for (QChar name : QStringLiteral("abc")) {
            named[name] = make(QRect(10, 10, 50, 50));
            setLongs(named[name], "_NET_WM_PID", XA_CARDINAL, {long(name.unicode())});
        }
        XSync(x, False);
        QCOMPARE(desktop->windowOwners(), ownersOf("cba"));
        QCOMPARE(listedIds(), idsOf("cba"));
        for (const QString& operation : operations) {
            const Window window = named[operation.back()];
            if (operation.startsWith("raise"))
                XRaiseWindow(x, window);
            else if (operation.startsWith("lower"))
                XLowerWindow(x, window);
            else if (operation.startsWith("unmap"))
                XUnmapWindow(x, window);
            else
                destroy(window);
        }
        XSync(x, False);
        QFETCH(QString, frontmostFirst);
        QCOMPARE(desktop->windowOwners(), ownersOf(frontmostFirst));
        QCOMPARE(listedIds(), idsOf(frontmostFirst));
    }

    void windowProperties_data() {
        QTest::addColumn<QRect>("geometry");
        QTest::addColumn<int>("border");
        QTest::addColumn<QByteArray>("netWmName"); // null: not set
        QTest::addColumn<QByteArray>("wmName");    // Latin-1; null: not set
        QTest::addColumn<qint64>("pid");           // -1: not set
        QTest::addColumn<QString>("title");
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<int>("owner");
        QTest::newRow("plain") << QRect(10, 20, 300, 200) << 0 << QByteArray("Editor") << QByteArray()
                               << 4242ll << "Editor" << QRect(10, 20, 300, 200) << 4242;
        // The position names the outer corner of the border; the frame is the inside.
        QTest::newRow("border, Latin-1 WM_NAME, no pid")
            << QRect(10, 20, 300, 200) << 5 << QByteArray() << QByteArray("Caf\xe9") << -1ll
            << QString("Café") << QRect(15, 25, 300, 200) << 0;
        QTest::newRow("UTF-8 name before WM_NAME")
            << QRect(0, 0, 1, 1) << 0 << QString("Grüße – 東京 🌍").toUtf8() << QByteArray("fallback") << 7ll
            << QString("Grüße – 東京 🌍") << QRect(0, 0, 1, 1) << 7;
        QTest::newRow("partly off screen, no name")
            << QRect(-50, -30, 100, 100) << 0 << QByteArray() << QByteArray() << 0ll << QString()
            << QRect(-50, -30, 100, 100) << 0;
        QTest::newRow("pid beyond pid_t") << QRect(1, 2, 3, 4) << 0 << QByteArray("x") << QByteArray()
                                          << 0xffffffffll << "x" << QRect(1, 2, 3, 4) << 0;
    }
    void windowProperties() {
        QFETCH(QRect, geometry);
        QFETCH(int, border);
        QFETCH(QByteArray, netWmName);
        QFETCH(QByteArray, wmName);
        QFETCH(qint64, pid);
        const Window window = make(geometry, border);
        if (!netWmName.isNull())
            XChangeProperty(x, window, atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(netWmName.constData()), netWmName.size());
        if (!wmName.isNull())
            XStoreName(x, window, wmName.constData());
        if (pid >= 0)
            setLongs(window, "_NET_WM_PID", XA_CARDINAL, {long(pid)});
        XSync(x, False);
        const WindowInfo info = listed(window);
        QTEST(info.title, "title");
        QTEST(rect(info.frame), "frame");
        QTEST(int(info.owner), "owner");
    }

    void onScreen_data() {
        QTest::addColumn<bool>("mapped");
        QTest::addColumn<long>("wmState"); // as a manager sets it; -1: not set
        QTest::addColumn<bool>("hidden");  // _NET_WM_STATE_HIDDEN
        QTest::addColumn<bool>("onScreen");
        QTest::newRow("mapped") << true << -1l << false << true;
        QTest::newRow("not mapped") << false << -1l << false << false;
        QTest::newRow("mapped, normal state") << true << long(NormalState) << false << true;
        QTest::newRow("mapped, iconic state") << true << long(IconicState) << false << false;
        QTest::newRow("mapped, hidden") << true << -1l << true << false;
    }
    void onScreen() {
        QFETCH(bool, mapped);
        QFETCH(long, wmState);
        QFETCH(bool, hidden);
        const Window window = make(QRect(0, 0, 10, 10), 0, mapped);
        if (wmState >= 0)
            setLongs(window, "WM_STATE", atom("WM_STATE"), {wmState, long(None)});
        if (hidden)
            setLongs(window, "_NET_WM_STATE", XA_ATOM, {long(atom("_NET_WM_STATE_HIDDEN"))});
        XSync(x, False);
        QTEST(listed(window).onScreen, "onScreen");
    }

    void listedWindows_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("mapped");
        QTest::addColumn<bool>("madeFirst"); // below the application window n
        QTest::addColumn<QString>("frontmostFirst");
        QTest::newRow("menu over a window") << "override-redirect" << true << false << "sn";
        QTest::newRow("menu under a window") << "override-redirect" << true << true << "ns";
        QTest::newRow("unmapped menu") << "override-redirect" << false << false << "n";
        QTest::newRow("input only") << "input-only" << true << false << "n";
        QTest::newRow("child window") << "child" << true << false << "n";
        QTest::newRow("unmapped application window") << "application" << false << false << "sn";
    }
    void listedWindows() {
        QFETCH(QString, kind);
        QFETCH(bool, mapped);
        QFETCH(bool, madeFirst);
        QFETCH(QString, frontmostFirst);
        Window n = madeFirst ? None : make(QRect(0, 0, 100, 100));
        XSetWindowAttributes attributes;
        attributes.override_redirect = kind == "override-redirect";
        const Window s = named['s'] = XCreateWindow(
            x, kind == "child" ? n : root, 5, 5, 20, 20, 0, CopyFromParent,
            kind == "input-only" ? InputOnly : InputOutput, CopyFromParent, CWOverrideRedirect, &attributes);
        made.append(s);
        if (mapped)
            XMapWindow(x, s);
        if (madeFirst)
            n = make(QRect(0, 0, 100, 100));
        named['n'] = n;
        XSync(x, False);
        QCOMPARE(listedIds(), idsOf(frontmostFirst));
    }

    // A window manager puts clients into frames and lists them; its own windows and the frames
    // are no application's windows. Made bottom to top: frame 1, popup, frame 2, a helper.
    void windowManager_data() {
        QTest::addColumn<bool>("managerRunning");
        QTest::addColumn<bool>("vanishedClientListed");
        QTest::addColumn<QString>("frontmostFirst");
        QTest::newRow("manager running") << true << false << "2p1";
        QTest::newRow("client list names a vanished window") << true << true << "2p1";
        QTest::newRow("manager gone, its check window with it") << false << false << "h2p1";
    }
    void windowManager() {
        QFETCH(bool, managerRunning);
        QFETCH(bool, vanishedClientListed);
        // Mapped out of sight, as openbox has it.
        const Window check = make(QRect(-100, -100, 1, 1), 0, true, root, true);
        setLongs(check, "_NET_SUPPORTING_WM_CHECK", XA_WINDOW, {long(check)});
        setLongs(root, "_NET_SUPPORTING_WM_CHECK", XA_WINDOW, {long(check)});
        named['1'] = make(QRect(5, 20, 200, 100), 0, true, make(QRect(100, 100, 210, 130)));
        named['p'] = make(QRect(150, 150, 30, 60), 0, true, root, true);
        named['2'] = make(QRect(5, 20, 200, 100), 0, true, make(QRect(300, 100, 210, 130)));
        named['h'] = make(QRect(0, 0, 1280, 30));
        for (QChar client : {'1', '2'})
            setLongs(named[client], "WM_STATE", atom("WM_STATE"), {long(NormalState), long(None)});
        const Window vanished = make(QRect(0, 0, 1, 1));
        destroy(vanished);
        QVector<long> clients{long(named['1']), long(named['2'])};
        if (vanishedClientListed)
            clients.insert(1, long(vanished));
        setLongs(root, "_NET_CLIENT_LIST_STACKING", XA_WINDOW, clients);
        if (!managerRunning)
            destroy(check);
        XSync(x, False);

        QFETCH(QString, frontmostFirst);
        QCOMPARE(listedIds(), idsOf(frontmostFirst));
        QCOMPARE(rect(listed(named['1']).frame), QRect(105, 120, 200, 100));
    }

    // Xvfb has one RandR output, "screen", and so one monitor of that name over the whole screen.
    // The output reports no size; the server then sizes the monitor at 96 dots per inch, so that
    // it differs from the core screen's size, which Xvfb takes at 100. Several monitors are
    // tested in tst_liveScreens.
    void screens() {
        const QList<ScreenInfo> screens = desktop->screens();
        QCOMPARE(screens.size(), 1);
        const ScreenInfo& screen = screens.first();
        QCOMPARE(rect(screen.frame), QRect(0, 0, 1280, 1024));
        QCOMPARE(screen.scale, 1.0);
        XRRScreenResources* resources = XRRGetScreenResources(x, root);
        QVERIFY(resources);
        const int outputs = resources->noutput;
        XRROutputInfo* output = outputs > 0 ? XRRGetOutputInfo(x, resources, resources->outputs[0]) : nullptr;
        const QString outputName = output ? QString::fromLatin1(output->name, output->nameLen) : QString();
        if (output)
            XRRFreeOutputInfo(output);
        XRRFreeScreenResources(resources);
        QCOMPARE(outputs, 1);
        QCOMPARE(outputName, QStringLiteral("screen"));
        QCOMPARE(screen.name, outputName);
        QCOMPARE(screen.physicalSize.width, std::round(1280 * 25.4 / 96));
        QCOMPARE(screen.physicalSize.height, std::round(1024 * 25.4 / 96));
        QCOMPARE(DisplayWidthMM(x, 0), int(std::round(1280 * 25.4 / 100)));
    }

    void mousePosition_data() {
        QTest::addColumn<QPoint>("warpedTo");
        QTest::addColumn<QPoint>("position");
        QTest::newRow("origin") << QPoint(0, 0) << QPoint(0, 0);
        QTest::newRow("middle") << QPoint(640, 512) << QPoint(640, 512);
        QTest::newRow("last pixel") << QPoint(1279, 1023) << QPoint(1279, 1023);
        QTest::newRow("beyond the edges") << QPoint(-10, 5000) << QPoint(0, 1023);
    }
    void mousePosition() {
        QFETCH(QPoint, warpedTo);
        XWarpPointer(x, None, root, 0, 0, 0, 0, warpedTo.x(), warpedTo.y());
        XSync(x, False);
        const CGPoint position = desktop->mousePosition();
        QTEST(QPoint(position.x, position.y), "position");
    }

    void unreachableDisplay_data() {
        QTest::addColumn<QString>("displayName");
        QTest::newRow("DISPLAY unset") << QString();
        QTest::newRow("no server on the display") << ":65000";
    }
    void unreachableDisplay() {
        QFETCH(QString, displayName);
        const QByteArray display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
        const bool opened = X11Desktop::open(displayName) != nullptr;
        qputenv("DISPLAY", display);
        QVERIFY(!opened);
    }

    // Xlib ends the process when its server goes away, unless told otherwise.
    void serverGone() {
        auto other = std::make_unique<LiveDesktopSession>();
        QVERIFY2(other->isReady(), qPrintable(other->skipReason()));
        auto lost = X11Desktop::open(other->display());
        QVERIFY(lost);
        QCOMPARE(lost->screens().size(), 1);
        other.reset();
        QVERIFY(lost->windows().isEmpty());
        QVERIFY(lost->screens().isEmpty());
        QVERIFY(!lost->isConnected());
    }

    // Acting on windows, with and without a window manager. The windows belong to a plain Xlib
    // client of their own, which reads what is sent to them; a window manager acts on them
    // asynchronously, so results are awaited.
    void hasWindowManager_data() { addManagerRows(); }
    void hasWindowManager() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        QFETCH(WindowManager, manager);
        QCOMPARE(acting->hasWindowManager(), manager == WindowManager::Openbox);
    }

    void activate_data() { addManagerRows(); }
    void activate() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        QFETCH(WindowManager, manager);
        const Window a = client->make(QRect(10, 10, 200, 100));
        const Window b = client->make(QRect(50, 50, 200, 100));
        // A window manager focuses a new window a moment after it shows it; an activation that came
        // in between would be undone.
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return frontmost() == b && (manager == kNoWindowManager || client->focus() == b); }));
        QVERIFY(acting->activate(a));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return frontmost() == a && client->focus() == a; }));
    }

    void minimize_data() { addManagerRows(); }
    void minimize() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        const Window window = client->make(QRect(10, 10, 200, 100));
        client->make(QRect(50, 50, 200, 100));
        QVERIFY(acting->setMinimized(window, true));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !listedIn(acting, window).onScreen; }));
        QVERIFY(acting->setMinimized(window, false));
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return listedIn(acting, window).onScreen && frontmost() == window; }));
    }

    void maximize_data() { addManagerRows(); }
    void maximize() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        QFETCH(WindowManager, manager);
        const Window window = client->make(QRect(10, 10, 200, 100));
        const auto frame = [&] { return rect(listedIn(acting, window).frame); };
        // Under load a window manager that has just taken a window can leave it out of one reading
        // of the window list: the frame to come back to is one that was read.
        QRect before;
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !(before = frame()).isEmpty(); }));
        QVERIFY(!acting->isMaximized(window));
        if (manager == kNoWindowManager) {
            QVERIFY(!acting->setMaximized(window, true));
            QVERIFY(!acting->isMaximized(window));
            QCOMPARE(frame(), before);
            return;
        }
        const QRect screen = rect(acting->screens().first().frame);
        QVERIFY(acting->setMaximized(window, true));
        // The frame is the client's area; with the decorations around it, the whole screen.
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return acting->isMaximized(window) &&
                   frame().marginsAdded(client->frameExtents(window)) == screen;
        }));
        QVERIFY(acting->setMaximized(window, false));
        QVERIFY(
            LiveDesktopSession::waitUntil([&] { return !acting->isMaximized(window) && frame() == before; }));
    }

    void close_data() {
        QTest::addColumn<WindowManager>("manager");
        QTest::addColumn<bool>("takesDelete"); // WM_PROTOCOLS lists WM_DELETE_WINDOW
        for (const auto& [name, manager] : managers()) {
            QTest::addRow("%s, takes WM_DELETE_WINDOW", name) << manager << true;
            QTest::addRow("%s, does not", name) << manager << false;
        }
    }
    void close() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        QFETCH(bool, takesDelete);
        const Window window = client->make(QRect(10, 10, 200, 100), takesDelete);
        QCOMPARE(acting->close(window), takesDelete);
        if (!takesDelete) {
            // Nothing closed it: it is still there, and its client still connected. A manager may
            // still unmap it for a moment after it decorated it.
            QVERIFY(LiveDesktopSession::waitUntil([&] { return listedIn(acting, window).onScreen; }));
            QVERIFY(!client->receivedDelete(window));
            return;
        }
        QVERIFY(LiveDesktopSession::waitUntil([&] { return client->receivedDelete(window); }));
    }

    void vanishedWindow_data() {
        QTest::addColumn<WindowManager>("manager");
        QTest::addColumn<QString>("action");
        for (const auto& [name, manager] : managers()) {
            for (const char* action : {"activate", "minimize", "restore", "maximize", "close"})
                QTest::addRow("%s, %s", name, action) << manager << QString(action);
        }
    }
    void vanishedWindow() {
        if (!startRow())
            QSKIP(qPrintable(skipReason));
        QFETCH(QString, action);
        const Window window = client->make(QRect(10, 10, 200, 100));
        XDestroyWindow(client->x, window);
        XSync(client->x, False);
        X11Desktop* desktop = acting;
        const std::map<QString, std::function<bool(CGWindowID)>> actions{
            {"activate", [&](CGWindowID id) { return desktop->activate(id); }},
            {"minimize", [&](CGWindowID id) { return desktop->setMinimized(id, true); }},
            {"restore", [&](CGWindowID id) { return desktop->setMinimized(id, false); }},
            {"maximize", [&](CGWindowID id) { return desktop->setMaximized(id, true); }},
            {"close", [&](CGWindowID id) { return desktop->close(id); }}};
        QVERIFY(!actions.at(action)(window));
        QVERIFY(!actions.at(action)(0));
        QVERIFY(!desktop->isMaximized(window));
        QVERIFY(desktop->isConnected());
    }

private:
    using WindowManager = LiveDesktopSession::WindowManager;

    static QList<QPair<const char*, WindowManager>> managers() {
        return {{"no window manager", kNoWindowManager}, {"openbox", WindowManager::Openbox}};
    }
    static void addManagerRows() {
        QTest::addColumn<WindowManager>("manager");
        for (const auto& [name, manager] : managers())
            QTest::newRow(name) << manager;
    }

    // A plain Xlib client on a connection of its own: its windows go when it does.
    struct Client {
        Client(X11Desktop* desktop, const QString& display)
            : desktop(desktop), x(XOpenDisplay(qPrintable(display))) {}
        ~Client() { XCloseDisplay(x); }
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        // Mapped, and once it is on screen and a window manager, where one runs, has decorated it:
        // until then the manager may still move it, or unmap it for a moment.
        Window make(const QRect& geometry, bool takesDelete = true) {
            const Window window = XCreateSimpleWindow(x, DefaultRootWindow(x), geometry.x(), geometry.y(),
                                                      geometry.width(), geometry.height(), 0, 0, 0);
            Atom deleteWindow = XInternAtom(x, "WM_DELETE_WINDOW", False);
            if (takesDelete)
                XSetWMProtocols(x, window, &deleteWindow, 1);
            XMapWindow(x, window);
            XSync(x, False);
            if (!LiveDesktopSession::waitUntil([&] {
                    return listedIn(desktop, window).onScreen &&
                           (!desktop->hasWindowManager() || !frameExtents(window).isNull());
                }))
                qWarning("window %lu did not come on screen", window);
            return window;
        }
        Window focus() {
            Window focused = None;
            int revertTo = 0;
            XGetInputFocus(x, &focused, &revertTo);
            return focused;
        }
        // Reads the events that have come for the window, up to a WM_DELETE_WINDOW message.
        bool receivedDelete(Window window) {
            XEvent event;
            while (XPending(x) > 0 && XCheckTypedWindowEvent(x, window, ClientMessage, &event)) {
                if (event.xclient.message_type == XInternAtom(x, "WM_PROTOCOLS", False) &&
                    Atom(event.xclient.data.l[0]) == XInternAtom(x, "WM_DELETE_WINDOW", False))
                    return true;
            }
            return false;
        }
        // What the window manager's decorations add around the window.
        QMargins frameExtents(Window window) {
            Atom type = None;
            int format = 0;
            unsigned long count = 0, bytesAfter = 0;
            unsigned char* data = nullptr;
            XGetWindowProperty(x, window, XInternAtom(x, "_NET_FRAME_EXTENTS", False), 0, 4, False,
                               XA_CARDINAL, &type, &format, &count, &bytesAfter, &data);
            QMargins margins;
            if (count == 4) {
                const long* extents = reinterpret_cast<const long*>(data); // left, right, top, bottom
                margins = QMargins(int(extents[0]), int(extents[2]), int(extents[1]), int(extents[3]));
            }
            if (data)
                XFree(data);
            return margins;
        }

        X11Desktop* desktop;
        Display* x;
    };

    // The desktop of the row's window manager, started at first use, and a new client on it;
    // false, with skipReason, when it cannot be started.
    bool startRow() {
        QFETCH(WindowManager, manager);
        ManagedDesktop& entry = managed[manager];
        if (!entry.session) {
            entry.session = std::make_unique<LiveDesktopSession>(kNoBus, manager);
            if (entry.session->isReady())
                entry.desktop = X11Desktop::open(entry.session->display());
        }
        skipReason = entry.session->skipReason();
        acting = entry.desktop.get();
        if (acting)
            client = std::make_unique<Client>(acting, entry.session->display());
        return acting;
    }
    CGWindowID frontmost() {
        const QList<WindowInfo> windows = acting->windows();
        return windows.isEmpty() ? 0 : windows.first().id;
    }
    static WindowInfo listedIn(X11Desktop* desktop, Window window) {
        for (const WindowInfo& info : desktop->windows()) {
            if (info.id == window)
                return info;
        }
        return {};
    }

    struct ManagedDesktop {
        std::unique_ptr<LiveDesktopSession> session;
        std::unique_ptr<X11Desktop> desktop;
    };
    std::map<WindowManager, ManagedDesktop> managed;
    X11Desktop* acting = nullptr;   // the row's
    std::unique_ptr<Client> client; // the row's
    QString skipReason;

    Atom atom(const char* name) { return XInternAtom(x, name, False); }
    void setLongs(Window window, const char* name, Atom type, const QVector<long>& values) {
        XChangeProperty(x, window, atom(name), type, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(values.constData()), values.size());
    }
    Window make(const QRect& geometry, int border = 0, bool mapped = true, Window parent = None,
                bool overrideRedirect = false) {
        const Window window = XCreateSimpleWindow(x, parent ? parent : root, geometry.x(), geometry.y(),
                                                  geometry.width(), geometry.height(), border, 0, 0);
        XSetWindowAttributes attributes;
        attributes.override_redirect = overrideRedirect;
        XChangeWindowAttributes(x, window, CWOverrideRedirect, &attributes);
        if (mapped)
            XMapWindow(x, window);
        XSync(x, False);
        made.append(window);
        return window;
    }
    void destroy(Window window) {
        made.removeOne(window);
        XDestroyWindow(x, window);
        XSync(x, False);
    }
    QList<CGWindowID> idsOf(const QString& names) {
        QList<CGWindowID> ids;
        for (QChar name : names)
            ids.append(named.value(name));
        return ids;
    }
    static QList<pid_t> ownersOf(const QString& names) {
        QList<pid_t> owners;
        for (QChar name : names)
            owners.append(pid_t(name.unicode()));
        return owners;
    }
    static QRect rect(const CGRect& frame) {
        return QRect(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height);
    }
    QList<CGWindowID> listedIds() {
        QList<CGWindowID> ids;
        for (const WindowInfo& info : desktop->windows())
            ids.append(info.id);
        return ids;
    }
    WindowInfo listed(Window window) {
        const WindowInfo info = listedIn(desktop.get(), window);
        if (info.id != window)
            qWarning("window %lu is not listed", window);
        return info;
    }

    std::unique_ptr<LiveDesktopSession> session;
    std::unique_ptr<X11Desktop> desktop;
    Display* x = nullptr;
    Window root = None;
    QList<Window> made;
    QHash<QChar, Window> named; // for the test's expectations
};

UIET_TEST_MAIN(tst_X11Desktop)
#include "tst_x11Desktop.moc"
