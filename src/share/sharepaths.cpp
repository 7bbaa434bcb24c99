#include "share/sharepaths.h"

#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace share {

namespace {

constexpr qint64 kKilo = 1024;
constexpr qint64 kMega = kKilo * 1024;
constexpr qint64 kGiga = kMega * 1024;

struct MimeRow
{
    const char *suffix;
    const char *type;
};

constexpr MimeRow kMimeRows[] = {
    {"html", "text/html; charset=utf-8"},
    {"htm", "text/html; charset=utf-8"},
    {"css", "text/css"},
    {"js", "application/javascript"},
    {"json", "application/json"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"svg", "image/svg+xml"},
    {"pdf", "application/pdf"},
    {"zip", "application/zip"},
    {"txt", "text/plain; charset=utf-8"},
    {"log", "text/plain; charset=utf-8"},
    {"md", "text/plain; charset=utf-8"},
    {"xml", "application/xml"},
    {"mp4", "video/mp4"},
    {"mp3", "audio/mpeg"},
};

bool hasNul(const QString &text)
{
    return text.contains(QChar(QChar::Null));
}

QString inUnit(qint64 bytes, qint64 unit, int decimals, const char *name)
{
    const double value = static_cast<double>(bytes) / static_cast<double>(unit);
    return QString::number(value, 'f', decimals) + QLatin1Char(' ') + QLatin1String(name);
}

} // namespace

QString percentDecode(const QString &text)
{
    return QUrl::fromPercentEncoding(text.toUtf8());
}

bool splitRootAndRelativePath(const QString &subPath, QString *rootId, QString *relativePath)
{
    const QString decoded = percentDecode(subPath);
    const int slash = decoded.indexOf(QLatin1Char('/'));
    *rootId = decoded.left(slash);
    *relativePath = slash < 0 ? QString() : decoded.mid(slash + 1);
    return !rootId->isEmpty();
}

bool cleanRelativePath(const QString &relativePath, QString *clean)
{
    const QString decoded = percentDecode(relativePath);
    if (hasNul(decoded))
        return false;
    *clean = QDir::cleanPath(decoded);
    return !clean->startsWith(QLatin1Char('/')) && !clean->contains(QLatin1String(".."));
}

bool isHiddenName(const QString &name)
{
    return name.startsWith(QLatin1Char('.'));
}

bool hasHiddenPart(const QString &cleanPath)
{
    return cleanPath.startsWith(QLatin1Char('.')) || cleanPath.contains(QLatin1String("/."));
}

QString joinedPath(const QString &directory, const QString &name)
{
    // Not QDir::filePath(), which takes ":name" for a resource and returns it as it is.
    return directory.endsWith(QLatin1Char('/')) ? directory + name
                                                : directory + QLatin1Char('/') + name;
}

bool isValidUploadFileName(const QString &name)
{
    return !name.trimmed().isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')) && !hasNul(name);
}

QString mimeTypeForFile(const QString &fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    for (const MimeRow &row : kMimeRows) {
        if (suffix == QLatin1String(row.suffix))
            return QLatin1String(row.type);
    }
    return QStringLiteral("application/octet-stream");
}

QString formatFileSize(qint64 bytes)
{
    if (bytes < kKilo)
        return QString::number(bytes) + QLatin1String(" B");
    if (bytes < kMega)
        return inUnit(bytes, kKilo, 1, "KB");
    if (bytes < kGiga)
        return inUnit(bytes, kMega, 1, "MB");
    return inUnit(bytes, kGiga, 2, "GB");
}

} // namespace share
