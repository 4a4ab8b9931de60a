#include "AtspiReader.h"

#include "AtspiReadBatch.h"
#include "AtspiRoles.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QMutex>

#include <dbus/dbus.h>

#include <algorithm>
#include <climits>
#include <deque>

using VirtualDesktopModel::Value;

namespace {

enum class Outcome { Answered, Gone, NoAnswer };

bool isTimeout(const QString& text, qint64 elapsedMs) {
    return elapsedMs >= AtspiReader::replyTimeoutMs || text.contains(QLatin1String("NoReply")) ||
           text.contains(QLatin1String("did not receive a reply"), Qt::CaseInsensitive) ||
           text.contains(QLatin1String("timeout"), Qt::CaseInsensitive);
}

// How a call ended. libatspi hands the bus's error over as text only; a call that took the whole
// time-out did not get its answer, whatever it returned.
Outcome outcomeOf(GError* error, qint64 elapsedMs) {
    if (!error)
        return elapsedMs >= AtspiReader::replyTimeoutMs ? Outcome::NoAnswer : Outcome::Answered;
    const QString message = QString::fromUtf8(error->message);
    g_error_free(error);
    return isTimeout(message, elapsedMs) ? Outcome::NoAnswer : Outcome::Gone;
}

QString takeString(gchar* text) {
    const QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

bool isCheckable(AtspiRole role) {
    switch (role) {
    case ATSPI_ROLE_CHECK_BOX:
    case ATSPI_ROLE_RADIO_BUTTON:
    case ATSPI_ROLE_TOGGLE_BUTTON:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
        return true;
    default:
        return false;
    }
}

bool isNumeric(AtspiRole role) {
    switch (role) {
    case ATSPI_ROLE_SLIDER:
    case ATSPI_ROLE_SPIN_BUTTON:
    case ATSPI_ROLE_SCROLL_BAR:
    case ATSPI_ROLE_PROGRESS_BAR:
    case ATSPI_ROLE_LEVEL_BAR:
    case ATSPI_ROLE_DIAL:
        return true;
    default:
        return false;
    }
}

const QByteArray applicationRootPath = QByteArrayLiteral("/org/a11y/atspi/accessible/root");

} // namespace

AccessibleRef retained(AtspiAccessible* accessible) {
    return AccessibleRef(accessible ? static_cast<AtspiAccessible*>(g_object_ref(accessible)) : nullptr);
}

std::vector<AccessibleRef> copiesOf(const std::vector<AccessibleRef>& accessibles) {
    std::vector<AccessibleRef> copies;
    copies.reserve(accessibles.size());
    for (const AccessibleRef& accessible : accessibles)
        copies.push_back(retained(accessible.get()));
    return copies;
}

template <typename Call> auto AtspiReader::call(Call function) -> decltype(function(nullptr)) {
    using Result = decltype(function(nullptr));
    if (failure != kAXErrorSuccess)
        return Result{};
    GError* error = nullptr;
    QElapsedTimer timer;
    timer.start();
    Result result = function(&error);
    switch (outcomeOf(error, timer.elapsed())) {
    case Outcome::Answered:
        return result;
    case Outcome::Gone:
        failure = kAXErrorInvalidUIElement;
        break;
    case Outcome::NoAnswer:
        failure = kAXErrorCannotComplete;
        break;
    }
    if constexpr (std::is_pointer_v<Result>) {
        // A pointer from a failed call may still be an allocation of libatspi's.
        if constexpr (std::is_same_v<Result, gchar*>)
            g_free(result);
        else if constexpr (std::is_same_v<Result, AtspiRect*>)
            g_free(result);
        else if constexpr (std::is_same_v<Result, GArray*>) {
            if (result)
                g_array_free(result, TRUE);
        } else if (result)
            g_object_unref(result);
    }
    return Result{};
}

bool AtspiReader::isApplication() const {
    return QByteArray(ATSPI_OBJECT(element)->path) == applicationRootPath;
}

QByteArray AtspiReader::busName() const {
    const AtspiApplication* application = ATSPI_OBJECT(element)->app;
    return application ? QByteArray(application->bus_name) : QByteArray();
}

QByteArray AtspiReader::key() const {
    return busName() + '\n' + QByteArray(ATSPI_OBJECT(element)->path);
}

bool AtspiReader::hasInterface(AtspiInterface which) {
    return (interfaces() & which) != 0;
}

quint32 AtspiReader::interfaces() {
    if (knownInterfaces)
        return *knownInterfaces;
    if (interfaceCache) {
        auto cached = interfaceCache->constFind(key());
        if (cached != interfaceCache->constEnd() && cached->interfaces)
            return *(knownInterfaces = cached->interfaces);
    }
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->interfaces)
        return *(knownInterfaces = batched->interfaces);
    if (failure != kAXErrorSuccess)
        return 0;
    // libatspi would wait for the bus's own 25 s time-out when an application hangs.
    AXError error = kAXErrorSuccess;
    DBusMessage* reply = atspiCallAndWait(element, "GetInterfaces", &error);
    const std::optional<quint32> answered = atspiInterfacesOfReply(reply);
    if (reply)
        dbus_message_unref(reply);
    if (!answered) {
        failure = error == kAXErrorCannotComplete ? error : kAXErrorInvalidUIElement;
        return 0;
    }
    const quint32 bits = *answered;
    knownInterfaces = bits;
    if (interfaceCache)
        (*interfaceCache)[key()].interfaces = bits;
    return bits;
}

AtspiRole AtspiReader::role() {
    if (knownRole)
        return *knownRole;
    if (interfaceCache) {
        auto cached = interfaceCache->constFind(key());
        if (cached != interfaceCache->constEnd() && !cached->roleExpiry.hasExpired())
            return *(knownRole = cached->role);
    }
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->role)
        return *(knownRole = batched->role);
    const AtspiRole answered = call([&](GError** e) { return atspi_accessible_get_role(element, e); });
    if (failure != kAXErrorSuccess)
        return ATSPI_ROLE_INVALID;
    knownRole = answered;
    if (interfaceCache) {
        AtspiKnownElement& known = (*interfaceCache)[key()];
        known.role = answered;
        known.roleExpiry.setRemainingTime(roleReuseMs);
    }
    return answered;
}

bool AtspiReader::isTopLevel() {
    if (!topLevel) {
        const AccessibleRef above = parent();
        if (failure != kAXErrorSuccess)
            return false;
        topLevel = above && AtspiReader(above.get()).isApplication();
    }
    return *topLevel;
}

bool AtspiReader::isWindow() {
    const AtspiRole own = role();
    return atspiRoleIsWindow(own) || (atspiRoleIsWindowAtTopLevel(own) && isTopLevel());
}

bool AtspiReader::hasState(AtspiStateType state) {
    if (!states) {
        if (const AtspiBatchedElement* batched = inBatch(); batched && batched->states)
            return int(state) < 64 && (*batched->states >> int(state)) & 1;
        // The state set comes without an error; only the time tells a hung application.
        states.reset(call([&](GError**) { return atspi_accessible_get_state_set(element); }));
        if (!states)
            return false;
    }
    return atspi_state_set_contains(states.get(), state);
}

QString AtspiReader::axRole() {
    AtspiRoleContext context;
    const AtspiRole own = role();
    if (own == ATSPI_ROLE_MENU) {
        const AccessibleRef container = parent();
        if (container)
            context.parentRole = AtspiReader(container.get(), interfaceCache).role();
    }
    if (own == ATSPI_ROLE_TEXT || own == ATSPI_ROLE_ENTRY)
        context.multiLine = hasState(ATSPI_STATE_MULTI_LINE);
    if (own == ATSPI_ROLE_COMBO_BOX)
        context.editable = hasState(ATSPI_STATE_EDITABLE);
    if (atspiRoleIsWindowAtTopLevel(own))
        context.topLevel = isTopLevel();
    return axRoleForAtspiRole(own, context);
}

QString AtspiReader::name() {
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->name)
        return *batched->name;
    return takeString(call([&](GError** e) { return atspi_accessible_get_name(element, e); }));
}

QString AtspiReader::description() {
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->description)
        return *batched->description;
    return takeString(call([&](GError** e) { return atspi_accessible_get_description(element, e); }));
}

QString AtspiReader::localizedRoleName() {
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->localizedRoleName)
        return *batched->localizedRoleName;
    const AtspiRole known = role();
    if (failure != kAXErrorSuccess)
        return QString();
    if (std::optional<QString> name = atspiKnownRoleName(busName(), known))
        return *name;
    QString name =
        takeString(call([&](GError** e) { return atspi_accessible_get_localized_role_name(element, e); }));
    if (failure == kAXErrorSuccess)
        atspiNoteRoleName(busName(), known, name);
    return name;
}

QString AtspiReader::accessibleId() {
    if (const AtspiBatchedElement* batched = inBatch(); batched && !batched->accessibleId)
        AtspiReadBatch::current()->readAccessibleIds(element, interfaceCache);
    // Again: a list that timed out stops this reader too.
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->accessibleId)
        return *batched->accessibleId;
    return takeString(call([&](GError** e) { return atspi_accessible_get_accessible_id(element, e); }));
}

std::optional<CGRect> AtspiReader::frame(bool* hasComponent) {
    const bool component = hasInterface(kAtspiComponent);
    if (hasComponent)
        *hasComponent = component;
    if (!component)
        return std::nullopt;
    AtspiRect* rect = call([&](GError** e) {
        return atspi_component_get_extents(ATSPI_COMPONENT(element), ATSPI_COORD_TYPE_SCREEN, e);
    });
    if (!rect)
        return std::nullopt;
    const bool offScreen = rect->x == INT_MIN && rect->y == INT_MIN;
    const CGRect frame{{double(rect->x), double(rect->y)}, {double(rect->width), double(rect->height)}};
    g_free(rect);
    return offScreen ? std::nullopt : std::optional<CGRect>(frame);
}

bool AtspiReader::hasValue() {
    const AtspiRole own = role();
    return failure == kAXErrorSuccess &&
           (isCheckable(own) || (isNumeric(own) && hasInterface(kAtspiValue)) || hasInterface(kAtspiText));
}

std::optional<Value> AtspiReader::value() {
    if (!hasValue())
        return std::nullopt;
    const AtspiRole own = role();
    Value result;
    if (isCheckable(own)) {
        result.kind = Value::Kind::Integer;
        result.integer = hasState(ATSPI_STATE_CHECKED) ? 1 : hasState(ATSPI_STATE_INDETERMINATE) ? 2 : 0;
        return result;
    }
    if (isNumeric(own) && hasInterface(kAtspiValue)) {
        result.kind = Value::Kind::Double;
        result.number =
            call([&](GError** e) { return atspi_value_get_current_value(ATSPI_VALUE(element), e); });
        return result;
    }
    result.kind = Value::Kind::String;
    result.text =
        takeString(call([&](GError** e) { return atspi_text_get_text(ATSPI_TEXT(element), 0, -1, e); }));
    return result;
}

int AtspiReader::childCount() {
    return call([&](GError** e) { return atspi_accessible_get_child_count(element, e); });
}

AtspiBatchedElement* AtspiReader::inBatch() {
    AtspiReadBatch* batch = AtspiReadBatch::current();
    AtspiBatchedElement* batched = batch && failure == kAXErrorSuccess ? batch->find(key()) : nullptr;
    if (batched && batched->failure != kAXErrorSuccess) {
        failure = batched->failure;
        return nullptr;
    }
    return batched;
}

bool AtspiReader::isDesktop() const {
    return busName() == QByteArrayLiteral("org.a11y.atspi.Registry");
}

std::vector<AccessibleRef> AtspiReader::children() {
    AtspiReadBatch* batch = AtspiReadBatch::current();
    if (!batch || failure != kAXErrorSuccess)
        return readChildren();
    if (const AtspiBatchedElement* batched = batch->find(key()); batched && batched->children)
        return copiesOf(*batched->children);
    // The applications are not read ahead: of them only the bus name and process matter.
    if (isDesktop()) {
        std::vector<AccessibleRef> result = readChildren();
        if (failure == kAXErrorSuccess)
            batch->entry(key()).children = copiesOf(result);
        return result;
    }
    std::optional<std::vector<AccessibleRef>> fromTree = childrenFromTree();
    std::vector<AccessibleRef> result = fromTree ? std::move(*fromTree) : readChildren();
    if (failure == kAXErrorSuccess)
        adoptFailure(batch->readAhead(element, result, interfaceCache));
    if (failure != kAXErrorSuccess)
        return {};
    batch->entry(key()).children = copiesOf(result);
    return result;
}

std::optional<std::vector<AccessibleRef>> AtspiReader::childrenFromTree() {
    AtspiReadBatch* batch = AtspiReadBatch::current();
    if (!batch || failure != kAXErrorSuccess || isDesktop())
        return std::nullopt;
    batch->readItemsOnce(element, interfaceCache);
    const AtspiBatchedElement* batched = inBatch();
    return batched && batched->children ? std::optional(copiesOf(*batched->children)) : std::nullopt;
}

std::vector<AccessibleRef> AtspiReader::readChildren() {
    if (failure != kAXErrorSuccess)
        return {};
    AXError error = kAXErrorSuccess;
    std::optional<std::vector<AccessibleRef>> all = atspiChildrenInOneCall(element, &error);
    adoptFailure(error);
    if (failure != kAXErrorSuccess)
        return {};
    if (all)
        return std::move(*all);
    // A toolkit without GetChildren: child by child.
    std::vector<AccessibleRef> result;
    const int count = childCount();
    for (int i = 0; i < count && failure == kAXErrorSuccess; ++i) {
        AccessibleRef child(
            call([&](GError** e) { return atspi_accessible_get_child_at_index(element, i, e); }));
        if (child)
            result.push_back(std::move(child));
    }
    if (failure != kAXErrorSuccess)
        result.clear();
    return result;
}

std::vector<AccessibleRef> AtspiReader::shownChildren() {
    AtspiReadBatch* batch = failure == kAXErrorSuccess ? AtspiReadBatch::current() : nullptr;
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->shownChildren)
        return copiesOf(*batched->shownChildren);
    std::vector<AccessibleRef> result;
    std::optional<std::vector<AccessibleRef>> fromTree = batch ? childrenFromTree() : std::nullopt;
    if (fromTree || hasInterface(kAtspiCollection)) {
        if (fromTree) {
            // The application's tree gives the states with the children.
            result = std::move(*fromTree);
            keepShown(result);
        } else {
            result = matchesWithState(ATSPI_STATE_SHOWING, 0, false);
        }
        if (batch && failure == kAXErrorSuccess)
            adoptFailure(batch->readAhead(element, result, interfaceCache));
    } else {
        // In a batch, the states and the other fields come with the children.
        result = children();
        keepShown(result);
    }
    if (failure != kAXErrorSuccess)
        return {};
    if (batch)
        batch->entry(key()).shownChildren = copiesOf(result);
    return result;
}

void AtspiReader::keepShown(std::vector<AccessibleRef>& elements) {
    elements.erase(std::remove_if(elements.begin(), elements.end(),
                                  [&](const AccessibleRef& element) {
                                      AtspiReader reader(element.get());
                                      const bool shown = reader.hasState(ATSPI_STATE_SHOWING);
                                      adopt(reader);
                                      return !shown;
                                  }),
                   elements.end());
}

AccessibleRef AtspiReader::parent() {
    if (isApplication())
        return nullptr;
    if (const AtspiBatchedElement* batched = inBatch(); batched && batched->parent)
        return retained(batched->parent.get());
    return AccessibleRef(call([&](GError** e) { return atspi_accessible_get_parent(element, e); }));
}

AccessibleRef AtspiReader::window() {
    AccessibleRef current = retained(element);
    for (int depth = 0; depth < 1000 && current && failure == kAXErrorSuccess; ++depth) {
        AtspiReader reader(current.get(), interfaceCache);
        if (reader.isApplication())
            return nullptr;
        if (atspiRoleIsWindow(reader.role()))
            return current;
        AccessibleRef above = reader.parent();
        failure = reader.error();
        // The element right below the application is its window, whatever its role.
        if (above && AtspiReader(above.get()).isApplication())
            return current;
        current = std::move(above);
    }
    return nullptr;
}

AccessibleRef AtspiReader::activeWindow() {
    for (AccessibleRef& child : children()) {
        AtspiReader reader(child.get());
        reader.markTopLevel();
        if (reader.isWindow() && reader.hasState(ATSPI_STATE_ACTIVE))
            return std::move(child);
    }
    return nullptr;
}

AccessibleRef AtspiReader::focusedDescendant() {
    if (!hasInterface(kAtspiCollection))
        return searchFocused();
    std::vector<AccessibleRef> found = matchesWithState(ATSPI_STATE_FOCUSED, 1, true);
    return found.empty() ? nullptr : std::move(found.front());
}

std::vector<AccessibleRef> AtspiReader::matchesWithState(AtspiStateType state, int count, bool traverse) {
    GRef<AtspiStateSet> states(atspi_state_set_new(nullptr));
    atspi_state_set_add(states.get(), state);
    GRef<AtspiMatchRule> rule(atspi_match_rule_new(
        states.get(), ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_NONE, nullptr,
        ATSPI_Collection_MATCH_NONE, nullptr, ATSPI_Collection_MATCH_NONE, FALSE));
    GArray* matches = call([&](GError** e) {
        return atspi_collection_get_matches(ATSPI_COLLECTION(element), rule.get(),
                                            ATSPI_Collection_SORT_ORDER_CANONICAL, count, traverse, e);
    });
    std::vector<AccessibleRef> result;
    for (guint i = 0; matches && i < matches->len; ++i)
        result.emplace_back(g_array_index(matches, AtspiAccessible*, i));
    if (matches)
        g_array_free(matches, TRUE);
    return result;
}

AccessibleRef AtspiReader::searchFocused() {
    std::deque<AccessibleRef> queue;
    for (AccessibleRef& child : children())
        queue.push_back(std::move(child));
    for (int budget = maximumFocusSearch; !queue.empty() && budget > 0 && failure == kAXErrorSuccess;
         --budget) {
        AccessibleRef node = std::move(queue.front());
        queue.pop_front();
        AtspiReader reader(node.get());
        if (reader.hasState(ATSPI_STATE_FOCUSED))
            return node;
        // Nothing hidden holds the focus that counts; an element gone meanwhile is passed over.
        if (reader.hasState(ATSPI_STATE_SHOWING))
            for (AccessibleRef& child : reader.children())
                queue.push_back(std::move(child));
    }
    return nullptr;
}

AccessibleRef AtspiReader::childAtPoint(CGPoint point) {
    if (!hasInterface(kAtspiComponent))
        return nullptr;
    return AccessibleRef(call([&](GError** e) {
        return atspi_component_get_accessible_at_point(ATSPI_COMPONENT(element), gint(point.x), gint(point.y),
                                                       ATSPI_COORD_TYPE_SCREEN, e);
    }));
}

void AtspiReader::adoptFailure(AXError error) {
    if (failure == kAXErrorSuccess)
        failure = error;
}

void AtspiReader::adopt(const AtspiReader& other) {
    // An element below or above that is gone meanwhile is passed over; it says nothing of this
    // one. A hung application is this element's too.
    if (failure == kAXErrorSuccess && other.failure == kAXErrorCannotComplete)
        failure = other.failure;
}

bool AtspiReader::drawsHeaderBars() {
    // The toolkit's name never changes; libatspi asks for it once per application. GTK 4 calls
    // itself "GTK" and builds its title bar otherwise.
    return takeString(call([&](GError** e) { return atspi_accessible_get_toolkit_name(element, e); })) ==
           QLatin1String("gtk");
}

QStringList AtspiReader::applicationLanguages() {
    static QMutex mutex;
    static QHash<QByteArray, QStringList> byBusName;
    const QByteArray bus = busName();
    {
        QMutexLocker locker(&mutex);
        const auto known = byBusName.constFind(bus);
        if (known != byBusName.cend())
            return *known;
    }
    GError* error = nullptr;
    const pid_t pid = pid_t(atspi_accessible_get_process_id(element, &error));
    if (error) {
        g_error_free(error);
        return {};
    }
    QStringList languages;
    QFile environment(QStringLiteral("/proc/%1/environ").arg(pid));
    if (pid > 0 && environment.open(QIODevice::ReadOnly))
        languages = messageLanguagesOfEnvironment(environment.read(1024 * 1024));
    QMutexLocker locker(&mutex);
    byBusName.insert(bus, languages);
    return languages;
}

TitleBarButton AtspiReader::titleBarButton() {
    if (role() != ATSPI_ROLE_PUSH_BUTTON)
        return TitleBarButton::None;
    const QString buttonName = name();
    TitleBarButton named = titleBarButtonNamed(buttonName);
    // The application may show its texts in another language than this process.
    if (named == TitleBarButton::None && !buttonName.isEmpty())
        named = titleBarButtonNamed(buttonName, applicationLanguages());
    if (named == TitleBarButton::None || !drawsHeaderBars())
        return TitleBarButton::None;
    // Up from the button: the box of window controls, the header bar, the window.
    const AtspiRole expected[] = {ATSPI_ROLE_FILLER, ATSPI_ROLE_PANEL};
    AccessibleRef current = parent();
    for (AtspiRole role : expected) {
        if (!current)
            return TitleBarButton::None;
        AtspiReader reader(current.get());
        const bool matches = reader.role() == role;
        current = matches ? reader.parent() : nullptr;
        adopt(reader);
        if (!matches)
            return TitleBarButton::None;
    }
    if (!current)
        return TitleBarButton::None;
    AtspiReader window(current.get());
    const bool inWindow = atspiRoleIsWindow(window.role());
    adopt(window);
    return inWindow && failure == kAXErrorSuccess ? named : TitleBarButton::None;
}

AccessibleRef AtspiReader::drawnTitleBarButton(TitleBarButton which) {
    if (!drawsHeaderBars())
        return nullptr;
    const QStringList languages = applicationLanguages();
    // Down from the window: the shown header bars, their boxes, their buttons.
    for (AccessibleRef& bar : shownChildren()) {
        AtspiReader barReader(bar.get(), interfaceCache);
        if (barReader.role() != ATSPI_ROLE_PANEL)
            continue;
        for (AccessibleRef& box : barReader.shownChildren()) {
            AtspiReader boxReader(box.get(), interfaceCache);
            if (boxReader.role() != ATSPI_ROLE_FILLER)
                continue;
            for (AccessibleRef& button : boxReader.shownChildren()) {
                AtspiReader buttonReader(button.get(), interfaceCache);
                if (buttonReader.role() == ATSPI_ROLE_PUSH_BUTTON &&
                    titleBarButtonNamed(buttonReader.name(), languages) == which)
                    return std::move(button);
                adopt(buttonReader);
            }
            adopt(boxReader);
        }
        adopt(barReader);
        if (failure != kAXErrorSuccess)
            return nullptr;
    }
    return nullptr;
}

QStringList AtspiReader::toolkitActionNames() {
    QStringList names;
    if (!hasInterface(kAtspiAction))
        return names;
    const int count = call([&](GError** e) { return atspi_action_get_n_actions(ATSPI_ACTION(element), e); });
    for (int i = 0; i < count && failure == kAXErrorSuccess; ++i)
        names.append(takeString(
            call([&](GError** e) { return atspi_action_get_action_name(ATSPI_ACTION(element), i, e); })));
    if (failure != kAXErrorSuccess)
        names.clear();
    return names;
}

int AtspiReader::actionIndex(const QString& axName) {
    return int(axActionNames(toolkitActionNames()).indexOf(axName));
}

QString AtspiReader::actionDescription(int index) {
    const QString description = takeString(call(
        [&](GError** e) { return atspi_action_get_action_description(ATSPI_ACTION(element), index, e); }));
    if (!description.isEmpty())
        return description;
    return takeString(
        call([&](GError** e) { return atspi_action_get_localized_name(ATSPI_ACTION(element), index, e); }));
}

bool AtspiReader::doAction(int index) {
    return call([&](GError** e) { return atspi_action_do_action(ATSPI_ACTION(element), index, e); });
}

bool AtspiReader::setText(const QString& text) {
    if (!hasInterface(kAtspiEditableText))
        return false;
    const QByteArray utf8 = text.toUtf8();
    return call([&](GError** e) {
        return atspi_editable_text_set_text_contents(ATSPI_EDITABLE_TEXT(element), utf8.constData(), e);
    });
}

bool AtspiReader::setNumber(double number) {
    if (!hasInterface(kAtspiValue))
        return false;
    return call([&](GError** e) { return atspi_value_set_current_value(ATSPI_VALUE(element), number, e); });
}

bool AtspiReader::grabFocus() {
    if (!hasInterface(kAtspiComponent))
        return false;
    return call([&](GError** e) { return atspi_component_grab_focus(ATSPI_COMPONENT(element), e); });
}
