#pragma once

// One walk's reads (AXReadBatch): while a batch is open on a thread, a child list read there
// brings along, in one round trip for all the children, what matching asks of each of them:
// role, name, description, states, the interfaces that are not known yet, and the localized role
// name where the application's names of roles are not known yet. Every call of that round trip is
// sent before the first reply is awaited. The readers of the thread answer from the batch until it
// ends, and a list read twice in it is read once. Accessible ids are read for a whole list when
// the first of its elements is asked for one. Nothing outlives the batch but the interfaces and
// the names of roles, which do not change, and the accessible ids, for a while.
//
// A read that the batch did not get (an error reply) is left to the reader, which asks again as
// it would without a batch, so an answer is the same with or without one.

#include "AtspiReader.h"

#include <QByteArray>
#include <QHash>
#include <QHashFunctions>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

struct AtspiBatchedElement {
    std::optional<AtspiRole> role;
    std::optional<QString> name;
    std::optional<QString> description;
    std::optional<QString> localizedRoleName;
    std::optional<QString> accessibleId;
    std::optional<quint64> states; // bit n: AtspiStateType n
    std::optional<quint32> interfaces;
    // kAXErrorCannotComplete once the application let a read of the batch time out: it is not
    // asked again in the batch.
    AXError failure = kAXErrorSuccess;
    // The element the child list was read from; null when not known.
    AccessibleRef parent;
    std::optional<std::vector<AccessibleRef>> children;
    std::optional<std::vector<AccessibleRef>> shownChildren;
};

// One element of a toolkit's cache (Cache.GetItems), read in place: the iterators and texts point
// into the reply and are valid while it lives. The interfaces and states are read when asked.
struct AtspiCacheItem {
    DBusMessageIter self;
    DBusMessageIter parent;
    const char* bus = "";
    const char* path = "";
    const char* parentBus = "";
    const char* parentPath = "";
    qint32 index = 0; // among its parent's children
    qint32 childCount = 0;
    DBusMessageIter interfaceList;
    const char* name = "";
    quint32 role = 0;
    const char* description = "";
    DBusMessageIter stateSet;

    quint32 interfaces() const;
    quint64 states() const;
};

class AtspiReadBatch {
public:
    // The batch open on the calling thread, null when there is none.
    static AtspiReadBatch* current();
    // Opens the thread's batch, or nests in the open one; the outermost close ends it.
    static void open();
    static void close();

    // What the batch knows of the element with this key (AtspiReader::key), null if nothing.
    AtspiBatchedElement* find(const QByteArray& key);
    AtspiBatchedElement& entry(const QByteArray& key);

    // Reads the fields above of each child of parent in one round trip. kAXErrorCannotComplete
    // when the application let it time out; a child gone meanwhile is simply left unknown.
    AXError readAhead(AtspiAccessible* parent, const std::vector<AccessibleRef>& children,
                      AtspiInterfaceCache* interfaces);
    struct ChildList {
        AtspiAccessible* parent;
        const std::vector<AccessibleRef>* children;
    };
    AXError readAhead(const std::vector<ChildList>& lists, AtspiInterfaceCache* interfaces);
    // The accessible ids of the element's list (the children of its parent in the batch), in one
    // round trip, or of the element alone where the batch has no list of it. Those read by an
    // earlier batch within AtspiReader::accessibleIdReuseMs are taken from `known`.
    void readAccessibleIds(AtspiAccessible* element, AtspiInterfaceCache* known);
    // Processes found running in this batch: one look at the process table each.
    bool isKnownAlive(pid_t pid) const { return alive.contains(pid); }
    void noteAlive(pid_t pid) { alive.insert(pid); }

    // The whole tree of the element's application from its toolkit's cache (GTK's
    // Cache.GetItems), once per application and batch: role, name, description, states,
    // interfaces and parent of every element, and the children of every element whose children
    // the cache holds all of. Nothing where the toolkit has no such cache. An element of the tree
    // becomes an entry of the batch when it is first asked for: a walk asks for few of them.
    void readItemsOnce(AtspiAccessible* element, AtspiInterfaceCache* interfaces);
    // Past this many elements a tree is read level by level: reading it whole every tick would
    // cost its application more than the levels do.
    static constexpr int maximumItems = 5000;

    // The children of each of the parents, in one round trip for all those not read yet; each
    // list, read now or before, is added to lists.
    // The application's list comes with the applications' own where those are already known.
    AXError readChildLists(const std::vector<AtspiAccessible*>& parents, std::vector<ChildList>* lists);
    // The children of each of the parents and their fields, in two round trips for all: the
    // windows of every application, where their states tell which one is in front.
    AXError readChildrenAhead(const std::vector<AtspiAccessible*>& parents, AtspiInterfaceCache* interfaces);

private:
    struct KeyHash {
        std::size_t operator()(const QByteArray& key) const { return qHash(key); }
    };
    // An application's tree as its cache gave it, by object path.
    struct Tree {
        std::unique_ptr<DBusMessage, void (*)(DBusMessage*)> reply{nullptr, nullptr};
        std::vector<AtspiCacheItem> items;
        QHash<QByteArray, int> byPath; // raw views into the reply
        // The children of each parent whose children the cache holds all of, each in its place.
        QHash<QByteArray, std::vector<int>> lists;
        AtspiInterfaceCache* interfaces = nullptr;
    };
    // The tree's word on the element with this key, where a tree holds it: added to `known`
    // where `known` does not have it yet.
    void addFromTree(const QByteArray& key, AtspiBatchedElement& known);
    void addItem(const Tree& tree, int index, const QByteArray& key, AtspiBatchedElement& known);

    // Node-based: an entry stays where it is while others are added.
    std::unordered_map<QByteArray, AtspiBatchedElement, KeyHash> elements;
    std::unordered_map<QByteArray, Tree, KeyHash> trees; // by bus name
    QSet<QByteArray> itemsAsked;                         // bus names
    QSet<pid_t> alive;
    int depth = 0;
};

// Every child of an element in one call (GetChildren), without libatspi's call per child.
// nullopt when the toolkit does not answer it, so that the caller asks child by child;
// `failure` tells a reply that never came (kAXErrorCannotComplete) or an element that is gone.
std::optional<std::vector<AccessibleRef>> atspiChildrenInOneCall(AtspiAccessible* element, AXError* failure);

// One call of the Accessible interface, awaited: the reply, or null with `failure` saying why:
// kAXErrorAttributeUnsupported when the toolkit does not know the method, kAXErrorCannotComplete
// when no reply came in time, kAXErrorInvalidUIElement for anything else (the element is gone).
DBusMessage* atspiCallAndWait(AtspiAccessible* element, const char* method, AXError* failure);

// The readers of the applications' replies, each nullopt for a reply of another shape: a string
// or a number (also as a property's variant), a state set, the interfaces named in a reply of
// GetInterfaces.
std::optional<QString> atspiStringOfReply(DBusMessage* reply);
std::optional<quint32> atspiUintOfReply(DBusMessage* reply);
std::optional<quint64> atspiStatesOfReply(DBusMessage* reply);
std::optional<quint32> atspiInterfacesOfReply(DBusMessage* reply);

// The items of a reply of GetItems in the form that the toolkits of at-spi2-core 2.x answer;
// nullopt for any other reply.
std::optional<std::vector<AtspiCacheItem>> atspiItemsOfReply(DBusMessage* reply);

// The localized names of an application's roles. A toolkit names a role the same for every
// element that has it (GTK, Qt and the toolkits on ATK look the name up by the role), so a name
// read once answers for all of them; custom roles are read per element. A bus daemon gives no
// bus name twice, so a name kept for one application never answers for another.
std::optional<QString> atspiKnownRoleName(const QByteArray& busName, AtspiRole role);
void atspiNoteRoleName(const QByteArray& busName, AtspiRole role, const QString& name);
// Whether any name of the application's roles is known: it has been met before.
bool atspiKnowsRoleNamesOf(const QByteArray& busName);

// An application's own connection, which libatspi opens straight to it where it can.
DBusConnection* atspiConnectionOf(AtspiAccessible* element);
