// A GTK application that shows its texts in German, on a private headless desktop: the texts
// that GTK's own catalog translates are found to hold the English texts that a description
// captured in English holds.

#include "liveTestSupport.h"
#include "testSupport.h"

#include "osxTranslationMapping.h"


class TestLiveTranslations : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    pid_t factoryPid = 0;

private Q_SLOTS:
    void initTestCase() {
        if (!QFileInfo::exists("/usr/share/locale/de/LC_MESSAGES/gtk30.mo"))
            QSKIP("GTK's German catalog is not installed");
        QString problem;
        if (!openSessionForWidgetFactory(&problem))
            QSKIP(qPrintable(problem));
        QProcess* factory = startWatchedApplication("gtk3-widget-factory", "AXButton", "Schließen", &problem,
                                                    environmentInLanguage("de"));
        QVERIFY2(factory, qPrintable(problem));
        factoryPid = pid_t(factory->processId());
    }

    void cleanupTestCase() { closeSession(); }

    void germanTitlesHoldTheEnglishOnes_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("english");
        QTest::newRow("header bar button") << "AXButton"
                                           << "Schließen"
                                           << "Close";
        QTest::newRow("file chooser button") << "AXButton"
                                             << "(keine)"
                                             << "(None)";
        QTest::newRow("menu toggle") << "AXCheckBox"
                                     << "Menü"
                                     << "Menu";
    }

    void germanTitlesHoldTheEnglishOnes() {
        QFETCH(QString, role);
        QFETCH(QString, shown);
        QFETCH(QString, english);
        Ref<AXUIElementRef> element(find(role, shown));
        QVERIFY2(element, qPrintable(shown));
        const QStringList translations = translationsOfStringForProcess(shown, factoryPid);
        QCOMPARE(translations.value(0), shown);
        QVERIFY2(translations.contains(english), qPrintable(translations.join(" | ")));
        // Other languages come along: the French catalog is installed with GTK's.
        QVERIFY2(translations.size() > 10, qPrintable(translations.join(" | ")));
    }

    // Among the header bar's buttons, the one that a description captured in English calls
    // "Close" is found by its German title.
    void siblingFoundByItsEnglishTitle() {
        Ref<AXUIElementRef> close(find("AXButton", "Schließen"));
        QVERIFY(close);
        Ref<AXUIElementRef> parent(static_cast<AXUIElementRef>(copyAttributeNamed(close, "AXParent")));
        Ref<CFArrayRef> siblings(static_cast<CFArrayRef>(copyAttributeNamed(parent, "AXChildren")));
        QVERIFY(siblings && CFArrayGetCount(siblings) > 1);
        QVERIFY(CFEqual(findElementWithLocalizedTitle(siblings, "Close", true), close));
        QVERIFY(!findElementWithLocalizedTitle(siblings, "Close", false));
        QVERIFY(CFEqual(findElementWithLocalizedTitle(siblings, "Schließen", false), close));
    }
};

UIET_TEST_MAIN(TestLiveTranslations)
#include "tst_liveTranslations.moc"
