// The AT-SPI2 vocabulary in the AX vocabulary: no desktop needed.

#include "atspi/AtspiRoles.h"
#include "testSupport.h"

class TestAtspiRoles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void roles_data() {
        QTest::addColumn<int>("role");
        QTest::addColumn<int>("parentRole");
        QTest::addColumn<bool>("multiLine");
        QTest::addColumn<bool>("editable");
        QTest::addColumn<bool>("topLevel");
        QTest::addColumn<QString>("axRole");
        QTest::addColumn<QString>("axSubrole");
        const int none = ATSPI_ROLE_INVALID;
        QTest::newRow("application") << int(ATSPI_ROLE_APPLICATION) << none << false << false << false
                                     << "AXApplication"
                                     << "";
        QTest::newRow("frame") << int(ATSPI_ROLE_FRAME) << none << false << false << false << "AXWindow"
                               << "AXStandardWindow";
        QTest::newRow("dialog") << int(ATSPI_ROLE_DIALOG) << none << false << false << false << "AXWindow"
                                << "AXDialog";
        QTest::newRow("push button") << int(ATSPI_ROLE_PUSH_BUTTON) << none << false << false << false
                                     << "AXButton"
                                     << "";
        QTest::newRow("toggle button")
            << int(ATSPI_ROLE_TOGGLE_BUTTON) << none << false << false << false << "AXCheckBox"
            << "AXToggle";
        QTest::newRow("menu item") << int(ATSPI_ROLE_MENU_ITEM) << none << false << false << false
                                   << "AXMenuItem"
                                   << "";
        QTest::newRow("menu of a menu bar")
            << int(ATSPI_ROLE_MENU) << int(ATSPI_ROLE_MENU_BAR) << false << false << false << "AXMenuBarItem"
            << "";
        QTest::newRow("submenu of a menu")
            << int(ATSPI_ROLE_MENU) << int(ATSPI_ROLE_MENU) << false << false << false << "AXMenuItem"
            << "";
        QTest::newRow("menu of a combo box")
            << int(ATSPI_ROLE_MENU) << int(ATSPI_ROLE_COMBO_BOX) << false << false << false << "AXMenu"
            << "";
        QTest::newRow("single-line text")
            << int(ATSPI_ROLE_TEXT) << none << false << true << false << "AXTextField"
            << "";
        QTest::newRow("multi-line text")
            << int(ATSPI_ROLE_TEXT) << none << true << true << false << "AXTextArea"
            << "";
        QTest::newRow("password") << int(ATSPI_ROLE_PASSWORD_TEXT) << none << false << true << false
                                  << "AXTextField"
                                  << "AXSecureTextField";
        QTest::newRow("combo box") << int(ATSPI_ROLE_COMBO_BOX) << none << false << false << false
                                   << "AXPopUpButton"
                                   << "";
        QTest::newRow("editable combo box")
            << int(ATSPI_ROLE_COMBO_BOX) << none << false << true << false << "AXComboBox"
            << "";
        QTest::newRow("page tab") << int(ATSPI_ROLE_PAGE_TAB) << none << false << false << false
                                  << "AXRadioButton"
                                  << "AXTabButton";
        QTest::newRow("scroll pane") << int(ATSPI_ROLE_SCROLL_PANE) << none << false << false << false
                                     << "AXScrollArea"
                                     << "";
        // Without an AX counterpart: the AT-SPI name, camel-cased.
        QTest::newRow("drawing area")
            << int(ATSPI_ROLE_DRAWING_AREA) << none << false << false << false << "AXDrawingArea"
            << "";
        QTest::newRow("top-level filler (a Qt widget window)")
            << int(ATSPI_ROLE_FILLER) << int(ATSPI_ROLE_APPLICATION) << false << false << true << "AXWindow"
            << "";
        QTest::newRow("filler inside a window")
            << int(ATSPI_ROLE_FILLER) << int(ATSPI_ROLE_FRAME) << false << false << false << "AXGroup"
            << "";
        QTest::newRow("separator") << int(ATSPI_ROLE_SEPARATOR) << none << false << false << false
                                   << "AXSeparator"
                                   << "";
        QTest::newRow("beyond the known roles")
            << int(ATSPI_ROLE_LAST_DEFINED) + 5 << none << false << false << false << "AXUnknown"
            << "";
    }

    void roles() {
        QFETCH(int, role);
        QFETCH(int, parentRole);
        QFETCH(bool, multiLine);
        QFETCH(bool, editable);
        QFETCH(bool, topLevel);
        QFETCH(QString, axRole);
        QFETCH(QString, axSubrole);
        AtspiRoleContext context;
        context.parentRole = AtspiRole(parentRole);
        context.multiLine = multiLine;
        context.editable = editable;
        context.topLevel = topLevel;
        QCOMPARE(axRoleForAtspiRole(AtspiRole(role), context), axRole);
        QCOMPARE(axSubroleForAtspiRole(AtspiRole(role)), axSubrole);
        QCOMPARE(atspiRoleIsWindow(AtspiRole(role)) ||
                     (topLevel && atspiRoleIsWindowAtTopLevel(AtspiRole(role))),
                 axRole == "AXWindow");
    }

    // GTK's header bar names its window controls; any other name is no title-bar button.
    void titleBarButtons_data() {
        QTest::addColumn<QString>("accessibleName");
        QTest::addColumn<QStringList>("languages");
        QTest::addColumn<QString>("attribute");
        QTest::newRow("minimize") << "Minimize" << QStringList() << "AXMinimizeButton";
        QTest::newRow("maximize") << "Maximize" << QStringList() << "AXZoomButton";
        QTest::newRow("restore (of a maximized window)") << "Restore" << QStringList() << "AXZoomButton";
        QTest::newRow("close") << "Close" << QStringList() << "AXCloseButton";
        QTest::newRow("other case") << "close" << QStringList() << "";
        QTest::newRow("longer name") << "Close Tab" << QStringList() << "";
        QTest::newRow("empty") << "" << QStringList() << "";
        // GTK's German names, for an application that shows German whatever this process shows.
        QTest::newRow("German, the application's language")
            << "Minimieren" << QStringList{"de_DE", "de"} << "AXMinimizeButton";
        QTest::newRow("German, another language") << "Minimieren" << QStringList{"fr"} << "";
        QTest::newRow("no such language") << "Minimieren" << QStringList{"xx", "../de"} << "";
    }

    void titleBarButtons() {
        QFETCH(QString, accessibleName);
        QFETCH(QStringList, languages);
        QFETCH(QString, attribute);
        if (!languages.isEmpty() && !QFile::exists("/usr/share/locale/de/LC_MESSAGES/gtk30.mo"))
            QSKIP("GTK's German catalog is not installed");
        QCOMPARE(axTitleBarButtonName(titleBarButtonNamed(accessibleName, languages)), attribute);
    }

    // The languages gettext shows an application's texts in, from its environment.
    void messageLanguages_data() {
        QTest::addColumn<QByteArray>("environment");
        QTest::addColumn<QStringList>("languages");
        // As /proc/<pid>/environ holds it: "NAME=value" entries, each ended by a NUL.
        const auto environmentOf = [](const QList<QByteArray>& entries) {
            QByteArray environment;
            for (const QByteArray& entry : entries)
                environment += entry + '\0';
            return environment;
        };
        QTest::newRow("LANGUAGE over a UTF-8 C locale")
            << environmentOf({"LANGUAGE=de", "LANG=C.UTF-8"}) << QStringList{"de"};
        QTest::newRow("LANGUAGE ignored in the C locale")
            << environmentOf({"LANGUAGE=de", "LANG=C"}) << QStringList();
        QTest::newRow("no locale") << environmentOf({"LANGUAGE=de", "HOME=/root"}) << QStringList();
        QTest::newRow("the locale's territory, then its language")
            << environmentOf({"LANG=de_DE.UTF-8@euro"}) << QStringList{"de_DE", "de"};
        QTest::newRow("LC_ALL before LANG")
            << environmentOf({"LANG=fr_FR.UTF-8", "LC_ALL=pt_BR.UTF-8"}) << QStringList{"pt_BR", "pt"};
        QTest::newRow("a list") << environmentOf({"LANG=en_US.UTF-8", "LANGUAGE=sv:de_AT"})
                                << QStringList{"sv", "de_AT", "de"};
        QTest::newRow("broken entries") << environmentOf({"=x", "LANG", "", "LANG=it"}) << QStringList{"it"};
    }

    void messageLanguages() {
        QFETCH(QByteArray, environment);
        QTEST(messageLanguagesOfEnvironment(environment), "languages");
    }

    void actionNames_data() {
        QTest::addColumn<QStringList>("toolkit");
        QTest::addColumn<QStringList>("ax");
        QTest::newRow("GTK button") << QStringList{"click"} << QStringList{"AXPress"};
        QTest::newRow("Qt check box")
            << QStringList{"Toggle", "SetFocus"} << QStringList{"AXPress", "AXSetFocus"};
        QTest::newRow("best of several") << QStringList{"activate", "click", "show menu"}
                                         << QStringList{"AXActivate", "AXPress", "AXShowMenu"};
        QTest::newRow("press beats click")
            << QStringList{"click", "Press"} << QStringList{"AXClick", "AXPress"};
        QTest::newRow("no press-like action") << QStringList{"expand or contract", "increase_value"}
                                              << QStringList{"AXExpandOrContract", "AXIncreaseValue"};
        QTest::newRow("none") << QStringList{} << QStringList{};
    }

    void actionNames() {
        QFETCH(QStringList, toolkit);
        QFETCH(QStringList, ax);
        QCOMPARE(axActionNames(toolkit), ax);
    }
};

UIET_TEST_MAIN(TestAtspiRoles)
#include "tst_atspiRoles.moc"
