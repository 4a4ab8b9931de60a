#include "osxApplicationIcons.h"
#include "testSupport.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QPixmap>
#include <QTemporaryDir>

namespace {

// Four by two pixels: red and green above, blue and white below; each quadrant is two pixels
// wide and one high.
QImage quadrants() {
    QImage image(4, 2, QImage::Format_ARGB32);
    const QColor colours[2][2] = {{Qt::red, Qt::green}, {Qt::blue, Qt::white}};
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 4; ++x) {
            image.setPixelColor(x, y, colours[y][x / 2]);
        }
    }
    return image;
}

QByteArray encoded(const QColor& colour, const char* format) {
    QImage image(3, 3, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

// The icon's own choice of pixmap for a size at a scale.
QImage iconImage(const QIcon& icon, int size, qreal scale) {
    return icon.pixmap(QSize(size, size), scale).toImage();
}

bool isTransparentPixelIcon(const QIcon& icon) {
    return icon.availableSizes() == QList<QSize>{QSize(1, 1)} &&
           iconImage(icon, 1, 1).pixelColor(0, 0).alpha() == 0;
}

using Files = QMap<QString, QByteArray>;

struct Probe {
    QPoint at;
    QColor colour;
};

} // namespace

Q_DECLARE_METATYPE(Probe)

class TestOsxApplicationIcons : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void makesTwoPixmapsPerSizeInOrder_data();
    void makesTwoPixmapsPerSizeInOrder();
    void pixmapsCarryTheirScale();
    void drawsImageToFillEachPixmap_data();
    void drawsImageToFillEachPixmap();
    void skipsSizesOutOfRange();
    void emptyImages();

    void findsGenericIconInBundle_data();
    void findsGenericIconInBundle();
    void missingBundleGivesTransparentPixel_data();
    void missingBundleGivesTransparentPixel();
    void bundlePathGoesBackToTheSystems();

private:
    std::unique_ptr<QTemporaryDir> bundle;
};

void TestOsxApplicationIcons::init() {
    bundle = std::make_unique<QTemporaryDir>();
    QVERIFY(bundle->isValid());
    setGenericIconBundlePathForTesting(bundle->path());
}

void TestOsxApplicationIcons::cleanup() {
    setGenericIconBundlePathForTesting(std::nullopt);
}

void TestOsxApplicationIcons::makesTwoPixmapsPerSizeInOrder_data() {
    QTest::addColumn<QList<int>>("sizes");
    QTest::addColumn<QList<QSize>>("pixels");
    QTest::newRow("one") << QList<int>{16} << QList<QSize>{{16, 16}, {32, 32}};
    QTest::newRow("order kept") << QList<int>{32, 3, 16}
                                << QList<QSize>{{32, 32}, {64, 64}, {3, 3}, {6, 6}, {16, 16}, {32, 32}};
    QTest::newRow("none") << QList<int>{} << QList<QSize>{};
}

void TestOsxApplicationIcons::makesTwoPixmapsPerSizeInOrder() {
    QFETCH(QList<int>, sizes);
    QFETCH(QList<QSize>, pixels);
    const NSImage image(quadrants());
    const QIcon icon = convertNSImageToQIcon(&image, sizes);
    QCOMPARE(icon.availableSizes(), pixels);
    QCOMPARE(icon.isNull(), sizes.isEmpty());
    for (const int size : sizes) {
        QCOMPARE(icon.pixmap(QSize(size, size), 1).size(), QSize(size, size));
        QCOMPARE(icon.pixmap(QSize(size, size), 2).size(), QSize(2 * size, 2 * size));
    }
}

// An icon does not enlarge its pixmaps, and picks among those of the scale asked for: so when 32
// points are asked for at scale 1, the 32-pixel pixmap of 16 points at scale 2 is passed over.
void TestOsxApplicationIcons::pixmapsCarryTheirScale() {
    const NSImage image(quadrants());
    const QIcon icon = convertNSImageToQIcon(&image, {16});
    const QPixmap atScale1 = icon.pixmap(QSize(32, 32), 1);
    QCOMPARE(atScale1.size(), QSize(16, 16));
    QCOMPARE(atScale1.devicePixelRatio(), 1.0);
    const QPixmap atScale2 = icon.pixmap(QSize(16, 16), 2);
    QCOMPARE(atScale2.size(), QSize(32, 32));
    QCOMPARE(atScale2.devicePixelRatio(), 2.0);
}

void TestOsxApplicationIcons::drawsImageToFillEachPixmap_data() {
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("scale");
    QTest::addColumn<QList<Probe>>("probes");
    // All four quadrants, a quarter each, averaged: (255 + 0 + 0 + 255) / 4 per channel.
    QTest::newRow("one pixel: average") << 1 << 1 << QList<Probe>{{{0, 0}, QColor(128, 128, 128)}};
    QTest::newRow("two pixels: one quadrant each")
        << 1 << 2
        << QList<Probe>{{{0, 0}, Qt::red}, {{1, 0}, Qt::green}, {{0, 1}, Qt::blue}, {{1, 1}, Qt::white}};
    // 16 by 16 from 4 by 2: a source pixel spans 4 by 8. Pixel centres map back to
    // (x + 0.5) / 4 - 0.5 across; near the edges that stays within the corner pixels, and at the
    // red and green meeting of the top row it lies 3/8 and 5/8 of the way from red to green.
    QTest::newRow("sixteen pixels: stretched and smooth")
        << 8 << 2
        << QList<Probe>{{{0, 0}, Qt::red},     {{15, 0}, Qt::green},         {{0, 15}, Qt::blue},
                        {{15, 15}, Qt::white}, {{7, 0}, QColor(159, 96, 0)}, {{8, 0}, QColor(96, 159, 0)}};
}

void TestOsxApplicationIcons::drawsImageToFillEachPixmap() {
    QFETCH(int, size);
    QFETCH(int, scale);
    QFETCH(QList<Probe>, probes);
    const NSImage image(quadrants());
    const QImage drawn = iconImage(convertNSImageToQIcon(&image, {size}), size, scale);
    QCOMPARE(drawn.size(), QSize(size * scale, size * scale));
    for (const Probe& probe : probes) {
        const QColor found = drawn.pixelColor(probe.at);
        const bool close = qAbs(found.red() - probe.colour.red()) <= 2 &&
                           qAbs(found.green() - probe.colour.green()) <= 2 &&
                           qAbs(found.blue() - probe.colour.blue()) <= 2 && found.alpha() == 255;
        QVERIFY2(close,
                 qPrintable(QStringLiteral("at (%1, %2): %3, expected %4")
                                .arg(probe.at.x())
                                .arg(probe.at.y())
                                .arg(found.name(QColor::HexArgb), probe.colour.name(QColor::HexArgb))));
    }
}

void TestOsxApplicationIcons::skipsSizesOutOfRange() {
    const NSImage image(quadrants());
    for (const char* size : {"0", "-1", "4097"}) {
        QTest::ignoreMessage(QtDebugMsg, QByteArray("Warning: icon size out of range, skipped: ") + size);
    }
    QCOMPARE(convertNSImageToQIcon(&image, {0, -1, 2, 4097}).availableSizes(),
             (QList<QSize>{{2, 2}, {4, 4}}));
}

void TestOsxApplicationIcons::emptyImages() {
    QVERIFY(convertNSImageToQIcon(nullptr, {16}).isNull());
    const NSImage empty{QImage()};
    const QIcon icon = convertNSImageToQIcon(&empty, {2});
    QCOMPARE(icon.availableSizes(), (QList<QSize>{{2, 2}, {4, 4}}));
    QCOMPARE(iconImage(icon, 2, 2).pixelColor(3, 3).alpha(), 0);
}

void TestOsxApplicationIcons::findsGenericIconInBundle_data() {
    QTest::addColumn<QString>("name");
    // Paths in the bundle and their contents; a path ending in "/" is a directory.
    QTest::addColumn<Files>("files");
    // Invalid: the transparent pixel.
    QTest::addColumn<QColor>("expected");
    const QByteArray redPng = encoded(Qt::red, "PNG");
    const QByteArray greenBmp = encoded(Qt::green, "BMP");
    const QByteArray bluePng = encoded(Qt::blue, "PNG");

    QTest::newRow("resources") << "Icon" << Files{{"Contents/Resources/Icon.png", redPng}} << QColor(Qt::red);
    QTest::newRow("flat bundle") << "Icon" << Files{{"Icon.png", redPng}} << QColor(Qt::red);
    QTest::newRow("resources before top")
        << "Icon" << Files{{"Contents/Resources/Icon.png", redPng}, {"Icon.png", bluePng}} << QColor(Qt::red);
    QTest::newRow("png before other formats")
        << "Icon" << Files{{"Icon.bmp", greenBmp}, {"Icon.png", redPng}} << QColor(Qt::red);
    QTest::newRow("other format") << "Icon" << Files{{"Icon.bmp", greenBmp}} << QColor(Qt::green);
    QTest::newRow("name with extension") << "Icon.bmp" << Files{{"Icon.bmp", greenBmp}} << QColor(Qt::green);
    QTest::newRow("name itself first")
        << "Icon.bmp" << Files{{"Icon.bmp", greenBmp}, {"Icon.bmp.png", redPng}} << QColor(Qt::green);
    QTest::newRow("format told by contents") << "Icon" << Files{{"Icon", bluePng}} << QColor(Qt::blue);
    QTest::newRow("missing resource") << "Icon" << Files{{"Other.png", redPng}} << QColor();
    QTest::newRow("directory of the name")
        << "Icon" << Files{{"Contents/Resources/Icon.png/", {}}} << QColor();
    QTest::newRow("not an image") << "Icon" << Files{{"Icon.png", "not an image"}} << QColor();
    QTest::newRow("empty file") << "Icon" << Files{{"Icon.png", {}}} << QColor();
    QTest::newRow("truncated") << "Icon" << Files{{"Icon.png", redPng.left(redPng.size() / 2)}} << QColor();
    // The first file found is the resource, even when it cannot be read.
    QTest::newRow("unreadable hides the rest")
        << "Icon" << Files{{"Contents/Resources/Icon.png", "not an image"}, {"Icon.png", redPng}} << QColor();
    QTest::newRow("path inside") << "sub/Icon" << Files{{"Contents/Resources/sub/Icon.png", redPng}}
                                 << QColor();
    QTest::newRow("path outside") << "../Icon"
                                  << Files{{"Contents/Resources/", {}}, {"Contents/Icon.png", redPng}}
                                  << QColor();
    QTest::newRow("empty name") << "" << Files{{".png", redPng}} << QColor();
}

void TestOsxApplicationIcons::findsGenericIconInBundle() {
    QFETCH(QString, name);
    QFETCH(Files, files);
    QFETCH(QColor, expected);
    const QDir dir(bundle->path());
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        QVERIFY(dir.mkpath(QFileInfo(dir.filePath(file.key())).path()));
        if (!file.key().endsWith('/')) {
            QFile out(dir.filePath(file.key()));
            QVERIFY(out.open(QIODevice::WriteOnly));
            QCOMPARE(out.write(file.value()), file.value().size());
        }
    }
    const QIcon icon = retrieveMacOSGenericIconWithName(name, {1});
    if (!expected.isValid()) {
        QVERIFY(isTransparentPixelIcon(icon));
        return;
    }
    QCOMPARE(icon.availableSizes(), (QList<QSize>{{1, 1}, {2, 2}}));
    QCOMPARE(iconImage(icon, 1, 1).pixelColor(0, 0), expected);
}

void TestOsxApplicationIcons::missingBundleGivesTransparentPixel_data() {
    QTest::addColumn<QString>("bundlePath");
    QTest::newRow("no such path") << "no-such.bundle";
    QTest::newRow("a file") << "file.bundle";
}

void TestOsxApplicationIcons::missingBundleGivesTransparentPixel() {
    QFETCH(QString, bundlePath);
    QFile file(QDir(bundle->path()).filePath("file.bundle"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QByteArray png = encoded(Qt::red, "PNG");
    QCOMPARE(file.write(png), png.size());
    file.close();
    setGenericIconBundlePathForTesting(QDir(bundle->path()).filePath(bundlePath));
    QVERIFY(isTransparentPixelIcon(retrieveMacOSGenericIconWithName("file", {16, 32})));
}

void TestOsxApplicationIcons::bundlePathGoesBackToTheSystems() {
    setGenericIconBundlePathForTesting(std::nullopt);
    QCOMPARE(genericIconBundlePath(), QStringLiteral("/System/Library/CoreServices/CoreTypes.bundle"));
}

UIET_GUI_TEST_MAIN(TestOsxApplicationIcons)
#include "tst_osxApplicationIcons.moc"
