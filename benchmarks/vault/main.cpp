// The list of a vault with 1,000,000 files: its start, a page of it, a search in it, and a group of
// deletions that is added. The baseline of a page is the same page of a list of 1,000 files.

#include "search/report.h"
#include "vaultd/fileindex.h"
#include "vaultd/vaultstore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

using namespace services::vaultd;

namespace {

constexpr int kFiles = 1000 * 1000;
constexpr int kFewFiles = 1000;
constexpr int kGroup = 5000;
constexpr int kRounds = 9;

double timed(const std::function<void()> &work)
{
    QVector<double> times;
    for (int i = 0; i < kRounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.append(double(timer.nsecsElapsed()) / 1e6);
    }
    return median(times);
}

QVector<IndexedFile> group(int from, int count)
{
    QVector<IndexedFile> files;
    for (int i = from; i < from + count; ++i) {
        IndexedFile indexed;
        VaultFile &file = indexed.file;
        file.id = QStringLiteral("00000000-0000-4000-8000-%1").arg(i, 12, 10, QLatin1Char('0'));
        file.setPath("/home/somebody/Documents/year " + QByteArray::number(i % 40) + "/project " +
                     QByteArray::number(i % 997) + "/report " + QByteArray::number(i) + ".docx");
        file.fileSize = 1000 + i % 5000;
        file.deletedAt = file.keptSince = 1700000000 + i;
        indexed.originalInode = quint64(i);
        files.append(indexed);
    }
    return files;
}

/// A vault's folders and an index of so many files that agrees with them.
struct Vault
{
    explicit Vault(int files)
        : layout(dir.path())
        , index(dir.path())
    {
        QString error;
        std::atomic<bool> stop{false};
        isFit = layout.prepare(&error) && VaultStore(layout, dir.path(), stop).open(&error) &&
                index.open(&error);
        for (int from = 0; isFit && from < files; from += kGroup)
            isFit = index.change({}, group(from, qMin(kGroup, files - from)), &error);
        isFit = isFit && list.open(dir.path());
        if (!isFit)
            std::fprintf(stderr, "%s\n", qUtf8Printable(error));
    }

    QTemporaryDir dir;
    VaultLayout layout;
    VaultIndex index;
    FileIndex list;
    bool isFit = false;
};

/// From nothing to the first page.
void startOn(const Vault &vault)
{
    QString error;
    std::atomic<bool> stop{false};
    VaultStore store(vault.layout, vault.dir.path(), stop);
    FileIndex list;
    if (!store.open(&error) || !list.open(vault.dir.path()) ||
        list.page(100, 0, QString()).files.isEmpty())
        std::fprintf(stderr, "no start: %s\n", qUtf8Printable(error));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    Vault few(kFewFiles);
    Vault many(kFiles);
    if (!few.isFit || !many.isFit)
        return 1;
    QVector<ReportRow> rows;
    const auto page = [&](const QString &subject, int offset, const QString &filter,
                          const QString &target) {
        const double ours = timed([&] { many.list.page(100, offset, filter); });
        const double base = timed([&] { few.list.page(100, 0, filter); });
        rows.append({subject, milliseconds(ours), milliseconds(base), ours, target});
    };
    const double start = timed([&] { startOn(many); });
    rows.append({QStringLiteral("start to the first page"), milliseconds(start), QString(), start,
                 QStringLiteral("< 2000 ms")});
    page(QStringLiteral("newest 100"), 0, QString(), QStringLiteral("< 50 ms"));
    page(QStringLiteral("100 in the middle"), kFiles / 2, QString(), QStringLiteral("< 50 ms"));
    page(QStringLiteral("oldest 100"), kFiles - 100, QString(), QStringLiteral("< 50 ms"));
    page(QStringLiteral("search with few matches"), 0, QStringLiteral("report 4711"), QString());
    page(QStringLiteral("search that all match"), 0, QStringLiteral("DOCX"), QString());
    int from = kFiles;
    const double added = timed([&] {
        QString error;
        if (!many.index.change({}, group(from, kGroup), &error))
            std::fprintf(stderr, "%s\n", qUtf8Printable(error));
        from += kGroup;
    });
    rows.append({QStringLiteral("5,000 files more"), milliseconds(added), QString(), 0, QString()});
    printReport(QStringLiteral("Vault of 1,000,000 files"), rows);
    return 0;
}
