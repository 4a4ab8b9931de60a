#pragma once

// The AT-SPI2 vocabulary in the AX vocabulary: roles, subroles and action names. The table is
// documented in docs/platform-atspi.md. Pure functions, so that they can be checked without a
// desktop.

#include <QString>
#include <QStringList>

#include <atspi/atspi-constants.h>

// What an element's role turns on besides the role itself.
struct AtspiRoleContext {
    AtspiRole parentRole = ATSPI_ROLE_INVALID;
    bool multiLine = false; // state MULTI_LINE
    bool editable = false;  // state EDITABLE
    bool topLevel = false;  // a child of the application
};

// The AX role text. A role without an AX counterpart keeps a stable, readable text of its own:
// "AX" and its AT-SPI name in camel case ("drawing area" gives "AXDrawingArea").
QString axRoleForAtspiRole(AtspiRole role, const AtspiRoleContext& context = {});
// The AX subrole text, empty when the role has none.
QString axSubroleForAtspiRole(AtspiRole role);
// True for the roles presented as windows ("AXWindow").
bool atspiRoleIsWindow(AtspiRole role);
// True for the roles that are windows only as children of the application: Qt shows a top-level
// plain widget as a filler.
bool atspiRoleIsWindowAtTopLevel(AtspiRole role);

// The AX names of an element's toolkit actions, in the same order. The best press-like action
// (press, then click, activate, toggle) is "AXPress"; every other action keeps its own name in the
// camel-case form below ("show menu" gives "AXShowMenu").
QStringList axActionNames(const QStringList& toolkitNames);

// The buttons of a window's title bar, by what they do.
enum class TitleBarButton { None, Minimize, Zoom, Close };
constexpr TitleBarButton titleBarButtons[] = {TitleBarButton::Minimize, TitleBarButton::Zoom,
                                              TitleBarButton::Close};
// The window attribute that names the button, which is also the button's subrole:
// "AXMinimizeButton", "AXZoomButton", "AXCloseButton"; empty for None.
QString axTitleBarButtonName(TitleBarButton button);
// The button that a GTK header bar's window control with this accessible name is: "Minimize",
// "Maximize" or "Restore" (the zoom button of a maximized window), "Close", in English, in GTK's
// translation for this process's locale, or in GTK's catalog of one of `languages` (those of the
// application, which names its buttons in its own language). None for any other name.
TitleBarButton titleBarButtonNamed(const QString& accessibleName, const QStringList& languages = {});

// The languages a process shows gettext's texts in, from its environment (NUL-separated
// "NAME=value" entries, as /proc/<pid>/environ holds them), as gettext chooses: LANGUAGE's list
// unless the locale (LC_ALL, else LC_MESSAGES, else LANG) is "C" or "POSIX" or unset, else the
// locale itself; each without encoding and modifier and then also without territory
// ("de_DE.UTF-8" gives "de_DE", "de"). Empty for the untranslated texts.
QStringList messageLanguagesOfEnvironment(const QByteArray& environment);

// "AX" followed by the words of `name` capitalized and joined: "show menu" and "show_menu" give
// "AXShowMenu", "SetFocus" gives "AXSetFocus".
QString axCamelCase(const QString& name);
