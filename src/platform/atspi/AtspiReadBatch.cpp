#include "AtspiReadBatch.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QSet>

#include <algorithm>
#include <cstring>

// libatspi's own way from a reference in a reply to its object, shared with every element it
// makes: exported by every libatspi of the 2.x series, though no header of it declares it.
extern "C" AtspiAccessible* _atspi_dbus_consume_accessible(DBusMessageIter* iter);

namespace {

thread_local AtspiReadBatch* openBatch = nullptr;

constexpr const char accessibleInterface[] = "org.a11y.atspi.Accessible";

using MessageRef = std::unique_ptr<DBusMessage, void (*)(DBusMessage*)>;

MessageRef owned(DBusMessage* message) {
    return MessageRef(message, [](DBusMessage* m) {
        if (m)
            dbus_message_unref(m);
    });
}

DBusMessage* newCall(AtspiAccessible* element, const char* interface, const char* method) {
    const AtspiApplication* application = ATSPI_OBJECT(element)->app;
    return dbus_message_new_method_call(application ? application->bus_name : nullptr,
                                        ATSPI_OBJECT(element)->path, interface, method);
}

// A property read: org.freedesktop.DBus.Properties.Get of the Accessible interface.
DBusMessage* newPropertyRead(AtspiAccessible* element, const char* property) {
    DBusMessage* message = newCall(element, DBUS_INTERFACE_PROPERTIES, "Get");
    const char* interface = accessibleInterface;
    if (message && !dbus_message_append_args(message, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING,
                                             &property, DBUS_TYPE_INVALID)) {
        dbus_message_unref(message);
        return nullptr;
    }
    return message;
}

bool isErrorNamed(DBusMessage* reply, const char* name) {
    return dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_ERROR && dbus_message_get_error_name(reply) &&
           std::strcmp(dbus_message_get_error_name(reply), name) == 0;
}

// Applications (bus names) that a toolkit's trait sets apart: a toolkit's answers to a kind of
// call do not change while it runs, and a bus daemon gives no name twice.
class BusNames {
public:
    bool contains(const QByteArray& busName) {
        QMutexLocker locker(&mutex);
        return names.contains(busName);
    }
    void insert(const QByteArray& busName) {
        QMutexLocker locker(&mutex);
        names.insert(busName);
    }

private:
    QMutex mutex;
    QSet<QByteArray> names;
};

// Those whose toolkit does not have the accessible id.
BusNames& busesWithoutAccessibleId() {
    static BusNames buses;
    return buses;
}

// Those whose tree does not come whole from Cache.GetItems: the toolkit has no such cache (Qt 6
// answers an empty list), or an older form of it, or the tree is too large to read every tick.
BusNames& busesWithoutItems() {
    static BusNames buses;
    return buses;
}

class RoleNames {
public:
    // Applications restart; past this many names the ones kept are read again.
    static constexpr qsizetype maximumNames = 20000;

    std::optional<QString> find(const QByteArray& busName, AtspiRole role) {
        QMutexLocker locker(&mutex);
        auto found = names.constFind({busName, role});
        return found == names.constEnd() ? std::nullopt : std::optional<QString>(*found);
    }
    void insert(const QByteArray& busName, AtspiRole role, const QString& name) {
        // An extended role is the toolkit's own, named per element.
        if (role == ATSPI_ROLE_INVALID || role == ATSPI_ROLE_UNKNOWN || role == ATSPI_ROLE_EXTENDED)
            return;
        QMutexLocker locker(&mutex);
        if (names.size() >= maximumNames) {
            names.clear();
            buses.clear();
        }
        names.insert({busName, role}, name);
        buses.insert(busName);
    }
    bool knowsBus(const QByteArray& busName) {
        QMutexLocker locker(&mutex);
        return buses.contains(busName);
    }

private:
    QMutex mutex;
    QHash<std::pair<QByteArray, int>, QString> names;
    QSet<QByteArray> buses;
};

RoleNames& roleNames() {
    static RoleNames names;
    return names;
}

// The error of a toolkit that does not have the property asked for, of an element that answers.
bool lacksProperty(DBusMessage* reply) {
    return reply &&
           (isErrorNamed(reply, DBUS_ERROR_UNKNOWN_INTERFACE) ||
            isErrorNamed(reply, DBUS_ERROR_UNKNOWN_PROPERTY) || isErrorNamed(reply, DBUS_ERROR_INVALID_ARGS));
}

// The first argument of a reply, entered where it is a variant (a property's value).
bool firstArgument(DBusMessage* reply, DBusMessageIter* argument, int type) {
    if (!reply || dbus_message_get_type(reply) != DBUS_MESSAGE_TYPE_METHOD_RETURN ||
        !dbus_message_iter_init(reply, argument))
        return false;
    if (dbus_message_iter_get_arg_type(argument) == DBUS_TYPE_VARIANT) {
        DBusMessageIter outer = *argument;
        dbus_message_iter_recurse(&outer, argument);
    }
    return dbus_message_iter_get_arg_type(argument) == type;
}

} // namespace

std::optional<QString> atspiKnownRoleName(const QByteArray& busName, AtspiRole role) {
    return roleNames().find(busName, role);
}

void atspiNoteRoleName(const QByteArray& busName, AtspiRole role, const QString& name) {
    roleNames().insert(busName, role, name);
}

bool atspiKnowsRoleNamesOf(const QByteArray& busName) {
    return roleNames().knowsBus(busName);
}

std::optional<QString> atspiStringOfReply(DBusMessage* reply) {
    DBusMessageIter argument;
    if (!firstArgument(reply, &argument, DBUS_TYPE_STRING))
        return std::nullopt;
    const char* text = nullptr;
    dbus_message_iter_get_basic(&argument, &text);
    return QString::fromUtf8(text);
}

std::optional<quint32> atspiUintOfReply(DBusMessage* reply) {
    DBusMessageIter argument;
    if (!firstArgument(reply, &argument, DBUS_TYPE_UINT32))
        return std::nullopt;
    dbus_uint32_t number = 0;
    dbus_message_iter_get_basic(&argument, &number);
    return number;
}

namespace {

// Calls `each` with every item of the array at `array`, as long as the items are of `itemType`.
template <typename Each> void forEachIn(DBusMessageIter& array, int itemType, Each each) {
    DBusMessageIter items;
    dbus_message_iter_recurse(&array, &items);
    for (; dbus_message_iter_get_arg_type(&items) == itemType; dbus_message_iter_next(&items))
        each(items);
}

// The same for the array that is the reply's first argument; false when there is none.
template <typename Each> bool forEachInArray(DBusMessage* reply, int itemType, Each each) {
    DBusMessageIter argument;
    if (!firstArgument(reply, &argument, DBUS_TYPE_ARRAY))
        return false;
    forEachIn(argument, itemType, each);
    return true;
}

// A state set goes over the bus as two 32-bit words.
quint64 statesIn(DBusMessageIter& array) {
    quint64 states = 0;
    int shift = 0;
    forEachIn(array, DBUS_TYPE_UINT32, [&](DBusMessageIter& item) {
        dbus_uint32_t word = 0;
        dbus_message_iter_get_basic(&item, &word);
        if (shift < 64)
            states |= quint64(word) << shift;
        shift += 32;
    });
    return states;
}

quint32 interfacesIn(DBusMessageIter& array) {
    static const struct {
        const char* name;
        AtspiInterface bit;
    } known[] = {{"org.a11y.atspi.Component", kAtspiComponent},
                 {"org.a11y.atspi.Action", kAtspiAction},
                 {"org.a11y.atspi.Value", kAtspiValue},
                 {"org.a11y.atspi.Text", kAtspiText},
                 {"org.a11y.atspi.EditableText", kAtspiEditableText},
                 {"org.a11y.atspi.Collection", kAtspiCollection}};
    quint32 bits = 0;
    forEachIn(array, DBUS_TYPE_STRING, [&](DBusMessageIter& item) {
        const char* name = nullptr;
        dbus_message_iter_get_basic(&item, &name);
        for (const auto& entry : known)
            if (std::strcmp(entry.name, name) == 0)
                bits |= entry.bit;
    });
    return bits;
}

} // namespace

namespace {

// A text of a reply as a key, without a copy: valid while the reply lives.
QByteArray rawView(const char* text) {
    return QByteArray::fromRawData(text, qsizetype(std::strlen(text)));
}

// The bus name and path of a reference (so), without making an object of it.
void referenceIn(DBusMessageIter field, const char** bus, const char** path) {
    DBusMessageIter reference;
    dbus_message_iter_recurse(&field, &reference);
    dbus_message_iter_get_basic(&reference, bus);
    dbus_message_iter_next(&reference);
    dbus_message_iter_get_basic(&reference, path);
}

} // namespace

quint32 AtspiCacheItem::interfaces() const {
    DBusMessageIter list = interfaceList;
    return interfacesIn(list);
}

quint64 AtspiCacheItem::states() const {
    DBusMessageIter set = stateSet;
    return statesIn(set);
}

std::optional<std::vector<AtspiCacheItem>> atspiItemsOfReply(DBusMessage* reply) {
    if (!reply || dbus_message_get_type(reply) != DBUS_MESSAGE_TYPE_METHOD_RETURN ||
        std::strcmp(dbus_message_get_signature(reply), "a((so)(so)(so)iiassusau)") != 0)
        return std::nullopt;
    std::vector<AtspiCacheItem> items;
    // The signature says what each field is.
    forEachInArray(reply, DBUS_TYPE_STRUCT, [&](DBusMessageIter& entry) {
        AtspiCacheItem item;
        DBusMessageIter field;
        dbus_message_iter_recurse(&entry, &field);
        const auto basic = [&](auto* value) {
            dbus_message_iter_get_basic(&field, value);
            dbus_message_iter_next(&field);
        };
        item.self = field;
        referenceIn(field, &item.bus, &item.path);
        dbus_message_iter_next(&field);
        dbus_message_iter_next(&field); // the application
        item.parent = field;
        referenceIn(field, &item.parentBus, &item.parentPath);
        dbus_message_iter_next(&field);
        basic(&item.index);
        basic(&item.childCount);
        item.interfaceList = field;
        dbus_message_iter_next(&field);
        basic(&item.name);
        basic(&item.role);
        basic(&item.description);
        item.stateSet = field;
        items.push_back(item);
    });
    return items;
}

std::optional<quint64> atspiStatesOfReply(DBusMessage* reply) {
    DBusMessageIter argument;
    if (!firstArgument(reply, &argument, DBUS_TYPE_ARRAY))
        return std::nullopt;
    return statesIn(argument);
}

std::optional<quint32> atspiInterfacesOfReply(DBusMessage* reply) {
    DBusMessageIter argument;
    if (!firstArgument(reply, &argument, DBUS_TYPE_ARRAY))
        return std::nullopt;
    return interfacesIn(argument);
}

namespace {

// Calls sent together and awaited together: the replies of all take one round trip.
class Pipeline {
public:
    ~Pipeline() {
        for (DBusPendingCall* call : pending)
            if (call)
                dbus_pending_call_unref(call);
    }

    // The index of the call's reply; the call takes over the message.
    int send(AtspiAccessible* element, DBusMessage* message) {
        DBusPendingCall* call = nullptr;
        if (message) {
            if (!dbus_connection_send_with_reply(atspiConnectionOf(element), message, &call,
                                                 AtspiReader::replyTimeoutMs))
                call = nullptr;
            dbus_message_unref(message);
        }
        pending.push_back(call);
        return int(pending.size()) - 1;
    }

    // Awaits every reply: kAXErrorCannotComplete when any of them did not come in time.
    AXError await() {
        bool late = false;
        for (DBusPendingCall* call : pending) {
            replies.push_back(owned(nullptr));
            if (!call)
                continue;
            dbus_pending_call_block(call);
            replies.back() = owned(dbus_pending_call_steal_reply(call));
            late = late || timedOut(int(replies.size()) - 1);
        }
        return late ? kAXErrorCannotComplete : kAXErrorSuccess;
    }

    bool timedOut(int index) const {
        DBusMessage* answer = reply(index);
        return answer && isErrorNamed(answer, DBUS_ERROR_NO_REPLY);
    }

    // Null for a call that failed or was not asked.
    DBusMessage* reply(int index) const {
        return index >= 0 && std::size_t(index) < replies.size() ? replies[std::size_t(index)].get()
                                                                 : nullptr;
    }

private:
    std::vector<DBusPendingCall*> pending;
    std::vector<MessageRef> replies;
};

// The children in a reply of GetChildren; nullopt for any other reply.
std::optional<std::vector<AccessibleRef>> childrenOfReply(DBusMessage* reply) {
    if (!reply || std::strcmp(dbus_message_get_signature(reply), "a(so)") != 0)
        return std::nullopt;
    std::vector<AccessibleRef> children;
    forEachInArray(reply, DBUS_TYPE_STRUCT, [&](DBusMessageIter& item) {
        // Null for the toolkit's null reference.
        DBusMessageIter reference = item;
        if (AtspiAccessible* child = _atspi_dbus_consume_accessible(&reference))
            children.emplace_back(child);
    });
    return children;
}

} // namespace

DBusConnection* atspiConnectionOf(AtspiAccessible* element) {
    const AtspiApplication* application = ATSPI_OBJECT(element)->app;
    return application && application->bus ? application->bus : atspi_get_a11y_bus();
}

AtspiReadBatch* AtspiReadBatch::current() {
    return openBatch;
}

void AtspiReadBatch::open() {
    if (!openBatch)
        openBatch = new AtspiReadBatch;
    ++openBatch->depth;
}

void AtspiReadBatch::close() {
    if (openBatch && --openBatch->depth == 0) {
        delete openBatch;
        openBatch = nullptr;
    }
}

AtspiBatchedElement* AtspiReadBatch::find(const QByteArray& key) {
    auto found = elements.find(key);
    if (found != elements.end())
        return &found->second;
    if (trees.empty())
        return nullptr;
    AtspiBatchedElement added;
    addFromTree(key, added);
    if (!added.role)
        return nullptr;
    return &elements.emplace(key, std::move(added)).first->second;
}

AtspiBatchedElement& AtspiReadBatch::entry(const QByteArray& key) {
    if (AtspiBatchedElement* known = find(key))
        return *known;
    return elements[key];
}

void AtspiReadBatch::addFromTree(const QByteArray& key, AtspiBatchedElement& known) {
    const qsizetype split = key.indexOf('\n');
    if (split < 0)
        return;
    auto tree = trees.find(QByteArray::fromRawData(key.constData(), split));
    if (tree == trees.end())
        return;
    const int index = tree->second.byPath.value(
        QByteArray::fromRawData(key.constData() + split + 1, key.size() - split - 1), -1);
    if (index >= 0)
        addItem(tree->second, index, key, known);
}

void AtspiReadBatch::addItem(const Tree& tree, int index, const QByteArray& key, AtspiBatchedElement& known) {
    const AtspiCacheItem& item = tree.items[std::size_t(index)];
    known.role = known.role.value_or(AtspiRole(item.role));
    if (!known.name)
        known.name = QString::fromUtf8(item.name);
    if (!known.description)
        known.description = QString::fromUtf8(item.description);
    known.states = known.states.value_or(item.states());
    const quint32 interfaces = item.interfaces();
    known.interfaces = known.interfaces.value_or(interfaces);
    if (tree.interfaces)
        (*tree.interfaces)[key].interfaces = interfaces;
    if (!known.parent) {
        DBusMessageIter parent = item.parent;
        known.parent = AccessibleRef(_atspi_dbus_consume_accessible(&parent));
    }
    auto list = tree.lists.constFind(rawView(item.path));
    if (!known.children && list != tree.lists.constEnd()) {
        std::vector<AccessibleRef> children;
        for (const int child : *list) {
            DBusMessageIter self = tree.items[std::size_t(child)].self;
            if (AtspiAccessible* element = _atspi_dbus_consume_accessible(&self))
                children.emplace_back(element);
        }
        known.children = std::move(children);
    }
}

AXError AtspiReadBatch::readAhead(AtspiAccessible* parent, const std::vector<AccessibleRef>& children,
                                  AtspiInterfaceCache* interfaces) {
    return readAhead({{parent, &children}}, interfaces);
}

AXError AtspiReadBatch::readAhead(const std::vector<ChildList>& lists, AtspiInterfaceCache* interfaces) {
    struct Asked {
        AtspiAccessible* parent;
        QByteArray key;
        QByteArray bus;
        int role = -1, name = -1, description = -1, localizedRoleName = -1, states = -1, interfaces = -1;
    };
    Pipeline pipeline;
    std::vector<Asked> asked;
    for (const ChildList& list : lists) {
        for (const AccessibleRef& child : *list.children) {
            AtspiAccessible* element = child.get();
            const AtspiReader reader(element);
            Asked a{list.parent, reader.key(), reader.busName()};
            const AtspiBatchedElement& known = entry(a.key);
            const auto send = [&](DBusMessage* message) { return pipeline.send(element, message); };
            if (!known.role)
                a.role = send(newCall(element, accessibleInterface, "GetRole"));
            if (!known.name)
                a.name = send(newPropertyRead(element, "Name"));
            if (!known.description)
                a.description = send(newPropertyRead(element, "Description"));
            // Once the application's names of roles are known, its readers look them up by role.
            if (!known.localizedRoleName && !atspiKnowsRoleNamesOf(a.bus))
                a.localizedRoleName = send(newCall(element, accessibleInterface, "GetLocalizedRoleName"));
            if (!known.states)
                a.states = send(newCall(element, accessibleInterface, "GetState"));
            if (!known.interfaces && !(interfaces && interfaces->value(a.key).interfaces))
                a.interfaces = send(newCall(element, accessibleInterface, "GetInterfaces"));
            asked.push_back(std::move(a));
        }
    }
    const AXError result = pipeline.await();
    for (const Asked& a : asked) {
        AtspiBatchedElement& known = entry(a.key);
        if (pipeline.timedOut(a.role))
            known.failure = kAXErrorCannotComplete;
        if (!known.parent && a.parent)
            known.parent = retained(a.parent);
        if (const std::optional<quint32> role = atspiUintOfReply(pipeline.reply(a.role)))
            known.role = AtspiRole(*role);
        if (std::optional<QString> text = atspiStringOfReply(pipeline.reply(a.name)))
            known.name = std::move(text);
        if (std::optional<QString> text = atspiStringOfReply(pipeline.reply(a.description)))
            known.description = std::move(text);
        if (std::optional<QString> text = atspiStringOfReply(pipeline.reply(a.localizedRoleName))) {
            if (known.role)
                atspiNoteRoleName(a.bus, *known.role, *text);
            known.localizedRoleName = std::move(text);
        }
        if (const std::optional<quint64> states = atspiStatesOfReply(pipeline.reply(a.states)))
            known.states = states;
        if (const std::optional<quint32> bits = atspiInterfacesOfReply(pipeline.reply(a.interfaces))) {
            known.interfaces = bits;
            if (interfaces)
                (*interfaces)[a.key].interfaces = bits;
        }
    }
    return result;
}

void AtspiReadBatch::readAccessibleIds(AtspiAccessible* element, AtspiInterfaceCache* cache) {
    const AtspiReader reader(element);
    const QByteArray bus = reader.busName();
    const AtspiBatchedElement* self = find(reader.key());
    const AtspiBatchedElement* parent =
        self && self->parent ? find(AtspiReader(self->parent.get()).key()) : nullptr;
    std::vector<AccessibleRef> alone;
    if (!parent || !parent->children)
        alone.push_back(retained(element));
    const std::vector<AccessibleRef>& list = alone.empty() ? *parent->children : alone;
    const bool hasIds = !busesWithoutAccessibleId().contains(bus);
    Pipeline pipeline;
    std::vector<std::pair<QByteArray, int>> asked;
    for (const AccessibleRef& sibling : list) {
        const QByteArray key = AtspiReader(sibling.get()).key();
        AtspiBatchedElement& known = entry(key);
        if (known.accessibleId || known.failure != kAXErrorSuccess)
            continue;
        const AtspiKnownElement earlier = cache ? cache->value(key) : AtspiKnownElement();
        if (!hasIds)
            known.accessibleId = QString();
        else if (earlier.accessibleId && !earlier.accessibleIdExpiry.hasExpired())
            known.accessibleId = earlier.accessibleId;
        else
            asked.emplace_back(key,
                               pipeline.send(sibling.get(), newPropertyRead(sibling.get(), "AccessibleId")));
    }
    pipeline.await();
    for (const auto& [key, reply] : asked) {
        AtspiBatchedElement& known = entry(key);
        if (pipeline.timedOut(reply))
            known.failure = kAXErrorCannotComplete;
        else if (std::optional<QString> text = atspiStringOfReply(pipeline.reply(reply))) {
            if (cache) {
                AtspiKnownElement& later = (*cache)[key];
                later.accessibleId = text;
                later.accessibleIdExpiry.setRemainingTime(AtspiReader::accessibleIdReuseMs);
            }
            known.accessibleId = std::move(text);
        } else if (known.role && lacksProperty(pipeline.reply(reply))) {
            // A toolkit older than the property (Qt 6.4 calls it an unknown interface): no id.
            known.accessibleId = QString();
            busesWithoutAccessibleId().insert(bus);
        }
    }
}

void AtspiReadBatch::readItemsOnce(AtspiAccessible* element, AtspiInterfaceCache* interfaces) {
    const AtspiReader reader(element);
    const QByteArray bus = reader.busName();
    if (itemsAsked.contains(bus) || busesWithoutItems().contains(bus))
        return;
    itemsAsked.insert(bus);
    DBusMessage* call = dbus_message_new_method_call(bus.constData(), "/org/a11y/atspi/cache",
                                                     "org.a11y.atspi.Cache", "GetItems");
    Pipeline pipeline;
    const int asked = pipeline.send(element, call);
    if (pipeline.await() != kAXErrorSuccess) {
        // The reader that wanted the tree stops here, as a reader of a hung application does.
        entry(reader.key()).failure = kAXErrorCannotComplete;
        return;
    }
    DBusMessage* reply = pipeline.reply(asked);
    if (!reply || dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_ERROR)
        return;
    std::optional<std::vector<AtspiCacheItem>> items = atspiItemsOfReply(reply);
    if (!items) {
        busesWithoutItems().insert(bus);
        return;
    }
    if (items->size() > maximumItems)
        busesWithoutItems().insert(bus);
    Tree tree;
    tree.reply = {dbus_message_ref(reply), dbus_message_unref};
    tree.items = std::move(*items);
    tree.interfaces = interfaces;
    struct Sibling {
        int index; // among the parent's children
        int item;
    };
    QHash<QByteArray, std::vector<Sibling>> byParent;
    for (int i = 0; i < int(tree.items.size()); ++i) {
        const AtspiCacheItem& item = tree.items[std::size_t(i)];
        // Elements of other processes (an embedded one) are left to their own reads.
        if (std::strcmp(item.bus, bus.constData()) != 0)
            continue;
        tree.byPath.insert(rawView(item.path), i);
        if (std::strcmp(item.parentBus, item.bus) == 0)
            byParent[rawView(item.parentPath)].push_back({item.index, i});
    }
    // A list counts only where the cache holds every child of its parent, each in its place: the
    // toolkit leaves out the descendants of an element that manages them, and may add a new
    // element a moment after it shows.
    for (auto group = byParent.begin(); group != byParent.end(); ++group) {
        std::vector<Sibling>& siblings = *group;
        const int parent = tree.byPath.value(group.key(), -1);
        if (parent < 0 || tree.items[std::size_t(parent)].childCount != int(siblings.size()))
            continue;
        std::sort(siblings.begin(), siblings.end(),
                  [](const Sibling& a, const Sibling& b) { return a.index < b.index; });
        std::vector<int> list;
        for (std::size_t i = 0; i < siblings.size() && siblings[i].index == int(i); ++i)
            list.push_back(siblings[i].item);
        if (list.size() == siblings.size())
            tree.lists.insert(group.key(), std::move(list));
    }
    // What the batch knew before of elements of the tree gains what the tree adds.
    const QByteArray prefix = bus + '\n';
    trees.emplace(bus, std::move(tree));
    for (auto& [key, known] : elements) {
        if (key.startsWith(prefix))
            addFromTree(key, known);
    }
}

AXError AtspiReadBatch::readChildLists(const std::vector<AtspiAccessible*>& parents,
                                       std::vector<ChildList>* lists) {
    Pipeline pipeline;
    std::vector<std::pair<AtspiAccessible*, int>> asked;
    for (AtspiAccessible* parent : parents) {
        const AtspiBatchedElement* known = find(AtspiReader(parent).key());
        if (!known || !known->children)
            asked.emplace_back(parent,
                               pipeline.send(parent, newCall(parent, accessibleInterface, "GetChildren")));
    }
    const AXError result = pipeline.await();
    for (const auto& [parent, reply] : asked) {
        AtspiBatchedElement& known = entry(AtspiReader(parent).key());
        if (pipeline.timedOut(reply))
            known.failure = kAXErrorCannotComplete;
        // A toolkit without GetChildren is left to the reader, which reads its children one by one.
        else if (std::optional<std::vector<AccessibleRef>> children = childrenOfReply(pipeline.reply(reply)))
            known.children = std::move(children);
    }
    for (AtspiAccessible* parent : parents) {
        const AtspiBatchedElement* known = lists ? find(AtspiReader(parent).key()) : nullptr;
        if (known && known->children)
            lists->push_back({parent, &*known->children});
    }
    return result;
}

AXError AtspiReadBatch::readChildrenAhead(const std::vector<AtspiAccessible*>& parents,
                                          AtspiInterfaceCache* interfaces) {
    std::vector<ChildList> lists;
    const AXError result = readChildLists(parents, &lists);
    const AXError fields = readAhead(lists, interfaces);
    return result != kAXErrorSuccess ? result : fields;
}

DBusMessage* atspiCallAndWait(AtspiAccessible* element, const char* method, AXError* failure) {
    *failure = kAXErrorSuccess;
    DBusMessage* message = newCall(element, accessibleInterface, method);
    if (!message) {
        *failure = kAXErrorInvalidUIElement;
        return nullptr;
    }
    DBusError error;
    dbus_error_init(&error);
    QElapsedTimer timer;
    timer.start();
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(atspiConnectionOf(element), message,
                                                                   AtspiReader::replyTimeoutMs, &error);
    dbus_message_unref(message);
    if (reply)
        return reply;
    const bool unknownMethod = error.name && std::strcmp(error.name, DBUS_ERROR_UNKNOWN_METHOD) == 0;
    const bool late = timer.elapsed() >= AtspiReader::replyTimeoutMs ||
                      (error.name && (std::strcmp(error.name, DBUS_ERROR_NO_REPLY) == 0 ||
                                      std::strcmp(error.name, DBUS_ERROR_TIMEOUT) == 0));
    dbus_error_free(&error);
    *failure = unknownMethod ? kAXErrorAttributeUnsupported
               : late        ? kAXErrorCannotComplete
                             : kAXErrorInvalidUIElement;
    return nullptr;
}

std::optional<std::vector<AccessibleRef>> atspiChildrenInOneCall(AtspiAccessible* element, AXError* failure) {
    const MessageRef reply = owned(atspiCallAndWait(element, "GetChildren", failure));
    if (*failure == kAXErrorAttributeUnsupported) {
        *failure = kAXErrorSuccess;
        return std::nullopt;
    }
    if (!reply)
        return std::vector<AccessibleRef>();
    return childrenOfReply(reply.get());
}
