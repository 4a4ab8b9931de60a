#include "textRendering.h"

#include "generalUtilities.h"

#include <QBrush>
#include <QPen>

#include <cmath>

namespace {

const QString blank = QStringLiteral(" ");
const QString ellipsis = QStringLiteral("...");

// Whether a font one size smaller exists, and if so that font. A font sized in pixels loses one
// pixel, one sized in points one point. Size 1 is the smallest: Qt takes no size below it, and
// the shrinking would otherwise never end for a rectangle lower than any line.
bool smallerFont(const QFont& font, QFont& smaller) {
    if (font.pointSize() > 0) {
        if (font.pointSize() - 1 < 1)
            return false;
        smaller = fontWithNewPointSize(font, font.pointSize() - 1);
        return true;
    }
    if (font.pixelSize() - 1 < 1)
        return false;
    smaller = font;
    smaller.setPixelSize(font.pixelSize() - 1);
    return true;
}

void appendItem(RenderableText& result, const QString& text, const QPointF& point, const QRectF& bounds) {
    result.items.append({text, point});
    result.boundingRect |= bounds.translated(point);
}

// Every line of two words or more, the last one too, is spread over the rectangle's width: the
// space left by the words is shared equally among the gaps between them.
void appendJustifiedLine(RenderableText& result, const QFontMetricsF& metrics, const QString& line,
                         const QRectF& lineBounds, const QPointF& start, double width) {
    const QList<QString> words = line.split(blank);
    if (words.size() < 2) {
        appendItem(result, line, start, lineBounds);
        return;
    }
    QList<QRectF> wordBounds;
    double wordsWidth = 0;
    for (const QString& word : words) {
        wordBounds.append(metrics.boundingRect(word));
        wordsWidth += wordBounds.last().width();
    }
    const double gap = (width - wordsWidth) / (words.size() - 1);
    QPointF point = start;
    for (qsizetype i = 0; i < words.size(); ++i) {
        appendItem(result, words[i], point, wordBounds[i]);
        point.rx() += wordBounds[i].width() + gap;
    }
}

} // namespace

void RenderableText::translate(const QPointF& offset) {
    for (TextAndPoint& item : items)
        item.point += offset;
    boundingRect.translate(offset);
}

void RenderableText::translate(double dx, double dy) {
    translate(QPointF(dx, dy));
}

int wordsFromBeginningThatFit(const QList<QString>& words, const QFontMetricsF& metrics, double width) {
    if (words.size() < 2)
        return 0;
    for (qsizetype n = 1; n < words.size(); ++n) {
        if (metrics.horizontalAdvance(words.mid(0, n).join(blank)) > width)
            return int(n - 1);
    }
    return int(words.size() - 1);
}

int charsFromBeginningThatFit(const QString& text, const QFontMetricsF& metrics, double width) {
    if (text.size() < 2)
        return 1;
    for (qsizetype n = 1; n < text.size(); ++n) {
        if (metrics.horizontalAdvance(text.left(n)) > width)
            return int(qMax<qsizetype>(n - 1, 1));
    }
    return int(text.size() - 1);
}

void breakIntoLinesThatFit(QList<QString>& lines, const QString& text, const QFontMetricsF& metrics,
                           double width) {
    lines.clear();
    if (!(width > 0))
        return;
    for (QString paragraph : text.split(QLatin1Char('\n'))) {
        while (metrics.horizontalAdvance(paragraph) > width) {
            const QList<QString> words = paragraph.split(blank);
            const int wordCount = wordsFromBeginningThatFit(words, metrics, width);
            if (wordCount == 0) {
                const int charCount = charsFromBeginningThatFit(paragraph, metrics, width);
                lines.append(paragraph.left(charCount));
                paragraph = paragraph.mid(charCount);
            } else {
                lines.append(words.mid(0, wordCount).join(blank));
                paragraph = words.mid(wordCount).join(blank);
            }
        }
        lines.append(paragraph);
    }
}

void trimLinesToFitHeight(QList<QString>& lines, const QFontMetricsF& metrics, double height, double width) {
    const double maxLines = std::trunc(height / metrics.height());
    while (lines.size() > maxLines && lines.size() > 1)
        lines.removeLast();
    if (lines.isEmpty() || lines.last().isEmpty())
        return;
    QString& last = lines.last();
    QString candidate;
    for (qsizetype n = last.size(); n >= 1; --n) {
        candidate = last.left(n) + ellipsis;
        if (metrics.horizontalAdvance(candidate) < width)
            break;
    }
    last = candidate;
}

void formatAndElideTextToFit(RenderableText& result, QRectF rect, const QFont& font, Qt::Alignment alignment,
                             const QString& text, bool shrinkFontToFit) {
    result.font = font;
    if (shrinkFontToFit) {
        QFont smaller;
        while (QFontMetricsF(result.font).height() > rect.height() && smallerFont(result.font, smaller))
            result.font = smaller;
    }
    const QFontMetricsF metrics(result.font);
    QList<QString> lines;
    breakIntoLinesThatFit(lines, text, metrics, rect.width());
    if (lines.isEmpty())
        return;

    const double ascent = metrics.ascent();
    const double descent = metrics.descent();
    const double height = metrics.height();
    if (lines.size() * height > rect.height()) {
        trimLinesToFitHeight(lines, metrics, rect.height(), rect.width());
        if (lines.isEmpty())
            return;
    }

    const qsizetype n = lines.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QString& line = lines[i];
        const QRectF bounds = metrics.boundingRect(line);
        // Left wins over right, and right over justification, which starts at the left.
        double x = rect.x();
        if (!(alignment & Qt::AlignLeft)) {
            if (alignment & Qt::AlignRight)
                x = rect.x() + rect.width() - bounds.width();
            else if (!(alignment & Qt::AlignJustify))
                x = rect.x() + (rect.width() - bounds.width()) * 0.5;
        }

        double y;
        if (alignment & Qt::AlignTop)
            y = rect.y() + ascent + i * height;
        else if (alignment & Qt::AlignBottom)
            y = rect.y() + rect.height() - descent - (n - 1 - i) * height;
        else
            y = rect.y() + ascent + (rect.height() - n * height) * 0.5 + i * height;

        if (alignment & Qt::AlignJustify)
            appendJustifiedLine(result, metrics, line, bounds, QPointF(x, y), rect.width());
        else
            appendItem(result, line, QPointF(x, y), bounds);
    }
}

void drawRenderableText(QPainter& painter, const RenderableText& text, QColor color) {
    painter.setPen(color);
    painter.setFont(text.font);
    for (const TextAndPoint& item : text.items)
        painter.drawText(item.point, item.text);
}

void drawElidedText(QPainter& painter, QRectF rect, QFont font, QColor color, Qt::Alignment alignment,
                    const QString& text, bool shrinkFontToFit) {
    RenderableText layout;
    formatAndElideTextToFit(layout, rect, font, alignment, text, shrinkFontToFit);
    drawRenderableText(painter, layout, color);
}

void drawOutlinedPath(QPainter& painter, const QPainterPath& path, QColor fill, QColor outline,
                      double outlineWidth) {
    const QPen keptPen = painter.pen();
    const QBrush keptBrush = painter.brush();

    QPen outlinePen(outline);
    outlinePen.setWidth(int(std::trunc(outlineWidth * 2)));
    outlinePen.setCapStyle(Qt::RoundCap);
    painter.setPen(outlinePen);
    painter.setBrush(QBrush(outline, Qt::SolidPattern));
    painter.drawPath(path);

    painter.setPen(QPen(QBrush(fill), 0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    painter.setBrush(QBrush(fill, Qt::SolidPattern));
    painter.drawPath(path);

    painter.setPen(keptPen);
    painter.setBrush(keptBrush);
}

void addFormattedTextToPath(QPainterPath& path, QRectF rect, QFont font, Qt::Alignment alignment,
                            const QString& text, bool shrinkFontToFit) {
    RenderableText layout;
    formatAndElideTextToFit(layout, rect, font, alignment, text, shrinkFontToFit);
    for (const TextAndPoint& item : layout.items)
        path.addText(item.point, layout.font, item.text);
}

void drawOutlineText(QPainter& painter, QRectF rect, const QFont& font, QColor fill, QColor outline,
                     double outlineWidth, Qt::Alignment alignment, const QString& text,
                     bool shrinkFontToFit) {
    QPainterPath path;
    addFormattedTextToPath(path, rect, font, alignment, text, shrinkFontToFit);
    drawOutlinedPath(painter, path, fill, outline, outlineWidth);
}
