#include "osxProToolsUtils.h"

#include "generalUtilities.h"
#include "osxUIElementUtils.h"

#include <QDebug>
#include <QList>
#include <QTimer>

#include <algorithm>
#include <optional>

namespace {

// The one cache of the process: only this module reads through it.
ProToolsElementCache elementCache;

// A four-character code as its big-endian value: the first character is the most significant.
constexpr qint64 fourCharCode(const char* code) {
    return qint64(quint32(quint8(code[0])) << 24 | quint32(quint8(code[1])) << 16 |
                  quint32(quint8(code[2])) << 8 | quint32(quint8(code[3])));
}

constexpr qint64 kMixTrackCode = fourCharCode("CHdr");
constexpr qint64 kEditTrackCode = fourCharCode("LHdr");
constexpr qint64 kTGrwCode = fourCharCode("TGrw");
constexpr qint64 kACrwCode = fourCharCode("ACrw");
constexpr qint64 kRpctCode = fourCharCode("rpct");
constexpr qint64 kZmAuCode = fourCharCode("ZmAu");
constexpr qint64 kLeafCode = fourCharCode("FXTD");

constexpr int kMixWindow = 0;
constexpr int kEditWindow = 1;

// Shares an owned reference: the shared holder takes its own retain, the caller's is given back.
template <class T> CFTypeSharedRef<T> shareOwned(T owned) {
    const CFTypeSmartRef<T> holder(owned);
    return CFTypeSharedRef<T>(holder.get());
}

// The attribute when it is a string; null on an error or for any other value.
CFTypeSharedRef<CFStringRef> readStringAttribute(AXUIElementRef element, CFStringRef attribute) {
    CFTypeSmartRef<CFTypeRef> value;
    if (AXUIElementCopyAttributeValue(element, attribute, value.out()) != kAXErrorSuccess || !value ||
        CFGetTypeID(value) != CFStringGetTypeID())
        return CFTypeSharedRef<CFStringRef>();
    return CFTypeSharedRef<CFStringRef>(static_cast<CFStringRef>(value.get()));
}

bool isKnown(qint64 value) {
    return value != 0;
}
template <class T> bool isKnown(const CFTypeSharedRef<T>& value) {
    return !value.isNull();
}

// Borrowed from the array; null for an index outside it.
AXUIElementRef childAt(const ProToolsWindowElements& elements, int index) {
    if (elements.elements.isNull() || index < 0 || index >= CFArrayGetCount(elements.elements))
        return nullptr;
    return static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(elements.elements, index));
}

QRect rectAt(const ProToolsWindowElements& elements, int index) {
    return elementCache.rect(childAt(elements, index));
}

// Notes the index of a key element; gives the window type that a track of this child stands for,
// or -1 when the child is no track.
int noteChild(ProToolsWindowElements& elements, int index) {
    switch (elementCache.identifier(childAt(elements, index))) {
    case kTGrwCode:
        elements.tgrwIndex = index;
        break;
    case kACrwCode:
        elements.acrwIndex = index;
        break;
    case kRpctCode:
        elements.rpctIndex = index;
        break;
    case kZmAuCode:
        elements.zmauIndex = index;
        break;
    case kMixTrackCode:
        return kMixWindow;
    case kEditTrackCode:
        return kEditWindow;
    }
    return -1;
}

// The children of the window and where its first and last track stand. The last child is never
// looked at from the back: a window always ends in a child that is no track.
ProToolsWindowElements readWindowLayout(const CFTypeSharedRef<CFArrayRef>& children) {
    ProToolsWindowElements elements;
    elements.elements = children;
    elements.elementCount = int(CFArrayGetCount(children));
    for (int i = 0; i < elements.elementCount; ++i) {
        if (const int type = noteChild(elements, i); type != -1) {
            elements.windowType = type;
            elements.startTrackIndex = i;
            break;
        }
    }
    if (elements.startTrackIndex == -1 || elements.elementCount < 2)
        return elements;
    for (int i = elements.elementCount - 2; i >= 0; --i) {
        if (const int type = noteChild(elements, i); type != -1) {
            elements.windowType = type;
            elements.endTrackIndex = i;
            break;
        }
    }
    return elements;
}

AXUIElementRef searchAllChildren(const QString& note, const ProToolsWindowElements& elements,
                                 const QPoint& point) {
    qDebug().noquote() << note;
    return recursivelySearchProToolsElementsForLeafElementContainingPoint(elements, point);
}

// The steps that the Mix and the Edit window share. Without tracks, key elements or their
// rectangles every child is searched; otherwise the tracks are searched only when the point lies
// in their area (given the rectangles of the key elements, in the order of keyIndices), and then
// the head and the tail.
AXUIElementRef searchWindowByLayout(const ProToolsWindowElements& elements, const QPoint& point,
                                    const QString& windowName, const QList<int>& keyIndices,
                                    const std::function<bool(const QList<QRect>&)>& inTrackArea,
                                    int coordinate, const std::function<int(const QRect&)>& nearEdge,
                                    const std::function<int(const QRect&)>& farEdge) {
    qDebug().noquote() << "Performing intelligent search of Pro Tools" << windowName << "window";
    if (elements.startTrackIndex == -1 || elements.endTrackIndex == -1) {
        return searchAllChildren(
            "Note: have no start track or end track indices, cannot do intelligent search of " + windowName +
                " window",
            elements, point);
    }
    if (keyIndices.contains(-1)) {
        return searchAllChildren(
            "Note: did not find key UI elements, cannot do intelligent search of Pro Tools " + windowName +
                " window",
            elements, point);
    }
    QList<QRect> keyRects;
    for (const int index : keyIndices)
        keyRects.append(rectAt(elements, index));
    if (std::any_of(keyRects.cbegin(), keyRects.cend(), [](const QRect& rect) { return rect.isNull(); })) {
        return searchAllChildren("Error: elements of Pro Tools " + windowName +
                                     " window unexpected had null rects",
                                 elements, point);
    }
    if (inTrackArea(keyRects)) {
        if (AXUIElementRef found = searchProToolsTracksForLeafElementContainingPoint(
                elements, point, coordinate, nearEdge, farEdge))
            return found;
    }
    if (AXUIElementRef found = recursivelySearchProToolsElementsForLeafElementContainingPoint(
            elements, point, 0, elements.startTrackIndex - 1))
        return found;
    return recursivelySearchProToolsElementsForLeafElementContainingPoint(
        elements, point, elements.endTrackIndex + 1, elements.elementCount - 1);
}

// The rectangle of the track at index. The search is settled, with its answer, when the rectangle
// cannot be read (-1, logged) or holds the point (index).
QRect readTrack(const ProToolsWindowElements& elements, int index, const QPoint& point,
                std::optional<int>* settled) {
    const QRect rect = rectAt(elements, index);
    if (rect.isNull()) {
        qDebug().noquote() << "Error: failed to get Pro Tools track group boundaries";
        *settled = -1;
    } else if (rect.contains(point)) {
        *settled = index;
    }
    return rect;
}

} // namespace

bool operator==(const AXUIElementKey& a, const AXUIElementKey& b) {
    return a.element == b.element;
}

size_t qHash(const AXUIElementKey& key, size_t seed) {
    return size_t(CFHash(key.element.get())) ^ qHash(seed);
}

qint64 proToolsElementIdentifier(AXUIElementRef element) {
    const CFTypeSharedRef<CFStringRef> text = readStringAttribute(element, CFSTR("AXIdentifier"));
    if (text.isNull())
        return 0;
    if (const SInt32 number = CFStringGetIntValue(text))
        return number;
    char code[5] = {};
    if (CFStringGetLength(text) != 4 ||
        !CFStringGetCString(text, code, sizeof code, kCFStringEncodingASCII)) {
        qDebug().noquote() << "Error: Unexpected Pro Tools UI element identifier:"
                           << QStringFromCFString(text);
        return 0;
    }
    return fourCharCode(code);
}

AXUIElementRef copyProToolsUIElementWindow(AXUIElementRef element) {
    if (!element)
        return nullptr;
    const CFTypeSharedRef<CFStringRef> role = elementCache.role(element);
    if (role.isNull())
        return nullptr;
    if (CFStringCompare(role, CFSTR("AXWindow"), 0) == kCFCompareEqualTo)
        return retained(element);
    return copyProToolsUIElementWindow(elementCache.parent(element));
}

ProToolsElementCache::~ProToolsElementCache() {
    delete timer;
}

void ProToolsElementCache::ensureCacheSetup() {
    if (timer)
        return;
    // A zero timer fires when control returns to the event loop: one synchronous search sees one
    // cache, and nothing read survives into the next event.
    timer = new QTimer;
    timer->setInterval(0);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, [this] { cleanUp(); });
    timer->start();
}

void ProToolsElementCache::cleanUp() {
    timer->deleteLater();
    timer = nullptr;
    data = QHash<AXUIElementKey, ElementData>();
}

ProToolsElementCache::ElementData& ProToolsElementCache::record(AXUIElementRef element) {
    return data[AXUIElementKey(element)];
}

template <class T, class Read>
T ProToolsElementCache::remembered(AXUIElementRef element, T ElementData::*field, Read read) {
    ensureCacheSetup();
    if (const T known = record(element).*field; isKnown(known))
        return known;
    const T value = read(element);
    // Looked up again: the read may itself have gone through the cache and grown the hash.
    record(element).*field = value;
    return value;
}

CFTypeSharedRef<CFStringRef> ProToolsElementCache::role(AXUIElementRef element) {
    return remembered(element, &ElementData::role,
                      [](AXUIElementRef element) { return readStringAttribute(element, CFSTR("AXRole")); });
}

CFTypeSharedRef<AXUIElementRef> ProToolsElementCache::parent(AXUIElementRef element) {
    return remembered(element, &ElementData::parent,
                      [](AXUIElementRef element) { return shareOwned(copyUIElementParent(element)); });
}

CFTypeSharedRef<AXUIElementRef> ProToolsElementCache::window(AXUIElementRef element) {
    return remembered(element, &ElementData::window, [](AXUIElementRef element) {
        return shareOwned(copyProToolsUIElementWindow(element));
    });
}

CFTypeSharedRef<CFArrayRef> ProToolsElementCache::children(AXUIElementRef element) {
    return remembered(element, &ElementData::children,
                      [](AXUIElementRef element) { return shareOwned(copyUIElementChildren(element)); });
}

qint64 ProToolsElementCache::identifier(AXUIElementRef element) {
    return remembered(element, &ElementData::identifier, proToolsElementIdentifier);
}

QRect ProToolsElementCache::rect(AXUIElementRef element) {
    ensureCacheSetup();
    // Unlike the other fields a rectangle is read once whatever it is, a failed read included.
    ElementData& known = record(element);
    if (!known.rectIsValid) {
        known.rect = UIElementRect(element);
        known.rectIsValid = true;
    }
    return known.rect;
}

AXUIElementRef copyUIElementAtPositionBySearchingProTools(AXUIElementRef element, const QPoint& point) {
    const CFTypeSharedRef<AXUIElementRef> window = elementCache.window(element);
    if (window.isNull()) {
        qDebug().noquote() << "Error: Pro Tools window is null?";
        return nullptr;
    }
    const CFTypeSharedRef<CFArrayRef> children = elementCache.children(window);
    if (children.isNull()) {
        qDebug().noquote() << "Error: Pro Tools window has no children?";
        return nullptr;
    }
    const ProToolsWindowElements elements = readWindowLayout(children);
    AXUIElementRef found = nullptr;
    if (elements.windowType == kEditWindow)
        found = copyUIElementAtPositionBySearchingProToolsEditWindow(elements, point);
    else if (elements.windowType == kMixWindow)
        found = copyUIElementAtPositionBySearchingProToolsMixWindow(elements, point);
    else
        found = recursivelySearchProToolsElementsForLeafElementContainingPoint(elements, point);
    return found ? found : retained(window.get());
}

AXUIElementRef copyUIElementAtPositionBySearchingProToolsMixWindow(const ProToolsWindowElements& elements,
                                                                   const QPoint& point) {
    const auto inTrackArea = [&](const QList<QRect>& keys) {
        return point.x() >= keys[0].left() && point.x() <= keys[1].right();
    };
    return searchWindowByLayout(elements, point, QStringLiteral("Mix"),
                                {elements.tgrwIndex, elements.acrwIndex}, inTrackArea, point.x(),
                                &QRect::left, &QRect::right);
}

AXUIElementRef copyUIElementAtPositionBySearchingProToolsEditWindow(const ProToolsWindowElements& elements,
                                                                    const QPoint& point) {
    const auto inTrackArea = [&](const QList<QRect>& keys) {
        const QRect& tgrw = keys[0];
        QRect area;
        area.setLeft(tgrw.left());
        area.setTop(keys[1].bottom() + 1);
        area.setRight(keys[2].left() - 1);
        area.setBottom(tgrw.top() - 1);
        return area.contains(point, false);
    };
    return searchWindowByLayout(elements, point, QStringLiteral("Edit"),
                                {elements.tgrwIndex, elements.rpctIndex, elements.zmauIndex}, inTrackArea,
                                point.y(), &QRect::top, &QRect::bottom);
}

AXUIElementRef searchProToolsTracksForLeafElementContainingPoint(
    const ProToolsWindowElements& elements, const QPoint& point, int coordinate,
    const std::function<int(const QRect&)>& nearEdge, const std::function<int(const QRect&)>& farEdge) {
    const int index = findIndexOfProToolsTrackContainingPoint(elements, point, coordinate, nearEdge, farEdge);
    if (index == -1)
        return nullptr;
    const AXUIElementRef track = childAt(elements, index);
    return recursivelySearchProToolsElementForLeafElementContainingPoint(track, point,
                                                                         elementCache.identifier(track));
}

int findIndexOfProToolsTrackContainingPoint(const ProToolsWindowElements& elements, const QPoint& point,
                                            int coordinate, const std::function<int(const QRect&)>& nearEdge,
                                            const std::function<int(const QRect&)>& farEdge) {
    int low = elements.startTrackIndex;
    int high = elements.endTrackIndex;
    std::optional<int> settled;
    for (const int end : {low, high}) {
        readTrack(elements, end, point, &settled);
        if (settled)
            return *settled;
    }
    if (low >= high - 1)
        return -1;
    for (;;) {
        // The two edges that face each other across the tracks not yet looked at.
        const int start = farEdge(rectAt(elements, low));
        const int end = nearEdge(rectAt(elements, high));
        double u = percent(coordinate, start, end);
        if (!(u >= 0.0 && u <= 1.0)) {
            qDebug().noquote() << "findIndexOfProToolsTrackContainingPoint experienced unexpected situation";
            qDebug().noquote() << "start index:" << low << "  coord:" << start;
            qDebug().noquote() << "end index:  " << high << "  coord:" << end;
            qDebug().noquote() << "touch coord:" << coordinate << "  u:" << u;
            u = 0.5;
        }
        const int probe = lerpi(u, low + 1, high - 1);
        const QRect rect = readTrack(elements, probe, point, &settled);
        if (settled)
            return *settled;
        if (nearEdge(rect) > coordinate)
            high = probe;
        else if (farEdge(rect) < coordinate)
            low = probe;
        else
            return -1; // within this track's span on the axis, and yet outside its rectangle
        if (low >= high - 1)
            return -1;
    }
}

AXUIElementRef recursivelySearchProToolsElementForLeafElementContainingPoint(AXUIElementRef element,
                                                                             const QPoint& point,
                                                                             qint64 identifier) {
    if (!element)
        return nullptr;
    const QRect rect = elementCache.rect(element);
    if (rect.isNull() || !rect.contains(point))
        return nullptr;
    if ((identifier ? identifier : elementCache.identifier(element)) == kLeafCode)
        return retained(element);
    const CFTypeSharedRef<CFArrayRef> children = elementCache.children(element);
    const CFIndex count = children.isNull() ? 0 : CFArrayGetCount(children);
    for (CFIndex i = 0; i < count; ++i) {
        const auto child = static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(children, i));
        if (AXUIElementRef found =
                recursivelySearchProToolsElementForLeafElementContainingPoint(child, point, 0))
            return found;
    }
    return retained(element);
}

AXUIElementRef
recursivelySearchProToolsElementsForLeafElementContainingPoint(const ProToolsWindowElements& elements,
                                                               const QPoint& point) {
    return recursivelySearchProToolsElementsForLeafElementContainingPoint(elements, point, 0,
                                                                          elements.elementCount - 1);
}

AXUIElementRef
recursivelySearchProToolsElementsForLeafElementContainingPoint(const ProToolsWindowElements& elements,
                                                               const QPoint& point, int first, int last) {
    for (int i = first; i <= last; ++i) {
        const AXUIElementRef child = childAt(elements, i);
        if (AXUIElementRef found = recursivelySearchProToolsElementForLeafElementContainingPoint(
                child, point, elementCache.identifier(child)))
            return found;
    }
    return nullptr;
}
