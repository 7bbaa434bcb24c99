#include "recoveryd/scan/filetypes.h"

#include <QHash>
#include <QStringList>

namespace services::recoveryd {

namespace {

constexpr int kLongestSuffix = 10;

QHash<QString, FileCategory> makeTable()
{
    const struct
    {
        FileCategory category;
        const char *types;
    } rows[] = {
        {FileCategory::Document,
         "pdf doc docx docm dot dotx xls xlsx xlsm xlt xltx ppt pptx pptm pps ppsx pot potx wps "
         "wpt "
         "et ett dps dpt odt ods odp odg ott fodt rtf txt csv tsv md ofd epub mobi azw3 eml msg "
         "mbox "
         "mht vcf ics pages numbers key tex vsd vsdx xmind hwp dwg dxf chm djvu srt ass vtt ole2"},
        {FileCategory::Media,
         "png jpg jpeg jpe jfif gif bmp webp tif tiff heic heif avif jp2 jxl psd psb svg ico cur "
         "raw cr2 cr3 nef arw dng orf rw2 raf pef srw "
         "mp4 mkv avi mov wmv flv webm mpeg mpg m4v 3gp ts m2ts mts vob rm rmvb asf ogv "
         "mp3 wav flac ogg oga opus aac m4a amr silk wma ape mid midi aif aiff spx"},
        {FileCategory::Code,
         "c h cc cpp cxx hpp hh py js ts jsx tsx java kt go rs rb php pl sh bash zsh bat ps1 sql "
         "css "
         "scss less html htm xml json yaml yml toml ini conf cfg cmake mk m swift scala lua r vue "
         "qml pro log ipynb diff patch gradle properties asm s f90 dart cs vb"},
    };
    QHash<QString, FileCategory> table;
    for (const auto &row : rows) {
        const QStringList types = QString::fromLatin1(row.types).split(QLatin1Char(' '));
        // "ts" is a video as well as source code: the first row wins.
        for (const QString &type : types)
            if (!table.contains(type))
                table.insert(type, row.category);
    }
    return table;
}

} // namespace

QString suffixOf(const QByteArray &name)
{
    const int dot = name.lastIndexOf('.');
    const QByteArray suffix = name.mid(dot + 1);
    if (dot <= 0 || suffix.isEmpty() || suffix.size() > kLongestSuffix)
        return QString();
    for (const char c : suffix)
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')))
            return QString();
    return QString::fromLatin1(suffix).toLower();
}

FileCategory categoryOf(const QString &type)
{
    static const QHash<QString, FileCategory> table = makeTable();
    return table.value(type.toLower(), FileCategory::Other);
}

} // namespace services::recoveryd
