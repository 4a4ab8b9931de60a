// The conversions of osxMisc (keyboard, event names, logging, images) and the windows that keep
// the frame they are given, over the platform's object system and a virtual desktop's screen.

#include "appkit/NSScreen.h"
#include "logCapture.h"
#include "osxMisc.h"
#include "osxMiscUnconstrain_p.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QPainter>

Q_DECLARE_METATYPE(Qt::KeyboardModifiers)
Q_DECLARE_METATYPE(QImage::Format)

namespace {

QString descriptionText(CFTypeRef object) {
    const Ref<CFStringRef> description(CFCopyDescription(object));
    return QStringFromCFString(description);
}

// Pixels that tell every corner apart, some of them translucent.
QImage testPattern(QImage::Format format) {
    QImage image(3, 2, QImage::Format_ARGB32);
    const QRgb pixels[2][3] = {{qRgba(255, 0, 0, 255), qRgba(0, 255, 0, 255), qRgba(0, 0, 255, 255)},
                               {qRgba(10, 20, 30, 255), qRgba(200, 100, 50, 128), qRgba(0, 0, 0, 0)}};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            image.setPixel(x, y, pixels[y][x]);
    return image.convertToFormat(format);
}

CGRect frameAboveScreen() {
    return CGRectMake(100, 2000, 400, 300);
}

int windowClassCount = 0;

// A class of its own for each test, so that no test sees another's replaced methods.
Class newWindowClass() {
    const QByteArray name = "TestWindow" + QByteArray::number(++windowClassCount);
    return objc_allocateClassPair(NSWindow::windowClass(), name.constData(), 0);
}

QString replacedImplementation(id, SEL) {
    return QStringLiteral("replaced");
}

} // namespace

class tst_OsxMiscServices : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    NSScreen* screen = nullptr;

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) {
            return desktop.load(
                QByteArray(R"({"screens": [{"frame": {"x": 0, "y": 0, "width": 1920, "height": 1080}}]})"));
        }));
        screen = NSScreen::screens().value(0);
        QVERIFY(screen);
    }
    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void carbonModifiers_data() {
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        QTest::addColumn<int>("carbon");
        QTest::newRow("none") << Qt::KeyboardModifiers() << 0;
        QTest::newRow("alt") << Qt::KeyboardModifiers(Qt::AltModifier) << 0x800;
        QTest::newRow("meta") << Qt::KeyboardModifiers(Qt::MetaModifier) << 0x100;
        QTest::newRow("shift") << Qt::KeyboardModifiers(Qt::ShiftModifier) << 0x200;
        QTest::newRow("control") << Qt::KeyboardModifiers(Qt::ControlModifier) << 0x1000;
        QTest::newRow("all, and the ones that are dropped")
            << (Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier | Qt::ControlModifier |
                Qt::KeypadModifier | Qt::GroupSwitchModifier)
            << 0x1B00;
        QTest::newRow("keypad alone") << Qt::KeyboardModifiers(Qt::KeypadModifier) << 0;
    }
    void carbonModifiers() {
        QFETCH(Qt::KeyboardModifiers, modifiers);
        QFETCH(int, carbon);
        QCOMPARE(getCarbonModifiers(modifiers), carbon);
    }

    void secondaryFunctionKey_data() {
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<bool>("secondary");
        const QList<int> secondary = {64, 79, 80, 96, 101, 103, 105, 107, 109, 111, 113, 126};
        const QList<int> primary = {-1, 0, 63, 65, 78, 81, 95, 102, 104, 108, 110, 112, 127};
        for (int code : secondary)
            QTest::addRow("%d", code) << code << true;
        for (int code : primary)
            QTest::addRow("%d", code) << code << false;
        // Above the table: 128 more than a code in it must not wrap onto that code.
        for (int code : {128 + 64, 128 + 126, 256 + 96, 0x10000 + 64})
            QTest::addRow("%d", code) << code << false;
    }
    void secondaryFunctionKey() {
        QFETCH(int, keyCode);
        QFETCH(bool, secondary);
        QCOMPARE(isSecondaryFunctionKey(keyCode), secondary);
    }

    void eventTypeName_data() {
        QTest::addColumn<uint>("type");
        QTest::addColumn<QString>("name");
        QTest::newRow("0") << 0u << "(Unknown)";
        QTest::newRow("1") << 1u << "Mouse down (Left)";
        QTest::newRow("4") << 4u << "Mouse up (Right)";
        QTest::newRow("7") << 7u << "Mouse dragged (Right)";
        QTest::newRow("8") << 8u << "(Unknown)";
        QTest::newRow("9") << 9u << "(Unknown)";
        QTest::newRow("10") << 10u << "Key down";
        QTest::newRow("12") << 12u << "Modifier changed";
        QTest::newRow("13") << 13u << "(Unknown)";
        QTest::newRow("22") << 22u << "Scroll wheel";
        QTest::newRow("25") << 25u << "Mouse down (Other)";
        QTest::newRow("27") << 27u << "Mouse dragged (Other)";
        QTest::newRow("28") << 28u << "(Unknown)";
        QTest::newRow("tap disabled") << uint(kCGEventTapDisabledByTimeout) << "(Unknown)";
    }
    void eventTypeName() {
        QFETCH(uint, type);
        QFETCH(QString, name);
        QCOMPARE(QString::fromUtf8(CGEventTypeName(type)), name);
    }

    void nsLogFormats() {
        const Ref<CFStringRef> text(CFStringCreateWithQString(QStringLiteral("Grüße")));
        const int fortyTwo = 42;
        const Ref<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberIntType, &fortyTwo));
        const QStringList lines = logOf([&] {
            qtNSLog("Error dictionary: %@", static_cast<CFTypeRef>(text));
            qtNSLog("number %@, none %@.", static_cast<CFTypeRef>(number), static_cast<CFTypeRef>(nullptr));
            qtNSLog("%d items, %s, [%5.2f], 100%%, %x, %c", 3, "text", 3.14159, 255u, 'z');
            qtNSLog("[%*d] [%-*.*s] [%lld] [%zu] [%lu]", 4, 7, 6, 2, "abcdef", -9000000000LL, std::size_t(17),
                    123456789UL);
            qtNSLog("%y %d and %@", 5, static_cast<CFTypeRef>(text));
            qtNSLog("trailing %");
        });
        QCOMPARE(
            lines,
            QStringList({"Error dictionary: Grüße", "number " + descriptionText(number) + ", none (null).",
                         "3 items, text, [ 3.14], 100%, ff, z",
                         "[   7] [ab    ] [-9000000000] [17] [123456789]", "%y 5 and Grüße", "trailing %"}));
    }

    void bitmapInfo_data() {
        QTest::addColumn<QImage::Format>("format");
        QTest::addColumn<uint>("info");
        QTest::newRow("RGB32") << QImage::Format_RGB32 << 0x2006u;
        QTest::newRow("ARGB32") << QImage::Format_ARGB32 << 0x2004u;
        QTest::newRow("ARGB32_Premultiplied") << QImage::Format_ARGB32_Premultiplied << 0x2002u;
        QTest::newRow("RGBX8888") << QImage::Format_RGBX8888 << 0x4005u;
        QTest::newRow("RGBA8888") << QImage::Format_RGBA8888 << 0x4003u;
        QTest::newRow("RGBA8888_Premultiplied") << QImage::Format_RGBA8888_Premultiplied << 0x4001u;
        QTest::newRow("Invalid") << QImage::Format_Invalid << 0u;
        QTest::newRow("Mono") << QImage::Format_Mono << 0u;
        QTest::newRow("Indexed8") << QImage::Format_Indexed8 << 0u;
        QTest::newRow("RGB16") << QImage::Format_RGB16 << 0u;
        QTest::newRow("RGB888") << QImage::Format_RGB888 << 0u;
        QTest::newRow("BGR30") << QImage::Format_BGR30 << 0u;
        QTest::newRow("Grayscale8") << QImage::Format_Grayscale8 << 0u;
    }
    void bitmapInfo() {
        QFETCH(QImage::Format, format);
        QFETCH(uint, info);
        const QImage image = format == QImage::Format_Invalid ? QImage() : QImage(2, 2, format);
        QCOMPARE(uint(CGBitmapInfoForQImage(image)), info);
    }

    // Every layout that Core Graphics shares with QImage comes back with its pixels in place,
    // upright, premultiplied.
    void imageRoundTrip_data() {
        QTest::addColumn<QImage::Format>("format");
        for (QImage::Format format :
             {QImage::Format_RGB32, QImage::Format_ARGB32, QImage::Format_ARGB32_Premultiplied,
              QImage::Format_RGBX8888, QImage::Format_RGBA8888, QImage::Format_RGBA8888_Premultiplied})
            QTest::addRow("%d", int(format)) << format;
    }
    void imageRoundTrip() {
        QFETCH(QImage::Format, format);
        const QImage source = testPattern(format);
        CGImageRef image = CGImageCreateWithQImage(source);
        QVERIFY(image);
        const QImage back = CGImageToQImage(image);
        CGImageRelease(image);
        QCOMPARE(back.format(), QImage::Format_ARGB32_Premultiplied);
        QCOMPARE(back, source.convertToFormat(QImage::Format_ARGB32_Premultiplied));
    }

    // A pixmap for a screen of scale 2 gives an image of its pixels; the way back knows nothing of
    // the scale.
    void pixmapWithDevicePixelRatio() {
        QPixmap pixmap = QPixmap::fromImage(testPattern(QImage::Format_ARGB32_Premultiplied));
        pixmap.setDevicePixelRatio(2);
        CGImageRef image = QPixmapToCGImageRef(pixmap);
        QVERIFY(image);
        QCOMPARE(CGImageGetWidth(image), std::size_t(3));
        QCOMPARE(CGImageGetHeight(image), std::size_t(2));
        QVERIFY(CGImageGetBytesPerRow(image) >= 3 * 4);
        const QImage back = CGImageToQImage(image);
        CGImageRelease(image);
        QCOMPARE(back.devicePixelRatio(), 1.0);
        QImage expected = pixmap.toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
        expected.setDevicePixelRatio(1);
        QCOMPARE(back, expected);
    }

    void nullImages() {
        QCOMPARE(QPixmapToCGImageRef(QPixmap()), static_cast<CGImageRef>(nullptr));
        QVERIFY(CGImageToQImage(nullptr).isNull());
        // A layout that has no Core Graphics counterpart gives no image.
        QCOMPARE(CGBitmapContextCreate(nullptr, 1, 1, 8, 4, nullptr, 0x2002),
                 static_cast<CGContextRef>(nullptr));
    }

    void unconstrainedWindowKeepsItsFrame() {
        const Class cls = newWindowClass();
        NSWindow* unconstrained = NSWindow::alloc(cls);
        NSWindow* other = NSWindow::alloc(cls);
        NSWindow* plain = NSWindow::alloc();
        unconstrainNSWindowClass(unconstrained);
        const CGRect moved = CGRectMake(100, 780, 400, 300); // its top edge on the screen's top
        QCOMPARE(CGRectToQRectF(unconstrained->constrainFrameRect(frameAboveScreen(), screen)),
                 CGRectToQRectF(frameAboveScreen()));
        QCOMPARE(CGRectToQRectF(other->constrainFrameRect(frameAboveScreen(), screen)),
                 CGRectToQRectF(moved));
        QCOMPARE(CGRectToQRectF(plain->constrainFrameRect(frameAboveScreen(), screen)),
                 CGRectToQRectF(moved));
        unconstrained->release();
        other->release();
        plain->release();
    }

    // A second window of the class must not exchange the methods back.
    void unconstrainingTwiceReplacesOnce() {
        const Class cls = newWindowClass();
        NSWindow* first = NSWindow::alloc(cls);
        NSWindow* second = NSWindow::alloc(cls);
        NSWindow* third = NSWindow::alloc(cls);
        unconstrainNSWindowClass(first);
        unconstrainNSWindowClass(second);
        unconstrainNSWindowClass(first);
        for (NSWindow* window : {first, second})
            QCOMPARE(CGRectToQRectF(window->constrainFrameRect(frameAboveScreen(), screen)),
                     CGRectToQRectF(frameAboveScreen()));
        QCOMPARE(third->constrainFrameRect(frameAboveScreen(), screen).origin.y, 780.0);
        // The class's dealloc is replaced once as well: each window ends exactly once (ASan).
        for (NSWindow* window : {first, second, third})
            window->release();
    }

    void endedWindowLeavesTheSet() {
        NSWindow* window = NSWindow::alloc(newWindowClass());
        unconstrainNSWindowClass(window);
        QVERIFY(constrainedObjects && constrainedObjects->contains(window));
        const id address = window;
        window->release();
        QVERIFY(!constrainedObjects->contains(address));
    }

    void onlyWindowsAreUnconstrained() {
        unconstrainNSWindowClass(nullptr);
        QVERIFY(constrainedObjects);
        const qsizetype before = constrainedObjects->size();
        objc_object notAWindow{objc_allocateClassPair(nullptr, "NotAWindow", 0)};
        const QStringList log = logOf([&] { unconstrainNSWindowClass(&notAWindow); });
        QCOMPARE(log, QStringList(
                          "Error: cannot unconstrain class that is not derived from NSWindow: NotAWindow"));
        QCOMPARE(constrainedObjects->size(), before);
    }

    void missingMethodsAreLogged() {
        const Class bare = objc_allocateClassPair(nullptr, "Bare", 0);
        QCOMPARE(logOf([&] { ZRUnconstrain_ensureConstrainFrameRectSwizzled(bare); }),
                 QStringList("Error: cannot get instance method for constrainFrameRect"));
        QCOMPARE(logOf([&] { ZRUnconstrain_ensureDeallocSwizzled(bare); }),
                 QStringList("Error: cannot get instance method for dealloc"));
        // A look-alike with the methods but not the category's replacements.
        const Class lookAlike = objc_allocateClassPair(nullptr, "LookAlike", 0);
        const Class window = NSWindow::windowClass();
        for (const char* name : {"constrainFrameRect:toScreen:", "dealloc"}) {
            const Method method = class_getInstanceMethod(window, sel_registerName(name));
            class_addMethod(lookAlike, sel_registerName(name), method_getImplementation(method),
                            method_getTypeEncoding(method));
        }
        QCOMPARE(
            logOf([&] { ZRUnconstrain_ensureConstrainFrameRectSwizzled(lookAlike); }),
            QStringList("Error: cannot get instance method for ZRUnconstrain_replace_constrainFrameRect"));
        QCOMPARE(logOf([&] { ZRUnconstrain_ensureDeallocSwizzled(lookAlike); }),
                 QStringList("Error: cannot get instance method for ZRUnconstrain_replace_dealloc"));
    }

    void swizzling() {
        const Class cls = objc_allocateClassPair(nullptr, "Swizzled", 0);
        const SEL describe = sel_registerName("describe");
        QCOMPARE(logOf([&] { QVERIFY(!swizzleMethod(cls, describe, nullptr, nullptr)); }),
                 QStringList("Error: Unable to swizzle target method in Swizzled class because the class "
                             "cannot be found"));
        const auto original = [](id, SEL) { return QStringLiteral("original"); };
        using Describe = QString (*)(id, SEL);
        QVERIFY(class_addMethod(cls, describe, reinterpret_cast<IMP>(static_cast<Describe>(original)),
                                "@16@0:8"));
        IMP previous = nullptr;
        QVERIFY(swizzleMethod(cls, describe, reinterpret_cast<IMP>(&replacedImplementation), &previous));
        objc_object object{cls};
        QCOMPARE(reinterpret_cast<Describe>(class_getMethodImplementation(cls, describe))(&object, describe),
                 QString("replaced"));
        QCOMPARE(reinterpret_cast<Describe>(previous)(&object, describe), QString("original"));
        QVERIFY(swizzleMethod(cls, describe, previous, nullptr));
        QCOMPARE(reinterpret_cast<Describe>(class_getMethodImplementation(cls, describe))(&object, describe),
                 QString("original"));
    }
};

UIET_GUI_TEST_MAIN(tst_OsxMiscServices)
#include "tst_osxMiscServices.moc"
