// ui-element-ctl's window and focus verbs, run as a person or a script runs them, on the example
// virtual desktop: the Editor's document window (201) lies behind its Inspector (202), and the
// Files application has a window that only the window server knows (302).

#include "ctlProcess.h"
#include "testSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString desktop = QStringLiteral(UIET_FIXTURES_DIR "/desktop-basic.json");

const QString editor = QStringLiteral("application: \"Editor\" com.example.editor pid 4101\n");

// A desktop whose applications answer the platform's hit test badly: "Coarse" with an error, so
// that only the search finds its button, and "Busy" not at all.
QString writeHitTestDesktop() {
    const auto frame = [](int x, int y, int width, int height) {
        return QJsonObject{{"x", x}, {"y", y}, {"width", width}, {"height", height}};
    };
    const QJsonObject button{{"role", "AXButton"}, {"title", "Deep"}, {"frame", frame(20, 20, 40, 20)}};
    const QJsonObject coarse{
        {"pid", 5101},
        {"name", "Coarse"},
        {"faults", QJsonObject{{"calls", QJsonObject{{"AXUIElementCopyElementAtPosition",
                                                      "kAXErrorAttributeUnsupported"}}}}},
        {"windows", QJsonArray{QJsonObject{{"windowId", 11},
                                           {"title", "Coarse"},
                                           {"frame", frame(0, 0, 200, 100)},
                                           {"children", QJsonArray{button}}}}}};
    const QJsonObject busy{
        {"pid", 5102},
        {"name", "Busy"},
        {"busy", QJsonObject{{"delayMs", 0}}},
        {"windows",
         QJsonArray{QJsonObject{{"windowId", 12}, {"title", "Busy"}, {"frame", frame(300, 0, 200, 100)}}}}};
    const QJsonObject desktop{{"applications", QJsonArray{coarse, busy}}};
    const QString path = QDir::temp().filePath("hit-test-desktop.json");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(desktop).toJson()) < 0)
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

} // namespace

class tst_ctlInspector : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void verbsAnswerAsText_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errors"); // a part of what is printed on the error channel
        const QString document = "window: AXWindow \"Untitled\" 100,100 800x600 id 201\n";
        const QString inspector = "window: AXWindow \"Inspector\" 700,150 300x400 id 202\n";
        QTest::newRow("window in the open")
            << QStringList{"window", "140,148"} << 0 << document + editor << "";
        QTest::newRow("window in front where two overlap")
            << QStringList{"window", "750,200"} << 0 << inspector + editor << "";
        // Fractions are cut toward zero, as every platform coordinate is.
        QTest::newRow("window at the last pixel of the front window")
            << QStringList{"window", "999.9,549.9"} << 0 << inspector + editor << "";
        QTest::newRow("window the accessibility tree does not know")
            << QStringList{"window", "1500,100"} << 1 << ""
            << "Note: normal method of finding window at point failed, using CGWindowID method";
        QTest::newRow("no window") << QStringList{"window", "-5,-5"} << 1 << ""
                                   << "no window at -5,-5";
        QTest::newRow("focused") << QStringList{"focused"} << 0
                                 << "element: AXTextField \"\" 120,200 300x24\n" + document + editor << "";
        QTest::newRow("press a button")
            << QStringList{"press", "140,148"} << 0
            << "element: AXButton \"Save\" 110,133 60x30\nAXPress: kAXErrorSuccess (0)\n"
            << "";
        QTest::newRow("press a panel without the action")
            << QStringList{"press", "560,360"} << 1
            << "element: AXGroup \"\" 550,350 200x200\nAXPress: kAXErrorActionUnsupported (-25206)\n"
            << "";
        QTest::newRow("raise the focused window")
            << QStringList{"raise", "140,148"} << 0 << document + editor + "raise: already focused\n"
            << "Window already focused";
        QTest::newRow("raise a window behind")
            << QStringList{"raise", "750,200"} << 0 << inspector + editor + "raise: activated\n"
            << "";
        // No title bar buttons in the fixture: minimizing falls back on the attribute, closing has
        // no other way.
        QTest::newRow("minimize without a button")
            << QStringList{"minimize", "750,200"} << 0 << inspector + editor + "minimize: done\n"
            << "";
        QTest::newRow("close without a button")
            << QStringList{"close", "750,200"} << 1
            << inspector + editor + "close: no effect on the window within 2000 ms\n"
            << "Could not trigger window action! Unable to get title bar button.";
    }
    void verbsAnswerAsText() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);
        const CtlRun run = runCtl(QStringList{arguments.first(), "--desktop", desktop} + arguments.mid(1));
        QCOMPARE(run.status, exitCode);
        QCOMPARE(run.output, output);
        QVERIFY2(run.errors.contains(errors), qPrintable(run.errors));
    }

    // The element at a point, and the way it was found where the platform's own answer fails (the
    // platform's answer itself is in tst_toolProcess); --plain is the platform's answer alone.
    void atTellsHowItFoundTheElement_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("lastLine");
        QTest::addColumn<QString>("errors");
        QTest::newRow("the rectangle search")
            << QStringList{"at", "@coarse", "30,30"} << 0 << "found by the rectangle search"
            << "";
        QTest::newRow("the right edge pixel")
            << QStringList{"at", "@coarse", "59,39"} << 0 << "found by the rectangle search"
            << "";
        QTest::newRow("plain: the platform's answer alone")
            << QStringList{"at", "@coarse", "--plain", "30,30"} << 1 << ""
            << "no element at 30,30 (kAXErrorAttributeUnsupported (-25205))";
        QTest::newRow("an application that does not answer")
            << QStringList{"at", "@coarse", "350,50"} << 1 << ""
            << "no element at 350,50: the application did not answer in time (kAXErrorCannotComplete "
               "(-25204))";
        QTest::newRow("plain goes with at only")
            << QStringList{"window", "@coarse", "--plain", "30,30"} << 2 << ""
            << "--plain goes with at only";
    }
    void atTellsHowItFoundTheElement() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, lastLine);
        QFETCH(QString, errors);
        const QString hitTestDesktop = writeHitTestDesktop();
        QStringList withDesktop;
        for (const QString& argument : arguments)
            withDesktop << (argument == "@coarse" ? QStringList{"--desktop", hitTestDesktop}
                                                  : QStringList{argument});
        const CtlRun run = runCtl(withDesktop);
        QCOMPARE(run.status, exitCode);
        QVERIFY2(run.errors.contains(errors), qPrintable(run.errors));
        if (exitCode == 0) {
            const QStringList lines = run.output.split('\n', Qt::SkipEmptyParts);
            QCOMPARE(lines.last(), lastLine);
            QCOMPARE(lines.at(lines.size() - 2).trimmed(), QString("AXButton \"Deep\" 20,20 40x20"));
        }
    }

    void screens() {
        const CtlRun text = runCtl({"screens", "--desktop", desktop});
        QCOMPARE(text.status, 0);
        // The second display tells no size: it is taken for 72 dots per inch, with a warning.
        QCOMPARE(text.output,
                 QString("screen 1 \"Built-in Display\" 0,0 1440x900 scale 2 302.0x188.0 mm\n"
                         "screen 2 \"External Display\" 1440,0 1920x1080 scale 1 677.3x381.0 mm\n"
                         "menu bar 0\n"
                         "zoom 1 at 0,0\n"));
        QVERIFY(text.errors.contains(
            "Warning: had to make best guess at the physical size of display with index: 1"));
        const CtlRun json = runCtl({"screens", "--json", "--desktop", desktop});
        const QJsonObject answer = QJsonDocument::fromJson(json.output.toUtf8()).object();
        QCOMPARE(answer.value("screens").toArray().size(), 2);
        QCOMPARE(answer.value("screens").toArray().at(0).toObject().value("scale").toDouble(), 2.0);
        QCOMPARE(answer.value("zoom").toObject().value("factor").toDouble(), 1.0);
    }

    // One JSON object per answer, whichever place the options take.
    void verbsAnswerAsJson() {
        const CtlRun window = runCtl({"window", "750,200", "--json", "--desktop", desktop});
        QCOMPARE(window.status, 0);
        QVERIFY(window.output.endsWith('\n') && window.output.count('\n') == 1);
        const QJsonObject answer = QJsonDocument::fromJson(window.output.toUtf8()).object();
        QCOMPARE(answer.value("window").toObject().value("windowId").toInt(), 202);
        QCOMPARE(answer.value("window").toObject().value("title").toString(), QString("Inspector"));
        QCOMPARE(answer.value("window").toObject().value("frame").toObject(),
                 (QJsonObject{{"x", 700}, {"y", 150}, {"width", 300}, {"height", 400}}));
        QCOMPARE(answer.value("application").toObject(),
                 (QJsonObject{{"pid", 4101}, {"bundleId", "com.example.editor"}, {"name", "Editor"}}));

        const CtlRun press = runCtl({"--json", "press", "--desktop", desktop, "560,360"});
        const QJsonObject result =
            QJsonDocument::fromJson(press.output.toUtf8()).object().value("result").toObject();
        QCOMPARE(result, (QJsonObject{{"name", "kAXErrorActionUnsupported"}, {"code", -25206}}));

        const CtlRun tree = runCtl({"tree", "--json", "--desktop", desktop, "com.example.files"});
        QCOMPARE(tree.status, 0);
        const QJsonObject files = QJsonDocument::fromJson(tree.output.toUtf8()).object();
        QCOMPARE(files.value("application").toObject().value("pid").toInt(), 4202);
        QCOMPARE(files.value("tree").toObject().value("role").toString(), QString("AXApplication"));
    }

    void apps() {
        const CtlRun run = runCtl({"apps", "--json", "--desktop", desktop});
        QCOMPARE(run.status, 0);
        const QJsonArray list = QJsonDocument::fromJson(run.output.toUtf8())["applications"].toArray();
        QVERIFY2(list.size() >= 2, qPrintable(run.output));
        QCOMPARE(list[0]["pid"].toInt(), 4101);
        QVERIFY(list[0]["front"].toBool());
        QCOMPARE(list[1]["bundleId"].toString(), QStringLiteral("com.example.files"));
        QVERIFY(!list[1]["front"].toBool());
    }

    // Changes of a desktop file under a running app-events are told as they come.
    void appEvents() {
        const QString path = QDir::temp().filePath("events-desktop.json");
        const auto write = [&](const QByteArray& applications) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            file.write(R"({"applications": [)" + applications + "]}");
        };
        const QByteArray one = R"({"pid": 11, "bundleId": "org.example.one", "active": true})";
        const QByteArray two = R"({"pid": 12, "bundleId": "org.example.two", "active": true})";
        write(one);
        Binary events(UIET_CTL_PATH, {"app-events", "30", "--desktop", path}, QProcess::SeparateChannels);
        QVERIFY2(events.waitForOutput("front org.example.one\n"), qPrintable(events.errorOutput()));
        write(R"({"pid": 11, "bundleId": "org.example.one"},)" + two);
        QVERIFY2(events.waitForOutput("launched org.example.two\n"), qPrintable(events.output()));
        QVERIFY2(events.waitForOutput("front org.example.two\n"), qPrintable(events.output()));
        write(one);
        QVERIFY2(events.waitForOutput("quit org.example.two\n"), qPrintable(events.output()));
        QCOMPARE(events.output(), QStringLiteral("front org.example.one\nlaunched org.example.two\n"
                                                 "not front org.example.one\nfront org.example.two\n"
                                                 "front org.example.one\nnot front org.example.two\n"
                                                 "quit org.example.two\n"));
    }

    void badInputIsRefused_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("window without a point") << QStringList{"window"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("two points") << QStringList{"raise", "1,2", "3,4"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("malformed point")
            << QStringList{"zoom", "1,2,3"} << 2 << "X,Y in screen coordinates, not '1,2,3'";
        QTest::newRow("point beyond every screen")
            << QStringList{"press", "5000000,1"} << 2 << "not '5000000,1' (each from -1000000 to 1000000)";
        QTest::newRow("focused with a point")
            << QStringList{"focused", "1,1"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("desktop without a file")
            << QStringList{"window", "1,1", "--desktop"} << 2 << "--desktop needs a desktop file";
        QTest::newRow("unreachable desktop")
            << QStringList{"minimize", "--desktop", "/nonexistent/desktop.json", "1,1"} << 2
            << "no desktop file /nonexistent/desktop.json";
        QTest::newRow("app-events without a time")
            << QStringList{"app-events"} << 2 << "usage: ui-element-ctl";
        QTest::newRow("app-events for no time")
            << QStringList{"app-events", "0"} << 2 << "whole number of seconds from 1 to 86400, not '0'";
        QTest::newRow("app-events for too long") << QStringList{"app-events", "86401"} << 2
                                                 << "whole number of seconds from 1 to 86400, not '86401'";
        QTest::newRow("unknown option")
            << QStringList{"window", "--xml", "1,1"} << 2 << "usage: ui-element-ctl";
    }
    void badInputIsRefused() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        const CtlRun run = runCtl(arguments);
        QCOMPARE(run.status, exitCode);
        QVERIFY2(run.errors.contains(message), qPrintable(run.errors));
        QVERIFY(run.output.isEmpty());
    }
};

UIET_TEST_MAIN(tst_ctlInspector)
#include "tst_ctlInspector.moc"
