#include "QtBugWorkarounds.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QStringList>

namespace QtBugWorkarounds {

QFont fixedWidthSystemFont() {
    const QFont systemFixedFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // QFont::fixedPitch() only echoes what was requested; the font info tells what the font
    // resolves to.
    if (QFontInfo(systemFixedFont).fixedPitch()) {
        return systemFixedFont;
    }
    const QStringList preferredFamilies = {QStringLiteral("Menlo"), QStringLiteral("Monaco"),
                                           QStringLiteral("Courier New")};
    for (const QString& family : preferredFamilies) {
        const QFont font = QFontDatabase::font(family, QString(), 11);
        if (font.exactMatch()) {
            return font;
        }
    }
    // The database answers a missing family with the proportional default font; a font that
    // asks for the family lets font matching substitute the nearest face instead.
    return QFont(preferredFamilies.constLast(), 11);
}

} // namespace QtBugWorkarounds
