#include "search/searchcategory.h"

#include <QHash>
#include <QStringList>

namespace search {
namespace {

struct CategoryRow
{
    const char *category;
    const char *suffixes; // separated by blanks
};

// A suffix that stood in two rows would belong to the first.
constexpr CategoryRow categoryRows[] = {
    {"document", "doc docx xls xlsx ppt pptx wps et dps pdf rtf odt ods odp ofd txt md csv"},
    {"image", "jpg jpeg png gif bmp svg webp tiff ico"},
    {"video", "mp4 avi mkv mov wmv flv webm"},
    {"audio", "mp3 wav flac ogg aac wma m4a"},
    {"archive", "zip tar gz bz2 xz 7z rar"},
    {"code", "py js ts jsx tsx cpp c h hpp java go rs rb php sh sql html xml json yaml yml"},
};

QHash<QString, QString> buildCategoryTable()
{
    QHash<QString, QString> table;
    for (const CategoryRow &row : categoryRows) {
        const QString category = QLatin1String(row.category);
        const QStringList suffixes = QString::fromLatin1(row.suffixes).split(QLatin1Char(' '));
        for (const QString &suffix : suffixes) {
            if (!table.contains(suffix))
                table.insert(suffix, category);
        }
    }
    return table;
}

} // namespace

QString categoryForSuffix(const QString &suffix)
{
    static const QHash<QString, QString> table = buildCategoryTable();
    static const QString other = QStringLiteral("other");
    return table.value(suffix, other);
}

} // namespace search
