#pragma once

// Virtual desktops for the application rules of element descriptions, made in code: a Pro Tools
// window (proToolsDesktop.h) whose track groups carry titles and whose track list table names the
// selected track, and a Logic Pro channel strip with its insert slots. The results load with
// VirtualDesktop::load. Header only and free of QtTest.

#include "proToolsDesktop.h"

#include <QStringList>

namespace ApplicationRulesDesktop {

using ProToolsDesktop::Element;
using ProToolsDesktop::Window;
using ProToolsDesktop::WindowKind;

// The element with this id at or below root; null when there is none.
inline Element* find(Element& root, const QString& id) {
    if (root.id == id)
        return &root;
    for (Element& child : root.children) {
        if (Element* found = find(child, id))
            return found;
    }
    return nullptr;
}

// "AXSelectedRows" of a track list: the rows with these ids, in this order.
inline void selectRows(Element& table, const QStringList& rowIds) {
    QJsonArray rows;
    for (const QString& id : rowIds)
        rows.append(QJsonObject{{"element", id}});
    table.attributes["AXSelectedRows"] = rows;
}

// Row <index> of a track list, "<table>.row<index>", with "AXIndex" index: its visibility cell
// (column 0, ".visibility") holding a button (".button") whose "AXValue" is "Track: <name>", then
// its name cell (column 1, ".name").
inline Element trackRow(const QString& table, int index, const QString& name) {
    const QString id = QStringLiteral("%1.row%2").arg(table).arg(index);
    const QJsonValue none = QJsonValue::Undefined;
    const auto cell = [&](const QString& suffix, int column) {
        return ProToolsDesktop::element(id + suffix, "AXCell",
                                        QStringLiteral("1399343204:CELL:%1:%2").arg(column).arg(index),
                                        std::nullopt);
    };
    Element button = ProToolsDesktop::element(id + ".button", "AXButton", none, std::nullopt);
    button.attributes["AXValue"] = "Track: " + name;
    Element visibility = cell(".visibility", 0);
    visibility.children = {button};
    Element nameCell = cell(".name", 1);
    Element text = ProToolsDesktop::element(id + ".text", "AXStaticText", none, std::nullopt);
    text.attributes["AXValue"] = name;
    nameCell.children = {text};
    Element row = ProToolsDesktop::element(id, "AXRow", none, std::nullopt);
    row.attributes["AXIndex"] = index;
    row.children = {visibility, nameCell};
    return row;
}

// A track list table, "ShHd", with a row per name and the row at selected selected.
inline Element trackList(const QString& id, const QStringList& names, int selected) {
    Element table = ProToolsDesktop::element(id, "AXTable", "ShHd", std::nullopt);
    for (int i = 0; i < names.size(); ++i)
        table.children.append(trackRow(id, i, names.at(i)));
    selectRows(table, {QStringLiteral("%1.row%2").arg(id).arg(selected)});
    return table;
}

// A Pro Tools window of the kind with a track group per name, titled "<name> - Audio Track", and
// after the toolbar the track list ("trackList") with the track at selected selected.
inline Window proToolsWindow(WindowKind kind, const QStringList& names, int selected) {
    ProToolsDesktop::Options options;
    options.trackCount = int(names.size());
    Window window =
        kind == WindowKind::Mix ? ProToolsDesktop::mixWindow(options) : ProToolsDesktop::editWindow(options);
    for (int i = 0; i < names.size(); ++i)
        window.tracks[i].attributes["AXTitle"] = names.at(i) + " - Audio Track";
    window.head.insert(1, trackList("trackList", names, selected));
    return window;
}

inline constexpr int kLogicPid = 7401;
inline constexpr int kLogicWindowId = 7402;

// Logic Pro with one window holding a channel strip ("strip") whose children are its insert slots
// "slot<i>", each with its "AXDescription"; an undefined one has none, so that reading it fails.
inline QJsonObject logicDesktop(const QList<QJsonValue>& descriptions) {
    Element strip = ProToolsDesktop::element("strip", "AXGroup", QJsonValue::Undefined, std::nullopt);
    for (int i = 0; i < descriptions.size(); ++i) {
        Element slot = ProToolsDesktop::element(QStringLiteral("slot%1").arg(i), "AXButton",
                                                QJsonValue::Undefined, std::nullopt);
        if (!descriptions.at(i).isUndefined())
            slot.attributes["AXDescription"] = descriptions.at(i);
        strip.children.append(slot);
    }
    const QJsonObject window{{"windowId", kLogicWindowId},
                             {"frame", QJsonObject{{"x", 0}, {"y", 0}, {"width", 800}, {"height", 600}}},
                             {"title", "Session - Mixer"},
                             {"children", QJsonArray{strip.toJson()}}};
    const QJsonObject application{{"pid", kLogicPid},
                                  {"bundleId", "com.apple.logic10"},
                                  {"name", "Logic Pro"},
                                  {"windows", QJsonArray{window}}};
    return QJsonObject{{"applications", QJsonArray{application}}};
}

} // namespace ApplicationRulesDesktop
