#pragma once

// What the system knows of Pro Tools: its element identifiers, a cache of attribute reads that
// lives for one pass of the event loop, and the search of its Mix and Edit windows for the
// element at a point, which recognises the window's layout and finds the track under the point
// by interpolation instead of walking every track.

#include "CFTypeSmartRef.h"
#include "platformAccessibility.h"

#include <QHash>
#include <QPoint>
#include <QRect>

#include <functional>

class QTimer;

// The hash key of an element: it holds the element alive. Equal when both are null, or when
// neither is and CFEqual holds.
struct AXUIElementKey {
    AXUIElementKey() = default;
    explicit AXUIElementKey(AXUIElementRef element) : element(element) {}

    CFTypeSharedRef<AXUIElementRef> element;

    friend bool operator==(const AXUIElementKey& a, const AXUIElementKey& b);
};
size_t qHash(const AXUIElementKey& key, size_t seed = 0);

// "AXIdentifier" of a Pro Tools element as one number: a decimal number as it is, a four-character
// code as its big-endian value ("FXTD" is 0x46585444); 0 when there is none.
qint64 proToolsElementIdentifier(AXUIElementRef element);

// The nearest window at or above the element, through the cache.
AXUIElementRef copyProToolsUIElementWindow(AXUIElementRef element);

// Attribute reads of Pro Tools elements, each read at most once per pass of the event loop: the
// first access starts a zero timer, and its firing empties the cache. Only the thread that runs
// the event loop may use it.
class ProToolsElementCache {
public:
    struct ElementData {
        QRect rect;
        bool rectIsValid = false; // a null rectangle is a valid answer
        qint64 identifier = 0;    // 0: not known
        CFTypeSharedRef<CFStringRef> role;
        CFTypeSharedRef<AXUIElementRef> parent;
        CFTypeSharedRef<AXUIElementRef> window;
        CFTypeSharedRef<CFArrayRef> children;
    };

    ProToolsElementCache() = default;
    ~ProToolsElementCache();
    ProToolsElementCache(const ProToolsElementCache&) = delete;
    ProToolsElementCache& operator=(const ProToolsElementCache&) = delete;

    CFTypeSharedRef<CFStringRef> role(AXUIElementRef element);
    CFTypeSharedRef<AXUIElementRef> parent(AXUIElementRef element);
    CFTypeSharedRef<AXUIElementRef> window(AXUIElementRef element);
    CFTypeSharedRef<CFArrayRef> children(AXUIElementRef element);
    QRect rect(AXUIElementRef element);
    qint64 identifier(AXUIElementRef element);

private:
    void ensureCacheSetup();
    void cleanUp();
    // The element's record, created empty on the first access; a reference into the hash, so
    // valid only until the next access.
    ElementData& record(AXUIElementRef element);
    // A field whose null or 0 value means "not known": read again until a read gives something.
    template <class T, class Read> T remembered(AXUIElementRef element, T ElementData::*field, Read read);

    QHash<AXUIElementKey, ElementData> data;
    QTimer* timer = nullptr; // null while the cache is idle
};

// The children of a Pro Tools window and where its tracks and key elements stand among them.
struct ProToolsWindowElements {
    int windowType = 2; // 0 Mix window, 1 Edit window, 2 not recognised
    CFTypeSharedRef<CFArrayRef> elements;
    int elementCount = 0;
    int startTrackIndex = -1;
    int endTrackIndex = -1;
    int tgrwIndex = -1;
    int acrwIndex = -1;
    int rpctIndex = -1;
    int zmauIndex = -1;
};

// The element at the point in the Pro Tools window that holds `element`; the window itself when the
// search finds nothing inside it, null when there is no window.
AXUIElementRef copyUIElementAtPositionBySearchingProTools(AXUIElementRef element, const QPoint& point);
AXUIElementRef copyUIElementAtPositionBySearchingProToolsMixWindow(const ProToolsWindowElements& elements,
                                                                   const QPoint& point);
AXUIElementRef copyUIElementAtPositionBySearchingProToolsEditWindow(const ProToolsWindowElements& elements,
                                                                    const QPoint& point);
AXUIElementRef searchProToolsTracksForLeafElementContainingPoint(
    const ProToolsWindowElements& elements, const QPoint& point, int coordinate,
    const std::function<int(const QRect&)>& nearEdge, const std::function<int(const QRect&)>& farEdge);
// The index of the track that holds the point, found by interpolation over the tracks'
// rectangles along one axis; -1 when none does.
int findIndexOfProToolsTrackContainingPoint(const ProToolsWindowElements& elements, const QPoint& point,
                                            int coordinate, const std::function<int(const QRect&)>& nearEdge,
                                            const std::function<int(const QRect&)>& farEdge);
// The deepest element on the first path below element whose rectangles hold the point; identifier
// is the element's when the caller has it, else 0.
AXUIElementRef recursivelySearchProToolsElementForLeafElementContainingPoint(AXUIElementRef element,
                                                                             const QPoint& point,
                                                                             qint64 identifier);
AXUIElementRef
recursivelySearchProToolsElementsForLeafElementContainingPoint(const ProToolsWindowElements& elements,
                                                               const QPoint& point);
AXUIElementRef
recursivelySearchProToolsElementsForLeafElementContainingPoint(const ProToolsWindowElements& elements,
                                                               const QPoint& point, int first, int last);
