#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/scan/carvingscanner.h"
#include "search/report.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtEndian>

#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>
#include <vector>

/// Scans of an image against plain sequential reading of the same file, which is in the cache for
/// both: so what is measured is the scanner and not the disk.

using namespace services::recoveryd;

namespace {

constexpr qint64 kImageSize = qint64(1) << 30;
constexpr int kPiece = 4 * 1024 * 1024;
constexpr int kRounds = 5;

class Counter : public ScanObserver
{
public:
    bool mayGoOn() override { return true; }
    void advanced(qint64) override {}
    bool found(Finding &&finding) override
    {
        ++files;
        bytes += finding.content.size;
        return true;
    }

    int files = 0;
    qint64 bytes = 0;
};

QByteArray noise(int length, quint32 seed)
{
    std::mt19937 random(seed);
    QByteArray bytes(length, Qt::Uninitialized);
    for (int i = 0; i + 4 <= length; i += 4) {
        const quint32 word = quint32(random());
        std::memcpy(bytes.data() + i, &word, 4);
    }
    return bytes;
}

/// A picture in one chunk, or a document whose every byte has to be looked at.
QByteArray fileOf(bool isPicture, int payload)
{
    if (!isPicture)
        return "%PDF-1.7\n" + noise(payload, 2) + "\n%%EOF\n";
    QByteArray length(4, '\0');
    qToBigEndian<quint32>(quint32(payload), length.data());
    return QByteArray("\x89PNG\r\n\x1a\n\0\0\0\x0DIHDR", 16) + QByteArray(17, '\1') + length +
           "IDAT" + noise(payload, 3) + QByteArray("\0\0\0\0\0\0\0\0IEND\0\0\0\0", 16);
}

/// Noise; with files of `payload` bytes on every `every`th MiB where that is not 0.
bool writeImage(const QString &path, int every, int payload)
{
    QFile file(path);
    const QByteArray piece = noise(kPiece, 1);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (qint64 at = 0; at < kImageSize; at += kPiece)
        if (file.write(piece) != piece.size())
            return false;
    const QByteArray files[] = {fileOf(true, payload), fileOf(false, payload)};
    for (int mib = 0; every > 0 && mib < kImageSize >> 20; mib += every)
        if (!file.seek(qint64(mib) << 20) || file.write(files[mib / every % 2]) < payload)
            return false;
    return true;
}

double readPlainly(const QString &path)
{
    std::vector<char> buffer(kPiece);
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    QElapsedTimer clock;
    clock.start();
    while (::read(fd, buffer.data(), buffer.size()) > 0) {
    }
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    ::close(fd);
    return ms;
}

double scan(const QString &path, qint64 alignment, Counter *counter)
{
    QString error;
    const auto image = Image::open(path, &error);
    CarvingScanner::Plan plan;
    plan.volume = Volume(image, 0, image->size());
    plan.ranges = {{0, image->size()}};
    plan.alignment = alignment;
    QElapsedTimer clock;
    clock.start();
    CarvingScanner scanner(plan);
    if (!scanner.scan(*counter, &error))
        qFatal("%s", qPrintable(error));
    return double(clock.nsecsElapsed()) / 1e6;
}

void measure(const QString &path, const QString &subject, QVector<ReportRow> *rows)
{
    for (const qint64 alignment : {qint64(4096), qint64(512)}) {
        QVector<double> ours;
        QVector<double> plain;
        Counter counter;
        readPlainly(path);
        for (int round = 0; round < kRounds; ++round) {
            plain.append(readPlainly(path));
            counter = Counter();
            ours.append(scan(path, alignment, &counter));
        }
        ReportRow row;
        row.subject = QStringLiteral("%1, every %2 B: %3 files, %4 MiB")
                          .arg(subject)
                          .arg(alignment)
                          .arg(counter.files)
                          .arg(counter.bytes >> 20);
        row.ours = milliseconds(median(ours));
        row.baseline = milliseconds(median(plain));
        row.ratio = median(plain) / median(ours);
        row.target = QStringLiteral("at least 0.5");
        rows->append(row);
    }
}

} // namespace

int main()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("image"));
    QVector<ReportRow> rows;
    const struct
    {
        const char *subject;
        int every;
        int payload;
    } kinds[] = {{"noise", 0, 0}, {"few files", 16, 400000}, {"half files", 2, 1000000}};
    for (const auto &kind : kinds) {
        if (!writeImage(path, kind.every, kind.payload))
            qFatal("cannot write %s", qPrintable(path));
        measure(path, QLatin1String(kind.subject), &rows);
    }
    printReport(QStringLiteral("Speed of a scan of 1 GiB, by that of reading it"), rows);
    return 0;
}
