#pragma once

// Virtual desktops with one Pro Tools window, made in code: a Mix window with its tracks side by
// side, or an Edit window with its tracks one below the other, as a flat list of children that
// Pro Tools tells apart by four-character "AXIdentifier"s. The result loads with
// VirtualDesktop::load. Header only and free of QtTest, for the tests and the benchmarks alike;
// tests/fixtures/README.md describes the layout.

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QRect>
#include <QString>

#include <optional>

namespace ProToolsDesktop {

inline constexpr int kPid = 7301;
inline constexpr int kWindowId = 7302;
inline const QString kBundleId = QStringLiteral("com.avid.ProToolsUltimate");

// One element of the fixture. An undefined identifier gives no "AXIdentifier", an empty role no
// "AXRole"; an element without a frame has no "AXPosition" and "AXSize", so that every rectangle
// read of it fails.
struct Element {
    QString id;
    QString role;
    QJsonValue identifier = QJsonValue::Undefined;
    std::optional<QRect> frame;
    QList<Element> children;
    QJsonObject attributes; // beside "AXIdentifier"
    QJsonObject faults;

    QJsonObject toJson() const {
        QJsonObject json{{"id", id}};
        if (!role.isEmpty())
            json["role"] = role;
        if (frame) {
            json["frame"] = QJsonObject{
                {"x", frame->x()}, {"y", frame->y()}, {"width", frame->width()}, {"height", frame->height()}};
        }
        QJsonObject allAttributes = attributes;
        if (!identifier.isUndefined())
            allAttributes["AXIdentifier"] = identifier;
        if (!allAttributes.isEmpty())
            json["attributes"] = allAttributes;
        if (!faults.isEmpty())
            json["faults"] = faults;
        if (!children.isEmpty()) {
            QJsonArray array;
            for (const Element& child : children)
                array.append(child.toJson());
            json["children"] = array;
        }
        return json;
    }
};

inline Element element(const QString& id, const QString& role, const QJsonValue& identifier,
                       const std::optional<QRect>& frame) {
    Element made;
    made.id = id;
    made.role = role;
    made.identifier = identifier;
    made.frame = frame;
    return made;
}

enum class WindowKind { Mix, Edit };

// The track at this position along the axis ("track<position>"), "CHdr" in a Mix window and
// "LHdr" in an Edit window, with its children laid out across the axis in tenths of its breadth:
// a name (one), the inserts ("FXTD", three, with two insert slots inside), a mute button (one)
// and a fader (the rest).
inline Element track(WindowKind kind, int position, const QRect& frame) {
    const QString id = QStringLiteral("track%1").arg(position);
    const bool mix = kind == WindowKind::Mix;
    const int unit = (mix ? frame.height() : frame.width()) / 10;
    // The part of the track from offset across the axis, size long; to the end without a size.
    const auto part = [&](int offset, int size = -1) {
        return mix ? QRect(frame.left(), frame.top() + offset, frame.width(),
                           size < 0 ? frame.height() - offset : size)
                   : QRect(frame.left() + offset, frame.top(), size < 0 ? frame.width() - offset : size,
                           frame.height());
    };
    const QJsonValue none = QJsonValue::Undefined;
    Element inserts = element(id + ".inserts", "AXGroup", "FXTD", part(unit, 3 * unit));
    for (int slot = 0; slot < 2; ++slot) {
        const QString slotId = id + QStringLiteral(".insert%1").arg(slot);
        inserts.children.append(
            element(slotId, "AXButton", none, part(unit + slot * 3 * unit / 2, 3 * unit / 2)));
    }
    Element made = element(id, "AXGroup", mix ? "CHdr" : "LHdr", frame);
    made.children = {element(id + ".name", "AXStaticText", none, part(0, unit)), inserts,
                     element(id + ".mute", "AXCheckBox", none, part(4 * unit, unit)),
                     element(id + ".fader", "AXSlider", none, part(5 * unit))};
    return made;
}

struct Options {
    int trackCount = 4;
    // Sizes along the axis, repeated when there are more tracks; empty: 100 in a Mix window, 60 in
    // an Edit window.
    QList<int> trackSizes;
    int gap = 0; // between neighbouring tracks
    // Across the axis; 0: as deep (Mix) or as wide (Edit) as the track area.
    int trackBreadth = 0;
};

// A window of the application: the children before the first track (head), the tracks in the
// order in which the window lists them, and the children after the last track (tail).
struct Window {
    WindowKind kind = WindowKind::Mix;
    QRect frame;
    // Where the key elements bound the tracks.
    QRect trackArea;
    QList<Element> head;
    QList<Element> tracks;
    QList<Element> tail;

    // The child of the window with this id; null when there is none.
    Element* child(const QString& id) {
        for (QList<Element>* part : {&head, &tracks, &tail}) {
            for (Element& element : *part) {
                if (element.id == id)
                    return &element;
            }
        }
        return nullptr;
    }

    // Takes the child out of the head or the tail; an element without id when there is none.
    Element take(const QString& id) {
        for (QList<Element>* part : {&head, &tail}) {
            for (qsizetype i = 0; i < part->size(); ++i) {
                if (part->at(i).id == id)
                    return part->takeAt(i);
            }
        }
        return Element{};
    }

    QJsonObject toJson() const {
        QJsonArray children;
        for (const QList<Element>* part : {&head, &tracks, &tail}) {
            for (const Element& element : *part)
                children.append(element.toJson());
        }
        // A window has its role without asking.
        QJsonObject json = element("window", QString(), QJsonValue::Undefined, frame).toJson();
        json["windowId"] = kWindowId;
        json["title"] = kind == WindowKind::Mix ? "Mix: Session" : "Edit: Session";
        json["children"] = children;
        return json;
    }
};

namespace detail {

// The tracks laid out along the axis from 0 (Mix: x) or from areaStart (Edit: y); end is set to
// the length they take.
inline QList<Element> tracks(WindowKind kind, const Options& options, int breadth, int areaStart, int* end) {
    const QList<int> sizes =
        options.trackSizes.isEmpty() ? QList<int>{kind == WindowKind::Mix ? 100 : 60} : options.trackSizes;
    QList<Element> made;
    int at = 0;
    for (int i = 0; i < options.trackCount; ++i) {
        const int size = sizes.at(i % sizes.size());
        made.append(track(kind, i,
                          kind == WindowKind::Mix ? QRect(at, areaStart, size, breadth)
                                                  : QRect(0, areaStart + at, breadth, size)));
        at += size + (i + 1 < options.trackCount ? options.gap : 0);
    }
    *end = at;
    return made;
}

// A toolbar across the top of the window, with a numeric identifier and one button.
inline Element toolbar(int width) {
    Element bar = element("toolbar", "AXToolbar", "1", QRect(0, 0, width, 30));
    bar.children.append(element("toolbar.play", "AXButton", QJsonValue::Undefined, QRect(10, 5, 40, 20)));
    return bar;
}

inline Element scrollBar(int top, int width) {
    return element("scrollBar", "AXScrollBar", QJsonValue::Undefined, QRect(0, top, width, 15));
}

} // namespace detail

// Tracks from x = 0, 400 deep from y = 50, under a toolbar (y 0 to 29) and "TGrw" (30 to 49), which
// starts where the tracks start; then "ACrw" (450 to 469), which ends where they end, and a scroll
// bar (470 to 484), the last child. The window reaches 40 past the tracks on the right.
inline Window mixWindow(const Options& options = {}) {
    constexpr int top = 50;
    Window window;
    window.kind = WindowKind::Mix;
    int width = 0;
    window.tracks = detail::tracks(WindowKind::Mix, options,
                                   options.trackBreadth > 0 ? options.trackBreadth : 400, top, &width);
    width = qMax(width, 1);
    window.trackArea = QRect(0, top, width, 400);
    window.frame = QRect(0, 0, width + 40, 485);
    window.head = {detail::toolbar(window.frame.width()),
                   element("TGrw", "AXGroup", "TGrw", QRect(0, 30, width, 20))};
    window.tail = {element("ACrw", "AXGroup", "ACrw", QRect(0, 450, width, 20)),
                   detail::scrollBar(470, window.frame.width())};
    return window;
}

// Tracks from y = 50 down, 600 wide from x = 0, under a toolbar (y 0 to 29) and the ruler "rpct"
// (30 to 49), whose bottom edge bounds them from above; "TGrw" right below the last track, from
// x = 0; the zoom buttons "ZmAu" at x = 600, right of the track area, 40 high from y = 50; a
// scroll bar along the bottom, the last child.
inline Window editWindow(const Options& options = {}) {
    constexpr int top = 50;
    constexpr int width = 600;
    Window window;
    window.kind = WindowKind::Edit;
    int height = 0;
    window.tracks = detail::tracks(WindowKind::Edit, options,
                                   options.trackBreadth > 0 ? options.trackBreadth : width, top, &height);
    height = qMax(height, 1);
    window.trackArea = QRect(0, top, width, height);
    window.frame = QRect(0, 0, width + 30, top + height + 35);
    window.head = {detail::toolbar(window.frame.width()),
                   element("rpct", "AXGroup", "rpct", QRect(0, 30, width, 20))};
    window.tail = {element("TGrw", "AXGroup", "TGrw", QRect(0, top + height, width, 20)),
                   element("ZmAu", "AXGroup", "ZmAu", QRect(width, top, 30, 40)),
                   detail::scrollBar(top + height + 20, window.frame.width())};
    return window;
}

// The desktop: Pro Tools (element id "proTools") with the one window.
inline QJsonObject desktop(const Window& window) {
    const QJsonObject application{{"pid", kPid},
                                  {"bundleId", kBundleId},
                                  {"name", "Pro Tools"},
                                  {"id", "proTools"},
                                  {"windows", QJsonArray{window.toJson()}}};
    return QJsonObject{{"applications", QJsonArray{application}}};
}

} // namespace ProToolsDesktop
