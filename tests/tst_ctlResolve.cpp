// ui-element-ctl resolve run as a person or a script runs it: descriptions captured with
// ui-element-ctl capture on a virtual desktop are resolved again, on the same desktop, on one
// without their application, and, for a description whose chain breaks below its application,
// through the hint position.

#include "UIElement.h"
#include "ax/PlatformCallCounters.h"
#include "ctlProcess.h"
#include "dataObjectSerialization.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString basicDesktop = QStringLiteral(UIET_FIXTURES_DIR "/desktop-basic.json");
const QString mixerDesktop = QStringLiteral(UIET_FIXTURES_DIR "/capture-desktop.json");

// Captures the element at point on desktop into a file named name; its path.
QString capture(const QString& desktop, const QString& point, const QString& name, int status = 0) {
    const QString path = tempPath(name);
    const CtlRun run = runCtl({"capture", "--desktop", desktop, point, path});
    if (run.status != status)
        qFatal("capture at %s: status %d, %s", qPrintable(point), run.status, qPrintable(run.errors));
    return path;
}

// A window holding a group that lists no children although it has some, as applications do:
// "Stray" is found by hit testing, and its ancestors cannot all be verified from the top. Beside it,
// "Lost" cannot tell its parent, and "Loop" has a parent whose parent is "Loop".
const QByteArray strayDesktop(R"({"screens": [{"frame": {"x": 0, "y": 0, "width": 1000, "height": 800}}],
 "applications": [{"pid": 10, "name": "Editor", "bundleId": "com.example.editor", "windows": [
  {"windowId": 1, "title": "Document", "frame": {"x": 0, "y": 0, "width": 400, "height": 300}, "children": [
   {"role": "AXGroup", "frame": {"x": 10, "y": 10, "width": 300, "height": 200},
    "attributes": {"AXChildren": []}, "children": [
     {"role": "AXGroup", "frame": {"x": 20, "y": 20, "width": 200, "height": 100}, "children": [
      {"role": "AXButton", "title": "Stray", "frame": {"x": 30, "y": 30, "width": 50, "height": 20}}]}]},
   {"role": "AXButton", "title": "Lost", "frame": {"x": 230, "y": 230, "width": 50, "height": 20},
    "faults": {"attributes": {"AXParent": "kAXErrorCannotComplete"}}},
   {"id": "loop", "role": "AXButton", "title": "Loop", "frame": {"x": 330, "y": 230, "width": 50, "height": 20},
    "attributes": {"AXParent": {"element": "loopParent"}}},
   {"id": "loopParent", "role": "AXGroup", "attributes": {"AXParent": {"element": "loop"}}}]}]}]})");

QStringList rolesOf(const QJsonArray& chain) {
    QStringList roles;
    for (const QJsonValue& element : chain)
        roles << element["role"].toString();
    return roles;
}

// Only functions that were called, each a platform function.
bool onlyCalledFunctions(const QJsonObject& calls) {
    for (auto it = calls.begin(); it != calls.end(); ++it)
        if (it.value().toInt() <= 0 || !platformCallNamed(it.key()))
            return false;
    return true;
}

} // namespace

class tst_ctlResolve : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The files that more than one test reads.
    void initTestCase() {
        capture(basicDesktop, "140,148", "saved.ini");
        capture(basicDesktop, "5000,5000", "null.ini", 1);
        writeFileContent(tempPath("empty.ini"), QByteArray());
        writeFileContent(tempPath("stray.json"), strayDesktop);
        capture(tempPath("stray.json"), "40,35", "stray.ini");
    }

    void resolvesWhatWasCaptured_data() {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("point");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("roles");
        const QStringList toolbarButton{"AXApplication", "AXWindow", "AXToolbar", "AXButton"};
        const QStringList stripButton{"AXApplication", "AXWindow", "AXGroup", "AXButton"};
        QTest::newRow("button in a toolbar") << basicDesktop << "140,148" << QStringList() << toolbarButton;
        QTest::newRow("button of the window in front")
            << basicDesktop << "750,510" << QStringList()
            << QStringList{"AXApplication", "AXWindow", "AXButton"};
        QTest::newRow("first of two buttons") << mixerDesktop << "125,155" << QStringList() << stripButton;
        QTest::newRow("second of two buttons") << mixerDesktop << "195,155" << QStringList() << stripButton;
        QTest::newRow("with translations")
            << basicDesktop << "140,148" << QStringList{"--translations"} << toolbarButton;
    }
    void resolvesWhatWasCaptured() {
        QFETCH(QString, desktop);
        QFETCH(QString, point);
        QFETCH(QStringList, options);
        QFETCH(QStringList, roles);
        const QString path = capture(desktop, point, "captured.ini");
        UIElementCollection saved;
        deserializeObjectFromByteArray(&saved, fileContent(path));
        const UIElement_p* leaf = saved.elements().value(0)->platformSpecificEntity();

        const CtlRun run =
            runCtl(QStringList{"resolve", "--json", "--desktop", desktop, "--repeat", "3", path} + options);
        QCOMPARE(run.status, 0);
        const QJsonObject answer = run.json();
        QCOMPARE(answer["codeName"].toString(), QString("UIElementFound"));
        const QJsonObject element = answer["element"].toObject();
        QCOMPARE(element["role"].toString(), leaf->role());
        QCOMPARE(element["title"].toString(), leaf->title());
        const QJsonObject frame = element["frame"].toObject();
        QCOMPARE(
            QRect(frame["x"].toInt(), frame["y"].toInt(), frame["width"].toInt(), frame["height"].toInt()),
            leaf->screenRect());
        QCOMPARE(rolesOf(answer["chain"].toArray()), roles);
        QCOMPARE(answer["chainEnd"].toString(), QString("application"));
        QCOMPARE(answer["translations"].toBool(), !options.isEmpty());
        // The walk starts at the application and reads attributes down the chain.
        const QJsonObject calls = answer["platformCalls"].toObject();
        QVERIFY(onlyCalledFunctions(calls));
        QVERIFY(calls["AXUIElementCreateApplication"].toInt() > 0);
        QVERIFY(calls["AXUIElementCopyAttributeValue"].toInt() > 0);
        // A resolution keeps nothing between calls: every run does the same.
        QCOMPARE(answer["runs"].toInt(), 3);
        QCOMPARE(answer["codeCounts"].toObject(), (QJsonObject{{"0", 3}}));
        QVERIFY(!answer["codesDiffered"].toBool() && !answer["callsDiffered"].toBool());
        const QJsonObject time = answer["timeMs"].toObject();
        QVERIFY(time["min"].toDouble() <= time["median"].toDouble());
        QVERIFY(time["median"].toDouble() <= time["max"].toDouble());

        const CtlRun text = runCtl(QStringList{"resolve", "--desktop", desktop, path} + options);
        QCOMPARE(text.status, 0);
        QVERIFY2(text.output.startsWith(QStringLiteral("code 0 UIElementFound\nelement: %1 \"%2\" ")
                                            .arg(leaf->role(), leaf->title())),
                 qPrintable(text.output));
        QVERIFY(text.output.contains("\nplatform calls:\n  AXUIElementCopyAttributeNames "));
        QVERIFY(text.output.contains(QRegularExpression("\ntime: \\d+\\.\\d{3} ms\n")));
        QVERIFY(text.errors.isEmpty());
    }

    void resolvesALevel_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("title");
        QTest::newRow("the application") << 0 << "AXApplication"
                                         << "Editor";
        QTest::newRow("the window") << 1 << "AXWindow"
                                    << "Untitled";
        QTest::newRow("the element") << 3 << "AXButton"
                                     << "Save";
    }
    void resolvesALevel() {
        QFETCH(int, level);
        QFETCH(QString, role);
        QFETCH(QString, title);
        const CtlRun run = runCtl({"resolve", "--json", "--desktop", basicDesktop, "--level",
                                   QString::number(level), tempPath("saved.ini")});
        QCOMPARE(run.status, 0);
        const QJsonObject answer = run.json();
        QCOMPARE(answer["level"].toInt(), level);
        QCOMPARE(answer["described"]["role"].toString(), role);
        QCOMPARE(answer["element"]["role"].toString(), role);
        QCOMPARE(answer["element"]["title"].toString(), title);
        QCOMPARE(answer["chain"].toArray().size(), level + 1);
    }

    void notFound_data() {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("renameApplication"); // the file's bundle id names none that runs
        QTest::newRow("another desktop") << mixerDesktop << QStringList() << false;
        QTest::newRow("another desktop, level 0") << mixerDesktop << QStringList{"--level", "0"} << false;
        QTest::newRow("bundle id edited") << basicDesktop << QStringList() << true;
        QTest::newRow("bundle id edited, with a hint")
            << basicDesktop << QStringList{"--hint", "140,148"} << true;
    }
    void notFound() {
        QFETCH(QString, desktop);
        QFETCH(QStringList, options);
        QFETCH(bool, renameApplication);
        const QString path = capture(basicDesktop, "140,148", "gone.ini");
        if (renameApplication)
            writeFileContent(path, fileContent(path).replace("com.example.editor", "com.example.gone"));
        const CtlRun run = runCtl(QStringList{"resolve", "--json", "--desktop", desktop, path} + options);
        QCOMPARE(run.status, 1);
        QCOMPARE(run.errors, QString("ui-element-ctl: %1 was not resolved: 1 UIElementNotFound\n").arg(path));
        const QJsonObject answer = run.json();
        QCOMPARE(answer["code"].toInt(), 1);
        QCOMPARE(answer["codeName"].toString(), QString("UIElementNotFound"));
        QVERIFY(answer["element"].isNull());
        QVERIFY(answer["chain"].toArray().isEmpty());
        QVERIFY(onlyCalledFunctions(answer["platformCalls"].toObject()));
    }

    // The chain of "Stray" stops below its application, so only the hint position finds it: the
    // element there, or the one an offset of 24 away, when the hit's farthest ancestor isn't rooted.
    void degenerateThroughTheHint_data() {
        QTest::addColumn<QStringList>("hint");
        QTest::addColumn<int>("status");
        QTest::newRow("no hint") << QStringList() << 1;
        QTest::newRow("on the element") << QStringList{"--hint", "40,35"} << 0;
        QTest::newRow("24 above the element") << QStringList{"--hint", "40,11"} << 0;
        QTest::newRow("far from the element") << QStringList{"--hint", "600,600"} << 1;
    }
    void degenerateThroughTheHint() {
        QFETCH(QStringList, hint);
        QFETCH(int, status);
        const CtlRun run = runCtl(
            QStringList{"resolve", "--json", "--desktop", tempPath("stray.json"), tempPath("stray.ini")} +
            hint);
        QCOMPARE(run.status, status);
        const QJsonObject answer = run.json();
        QCOMPARE(answer["code"].toInt(), status);
        QCOMPARE(answer["element"]["title"].toString(), status == 0 ? QString("Stray") : QString());
        const QJsonObject calls = answer["platformCalls"].toObject();
        QVERIFY(onlyCalledFunctions(calls));
        // Without a hint nothing is asked: the top of the chain is no application.
        QCOMPARE(calls["AXUIElementCopyElementAtPosition"].toInt() > 0, !hint.isEmpty());
        if (hint.isEmpty())
            QVERIFY(calls.isEmpty());
    }

    // The climb from the element found stops where the live hierarchy breaks.
    void chainEnds_data() {
        QTest::addColumn<QString>("point");
        QTest::addColumn<QString>("chainEnd");
        QTest::addColumn<int>("length");
        QTest::newRow("parent unreadable") << "240,240"
                                           << "noParent" << 1;
        QTest::newRow("parents in a cycle") << "340,240"
                                            << "cut" << 1000;
    }
    void chainEnds() {
        QFETCH(QString, point);
        QFETCH(QString, chainEnd);
        QFETCH(int, length);
        const QString desktop = tempPath("stray.json");
        const CtlRun run =
            runCtl({"resolve", "--json", "--desktop", desktop, capture(desktop, point, "ends.ini")});
        QCOMPARE(run.status, 0);
        QCOMPARE(run.json()["chainEnd"].toString(), chainEnd);
        QCOMPARE(run.json()["chain"].toArray().size(), length);
    }

    void badInput_data() {
        QTest::addColumn<QStringList>("arguments"); // @ stands for the directory of the files
        QTest::addColumn<QString>("message");
        const QString saved = "@/saved.ini";
        QTest::newRow("no file") << QStringList{} << "usage: ui-element-ctl";
        QTest::newRow("unknown option") << QStringList{"--fast", saved} << "usage: ui-element-ctl";
        QTest::newRow("missing file") << QStringList{"@/missing.ini"} << "cannot read @/missing.ini: ";
        QTest::newRow("a directory") << QStringList{"@"} << "cannot read @: ";
        QTest::newRow("no collection in the file")
            << QStringList{basicDesktop} << " holds no UI element collection";
        QTest::newRow("an empty file")
            << QStringList{"@/empty.ini"} << "@/empty.ini holds no UI element collection";
        QTest::newRow("bad hint") << QStringList{"--hint", "12;4", saved}
                                  << "X,Y in screen coordinates, not '12;4'";
        QTest::newRow("hint without a point") << QStringList{saved, "--hint"} << "--hint needs a value";
        QTest::newRow("negative level")
            << QStringList{"--level", "-1", saved} << "from 0 (the top of the chain), not '-1'";
        QTest::newRow("level past the chain")
            << QStringList{"--level", "4", saved}
            << "@/saved.ini has no level 4; its chain has the levels 0 to 3";
        QTest::newRow("level of a null description")
            << QStringList{"--level", "0", "@/null.ini"} << "@/null.ini has no levels: it describes nothing";
        QTest::newRow("no resolution") << QStringList{"--repeat", "0", saved} << "from 1 to 100000, not '0'";
        QTest::newRow("too many resolutions") << QStringList{"--repeat", "100001", saved} << "not '100001'";
        QTest::newRow("no desktop file")
            << QStringList{"--desktop", "@/none.json", saved} << "no desktop file @/none.json";
    }
    void badInput() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const QString dir = QDir::tempPath();
        const CtlRun run =
            runCtl(QStringList{"resolve", "--desktop", basicDesktop} + arguments.replaceInStrings("@", dir));
        QCOMPARE(run.status, 2);
        QVERIFY2(run.errors.contains(message.replace("@", dir)), qPrintable(run.errors));
        QVERIFY(run.output.isEmpty());
    }
};

UIET_TEST_MAIN(tst_ctlResolve)
#include "tst_ctlResolve.moc"
