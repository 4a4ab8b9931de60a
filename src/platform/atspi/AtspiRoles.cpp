#include "AtspiRoles.h"

#include "catalogs/Catalogs.h"

#include <atspi/atspi.h>

#include <QFile>
#include <QHash>
#include <QMutex>
#include <QRegularExpression>

namespace {

struct RoleEntry {
    AtspiRole role;
    const char* axRole;
    const char* axSubrole;
};

// Every role that GTK 3, GTK 4 and Qt 6 widgets expose, and the document roles of web views.
constexpr RoleEntry roleTable[] = {
    {ATSPI_ROLE_APPLICATION, "AXApplication", ""},
    {ATSPI_ROLE_FRAME, "AXWindow", "AXStandardWindow"},
    {ATSPI_ROLE_WINDOW, "AXWindow", ""},
    {ATSPI_ROLE_DIALOG, "AXWindow", "AXDialog"},
    {ATSPI_ROLE_ALERT, "AXWindow", "AXDialog"},
    {ATSPI_ROLE_FILE_CHOOSER, "AXWindow", "AXDialog"},
    {ATSPI_ROLE_PUSH_BUTTON, "AXButton", ""},
    {ATSPI_ROLE_PUSH_BUTTON_MENU, "AXMenuButton", ""},
    {ATSPI_ROLE_TOGGLE_BUTTON, "AXCheckBox", "AXToggle"},
    {ATSPI_ROLE_CHECK_BOX, "AXCheckBox", ""},
    {ATSPI_ROLE_RADIO_BUTTON, "AXRadioButton", ""},
    {ATSPI_ROLE_MENU_BAR, "AXMenuBar", ""},
    {ATSPI_ROLE_MENU, "AXMenu", ""},
    {ATSPI_ROLE_POPUP_MENU, "AXMenu", ""},
    {ATSPI_ROLE_MENU_ITEM, "AXMenuItem", ""},
    {ATSPI_ROLE_CHECK_MENU_ITEM, "AXMenuItem", ""},
    {ATSPI_ROLE_RADIO_MENU_ITEM, "AXMenuItem", ""},
    {ATSPI_ROLE_TEAROFF_MENU_ITEM, "AXMenuItem", ""},
    {ATSPI_ROLE_TEXT, "AXTextField", ""},
    {ATSPI_ROLE_ENTRY, "AXTextField", ""},
    {ATSPI_ROLE_PASSWORD_TEXT, "AXTextField", "AXSecureTextField"},
    {ATSPI_ROLE_TERMINAL, "AXTextArea", ""},
    {ATSPI_ROLE_DOCUMENT_TEXT, "AXTextArea", ""},
    {ATSPI_ROLE_LABEL, "AXStaticText", ""},
    {ATSPI_ROLE_STATIC, "AXStaticText", ""},
    {ATSPI_ROLE_CAPTION, "AXStaticText", ""},
    {ATSPI_ROLE_ACCELERATOR_LABEL, "AXStaticText", ""},
    {ATSPI_ROLE_PARAGRAPH, "AXStaticText", ""},
    {ATSPI_ROLE_HEADING, "AXHeading", ""},
    {ATSPI_ROLE_SLIDER, "AXSlider", ""},
    {ATSPI_ROLE_SPIN_BUTTON, "AXIncrementor", ""},
    {ATSPI_ROLE_SCROLL_PANE, "AXScrollArea", ""},
    {ATSPI_ROLE_SCROLL_BAR, "AXScrollBar", ""},
    {ATSPI_ROLE_TOOL_BAR, "AXToolbar", ""},
    {ATSPI_ROLE_PANEL, "AXGroup", ""},
    {ATSPI_ROLE_FILLER, "AXGroup", ""},
    {ATSPI_ROLE_GROUPING, "AXGroup", ""},
    {ATSPI_ROLE_SECTION, "AXGroup", ""},
    {ATSPI_ROLE_FORM, "AXGroup", ""},
    {ATSPI_ROLE_HEADER, "AXGroup", ""},
    {ATSPI_ROLE_FOOTER, "AXGroup", ""},
    {ATSPI_ROLE_LANDMARK, "AXGroup", ""},
    {ATSPI_ROLE_INFO_BAR, "AXGroup", ""},
    {ATSPI_ROLE_STATUS_BAR, "AXGroup", ""},
    {ATSPI_ROLE_VIEWPORT, "AXGroup", ""},
    {ATSPI_ROLE_LAYERED_PANE, "AXGroup", ""},
    {ATSPI_ROLE_ROOT_PANE, "AXGroup", ""},
    {ATSPI_ROLE_OPTION_PANE, "AXGroup", ""},
    {ATSPI_ROLE_INTERNAL_FRAME, "AXGroup", ""},
    {ATSPI_ROLE_COMBO_BOX, "AXPopUpButton", ""},
    {ATSPI_ROLE_LIST, "AXList", ""},
    {ATSPI_ROLE_LIST_BOX, "AXList", ""},
    {ATSPI_ROLE_LIST_ITEM, "AXRow", ""},
    {ATSPI_ROLE_TABLE, "AXTable", ""},
    {ATSPI_ROLE_TREE, "AXOutline", ""},
    {ATSPI_ROLE_TREE_TABLE, "AXOutline", ""},
    {ATSPI_ROLE_TABLE_ROW, "AXRow", ""},
    {ATSPI_ROLE_TREE_ITEM, "AXRow", ""},
    {ATSPI_ROLE_TABLE_CELL, "AXCell", ""},
    {ATSPI_ROLE_PAGE_TAB_LIST, "AXTabGroup", ""},
    {ATSPI_ROLE_PAGE_TAB, "AXRadioButton", "AXTabButton"},
    {ATSPI_ROLE_IMAGE, "AXImage", ""},
    {ATSPI_ROLE_ICON, "AXImage", ""},
    {ATSPI_ROLE_DESKTOP_ICON, "AXImage", ""},
    {ATSPI_ROLE_ANIMATION, "AXImage", ""},
    {ATSPI_ROLE_LINK, "AXLink", ""},
    {ATSPI_ROLE_PROGRESS_BAR, "AXProgressIndicator", ""},
    {ATSPI_ROLE_LEVEL_BAR, "AXLevelIndicator", ""},
    {ATSPI_ROLE_SPLIT_PANE, "AXSplitGroup", ""},
    {ATSPI_ROLE_DOCUMENT_WEB, "AXWebArea", ""},
    {ATSPI_ROLE_DOCUMENT_FRAME, "AXWebArea", ""},
    {ATSPI_ROLE_TOOL_TIP, "AXHelpTag", ""},
    {ATSPI_ROLE_DATE_EDITOR, "AXDateField", ""},
    {ATSPI_ROLE_COLOR_CHOOSER, "AXColorWell", ""},
    {ATSPI_ROLE_UNKNOWN, "AXUnknown", ""},
    {ATSPI_ROLE_INVALID, "AXUnknown", ""},
};

const RoleEntry* entryFor(AtspiRole role) {
    for (const RoleEntry& entry : roleTable)
        if (entry.role == role)
            return &entry;
    return nullptr;
}

bool isMenuContainer(AtspiRole role) {
    return role == ATSPI_ROLE_MENU || role == ATSPI_ROLE_POPUP_MENU;
}

// Lower is better; -1 does not press.
int pressRank(const QString& toolkitName) {
    static const QStringList ranked = {QStringLiteral("press"), QStringLiteral("click"),
                                       QStringLiteral("activate"), QStringLiteral("toggle")};
    return int(ranked.indexOf(toolkitName.toLower()));
}

} // namespace

QString axCamelCase(const QString& name) {
    static const QRegularExpression separators(QStringLiteral("[^A-Za-z0-9]+"));
    QString result = QStringLiteral("AX");
    for (const QString& word : name.split(separators, Qt::SkipEmptyParts))
        result += word.at(0).toUpper() + word.mid(1);
    return result;
}

QString axRoleForAtspiRole(AtspiRole role, const AtspiRoleContext& context) {
    // A menu is a pull-down of a menu bar, or a menu item that opens a submenu, or a menu itself.
    if (role == ATSPI_ROLE_MENU && context.parentRole == ATSPI_ROLE_MENU_BAR)
        return QStringLiteral("AXMenuBarItem");
    if (role == ATSPI_ROLE_MENU && isMenuContainer(context.parentRole))
        return QStringLiteral("AXMenuItem");
    if (context.topLevel && atspiRoleIsWindowAtTopLevel(role))
        return QStringLiteral("AXWindow");
    if ((role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_ENTRY) && context.multiLine)
        return QStringLiteral("AXTextArea");
    if (role == ATSPI_ROLE_COMBO_BOX && context.editable)
        return QStringLiteral("AXComboBox");
    if (const RoleEntry* entry = entryFor(role))
        return QString::fromLatin1(entry->axRole);
    gchar* name = atspi_role_get_name(role);
    const QString text = name ? QString::fromUtf8(name) : QString();
    g_free(name);
    return text.isEmpty() ? QStringLiteral("AXUnknown") : axCamelCase(text);
}

QString axSubroleForAtspiRole(AtspiRole role) {
    const RoleEntry* entry = entryFor(role);
    return entry ? QString::fromLatin1(entry->axSubrole) : QString();
}

bool atspiRoleIsWindow(AtspiRole role) {
    const RoleEntry* entry = entryFor(role);
    return entry && qstrcmp(entry->axRole, "AXWindow") == 0;
}

bool atspiRoleIsWindowAtTopLevel(AtspiRole role) {
    return role == ATSPI_ROLE_FILLER || role == ATSPI_ROLE_PANEL;
}

QString axTitleBarButtonName(TitleBarButton button) {
    switch (button) {
    case TitleBarButton::Minimize:
        return QStringLiteral("AXMinimizeButton");
    case TitleBarButton::Zoom:
        return QStringLiteral("AXZoomButton");
    case TitleBarButton::Close:
        return QStringLiteral("AXCloseButton");
    case TitleBarButton::None:
        break;
    }
    return QString();
}

namespace {

struct TitleBarButtonName {
    const char* name;
    TitleBarButton button;
};

constexpr TitleBarButtonName titleBarButtonNames[] = {{"Minimize", TitleBarButton::Minimize},
                                                      {"Maximize", TitleBarButton::Zoom},
                                                      {"Restore", TitleBarButton::Zoom},
                                                      {"Close", TitleBarButton::Close}};

// GTK's names of the title-bar buttons in one language, from its catalog; read once per language.
QHash<QString, TitleBarButton> titleBarButtonNamesIn(const QString& language) {
    static QMutex mutex;
    static QHash<QString, QHash<QString, TitleBarButton>> byLanguage;
    QMutexLocker locker(&mutex);
    const auto known = byLanguage.constFind(language);
    if (known != byLanguage.cend())
        return *known;
    QHash<QString, TitleBarButton> names;
    // A language is a name, never a path.
    QFile file(QStringLiteral("/usr/share/locale/%1/LC_MESSAGES/gtk30.mo").arg(language));
    if (!language.contains(u'/') && file.size() <= kLargestCatalogFile && file.open(QIODevice::ReadOnly)) {
        if (const std::optional<Catalog> catalog = readGettextCatalog(file.readAll())) {
            for (const CatalogMessage& message : catalog->messages) {
                for (const TitleBarButtonName& entry : titleBarButtonNames) {
                    if (message.source == QLatin1String(entry.name) && message.context.isEmpty() &&
                        !message.translations.value(0).isEmpty())
                        names.insert(message.translations.first(), entry.button);
                }
            }
        }
    }
    byLanguage.insert(language, names);
    return names;
}

} // namespace

TitleBarButton titleBarButtonNamed(const QString& accessibleName, const QStringList& languages) {
    for (const TitleBarButtonName& entry : titleBarButtonNames)
        if (accessibleName == QLatin1String(entry.name) ||
            accessibleName == QString::fromUtf8(g_dgettext("gtk30", entry.name)))
            return entry.button;
    for (const QString& language : languages) {
        const TitleBarButton named =
            titleBarButtonNamesIn(language).value(accessibleName, TitleBarButton::None);
        if (named != TitleBarButton::None)
            return named;
    }
    return TitleBarButton::None;
}

QStringList messageLanguagesOfEnvironment(const QByteArray& environment) {
    QHash<QByteArray, QByteArray> variables;
    for (const QByteArray& entry : environment.split('\0')) {
        const qsizetype equals = entry.indexOf('=');
        if (equals > 0)
            variables.insert(entry.left(equals), entry.mid(equals + 1));
    }
    QByteArray locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = variables.value(name);
        if (!locale.isEmpty())
            break;
    }
    if (locale.isEmpty() || locale == "C" || locale == "POSIX")
        return {};
    const QByteArray language = variables.value("LANGUAGE");
    const QList<QByteArray> wanted = language.isEmpty() ? QList<QByteArray>{locale} : language.split(':');
    QStringList languages;
    for (const QByteArray& item : wanted) {
        // "de_DE.UTF-8@euro": the language and territory, then the language alone.
        static const QRegularExpression encodingOrModifier(QStringLiteral("[.@].*$"));
        const QString name = QString::fromUtf8(item).remove(encodingOrModifier);
        for (const QString& form : {name, name.section(u'_', 0, 0)}) {
            if (!form.isEmpty() && form != QLatin1String("C") && !languages.contains(form))
                languages.append(form);
        }
    }
    return languages;
}

QStringList axActionNames(const QStringList& toolkitNames) {
    qsizetype best = -1;
    for (qsizetype i = 0; i < toolkitNames.size(); ++i) {
        const int rank = pressRank(toolkitNames[i]);
        if (rank >= 0 && (best < 0 || rank < pressRank(toolkitNames[best])))
            best = i;
    }
    QStringList names;
    for (qsizetype i = 0; i < toolkitNames.size(); ++i)
        names.append(i == best ? QStringLiteral("AXPress") : axCamelCase(toolkitNames[i]));
    return names;
}
