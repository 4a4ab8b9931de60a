// ui-element-ctl's window and focus verbs, run as a person or a script runs them, on the example
// virtual desktop: the Editor's document window (201) lies behind its Inspector (202), and the
// Files application has a window that only the window server knows (302).

#include "processSupport.h"
#include "testSupport.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString desktop = QStringLiteral(UIET_FIXTURES_DIR "/desktop-basic.json");

struct Run {
    int exitCode = -1;
    QString output;
    QString errors;
};

Run runCtl(const QStringList& arguments) {
    Binary ctl(UIET_CTL_PATH, arguments, QProcess::SeparateChannels);
    Run run;
    if (ctl.finish())
        run.exitCode = ctl.process.exitCode();
    run.output = ctl.output();
    run.errors = ctl.errorOutput();
    return run;
}

const QString editor = QStringLiteral("application: \"Editor\" com.example.editor pid 4101\n");

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
        const Run run = runCtl(QStringList{arguments.first(), "--desktop", desktop} + arguments.mid(1));
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.output, output);
        QVERIFY2(run.errors.contains(errors), qPrintable(run.errors));
    }

    // One JSON object per answer, whichever place the options take.
    void verbsAnswerAsJson() {
        const Run window = runCtl({"window", "750,200", "--json", "--desktop", desktop});
        QCOMPARE(window.exitCode, 0);
        QVERIFY(window.output.endsWith('\n') && window.output.count('\n') == 1);
        const QJsonObject answer = QJsonDocument::fromJson(window.output.toUtf8()).object();
        QCOMPARE(answer.value("window").toObject().value("windowId").toInt(), 202);
        QCOMPARE(answer.value("window").toObject().value("title").toString(), QString("Inspector"));
        QCOMPARE(answer.value("window").toObject().value("frame").toObject(),
                 (QJsonObject{{"x", 700}, {"y", 150}, {"width", 300}, {"height", 400}}));
        QCOMPARE(answer.value("application").toObject(),
                 (QJsonObject{{"pid", 4101}, {"bundleId", "com.example.editor"}, {"name", "Editor"}}));

        const Run press = runCtl({"--json", "press", "--desktop", desktop, "560,360"});
        const QJsonObject result =
            QJsonDocument::fromJson(press.output.toUtf8()).object().value("result").toObject();
        QCOMPARE(result, (QJsonObject{{"name", "kAXErrorActionUnsupported"}, {"code", -25206}}));

        const Run tree = runCtl({"tree", "--json", "--desktop", desktop, "com.example.files"});
        QCOMPARE(tree.exitCode, 0);
        const QJsonObject files = QJsonDocument::fromJson(tree.output.toUtf8()).object();
        QCOMPARE(files.value("application").toObject().value("pid").toInt(), 4202);
        QCOMPARE(files.value("tree").toObject().value("role").toString(), QString("AXApplication"));
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
        QTest::newRow("unknown option")
            << QStringList{"window", "--xml", "1,1"} << 2 << "usage: ui-element-ctl";
    }
    void badInputIsRefused() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        const Run run = runCtl(arguments);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.errors.contains(message), qPrintable(run.errors));
        QVERIFY(run.output.isEmpty());
    }
};

UIET_TEST_MAIN(tst_ctlInspector)
#include "tst_ctlInspector.moc"
