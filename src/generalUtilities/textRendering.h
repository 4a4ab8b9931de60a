#pragma once

#include <QColor>
#include <QFont>
#include <QFontMetricsF>
#include <QList>
#include <QPainter>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QString>

// Text laid out inside a rectangle, in lines that fit, elided at the end, with every alignment of
// Qt::Alignment including justification. Layout and drawing are separate steps: the layout is a
// RenderableText, measured once and then moved and drawn as often as needed.

// One string and the point of its baseline's left end.
struct TextAndPoint {
    QString text;
    QPointF point;
};

struct RenderableText {
    QList<TextAndPoint> items;
    // The font to draw with: smaller than the one asked for when the layout shrank it.
    QFont font;
    // Of all items as placed.
    QRectF boundingRect;

    void translate(const QPointF& offset);
    void translate(double dx, double dy);
};

// How many of the first words, joined by blanks, fit into width. Never all of them: it is asked
// only about a line already known to be too wide.
int wordsFromBeginningThatFit(const QList<QString>& words, const QFontMetricsF& metrics, double width);
// How many of the first characters fit into width; at least 1 and, from two characters on, never
// all of them, so that each call makes progress even when one character is wider than the space.
int charsFromBeginningThatFit(const QString& text, const QFontMetricsF& metrics, double width);

// Breaks text into lines no wider than width: by words where it can, by characters inside a word
// too wide on its own. Every line feed starts a new line. No lines at all when width is not
// positive.
void breakIntoLinesThatFit(QList<QString>& lines, const QString& text, const QFontMetricsF& metrics,
                           double width);
// Drops the lines that do not fit into height, keeping at least one, and ends the last line in
// "..." so that it is narrower than width. Called only for text too tall for its rectangle, so the
// "..." is added even when the last kept line is whole.
void trimLinesToFitHeight(QList<QString>& lines, const QFontMetricsF& metrics, double height, double width);

// Appends the laid-out lines of text to result, which is not cleared. Alignment without a
// horizontal or a vertical flag centres on that axis. With shrinkFontToFit the font gets one size
// smaller at a time until one line fits the rectangle's height, never below size 1.
void formatAndElideTextToFit(RenderableText& result, QRectF rect, const QFont& font, Qt::Alignment alignment,
                             const QString& text, bool shrinkFontToFit);

void drawRenderableText(QPainter& painter, const RenderableText& text, QColor color);
void drawElidedText(QPainter& painter, QRectF rect, QFont font, QColor color, Qt::Alignment alignment,
                    const QString& text, bool shrinkFontToFit);

// Fills the path over a stroke of outlineWidth on each side, so that the outline grows outward and
// never thins the glyphs. The painter's pen and brush are kept.
void drawOutlinedPath(QPainter& painter, const QPainterPath& path, QColor fill, QColor outline,
                      double outlineWidth);
void addFormattedTextToPath(QPainterPath& path, QRectF rect, QFont font, Qt::Alignment alignment,
                            const QString& text, bool shrinkFontToFit);
void drawOutlineText(QPainter& painter, QRectF rect, const QFont& font, QColor fill, QColor outline,
                     double outlineWidth, Qt::Alignment alignment, const QString& text, bool shrinkFontToFit);
