// Resolution on the live desktop: descriptions captured from a GTK 3 application
// (gtk3-widget-factory) and from our Qt fixture (liveFixtureApp), saved and loaded as the tool
// gets them, find their element again: as captured, after its window moved, in a new process of
// the application, and, with translations, in the application restarted in German. A description
// of an application that does not run is not found.

#include "liveTestSupport.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "ResolutionTrace.h"
#include "UIElement.h"
#include "UIElementSearch.h"
#include "UIElement_p.h"
#include "dataObjectSerialization.h"

#include <QMap>
#include <QProcess>

#include <X11/Xlib.h>

namespace {

// An element of one of the two applications: the nth (depth first) of its role and title.
struct Row {
    const char* name;
    bool qt;
    const char* role;
    const char* title;
    int nth;
};

const Row rows[] = {
    {"gtk button", false, "AXButton", "link button", 0},
    // Six check boxes of one title: the role index tells them apart.
    {"gtk check box, third of six", false, "AXCheckBox", "checkbutton", 2},
    // After the entries of two combo boxes and the search entry.
    {"gtk entry", false, "AXTextField", "", 3},
    {"gtk notebook tab", false, "AXRadioButton", "page 2", 0},
    {"gtk header-bar button", false, "AXButton", "Minimize", 0},
    // Its title is GTK's own text, which GTK's catalogs translate.
    {"gtk menu toggle", false, "AXCheckBox", "Menu", 0},
    {"qt push button", true, "AXButton", "Apply", 0},
    {"qt line edit", true, "AXTextField", "Name", 0},
    {"qt second window", true, "AXButton", "Tool Button", 0},
};

const Row& rowNamed(const QString& name) {
    for (const Row& row : rows)
        if (name == QLatin1String(row.name))
            return row;
    qFatal("no row %s", qPrintable(name));
}

// The test functions over all rows: the column "row" names one.
void addRows() {
    QTest::addColumn<QString>("row");
    for (const Row& row : rows)
        QTest::newRow(row.name) << QString(row.name);
}

NativeUIElement handleOn(AXUIElementRef element, QPoint point) {
    NativeUIElement handle;
    handle.setOSSpecificElementReference(const_cast<void*>(CFRetain(element)));
    handle.setScreenPosition(point);
    return handle;
}

// Loaded from the bytes of a saved collection, as the tool loads a command's.
std::unique_ptr<UIElementCollection> load(const QByteArray& saved) {
    auto collection = std::make_unique<UIElementCollection>();
    deserializeObjectFromByteArray(collection.get(), saved);
    return collection;
}

UIElement_p* descriptionIn(const UIElementCollection& collection) {
    return collection.elements().value(0) ? collection.elements().value(0)->platformSpecificEntity()
                                          : nullptr;
}

// Without a window manager the X server moves a top-level window when it is told to.
bool moveX11Window(const QString& display, CGWindowID window, QPoint topLeft) {
    Display* x = XOpenDisplay(qPrintable(display));
    if (!x)
        return false;
    XMoveWindow(x, window, topLeft.x(), topLeft.y());
    XSync(x, False);
    XCloseDisplay(x);
    return true;
}

} // namespace

class TestLiveResolution : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QProcess* factory = nullptr;
    QProcess* fixture = nullptr;
    AXUIElementRef fixtureApplication = nullptr;
    // By row: a collection of the row's element, captured once, saved as the tool receives it.
    QMap<QString, QByteArray> saved;
    bool german = false;

    AXUIElementRef copyElementOf(const Row& row) {
        int nth = row.nth;
        return findElement(row.qt ? fixtureApplication : application, [&](AXUIElementRef element) {
            return UIElementRole(element) == row.role && UIElementTitle(element) == row.title && nth-- == 0;
        });
    }

    // Ends the process and starts the program anew; its application element replaces *element
    // once the element of this role and title is on the bus.
    QProcess* restart(QProcess* process, const QString& program, AXUIElementRef* element, const QString& role,
                      const QString& title, const QProcessEnvironment& extra = {}) {
        if (process) {
            process->kill();
            process->waitForFinished();
        }
        QProcess* started = session->startApplication(program, {}, extra);
        if (!started || !started->waitForStarted())
            return nullptr;
        if (*element)
            CFRelease(*element);
        *element = AXUIElementCreateApplication(pid_t(started->processId()));
        const bool shown = LiveDesktopSession::waitUntil(
            [&] {
                Ref<AXUIElementRef> found(findElement(*element, role, title));
                return found != nullptr;
            },
            applicationStartTimeoutMs);
        return shown ? started : nullptr;
    }

    bool startFactory(const QProcessEnvironment& language, const QString& closeTitle) {
        factory = restart(factory, "gtk3-widget-factory", &application, "AXButton", closeTitle, language);
        return factory;
    }

    bool startFixture() {
        fixture = restart(fixture, UIET_LIVE_FIXTURE_APP, &fixtureApplication, "AXButton", "Tool Button");
        return fixture;
    }

    // What the collection answers as the tool asks it: the code, or -1 when it found an element
    // other than `expected`.
    static int resolve(const UIElementCollection& collection, AXUIElementRef expected,
                       UIElementSearchOptions options = {}) {
        NativeUIElement found;
        const int code =
            collection.findUIElementAndCreateOSSpecificRepresentation(found, options, QVariant(), nullptr);
        return code == UIElementFound && !(expected && found == handleOn(expected, QPoint())) ? -1 : code;
    }

    // The saved description of the row resolves to the element that a walk of the live tree finds.
    void verifyResolvesToLiveElement(const Row& row) {
        Ref<AXUIElementRef> live(copyElementOf(row));
        QVERIFY2(live, row.name);
        QCOMPARE(resolve(*load(saved.value(row.name)), live), UIElementFound);
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSessionForWidgetFactory(&problem))
            QSKIP(qPrintable(problem));
        factory = startWatchedApplication("gtk3-widget-factory", "AXButton", "Close", &problem,
                                          environmentInLanguage("en"));
        QVERIFY2(factory, qPrintable(problem));
        QVERIFY2(startFixture(), "liveFixtureApp does not come up");
        // Captured from a handle, with no hit test: which window is in front plays no part.
        for (const Row& row : rows) {
            Ref<AXUIElementRef> element(copyElementOf(row));
            QVERIFY2(element, row.name);
            auto* captured = new UIElement(handleOn(element, UIElementRect(element).center()));
            QVERIFY2(!captured->isNull() && !captured->platformSpecificEntity()->isDegenerate(), row.name);
            UIElementCollection collection;
            collection.setElements({captured});
            saved.insert(row.name, serializeObjectToByteArray(&collection));
        }
    }

    void cleanupTestCase() {
        if (fixtureApplication)
            CFRelease(fixtureApplication);
        closeSession();
    }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    void resolvesToTheCapturedElement_data() { addRows(); }
    void resolvesToTheCapturedElement() {
        QFETCH(QString, row);
        verifyResolvesToLiveElement(rowNamed(row));
    }

    // A description whose element was renamed: the trace names the last level and the title.
    void aTraceNamesTheLevelThatNoLongerFits_data() {
        QTest::addColumn<QString>("row");
        QTest::newRow("gtk") << QString("gtk check box, third of six");
        QTest::newRow("qt") << QString("qt push button");
    }
    void aTraceNamesTheLevelThatNoLongerFits() {
        QFETCH(QString, row);
        const auto collection = load(saved.value(row));
        UIElement* element = collection->elements().first();
        QList<const UIElement_p*> chain;
        element->platformSpecificEntity()->topDownElementList(chain);
        const int leaf = int(chain.size()) - 1;
        element->setMatchingMethod(StrictMatching);
        element->setAttributeValueForElementAtHierarchyLevel(leaf, "AXTitle", QString("renamed"));
        ResolutionTrace trace;
        {
            const ResolutionTrace::Scope scope(trace);
            QCOMPARE(resolve(*collection, nullptr), UIElementNotFound);
        }
        QVERIFY(!trace.walks().isEmpty());
        const ResolutionTrace::Walk& walk = trace.walks().first();
        const int deepest = walk.deepestVisit();
        QVERIFY(deepest >= 0);
        const ResolutionTrace::Visit& visit = walk.visits.at(deepest);
        QCOMPARE(visit.level, leaf);
        QCOMPARE(walk.reason(), ResolutionTrace::Reason::NoChildMatched);
        QVERIFY(visit.nearest);
        QCOMPARE(visit.nearest->attributes.value("AXTitle").toString(), QString(rowNamed(row).title));
        QVERIFY2(visit.nearest->differs.contains("AXTitle"), qPrintable(visit.nearest->differs.join(' ')));
    }

    void resolvesAfterItsWindowMoved_data() { addRows(); }

    // The window moves; the element is found at its new place, and the interaction point keeps its
    // offset in the element.
    void resolvesAfterItsWindowMoved() {
        QFETCH(QString, row);
        const Row& described = rowNamed(row);
        const auto collection = load(saved.value(row));
        const UIElement_p* description = descriptionIn(*collection);
        QList<const UIElement_p*> chain;
        description->topDownElementList(chain);
        Ref<AXUIElementRef> element(copyElementOf(described));
        QVERIFY(element);
        Ref<AXUIElementRef> window(static_cast<AXUIElementRef>(copyAttributeNamed(element, "AXWindow")));
        QVERIFY(window);
        const QRect windowFrame = UIElementRect(window);
        // Away from where the window was at the capture (the chain's level below the application),
        // and from where an earlier row left it.
        const QPoint captured = chain.value(1)->screenRect().topLeft();
        QPoint to = captured + QPoint(40, 30);
        if (to == windowFrame.topLeft())
            to += QPoint(40, 30);
        const QRect after = UIElementRect(element).translated(to - windowFrame.topLeft());
        if (described.qt) {
            const QString which = UIElementTitle(window) == "Fixture Tool" ? "tool" : "main";
            // Carried out when the element's frame has moved, which is waited for below.
            fixture->write(QStringLiteral("move %1 %2 %3\n").arg(which).arg(to.x()).arg(to.y()).toUtf8());
        } else {
            CGWindowID id = 0;
            QCOMPARE(_AXUIElementGetWindow(window, &id), kAXErrorSuccess);
            QVERIFY(moveX11Window(session->display(), id, to));
        }
        QVERIFY(LiveDesktopSession::waitUntil([&] { return UIElementRect(element) == after; }));
        QVERIFY(after != description->screenRect());

        verifyResolvesToLiveElement(described);
        // In front, so that hit testing at its centre reaches it.
        description->raiseElement(0, {});
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return pidOfWindowContainingPoint(after.center().x(), after.center().y()) ==
                       UIElementPID(element) &&
                   UIElementAttributeValue(window, "AXMain", true) == QVariant(true);
        }));
        QPoint point;
        QCOMPARE(description->findUIElementAndGetInteractionPoint(point, true, QVariant(), {}, nullptr),
                 UIElementFound);
        QCOMPARE(point, after.topLeft() + description->localInteractionPoint());
    }

    // Both applications end and start again: new processes, new elements.
    void applicationsRestart() {
        const qint64 factoryBefore = factory->processId();
        const qint64 fixtureBefore = fixture->processId();
        QVERIFY(startFactory(environmentInLanguage("en"), "Close"));
        QVERIFY(startFixture());
        QVERIFY(factory->processId() != factoryBefore && fixture->processId() != fixtureBefore);
    }

    void resolvesInTheNewProcess_data() { addRows(); }
    void resolvesInTheNewProcess() {
        QFETCH(QString, row);
        const Row& described = rowNamed(row);
        verifyResolvesToLiveElement(described);
        Ref<AXUIElementRef> live(copyElementOf(described));
        QCOMPARE(qint64(UIElementPID(live)), (described.qt ? fixture : factory)->processId());
    }

    void factoryRestartsInGerman() {
        if (!QFileInfo::exists("/usr/share/locale/de/LC_MESSAGES/gtk30.mo"))
            QSKIP("GTK's German catalog is not installed");
        QVERIFY(startFactory(environmentInLanguage("de"), "Schließen"));
        german = true;
    }

    // Descriptions captured in English, against the application in German. Built-in matching
    // compares no title, and of the localized attributes only AXRoleDescription and AXDescription,
    // both questionable: its second pass does without them, so it needs no translations. Where a
    // localized text is compared without such a pass, translations make the difference: a title a
    // user made defining in custom matching, and AXTitle in strict matching. The toggle "Menu" is
    // the element for it: its title is GTK's own text, which the gtk30 catalog that translations
    // read turns into "Menü", while the widget factory's own texts ("link button") stay English.
    void resolvesUnderGerman_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("method");
        QTest::addColumn<bool>("titleDefining");
        QTest::addColumn<bool>("foundWithout");
        QTest::addColumn<QString>("defect");
        const QString toggle = "gtk menu toggle";
        QTest::newRow("built-in") << toggle << "Menü" << BuiltInMatching << false << true << QString();
        QTest::newRow("custom, as captured")
            << toggle << "Menü" << CustomMatching << false << true << QString();
        QTest::newRow("custom, title defining")
            << toggle << "Menü" << CustomMatching << true << false << QString();
        QTest::newRow("strict") << toggle << "Menü" << StrictMatching << false << false
                                << "the role descriptions (\"frame\", \"Rahmen\") are at-spi2-core's, whose "
                                   "catalog the translations do not read";
        // The button keeps its subrole, AXMinimizeButton, under its German name.
        QTest::newRow("built-in, header-bar button")
            << "gtk header-bar button"
            << "Minimieren" << BuiltInMatching << false << true << QString();
    }

    void resolvesUnderGerman() {
        if (!german)
            QSKIP("gtk3-widget-factory does not run in German");
        QFETCH(QString, row);
        QFETCH(QString, shown);
        QFETCH(int, method);
        QFETCH(bool, titleDefining);
        QFETCH(bool, foundWithout);
        QFETCH(QString, defect);
        Ref<AXUIElementRef> live(findElement(application, rowNamed(row).role, shown));
        QVERIFY(live);
        const auto collection = load(saved.value(row));
        UIElement_p* description = descriptionIn(*collection);
        description->setMatchingMethod(method);
        if (titleDefining)
            description->setDefiningAttributes(description->definingAttributes() + QStringList{"AXTitle"});
        if (!defect.isEmpty() && foundWithout)
            QEXPECT_FAIL("", qPrintable(defect), Continue);
        QCOMPARE(resolve(*collection, live), foundWithout ? UIElementFound : UIElementNotFound);
        if (!defect.isEmpty())
            QEXPECT_FAIL("", qPrintable(defect), Continue);
        QCOMPARE(resolve(*collection, live, UIElementSearchMatchTranslations), UIElementFound);
    }

    // The tool's view of a description whose application has ended: not found, so that a
    // collection goes on to its next alternative.
    void applicationNotRunning() {
        fixture->kill();
        QVERIFY(fixture->waitForFinished());
        const auto qtOnly = load(saved.value("qt push button"));
        QCOMPARE(resolve(*qtOnly, nullptr), UIElementNotFound);

        const auto gtkOnly = load(saved.value("gtk button"));
        UIElementCollection both;
        both.setElements({qtOnly->elements().first(), gtkOnly->elements().first()});
        Ref<AXUIElementRef> live(copyElementOf(rowNamed("gtk button")));
        QVERIFY(live);
        QCOMPARE(resolve(both, live), UIElementFound);
    }
};

UIET_TEST_MAIN(TestLiveResolution)
#include "tst_liveResolution.moc"
