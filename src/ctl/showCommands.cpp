#include "showCommands.h"

#include "UIElement.h"
#include "UIElement_p.h"
#include "dataObjectSerialization.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

// The matching methods of a level: the name shown, and the name typed after --matching.
struct MatchingMethodName {
    int method;
    const char* shown;
    const char* typed;
};

constexpr MatchingMethodName matchingMethodNames[] = {{BuiltInMatching, "built-in", "builtin"},
                                                      {StrictMatching, "strict", "strict"},
                                                      {CustomMatching, "custom", "custom"}};

QString matchingMethodText(int method) {
    for (const MatchingMethodName& name : matchingMethodNames)
        if (name.method == method)
            return QString::fromLatin1(name.shown);
    return QStringLiteral("unknown (%1)").arg(method);
}

std::optional<int> typedMatchingMethod(const QString& text) {
    for (const MatchingMethodName& name : matchingMethodNames)
        if (text == QLatin1String(name.typed))
            return name.method;
    return std::nullopt;
}

// The levels of an alternative, the application first; none for a null description.
QList<const UIElement_p*> levelsOf(const UIElement* element) {
    QList<const UIElement_p*> levels;
    const UIElement_p* description = element->platformSpecificEntity();
    if (description && !description->isNull())
        description->topDownElementList(levels);
    return levels;
}

// "heading: none", or the heading and one entry a line below it.
void appendEntries(QStringList& lines, const QString& heading, const QStringList& entries) {
    lines
        << QStringLiteral("    %1:%2").arg(heading, entries.isEmpty() ? QStringLiteral(" none") : QString());
    for (const QString& entry : entries)
        lines << QStringLiteral("      ") + entry;
}

QJsonObject describeLevel(const UIElement* element, int level, const UIElement_p* description,
                          QStringList& lines) {
    const QString shortDescription =
        element->shortDescriptionOfElementAtHierarchyLevel(level, true, true, true);
    lines << QStringLiteral("  level %1: %2").arg(level).arg(shortDescription);

    const QMap<QString, QVariant> values = element->attributeValuesForElementAtHierarchyLevel(level);
    QStringList attributeLines;
    QJsonObject attributes, displayNames;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        const QString displayName = UIElement::attributeDisplayName(it.key());
        // The key in brackets: it is the name that edit takes.
        attributeLines << QStringLiteral("%1 [%2] = %3").arg(displayName, it.key(), valueText(it.value()));
        attributes.insert(it.key(), valueJson(it.value()));
        displayNames.insert(it.key(), displayName);
    }
    appendEntries(lines, QStringLiteral("attributes"), attributeLines);

    const QStringList defining = element->definingAttributesForElementAtHierarchyLevel(level);
    lines << QStringLiteral("    defining attributes: ") +
                 (defining.isEmpty() ? QStringLiteral("none") : defining.join(QStringLiteral(", ")));
    const QString matching = matchingMethodText(description->matchingMethod());
    lines << QStringLiteral("    matching: ") + matching;

    QStringList optionLines;
    QJsonObject options;
    for (const QString& key : description->options().keys()) {
        const QVariant value = element->optionForElementAtHierarchyLevel(level, key);
        optionLines << QStringLiteral("%1 = %2").arg(key, valueText(value));
        options.insert(key, valueJson(value));
    }
    appendEntries(lines, QStringLiteral("options"), optionLines);

    return QJsonObject{{"level", level},
                       {"description", shortDescription},
                       {"attributes", attributes},
                       {"displayNames", displayNames},
                       {"definingAttributes", QJsonArray::fromStringList(defining)},
                       {"matchingMethod", matching},
                       {"options", options}};
}

QJsonObject describeAlternative(int index, const UIElement* element, QStringList& lines) {
    lines << QStringLiteral("alternative %1: %2").arg(index).arg(element->hierarchyDescription());
    if (element->isNull())
        lines << QStringLiteral("  the description is null: it stands for no element");
    const QList<const UIElement_p*> levels = levelsOf(element);
    QJsonArray levelObjects;
    for (int level = 0; level < levels.size(); ++level)
        levelObjects.append(describeLevel(element, level, levels.at(level), lines));
    return QJsonObject{{"alternative", index},
                       {"null", element->isNull()},
                       {"hierarchyDescription", element->hierarchyDescription()},
                       {"levels", levelObjects}};
}

// The one FILE among the operands; false, with the message, for an option or a second file.
bool takeFileOperand(const QString& verb, const QString& operand, QString& filePath) {
    if (operand.startsWith(QLatin1String("--"))) {
        ctlFail(ctlExitUsage, QStringLiteral("%1 has no option %2").arg(verb, operand));
        return false;
    }
    if (!filePath.isEmpty()) {
        ctlFail(ctlExitUsage,
                QStringLiteral("%1 takes one FILE, not both %2 and %3").arg(verb, filePath, operand));
        return false;
    }
    filePath = operand;
    return true;
}

bool checkFileGiven(const QString& verb, const QString& filePath) {
    if (!filePath.isEmpty())
        return true;
    ctlFail(ctlExitUsage, QStringLiteral("%1 needs the FILE of a saved UI element collection").arg(verb));
    return false;
}

// The edits, in the order given.
struct Edit {
    enum Kind { Set, Defining, Matching, Option } kind;
    QString name;     // Set: the attribute; Option: the key
    QVariant value;   // Set, Option
    QStringList list; // Defining
    int method = 0;   // Matching
    bool needsLevel() const { return kind != Matching; }
};

struct EditRequest {
    QString filePath;
    int alternative = 0;
    std::optional<int> level;
    QList<Edit> edits;
};

constexpr qint64 largestExactInteger = qint64(1) << 53;

QVariant numberValue(double number) {
    if (std::floor(number) != number || std::abs(number) > double(largestExactInteger))
        return number;
    const auto integer = qint64(number);
    if (integer >= std::numeric_limits<int>::min() && integer <= std::numeric_limits<int>::max())
        return int(integer);
    return qlonglong(integer);
}

bool rectValue(const QJsonObject& object, QVariant& value, QString& error) {
    const QStringList keys{"x", "y", "width", "height"};
    QList<int> numbers;
    for (const QString& key : keys) {
        const QVariant number =
            object.value(key).isDouble() ? numberValue(object.value(key).toDouble()) : QVariant();
        if (number.typeId() != QMetaType::Int)
            break;
        numbers << number.toInt();
    }
    if (object.size() != keys.size() || numbers.size() != keys.size()) {
        error =
            QStringLiteral("a JSON object stands for a rect, {\"x\", \"y\", \"width\", \"height\"} of whole "
                           "numbers, and nothing else");
        return false;
    }
    value = QRect(numbers.at(0), numbers.at(1), numbers.at(2), numbers.at(3));
    return true;
}

bool jsonEditValue(const QJsonValue& json, QVariant& value, QString& error) {
    switch (json.type()) {
    case QJsonValue::Bool:
        value = json.toBool();
        return true;
    case QJsonValue::Double:
        value = numberValue(json.toDouble());
        return true;
    case QJsonValue::String:
        value = json.toString();
        return true;
    case QJsonValue::Array: {
        QVariantList items;
        for (const QJsonValue& item : json.toArray()) {
            if (!jsonEditValue(item, value, error))
                return false;
            items << value;
        }
        value = items;
        return true;
    }
    case QJsonValue::Object:
        return rectValue(json.toObject(), value, error);
    default:
        error = QStringLiteral("null is no value a description holds (\"null\" in quotes is the text)");
        return false;
    }
}

// JSON where the text parses as JSON, plain text otherwise. A JSON string is its text, so that
// "\"5\"" writes the text 5, as capture stores integers.
bool parseEditValue(const QString& text, QVariant& value, QString& error) {
    // In brackets, so that a lone number, boolean or string parses as well.
    QJsonParseError parseError;
    const QJsonDocument document =
        QJsonDocument::fromJson((QLatin1Char('[') + text + QLatin1Char(']')).toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || document.array().size() != 1) {
        value = text;
        return true;
    }
    return jsonEditValue(document.array().first(), value, error);
}

// NAME=VALUE of --set and --option.
bool readAssignment(const QString& option, const QString& text, Edit& edit) {
    const qsizetype equals = text.indexOf(QLatin1Char('='));
    QString error;
    if (equals <= 0)
        error = QStringLiteral("%1 takes NAME=VALUE, not '%2'").arg(option, text);
    else if (parseEditValue(text.mid(equals + 1), edit.value, error))
        edit.name = text.left(equals);
    else
        error = QStringLiteral("%1 %2: %3").arg(option, text, error);
    if (error.isEmpty())
        return true;
    ctlFail(ctlExitUsage, error);
    return false;
}

bool readIndex(const QString& option, const QString& text, const QString& meaning, int& index) {
    if (readWholeNumber(text, 0, std::numeric_limits<int>::max(), index))
        return true;
    ctlFail(ctlExitUsage,
            QStringLiteral("%1 must be a whole number from 0 (%2), not '%3'").arg(option, meaning, text));
    return false;
}

// One option of edit and its value out of operands at index; false, with the message, when bad.
bool takeEditOption(QStringList& operands, qsizetype index, EditRequest& request) {
    const QString option = operands.at(index);
    QString value;
    if (!takeValue(operands, index, value))
        return false;
    if (option == QLatin1String("--alternative"))
        return readIndex(option, value, QStringLiteral("the first alternative"), request.alternative);
    if (option == QLatin1String("--level")) {
        int level = 0;
        if (!readIndex(option, value, QStringLiteral("the top of the chain"), level))
            return false;
        request.level = level;
        return true;
    }
    Edit edit{Edit::Set, {}, {}, {}, 0};
    if (option == QLatin1String("--set") || option == QLatin1String("--option")) {
        edit.kind = option == QLatin1String("--set") ? Edit::Set : Edit::Option;
        if (!readAssignment(option, value, edit))
            return false;
    } else if (option == QLatin1String("--defining")) {
        edit.kind = Edit::Defining;
        // An empty value clears the list.
        edit.list = value.split(QLatin1Char(','), Qt::SkipEmptyParts);
    } else {
        const std::optional<int> method = typedMatchingMethod(value);
        if (!method) {
            ctlFail(ctlExitUsage,
                    QStringLiteral("--matching takes builtin, strict or custom, not '%1'").arg(value));
            return false;
        }
        edit.kind = Edit::Matching;
        edit.method = *method;
    }
    request.edits << edit;
    return true;
}

bool takeEditRequest(QStringList operands, EditRequest& request) {
    static const QStringList optionsWithValue{"--alternative", "--level",    "--set",
                                              "--defining",    "--matching", "--option"};
    while (!operands.isEmpty()) {
        if (optionsWithValue.contains(operands.first())) {
            if (!takeEditOption(operands, 0, request))
                return false;
        } else if (!takeFileOperand(QStringLiteral("edit"), operands.takeFirst(), request.filePath)) {
            return false;
        }
    }
    if (!checkFileGiven(QStringLiteral("edit"), request.filePath))
        return false;
    QString error;
    if (request.edits.isEmpty())
        error = QStringLiteral("edit needs at least one of --set, --defining, --matching and --option");
    else if (!request.level && std::any_of(request.edits.cbegin(), request.edits.cend(),
                                           [](const Edit& edit) { return edit.needsLevel(); }))
        error = QStringLiteral("--set, --defining and --option need --level N");
    if (error.isEmpty())
        return true;
    ctlFail(ctlExitUsage, error);
    return false;
}

// The alternative to edit, and the level in its chain; null, with the message, when not there.
UIElement* alternativeToEdit(const UIElementCollection& collection, const EditRequest& request) {
    UIElement* element = collection.elements().value(request.alternative);
    const qsizetype levels = element ? levelsOf(element).size() : 0;
    // The numbers go in as text, all at once: a file name may hold "%1".
    const QString alternative = QString::number(request.alternative);
    QString error;
    if (!element)
        error = QStringLiteral("%1 has no alternative %2; it holds the alternatives 0 to %3")
                    .arg(request.filePath, alternative, QString::number(collection.elements().size() - 1));
    else if (levels == 0)
        error =
            QStringLiteral("alternative %1 in %2 is null: it describes no element, and has nothing to edit")
                .arg(alternative, request.filePath);
    else if (request.level && *request.level >= levels)
        error = QStringLiteral("alternative %1 in %2 has no level %3; its chain has the levels 0 to %4")
                    .arg(alternative, request.filePath, QString::number(*request.level),
                         QString::number(levels - 1));
    if (error.isEmpty())
        return element;
    ctlFail(ctlExitUsage, error);
    return nullptr;
}

// The description turns down a name it has no place for with this warning, and that alone tells
// that the value did not take: a value that a property can't hold is dropped without a word.
const QString rejectedNameWarning = QStringLiteral("Tried to set invalid attribute name on UI element:");

// While it lives, the log lines that begin with `prefix` (all when it is empty) are kept here
// instead of printed, so that edit can tell what went wrong in one line of its own; the others
// pass on.
class KeptLog {
public:
    explicit KeptLog(const QString& prefix = QString())
        : prefix(prefix), previous(qInstallMessageHandler(keep)) {
        active = this;
    }
    ~KeptLog() {
        qInstallMessageHandler(previous);
        active = nullptr;
    }
    KeptLog(const KeptLog&) = delete;
    KeptLog& operator=(const KeptLog&) = delete;

    QStringList lines;

private:
    static void keep(QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (message.startsWith(active->prefix))
            active->lines << message;
        else if (active->previous)
            active->previous(type, context, message);
    }

    static inline KeptLog* active = nullptr;
    const QString prefix;
    const QtMessageHandler previous;
};

// Applies one edit; false, with the message, when the description turned it down.
bool applyEdit(UIElement* element, const Edit& edit, const EditRequest& request) {
    const int level = request.level.value_or(0);
    switch (edit.kind) {
    case Edit::Set: {
        const KeptLog log(rejectedNameWarning);
        element->setAttributeValueForElementAtHierarchyLevel(level, edit.name, edit.value);
        if (log.lines.isEmpty())
            return true;
        ctlFail(ctlExitUsage,
                QStringLiteral("level %1 of alternative %2 in %3 has no attribute %4 to set: a level "
                               "takes its own properties and the attributes it holds")
                    .arg(level)
                    .arg(request.alternative)
                    .arg(request.filePath, edit.name));
        return false;
    }
    case Edit::Defining:
        element->setDefiningAttributesForElementAtHierarchyLevel(level, edit.list);
        return true;
    case Edit::Matching:
        element->setMatchingMethod(edit.method);
        return true;
    case Edit::Option:
        element->setOptionForElementAtHierarchyLevel(level, edit.name, edit.value);
        return true;
    }
    return false;
}

// The bytes go to a temporary file beside FILE, which takes its place only when all is written.
bool writeWhole(const QString& filePath, const QByteArray& content) {
    QString reason;
    QSaveFile file(filePath);
    if (QFileInfo(filePath).isDir())
        reason = QStringLiteral("it is a directory");
    else if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit())
        reason = file.errorString();
    if (reason.isEmpty())
        return true;
    ctlFail(ctlExitUsage, QStringLiteral("cannot write %1: %2").arg(filePath, reason));
    return false;
}

} // namespace

int runShow(const InspectorOptions& options, const QStringList& operands) {
    QString filePath;
    for (const QString& operand : operands)
        if (!takeFileOperand(QStringLiteral("show"), operand, filePath))
            return ctlExitUsage;
    UIElementCollection collection;
    if (!checkFileGiven(QStringLiteral("show"), filePath) || !useDesktopFile(options.desktopFile) ||
        !loadCollection(filePath, collection))
        return ctlExitUsage;
    QStringList lines;
    QJsonArray alternatives;
    for (int index = 0; index < collection.elements().size(); ++index)
        alternatives.append(describeAlternative(index, collection.elements().at(index), lines));
    ctlPrintAnswer(options.json, lines, QJsonObject{{"file", filePath}, {"alternatives", alternatives}});
    return ctlExitSuccess;
}

int runEdit(const InspectorOptions& options, const QStringList& operands) {
    EditRequest request;
    UIElementCollection collection;
    if (!takeEditRequest(operands, request) || !useDesktopFile(options.desktopFile) ||
        !loadCollection(request.filePath, collection))
        return ctlExitUsage;
    UIElement* element = alternativeToEdit(collection, request);
    if (!element)
        return ctlExitUsage;
    for (const Edit& edit : request.edits)
        if (!applyEdit(element, edit, request))
            return ctlExitUsage;

    // Written only as it will be read: the tool and the next show must see the description edited.
    const QByteArray saved = serializeObjectToByteArray(&collection);
    UIElementCollection reloaded;
    QStringList readerLines;
    {
        // The reader's complaints name its scratch file; the first tells why, in the one line.
        const KeptLog log;
        deserializeObjectFromByteArray(&reloaded, saved);
        readerLines = log.lines;
    }
    if (!collection.isEqualToElementCollection(&reloaded))
        return ctlFail(
            ctlExitUsage,
            QStringLiteral("the edited collection does not load back as edited, so %1 is left as it was%2")
                .arg(request.filePath, readerLines.isEmpty() ? QString() : ": " + readerLines.first()));
    if (!writeWhole(request.filePath, saved))
        return ctlExitUsage;
    ctlPrintAnswer(options.json, {element->hierarchyDescription()},
                   QJsonObject{{"file", request.filePath},
                               {"alternative", request.alternative},
                               {"hierarchyDescription", element->hierarchyDescription()}});
    return ctlExitSuccess;
}
