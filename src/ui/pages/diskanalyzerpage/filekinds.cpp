#include "ui/pages/diskanalyzerpage/filekinds.h"

#include "ui/common/iconwidget.h"
#include "ui/common/theme.h"

#include <QHash>
#include <QStringList>

using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace diskanalyzer {

namespace {

constexpr int kIconSize = 16;

struct KindRow
{
    FileKind kind;
    ushort glyph; ///< Solid glyph of Font Awesome.
    QColor ThemeColors::*color;
    const char *extensions;
};

const KindRow kKinds[] = {
    {FileKind::Other, 0xF15B, &ThemeColors::textMuted, ""},
    {FileKind::Office, 0xF1C2, &ThemeColors::infoText,
     "doc docx xls xlsx ppt pptx pdf odt ods odp wps et dps rtf"},
    {FileKind::Archive, 0xF1C6, &ThemeColors::warningText,
     "zip rar 7z tar gz bz2 xz zst tgz iso deb rpm"},
    {FileKind::Code, 0xF1C9, &ThemeColors::accentHover,
     "c cc cpp h hpp java py js ts go rs sh php html css vue"},
    {FileKind::Audio, 0xF1C7, &ThemeColors::highlightText, "mp3 wav flac aac ogg m4a wma"},
    {FileKind::Video, 0xF1C8, &ThemeColors::dangerText, "mp4 mkv avi mov wmv flv webm mpg mpeg"},
    {FileKind::Image, 0xF1C5, &ThemeColors::successText,
     "jpg jpeg png gif bmp svg webp tif tiff heic"},
    {FileKind::Text, 0xF15C, &ThemeColors::textPrimary,
     "txt md log csv ini conf json xml yaml yml"},
    {FileKind::Database, 0xF1C0, &ThemeColors::accentPressed,
     "db sqlite sqlite3 mdb accdb sql dbf"},
};

const KindRow &rowOf(const QString &extension)
{
    static const QHash<QString, const KindRow *> kRows = [] {
        QHash<QString, const KindRow *> rows;
        for (const KindRow &row : kKinds) {
            const QStringList words = QString::fromLatin1(row.extensions).split(QLatin1Char(' '));
            for (const QString &word : words)
                rows.insert(word, &row);
        }
        return rows;
    }();
    return *kRows.value(extension.toLower(), &kKinds[0]);
}

} // namespace

FileKind fileKindForExtension(const QString &extension)
{
    return rowOf(extension).kind;
}

QString iconGlyphForExtension(const QString &extension)
{
    return QChar(rowOf(extension).glyph);
}

QColor colorForExtension(const QString &extension, const ThemeColors &theme)
{
    return theme.*rowOf(extension).color;
}

QIcon iconForExtension(const QString &extension)
{
    static QHash<int, QIcon> icons;
    const KindRow &row = rowOf(extension);
    QIcon &icon = icons[static_cast<int>(row.kind)];
    if (icon.isNull())
        icon = QIcon(IconWidget::makeFontAwesomePixmap(
            QChar(row.glyph), colorForExtension(extension, ThemeColors::current()), kIconSize));
    return icon;
}

} // namespace diskanalyzer
