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
        QTest::addColumn<QString>("attribute");
        QTest::newRow("minimize") << "Minimize"
                                  << "AXMinimizeButton";
        QTest::newRow("maximize") << "Maximize"
                                  << "AXZoomButton";
        QTest::newRow("restore (of a maximized window)") << "Restore"
                                                         << "AXZoomButton";
        QTest::newRow("close") << "Close"
                               << "AXCloseButton";
        QTest::newRow("other case") << "close"
                                    << "";
        QTest::newRow("longer name") << "Close Tab"
                                     << "";
        QTest::newRow("empty") << ""
                               << "";
    }

    void titleBarButtons() {
        QFETCH(QString, accessibleName);
        QFETCH(QString, attribute);
        QCOMPARE(axTitleBarButtonName(titleBarButtonNamed(accessibleName)), attribute);
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
