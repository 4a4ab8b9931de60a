#include "platformTestSupport.h"

#include "UIElement_p.h"
#include "applicationRulesDesktop.h"
#include "logCapture.h"
#include "osxUIElementUtils.h"

#include <QRegularExpression>

// The Pro Tools windows have the tracks "Kick 1", "Snare", "Kick - 1" and "Vocal" (track0 to
// track3, titled "<name> - Audio Track") and the track list with one row per track
// (trackList.row0 to trackList.row3, "AXIndex" 0 to 3), of which the Snare row is selected.

namespace {

using ArrayRef = CFTypeSmartRef<CFArrayRef>;
using ApplicationRulesDesktop::find;
using ApplicationRulesDesktop::logicDesktop;
using ApplicationRulesDesktop::proToolsWindow;
using ApplicationRulesDesktop::selectRows;
using ApplicationRulesDesktop::trackList;
using ProToolsDesktop::Window;
using ProToolsDesktop::WindowKind;
// Not the platform's Element.
using FixtureElement = ProToolsDesktop::Element;

struct LogLine {
    QtMsgType type;
    QString text;
};

LogLine debugLine(const QString& text) {
    return {QtDebugMsg, text};
}

LogLine warningLine(const QString& text) {
    return {QtWarningMsg, text};
}

const QString kUnfitTitle = "Error: track group title does not contains unexpected pattern: ";
const QString kEmptyCell = "Error: table row for selected pro tools track has no cells";
const QString kNoButton =
    "Error: table row for selected pro tools track has no button in its visibility cell";
const QString kUnfitButton =
    "Error: table row for selected Pro Tools track has unexpected text in its visibility button: ";
const QString kUnreadableRows =
    "Pro Tools UI element error: unable to read selected rows attribute from track table";
const QString kNoGroup = "Pro Tools UI element error: no matching track group for track name: ";

const QStringList kTracks{"Kick 1", "Snare", "Kick - 1", "Vocal"};

Window editWindow(const std::function<void(Window&)>& change = {}) {
    Window window = proToolsWindow(WindowKind::Edit, kTracks, 1);
    if (change)
        change(window);
    return window;
}

FixtureElement& trackListOf(Window& window) {
    return *window.child("trackList");
}

FixtureElement& rowElement(Window& window, const QString& id) {
    return *find(trackListOf(window), id);
}

void breakSelectedRows(Window& window) {
    trackListOf(window).faults["attributes"] = QJsonObject{{"AXSelectedRows", "kAXErrorCannotComplete"}};
}

} // namespace

Q_DECLARE_METATYPE(Window)
Q_DECLARE_METATYPE(LogLine)

class tst_applicationRules : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    // The rules read nothing of the description they belong to.
    const UIElement_p rules;
    QStringList descended;

    bool load(const QJsonObject& fixture) {
        return installDesktop([&](VirtualDesktop& each) { return each.load(fixture); });
    }

    ArrayRef childrenOf(const QString& id) const {
        const CFTypeSmartRef<AXUIElementRef> parent(desktop->copyElement(id));
        return ArrayRef(copyUIElementChildren(parent));
    }

    // The callback of the walk: notes the child it is given, and answers it retained when the rest
    // of the chain is found below it, else null.
    std::function<AXUIElementRef(AXUIElementRef)> descendFinding(bool finds) {
        descended.clear();
        return [this, finds](AXUIElementRef child) -> AXUIElementRef {
            descended.append(idOf(child));
            return finds ? retained(child) : nullptr;
        };
    }

    // Runs the work. The expected lines must come, each at its level, and no other warning; where
    // none is expected the answer holds every line written, for the caller to find it empty.
    static QStringList linesOf(const QList<LogLine>& expected, const std::function<void()>& work) {
        if (expected.isEmpty())
            return logOf(work);
        for (const LogLine& line : expected)
            QTest::ignoreMessage(line.type, line.text.toUtf8().constData());
        QTest::failOnWarning(QRegularExpression(".*"));
        work();
        return QStringList();
    }

    QString selectTrackGroup(const QList<LogLine>& log, bool finds, bool* abort = nullptr) {
        const ArrayRef children = childrenOf("window");
        QString found;
        const QStringList lines = linesOf(log, [&] {
            found = idOfCopy(rules.selectProToolsSelectedInstrumentGroup(descendFinding(finds), children,
                                                                         nullptr, {}, abort));
        });
        if (!lines.isEmpty())
            return "logged: " + lines.join(" | ");
        return found;
    }

private slots:
    // The set of free slot descriptions lives as long as the process: it is made here, before any
    // test counts the live objects.
    void initTestCase() {
        QVERIFY(load(logicDesktop({"EQ"})));
        {
            const ArrayRef slotList = childrenOf("strip");
            QVERIFY(!rules.selectLogicProNextEmptyPluginSlot(descendFinding(true), slotList, nullptr));
        }
        setAccessibilityProviderForTesting(nullptr);
        desktop.reset();
    }

    void cleanup() {
        if (desktop)
            uninstallDesktopAndCheckReferences();
    }

    void selectsGroupOfSelectedTrack_data() {
        QTest::addColumn<Window>("window");
        QTest::addColumn<bool>("finds");
        QTest::addColumn<QString>("group"); // the child given to descend, and the result; empty: none
        QTest::addColumn<QList<LogLine>>("log");
        const auto row = [](const char* name, const Window& window, const QString& group,
                            const QList<LogLine>& log = {},
                            bool finds = true) { QTest::newRow(name) << window << finds << group << log; };
        const auto withTrackIdentifiers = [](const QString& tracks, const QString& table) {
            return editWindow([&](Window& window) {
                for (FixtureElement& track : window.tracks)
                    track.identifier = tracks;
                trackListOf(window).identifier = table;
            });
        };
        const auto withButtonValue = [](const QString& value) {
            return editWindow([&](Window& window) {
                rowElement(window, "trackList.row1.button").attributes["AXValue"] = value;
            });
        };
        // The selected row, whose first child is its visibility cell.
        const auto withSelectedRow = [](const std::function<void(FixtureElement & row)>& change) {
            return editWindow([&](Window& window) { change(rowElement(window, "trackList.row1")); });
        };
        // A second visibility cell behind the name cell, with a button that names the track.
        const auto secondVisibilityCell = [](FixtureElement& row) {
            FixtureElement cell = row.children[0];
            cell.id += "2";
            cell.identifier = "1399343204:CELL:0:1b";
            cell.children[0].id += "2";
            row.children.append(cell);
        };

        row("Edit window", editWindow(), "track1");
        row("Mix window", proToolsWindow(WindowKind::Mix, kTracks, 1), "track1");
        row("decimal Edit identifiers", withTrackIdentifiers("1279812722", "1399343204"), "track1");
        row("decimal Mix identifiers", withTrackIdentifiers("1128817778", "1399343204"), "track1");
        row("identifier as a number",
            editWindow([](Window& window) { window.tracks[1].identifier = 1279812722; }), "track1");
        row("name with a spaced hyphen",
            editWindow([](Window& window) { selectRows(trackListOf(window), {"trackList.row2"}); }),
            "track2");
        row("hyphen in the last part of the title", editWindow([](Window& window) {
                window.tracks[1].attributes["AXTitle"] = "Snare-1 - Audio-Track";
                rowElement(window, "trackList.row1.button").attributes["AXValue"] = "Track: Snare-1";
            }),
            "", {debugLine(kUnfitTitle + "Snare-1 - Audio-Track"), warningLine(kNoGroup + "Snare-1")});
        row("untitled track group",
            editWindow([](Window& window) { window.tracks[0].attributes.remove("AXTitle"); }), "track1",
            {debugLine(kUnfitTitle)});
        row("lowest index of several selected rows", editWindow([](Window& window) {
                selectRows(trackListOf(window), {"trackList.row1", "trackList.row3", "trackList.row2"});
                rowElement(window, "trackList.row3").attributes["AXIndex"] = 0;
            }),
            "track3");
        row("equal indices: the first selected row", editWindow([](Window& window) {
                selectRows(trackListOf(window), {"trackList.row2", "trackList.row1"});
                rowElement(window, "trackList.row1").attributes["AXIndex"] = 2;
            }),
            "track2");
        row("no row selected", editWindow([](Window& window) { selectRows(trackListOf(window), {}); }), "");
        row("selected rows unreadable", editWindow(breakSelectedRows), "", {warningLine(kUnreadableRows)});
        row("no selected rows",
            editWindow([](Window& window) { trackListOf(window).attributes.remove("AXSelectedRows"); }), "",
            {warningLine(kUnreadableRows)});
        row("selected rows not a list", editWindow([](Window& window) {
                trackListOf(window).attributes["AXSelectedRows"] = QJsonObject{{"element", "trackList.row1"}};
            }),
            "", {warningLine(kUnreadableRows)});
        row("button text without a word before the name", withButtonValue("Snare"), "",
            {debugLine(kUnfitButton + "Snare")});
        row("button text without a blank", withButtonValue("Track:Snare"), "",
            {debugLine(kUnfitButton + "Track:Snare")});
        const Window twoSnares =
            editWindow([](Window& window) { window.tracks[3].attributes["AXTitle"] = "Snare - MIDI Track"; });
        row("two groups of one name: the later", twoSnares, "track3");
        row("a group that leads nowhere is final", twoSnares, "track3", {}, false);
        row("selected track without a group", withButtonValue("Track: Guitar"), "",
            {warningLine(kNoGroup + "Guitar")});
        row("no track list", editWindow([](Window& window) { window.head.removeAt(1); }), "");
        row("later track list wins",
            editWindow([](Window& window) { window.tail.append(trackList("otherList", kTracks, 3)); }),
            "track3");
        // The track list isn't even read: its broken attribute goes unreported.
        row("no track groups", editWindow([](Window& window) {
                for (FixtureElement& track : window.tracks)
                    track.identifier = "FXTD";
                breakSelectedRows(window);
            }),
            "");
        row("empty visibility cell, then a full one", withSelectedRow([&](FixtureElement& row) {
                secondVisibilityCell(row);
                row.children[0].children.clear();
            }),
            "track1", {debugLine(kEmptyCell)});
        row("empty visibility cell only",
            withSelectedRow([](FixtureElement& row) { row.children[0].children.clear(); }), "",
            {debugLine(kEmptyCell), debugLine(kNoButton)});
        row("visibility cell without a button ends the search", withSelectedRow([&](FixtureElement& row) {
                secondVisibilityCell(row);
                row.children[0].children[0].role = "AXImage";
            }),
            "", {debugLine(kNoButton)});
        row("button behind other children", withSelectedRow([](FixtureElement& row) {
                row.children[0].children.prepend(
                    ProToolsDesktop::element("icon", "AXImage", QJsonValue::Undefined, std::nullopt));
            }),
            "track1");
        row("cell identifier in code spelling",
            withSelectedRow([](FixtureElement& row) { row.children[0].identifier = "ShHd:CELL:0:1"; }), "",
            {debugLine(kNoButton)});
        row("cell identifier in other case",
            withSelectedRow([](FixtureElement& row) { row.children[0].identifier = "1399343204:cell:0:1"; }),
            "", {debugLine(kNoButton)});
    }

    void selectsGroupOfSelectedTrack() {
        QFETCH(Window, window);
        QFETCH(bool, finds);
        QFETCH(QString, group);
        QFETCH(QList<LogLine>, log);
        QVERIFY(load(ProToolsDesktop::desktop(window)));
        const QString found = selectTrackGroup(log, finds);
        QCOMPARE(found, finds ? group : QString());
        QCOMPARE(descended, group.isEmpty() ? QStringList() : QStringList{group});
    }

    // The flag is read once the track groups are known and before the track list is.
    void proToolsAbortStopsBeforeTrackList_data() {
        QTest::addColumn<bool>("hasFlag");
        QTest::addColumn<bool>("flag");
        QTest::newRow("no flag") << false << false;
        QTest::newRow("flag clear") << true << false;
        QTest::newRow("flag set") << true << true;
    }

    void proToolsAbortStopsBeforeTrackList() {
        QFETCH(bool, hasFlag);
        QFETCH(bool, flag);
        QVERIFY(load(ProToolsDesktop::desktop(editWindow(breakSelectedRows))));
        bool abort = flag;
        QList<LogLine> log;
        if (!flag)
            log.append(warningLine(kUnreadableRows));
        QCOMPARE(selectTrackGroup(log, true, hasFlag ? &abort : nullptr), QString());
        QCOMPARE(descended, QStringList());
    }

    void selectsLastEmptyPluginSlot_data() {
        QTest::addColumn<QList<QJsonValue>>("descriptions");
        QTest::addColumn<bool>("finds");
        QTest::addColumn<QString>("slot"); // the child given to descend, and the result; empty: none
        const QJsonValue none = QJsonValue::Undefined;
        QTest::newRow("two free slots before EQ")
            << QList<QJsonValue>{"audio plug-in", "audio plug-in", "EQ"} << true << "slot1";
        for (const char* text : {"audio plug-in", "Audio-Plug-In", "module audio", "módulo de audio",
                                 "オーディオプラグイン", "音频插件", "Audio-Plug-in"}) {
            QTest::newRow(text) << QList<QJsonValue>{"EQ", QString::fromUtf8(text), "Compressor"} << true
                                << "slot1";
        }
        QTest::newRow("written with blanks") << QList<QJsonValue>{"Audio Plug-In"} << true << "";
        QTest::newRow("other case") << QList<QJsonValue>{"Audio plug-in"} << true << "";
        QTest::newRow("trailing blank") << QList<QJsonValue>{"audio plug-in "} << true << "";
        QTest::newRow("number") << QList<QJsonValue>{"audio plug-in", 7} << true << "slot0";
        QTest::newRow("null value") << QList<QJsonValue>{"audio plug-in", QJsonValue::Null} << true
                                    << "slot0";
        QTest::newRow("list holding the text")
            << QList<QJsonValue>{"audio plug-in", QJsonArray{"audio plug-in"}} << true << "slot0";
        QTest::newRow("no description") << QList<QJsonValue>{"audio plug-in", none} << true << "slot0";
        QTest::newRow("no free slot") << QList<QJsonValue>{"EQ", "Compressor"} << true << "";
        QTest::newRow("no slots") << QList<QJsonValue>{} << true << "";
        QTest::newRow("a free slot that leads nowhere is final")
            << QList<QJsonValue>{"audio plug-in", "audio plug-in"} << false << "slot1";
    }

    void selectsLastEmptyPluginSlot() {
        QFETCH(QList<QJsonValue>, descriptions);
        QFETCH(bool, finds);
        QFETCH(QString, slot);
        QVERIFY(load(logicDesktop(descriptions)));
        const ArrayRef slotList = childrenOf("strip");
        QString found;
        QCOMPARE(logOf([&] {
                     found = idOfCopy(
                         rules.selectLogicProNextEmptyPluginSlot(descendFinding(finds), slotList, nullptr));
                 }),
                 QStringList());
        QCOMPARE(found, finds ? slot : QString());
        QCOMPARE(descended, slot.isEmpty() ? QStringList() : QStringList{slot});
    }

    // A set flag ends the walk before the first slot is read.
    void logicAbortStopsBeforeFirstRead() {
        QVERIFY(load(logicDesktop({"audio plug-in", "EQ"})));
        const ArrayRef slotList = childrenOf("strip");
        bool abort = true;
        const quint64 reads = platformCallCount(PlatformCall::AXUIElementCopyAttributeValue);
        QVERIFY(!rules.selectLogicProNextEmptyPluginSlot(descendFinding(true), slotList, &abort));
        QCOMPARE(platformCallCount(PlatformCall::AXUIElementCopyAttributeValue), reads);
        QCOMPARE(descended, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_applicationRules)
#include "tst_applicationRules.moc"
