#include "ui/common/utils/filetypecategoryutils.h"

#include <QHash>

namespace ui {
namespace common {
namespace utils {

namespace {

enum Category { All, Document, Photo, Video, Archive, Other };

struct CategoryRow
{
    Category category;
    QString key;
    QString label;
    const char *words; ///< Type words in upper case, with blanks between.
};

const CategoryRow (&table())[6]
{
    static const CategoryRow kTable[] = {
        {All, QStringLiteral("all"), QStringLiteral("全部类型"), ""},
        {Document, QStringLiteral("document"), QStringLiteral("文档"),
         "PDF DOC XLS PPT RTF XLSX LOG DOCX PPTX WPS ET DPS TXT ODT ODS CSV MD"},
        {Photo, QStringLiteral("photo"), QStringLiteral("照片"),
         "PNG JPG JPEG BMP GIF WEBP TIFF TIF HEIC RAW CR2 NEF ARW DNG SVG ICO PSD"},
        {Video, QStringLiteral("video"), QStringLiteral("视频"),
         "MP4 MKV AVI MOV WMV FLV WEBM MPEG MPG M4V 3GP TS M2TS VOB RMVB"},
        {Archive, QStringLiteral("archive"), QStringLiteral("压缩包"),
         "GZIP ZIP RAR 7Z TAR GZ TGZ BZ2 XZ LZ4 LZMA CAB ISO DEB RPM"},
        {Other, QStringLiteral("other"), QStringLiteral("其他"), ""},
    };
    return kTable;
}

Category categoryOf(const QString &type)
{
    static const QHash<QString, Category> kCategories = [] {
        QHash<QString, Category> categories;
        for (const CategoryRow &row : table()) {
            for (const QString &word : QString::fromLatin1(row.words).split(QLatin1Char(' ')))
                categories.insert(word, row.category);
        }
        categories.remove(QString());
        return categories;
    }();
    return kCategories.value(type.toUpper(), Other);
}

} // namespace

QStringList FileTypeCategoryUtils::categoryFilterLabels()
{
    QStringList labels;
    for (const CategoryRow &row : table())
        labels.append(row.label);
    return labels;
}

QString FileTypeCategoryUtils::categoryKeyFromLabel(const QString &label)
{
    for (const CategoryRow &row : table()) {
        if (row.label == label)
            return row.key;
    }
    return table()[All].key;
}

QString FileTypeCategoryUtils::categoryLabelFromKey(const QString &key)
{
    for (const CategoryRow &row : table()) {
        if (row.key == key)
            return row.label;
    }
    return table()[All].label;
}

QString FileTypeCategoryUtils::categoryOfType(const QString &type)
{
    return table()[categoryOf(type)].key;
}

bool FileTypeCategoryUtils::matchesCategory(const QString &type, const QString &key)
{
    for (const CategoryRow &row : table()) {
        if (row.category != All && row.key == key)
            return categoryOf(type) == row.category;
    }
    return true;
}

bool FileTypeCategoryUtils::isDocumentType(const QString &type)
{
    return categoryOf(type) == Document;
}

bool FileTypeCategoryUtils::isPhotoType(const QString &type)
{
    return categoryOf(type) == Photo;
}

bool FileTypeCategoryUtils::isVideoType(const QString &type)
{
    return categoryOf(type) == Video;
}

bool FileTypeCategoryUtils::isArchiveType(const QString &type)
{
    return categoryOf(type) == Archive;
}

} // namespace utils
} // namespace common
} // namespace ui
