#include "testSupport.h"
#include "textRendering.h"

#include <QFile>
#include <QFontDatabase>
#include <QImage>

// All measuring is done with DejaVu Sans at fixed sizes, so that widths are the same on every
// machine. Expected lines and positions are worked out here from the font's metrics by the
// layout rules: baselines an ascent below the top, one line height apart, widths from the
// bounding rectangles of the lines.

namespace {

const char* const fontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

QImage blankImage() {
    QImage image(240, 120, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

} // namespace

class tst_textRendering : public QObject {
    Q_OBJECT

    QString family;
    QFont font; // 20 pixels
    QFontMetricsF m{QFont()};

    QFont sized(int pixels = 0, int points = 0) const {
        QFont f(family);
        if (pixels > 0)
            f.setPixelSize(pixels);
        else
            f.setPointSize(points);
        return f;
    }
    double adv(const QString& s) const { return m.horizontalAdvance(s); }
    double bw(const QString& s) const { return m.boundingRect(s).width(); }

private slots:
    void initTestCase() {
        if (!QFile::exists(fontFile))
            QSKIP("DejaVu Sans (fonts-dejavu-core) is not installed");
        const int id = QFontDatabase::addApplicationFont(fontFile);
        QVERIFY(id >= 0);
        family = QFontDatabase::applicationFontFamilies(id).value(0);
        font = sized(20);
        m = QFontMetricsF(font);
    }

    void fitCounts_data() {
        QTest::addColumn<int>("actual");
        QTest::addColumn<int>("expected");
        const QList<QString> words{"alpha", "beta", "gamma"};
        QTest::newRow("one word") << wordsFromBeginningThatFit({"alpha"}, m, 1000) << 0;
        QTest::newRow("words: exactly as wide")
            << wordsFromBeginningThatFit(words, m, adv("alpha beta")) << 2;
        QTest::newRow("words: a little less")
            << wordsFromBeginningThatFit(words, m, adv("alpha beta") - 0.01) << 1;
        QTest::newRow("words: first too wide")
            << wordsFromBeginningThatFit(words, m, adv("alpha") - 0.01) << 0;
        QTest::newRow("words: never all") << wordsFromBeginningThatFit(words, m, 1000) << 2;
        QTest::newRow("chars: empty") << charsFromBeginningThatFit("", m, 0) << 1;
        QTest::newRow("chars: exactly as wide") << charsFromBeginningThatFit("mmmmm", m, adv("mmm")) << 3;
        QTest::newRow("chars: at least one") << charsFromBeginningThatFit("mmmmm", m, 1) << 1;
        QTest::newRow("chars: never all") << charsFromBeginningThatFit("mmm", m, 1000) << 2;
    }
    void fitCounts() {
        QFETCH(int, actual);
        QFETCH(int, expected);
        QCOMPARE(actual, expected);
    }

    void breakIntoLines_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("width");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("fits") << "alpha beta" << adv("alpha beta") << QStringList{"alpha beta"};
        QTest::newRow("by words") << "alpha beta gamma" << adv("alpha beta") + 1
                                  << QStringList{"alpha beta", "gamma"};
        QTest::newRow("by characters") << "mmmmmmm" << adv("mmm") << QStringList{"mmm", "mmm", "m"};
        QTest::newRow("long word, then words") << "mmmmm ab" << adv("mmm") << QStringList{"mmm", "mm", "ab"};
        // The second blank is an empty word, so it stays at the front of the next line.
        QTest::newRow("double blank") << "alpha  beta" << adv("alpha") << QStringList{"alpha", " beta"};
        QTest::newRow("line feeds") << "ab\n\ncd\n" << 1000.0 << QStringList{"ab", "", "cd", ""};
        QTest::newRow("empty text") << "" << 1000.0 << QStringList{""};
        QTest::newRow("zero width") << "ab" << 0.0 << QStringList{};
        QTest::newRow("negative width") << "ab" << -5.0 << QStringList{};
    }
    void breakIntoLines() {
        QFETCH(QString, text);
        QFETCH(double, width);
        QFETCH(QStringList, expected);
        QList<QString> lines{"left over"};
        breakIntoLinesThatFit(lines, text, m, width);
        QCOMPARE(lines, expected);
    }

    void trimLines_data() {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<double>("height");
        QTest::addColumn<double>("width");
        QTest::addColumn<QStringList>("expected");
        const double h = m.height();
        QTest::newRow("drop lines, whole last line still elided")
            << QStringList{"aa", "bb", "cc"} << 2.5 * h << 1000.0 << QStringList{"aa", "bb..."};
        QTest::newRow("not one line fits")
            << QStringList{"aa", "bb"} << 0.5 * h << 1000.0 << QStringList{"aa..."};
        QTest::newRow("cut to just below the width")
            << QStringList{"abcdef"} << h << adv("abc...") + 0.01 << QStringList{"abc..."};
        QTest::newRow("as wide is too wide")
            << QStringList{"abcdef"} << h << adv("abc...") << QStringList{"ab..."};
        QTest::newRow("one character at least") << QStringList{"abcdef"} << h << 1.0 << QStringList{"a..."};
        QTest::newRow("empty last line stays empty")
            << QStringList{"aa", "", "cc"} << 2 * h << 1000.0 << QStringList{"aa", ""};
        QTest::newRow("no lines") << QStringList{} << h << 1000.0 << QStringList{};
    }
    void trimLines() {
        QFETCH(QStringList, lines);
        QFETCH(double, height);
        QFETCH(double, width);
        QFETCH(QStringList, expected);
        trimLinesToFitHeight(lines, m, height, width);
        QCOMPARE(lines, expected);
    }

    void layout_data() {
        QTest::addColumn<QRectF>("rect");
        QTest::addColumn<int>("alignment");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QList<QPointF>>("points");
        const double a = m.ascent(), d = m.descent(), h = m.height();
        const double w = adv("alpha beta") + 1;
        const QRectF r(10, 20, w, 5 * h);
        const QString text = "alpha beta gamma";
        const QStringList lines{"alpha beta", "gamma"};
        const double top = 20 + a, bottom = 20 + 5 * h - d, middle = 20 + a + 1.5 * h;
        const QList<QPointF> leftTop{{10, top}, {10, top + h}};
        const QList<QPointF> centred{{10 + (w - bw(lines[0])) / 2, middle},
                                     {10 + (w - bw(lines[1])) / 2, middle + h}};

        QTest::newRow("left top") << r << int(Qt::AlignLeft | Qt::AlignTop) << text << lines << leftTop;
        QTest::newRow("right bottom")
            << r << int(Qt::AlignRight | Qt::AlignBottom) << text << lines
            << QList<QPointF>{{10 + w - bw(lines[0]), bottom - h}, {10 + w - bw(lines[1]), bottom}};
        QTest::newRow("centre flags") << r << int(Qt::AlignCenter) << text << lines << centred;
        QTest::newRow("no flags: centred") << r << 0 << text << lines << centred;
        QTest::newRow("left beats right, top beats bottom")
            << r << int(Qt::AlignLeft | Qt::AlignRight | Qt::AlignTop | Qt::AlignBottom) << text << lines
            << leftTop;

        const QRectF wide(10, 20, 200, 5 * h);
        const double gap1 = 200 - bw("ab") - bw("cd"), gap2 = (200 - bw("ef") - bw("gh") - bw("ij")) / 2;
        QTest::newRow("justify: every line spread, one word at the left")
            << wide << int(Qt::AlignJustify | Qt::AlignTop) << "ab cd\nef gh ij\nkl"
            << QStringList{"ab", "cd", "ef", "gh", "ij", "kl"}
            << QList<QPointF>{{10, top},
                              {10 + bw("ab") + gap1, top},
                              {10, top + h},
                              {10 + bw("ef") + gap2, top + h},
                              {10 + bw("ef") + bw("gh") + 2 * gap2, top + h},
                              {10, top + 2 * h}};
        QTest::newRow("justify with right: starts at the right")
            << wide << int(Qt::AlignJustify | Qt::AlignTop | Qt::AlignRight) << "kl" << QStringList{"kl"}
            << QList<QPointF>{{210 - bw("kl"), top}};

        QTest::newRow("empty text") << r << int(Qt::AlignLeft | Qt::AlignTop) << "" << QStringList{""}
                                    << QList<QPointF>{{10, top}};
        QTest::newRow("zero width") << QRectF(10, 20, 0, 100) << 0 << "ab" << QStringList{}
                                    << QList<QPointF>{};
        QTest::newRow("hard line feeds")
            << wide << int(Qt::AlignLeft | Qt::AlignTop) << "ab\n\ncd" << QStringList{"ab", "", "cd"}
            << QList<QPointF>{{10, top}, {10, top + h}, {10, top + 2 * h}};
        QTest::newRow("shorter than one line")
            << QRectF(10, 20, adv("alpha beta...") + 0.5, h / 2) << int(Qt::AlignLeft | Qt::AlignTop)
            << "alpha beta" << QStringList{"alpha beta..."} << QList<QPointF>{{10, top}};
        QTest::newRow("too tall: last kept line elided, centred")
            << QRectF(10, 20, 200, 2 * h + 1) << 0 << "ab\ncd\nef" << QStringList{"ab", "cd..."}
            << QList<QPointF>{{10 + (200 - bw("ab")) / 2, top + 0.5},
                              {10 + (200 - bw("cd...")) / 2, top + h + 0.5}};
    }
    void layout() {
        QFETCH(QRectF, rect);
        QFETCH(int, alignment);
        QFETCH(QString, text);
        QFETCH(QStringList, texts);
        QFETCH(QList<QPointF>, points);
        RenderableText result;
        formatAndElideTextToFit(result, rect, font, Qt::Alignment(alignment), text, false);
        QStringList actualTexts;
        QList<QPointF> actualPoints;
        for (const TextAndPoint& item : result.items) {
            actualTexts.append(item.text);
            actualPoints.append(item.point);
        }
        QCOMPARE(actualTexts, texts);
        QCOMPARE(actualPoints, points);
        QRectF bounds;
        for (qsizetype i = 0; i < texts.size(); ++i)
            bounds |= m.boundingRect(texts[i]).translated(points[i]);
        QCOMPARE(result.boundingRect, bounds);
        QCOMPARE(result.font, font);
    }

    void shrinking_data() {
        QTest::addColumn<QFont>("font");
        QTest::addColumn<double>("height");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("shrink");
        QTest::addColumn<QFont>("expectedFont");
        QTest::addColumn<QStringList>("texts");
        auto heightOf = [](const QFont& f) { return QFontMetricsF(f).height(); };
        const QFont pt30 = sized(0, 30), pt24 = sized(0, 24), px40 = sized(40), px25 = sized(25);
        QTest::newRow("points: until one line fits")
            << pt30 << heightOf(pt24) << "ab" << true << pt24 << QStringList{"ab"};
        QTest::newRow("points: just too short")
            << pt30 << heightOf(pt24) - 0.01 << "ab" << true << sized(0, 23) << QStringList{"ab"};
        QTest::newRow("pixels: until one line fits")
            << px40 << heightOf(px25) << "ab" << true << px25 << QStringList{"ab"};
        QTest::newRow("not asked to shrink")
            << px40 << heightOf(px25) << "ab" << false << px40 << QStringList{"ab..."};
        QTest::newRow("one line's height, not the text's")
            << font << heightOf(font) << "ab\ncd" << true << font << QStringList{"ab..."};
        QTest::newRow("zero height: points stop at 1")
            << sized(0, 12) << 0.0 << "ab" << true << sized(0, 1) << QStringList{"ab..."};
        QTest::newRow("negative height: pixels stop at 1")
            << sized(12) << -5.0 << "ab" << true << sized(1) << QStringList{"ab..."};
    }
    void shrinking() {
        QFETCH(QFont, font);
        QFETCH(double, height);
        QFETCH(QString, text);
        QFETCH(bool, shrink);
        QFETCH(QFont, expectedFont);
        QFETCH(QStringList, texts);
        RenderableText result;
        formatAndElideTextToFit(result, QRectF(0, 10, 400, height), font, Qt::AlignLeft | Qt::AlignTop, text,
                                shrink);
        QCOMPARE(result.font, expectedFont);
        QCOMPARE(result.items.size(), texts.size());
        QCOMPARE(result.items[0].text, texts[0]);
        // Placed with the metrics of the font it is drawn with.
        QCOMPARE(result.items[0].point, QPointF(0, 10 + QFontMetricsF(expectedFont).ascent()));
    }

    void appendsAndTranslates() {
        RenderableText result{{{"x", {1, 2}}}, QFont(), QRectF(0, 0, 1, 1)};
        formatAndElideTextToFit(result, QRectF(10, 20, 200, 100), font, Qt::AlignLeft | Qt::AlignTop, "ab",
                                false);
        const QPointF ab(10, 20 + m.ascent());
        QCOMPARE(result.items.size(), 2);
        QCOMPARE(result.items[0].text, QString("x"));
        QCOMPARE(result.items[1].point, ab);
        const QRectF bounds = QRectF(0, 0, 1, 1) | m.boundingRect("ab").translated(ab);
        QCOMPARE(result.boundingRect, bounds);

        result.translate(QPointF(5, -3));
        result.translate(-1, 0.5);
        QCOMPARE(result.items[0].point, QPointF(5, -0.5));
        QCOMPARE(result.items[1].point, ab + QPointF(4, -2.5));
        QCOMPARE(result.boundingRect, bounds.translated(4, -2.5));
    }

    // Each drawing function against a picture drawn here from the layout's own positions.
    void drawing_data() {
        QTest::addColumn<int>("function");
        QTest::addColumn<QRectF>("rect");
        QTest::newRow("drawRenderableText") << 0 << QRectF(5, 5, 100, 100);
        QTest::newRow("drawElidedText") << 1 << QRectF(5, 5, 90, m.height() * 2);
        QTest::newRow("drawOutlineText") << 2 << QRectF(5, 5, 120, 100);
        QTest::newRow("drawElidedText, zero width: nothing") << 1 << QRectF(5, 5, 0, 100);
    }
    void drawing() {
        QFETCH(int, function);
        QFETCH(QRectF, rect);
        const QString text = "alpha beta gamma delta";
        const Qt::Alignment alignment = Qt::AlignJustify | Qt::AlignVCenter;
        RenderableText layout;
        formatAndElideTextToFit(layout, rect, font, alignment, text, true);

        QImage actual = blankImage(), expected = blankImage();
        QPainter painter(&actual), reference(&expected);
        QPainterPath path;
        for (const TextAndPoint& item : layout.items)
            path.addText(item.point, layout.font, item.text);
        // Before any text is painted: once a glyph has been drawn, the font engine may hand out
        // its outline hinted slightly differently.
        QPainterPath formatted;
        addFormattedTextToPath(formatted, rect, font, alignment, text, true);
        QCOMPARE(formatted, path);
        switch (function) {
        case 0:
            drawRenderableText(painter, layout, Qt::darkBlue);
            break;
        case 1:
            drawElidedText(painter, rect, font, Qt::darkBlue, alignment, text, true);
            break;
        case 2:
            drawOutlineText(painter, rect, font, Qt::yellow, Qt::black, 1.5, alignment, text, true);
            drawOutlinedPath(reference, path, Qt::yellow, Qt::black, 1.5);
            break;
        }
        if (function != 2) {
            reference.setPen(QPen(Qt::darkBlue));
            reference.setFont(layout.font);
            for (const TextAndPoint& item : layout.items)
                reference.drawText(item.point, item.text);
        }
        painter.end();
        reference.end();
        QVERIFY(rect.width() <= 0 || actual != blankImage());
        QCOMPARE(actual, expected);
    }

    // The outline grows outward by the outline width under a fill that keeps the path's full
    // size, and the painter's pen and brush are as they were.
    void outlinedPath() {
        QImage image = blankImage();
        QPainter painter(&image);
        const QPen pen(Qt::green, 3);
        const QBrush brush(Qt::cyan, Qt::Dense4Pattern);
        painter.setPen(pen);
        painter.setBrush(brush);
        QPainterPath path;
        path.addRect(40, 40, 40, 40);
        drawOutlinedPath(painter, path, Qt::red, Qt::blue, 3.9); // a pen 7 wide: 3 outside the rect
        QCOMPARE(painter.pen(), pen);
        QCOMPARE(painter.brush(), brush);
        painter.end();
        const QColor red(Qt::red), blue(Qt::blue);
        QCOMPARE(image.pixelColor(60, 60), red);
        QCOMPARE(image.pixelColor(42, 60), red); // under the stroke's inner half
        QCOMPARE(image.pixelColor(38, 60), blue);
        QCOMPARE(image.pixelColor(60, 37), blue);
        QCOMPARE(image.pixelColor(60, 35).alpha(), 0);
    }
};

UIET_GUI_TEST_MAIN(tst_textRendering)
#include "tst_textRendering.moc"
