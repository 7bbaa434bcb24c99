#include "support/diskimages.h"

#include "support/samplecontainers.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QProcess>
#include <QStandardPaths>
#include <QtEndian>

#include <random>

namespace diskimages {

namespace {

QByteArray be32(quint32 value)
{
    QByteArray bytes(4, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray pngChunk(const QByteArray &type, const QByteArray &data)
{
    return be32(quint32(data.size())) + type + data + be32(samples::crc32(type + data));
}

} // namespace

bool runTool(const QString &tool, const QStringList &arguments, QString *error)
{
    const QString path = QStandardPaths::findExecutable(
        tool, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin")});
    QProcess process;
    process.start(path, arguments);
    if (process.waitForFinished(60000) && process.exitCode() == 0)
        return true;
    *error = tool + QLatin1String(": ") + QString::fromLocal8Bit(process.readAllStandardError());
    return false;
}

bool makeExt(const QString &image, const QString &sourceDir, int sizeKiB,
             const QStringList &options, QString *error)
{
    QStringList arguments = {QStringLiteral("-q"), QStringLiteral("-F")};
    arguments += options;
    if (!sourceDir.isEmpty())
        arguments += {QStringLiteral("-d"), sourceDir};
    arguments += {image, QStringLiteral("%1k").arg(sizeKiB)};
    return runTool(QStringLiteral("mke2fs"), arguments, error);
}

bool debugfs(const QString &image, const QString &command, QString *error)
{
    return runTool(QStringLiteral("debugfs"),
                   {QStringLiteral("-w"), QStringLiteral("-R"), command, image}, error);
}

bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

bool patch(const QString &path, qint64 offset, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.seek(offset) &&
           file.write(bytes) == bytes.size();
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray noise(int length, quint32 seed)
{
    // Below 0x80 and without '%' and 'P': no marker of a JPEG, no mark of a PDF or an archive.
    std::mt19937 random(seed);
    QByteArray bytes(length, '\0');
    for (char &byte : bytes) {
        byte = char(random() & 0x7F);
        if (byte == '%' || byte == 'P')
            byte = '.';
    }
    return bytes;
}

QByteArray png(int payload, quint32 seed)
{
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + pngChunk("IHDR", noise(13, seed)) +
           pngChunk("IDAT", noise(payload, seed)) + pngChunk("IEND", QByteArray());
}

QByteArray jpeg(int payload, quint32 seed)
{
    // Several scans, as in progressive pictures; a thumbnail's end mark stands inside the first
    // segment.
    int side = 16;
    while (side * side < payload)
        side += 16;
    const QByteArray pixels = noise(side * side, seed);
    const QImage image(reinterpret_cast<const uchar *>(pixels.constData()), side, side, side,
                       QImage::Format_Grayscale8);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    QImageWriter writer(&buffer, "jpg");
    writer.setQuality(95);
    writer.setProgressiveScanWrite(true);
    if (!writer.write(image))
        return QByteArray();
    return bytes.insert(2, QByteArray("\xFF\xE1\x00\x06\xFF\xD9..", 8));
}

QByteArray gif(int payload, quint32 seed)
{
    QByteArray blocks;
    for (int done = 0; done < payload; done += 250)
        blocks += char(250) + noise(250, seed + quint32(done));
    return QByteArray("GIF89a\x10\x00\x10\x00\x80\x00\x00", 13) + noise(6, seed) +
           QByteArray("\x21\xF9\x04\x00\x00\x00\x00\x00", 8) +
           QByteArray("\x2C\x00\x00\x00\x00\x10\x00\x10\x00\x00\x02", 11) + blocks +
           QByteArray("\x00\x3B", 2);
}

QByteArray pdf(int payload, quint32 seed)
{
    return "%PDF-1.7\n1 0 obj\nstream\n" + noise(payload, seed) +
           "\nendstream endobj\nxref\n0 1\ntrailer\nstartxref\n9\n%%EOF\n";
}

QByteArray updatedPdf(int payload, quint32 seed)
{
    return pdf(payload, seed) + "12 0 obj\n" + noise(payload, seed + 1) +
           "\nendobj\nstartxref\n9\n%%EOF\r\n";
}

QByteArray container(const QString &kind, int payload, quint32 seed)
{
    const auto entry = [](const char *name, const QByteArray &content) {
        return qMakePair(QString::fromLatin1(name), content);
    };
    const QByteArray content = noise(payload, seed);
    if (kind.startsWith(QLatin1String("od"))) {
        const QByteArray word = kind == QLatin1String("odt")   ? "text"
                                : kind == QLatin1String("ods") ? "spreadsheet"
                                                               : "presentation";
        return samples::zipArchive({entry("mimetype", "application/vnd.oasis.opendocument." + word),
                                    entry("content.xml", content)});
    }
    if (kind == QLatin1String("zip"))
        return samples::zipArchive({entry("photos/a.txt", content), entry("b.txt", "b")},
                                   samples::ZipMethod::Deflate);
    const char *const part = kind == QLatin1String("docx")   ? "word/document.xml"
                             : kind == QLatin1String("xlsx") ? "xl/workbook.xml"
                                                             : "ppt/presentation.xml";
    return samples::zipArchive({entry("[Content_Types].xml", "<Types/>"), entry(part, content)});
}

} // namespace diskimages
