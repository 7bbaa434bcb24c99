#include "search/contentextractor.h"

#include "search/extract/documentreader.h"
#include "search/extract/toolrunner.h"

#include <QFileInfo>
#include <QSet>

QString ContentExtractor::readContentSnippet(const QString &path, int maxBytes,
                                             const std::atomic_bool *cancel)
{
    // Before any tool runs: archives are many and large, and none is looked into.
    if (isArchiveExtension(QFileInfo(path).suffix().toLower()))
        return QString();
    return search::DocumentReader(search::ToolRunner::shared(), path, cancel).read(maxBytes);
}

bool ContentExtractor::isArchiveExtension(const QString &suffix)
{
    static const QSet<QString> suffixes{
        QStringLiteral("zip"),  QStringLiteral("tar"), QStringLiteral("gz"),
        QStringLiteral("bz2"),  QStringLiteral("xz"),  QStringLiteral("7z"),
        QStringLiteral("rar"),  QStringLiteral("lz"),  QStringLiteral("lzma"),
        QStringLiteral("lzo"),  QStringLiteral("zst"), QStringLiteral("cab"),
        QStringLiteral("iso"),  QStringLiteral("dmg"), QStringLiteral("img"),
        QStringLiteral("cpio"), QStringLiteral("ar"),  QStringLiteral("deb"),
        QStringLiteral("rpm")};
    return suffixes.contains(suffix);
}

QString ContentExtractor::resolveToolExecutable(const QString &tool)
{
    return search::ToolRunner::shared().resolveToolExecutable(tool);
}
