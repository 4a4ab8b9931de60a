#include "platformTestSupport.h"
#include "testSupport.h"

#include "CFTypeSmartRef.h"
#include "logCapture.h"
#include "osxProToolsUtils.h"
#include "proToolsDesktop.h"

#include <QCoreApplication>
#include <QJsonObject>

// The windows come from proToolsDesktop.h. In a Mix window of four tracks of 100 the tracks span
// x 0..99, 100..199, 200..299 and 300..399 and y 50..449; across that, name 50..89, inserts
// ("FXTD") 90..209, mute 210..249, fader 250..449. In an Edit window the tracks span y 50..109,
// 110..169, 170..229, 230..289 and x 0..599: name 0..59, inserts 60..239, mute 240..299, fader
// 300..599; "ZmAu" lies at x 600..629, y 50..89.

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;
using ProToolsDesktop::Options;
using ProToolsDesktop::Window;

const QString kMixSearch = "Performing intelligent search of Pro Tools Mix window";
const QString kEditSearch = "Performing intelligent search of Pro Tools Edit window";
const QString kBoundaryError = "Error: failed to get Pro Tools track group boundaries";
const QString kUnexpected = "findIndexOfProToolsTrackContainingPoint experienced unexpected situation";

// Ends this pass of the event loop: the cache's zero timer fires, and its timer is deleted.
void finishEventLoopPass() {
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// The attribute reads that work costs.
quint64 readsOf(const std::function<void()>& work) {
    const quint64 before = platformCallCount(PlatformCall::AXUIElementCopyAttributeValue);
    work();
    return platformCallCount(PlatformCall::AXUIElementCopyAttributeValue) - before;
}

Window changed(Window window, const std::function<void(Window&)>& change) {
    change(window);
    return window;
}

} // namespace

Q_DECLARE_METATYPE(Window)

class tst_osxProToolsUtils : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    bool load(const Window& window) {
        const QJsonObject fixture = ProToolsDesktop::desktop(window);
        return installDesktop([&](VirtualDesktop& desktop) { return desktop.load(fixture); });
    }

    ElementRef copy(const QString& id) const {
        return ElementRef(id.isEmpty() ? nullptr : desktop->copyElement(id));
    }

    // The search from the element at the point; log has the lines it wrote.
    QString search(const QString& from, const QPoint& point, QStringList* log = nullptr) const {
        const ElementRef element = copy(from);
        QString found;
        const QStringList lines =
            logOf([&] { found = idOfCopy(copyUIElementAtPositionBySearchingProTools(element, point)); });
        if (log)
            *log = lines;
        return found;
    }

private slots:
    void cleanup() {
        finishEventLoopPass();
        if (desktop)
            uninstallDesktopAndCheckReferences();
    }

    void readsIdentifiers_data() {
        QTest::addColumn<QJsonValue>("identifier");
        QTest::addColumn<qint64>("expected");
        QTest::addColumn<QStringList>("log");
        const QString error = "Error: Unexpected Pro Tools UI element identifier: ";
        QTest::newRow("code") << QJsonValue("ZmAu") << qint64(0x5A6D4175) << QStringList();
        QTest::newRow("leaf code") << QJsonValue("FXTD") << qint64(0x46585444) << QStringList();
        QTest::newRow("decimal") << QJsonValue("1234") << qint64(1234) << QStringList();
        QTest::newRow("negative decimal") << QJsonValue("-7") << qint64(-7) << QStringList();
        QTest::newRow("leading digits") << QJsonValue("12ab") << qint64(12) << QStringList();
        QTest::newRow("four digits that read as 0")
            << QJsonValue("0000") << qint64(0x30303030) << QStringList();
        QTest::newRow("two characters") << QJsonValue("ab") << qint64(0) << QStringList{error + "ab"};
        QTest::newRow("zero") << QJsonValue("0") << qint64(0) << QStringList{error + "0"};
        QTest::newRow("five characters") << QJsonValue("abcde") << qint64(0) << QStringList{error + "abcde"};
        QTest::newRow("not ASCII") << QJsonValue("Zm\u00e4u") << qint64(0)
                                   << QStringList{error + "Zm\u00e4u"};
        QTest::newRow("number") << QJsonValue(1234) << qint64(0) << QStringList();
        QTest::newRow("none") << QJsonValue(QJsonValue::Undefined) << qint64(0) << QStringList();
    }

    void readsIdentifiers() {
        QFETCH(QJsonValue, identifier);
        QVERIFY(load(changed(ProToolsDesktop::mixWindow(),
                             [&](Window& window) { window.child("toolbar")->identifier = identifier; })));
        const ElementRef toolbar = copy("toolbar");
        qint64 result = -1;
        QTEST(logOf([&] { result = proToolsElementIdentifier(toolbar); }), "log");
        QTEST(result, "expected");
    }

    // Reads in one event cost one round trip, except where the first read learned nothing; the
    // next pass of the event loop reads again.
    void cachesReadsForOneEvent_data() {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("readAgain");
        QTest::newRow("rectangle") << "rect"
                                   << "track1" << false;
        QTest::newRow("failed rectangle") << "rect"
                                          << "TGrw" << false;
        QTest::newRow("role") << "role"
                              << "track1" << false;
        QTest::newRow("no role") << "role"
                                 << "toolbar" << true;
        QTest::newRow("role that is no string") << "role"
                                                << "ACrw" << true;
        QTest::newRow("identifier") << "identifier"
                                    << "track1" << false;
        QTest::newRow("no identifier") << "identifier"
                                       << "scrollBar" << true;
        QTest::newRow("children") << "children"
                                  << "track1" << false;
        QTest::newRow("no children") << "children"
                                     << "track1.fader" << false;
        QTest::newRow("parent") << "parent"
                                << "track1" << false;
        QTest::newRow("no parent") << "parent"
                                   << "proTools" << true;
        QTest::newRow("window") << "window"
                                << "track1.insert0" << false;
        QTest::newRow("no window") << "window"
                                   << "proTools" << true;
    }

    void cachesReadsForOneEvent() {
        QFETCH(QString, field);
        QFETCH(QString, id);
        QFETCH(bool, readAgain);
        QVERIFY(load(changed(ProToolsDesktop::mixWindow(), [](Window& window) {
            window.child("TGrw")->frame.reset();
            window.child("toolbar")->role.clear();
            window.child("ACrw")->role.clear();
            window.child("ACrw")->attributes["AXRole"] = 5;
        })));
        const ElementRef element = copy(id);
        ProToolsElementCache cache;
        const std::function<void()> read = [&] {
            if (field == "rect")
                cache.rect(element);
            else if (field == "role")
                cache.role(element);
            else if (field == "identifier")
                cache.identifier(element);
            else if (field == "children")
                cache.children(element);
            else if (field == "parent")
                cache.parent(element);
            else
                cache.window(element);
        };
        const quint64 first = readsOf(read);
        QVERIFY(first > 0);
        if (readAgain)
            QVERIFY(readsOf(read) > 0);
        else
            QCOMPARE(readsOf(read), quint64(0));
        finishEventLoopPass();
        QCOMPARE(readsOf(read), first);
    }

    void cacheKnowsAnElementByEquality() {
        QVERIFY(load(ProToolsDesktop::mixWindow()));
        const ElementRef handle = copy("track2");
        const ElementRef other = copy("track2");
        const ElementRef neighbour = copy("track1");
        QVERIFY(handle.get() != other.get());
        QVERIFY(CFEqual(handle, other));
        QVERIFY(AXUIElementKey(handle) == AXUIElementKey(other));
        QCOMPARE(qHash(AXUIElementKey(handle), 7), qHash(AXUIElementKey(other), 7));
        QVERIFY(!(AXUIElementKey(handle) == AXUIElementKey(neighbour)));
        QVERIFY(AXUIElementKey() == AXUIElementKey());
        QVERIFY(!(AXUIElementKey() == AXUIElementKey(handle)));

        ProToolsElementCache cache;
        const QRect rect = cache.rect(handle);
        QCOMPARE(rect, QRect(200, 50, 100, 400));
        QCOMPARE(readsOf([&] { QCOMPARE(cache.rect(other), rect); }), quint64(0));
    }

    void findsTheNearestWindow_data() {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("window");
        const auto row = [](const char* tag, const QString& from, const QString& window) {
            QTest::newRow(tag) << from << window;
        };
        row("deep element", "track1.insert0", "window");
        row("window itself", "window", "window");
        row("below an inner window", "track3.insert1", "track3.inserts");
        row("application", "proTools", "");
        row("null", "", "");
    }

    void findsTheNearestWindow() {
        QVERIFY(load(changed(ProToolsDesktop::mixWindow(),
                             [](Window& window) { window.child("track3")->children[1].role = "AXWindow"; })));
        QFETCH(QString, from);
        QTEST(idOfCopy(copyProToolsUIElementWindow(copy(from))), "window");
    }

    void searchesWindows_data() {
        QTest::addColumn<Window>("window");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("found");
        QTest::addColumn<QStringList>("log");
        const Window mix = ProToolsDesktop::mixWindow();
        const Window edit = ProToolsDesktop::editWindow();
        const auto row = [](const char* tag, const Window& window, const QString& from, const QPoint& point,
                            const QString& found, const QStringList& log) {
            QTest::newRow(tag) << window << from << point << found << log;
        };
        const auto noFrame = [](const QString& id) {
            return [id](Window& window) { window.child(id)->frame.reset(); };
        };
        const auto without = [](const QString& id) { return [id](Window& window) { window.take(id); }; };

        // Mix window. At x = 250 the interpolation between the first and the last track probes
        // the third one at once, so an unreadable second track is never asked.
        row("worked example", mix, "track0.fader", {250, 300}, "track2.fader", {kMixSearch});
        row("unreadable track never probed", changed(mix, noFrame("track1")), "scrollBar", {250, 300},
            "track2.fader", {kMixSearch});
        row("unreadable probe", changed(mix, noFrame("track2")), "scrollBar", {250, 300}, "window",
            {kMixSearch, kBoundaryError});
        row("unreadable first track", changed(mix, noFrame("track0")), "scrollBar", {250, 300}, "window",
            {kMixSearch, kBoundaryError});
        row("on the first track", mix, "scrollBar", {50, 60}, "track0.name", {kMixSearch});
        row("on the last track", mix, "scrollBar", {350, 220}, "track3.mute", {kMixSearch});
        row("inserts are a leaf", mix, "scrollBar", {150, 100}, "track1.inserts", {kMixSearch});
        row("gap between tracks", ProToolsDesktop::mixWindow({4, {}, 10, 0}), "scrollBar", {105, 300},
            "window", {kMixSearch});
        row("above a track, on the head", mix, "scrollBar", {150, 10}, "toolbar", {kMixSearch});
        row("below a track, on the tail", mix, "scrollBar", {100, 475}, "scrollBar", {kMixSearch});
        row("right of the tracks, on the head", mix, "scrollBar", {420, 10}, "toolbar", {kMixSearch});
        row("right of the tracks, nothing", mix, "scrollBar", {420, 300}, "window", {kMixSearch});
        row("unequal widths", ProToolsDesktop::mixWindow({6, {30, 200, 50, 120, 10, 90}, 0, 0}), "scrollBar",
            {405, 300}, "track4.fader", {kMixSearch});
        row("one track", ProToolsDesktop::mixWindow({1, {}, 0, 0}), "scrollBar", {50, 300}, "track0.fader",
            {kMixSearch});
        row("one track, point outside it", ProToolsDesktop::mixWindow({1, {}, 0, 0}), "scrollBar", {50, 460},
            "ACrw", {kMixSearch});
        row("two tracks, point in neither", ProToolsDesktop::mixWindow({2, {}, 0, 0}), "scrollBar",
            {150, 460}, "ACrw", {kMixSearch});
        row("one track as the last child",
            changed(ProToolsDesktop::mixWindow({1, {}, 0, 0}),
                    [](Window& window) {
                        window.head.append(window.take("ACrw"));
                        window.take("scrollBar");
                    }),
            "toolbar", {50, 300}, "track0.fader",
            {kMixSearch,
             "Note: have no start track or end track indices, cannot do intelligent search of Mix window"});
        row("no ACrw", changed(mix, without("ACrw")), "scrollBar", {250, 300}, "track2.fader",
            {kMixSearch,
             "Note: did not find key UI elements, cannot do intelligent search of Pro Tools Mix window"});
        row("TGrw without rectangle", changed(mix, noFrame("TGrw")), "scrollBar", {250, 300}, "track2.fader",
            {kMixSearch, "Error: elements of Pro Tools Mix window unexpected had null rects"});
        // The second track is listed first: (50 - 199) / (300 - 199), then (50 - 199) / (200 - 199).
        row("tracks out of order", changed(mix, [](Window& window) { window.tracks.swapItemsAt(0, 1); }),
            "scrollBar", {50, 300}, "track0.fader",
            {kMixSearch, kUnexpected, "start index: 2   coord: 199", "end index:   5   coord: 300",
             "touch coord: 50   u: -1.47525", kUnexpected, "start index: 2   coord: 199",
             "end index:   4   coord: 200", "touch coord: 50   u: -149"});
        // The last track begins where the first ends: u is 0, and the probe is the second child.
        row("start equal to end",
            changed(mix,
                    [](Window& window) {
                        using ProToolsDesktop::WindowKind;
                        window.tracks = {ProToolsDesktop::track(WindowKind::Mix, 0, QRect(0, 50, 100, 400)),
                                         ProToolsDesktop::track(WindowKind::Mix, 1, QRect(200, 50, 100, 400)),
                                         ProToolsDesktop::track(WindowKind::Mix, 2, QRect(300, 50, 100, 400)),
                                         ProToolsDesktop::track(WindowKind::Mix, 3, QRect(99, 50, 52, 400))};
                    }),
            "scrollBar", {250, 300}, "track1.fader", {kMixSearch});

        // Edit window.
        row("Edit: a track in the middle", edit, "scrollBar", {300, 200}, "track2.fader", {kEditSearch});
        row("Edit: on the first track", edit, "scrollBar", {30, 60}, "track0.name", {kEditSearch});
        row("Edit: right of a track, left of ZmAu", ProToolsDesktop::editWindow({4, {}, 0, 400}), "scrollBar",
            {500, 140}, "window", {kEditSearch});
        row("Edit: on ZmAu", edit, "scrollBar", {610, 60}, "ZmAu", {kEditSearch});
        row("Edit: on the ruler", edit, "scrollBar", {100, 40}, "rpct", {kEditSearch});
        row("Edit: below the tracks", edit, "scrollBar", {100, 295}, "TGrw", {kEditSearch});
        row("CHdr first, LHdr last",
            changed(edit, [](Window& window) { window.tracks.first().identifier = "CHdr"; }), "scrollBar",
            {300, 200}, "track2.fader", {kEditSearch});
        row("LHdr first, CHdr last",
            changed(edit, [](Window& window) { window.tracks.last().identifier = "CHdr"; }), "scrollBar",
            {300, 200}, "track2.fader",
            {kMixSearch,
             "Note: did not find key UI elements, cannot do intelligent search of Pro Tools Mix window"});
        row("Edit: no ZmAu", changed(edit, without("ZmAu")), "scrollBar", {300, 200}, "track2.fader",
            {kEditSearch,
             "Note: did not find key UI elements, cannot do intelligent search of Pro Tools Edit window"});
        row("Edit: ZmAu between tracks",
            changed(edit, [](Window& window) { window.tracks.insert(2, window.take("ZmAu")); }), "scrollBar",
            {300, 200}, "track2.fader",
            {kEditSearch,
             "Note: did not find key UI elements, cannot do intelligent search of Pro Tools Edit window"});
        row("Edit: ruler without rectangle", changed(edit, noFrame("rpct")), "scrollBar", {300, 200},
            "track2.fader",
            {kEditSearch, "Error: elements of Pro Tools Edit window unexpected had null rects"});
        row("Edit: one track as the last child",
            changed(ProToolsDesktop::editWindow({1, {}, 0, 0}),
                    [](Window& window) {
                        window.head.append(window.take("TGrw"));
                        window.head.append(window.take("ZmAu"));
                        window.take("scrollBar");
                    }),
            "toolbar", {300, 80}, "track0.fader",
            {kEditSearch,
             "Note: have no start track or end track indices, cannot do intelligent search of Edit window"});

        // Other windows.
        row("no tracks recognised",
            changed(mix,
                    [](Window& window) {
                        for (ProToolsDesktop::Element& track : window.tracks)
                            track.identifier = QJsonValue::Undefined;
                    }),
            "scrollBar", {250, 300}, "track2.fader", {});
        row("window without children",
            changed(mix,
                    [](Window& window) {
                        window.head.clear();
                        window.tracks.clear();
                        window.tail.clear();
                    }),
            "window", {100, 100}, "window", {});
        row("not in a window", mix, "proTools", {250, 300}, "", {"Error: Pro Tools window is null?"});
    }

    void searchesWindows() {
        QFETCH(Window, window);
        QFETCH(QString, from);
        QFETCH(QPoint, point);
        QVERIFY(load(window));
        QStringList log;
        QTEST(search(from, point, &log), "found");
        QTEST(log, "log");
    }

    // Only the tracks at the ends and a handful of probes are read, each once per event, so the
    // reads do not grow with the number of tracks.
    void searchesManyTracksWithFewReads_data() {
        QTest::addColumn<bool>("mix");
        QTest::addColumn<int>("trackCount");
        for (const int count : {8, 64, 512, 4096}) {
            QTest::addRow("Mix, %d tracks", count) << true << count;
            QTest::addRow("Edit, %d tracks", count) << false << count;
        }
    }

    void searchesManyTracksWithFewReads() {
        QFETCH(bool, mix);
        QFETCH(int, trackCount);
        const Options options{trackCount, {40, 90, 60, 120, 75}, 0, 0};
        const Window window =
            mix ? ProToolsDesktop::mixWindow(options) : ProToolsDesktop::editWindow(options);
        const int target = trackCount * 2 / 3;
        // On the fader, which begins half way across a track.
        const QRect track = *window.tracks.at(target).frame;
        const QPoint point = mix ? QPoint(track.center().x(), 300) : QPoint(400, track.center().y());
        QVERIFY(load(window));

        QString found;
        const quint64 reads = readsOf([&] { found = search("scrollBar", point); });
        QCOMPARE(found, QString("track%1.fader").arg(target));
        QVERIFY2(reads < 64, qPrintable(QString::number(reads)));
        // Again in the same event only what taught nothing is read: the fader's missing identifier.
        QCOMPARE(readsOf([&] { search("scrollBar", point); }), quint64(1));
        finishEventLoopPass();
        QCOMPARE(readsOf([&] { search("scrollBar", point); }), reads);
    }
};

UIET_TEST_MAIN(tst_osxProToolsUtils)
#include "tst_osxProToolsUtils.moc"
