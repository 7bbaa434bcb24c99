#include "report.h"
#include "search/indexbuilder.h"
#include "search/searchindexdb.h"
#include "subjects.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTextStream>

#include <sqlite3.h>

namespace {

constexpr double allowedRatio = 1.5;
constexpr double allowedMiB = 150.0;
constexpr int rowsPerTransaction = 500;

double peakMemoryKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0.0;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble();
    }
    return 0.0;
}

int printResult(const QElapsedTimer &clock)
{
    QTextStream(stdout) << double(clock.nsecsElapsed()) / 1e6 << ' ' << peakMemoryKiB() << '\n';
    return 0;
}

struct Sample
{
    double ms = -1.0;
    double peakKiB = 0.0;
};

// Runs this program again, so that each build has a process of its own.
Sample runSelf(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), arguments);
    process.waitForFinished(-1);
    const QList<QByteArray> words = process.readAllStandardOutput().trimmed().split(' ');
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0 ||
        words.size() != 2)
        return Sample();
    return {words.at(0).toDouble(), words.at(1).toDouble()};
}

void removeIndex(const QString &path)
{
    for (const char *suffix : {"", "-wal", "-shm"})
        QFile::remove(path + QLatin1String(suffix));
}

struct Row
{
    QByteArray text[4]; // path, name, suffix, category
    qint64 number[2];   // size, time
};

bool readRows(sqlite3 *db, QVector<Row> *rows)
{
    sqlite3_stmt *select = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT path,file_name,ext,category,size,modified_ms FROM file_index "
                           "ORDER BY id",
                           -1, &select, nullptr) != SQLITE_OK)
        return false;
    while (sqlite3_step(select) == SQLITE_ROW) {
        Row row;
        for (int i = 0; i < 4; ++i)
            row.text[i] = static_cast<const char *>(sqlite3_column_blob(select, i));
        for (int i = 0; i < 2; ++i)
            row.number[i] = sqlite3_column_int64(select, 4 + i);
        rows->append(row);
    }
    return sqlite3_finalize(select) == SQLITE_OK;
}

bool execute(sqlite3 *db, const char *sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool insertRows(sqlite3 *db, const QVector<Row> &rows)
{
    sqlite3_stmt *insert = nullptr;
    bool ok = sqlite3_prepare_v2(
                  db,
                  "INSERT INTO file_index(path,file_name,ext,category,size,modified_ms,indexed_at) "
                  "VALUES(?,?,?,?,?,?,datetime('now'))",
                  -1, &insert, nullptr) == SQLITE_OK;
    for (int i = 0; ok && i < rows.size(); ++i) {
        if (i % rowsPerTransaction == 0)
            ok = execute(db, "BEGIN");
        const Row &row = rows.at(i);
        for (int k = 0; k < 4; ++k)
            sqlite3_bind_text(insert, 1 + k, row.text[k].constData(), row.text[k].size(), nullptr);
        for (int k = 0; k < 2; ++k)
            sqlite3_bind_int64(insert, 5 + k, row.number[k]);
        ok = ok && sqlite3_step(insert) == SQLITE_DONE && sqlite3_reset(insert) == SQLITE_OK;
        if (i % rowsPerTransaction == rowsPerTransaction - 1 || i == rows.size() - 1)
            ok = ok && execute(db, "COMMIT");
    }
    sqlite3_finalize(insert);
    return ok;
}

} // namespace

int runBuilder(const QString &tree, const QString &database)
{
    IndexBuilder builder(database);
    bool built = false;
    QObject::connect(&builder, &IndexBuilder::finished, &builder,
                     [&built](bool success, const QString &) { built = success; });
    QElapsedTimer clock;
    clock.start();
    builder.startBuild({tree}, {}, {}, {}, 16384);
    return built ? printResult(clock) : 1;
}

int runRawInsert(const QString &source, const QString &database)
{
    if (!SearchIndexDB(database).open()) // makes the same schema
        return 1;
    QVector<Row> rows;
    sqlite3 *db = nullptr;
    bool ok = sqlite3_open(source.toUtf8().constData(), &db) == SQLITE_OK && readRows(db, &rows);
    sqlite3_close(db);
    ok = ok && sqlite3_open(database.toUtf8().constData(), &db) == SQLITE_OK &&
         execute(db, "PRAGMA journal_mode=WAL") && execute(db, "PRAGMA synchronous=NORMAL");
    QElapsedTimer clock;
    clock.start();
    ok = ok && insertRows(db, rows) && execute(db, "PRAGMA wal_checkpoint(TRUNCATE)") &&
         execute(db, "VACUUM");
    const int result = ok ? printResult(clock) : 1;
    sqlite3_close(db);
    return result;
}

bool benchBuild(const BenchOptions &options)
{
    const QString rawPath = options.workDir + QLatin1String("/raw.db");
    QVector<double> ours;
    QVector<double> raw;
    double peakKiB = 0.0;
    for (int round = 0; round < options.rounds; ++round) {
        removeIndex(options.indexPath());
        removeIndex(rawPath);
        const Sample build =
            runSelf({QStringLiteral("--builder"), options.treeDir(), options.indexPath()});
        const Sample insert =
            runSelf({QStringLiteral("--raw-insert"), options.indexPath(), rawPath});
        if (build.ms < 0 || insert.ms < 0) {
            QTextStream(stderr) << "build: a child process failed\n";
            return false;
        }
        ours.append(build.ms);
        raw.append(insert.ms);
        peakKiB = qMax(peakKiB, build.peakKiB);
    }
    removeIndex(rawPath);
    printReport(
        QStringLiteral("Building the name index (baseline: inserts through SQLite's C interface)"),
        {{QStringLiteral("walk, insert and compact"), milliseconds(median(ours)),
          milliseconds(median(raw)), median(ours) / median(raw),
          QStringLiteral("at most %1").arg(allowedRatio)},
         {QStringLiteral("peak of resident memory"),
          QStringLiteral("%1 MiB").arg(peakKiB / 1024.0, 0, 'f', 1), QString(), 0.0,
          QStringLiteral("below %1 MiB").arg(allowedMiB)}});
    return true;
}
