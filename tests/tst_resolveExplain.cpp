// ui-element-ctl resolve --explain run as a person runs it: descriptions captured from
// explain-desktop.json are resolved on explain-changed.json, where an identifier and a role were
// changed, on desktops without their application, and after editing; the deepest level and the
// reason expected follow from the fixtures and the matching rules.

#include "ctlProcess.h"
#include "testSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString originalDesktop = QStringLiteral(UIET_FIXTURES_DIR "/explain-desktop.json");
const QString changedDesktop = QStringLiteral(UIET_FIXTURES_DIR "/explain-changed.json");

// Points on explain-desktop.json.
const QString exportButton = QStringLiteral("40,40");  // level 3 under the toolbar, 4 levels
const QString secondWrap = QStringLiteral("250,120");  // in the second of three groups, 4 levels
const QString zoomSlider = QStringLiteral("100,230");  // a child of the window, 3 levels
const QString strayButton = QStringLiteral("330,280"); // below a group that lists no children

QString capture(const QString& desktop, const QString& point, const QString& name) {
    const QString path = tempPath(name);
    const CtlRun run = runCtl({"capture", "--desktop", desktop, point, path});
    if (run.status != 0)
        qFatal("capture at %s: status %d, %s", qPrintable(point), run.status, qPrintable(run.errors));
    return path;
}

// The explained walk of the only alternative.
QJsonObject walkOf(const QJsonObject& answer) {
    const QJsonArray walks = answer["explain"]["alternatives"].toArray();
    return walks.size() == 1 ? walks.first().toObject() : QJsonObject();
}

// The level visited at depth, following the first descent of each level from the first at the top.
QJsonObject firstVisitAt(const QJsonObject& walk, int level) {
    QJsonObject visit = walk["top"][0]["below"].toObject();
    while (!visit.isEmpty() && visit["level"].toInt() < level)
        visit = visit["descents"][0]["below"].toObject();
    return visit;
}

QList<int> triedChildren(const QJsonObject& visit) {
    QList<int> children;
    for (const QJsonValue& descent : visit["descents"].toArray())
        children << descent["child"].toInt();
    return children;
}

QStringList strings(const QJsonArray& array) {
    QStringList list;
    for (const QJsonValue& value : array)
        list << value.toString();
    return list;
}

// A toolbar of count buttons: each its own AXDOMIdentifier "b<n>"; the one at saved has the
// subrole "AXSaved", the others "AXOther".
QByteArray wideDesktop(int count, int saved, const QString& savedIdentifier) {
    QJsonArray buttons;
    for (int i = 0; i < count; ++i)
        buttons.append(QJsonObject{
            {"role", "AXButton"},
            {"frame", QJsonObject{{"x", 10 + 30 * i}, {"y", 30}, {"width", 25}, {"height", 20}}},
            {"attributes",
             QJsonObject{{"AXDOMIdentifier", i == saved ? savedIdentifier : QStringLiteral("b%1").arg(i)},
                         {"AXSubrole", i == saved ? "AXSaved" : "AXOther"}}}});
    const QJsonObject toolbar{{"role", "AXToolbar"},
                              {"frame", QJsonObject{{"x", 0}, {"y", 20}, {"width", 900}, {"height", 40}}},
                              {"children", buttons}};
    const QJsonObject window{{"windowId", 1},
                             {"title", "Wide"},
                             {"frame", QJsonObject{{"x", 0}, {"y", 0}, {"width", 900}, {"height", 300}}},
                             {"children", QJsonArray{toolbar}}};
    const QJsonObject application{
        {"pid", 20}, {"bundleId", "com.example.wide"}, {"name", "Wide"}, {"windows", QJsonArray{window}}};
    return QJsonDocument(
               QJsonObject{
                   {"screens",
                    QJsonArray{QJsonObject{
                        {"frame", QJsonObject{{"x", 0}, {"y", 0}, {"width", 1000}, {"height", 800}}}}}},
                   {"applications", QJsonArray{application}}})
        .toJson();
}

} // namespace

class tst_resolveExplain : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        capture(originalDesktop, exportButton, "export.ini");
        capture(originalDesktop, secondWrap, "wrap.ini");
        capture(originalDesktop, zoomSlider, "zoom.ini");
        capture(originalDesktop, strayButton, "stray.ini");
        writeFileContent(
            tempPath("gone.ini"),
            fileContent(tempPath("export.ini")).replace("com.example.exporter", "com.example.gone"));
        // Custom matching with a child index that no button has.
        const QString custom = tempPath("custom.ini");
        writeFileContent(custom, fileContent(tempPath("export.ini")));
        const CtlRun edit = runCtl({"edit", custom, "--matching", "custom", "--level", "3", "--defining",
                                    "AXRole,childIndex", "--set", "childIndex=5"});
        QCOMPARE(edit.status, 0);
    }

    // Each way a walk fails, the level where it ends and why.
    void whereTheWalkEnded_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("levels");
        QTest::addColumn<int>("deepest");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QStringList>("differs");   // the nearest candidate's
        QTest::addColumn<QList<int>>("triedAbove"); // children tried at the level above, in order
        QTest::newRow("application not running") << "gone.ini" << originalDesktop << QStringList() << 4 << 0
                                                 << "noApplication" << QStringList() << QList<int>();
        QTest::newRow("application not running, hint inside another one's window")
            << "gone.ini" << originalDesktop << QStringList{"--hint", "45,40"} << 4 << 0 << "noApplication"
            << QStringList() << QList<int>();
        // The export button's identifier changed; the print button differs in its description too.
        QTest::newRow("no candidate at a level")
            << "export.ini" << changedDesktop << QStringList() << 4 << 3 << "noChildMatched"
            << QStringList{"AXDOMIdentifier"} << QList<int>{0};
        // The slider became an incrementor: no child of the window has the role.
        QTest::newRow("no child of the role") << "zoom.ini" << changedDesktop << QStringList() << 3 << 2
                                              << "noChildOfRole" << QStringList() << QList<int>{0};
        // Three groups alike: the one at the saved role index first, then the rest in child order.
        QTest::newRow("candidates that all fail below")
            << "wrap.ini" << changedDesktop << QStringList() << 4 << 3 << "noChildMatched"
            << QStringList{"AXDOMIdentifier"} << QList<int>{2, 1, 4};
        QTest::newRow("a custom filter removes all") << "custom.ini" << originalDesktop << QStringList() << 4
                                                     << 3 << "filteredOut" << QStringList() << QList<int>{0};
        QTest::newRow("degenerate chain without a hint")
            << "stray.ini" << originalDesktop << QStringList() << 2 << 0 << "noHint" << QStringList()
            << QList<int>();
        QTest::newRow("degenerate chain, nothing at the hint")
            << "stray.ini" << originalDesktop << QStringList{"--hint", "900,700"} << 2 << 0
            << "hintFoundNothing" << QStringList() << QList<int>();
    }
    void whereTheWalkEnded() {
        QFETCH(QString, file);
        QFETCH(QString, desktop);
        QFETCH(QStringList, options);
        QFETCH(int, levels);
        QFETCH(int, deepest);
        QFETCH(QString, reason);
        QFETCH(QStringList, differs);
        QFETCH(QList<int>, triedAbove);
        const QString path = tempPath(file);
        const QStringList resolve = QStringList{"resolve", "--desktop", desktop, path} + options;

        const CtlRun run = runCtl(resolve + QStringList{"--explain", "--json", "--repeat", "2"});
        QCOMPARE(run.status, 1);
        const QJsonObject answer = run.json();
        const QJsonObject walk = walkOf(answer);
        QCOMPARE(walk["levels"].toInt(), levels);
        QCOMPARE(walk["found"].toBool(), false);
        QCOMPARE(walk["deepest"]["level"].toInt(), deepest);
        QCOMPARE(walk["deepest"]["reason"].toString(), reason);
        QCOMPARE(strings(walk["deepest"]["nearest"]["differs"].toArray()), differs);
        if (deepest > 0) {
            const QJsonObject above = firstVisitAt(walk, deepest - 1);
            QCOMPARE(triedChildren(above), triedAbove);
            for (const QJsonValue& descent : above["descents"].toArray())
                QVERIFY(!descent["found"].toBool());
        }

        // The same code and the same platform calls as without --explain, and the traced run calls
        // what the untraced second one calls.
        const CtlRun plain = runCtl(resolve + QStringList{"--json"});
        QCOMPARE(plain.status, run.status);
        QCOMPARE(plain.json()["code"], answer["code"]);
        QCOMPARE(plain.json()["platformCalls"], answer["platformCalls"]);
        QVERIFY(!answer["callsDiffered"].toBool());
        QVERIFY(!plain.json().contains("explain"));

        // The text says the same first.
        const CtlRun text = runCtl(resolve + QStringList{"--explain"});
        QVERIFY2(text.output.startsWith(QStringLiteral("explain: level %1 of %2, ").arg(deepest).arg(levels)),
                 qPrintable(text.output));
        QVERIFY(text.output.contains(QStringLiteral("\ncode 1 UIElementNotFound\n")));
    }

    // The broken attribute is named with its saved and its live value.
    void summaryNamesTheAttribute() {
        const CtlRun run =
            runCtl({"resolve", "--explain", "--desktop", changedDesktop, tempPath("export.ini")});
        QCOMPARE(run.status, 1);
        const QString first = run.output.section(QLatin1Char('\n'), 0, 0);
        QCOMPARE(first,
                 QStringLiteral("explain: level 3 of 4, AXButton \"Export\": no child of AXToolbar matched "
                                "AXDOMIdentifier \"export-document\"; nearest candidate, child 0 AXButton, "
                                "differs in AXDOMIdentifier (\"export-pdf\", saved \"export-document\")"));
    }

    void hintOffsets_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("hint");
        QTest::addColumn<QString>("outcome"); // of each of the six offsets
        QTest::newRow("nothing there") << "stray.ini"
                                       << "900,700"
                                       << "nothingThere";
        QTest::newRow("rooted in an application") << "gone.ini"
                                                  << "45,40"
                                                  << "rootedInApplication";
    }
    void hintOffsets() {
        QFETCH(QString, file);
        QFETCH(QString, hint);
        QFETCH(QString, outcome);
        const CtlRun run = runCtl(
            {"resolve", "--explain", "--json", "--desktop", originalDesktop, "--hint", hint, tempPath(file)});
        const QJsonArray top = walkOf(run.json())["top"].toArray();
        const QList<QPoint> offsets{{0, 0}, {0, 24}, {0, 64}, {0, -24}, {24, 0}, {-24, 0}};
        QCOMPARE(top.size(), offsets.size());
        for (qsizetype i = 0; i < top.size(); ++i) {
            QCOMPARE(top.at(i)["stage"].toString(), QString("hintPosition"));
            QCOMPARE(QPoint(top.at(i)["offset"]["x"].toInt(), top.at(i)["offset"]["y"].toInt()),
                     offsets.at(i));
            QCOMPARE(top.at(i)["outcome"].toString(), outcome);
        }
    }

    // Found: the path from the application down, each step with the stage that tried it.
    void foundShowsThePath() {
        const CtlRun run =
            runCtl({"resolve", "--explain", "--json", "--desktop", originalDesktop, tempPath("wrap.ini")});
        QCOMPARE(run.status, 0);
        const QJsonObject walk = walkOf(run.json());
        QVERIFY(walk["found"].toBool());
        QCOMPARE(walk["deepest"]["reason"].toString(), QString("found"));
        QCOMPARE(walk["deepest"]["level"].toInt(), 3);
        const QJsonArray path = walk["path"].toArray();
        QCOMPARE(path.size(), 4);
        QCOMPARE(path.at(0).toObject(), (QJsonObject{{"stage", "application"}, {"pid", 5100}}));
        QCOMPARE(path.at(1).toObject(), (QJsonObject{{"stage", "loneCandidate"}, {"child", 0}}));
        QCOMPARE(path.at(2).toObject(), (QJsonObject{{"stage", "roleIndex"}, {"child", 2}}));
        QCOMPARE(path.at(3).toObject(), (QJsonObject{{"stage", "loneCandidate"}, {"child", 0}}));
        // The stray button through the ancestor under the hint.
        const CtlRun stray = runCtl({"resolve", "--explain", "--json", "--desktop", originalDesktop, "--hint",
                                     "330,280", tempPath("stray.ini")});
        QCOMPARE(stray.status, 0);
        QCOMPARE(walkOf(stray.json())["path"][0].toObject(),
                 (QJsonObject{{"stage", "hintPosition"}, {"offset", QJsonObject{{"x", 0}, {"y", 0}}}}));
    }

    // A wide level lists a fixed number of candidates and counts the rest; the nearest one is named
    // even when it is not listed.
    void wideLevelIsBounded() {
        const int count = 25, saved = 20;
        writeFileContent(tempPath("wide.json"), wideDesktop(count, saved, "b20"));
        writeFileContent(tempPath("wide-changed.json"), wideDesktop(count, saved, "b20-renamed"));
        const QString path =
            capture(tempPath("wide.json"), QStringLiteral("%1,40").arg(10 + 30 * saved + 5), "wide.ini");
        const CtlRun run =
            runCtl({"resolve", "--explain", "--json", "--desktop", tempPath("wide-changed.json"), path});
        QCOMPARE(run.status, 1);
        const QJsonObject walk = walkOf(run.json());
        const QJsonObject toolbar = firstVisitAt(walk, 3);
        QCOMPARE(toolbar["children"].toInt(), count);
        const int listed = run.json()["explain"].toObject()["listedPerLevel"].toInt();
        QVERIFY(listed > 0 && listed < count);
        QCOMPARE(toolbar["candidates"].toArray().size(), listed);
        QCOMPARE(toolbar["candidates"].toArray().size() + toolbar["candidatesNotListed"].toInt(), count);
        QCOMPARE(walk["deepest"]["nearest"]["child"].toInt(), saved);
        QCOMPARE(strings(walk["deepest"]["nearest"]["differs"].toArray()), QStringList{"AXDOMIdentifier"});
    }

    void explainWithALevel() {
        const CtlRun run = runCtl({"resolve", "--explain", "--json", "--desktop", changedDesktop, "--level",
                                   "2", tempPath("export.ini")});
        QCOMPARE(run.status, 0);
        const QJsonObject walk = walkOf(run.json());
        QCOMPARE(walk["levels"].toInt(), 3);
        QCOMPARE(walk["deepest"]["reason"].toString(), QString("found"));
    }
};

UIET_TEST_MAIN(tst_resolveExplain)
#include "tst_resolveExplain.moc"
