#include "analyzer/diskanalyzerworker.h"
#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/stopsignal.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

namespace cli {
namespace {

constexpr qint64 defaultDuplicateSize = 1; // bytes

/// One scan on this thread, with its results.
struct Scan
{
    struct Wish
    {
        qint64 largeFiles = 0; ///< How many; 0 for none.
        bool duplicates = false;
        qint64 duplicateSize = 0; ///< Bytes at least.
    };

    int run(const Arguments &arguments, Output *output, const Wish &wish);

    QString root;
    QVariantMap tree;
    QVariantList files;
    QVariantList groups;
};

int Scan::run(const Arguments &arguments, Output *output, const Wish &wish)
{
    const QFileInfo info(arguments.words().constFirst());
    if (!info.isDir())
        return wrongUsage(QStringLiteral("不是目录：%1").arg(info.filePath()));
    root = QDir::cleanPath(info.absoluteFilePath());
    DiskAnalyzerWorker worker;
    const StopSignal stop([&worker] { worker.requestStop(); });
    bool ok = false;
    QString message;
    QObject::connect(&worker, &DiskAnalyzerWorker::progressChanged, &worker,
                     [output](int percent, const QString &text) {
                         output->progress(QStringLiteral("%1% %2").arg(percent).arg(text));
                     });
    QObject::connect(&worker, &DiskAnalyzerWorker::directoryTreeReady, &worker,
                     [this](const QVariantMap &node) { tree = node; });
    QObject::connect(&worker, &DiskAnalyzerWorker::largeFilesReady, &worker,
                     [this](const QVariantList &found) { files = found; });
    QObject::connect(&worker, &DiskAnalyzerWorker::duplicateGroupsReady, &worker,
                     [this](const QVariantList &found) { groups = found; });
    QObject::connect(&worker, &DiskAnalyzerWorker::scanFinished, &worker,
                     [&](bool success, const QString &text) {
                         ok = success;
                         message = text;
                     });
    worker.startScan(root, 1, int(qMax(qint64(1), wish.largeFiles)), wish.duplicates, true,
                     wish.duplicateSize);
    if (ok)
        return Success;
    output->error(message);
    return stop.hasCome() ? Stopped : Failed;
}

qint64 bytesOf(const QVariantMap &map, const char *key)
{
    return map.value(QLatin1String(key)).toLongLong();
}

void printSize(Output *output, const QString &path, qint64 bytes, const char *kind)
{
    output->row({{QStringLiteral("path"), path},
                 {QStringLiteral("size"), bytes},
                 {QStringLiteral("kind"), QLatin1String(kind)}},
                path, sizeText(bytes).rightJustified(10) + QLatin1String("  ") + path);
}

} // namespace

int runSpace(const QStringList &list)
{
    Arguments arguments(QStringLiteral("space"),
                        QStringLiteral("显示目录里每个子目录占用的空间，大的在前"),
                        QStringLiteral("目录"));
    arguments.add(
        {QStringLiteral("files"), QStringLiteral("另外列出最大的 N 个文件"), QStringLiteral("N")});
    int exitCode = Success;
    if (!arguments.parse(list, 1, &exitCode))
        return exitCode;
    Scan::Wish wish;
    wish.largeFiles = arguments.number(QStringLiteral("files"), 0);
    if (wish.largeFiles < 0 || wish.largeFiles > 1000000)
        return wrongUsage(QStringLiteral("--files 需要一个数"));
    Output output(arguments.format());
    Scan scan;
    exitCode = scan.run(arguments, &output, wish);
    if (exitCode != Success)
        return exitCode;
    printSize(&output, scan.root, bytesOf(scan.tree, "totalSize"), "total");
    const QString base = scan.root == QLatin1String("/") ? scan.root : scan.root + QLatin1Char('/');
    const QVariantList children = scan.tree.value(QStringLiteral("children")).toList();
    for (const QVariant &child : children) {
        const QVariantMap map = child.toMap();
        printSize(&output, base + map.value(QStringLiteral("name")).toString(),
                  bytesOf(map, "totalSize"), "directory");
    }
    for (const QVariant &file : scan.files.mid(0, int(wish.largeFiles))) {
        const QVariantMap map = file.toMap();
        printSize(&output, map.value(QStringLiteral("path")).toString(), bytesOf(map, "size"),
                  "file");
    }
    return Success;
}

int runDupes(const QStringList &list)
{
    Arguments arguments(QStringLiteral("dupes"),
                        QStringLiteral("查找内容相同的文件，每组之间空一行"),
                        QStringLiteral("目录"));
    arguments.add({QStringLiteral("min-size"), QStringLiteral("忽略更小的文件，单位字节"),
                   QStringLiteral("N")});
    int exitCode = Success;
    if (!arguments.parse(list, 1, &exitCode))
        return exitCode;
    Scan::Wish wish;
    wish.duplicates = true;
    wish.duplicateSize = arguments.number(QStringLiteral("min-size"), defaultDuplicateSize);
    if (wish.duplicateSize < 0)
        return wrongUsage(QStringLiteral("--min-size 需要一个数"));
    Output output(arguments.format());
    Scan scan;
    exitCode = scan.run(arguments, &output, wish);
    if (exitCode != Success)
        return exitCode;
    const QVariantList groups = scan.groups.mid(1); // The first entry counts them.
    for (const QVariant &group : groups) {
        const QVariantMap map = group.toMap();
        QStringList paths;
        const QVariantList files = map.value(QStringLiteral("files")).toList();
        for (const QVariant &file : files)
            paths.append(file.toMap().value(QStringLiteral("path")).toString());
        const QJsonObject object{{QStringLiteral("size"), bytesOf(map, "size")},
                                 {QStringLiteral("paths"), QJsonArray::fromStringList(paths)}};
        // An empty name ends a group for those who read NULs.
        if (arguments.format() == Format::Json) {
            output.row(object, QString());
            continue;
        }
        for (const QString &path : qAsConst(paths))
            output.row(object, path);
        output.endGroup();
    }
    return groups.isEmpty() ? NothingFound : Success;
}

} // namespace cli
