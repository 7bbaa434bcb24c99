#include "ui/common/filetypeicon.h"

#include "ui/common/iconwidget.h"
#include "ui/common/theme.h"
#include "ui/common/utils/filetypecategoryutils.h"

namespace ui {
namespace common {

namespace {

constexpr int kIconSize = 14;

// Solid glyphs of Font Awesome.
constexpr ushort kDocumentGlyph = 0xF15C;
constexpr ushort kPhotoGlyph = 0xF03E;
constexpr ushort kVideoGlyph = 0xF008;
constexpr ushort kArchiveGlyph = 0xF1C6;

QString glyphOf(const QString &type)
{
    using utils::FileTypeCategoryUtils;
    if (FileTypeCategoryUtils::isDocumentType(type))
        return QChar(kDocumentGlyph);
    if (FileTypeCategoryUtils::isPhotoType(type))
        return QChar(kPhotoGlyph);
    if (FileTypeCategoryUtils::isVideoType(type))
        return QChar(kVideoGlyph);
    if (FileTypeCategoryUtils::isArchiveType(type))
        return QChar(kArchiveGlyph);
    return IconWidget::glyphForType(IconWidget::File);
}

} // namespace

QPixmap iconForFileType(const QString &type)
{
    return IconWidget::makeFontAwesomePixmap(glyphOf(type), ThemeColors::current().infoText,
                                             kIconSize);
}

} // namespace common
} // namespace ui
