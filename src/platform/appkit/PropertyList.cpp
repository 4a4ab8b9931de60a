// XML and binary property lists through libplist 2.2, with the old text form as the fallback, and
// dictionaryWithContentsOfFile on top.
//
// libplist 2.2 has faults that damaged or hostile input reaches: it frees every tree recursively
// (also after a parse error) and parses the binary form recursively, so deep nesting overflows
// the stack; it parses a binary object again each time it is referenced, so a few objects that
// reference each other twice over make a tree of billions of nodes; and it aborts on a dictionary
// key in UTF-16 that holds a zero unit. The checks below refuse such input before libplist sees
// it.

#include "PropertyList.h"

#include "NSFileManager.h"

#include <QDateTime>
#include <QVariantList>

#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

// ---- The XML form --------------------------------------------------------------------------

// The index of the first of `characters` at or after `from`, or -1. With `skipQuotes`,
// double-quoted stretches are passed over whole, as libplist passes over them inside markup.
qsizetype indexOfAny(QByteArrayView data, qsizetype from, QByteArrayView characters, bool skipQuotes) {
    for (qsizetype i = from; i < data.size(); ++i) {
        if (characters.contains(data[i]))
            return i;
        if (skipQuotes && data[i] == '"' && (i = data.indexOf('"', i + 1)) < 0)
            return -1;
    }
    return -1;
}

// The index just after the first `terminator` at or after `from`, or -1; quotes as above.
qsizetype indexAfter(QByteArrayView data, qsizetype from, QByteArrayView terminator, bool skipQuotes) {
    for (qsizetype i = from; i < data.size(); ++i) {
        if (data.sliced(i).startsWith(terminator))
            return i + terminator.size();
        if (skipQuotes && data[i] == '"' && (i = data.indexOf('"', i + 1)) < 0)
            return -1;
    }
    return -1;
}

// Whether no dictionary or array in the markup opens more than `limit` levels deep. The walk
// skips what libplist skips (comments, CDATA, processing instructions, the document type, quoted
// attribute values), so that nothing hidden there counts as a closing tag; where libplist stops
// at an error, so does the walk.
bool xmlNestsWithin(QByteArrayView data, int limit) {
    int depth = 0;
    qsizetype i = 0;
    while (i >= 0 && (i = data.indexOf('<', i)) >= 0) {
        const QByteArrayView rest = data.sliced(i);
        if (rest.startsWith("<!--")) {
            i = indexAfter(data, i + 4, "-->", false);
        } else if (rest.startsWith("<![CDATA[")) {
            i = indexAfter(data, i + 9, "]]>", false);
        } else if (rest.startsWith("<?")) {
            i = indexAfter(data, i + 2, "?>", true);
        } else if (rest.startsWith("<!")) {
            // A document type ends at its '>', or with an internal subset at "]>".
            i = indexOfAny(data, i + 2, "[>", true);
            if (i >= 0)
                i = data[i] == '[' ? indexAfter(data, i, "]>", true) : i + 1;
        } else {
            const qsizetype nameEnd = indexOfAny(data, i + 1, " \t\r\n<>", false);
            // libplist takes the tag to end at the next '>' outside quotes, and fails at a '<'.
            const qsizetype close = nameEnd < 0 ? -1 : indexOfAny(data, nameEnd, "<>", true);
            if (close < 0 || data[close] != '>')
                return true;
            const QByteArrayView name = data.sliced(i + 1, nameEnd - i - 1);
            const bool empty = data[close - 1] == '/';
            if (!empty && (name == "dict" || name == "array") && ++depth > limit)
                return false;
            if (name == "/dict" || name == "/array")
                depth = std::max(0, depth - 1);
            i = close + 1;
        }
    }
    return true;
}

// ---- The binary form -----------------------------------------------------------------------

// The unsigned big-endian number of `size` bytes at `at`, when it lies inside the data.
std::optional<quint64> bigEndian(QByteArrayView data, quint64 at, quint64 size) {
    if (at > quint64(data.size()) || quint64(data.size()) - at < size)
        return std::nullopt;
    quint64 value = 0;
    for (quint64 i = 0; i < size; ++i)
        value = value << 8 | quint8(data[qsizetype(at + i)]);
    return value;
}

// What the trailer of a binary list says, checked against the size of the data.
struct BinaryLayout {
    QByteArrayView data;
    quint64 offsetSize = 0;
    quint64 referenceSize = 0;
    quint64 objectCount = 0;
    quint64 topObject = 0;
    quint64 offsetTable = 0;
};

// The counted part of an object: the elements of an array or set, the keys and then the values of
// a dictionary. Other objects have none.
struct References {
    bool container = false;
    bool dictionary = false;
    quint64 first = 0; // where the references begin
    quint64 count = 0;
};

constexpr quint64 kBinaryHeaderSize = 8;
constexpr quint64 kBinaryTrailerSize = 32;

std::optional<BinaryLayout> binaryLayout(QByteArrayView data) {
    const quint64 size = quint64(data.size());
    if (size < kBinaryHeaderSize + kBinaryTrailerSize)
        return std::nullopt;
    const quint64 trailer = size - kBinaryTrailerSize;
    BinaryLayout layout;
    layout.data = data;
    layout.offsetSize = quint8(data[qsizetype(trailer + 6)]);
    layout.referenceSize = quint8(data[qsizetype(trailer + 7)]);
    layout.objectCount = *bigEndian(data, trailer + 8, 8);
    layout.topObject = *bigEndian(data, trailer + 16, 8);
    layout.offsetTable = *bigEndian(data, trailer + 24, 8);
    const auto validWidth = [](quint64 width) { return width >= 1 && width <= 8; };
    if (!validWidth(layout.offsetSize) || !validWidth(layout.referenceSize) || layout.objectCount == 0 ||
        layout.topObject >= layout.objectCount || layout.offsetTable < kBinaryHeaderSize ||
        layout.offsetTable > trailer ||
        (trailer - layout.offsetTable) / layout.offsetSize < layout.objectCount)
        return std::nullopt;
    return layout;
}

// Where object `index` begins; objects lie between the header and the offset table.
std::optional<quint64> objectOffset(const BinaryLayout& layout, quint64 index) {
    const std::optional<quint64> offset =
        bigEndian(layout.data, layout.offsetTable + index * layout.offsetSize, layout.offsetSize);
    if (!offset || *offset < kBinaryHeaderSize || *offset >= layout.offsetTable)
        return std::nullopt;
    return offset;
}

// The length an object's marker gives: its low four bits, or when these are all set, the integer
// object that follows. `position` is moved past the marker and that integer.
std::optional<quint64> objectLength(const BinaryLayout& layout, quint64& position) {
    const quint8 marker = quint8(layout.data[qsizetype(position++)]);
    if ((marker & 0x0F) != 0x0F)
        return marker & 0x0F;
    const std::optional<quint64> intMarker = bigEndian(layout.data, position++, 1);
    if (!intMarker || (*intMarker & 0xF0) != 0x10 || (*intMarker & 0x0F) > 3)
        return std::nullopt;
    const quint64 width = quint64(1) << (*intMarker & 0x0F);
    const std::optional<quint64> length = bigEndian(layout.data, position, width);
    position += width;
    return length;
}

std::optional<References> objectReferences(const BinaryLayout& layout, quint64 index) {
    std::optional<quint64> position = objectOffset(layout, index);
    if (!position)
        return std::nullopt;
    const quint8 kind = quint8(layout.data[qsizetype(*position)]) >> 4;
    References references;
    if (kind != 0xA && kind != 0xC && kind != 0xD) // array, set, dictionary
        return references;
    const std::optional<quint64> length = objectLength(layout, *position);
    references.container = true;
    references.dictionary = kind == 0xD;
    const quint64 perEntry = (references.dictionary ? 2 : 1) * layout.referenceSize;
    if (!length || *position > layout.offsetTable || (layout.offsetTable - *position) / perEntry < *length)
        return std::nullopt;
    references.first = *position;
    references.count = *length * (references.dictionary ? 2 : 1);
    return references;
}

// The object that reference `n` of `references` names.
std::optional<quint64> referencedObject(const BinaryLayout& layout, const References& references, quint64 n) {
    const std::optional<quint64> index =
        bigEndian(layout.data, references.first + n * layout.referenceSize, layout.referenceSize);
    if (!index || *index >= layout.objectCount)
        return std::nullopt;
    return index;
}

// Whether object `index`, when it is a string in UTF-16, holds a zero unit; also true when it
// lies outside the data.
bool isUtf16StringWithZeroUnit(const BinaryLayout& layout, quint64 index) {
    std::optional<quint64> position = objectOffset(layout, index);
    if (!position)
        return true;
    if (quint8(layout.data[qsizetype(*position)]) >> 4 != 0x6)
        return false;
    const std::optional<quint64> units = objectLength(layout, *position);
    if (!units || *position > layout.offsetTable || (layout.offsetTable - *position) / 2 < *units)
        return true;
    for (quint64 i = 0; i < *units; ++i) {
        if (layout.data[qsizetype(*position + 2 * i)] == 0 &&
            layout.data[qsizetype(*position + 2 * i + 1)] == 0)
            return true;
    }
    return false;
}

// Walks the graph of objects from the top object without recursion, as libplist will expand it:
// refused are cycles, containers nested deeper than the limit, keys in UTF-16 with a zero unit,
// and a tree of more nodes than the data has bytes. Foundation never shares a container between
// two places when it writes a list, so each node but the top one stands for a reference of at
// least one byte; only a list made to blow up has more.
bool binaryListIsSafe(QByteArrayView data) {
    const std::optional<BinaryLayout> layout = binaryLayout(data);
    if (!layout)
        return false;
    const quint64 nodeCap = quint64(data.size()) + 1;
    enum class State : quint8 { Unseen, Open, Done };
    struct Seen {
        State state = State::Unseen;
        int depth = 0;     // containers on the deepest path from the object down
        quint64 nodes = 0; // the size of its expanded tree, at most nodeCap
    };
    std::vector<Seen> seen(layout->objectCount);
    struct Frame {
        quint64 object;
        References references;
        quint64 next = 0;
        quint64 nodes = 1;
        int childDepth = 0;
    };
    std::vector<Frame> stack;
    const auto absorb = [&](Frame& parent, const Seen& child) {
        parent.nodes = std::min(parent.nodes + child.nodes, nodeCap);
        parent.childDepth = std::max(parent.childDepth, child.depth);
    };
    const auto enter = [&](quint64 object) {
        const std::optional<References> references = objectReferences(*layout, object);
        if (!references || stack.size() > size_t(kDeepestPropertyListNesting))
            return false;
        seen[object].state = State::Open;
        stack.push_back({object, *references});
        return true;
    };
    if (!enter(layout->topObject))
        return false;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.references.count) {
            const quint64 n = frame.next++;
            const std::optional<quint64> child = referencedObject(*layout, frame.references, n);
            if (!child || seen[*child].state == State::Open)
                return false; // a cycle, which libplist refuses as well
            if (frame.references.dictionary && n < frame.references.count / 2 &&
                isUtf16StringWithZeroUnit(*layout, *child))
                return false;
            if (seen[*child].state == State::Unseen) {
                if (!enter(*child))
                    return false;
            } else {
                absorb(frame, seen[*child]);
            }
            continue;
        }
        const int depth = frame.childDepth + (frame.references.container ? 1 : 0);
        if (depth > kDeepestPropertyListNesting)
            return false;
        const quint64 object = frame.object;
        seen[object] = {State::Done, depth, frame.nodes};
        stack.pop_back();
        if (!stack.empty())
            absorb(stack.back(), seen[object]);
    }
    return seen[layout->topObject].nodes < nodeCap;
}

// ---- From libplist's tree to QVariants -----------------------------------------------------

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPointer = std::unique_ptr<void, PlistFree>;

struct MallocFree {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using MallocPointer = std::unique_ptr<T, MallocFree>;

// libplist 2.2 keeps an integer as 64 bits with a width: 8 bytes for a signed value, 16 for an
// unsigned one (a binary list may also write a small value in 16 bytes). Its API shows the width
// only through comparison with a node of its own making, which always has 8.
QVariant integerValue(plist_t node) {
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    if (value <= uint64_t(std::numeric_limits<qint64>::max()))
        return QVariant(qint64(value));
    const PlistPointer signedTwin(plist_new_uint(value));
    if (plist_compare_node_value(node, signedTwin.get()))
        return QVariant(qint64(value)); // negative
    return QVariant(quint64(value));
}

// libplist 2.2 hands a date out as whole seconds since 2001 (32 bits, so 1933 to 2069) and the
// microseconds without their sign, which is the sign of the seconds except within a second
// before 2001.
QVariant dateValue(plist_t node) {
    int32_t seconds = 0;
    int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    const qint64 milliseconds = qint64(seconds) * 1000 + (seconds < 0 ? -1 : 1) * (microseconds / 1000);
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).addMSecs(milliseconds);
}

// A string up to its first zero byte: libplist's length is not the same for every source.
QString stringValue(const char* text, uint64_t length) {
    return text ? QString::fromUtf8(text, qsizetype(strnlen(text, size_t(length)))) : QString();
}

std::optional<QVariant> variantFromNode(plist_t node, int depth);

std::optional<QVariant> arrayValue(plist_t node, int depth) {
    QVariantList list;
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const MallocPointer<void> iteratorOwner(iterator);
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        if (!item)
            return QVariant(list);
        std::optional<QVariant> value = variantFromNode(item, depth + 1);
        if (!value)
            return std::nullopt;
        list.append(std::move(*value));
    }
}

std::optional<QVariant> dictionaryValue(plist_t node, int depth) {
    QVariantMap map;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const MallocPointer<void> iteratorOwner(iterator);
    for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        const MallocPointer<char> keyOwner(key);
        if (!item)
            return QVariant(map);
        // A key that is no string has no place in a QVariantMap; readers of string tables pass
        // such entries over anyway.
        if (!key)
            continue;
        std::optional<QVariant> value = variantFromNode(item, depth + 1);
        if (!value)
            return std::nullopt;
        map.insert(QString::fromUtf8(key), std::move(*value));
    }
}

// `depth` is the nesting level a container here would have.
std::optional<QVariant> variantFromNode(plist_t node, int depth) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant(value != 0);
    }
    case PLIST_UINT:
        return integerValue(node);
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return QVariant(stringValue(text, length));
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return QVariant(bytes ? QByteArray(bytes, qsizetype(length)) : QByteArray());
    }
    case PLIST_DATE:
        return dateValue(node);
    case PLIST_UID: {
        // A keyed archive's reference, as an XML list writes it.
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant(QVariantMap{{QStringLiteral("CF$UID"), QVariant(qint64(value))}});
    }
    case PLIST_ARRAY:
    case PLIST_DICT:
        if (depth > kDeepestPropertyListNesting)
            return std::nullopt;
        return plist_get_node_type(node) == PLIST_ARRAY ? arrayValue(node, depth)
                                                        : dictionaryValue(node, depth);
    default:
        return std::nullopt;
    }
}

// The XML or binary form through libplist; nullopt for anything it, or a check made for it,
// refuses.
std::optional<QVariant> libplistPropertyList(const QByteArray& data) {
    if (data.isEmpty() || quint64(data.size()) > UINT32_MAX)
        return std::nullopt;
    const uint32_t length = uint32_t(data.size());
    plist_t root = nullptr;
    if (plist_is_binary(data.constData(), length)) {
        if (binaryListIsSafe(data))
            plist_from_bin(data.constData(), length, &root);
    } else if (xmlNestsWithin(data, kDeepestPropertyListNesting)) {
        plist_from_xml(data.constData(), length, &root);
    }
    const PlistPointer owner(root);
    return root ? variantFromNode(root, 1) : std::nullopt;
}

} // namespace

std::optional<QVariant> propertyListFromData(const QByteArray& data) {
    if (std::optional<QVariant> value = libplistPropertyList(data))
        return value;
    return openStepPropertyListFromData(data);
}

std::optional<QVariantMap> dictionaryWithContentsOfFile(const QString& path) {
    const std::optional<QByteArray> data =
        NSFileManager::defaultManager()->contentsAtPath(path, kLargestPropertyListFile);
    if (!data)
        return std::nullopt;
    std::optional<QVariant> root = propertyListFromData(*data);
    if (!root || root->typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    return root->toMap();
}
