#include "captureCommands.h"

#include "UIElement.h"
#include "UIElement_p.h"
#include "dataObjectSerialization.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSaveFile>

namespace {

// A level's frame: the element may have had none when it was captured.
QString frameText(const UIElement_p* level, const QRect& rect) {
    return level->hasGeometry() ? rectText(rect) : QStringLiteral("no frame");
}

QJsonValue frameJson(const UIElement_p* level, const QRect& rect) {
    return level->hasGeometry() ? QJsonValue(rectJson(rect)) : QJsonValue(QJsonValue::Null);
}

int failToWrite(const QString& filePath, const QString& reason) {
    return ctlFail(ctlExitUsage, QStringLiteral("cannot write %1: %2").arg(filePath, reason));
}

} // namespace

QStringList descriptionLevelLines(int index, const UIElement_p* level) {
    QStringList lines{QStringLiteral("level %1: %2 \"%3\"").arg(index).arg(level->role(), level->title()),
                      QStringLiteral("  role description: ") + level->roleDescription()};
    if (level->attributes().isEmpty())
        lines << QStringLiteral("  attributes: none");
    else
        lines << QStringLiteral("  attributes:");
    for (auto it = level->attributes().cbegin(); it != level->attributes().cend(); ++it)
        lines << QStringLiteral("    %1 = %2").arg(it.key(), valueText(it.value()));
    QStringList actions;
    for (qsizetype i = 0; i < level->actionNames().size(); ++i)
        actions << QStringLiteral("%1 (%2)").arg(level->actionNames().at(i),
                                                 level->actionDescriptions().value(i));
    lines << QStringLiteral("  defining attributes: ") +
                 level->definingAttributes().join(QStringLiteral(", "))
          << QStringLiteral("  childIndex %1, matchingRoleChildIndex %2, childCount %3")
                 .arg(level->childIndex())
                 .arg(level->matchingRoleChildIndex())
                 .arg(level->childCount())
          << QStringLiteral("  screenRect %1, localRect %2")
                 .arg(frameText(level, level->screenRect()), frameText(level, level->localRect()))
          << QStringLiteral("  interaction point %1 on the screen, %2 in the element")
                 .arg(coordinatesText(level->screenInteractionPoint()),
                      coordinatesText(level->localInteractionPoint()))
          << QStringLiteral("  actions: ") +
                 (actions.isEmpty() ? QStringLiteral("none") : actions.join(QStringLiteral(", ")))
          << QStringLiteral("  degenerate: ") +
                 (level->isDegenerate() ? QStringLiteral("yes") : QStringLiteral("no"));
    return lines;
}

QJsonObject descriptionLevelObject(const UIElement_p* level) {
    QJsonObject attributes;
    for (auto it = level->attributes().cbegin(); it != level->attributes().cend(); ++it)
        attributes.insert(it.key(), valueJson(it.value()));
    QJsonArray actions;
    for (qsizetype i = 0; i < level->actionNames().size(); ++i)
        actions.append(QJsonObject{{"name", level->actionNames().at(i)},
                                   {"description", level->actionDescriptions().value(i)}});
    return QJsonObject{{"role", level->role()},
                       {"title", level->title()},
                       {"roleDescription", level->roleDescription()},
                       {"attributes", attributes},
                       {"definingAttributes", QJsonArray::fromStringList(level->definingAttributes())},
                       {"childIndex", level->childIndex()},
                       {"matchingRoleChildIndex", level->matchingRoleChildIndex()},
                       {"childCount", level->childCount()},
                       {"screenRect", frameJson(level, level->screenRect())},
                       {"localRect", frameJson(level, level->localRect())},
                       {"screenInteractionPoint", pointJson(level->screenInteractionPoint())},
                       {"localInteractionPoint", pointJson(level->localInteractionPoint())},
                       {"actions", actions},
                       {"degenerate", level->isDegenerate()}};
}

int runCapture(const InspectorOptions& options, const QString& pointText, const QString& filePath) {
    QPoint point;
    if (!readScreenPoint(pointText, point) || !useDesktopFile(options.desktopFile))
        return ctlExitUsage;
    // Opened before the capture, which may take long on a degenerate element, so that a file that
    // cannot be written is told at once. The bytes go to a temporary file beside the target, which
    // replaces it only when all is written: an existing file is never left half written.
    if (QFileInfo(filePath).isDir())
        return failToWrite(filePath, QStringLiteral("it is a directory"));
    QSaveFile file(filePath);
    if (!file.open(QIODevice::WriteOnly))
        return failToWrite(filePath, file.errorString());

    UIElementCollection collection;
    collection.setElements({new UIElement(point, &collection)});
    const QByteArray saved = serializeObjectToByteArray(&collection);
    if (file.write(saved) != saved.size() || !file.commit())
        return failToWrite(filePath, file.errorString());

    const UIElement_p* element = collection.elements().first()->platformSpecificEntity();
    QList<const UIElement_p*> chain;
    if (!element->isNull())
        element->topDownElementList(chain);
    QStringList lines;
    QJsonArray levels;
    for (int index = 0; index < chain.size(); ++index) {
        lines << descriptionLevelLines(index, chain.at(index));
        levels.append(descriptionLevelObject(chain.at(index)));
    }
    if (element->isNull())
        lines << QStringLiteral("nothing at %1: the description is null").arg(pointText);
    else
        lines << QStringLiteral("bundle id: ") + element->bundleId()
              << QStringLiteral("process name: ") + element->processName()
              << QStringLiteral("application name: ") + element->applicationName();
    lines << QStringLiteral("written to ") + filePath;
    const QJsonObject answer{{"levels", levels},
                             {"bundleId", element->bundleId()},
                             {"processName", element->processName()},
                             {"applicationName", element->applicationName()},
                             {"file", filePath},
                             {"null", element->isNull()},
                             {"degenerate", element->isDegenerate()}};
    ctlPrintAnswer(options.json, lines, answer);
    if (element->isNull())
        return ctlFail(
            ctlExitFailure,
            QStringLiteral("no element at %1; %2 holds a null description").arg(pointText, filePath));
    return ctlExitSuccess;
}
