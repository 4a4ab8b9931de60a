// How long the tool takes to load a start command, by the number of elements in its collection,
// with the serializer's caches (as the tool loads) and with NoPathCache (every query asks
// QSettings). Loading with the caches must grow linearly with the message.
//
// The element model does not store anything of its own yet, so the command here is a stand-in
// with the tool's layout: a command entity whose `elements` object holds a list of elements, each
// with a USER `impl` object carrying the attributes, defining attributes and options that a
// captured element carries.
//
// NoPathCache grows with the square of the message, so it is measured up to 1000 elements only.
//
//   bench_commandLoad [ELEMENT_COUNT ...]      (default 1 100 1000 5000)

#include "QSettingsSerializer.h"
#include "ZREntity.h"
#include "ZRMetaTypeRegistrar.h"
#include "ZRSerializableStructures.h"
#include "dataObjectSerialization.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QTextStream>

#include <algorithm>
#include <functional>

class BenchElementImpl : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, childIndex, setChildIndex)
    ZR_ENTITY_PROPERTY(int, matchingMethod, setMatchingMethod)
    ZR_ENTITY_PROPERTY(QString, bundleId, setBundleId)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, attributes, setAttributes)
    ZR_ENTITY_PROPERTY(ZRSerializableStringList, definingAttributes, setDefiningAttributes)
    ZR_ENTITY_PROPERTY(ZRSerializableVariantMap, options, setOptions)
public:
    Q_INVOKABLE explicit BenchElementImpl(QObject* parent = nullptr) : ZREntity(parent) {}
};

class BenchElement : public ZREntity {
    Q_OBJECT
    Q_PROPERTY(BenchElementImpl* impl READ impl WRITE setImpl USER true)
public:
    Q_INVOKABLE explicit BenchElement(QObject* parent = nullptr) : ZREntity(parent) {}
    BenchElementImpl* impl() const { return implementation; }
    void setImpl(BenchElementImpl* newImpl) { implementation = newImpl; }

private:
    BenchElementImpl* implementation = nullptr;
};

class BenchCollection : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(ZRSerializableVariantList, elements, setElements)
public:
    Q_INVOKABLE explicit BenchCollection(QObject* parent = nullptr) : ZREntity(parent) {}
};

class BenchCommand : public ZREntity {
    Q_OBJECT
    ZR_ENTITY_PROPERTY(int, command, setCommand)
    ZR_ENTITY_PROPERTY(qulonglong, id, setId)
    ZR_ENTITY_PROPERTY(BenchCollection*, elements, setElements)
public:
    Q_INVOKABLE explicit BenchCommand(QObject* parent = nullptr) : ZREntity(parent) {}
};

template class ZRMetaTypeObjectRegistrar<BenchElementImpl>;
template class ZRMetaTypeObjectRegistrar<BenchElement>;
template class ZRMetaTypeObjectRegistrar<BenchCollection>;

namespace {

constexpr int largestUncachedCount = 1000;

// What capture records for a button of a mixer window: fifteen attributes, four of them defining.
BenchElement* makeElement(int index, QObject* parent) {
    auto* element = new BenchElement(parent);
    auto* impl = new BenchElementImpl(element);
    impl->setChildIndex(index);
    impl->setMatchingMethod(index % 3);
    impl->setBundleId(QStringLiteral("com.example.mixer"));
    impl->setAttributes(ZRSerializableVariantMap{
        {QStringLiteral("AXRole"), QStringLiteral("AXButton")},
        {QStringLiteral("AXSubrole"), QStringLiteral("AXToggle")},
        {QStringLiteral("AXTitle"), QStringLiteral("Mute %1").arg(index)},
        {QStringLiteral("AXDescription"), QStringLiteral("Mute track %1, audio").arg(index)},
        {QStringLiteral("AXRoleDescription"), QStringLiteral("button")},
        {QStringLiteral("AXIdentifier"), QStringLiteral("mute/%1").arg(index)},
        {QStringLiteral("AXEnabled"), true},
        {QStringLiteral("AXFocused"), false},
        {QStringLiteral("AXPosition"), QPoint(100 + index, 240)},
        {QStringLiteral("AXSize"), QSize(24, 18)},
        {QStringLiteral("localRect"), QRect(4, 60, 24, 18)},
        {QStringLiteral("childCount"), 0},
        {QStringLiteral("childIndex"), index},
        {QStringLiteral("matchingRoleChildIndex"), index / 2},
        {QStringLiteral("processName"), QStringLiteral("Mixer")},
    });
    impl->setDefiningAttributes(
        ZRSerializableStringList{QStringLiteral("AXRole"), QStringLiteral("AXSubrole"),
                                 QStringLiteral("AXTitle"), QStringLiteral("childIndex")});
    impl->setOptions(
        ZRSerializableVariantMap{{QStringLiteral("syncToProToolsSelectedTrack"), index % 2 == 0}});
    element->setImpl(impl);
    return element;
}

QByteArray startCommandWithElements(int count) {
    BenchCommand command;
    command.setCommand(1);
    command.setId(9);
    auto* collection = new BenchCollection(&command);
    ZRSerializableVariantList elements;
    for (int i = 0; i < count; ++i)
        elements.append(QVariant::fromValue(makeElement(i, collection)));
    collection->setElements(elements);
    command.setElements(collection);
    return serializeObjectToByteArray(&command);
}

// The shortest of several runs, in milliseconds: repeats until a quarter of a second has been
// spent, at least three times.
double fastestRun(const std::function<void()>& run) {
    double fastest = 1e300;
    QElapsedTimer total;
    total.start();
    for (int round = 0; round < 3 || total.elapsed() < 250; ++round) {
        QElapsedTimer timer;
        timer.start();
        run();
        fastest = std::min(fastest, timer.nsecsElapsed() / 1e6);
    }
    return fastest;
}

// Not measured: a dash.
QString figure(double value, int decimals) {
    return qIsNaN(value) ? QStringLiteral("-") : QString::number(value, 'f', decimals);
}

// The load alone, from a file already on disk, as the codec does it after writing the file.
void loadFromFile(const QString& path, QSettingsSerializer::Options options, int expectedCount) {
    BenchCommand command;
    QSettingsSerializer serializer(path, options);
    serializer.synchronize();
    loadObject(serializer, &command);
    if (!command.elements() || command.elements()->elements().size() != expectedCount)
        qFatal("the benchmark's command did not load whole");
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QList<int> counts{1, 100, 1000, 5000};
    if (argc > 1) {
        counts.clear();
        for (int i = 1; i < argc; ++i)
            counts.append(QString::fromLocal8Bit(argv[i]).toInt());
    }

    QTextStream out(stdout);
    out << "elements  message bytes   codec ms   cached ms  cached us/element   NoPathCache ms   ratio\n";
    for (int count : counts) {
        const QByteArray message = startCommandWithElements(count);
        const QString path = getTemporaryFilePath();
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(message) != message.size())
            qFatal("cannot write %s", qPrintable(path));
        file.close();

        const auto readOptions = QSettingsSerializer::FailIfFileMissing | QSettingsSerializer::WriteTypeInfo;
        const double codec = fastestRun([&] {
            BenchCommand command;
            deserializeObjectFromByteArray(&command, message);
        });
        const double cached = fastestRun([&] { loadFromFile(path, readOptions, count); });
        const double uncached = count > largestUncachedCount ? qQNaN() : fastestRun([&] {
            loadFromFile(path, readOptions | QSettingsSerializer::NoPathCache, count);
        });
        QFile::remove(path);

        out << qSetFieldWidth(8) << count << qSetFieldWidth(15) << message.size() << qSetFieldWidth(11)
            << figure(codec, 2) << qSetFieldWidth(12) << figure(cached, 2) << qSetFieldWidth(20)
            << figure(cached * 1000 / count, 1) << qSetFieldWidth(17) << figure(uncached, 2)
            << qSetFieldWidth(8) << figure(uncached / cached, 1) << qSetFieldWidth(0) << '\n';
        out.flush();
    }
    return 0;
}

#include "bench_commandLoad.moc"
